#ifndef QUELVANE_SIM_DAEMON_H
#define QUELVANE_SIM_DAEMON_H

// The simulated daemon: one model behind the daemon's socket, the tools and
// the control verbs.
//
// The daemon socket ("/var/vesk/tavrel/tavrelSocket") answers request lines
// with the rendered response and its end line, each connection on a thread of
// its own, and carries event lines to every open connection. The control
// socket answers the tools (which print what the model renders and apply the
// changes the changing tools make) and the "ctl" verbs. Every access to the
// model is made under one lock, so a change is seen by the daemon and the
// tools at once.

#include "sim/model.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace qvsim {

extern const char* const kDaemonSocketPath;    // "/var/vesk/tavrel/tavrelSocket"
extern const char* const kControlSocketPath;   // "/var/vesk/tavrel/quelvane-sim.control"

// What a tool call or a control verb gives back.
struct ControlReply {
    int status = 0;
    std::string out;
    std::string err;
};

class SimDaemon
{
public:
    explicit SimDaemon(SimCluster model);
    ~SimDaemon();

    SimDaemon(const SimDaemon&) = delete;
    SimDaemon& operator=(const SimDaemon&) = delete;

    // Listens on both sockets; false with a message in *err on failure.
    bool start(std::string* err);
    // Closes the sockets and every connection, and joins every thread.
    void stop();
    // Blocks until the verb "stop" arrived or stop() was called.
    void waitForStopRequest();
    bool stopRequested() const { return stopRequested_; }

    // Runs one tool call: the tool's name and its arguments as it received
    // them.
    // `input` is what the tool read from its standard input (vkputacl).
    ControlReply runTool(const std::string& tool, const std::vector<std::string>& args,
                         const std::string& input = std::string());
    // Runs one control verb ("fail-node", "dump", ...) with its arguments.
    ControlReply control(const std::string& verb, const std::vector<std::string>& args);
    // Sends an event line (without its newline) to every open connection.
    // Returns the number of connections written.
    int broadcast(const std::string& line);

    // Runs `f` on the model under the model lock.
    void withModel(const std::function<void(SimCluster&)>& f);

    // Request lines received so far on the daemon socket, in arrival order.
    std::vector<std::string> requests() const;
    size_t openConnections() const;

private:
    struct Conn {
        int fd = -1;
        std::mutex writeMutex;
        std::atomic<bool> open{true};
        std::thread thread;
    };

    void acceptDaemon();
    void acceptControl();
    void serveDaemon(Conn* c);
    void serveControl(int fd);
    bool writeAll(Conn& c, const std::string& bytes);
    std::vector<std::string> answer(const std::string& request);
    ControlReply controlLocked(const std::string& verb, const std::vector<std::string>& args,
                               std::vector<std::string>* events);
    ControlReply toolLocked(const std::string& tool, const std::vector<std::string>& args,
                            const std::string& input, std::vector<std::string>* events);

    mutable std::mutex modelMutex_;
    SimCluster model_;

    int daemonFd_ = -1;
    int controlFd_ = -1;
    std::atomic<bool> stopping_{false};
    std::thread daemonAccept_;
    std::thread controlAccept_;

    mutable std::mutex connMutex_;
    std::vector<std::unique_ptr<Conn>> conns_;
    int activeControls_ = 0;
    std::condition_variable controlsDone_;
    std::vector<std::string> requests_;

    std::mutex stopMutex_;
    std::condition_variable stopCond_;
    std::atomic<bool> stopRequested_{false};
};

// Client side of the control socket: sends one call (a kind, "tool" or
// "ctl", then its words; "tool-stdin" carries the tool's standard input as
// its last word) and returns the reply. A reply with status 127 and
// a message in `err` when no simulation answers.
ControlReply controlCall(const std::string& kind, const std::vector<std::string>& words);

} // namespace qvsim

#endif
