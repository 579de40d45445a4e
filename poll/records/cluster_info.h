#ifndef QUELVANE_CLUSTER_INFO_H
#define QUELVANE_CLUSTER_INFO_H

// Inventory records: the tree that describes one cluster.
//
//   ClusterInfo
//     nodeItems        -> NodeInfo
//                           diskAccessItems -> DiskAccessInfo
//                           pCacheItems and single statistics records
//     filesystemItems  -> FilesystemInfo
//                           poolItems        -> StoragePoolInfo
//                                                 diskItems -> DiskInfo
//                                                                serverItems, backupServerItems
//                                                                  -> DiskServerInfo
//                           mountedNodeItems -> MountedNodeInfo
//                           policyItems      -> PolicyInfo
//                                                 ruleItems -> RuleInfo
//                           perNodePerfItems -> FilesystemPerf
//     freeDiskItems    -> DiskInfo
//     clusterCfgItems  -> ClusterCfgInfo (statistics)
//
// Every "...Items" vector owns the records it points to; the owner's destructor
// destroys them. Text fields are fixed, zero-terminated character arrays.
// Records are plain classes: no virtual operations, no locks.
//
// Each record has a constructor taking an MErrno* (it stores 0 there) and an
// operator= that copies the record's own fields only, never a child vector or
// a statistics pointer of either side. The level copies (copyNodes, copyFS,
// ...) bring one level of a tree into line with another tree by key; the
// caller walks down level by level by position.

#include <list>
#include <vector>

#include <sys/time.h>

#include <quelvane/export.h>
#include <quelvane/merrno.h>

// Statistics records that hang off the inventory; their classes belong to the
// statistics part of the library. The inventory only knows them as pointers.
class IocStatsInfo;
class VfsStatsInfo;
class ThreadUtilInfo;
class RPCUtilInfo;
class RPCRawUtilInfo;
class RPCSizeUtilInfo;
class RPCMsgUtilInfo;
class AggregatedRPCUtilInfoPerSec;
class CacheStatsInfo;
class PCacheStatsInfo;
class KxcommCfgInfo;
class VerbsClientStatsInfo;
class VerbsServerStatsInfo;
class ClusterCfgInfo;

class NodeInfo;
class FilesystemInfo;
class StoragePoolInfo;
class DiskInfo;
class DiskServerInfo;
class DiskAccessInfo;
class MountedNodeInfo;
class PolicyInfo;
class RuleInfo;
class FilesystemPerf;

// ---------------------------------------------------------------------------
// DiskServerInfo: one server (a node name) of a disk. Key: name.
class QUELVANE_API DiskServerInfo
{
public:
    char name[256];

    DiskServerInfo(MErrno* err);
    ~DiskServerInfo();
    DiskServerInfo& operator=(DiskServerInfo& other);
};

// ---------------------------------------------------------------------------
// DiskAccessInfo: how one node reaches one disk. Key: diskName.
//
// The 32-bit flag is the record's second field. Its reader is called isLocal(),
// so the field itself bears the name `local` (a member cannot share its name
// with a member function): 1 when the node reaches the disk through a device of
// its own, 0 when it goes through a server.
class QUELVANE_API DiskAccessInfo
{
public:
    char diskName[256];
    int local;
    char deviceName[256];
    char serverName[256];

    DiskAccessInfo(MErrno* err);
    ~DiskAccessInfo();
    DiskAccessInfo& operator=(DiskAccessInfo& other);

    char* getDiskName() { return diskName; }
    int isLocal() { return local; }
    char* getDeviceName() { return deviceName; }
    char* getServerName() { return serverName; }
};

// ---------------------------------------------------------------------------
// MountedNodeInfo: a node that has a filesystem mounted. Key: nodeIpAddr.
class QUELVANE_API MountedNodeInfo
{
public:
    char nodeName[256];
    char nodeIpAddr[256];
    int found;

