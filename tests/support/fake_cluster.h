#ifndef QUELVANE_TEST_FAKE_CLUSTER_H
#define QUELVANE_TEST_FAKE_CLUSTER_H

// A small model of a cluster and everything the inventory collectors read
// about it: the repository queries, the daemon's keyword responses and the
// administration tools' tables and colon lines.
//
// Three layers, kept apart on purpose:
//   1. The model (SimCluster and its parts): plain data that a test builds and
//      changes (remove a node, move a disk, delete a filesystem).
//   2. Rendering (namespace qvtest::sim): pure functions from the model to the
//      exact texts. daemonAnswer() answers any request line, toolAnswer() any
//      tool call; daemonRequests() and toolCalls() list the requests and calls
//      that the collectors make against this model. Nothing here touches a
//      socket, a file or a process, so a standalone simulated daemon and
//      simulated tools can answer from the same code.
//   3. Scripting (FakeCluster): installs the rendered answers into a
//      FakeDaemon and a set of FakeTools, and re-installs them after the model
//      changed.

#include "support/fake_daemon.h"
#include "support/fake_tool.h"

#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace qvtest {

// ---------------------------------------------------------------------------
// The model. Text values are single words unless a comment says otherwise:
// the daemon's lines are blank separated.

struct SimNode {
    // Repository (node query, columns 2003 to 2015).
    std::string name;                   // 2003
    std::string ipAddr;                 // 2004, the key
    std::string sdrField2005 = "1";     // 2005, read and dropped by the library
    bool manager = false;               // 2006 "true"
    bool quorum = false;                // 2007 "true"
    std::string sdrField2008 = "0";     // 2008, read and dropped
    std::string sdrField2010 = "-";     // 2010
    bool snmpCollector = false;         // 2014 "true"
    bool gateway = false;               // 2015 "true"
    bool inRepository = true;           // listed by the node query

    // Daemon: "get nodes".
    bool reportedByDaemon = true;       // has lines in "get nodes", "tavrel nc", "tavrel v"
    std::string adminState = "up";
    std::string status = "up";
    int failures = 0;
    int threadWait = 0;
    std::string healthy = "yes";
    std::string diagnosis = "ok";

    // Daemon: "tavrel nc".
    std::string version = "5.2.0";
    long long pagePool = 1073741824LL;
    long long pfThreads = 72;
    long long maxMBps = 2048;
    long long maxFilesToCache = 4000;
    long long maxStatCache = 1000;      // -1 is the daemon's "four times maxFilesToCache"
    long long wkr1Threads = 48;
    long long dmapiEventTimeout = 86400000;
    long long dmapiMountTimeout = 60;
    long long dmapiSessFailureTimeout = 0;
    long long nsdServerWaitTimeWindowOnMount = 20;
    long long nsdServerWaitTimeForMount = 300;
    std::string unmountOnDiskFail = "no";

    // Daemon: "tavrel v".
    std::string platform = "x86_64-linux";
    unsigned flags = 0x80;              // bit 7: little endian

    // State tool.
    int nodeNumber = 1;
    std::string state = "active";
};

// One direction of one "tavrel ds" instance.
struct SimIo {
    double tw = 0.0;
    double ltw = 0.0;
    double stw = 0.0;
    unsigned long long b = 0;
    unsigned long ops = 0;
};

// One "tavrel ds" instance of a disk: the view of one node.
struct SimDiskIo {
    std::string nodeName;
    int rc = 0;
    SimIo read;
    SimIo write;
};

// One row of the disk path table: a node that sees the disk through a device
// of its own ("-": it has none).
struct SimDiskPath {
    std::string nodeName;
    std::string device;
};

struct SimDisk {
    std::string name;
    // Repository (disk query).
    std::string usage = "dataAndMetadata";   // 3006
    std::string sdrField3007 = "-";
    std::string sdrField3008 = "-";
    std::vector<std::string> servers;        // 3002, node names
    std::vector<std::string> backupServers;  // 3003, node names
    std::string freePoolName = "system";     // 3005 of a free disk

    // Daemon: "get fs FS POOL".
    std::string status = "up";
    std::string availability = "up";
    std::string diskWait = "0";
    long long totalSpace = 0;
    long long fullBlockFreeSpace = 0;
    long long fragFreeSpace = 0;
    bool reportedByDaemon = true;

    // Daemon: "tavrel ds ...".
    std::vector<SimDiskIo> io;

    // Daemon: "get nsddisk ..." (free disks).
    long long sizeKB = 0;
    std::string dstatus = "up";
    int iocnt = 0;

    // Disk path table.
    std::string nsdId = "0A00000100000000";
    std::vector<SimDiskPath> paths;
};

struct SimPool {
    std::string name;
    std::string status = "up";
    int nDisks = -1;                        // -1: the number of disks
    long long totalSpace = 0;
    long long freeSpace = 0;
    bool reportedByDaemon = true;           // listed by "get stgpools"
    std::vector<SimDisk> disks;
};

// The counters of one filesystem on one node ("tavrel gfis").
struct SimFsCounters {
    std::string nodeIp;
    int rc = 0;
    unsigned long long br = 0, bc = 0, bw = 0;
    unsigned long long r = 0, c = 0, w = 0, oc = 0, cc = 0, rdc = 0, wc = 0, dir = 0;
    unsigned long long iu = 0, irc = 0, idc = 0, icc = 0;
    unsigned long long sch = 0, scm = 0;
};

