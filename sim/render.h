#ifndef QUELVANE_SIM_RENDER_H
#define QUELVANE_SIM_RENDER_H

// Rendering: pure functions from the model to the exact texts of the daemon
// and of the tools. Nothing here touches a socket, a file or a process.

#include "sim/model.h"

#include <string>
#include <utility>
#include <vector>

namespace qvsim {

// Directory of the tools and the tools that a cluster answers for.
extern const char* const kToolDir;
const std::vector<std::string>& toolNames();
// Every tool the library runs, under whose names the simulator answers.
const std::vector<std::string>& allToolNames();

// Argument texts of the repository queries.
extern const char* const kClusterQueryArgs;   // "10 1001:1002:1003:1008:1006:1007:1011:1004:1005"
extern const char* const kGenNumberArgs;      // "10 1015 all norefresh"
extern const char* const kNodeQueryArgs;      // "20 2003:2004:2005:2006:2007:2008:2010:2014:2015"
extern const char* const kDiskQueryArgs;      // "30 3001:3004:3005:3006:3007:3008:3002:3003"

// Encodes ':' and '%' (and blanks and newlines) as "%XX", as the tools print
// text fields.
std::string percentEncode(const std::string& text);
// Formats a double as the daemon prints it ("%g").
std::string num(double v);

// Tool outputs.
std::string clusterQueryOutput(const SimCluster& c);
std::string genNumberOutput(const SimCluster& c);
std::string nodeQueryOutput(const SimCluster& c);
std::string diskQueryOutput(const SimCluster& c);
std::string managerTable(const SimCluster& c, const std::string& fsName);
std::string clusterManagerOutput(const SimCluster& c);   // "vklsmgr -c"
std::string mountOutput(const SimCluster& c);            // "vklsmount all_local -Y"
std::string attributeOutput(const SimCluster& c, const std::string& fsName);
std::string mountPointOutput(const SimCluster& c);       // "vklsfs all -T -Y"
std::string diskPathTable(const SimCluster& c);          // "vklsnsd -M"
std::string policyOutput(const SimCluster& c, const std::string& fsName);
std::string policyRuleOutput(const SimCluster& c, const std::string& fsName);
std::string stateOutput(const SimCluster& c);            // "vkgetstate -Y"
std::string clusterNodeInfoOutput(const SimCluster& c);  // "kxctl clusternodeinfo"

// Daemon responses, without the end line.
std::vector<std::string> clusterInfoLines(const SimCluster& c);
std::vector<std::string> nodeLines(const SimCluster& c);
std::vector<std::string> nodeConfigLines(const SimCluster& c);
std::vector<std::string> nodeVersionLines(const SimCluster& c);
std::vector<std::string> fsStateLines(const SimCluster& c, const std::string& fsName);
std::vector<std::string> fsCounterLines(const SimCluster& c);
std::vector<std::string> poolLines(const SimCluster& c, const std::string& fsName);
std::vector<std::string> diskLines(const SimCluster& c, const std::string& fsName,
                                   const std::string& poolName);
std::vector<std::string> diskIoLines(const SimCluster& c, const std::string& fsName,
                                     const std::string& poolName);
std::vector<std::string> freeDiskLines(const SimCluster& c, const std::vector<std::string>& names);
std::vector<std::string> nodeCountLines(const SimCluster& c);

// The request "get nsddisk" with the model's free disks, in model order.
std::string freeDiskRequest(const SimCluster& c);
// The request "tavrel ds ..." of one pool.
std::string diskIoRequest(const SimCluster& c, const std::string& fsName,
                          const std::string& poolName);

// The answer to any request line. False when the line is no request that the
// model answers with data (the node list requests, unknown names): the
// daemon then sends the end line alone.
bool daemonAnswer(const SimCluster& c, const std::string& request,
                  std::vector<std::string>* lines);

// Statistics. A counter of an object (a node's address, "FS/DISK_r_",
// "FS/POOL", a filesystem's name) grows with simulated time; the "seconds"
// values are counters read as thousandths.
unsigned long long statCounter(const SimCluster& c, const std::string& object, const std::string& counter);
double statSeconds(const SimCluster& c, const std::string& object, const std::string& counter);
// A node that is down answers the per-node families with this _rc_.
extern const int kDownNodeStatsRc;
bool nodeAnswersStats(const SimNode& n);
// True for the statistics requests that statsLines answers.
bool isStatsRequest(const std::string& request);
std::vector<std::string> statsLines(const SimCluster& c, const std::string& request);

// True for requests the daemon knows and answers with the end line alone
// (the node list requests).
bool daemonKnowsEmpty(const std::string& request);

struct ToolAnswer {
    std::string out;
    int status = 0;
    std::string err;
};
// The answer of a tool to one call; `args` as the tool sees them ("$*"). False
// for calls that the model does not know.
bool toolAnswer(const SimCluster& c, const std::string& tool, const std::string& args,
                ToolAnswer* answer);

// Every request that the inventory collectors send against this model, and
// every tool call (tool name, argument text) they make.
std::vector<std::string> daemonRequests(const SimCluster& c);
std::vector<std::pair<std::string, std::string>> toolCalls(const SimCluster& c);

} // namespace qvsim

#endif
