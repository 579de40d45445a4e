#ifndef QUELVANE_SIM_MODEL_H
#define QUELVANE_SIM_MODEL_H

// The simulated cluster's model: plain data from which the daemon's answers,
// the tools' outputs and the events are rendered. Text values are single
// words unless a comment says otherwise: the daemon's lines are blank
// separated.

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace qvsim {

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

// A fileset of a filesystem ("vklsfileset").
struct SimFileset {
    std::string name;
    int id = 0;
    long long rootInode = 3;
    std::string status = "Linked";          // "Linked" or "Unlinked"
    std::string path;                       // junction; "--" when unlinked
    int parentId = 0;
    std::string created = "Mon Nov 23 09:00:00 2026";   // holds blanks and colons
    long long inodes = 0;
    long long dataInKB = 0;
    std::string comment;                    // may hold blanks
};

// A quota entry ("vklsquota"): of a user, a group or a fileset.
struct SimQuota {
    std::string type = "USR";               // "USR", "GRP" or "FILESET"
    std::string name;
    int id = 0;
    long long blockUsage = 0;               // KB
    long long blockQuota = 0;               // soft limit
    long long blockLimit = 0;               // hard limit
    int blockInDoubt = 0;
    std::string blockGrace = "none";
    long long filesUsage = 0;
    long long filesQuota = 0;
    long long filesLimit = 0;
    int filesInDoubt = 0;
    std::string filesGrace = "none";
    std::string remarks = "e";
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

    // "vklsfileset FS -LY": the root fileset first.
    std::vector<SimFileset> filesets;
    std::vector<SimQuota> quotas;
};

// Recovery groups: physical disks ("vklspdisk"), virtual disks ("vklsvdisk")
// and declustered arrays ("vklsrecoverygroup").
struct SimPdisk {
    std::string name;
    double replacementPriority = 1000.0;
    std::string paths = "2";
    std::string device = "/dev/sdq";
    std::string state = "ok";
    unsigned long long sizeBytes = 0;
    std::string fru = "00W1240";
    std::string location = "SV1-1";
};

struct SimVdisk {
    std::string name;
    std::string raidCode = "8+2p";
    int blockSizeKiB = 1024;
    unsigned long long sizeBytes = 0;
    std::string state = "ok";
    std::string remarks = "-";
};

struct SimDeclusteredArray {
    std::string name;
    std::string needsService = "no";
    int spares = 2;
    int replaceThreshold = 2;
    long long freeSpace = 0;                // GiB
    int scrubDuration = 14;                 // days
    std::string backgroundTask = "scrub";
    int taskPercentComplete = 0;
    std::string taskPriority = "low";
    std::vector<SimPdisk> pdisks;
    std::vector<SimVdisk> vdisks;
};

struct SimRecoveryGroup {
    std::string name;
    std::vector<std::string> servers;       // node names; the first is active
    std::string id;
    std::vector<SimDeclusteredArray> arrays;
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

    // Simulated time in seconds since the cluster started; the counters grow
    // with it.
    long long simTime = 0;

    // The version number that "kxctl showCfgValue libquelvaneversion" states
    // (a library older than it refuses to start).
    int daemonLibVersion = 3504;

    std::vector<SimRecoveryGroup> recoveryGroups;
    // "vklsconfig nsdraid -Y": parameter names and values.
    std::vector<std::pair<std::string, std::string>> nsdRaidConfig;

    // Access control lists set with "vkputacl", by path.
    std::map<std::string, std::string> acls;

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

} // namespace qvsim

#endif