    MountedNodeInfo(MErrno* err);
    ~MountedNodeInfo();
    // Copies nodeName and nodeIpAddr; found stays.
    MountedNodeInfo& operator=(MountedNodeInfo& other);
};

// ---------------------------------------------------------------------------
// RuleInfo: one rule of a policy. Key: name.
class QUELVANE_API RuleInfo
{
public:
    char name[256];
    char desc[1024];

    RuleInfo(MErrno* err);
    ~RuleInfo();
    RuleInfo& operator=(RuleInfo& other);
};

// ---------------------------------------------------------------------------
// PolicyInfo: an installed policy of a filesystem. Key: name.
class QUELVANE_API PolicyInfo
{
public:
    char name[256];
    char userName[256];
    char installTime[256];
    std::vector<RuleInfo*> ruleItems;       // capacity 65536, owned

    PolicyInfo(MErrno* err);
    ~PolicyInfo();
    PolicyInfo(const PolicyInfo&) = delete;

    // Copies name, userName, installTime; ruleItems stays.
    PolicyInfo& operator=(PolicyInfo& other);

    int getRuleInfoIndex(char* key);
    int getRuleInfoIndex(const char* key) { return getRuleInfoIndex(const_cast<char*>(key)); }

    void copyRules(PolicyInfo* policyP);
};

// ---------------------------------------------------------------------------
// FilesystemPerf: the counters of one filesystem on one node. Key: nodeIpAddr.
class QUELVANE_API FilesystemPerf
{
public:
    char fsName[256];
    char nodeName[256];
    char nodeIpAddr[256];
    unsigned long long bytesRead;
    unsigned long long bytesCache;
    unsigned long long bytesWritten;
    unsigned int reads;
    unsigned int caches;
    unsigned int writes;
    unsigned int openCalls;
    unsigned int closeCalls;
    unsigned int readCalls;
    unsigned int writeCalls;
    unsigned int dirCalls;
    unsigned long long inodeUpdates;
    unsigned long long ircCount;
    unsigned long long idcCount;
    unsigned long long iccCount;
    unsigned int schCount;
    unsigned int scmCount;
    int found;

    FilesystemPerf(MErrno* err);
    ~FilesystemPerf();
    // Copies the texts and counters; found stays.
    FilesystemPerf& operator=(FilesystemPerf& other);

    // Zeroes bytesRead to scmCount; found and the texts stay.
    void clearStats();
};

// ---------------------------------------------------------------------------
// DiskInfo: a disk of a pool, or a free disk. Key: name.
class QUELVANE_API DiskInfo
{
public:
    int found;
    int isFree;
    char name[256];
    char nodeName[256];
    char poolName[256];
    char status[256];                       // "unknown" after construction
    char availability[256];
    char sdrField3007[1024];
    char sdrField3008[256];
    char holdsMetadata[256];
    char holdsData[256];
    char diskWait[256];
    long long totalSpace;
    long long fullBlockFreeSpace;
    long long fragFreeSpace;
    double readTime;
    double writeTime;
    double longestReadTime;
    double longestWriteTime;
    double shortestReadTime;
    double shortestWriteTime;
    unsigned long long bytesRead;
    unsigned long long bytesWritten;
    unsigned int readOps;
    unsigned int writeOps;
    unsigned int perfInstanceCount;
    std::vector<DiskServerInfo*> serverItems;        // capacity 32, owned
    std::vector<DiskServerInfo*> backupServerItems;  // capacity 32, owned

    DiskInfo(MErrno* err);
    ~DiskInfo();
    DiskInfo(const DiskInfo&) = delete;

    // Copies isFree, all texts, all numbers and counters; found and the server
    // vectors stay.
    DiskInfo& operator=(DiskInfo& other);

    // Zeroes readTime to perfInstanceCount; the space fields and texts stay.
    void clearStats();
    // Replaces status with the given text; a null argument leaves it alone.
    void updateDiskInfoStatus(char* newStatus);

