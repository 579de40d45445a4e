#ifndef QUELVANE_CLI_DAEMON_H
#define QUELVANE_CLI_DAEMON_H

// The client's side of the library: the tools it needs, the daemon's
// socket, and a polling session with an application tree.

#include <quelvane/quelvane.h>

#include <initializer_list>
#include <string>

namespace qvcli {

extern const char* const kToolDir;   // "/usr/kpx/vesk/bin"

// Puts the tool directory at the front of PATH when it is not on it: the
// library finds some tools through the search path.
void addToolDirToPath();

// Refuses with kExitToolMissing when a tool is not an executable of the
// tool directory.
void requireTool(const std::string& tool);
void requireTools(std::initializer_list<const char*> tools);
// The same for a program found through PATH (chown).
void requireProgram(const std::string& program);

// Refuses with kExitNoDaemon when the daemon's socket takes no connection.
void requireDaemon();

// Removes the spool file of this process's session, if it has one. Safe in
// a signal handler and on the watchdog's thread.
void removeOwnSpool();

// What a session polls; the nodes, the cluster record and the filesystems'
// state are always polled.
enum PollPart : unsigned {
    kPollPools = 1u << 0,
    kPollDisks = 1u << 1,         // implies kPollPools
    kPollFreeDisks = 1u << 2,
    kPollMounts = 1u << 3,        // managers, mounted nodes, attributes, mount points
    kPollPolicies = 1u << 4,
    kPollCounters = 1u << 5,      // I/O counters of filesystems and disks
};

// A polling handler (protocol 0: no background threads) and an application
// tree, from a started library to its end. Every failure is a CliError.
class Session
{
public:
    // Starts the library with the given polling scope (POLL_LOCAL_CLUSTER or
    // POLL_LOCAL_NODE). The watchdog covers the start.
    explicit Session(int scope = POLL_LOCAL_CLUSTER);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    PollingHandler* handler() const { return handler_; }
    ClusterInfo* tree() const { return tree_; }

    // Brings the tree up to date; each collector runs under the watchdog.
    void poll(unsigned parts);

    // The filesystem of the tree named `name`; kExitFailure when unknown.
    FilesystemInfo* filesystem(const std::string& name) const;
    // The node of the tree with that name or address; kExitFailure when
    // unknown.
    NodeInfo* node(const std::string& nameOrAddress) const;

    // Sends one request on the session's connection and gives the daemon's
    // "_error_" line, empty when it answered without one.
    std::string daemonError(const std::string& request);

private:
    void step(const char* what, int rc);

    PollingHandler* handler_ = nullptr;
    ClusterInfo* tree_ = nullptr;
};

} // namespace qvcli

#endif
