#ifndef QUELVANE_CLI_COMMANDS_H
#define QUELVANE_CLI_COMMANDS_H

// The commands of the client. Each returns the process's exit status or
// throws CliError; each prints a table, or with `json` one JSON document.

#include <string>
#include <vector>

namespace qvcli {

// ---- inventory (inventory.cpp) ----
int cmdStatus(bool json);
int cmdNodes(bool json);
int cmdFilesystems(bool json);
int cmdPools(const std::string& fs, bool json);
int cmdDisks(const std::string& fs, const std::string& pool, bool json);
int cmdFreeDisks(bool json);
int cmdMounts(const std::string& fs, bool json);
int cmdPolicies(const std::string& fs, bool json);
int cmdFilesets(const std::string& fs, bool json);
int cmdRecoveryGroups(const std::string& name, bool json);

// ---- statistics (stats.cpp) ----
struct StatsOptions {
    std::string family;
    std::string node;          // name or address; empty: every node
    std::string unit = "seconds";   // rpc: seconds, minutes, hours, days
    int count = 1;             // rpc: samples of the unit
    bool json = false;
};
// The family names, in the order the help lists them.
const std::vector<std::string>& statsFamilies();
int cmdStats(const StatsOptions& o);

// ---- events (events.cpp) ----
// The event words, by event number.
const std::vector<std::string>& eventWords();
int cmdEvents(const std::vector<std::string>& kinds, bool json);

// ---- watch (watch.cpp) ----
int cmdWatch(double interval, int disks);

// ---- administration (admin.cpp) ----
int cmdFilesetCreate(const std::string& fs, const std::string& name, const std::string& comment);
int cmdFilesetLink(const std::string& fs, const std::string& name, const std::string& junction);
int cmdFilesetUnlink(const std::string& fs, const std::string& name, const std::string& junction, bool force);
int cmdFilesetDelete(const std::string& fs, const std::string& name, bool force);
int cmdFilesetEdit(const std::string& fs, const std::string& name, const std::string& junction,
                   const std::string& newName, const std::string& comment, bool commentGiven);

struct QuotaTarget {
    std::string user;
    std::string group;
    std::string fileset;
};
struct QuotaLimits {
    // Negative: left as it is.
    long long blockSoft = -1;
    long long blockHard = -1;
    long long filesSoft = -1;
    long long filesHard = -1;
};
int cmdQuotaGet(const std::string& fs, const QuotaTarget& t, bool json);
int cmdQuotaSet(const std::string& fs, const QuotaTarget& t, const QuotaLimits& l);
int cmdAclCopy(const std::string& source, const std::string& target, const std::string& type);
int cmdOwnerSet(const std::string& path, const std::string& owner, const std::string& group);

} // namespace qvcli

#endif