    int getServerIndex(char* key);
    int getServerIndex(const char* key) { return getServerIndex(const_cast<char*>(key)); }
    int getBackupServerIndex(char* key);
    int getBackupServerIndex(const char* key) { return getBackupServerIndex(const_cast<char*>(key)); }

    void copyServers(DiskInfo* diskP);
    void copyBackupServers(DiskInfo* diskP);
};

// ---------------------------------------------------------------------------
// StoragePoolInfo: a storage pool of a filesystem. Key: name.
class QUELVANE_API StoragePoolInfo
{
public:
    char name[256];
    char status[256];
    int nDisks;
    long long totalSpace;
    long long freeSpace;
    int fsIndex;
    int found;
    std::vector<DiskInfo*> diskItems;       // capacity 1024, owned
    struct timeval diskUpdateTime;
    struct timeval diskPerfUpdateTime;
    unsigned long long bytesRead;
    unsigned long long bytesWritten;
    double readTime;
    double writeTime;

    StoragePoolInfo(MErrno* err);
    ~StoragePoolInfo();
    StoragePoolInfo(const StoragePoolInfo&) = delete;

    // Copies name, status, nDisks, totalSpace, freeSpace, fsIndex, the two
    // times and the four counters; found and diskItems stay.
    StoragePoolInfo& operator=(StoragePoolInfo& other);

    // Zeroes bytesRead, bytesWritten, readTime, writeTime.
    void clearStats();

    int getDiskInfoIndex(char* key);
    int getDiskInfoIndex(const char* key) { return getDiskInfoIndex(const_cast<char*>(key)); }

    // Also copies diskUpdateTime and diskPerfUpdateTime.
    void copyDisks(StoragePoolInfo* poolP);
};

// ---------------------------------------------------------------------------
// FilesystemInfo: a filesystem of the cluster. Key: name.
class QUELVANE_API FilesystemInfo
{
public:
    char name[256];
    char manager[256];
    char status[256];                       // "unknown" after construction
    char xstatus[256];
    int readDuration;
    int writeDuration;
    int nSysMgt;
    int mgrChangeCnt;
    long long totalSpace;
    long long totalInodes;
    long long freeSpace;
    long long freeInodes;
    long long fullBlockFreeSpace;
    long long fragFreeSpace;
    char threadWait[256];
    char diskWait[256];
    long long minFragmentSize;
    long long inodeSize;
    long long indirectBlockSize;
    int defaultMetadataReplicas;
    int maxMetadataReplicas;
    int defaultDataReplicas;
    int maxDataReplicas;
    char blockAllocationType[256];
    char fileLockingSemantics[256];
    char ACLSemantics[256];
    long long estimatedAverageFilesize;
    long long numNodes;
    long long blockSize;
    char quotasEnforced[256];
    char defaultQuotasEnabled[256];
    long long maxNumberOfInodes;
    char filesystemVersion[256];
    char supportForLargeLUNs[256];
    char DMAPIEnabled[256];
    char exactMtime[256];
    char suppressAtime[256];
    char automaticMountOption[256];
    char additionalMountOptions[256];
    char defaultMountPoint[256];
    unsigned long long bytesRead;
    unsigned long long bytesCache;
    unsigned long long bytesWritten;
    unsigned int reads;
    unsigned int caches;
    unsigned int writes;
    unsigned int openCalls;
    unsigned int closeCalls;
    unsigned int readCalls;
    unsigned int writeCalls;
    unsigned int dirCalls;
    unsigned long long inodeUpdates;
    unsigned long long ircCount;
    unsigned long long idcCount;
    unsigned long long iccCount;
    unsigned int schCount;
    unsigned int scmCount;
    unsigned int perfInstances;
    std::vector<StoragePoolInfo*> poolItems;         // capacity 256, owned
    struct timeval poolUpdateTime;
    std::vector<MountedNodeInfo*> mountedNodeItems;  // capacity 1024, owned
    std::vector<PolicyInfo*> policyItems;            // capacity 32, owned
    std::vector<FilesystemPerf*> perNodePerfItems;   // capacity 1024, owned
    int found;
    char mountPointValid;