struct SimPolicy {
    std::string fileName;
    std::string userName = "root";
    std::string installTime;                // may hold blanks and colons
};

struct SimFilesystem {
    std::string name;

    // Daemon: "get fs FS".
    bool reportedByDaemon = true;
    std::string status = "mounted";
    std::string xstatus = "normal";
    int readDuration = 0;
    int writeDuration = 0;
    int nSysMgt = 0;
    int mgrChangeCnt = 0;
    long long totalSpace = 0;
    long long totalInodes = 0;
    long long freeSpace = 0;
    long long freeInodes = 0;
    long long fullBlockFreeSpace = 0;
    long long fragFreeSpace = 0;
    std::string threadWait = "0";
    std::string diskWait = "0";

    // Daemon: "tavrel gfis".
    std::vector<SimFsCounters> counters;

    // Manager table: the manager's address (empty: no row).
    std::string managerIp;
    // Attribute lines of "vklsfs FS -Y": field name and value, in order.
    std::vector<std::pair<std::string, std::string>> attributes;
    // "vklsfs all -T -Y".
    std::string defaultMountPoint;
    // "vklsmount all_local -Y": addresses of the nodes that have it mounted.
    std::vector<std::string> mountedBy;
    // "vklspolicy FS -Y" and "vklspolicy FS -L -Y".
    std::vector<SimPolicy> policies;
    std::vector<std::string> policyText;

    std::vector<SimPool> pools;
};

struct SimCluster {
    // Repository (cluster query).
    std::string clusterName = "cluster1";
    std::string sdrField1002 = "1002";
    std::string sdrField1003 = "1003";
    std::string sdrField1008 = "1008";
    std::string sdrField1006 = "1006";
    std::string sdrField1007 = "1007";
    int sdrField1011 = 0;
    std::string sdrField1004 = "1004";
    std::string sdrField1005 = "1005";
    unsigned genNumber = 1;

    // Daemon: "get clusterinfo".
    int maxBlockSize = 0;
    std::string maxFeature = "0";
    bool distribTokenServer = false;
    int failureDetectionTime = 0;
    int minMissedPingTimeout = 0;
    int maxMissedPingTimeout = 0;

    // Cluster manager ("vklsmgr -c"): address of a node of nodes.
    std::string clusterManagerIp;

    std::vector<SimNode> nodes;
    std::vector<SimFilesystem> filesystems;
    std::vector<SimDisk> freeDisks;

    // Lookups; null when absent.
    SimNode* node(const std::string& nameOrIp);
    SimFilesystem* filesystem(const std::string& name);
    SimPool* pool(const std::string& fsName, const std::string& poolName);
    SimDisk* disk(const std::string& name);   // pools first, then free disks
    const SimNode* node(const std::string& nameOrIp) const;
    const SimFilesystem* filesystem(const std::string& name) const;
    const SimPool* pool(const std::string& fsName, const std::string& poolName) const;

    // Changes of the cluster, as an administrator would make them.
    // The node leaves the cluster: repository, daemon, server lists, disk
    // paths, mounts, counters and disk instances no longer name it.
    void removeNode(const std::string& nameOrIp);
    // The disk leaves its pool (or the free list) and joins the end of the
    // pool `poolName` of `fsName`, which is created when missing.
    void moveDisk(const std::string& diskName, const std::string& fsName,
                  const std::string& poolName);
    // The filesystem is deleted; its disks become free disks (size in KB from
    // their totalSpace), appended in pool order.
    void deleteFilesystem(const std::string& name);
};

// ---------------------------------------------------------------------------
// Rendering: model -> texts. Pure functions.
namespace sim {

// Directory of the tools and the tools that a cluster answers for.
extern const char* const kToolDir;
const std::vector<std::string>& toolNames();

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

} // namespace sim

// ---------------------------------------------------------------------------
// Scripting: installs the model's answers into a FakeDaemon and into fake
// tools of its own (vksdrquery, vklsmgr, vklsmount, vklsfs, vklsnsd,
// vklspolicy, vkgetstate). Calls that the model does not know get status 1
// and an "unscripted call" text on stderr.
class FakeCluster
{
public:
    explicit FakeCluster(FakeDaemon& daemon);

    SimCluster model;

    // Renders the model and scripts the fakes with it. Requests scripted by an
    // earlier call that the model no longer answers get the end line alone.
    void script();

    FakeTool& tool(const std::string& name);
    // Forgets the recorded calls of every tool.
    void clearCalls();

private:
    FakeDaemon& daemon_;
    std::map<std::string, std::unique_ptr<FakeTool>> tools_;
    std::set<std::string> scripted_;
};

// The small cluster of the end-to-end tests: 3 nodes, 2 filesystems, 3 pools,
// 4 disks and 1 free disk, with every source filled in.
//   nodes      node1 10.0.0.1 (manager, quorum), node2 10.0.0.2 (quorum,
//              gateway), node3 10.0.0.3 (snmp collector)
//   fs1        pools system (d1) and data1 (d2, d3); one policy
//   fs2        pool system (d4); no policy
//   free disk  d5
SimCluster smallCluster();

} // namespace qvtest

#endif