    FilesystemInfo(MErrno* err);
    ~FilesystemInfo();
    FilesystemInfo(const FilesystemInfo&) = delete;

    // Copies every own field (poolUpdateTime and mountPointValid included);
    // found and the four vectors stay.
    FilesystemInfo& operator=(FilesystemInfo& other);

    // Zeroes bytesRead to perfInstances.
    void clearStats();

    int getStoragePoolInfoIndex(char* key);
    int getStoragePoolInfoIndex(const char* key) { return getStoragePoolInfoIndex(const_cast<char*>(key)); }
    int getMountedNodeIndex(char* key);
    int getMountedNodeIndex(const char* key) { return getMountedNodeIndex(const_cast<char*>(key)); }
    // Logs "index = %d\n".
    int getPolicyInfoIndex(char* key);
    int getPolicyInfoIndex(const char* key) { return getPolicyInfoIndex(const_cast<char*>(key)); }
    // Logs "index = %d\n".
    int getPerNodePerfIndex(char* key);
    int getPerNodePerfIndex(const char* key) { return getPerNodePerfIndex(const_cast<char*>(key)); }

    // Also copies poolUpdateTime.
    void copyPools(FilesystemInfo* fsP);
    void copyMountedNodes(FilesystemInfo* fsP);
    void copyPolicies(FilesystemInfo* fsP);
    void copyPerNodePerfs(FilesystemInfo* fsP);
};

// ---------------------------------------------------------------------------
// NodeInfo: a node of the cluster. Key: ipAddr (name for tools that print
// names).
class QUELVANE_API NodeInfo
{
public:
    char name[256];
    char ipAddr[256];
    char platform[256];
    char endian[256];
    char roles[256];
    char sdrField2010[256];
    char adminState[256];
    char status[256];
    char version[256];
    int failures;
    int threadWait;
    char healthy[256];
    char diagnosis[256];
    // pagePool to unmountOnDiskFail mean something only once the node's
    // configuration has been reported; they start as zero.
    long long pagePool;
    unsigned int pfThreads;
    unsigned int maxMBps;
    unsigned int maxFilesToCache;
    unsigned int maxStatCache;
    unsigned int wkr1Threads;
    unsigned int dmapiEventTimeout;
    unsigned int dmapiMountTimeout;
    unsigned int dmapiSessFailureTimeout;
    unsigned int nsdServerWaitTimeWindowOnMount;
    unsigned int nsdServerWaitTimeForMount;
    char unmountOnDiskFail[32];
    struct timeval lastUpdateTime;
    int found;
    std::vector<DiskAccessInfo*> diskAccessItems;    // owned
    IocStatsInfo* iocStats;                          // owned
    VfsStatsInfo* vfsStats;                          // owned
    ThreadUtilInfo* threadUtil;                      // owned
    RPCUtilInfo* rpcUtil;                            // not freed by ~NodeInfo
    RPCRawUtilInfo* rpcRawUtil;                      // not freed by ~NodeInfo
    RPCSizeUtilInfo* rpcSizeUtil;                    // not freed by ~NodeInfo
    RPCMsgUtilInfo* rpcMsgUtil;                      // not freed by ~NodeInfo
    AggregatedRPCUtilInfoPerSec* rpcUtilPerSec;      // not freed by ~NodeInfo
    CacheStatsInfo* cacheStats;                      // owned
    std::vector<PCacheStatsInfo*> pCacheItems;       // owned
    KxcommCfgInfo* kxcommCfg;                        // owned
    VerbsClientStatsInfo* verbsClient;               // owned
    VerbsServerStatsInfo* verbsServer;               // owned

    NodeInfo(MErrno* err);
    ~NodeInfo();
    NodeInfo(const NodeInfo&) = delete;

    // Copies the texts, failures, threadWait, pagePool to unmountOnDiskFail
    // and lastUpdateTime; vectors and statistics pointers stay. Sets found of
    // this record to 0.
    NodeInfo& operator=(NodeInfo& other);

    int getDiskAccessIndex(char* key);
    int getDiskAccessIndex(const char* key) { return getDiskAccessIndex(const_cast<char*>(key)); }

    void copyDiskAccesses(NodeInfo* nodeP);
};

// ---------------------------------------------------------------------------
// ClusterInfo: the root of the tree.
class QUELVANE_API ClusterInfo
{
public:
    char clusterName[256];
    char sdrField1002[256];
    char sdrField1003[256];
    char maxFeature[256];
    char sdrField1008[256];
    char sdrField1006[256];
    char sdrField1007[256];
    char sdrField1004[256];
    char sdrField1005[256];
    int maxBlockSize;
    int distribTokenServer;
    int failureDetectionTime;
    int sdrField1011;
    int minMissedPingTimeout;
    int maxMissedPingTimeout;
    unsigned int sdrfsGenNumber;
    struct timeval clusterUpdateTime;
    std::vector<NodeInfo*> nodeItems;                // capacity 1024, owned
    struct timeval nodeUpdateTime;
    std::vector<FilesystemInfo*> filesystemItems;    // capacity 32, owned
    struct timeval filesystemUpdateTime;
    struct timeval filesystemPerfUpdateTime;
    std::vector<DiskInfo*> freeDiskItems;            // capacity 1024, owned
    // Records of one node's view of the cluster (updateClusterCfgInfo). The
    // update hands the recipe's list to the application's tree by pointer,
    // so two lists may hold the same records; the library counts the lists
    // that hold each record, and a record goes with the last of them.
    std::list<ClusterCfgInfo*> clusterCfgItems;
    struct timeval diskSdrUpdateTime;

    ClusterInfo(MErrno* err);
    ~ClusterInfo();
    ClusterInfo(const ClusterInfo&) = delete;

    // Copies the nine texts, the seven numbers, nodeUpdateTime,
    // filesystemUpdateTime and filesystemPerfUpdateTime; clusterUpdateTime,
    // diskSdrUpdateTime, the vectors and the list stay.
    ClusterInfo& operator=(ClusterInfo& other);

    int getNodeInfoIndex(char* key);
    int getNodeInfoIndex(const char* key) { return getNodeInfoIndex(const_cast<char*>(key)); }
    int getNodeInfoIndexByName(char* key);
    int getNodeInfoIndexByName(const char* key) { return getNodeInfoIndexByName(const_cast<char*>(key)); }
    int getFilesystemInfoIndex(char* key);
    int getFilesystemInfoIndex(const char* key) { return getFilesystemInfoIndex(const_cast<char*>(key)); }
    int getFreeDiskInfoIndex(char* key);
    int getFreeDiskInfoIndex(const char* key) { return getFreeDiskInfoIndex(const_cast<char*>(key)); }

    // The node at that position of nodeItems; throws std::out_of_range
    // ("vector::_M_range_check...") when the position is negative or too large.
    NodeInfo* getNode(int position);

    // Also copies nodeUpdateTime.
    void copyNodes(ClusterInfo* clusterP);
    // Also copies filesystemUpdateTime and filesystemPerfUpdateTime.
    void copyFS(ClusterInfo* clusterP);
    void copyFreeDisks(ClusterInfo* clusterP);
};

// ---------------------------------------------------------------------------
// ClusterStatus: a stand-alone result record of the cluster state query; no
// part of the tree.
class QUELVANE_API ClusterStatus
{
public:
    char managerName[256];
    char managerIpAddr[256];
    int nodesDefined;
    int localNodesActive;
    int remoteNodesJoined;
    int quorumNodesDefined;
    int quorumNodesActive;
    int quorum;
    int quorumAchieved;

    ClusterStatus();
    ~ClusterStatus();

    // Zeroes the whole record; returns 0.
    int init();
};

#endif
