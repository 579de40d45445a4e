// Inventory records: layout, defaults, capacities, clearStats, readers,
// assignment of own fields, and ownership of children on destruction.
#include <quelvane/cache_stats_info.h>
#include <quelvane/cluster_info.h>
#include <quelvane/config_stats_info.h>
#include <quelvane/pcache_stats_info.h>
#include <quelvane/rpc_stats_info.h>
#include <quelvane/vfs_stats_info.h>

#include "../poll/statistics/shared_records_internal.h"
#include "support/alloc_counter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <new>
#include <string>
#include <type_traits>

namespace {

bool allZero(const char* p, std::size_t n)
{
    for (std::size_t i = 0; i < n; ++i)
        if (p[i] != 0)
            return false;
    return true;
}

// True when the addresses are strictly increasing: the fields are laid out in
// the given order.
bool inOrder(std::initializer_list<const void*> addrs)
{
    const char* last = nullptr;
    for (const void* a : addrs) {
        const char* c = static_cast<const char*>(a);
        if (last != nullptr && c <= last)
            return false;
        last = c;
    }
    return true;
}

bool zeroTime(const timeval& t)
{
    return t.tv_sec == 0 && t.tv_usec == 0;
}

} // namespace

#define EXPECT_FIELD_TYPE(cls, field, type)                                    \
    static_assert(std::is_same<decltype(cls::field), type>::value,             \
                  #cls "::" #field " has the wrong type")

// ---------------------------------------------------------------------------
// Field types

EXPECT_FIELD_TYPE(ClusterInfo, clusterName, char[256]);
EXPECT_FIELD_TYPE(ClusterInfo, sdrField1005, char[256]);
EXPECT_FIELD_TYPE(ClusterInfo, maxBlockSize, int);
EXPECT_FIELD_TYPE(ClusterInfo, maxMissedPingTimeout, int);
EXPECT_FIELD_TYPE(ClusterInfo, sdrfsGenNumber, unsigned int);
EXPECT_FIELD_TYPE(ClusterInfo, clusterUpdateTime, timeval);
EXPECT_FIELD_TYPE(ClusterInfo, nodeItems, std::vector<NodeInfo*>);
EXPECT_FIELD_TYPE(ClusterInfo, filesystemItems, std::vector<FilesystemInfo*>);
EXPECT_FIELD_TYPE(ClusterInfo, freeDiskItems, std::vector<DiskInfo*>);
EXPECT_FIELD_TYPE(ClusterInfo, diskSdrUpdateTime, timeval);

EXPECT_FIELD_TYPE(NodeInfo, failures, int);
EXPECT_FIELD_TYPE(NodeInfo, threadWait, int);
EXPECT_FIELD_TYPE(NodeInfo, pagePool, long long);
EXPECT_FIELD_TYPE(NodeInfo, maxStatCache, unsigned int);
EXPECT_FIELD_TYPE(NodeInfo, nsdServerWaitTimeForMount, unsigned int);
EXPECT_FIELD_TYPE(NodeInfo, unmountOnDiskFail, char[32]);
EXPECT_FIELD_TYPE(NodeInfo, lastUpdateTime, timeval);
EXPECT_FIELD_TYPE(NodeInfo, found, int);
EXPECT_FIELD_TYPE(NodeInfo, diskAccessItems, std::vector<DiskAccessInfo*>);
EXPECT_FIELD_TYPE(NodeInfo, iocStats, IocStatsInfo*);
EXPECT_FIELD_TYPE(NodeInfo, vfsStats, VfsStatsInfo*);
EXPECT_FIELD_TYPE(NodeInfo, threadUtil, ThreadUtilInfo*);
EXPECT_FIELD_TYPE(NodeInfo, rpcUtil, RPCUtilInfo*);
EXPECT_FIELD_TYPE(NodeInfo, rpcRawUtil, RPCRawUtilInfo*);
EXPECT_FIELD_TYPE(NodeInfo, rpcSizeUtil, RPCSizeUtilInfo*);
EXPECT_FIELD_TYPE(NodeInfo, rpcMsgUtil, RPCMsgUtilInfo*);
EXPECT_FIELD_TYPE(NodeInfo, rpcUtilPerSec, AggregatedRPCUtilInfoPerSec*);
EXPECT_FIELD_TYPE(NodeInfo, cacheStats, CacheStatsInfo*);
EXPECT_FIELD_TYPE(NodeInfo, pCacheItems, std::vector<PCacheStatsInfo*>);
EXPECT_FIELD_TYPE(NodeInfo, kxcommCfg, KxcommCfgInfo*);
EXPECT_FIELD_TYPE(NodeInfo, verbsClient, VerbsClientStatsInfo*);
EXPECT_FIELD_TYPE(NodeInfo, verbsServer, VerbsServerStatsInfo*);

EXPECT_FIELD_TYPE(FilesystemInfo, readDuration, int);
EXPECT_FIELD_TYPE(FilesystemInfo, totalSpace, long long);
EXPECT_FIELD_TYPE(FilesystemInfo, threadWait, char[256]);
EXPECT_FIELD_TYPE(FilesystemInfo, minFragmentSize, long long);
EXPECT_FIELD_TYPE(FilesystemInfo, defaultMetadataReplicas, int);
EXPECT_FIELD_TYPE(FilesystemInfo, maxNumberOfInodes, long long);
EXPECT_FIELD_TYPE(FilesystemInfo, bytesRead, unsigned long long);
EXPECT_FIELD_TYPE(FilesystemInfo, reads, unsigned int);
EXPECT_FIELD_TYPE(FilesystemInfo, inodeUpdates, unsigned long long);
EXPECT_FIELD_TYPE(FilesystemInfo, perfInstances, unsigned int);
EXPECT_FIELD_TYPE(FilesystemInfo, poolItems, std::vector<StoragePoolInfo*>);
EXPECT_FIELD_TYPE(FilesystemInfo, mountedNodeItems, std::vector<MountedNodeInfo*>);
EXPECT_FIELD_TYPE(FilesystemInfo, policyItems, std::vector<PolicyInfo*>);
EXPECT_FIELD_TYPE(FilesystemInfo, perNodePerfItems, std::vector<FilesystemPerf*>);
EXPECT_FIELD_TYPE(FilesystemInfo, found, int);
EXPECT_FIELD_TYPE(FilesystemInfo, mountPointValid, char);

EXPECT_FIELD_TYPE(StoragePoolInfo, nDisks, int);
EXPECT_FIELD_TYPE(StoragePoolInfo, totalSpace, long long);
EXPECT_FIELD_TYPE(StoragePoolInfo, fsIndex, int);
EXPECT_FIELD_TYPE(StoragePoolInfo, diskItems, std::vector<DiskInfo*>);
EXPECT_FIELD_TYPE(StoragePoolInfo, bytesRead, unsigned long long);
EXPECT_FIELD_TYPE(StoragePoolInfo, readTime, double);

EXPECT_FIELD_TYPE(DiskInfo, found, int);
EXPECT_FIELD_TYPE(DiskInfo, isFree, int);
EXPECT_FIELD_TYPE(DiskInfo, sdrField3007, char[1024]);
EXPECT_FIELD_TYPE(DiskInfo, sdrField3008, char[256]);
EXPECT_FIELD_TYPE(DiskInfo, totalSpace, long long);
EXPECT_FIELD_TYPE(DiskInfo, shortestWriteTime, double);
EXPECT_FIELD_TYPE(DiskInfo, bytesWritten, unsigned long long);
EXPECT_FIELD_TYPE(DiskInfo, perfInstanceCount, unsigned int);
EXPECT_FIELD_TYPE(DiskInfo, serverItems, std::vector<DiskServerInfo*>);
EXPECT_FIELD_TYPE(DiskInfo, backupServerItems, std::vector<DiskServerInfo*>);

EXPECT_FIELD_TYPE(DiskServerInfo, name, char[256]);
EXPECT_FIELD_TYPE(DiskAccessInfo, diskName, char[256]);
EXPECT_FIELD_TYPE(DiskAccessInfo, local, int);
EXPECT_FIELD_TYPE(DiskAccessInfo, deviceName, char[256]);
EXPECT_FIELD_TYPE(DiskAccessInfo, serverName, char[256]);
EXPECT_FIELD_TYPE(MountedNodeInfo, nodeIpAddr, char[256]);
EXPECT_FIELD_TYPE(MountedNodeInfo, found, int);
EXPECT_FIELD_TYPE(PolicyInfo, installTime, char[256]);
EXPECT_FIELD_TYPE(PolicyInfo, ruleItems, std::vector<RuleInfo*>);
EXPECT_FIELD_TYPE(RuleInfo, name, char[256]);
EXPECT_FIELD_TYPE(RuleInfo, desc, char[1024]);

EXPECT_FIELD_TYPE(FilesystemPerf, nodeIpAddr, char[256]);
EXPECT_FIELD_TYPE(FilesystemPerf, bytesCache, unsigned long long);
EXPECT_FIELD_TYPE(FilesystemPerf, dirCalls, unsigned int);
EXPECT_FIELD_TYPE(FilesystemPerf, iccCount, unsigned long long);
EXPECT_FIELD_TYPE(FilesystemPerf, scmCount, unsigned int);
EXPECT_FIELD_TYPE(FilesystemPerf, found, int);

EXPECT_FIELD_TYPE(ClusterStatus, managerName, char[256]);
EXPECT_FIELD_TYPE(ClusterStatus, managerIpAddr, char[256]);
EXPECT_FIELD_TYPE(ClusterStatus, quorumAchieved, int);

static_assert(!std::is_polymorphic<ClusterInfo>::value, "records have no virtual operations");
static_assert(!std::is_polymorphic<NodeInfo>::value, "records have no virtual operations");
static_assert(!std::is_polymorphic<DiskInfo>::value, "records have no virtual operations");

// ---------------------------------------------------------------------------
// Construction: defaults, field order, capacities

TEST(ClusterInfoRecord, ConstructorStoresZeroAndLeavesEverythingEmpty)
{
    MErrno err = 99;
    ClusterInfo c(&err);
    EXPECT_EQ(0, err);
    EXPECT_TRUE(allZero(c.clusterName, sizeof(c.clusterName)));
    EXPECT_TRUE(allZero(c.sdrField1002, 256));
    EXPECT_TRUE(allZero(c.sdrField1003, 256));
    EXPECT_TRUE(allZero(c.maxFeature, 256));
    EXPECT_TRUE(allZero(c.sdrField1008, 256));
    EXPECT_TRUE(allZero(c.sdrField1006, 256));
    EXPECT_TRUE(allZero(c.sdrField1007, 256));
    EXPECT_TRUE(allZero(c.sdrField1004, 256));
    EXPECT_TRUE(allZero(c.sdrField1005, 256));
    EXPECT_EQ(0, c.maxBlockSize);
    EXPECT_EQ(0, c.distribTokenServer);
    EXPECT_EQ(0, c.failureDetectionTime);
    EXPECT_EQ(0, c.sdrField1011);
    EXPECT_EQ(0, c.minMissedPingTimeout);
    EXPECT_EQ(0, c.maxMissedPingTimeout);
    EXPECT_EQ(0u, c.sdrfsGenNumber);
    EXPECT_TRUE(zeroTime(c.clusterUpdateTime));
    EXPECT_TRUE(zeroTime(c.nodeUpdateTime));
    EXPECT_TRUE(zeroTime(c.filesystemUpdateTime));
    EXPECT_TRUE(zeroTime(c.filesystemPerfUpdateTime));
    EXPECT_TRUE(zeroTime(c.diskSdrUpdateTime));
    EXPECT_TRUE(c.nodeItems.empty());
    EXPECT_TRUE(c.filesystemItems.empty());
    EXPECT_TRUE(c.freeDiskItems.empty());
    EXPECT_TRUE(c.clusterCfgItems.empty());
    EXPECT_EQ(1024u, c.nodeItems.capacity());
    EXPECT_EQ(32u, c.filesystemItems.capacity());
    EXPECT_EQ(1024u, c.freeDiskItems.capacity());
}

TEST(ClusterInfoRecord, FieldsAreInTheirOrder)
{
    MErrno err;
    ClusterInfo c(&err);
    EXPECT_TRUE(inOrder({&c.clusterName, &c.sdrField1002, &c.sdrField1003, &c.maxFeature,
                         &c.sdrField1008, &c.sdrField1006, &c.sdrField1007, &c.sdrField1004,
                         &c.sdrField1005, &c.maxBlockSize, &c.distribTokenServer,
                         &c.failureDetectionTime, &c.sdrField1011, &c.minMissedPingTimeout,
                         &c.maxMissedPingTimeout, &c.sdrfsGenNumber, &c.clusterUpdateTime,
                         &c.nodeItems, &c.nodeUpdateTime, &c.filesystemItems,
                         &c.filesystemUpdateTime, &c.filesystemPerfUpdateTime, &c.freeDiskItems,
                         &c.clusterCfgItems, &c.diskSdrUpdateTime}));
}

TEST(NodeInfoRecord, ConstructorGivesEmptyTextsZeroNumbersNullStatistics)
{
    MErrno err = 5;
    NodeInfo n(&err);
    EXPECT_EQ(0, err);
    for (const char* t : {n.name, n.ipAddr, n.platform, n.endian, n.roles, n.sdrField2010,
                          n.adminState, n.status, n.version, n.healthy, n.diagnosis})
        EXPECT_TRUE(allZero(t, 256));
    EXPECT_TRUE(allZero(n.unmountOnDiskFail, 32));
    // A new node shows an empty status, unlike a filesystem or a disk.
    EXPECT_STREQ("", n.status);
    EXPECT_EQ(0, n.failures);
    EXPECT_EQ(0, n.threadWait);
    EXPECT_EQ(0, n.pagePool);
    EXPECT_EQ(0u, n.maxStatCache);
    EXPECT_TRUE(zeroTime(n.lastUpdateTime));
    EXPECT_TRUE(n.diskAccessItems.empty());
    EXPECT_TRUE(n.pCacheItems.empty());
    // No capacity is reserved for a node's vectors.
    EXPECT_EQ(0u, n.diskAccessItems.capacity());
    EXPECT_EQ(0u, n.pCacheItems.capacity());
    EXPECT_EQ(nullptr, n.iocStats);
    EXPECT_EQ(nullptr, n.vfsStats);
    EXPECT_EQ(nullptr, n.threadUtil);
    EXPECT_EQ(nullptr, n.rpcUtil);
    EXPECT_EQ(nullptr, n.rpcRawUtil);
    EXPECT_EQ(nullptr, n.rpcSizeUtil);
    EXPECT_EQ(nullptr, n.rpcMsgUtil);
    EXPECT_EQ(nullptr, n.rpcUtilPerSec);
    EXPECT_EQ(nullptr, n.cacheStats);
    EXPECT_EQ(nullptr, n.kxcommCfg);
    EXPECT_EQ(nullptr, n.verbsClient);
    EXPECT_EQ(nullptr, n.verbsServer);
}

TEST(NodeInfoRecord, FieldsAreInTheirOrder)
{
    MErrno err;
    NodeInfo n(&err);
    EXPECT_TRUE(inOrder({&n.name, &n.ipAddr, &n.platform, &n.endian, &n.roles, &n.sdrField2010,
                         &n.adminState, &n.status, &n.version, &n.failures, &n.threadWait,
                         &n.healthy, &n.diagnosis, &n.pagePool, &n.pfThreads, &n.maxMBps,
                         &n.maxFilesToCache, &n.maxStatCache, &n.wkr1Threads,
                         &n.dmapiEventTimeout, &n.dmapiMountTimeout, &n.dmapiSessFailureTimeout,
                         &n.nsdServerWaitTimeWindowOnMount, &n.nsdServerWaitTimeForMount,
                         &n.unmountOnDiskFail, &n.lastUpdateTime, &n.found, &n.diskAccessItems,
                         &n.iocStats, &n.vfsStats, &n.threadUtil, &n.rpcUtil, &n.rpcRawUtil,
                         &n.rpcSizeUtil, &n.rpcMsgUtil, &n.rpcUtilPerSec, &n.cacheStats,
                         &n.pCacheItems, &n.kxcommCfg, &n.verbsClient, &n.verbsServer}));
}

TEST(FilesystemInfoRecord, ConstructorGivesUnknownStatusAndCapacities)
{
    MErrno err = 3;
    FilesystemInfo f(&err);
    EXPECT_EQ(0, err);
    EXPECT_STREQ("unknown", f.status);
    EXPECT_TRUE(allZero(f.status + 7, 256 - 7));
    for (const char* t : {f.name, f.manager, f.xstatus, f.threadWait, f.diskWait,
                          f.blockAllocationType, f.fileLockingSemantics, f.ACLSemantics,
                          f.quotasEnforced, f.defaultQuotasEnabled, f.filesystemVersion,
                          f.supportForLargeLUNs, f.DMAPIEnabled, f.exactMtime, f.suppressAtime,
                          f.automaticMountOption, f.additionalMountOptions, f.defaultMountPoint})
        EXPECT_TRUE(allZero(t, 256));
    EXPECT_EQ(0, f.readDuration);
    EXPECT_EQ(0, f.mgrChangeCnt);
    EXPECT_EQ(0, f.totalSpace);
    EXPECT_EQ(0, f.fragFreeSpace);
    EXPECT_EQ(0, f.minFragmentSize);
    EXPECT_EQ(0, f.maxDataReplicas);
    EXPECT_EQ(0, f.estimatedAverageFilesize);
    EXPECT_EQ(0, f.maxNumberOfInodes);
    EXPECT_EQ(0u, f.bytesRead);
    EXPECT_EQ(0u, f.scmCount);
    EXPECT_EQ(0u, f.perfInstances);
    EXPECT_TRUE(zeroTime(f.poolUpdateTime));
    EXPECT_EQ(0, f.found);
    EXPECT_EQ(0, f.mountPointValid);
    EXPECT_EQ(256u, f.poolItems.capacity());
    EXPECT_EQ(1024u, f.mountedNodeItems.capacity());
    EXPECT_EQ(32u, f.policyItems.capacity());
    EXPECT_EQ(1024u, f.perNodePerfItems.capacity());
    EXPECT_TRUE(f.poolItems.empty());
    EXPECT_TRUE(f.mountedNodeItems.empty());
    EXPECT_TRUE(f.policyItems.empty());
    EXPECT_TRUE(f.perNodePerfItems.empty());
}

TEST(FilesystemInfoRecord, FieldsAreInTheirOrder)
{
    MErrno err;
    FilesystemInfo f(&err);
    EXPECT_TRUE(inOrder({&f.name, &f.manager, &f.status, &f.xstatus, &f.readDuration,
                         &f.writeDuration, &f.nSysMgt, &f.mgrChangeCnt, &f.totalSpace,
                         &f.totalInodes, &f.freeSpace, &f.freeInodes, &f.fullBlockFreeSpace,
                         &f.fragFreeSpace, &f.threadWait, &f.diskWait, &f.minFragmentSize,
                         &f.inodeSize, &f.indirectBlockSize, &f.defaultMetadataReplicas,
                         &f.maxMetadataReplicas, &f.defaultDataReplicas, &f.maxDataReplicas,
                         &f.blockAllocationType, &f.fileLockingSemantics, &f.ACLSemantics,
                         &f.estimatedAverageFilesize, &f.numNodes, &f.blockSize,
                         &f.quotasEnforced, &f.defaultQuotasEnabled, &f.maxNumberOfInodes,
                         &f.filesystemVersion, &f.supportForLargeLUNs, &f.DMAPIEnabled,
                         &f.exactMtime, &f.suppressAtime, &f.automaticMountOption,
                         &f.additionalMountOptions, &f.defaultMountPoint, &f.bytesRead,
                         &f.bytesCache, &f.bytesWritten, &f.reads, &f.caches, &f.writes,
                         &f.openCalls, &f.closeCalls, &f.readCalls, &f.writeCalls, &f.dirCalls,
                         &f.inodeUpdates, &f.ircCount, &f.idcCount, &f.iccCount, &f.schCount,
                         &f.scmCount, &f.perfInstances, &f.poolItems, &f.poolUpdateTime,
                         &f.mountedNodeItems, &f.policyItems, &f.perNodePerfItems, &f.found,
                         &f.mountPointValid}));
}

TEST(StoragePoolInfoRecord, ConstructorGivesEmptyStatusAndCapacity)
{
    MErrno err = 1;
    StoragePoolInfo p(&err);
    EXPECT_EQ(0, err);
    EXPECT_STREQ("", p.status);
    EXPECT_TRUE(allZero(p.name, 256));
    EXPECT_TRUE(allZero(p.status, 256));
    EXPECT_EQ(0, p.nDisks);
    EXPECT_EQ(0, p.totalSpace);
    EXPECT_EQ(0, p.freeSpace);
    EXPECT_EQ(0, p.fsIndex);
    EXPECT_EQ(0, p.found);
    EXPECT_TRUE(zeroTime(p.diskUpdateTime));
    EXPECT_TRUE(zeroTime(p.diskPerfUpdateTime));
    EXPECT_EQ(0u, p.bytesRead);
    EXPECT_EQ(0u, p.bytesWritten);
    EXPECT_EQ(0.0, p.readTime);
    EXPECT_EQ(0.0, p.writeTime);
    EXPECT_TRUE(p.diskItems.empty());
    EXPECT_EQ(1024u, p.diskItems.capacity());
    EXPECT_TRUE(inOrder({&p.name, &p.status, &p.nDisks, &p.totalSpace, &p.freeSpace, &p.fsIndex,
                         &p.found, &p.diskItems, &p.diskUpdateTime, &p.diskPerfUpdateTime,
                         &p.bytesRead, &p.bytesWritten, &p.readTime, &p.writeTime}));
}

TEST(DiskInfoRecord, ConstructorGivesUnknownStatusAndCapacities)
{
    MErrno err = 1;
    DiskInfo d(&err);
    EXPECT_EQ(0, err);
    EXPECT_STREQ("unknown", d.status);
    EXPECT_EQ(0, d.found);
    EXPECT_EQ(0, d.isFree);
    for (const char* t : {d.name, d.nodeName, d.poolName, d.availability, d.sdrField3008,
                          d.holdsMetadata, d.holdsData, d.diskWait})
        EXPECT_TRUE(allZero(t, 256));
    EXPECT_TRUE(allZero(d.sdrField3007, 1024));
    EXPECT_EQ(0, d.totalSpace);
    EXPECT_EQ(0, d.fullBlockFreeSpace);
    EXPECT_EQ(0, d.fragFreeSpace);
    EXPECT_EQ(0.0, d.readTime);
    EXPECT_EQ(0.0, d.shortestWriteTime);
    EXPECT_EQ(0u, d.bytesRead);
    EXPECT_EQ(0u, d.readOps);
    EXPECT_EQ(0u, d.perfInstanceCount);
    EXPECT_EQ(32u, d.serverItems.capacity());
    EXPECT_EQ(32u, d.backupServerItems.capacity());
    EXPECT_TRUE(d.serverItems.empty());
    EXPECT_TRUE(d.backupServerItems.empty());
    EXPECT_TRUE(inOrder({&d.found, &d.isFree, &d.name, &d.nodeName, &d.poolName, &d.status,
                         &d.availability, &d.sdrField3007, &d.sdrField3008, &d.holdsMetadata,
                         &d.holdsData, &d.diskWait, &d.totalSpace, &d.fullBlockFreeSpace,
                         &d.fragFreeSpace, &d.readTime, &d.writeTime, &d.longestReadTime,
                         &d.longestWriteTime, &d.shortestReadTime, &d.shortestWriteTime,
                         &d.bytesRead, &d.bytesWritten, &d.readOps, &d.writeOps,
                         &d.perfInstanceCount, &d.serverItems, &d.backupServerItems}));
}

TEST(SmallRecords, ConstructorsStoreZeroAndZeroFill)
{
    MErrno err = 1;
    DiskServerInfo s(&err);
    EXPECT_EQ(0, err);
    EXPECT_TRUE(allZero(s.name, 256));

    err = 1;
    DiskAccessInfo a(&err);
    EXPECT_EQ(0, err);
    EXPECT_TRUE(allZero(a.diskName, 256));
    EXPECT_EQ(0, a.local);
    EXPECT_TRUE(allZero(a.deviceName, 256));
    EXPECT_TRUE(allZero(a.serverName, 256));
    EXPECT_TRUE(inOrder({&a.diskName, &a.local, &a.deviceName, &a.serverName}));

    err = 1;
    MountedNodeInfo m(&err);
    EXPECT_EQ(0, err);
    EXPECT_TRUE(allZero(m.nodeName, 256));
    EXPECT_TRUE(allZero(m.nodeIpAddr, 256));
    EXPECT_EQ(0, m.found);
    EXPECT_TRUE(inOrder({&m.nodeName, &m.nodeIpAddr, &m.found}));

    err = 1;
    RuleInfo r(&err);
    EXPECT_EQ(0, err);
    EXPECT_TRUE(allZero(r.name, 256));
    EXPECT_TRUE(allZero(r.desc, 1024));
    EXPECT_TRUE(inOrder({&r.name, &r.desc}));
}

TEST(PolicyInfoRecord, ConstructorReservesRoomForManyRules)
{
    MErrno err = 1;
    PolicyInfo p(&err);
    EXPECT_EQ(0, err);
    EXPECT_TRUE(allZero(p.name, 256));
    EXPECT_TRUE(allZero(p.userName, 256));
    EXPECT_TRUE(allZero(p.installTime, 256));
    EXPECT_TRUE(p.ruleItems.empty());
    EXPECT_EQ(65536u, p.ruleItems.capacity());
    EXPECT_TRUE(inOrder({&p.name, &p.userName, &p.installTime, &p.ruleItems}));
}

TEST(FilesystemPerfRecord, ConstructorZeroes)
{
    MErrno err = 1;
    FilesystemPerf p(&err);
    EXPECT_EQ(0, err);
    EXPECT_TRUE(allZero(p.fsName, 256));
    EXPECT_TRUE(allZero(p.nodeName, 256));
    EXPECT_TRUE(allZero(p.nodeIpAddr, 256));
    EXPECT_EQ(0u, p.bytesRead);
    EXPECT_EQ(0u, p.dirCalls);
    EXPECT_EQ(0u, p.iccCount);
    EXPECT_EQ(0u, p.scmCount);
    EXPECT_EQ(0, p.found);
    EXPECT_TRUE(inOrder({&p.fsName, &p.nodeName, &p.nodeIpAddr, &p.bytesRead, &p.bytesCache,
                         &p.bytesWritten, &p.reads, &p.caches, &p.writes, &p.openCalls,
                         &p.closeCalls, &p.readCalls, &p.writeCalls, &p.dirCalls,
                         &p.inodeUpdates, &p.ircCount, &p.idcCount, &p.iccCount, &p.schCount,
                         &p.scmCount, &p.found}));
}

TEST(ClusterStatusRecord, DefaultConstructorAndInitZeroEverything)
{
    ClusterStatus s;
    EXPECT_TRUE(allZero(s.managerName, 256));
    EXPECT_TRUE(allZero(s.managerIpAddr, 256));
    EXPECT_EQ(0, s.nodesDefined);
    EXPECT_EQ(0, s.localNodesActive);
    EXPECT_EQ(0, s.remoteNodesJoined);
    EXPECT_EQ(0, s.quorumNodesDefined);
    EXPECT_EQ(0, s.quorumNodesActive);
    EXPECT_EQ(0, s.quorum);
    EXPECT_EQ(0, s.quorumAchieved);
    EXPECT_TRUE(inOrder({&s.managerName, &s.managerIpAddr, &s.nodesDefined, &s.localNodesActive,
                         &s.remoteNodesJoined, &s.quorumNodesDefined, &s.quorumNodesActive,
                         &s.quorum, &s.quorumAchieved}));

    strcpy(s.managerName, "mgr");
    strcpy(s.managerIpAddr, "10.0.0.1");
    s.nodesDefined = 4;
    s.localNodesActive = 3;
    s.remoteNodesJoined = 2;
    s.quorumNodesDefined = 3;
    s.quorumNodesActive = 2;
    s.quorum = 2;
    s.quorumAchieved = 1;
    EXPECT_EQ(0, s.init());
    EXPECT_TRUE(allZero(s.managerName, 256));
    EXPECT_TRUE(allZero(s.managerIpAddr, 256));
    EXPECT_EQ(0, s.nodesDefined);
    EXPECT_EQ(0, s.localNodesActive);
    EXPECT_EQ(0, s.remoteNodesJoined);
    EXPECT_EQ(0, s.quorumNodesDefined);
    EXPECT_EQ(0, s.quorumNodesActive);
    EXPECT_EQ(0, s.quorum);
    EXPECT_EQ(0, s.quorumAchieved);
}

// ---------------------------------------------------------------------------
// Readers and status update

TEST(DiskAccessInfoRecord, ReadersGiveTheFields)
{
    MErrno err;
    DiskAccessInfo a(&err);
    strcpy(a.diskName, "d1");
    a.local = 1;
    strcpy(a.deviceName, "/dev/sdb");
    strcpy(a.serverName, "nodeA");
    EXPECT_STREQ("d1", a.getDiskName());
    EXPECT_EQ(1, a.isLocal());
    EXPECT_STREQ("/dev/sdb", a.getDeviceName());
    EXPECT_STREQ("nodeA", a.getServerName());
    EXPECT_EQ(a.diskName, a.getDiskName());
    EXPECT_EQ(a.deviceName, a.getDeviceName());
    EXPECT_EQ(a.serverName, a.getServerName());
    a.local = 0;
    EXPECT_EQ(0, a.isLocal());
}

TEST(DiskInfoRecord, UpdateStatusWithNullKeepsTheOldStatus)
{
    MErrno err;
    DiskInfo d(&err);
    char up[] = "up";
    d.updateDiskInfoStatus(up);
    EXPECT_STREQ("up", d.status);
    d.updateDiskInfoStatus(nullptr);
    EXPECT_STREQ("up", d.status);
    char down[] = "down";
    d.updateDiskInfoStatus(down);
    EXPECT_STREQ("down", d.status);
}

TEST(DiskInfoRecord, UpdateStatusWithOverlongTextIsCutAtTheArray)
{
    MErrno err;
    DiskInfo d(&err);
    std::string longText(300, 's');
    d.updateDiskInfoStatus(&longText[0]);
    EXPECT_EQ(std::string(255, 's'), std::string(d.status));
    EXPECT_EQ('\0', d.status[255]);
}

// ---------------------------------------------------------------------------
// clearStats

TEST(DiskInfoRecord, ClearStatsZeroesCountersAndKeepsSpaceAndTexts)
{
    MErrno err;
    DiskInfo d(&err);
    d.found = 1;
    d.isFree = 1;
    strcpy(d.name, "d1");
    strcpy(d.nodeName, "n1");
    strcpy(d.poolName, "system");
    strcpy(d.status, "ready");
    strcpy(d.availability, "up");
    strcpy(d.sdrField3007, "x3007");
    strcpy(d.sdrField3008, "x3008");
    strcpy(d.holdsMetadata, "y");
    strcpy(d.holdsData, "n");
    strcpy(d.diskWait, "2");
    d.totalSpace = 1000;
    d.fullBlockFreeSpace = 200;
    d.fragFreeSpace = 30;
    d.readTime = 1.5;
    d.writeTime = 2.5;
    d.longestReadTime = 3.5;
    d.longestWriteTime = 4.5;
    d.shortestReadTime = 0.5;
    d.shortestWriteTime = 0.25;
    d.bytesRead = 11;
    d.bytesWritten = 12;
    d.readOps = 13;
    d.writeOps = 14;
    d.perfInstanceCount = 15;

    d.clearStats();

    EXPECT_EQ(0.0, d.readTime);
    EXPECT_EQ(0.0, d.writeTime);
    EXPECT_EQ(0.0, d.longestReadTime);
    EXPECT_EQ(0.0, d.longestWriteTime);
    EXPECT_EQ(0.0, d.shortestReadTime);
    EXPECT_EQ(0.0, d.shortestWriteTime);
    EXPECT_EQ(0u, d.bytesRead);
    EXPECT_EQ(0u, d.bytesWritten);
    EXPECT_EQ(0u, d.readOps);
    EXPECT_EQ(0u, d.writeOps);
    EXPECT_EQ(0u, d.perfInstanceCount);
    EXPECT_EQ(1000, d.totalSpace);
    EXPECT_EQ(200, d.fullBlockFreeSpace);
    EXPECT_EQ(30, d.fragFreeSpace);
    EXPECT_EQ(1, d.found);
    EXPECT_EQ(1, d.isFree);
    EXPECT_STREQ("d1", d.name);
    EXPECT_STREQ("n1", d.nodeName);
    EXPECT_STREQ("system", d.poolName);
    EXPECT_STREQ("ready", d.status);
    EXPECT_STREQ("up", d.availability);
    EXPECT_STREQ("x3007", d.sdrField3007);
    EXPECT_STREQ("x3008", d.sdrField3008);
    EXPECT_STREQ("y", d.holdsMetadata);
    EXPECT_STREQ("n", d.holdsData);
    EXPECT_STREQ("2", d.diskWait);
}

TEST(FilesystemPerfRecord, ClearStatsKeepsFoundAndTheThreeTexts)
{
    MErrno err;
    FilesystemPerf p(&err);
    strcpy(p.fsName, "fs1");
    strcpy(p.nodeName, "n1");
    strcpy(p.nodeIpAddr, "10.0.0.1");
    p.bytesRead = 1;
    p.bytesCache = 2;
    p.bytesWritten = 3;
    p.reads = 4;
    p.caches = 5;
    p.writes = 6;
    p.openCalls = 7;
    p.closeCalls = 8;
    p.readCalls = 9;
    p.writeCalls = 10;
    p.dirCalls = 11;
    p.inodeUpdates = 12;
    p.ircCount = 13;
    p.idcCount = 14;
    p.iccCount = 15;
    p.schCount = 16;
    p.scmCount = 17;
    p.found = 1;

    p.clearStats();

    EXPECT_EQ(0u, p.bytesRead);
    EXPECT_EQ(0u, p.bytesCache);
    EXPECT_EQ(0u, p.bytesWritten);
    EXPECT_EQ(0u, p.reads);
    EXPECT_EQ(0u, p.caches);
    EXPECT_EQ(0u, p.writes);
    EXPECT_EQ(0u, p.openCalls);
    EXPECT_EQ(0u, p.closeCalls);
    EXPECT_EQ(0u, p.readCalls);
    EXPECT_EQ(0u, p.writeCalls);
    EXPECT_EQ(0u, p.dirCalls);
    EXPECT_EQ(0u, p.inodeUpdates);
    EXPECT_EQ(0u, p.ircCount);
    EXPECT_EQ(0u, p.idcCount);
    EXPECT_EQ(0u, p.iccCount);
    EXPECT_EQ(0u, p.schCount);
    EXPECT_EQ(0u, p.scmCount);
    EXPECT_EQ(1, p.found);
    EXPECT_STREQ("fs1", p.fsName);
    EXPECT_STREQ("n1", p.nodeName);
    EXPECT_STREQ("10.0.0.1", p.nodeIpAddr);
}

TEST(StoragePoolInfoRecord, ClearStatsZeroesTheFourCountersOnly)
{
    MErrno err;
    StoragePoolInfo p(&err);
    strcpy(p.name, "system");
    strcpy(p.status, "ok");
    p.nDisks = 3;
    p.totalSpace = 100;
    p.freeSpace = 50;
    p.fsIndex = 2;
    p.found = 1;
    p.diskUpdateTime = {10, 11};
    p.diskPerfUpdateTime = {12, 13};
    p.bytesRead = 7;
    p.bytesWritten = 8;
    p.readTime = 1.25;
    p.writeTime = 2.25;

    p.clearStats();

    EXPECT_EQ(0u, p.bytesRead);
    EXPECT_EQ(0u, p.bytesWritten);
    EXPECT_EQ(0.0, p.readTime);
    EXPECT_EQ(0.0, p.writeTime);
    EXPECT_EQ(10, p.diskUpdateTime.tv_sec);
    EXPECT_EQ(11, p.diskUpdateTime.tv_usec);
    EXPECT_EQ(12, p.diskPerfUpdateTime.tv_sec);
    EXPECT_EQ(13, p.diskPerfUpdateTime.tv_usec);
    EXPECT_STREQ("system", p.name);
    EXPECT_STREQ("ok", p.status);
    EXPECT_EQ(3, p.nDisks);
    EXPECT_EQ(100, p.totalSpace);
    EXPECT_EQ(50, p.freeSpace);
    EXPECT_EQ(2, p.fsIndex);
    EXPECT_EQ(1, p.found);
}

TEST(FilesystemInfoRecord, ClearStatsZeroesBytesReadToPerfInstances)
{
    MErrno err;
    FilesystemInfo f(&err);
    strcpy(f.name, "fs1");
    strcpy(f.status, "mounted");
    f.totalSpace = 100;
    f.freeInodes = 5;
    f.blockSize = 262144;
    strcpy(f.defaultMountPoint, "/gpfs/fs1");
    f.bytesRead = 1;
    f.bytesCache = 2;
    f.bytesWritten = 3;
    f.reads = 4;
    f.caches = 5;
    f.writes = 6;
    f.openCalls = 7;
    f.closeCalls = 8;
    f.readCalls = 9;
    f.writeCalls = 10;
    f.dirCalls = 11;
    f.inodeUpdates = 12;
    f.ircCount = 13;
    f.idcCount = 14;
    f.iccCount = 15;
    f.schCount = 16;
    f.scmCount = 17;
    f.perfInstances = 18;
    f.poolUpdateTime = {5, 6};
    f.found = 1;
    f.mountPointValid = 1;

    f.clearStats();

    EXPECT_EQ(0u, f.bytesRead);
    EXPECT_EQ(0u, f.bytesCache);
    EXPECT_EQ(0u, f.bytesWritten);
    EXPECT_EQ(0u, f.reads);
    EXPECT_EQ(0u, f.caches);
    EXPECT_EQ(0u, f.writes);
    EXPECT_EQ(0u, f.openCalls);
    EXPECT_EQ(0u, f.closeCalls);
    EXPECT_EQ(0u, f.readCalls);
    EXPECT_EQ(0u, f.writeCalls);
    EXPECT_EQ(0u, f.dirCalls);
    EXPECT_EQ(0u, f.inodeUpdates);
    EXPECT_EQ(0u, f.ircCount);
    EXPECT_EQ(0u, f.idcCount);
    EXPECT_EQ(0u, f.iccCount);
    EXPECT_EQ(0u, f.schCount);
    EXPECT_EQ(0u, f.scmCount);
    EXPECT_EQ(0u, f.perfInstances);
    EXPECT_STREQ("fs1", f.name);
    EXPECT_STREQ("mounted", f.status);
    EXPECT_EQ(100, f.totalSpace);
    EXPECT_EQ(5, f.freeInodes);
    EXPECT_EQ(262144, f.blockSize);
    EXPECT_STREQ("/gpfs/fs1", f.defaultMountPoint);
    EXPECT_EQ(5, f.poolUpdateTime.tv_sec);
    EXPECT_EQ(1, f.found);
    EXPECT_EQ(1, f.mountPointValid);
}

// ---------------------------------------------------------------------------
// Ownership and destruction

TEST(RecordOwnership, DestroyingAClusterFreesItsWholeTree)
{
    long before = gLiveAllocations.load();
    {
        MErrno err;
        ClusterInfo* c = new ClusterInfo(&err);
        for (int i = 0; i < 3; ++i) {
            NodeInfo* n = new NodeInfo(&err);
            n->diskAccessItems.push_back(new DiskAccessInfo(&err));
            n->diskAccessItems.push_back(new DiskAccessInfo(&err));
            c->nodeItems.push_back(n);
        }
        for (int i = 0; i < 2; ++i) {
            FilesystemInfo* f = new FilesystemInfo(&err);
            StoragePoolInfo* p = new StoragePoolInfo(&err);
            DiskInfo* d = new DiskInfo(&err);
            d->serverItems.push_back(new DiskServerInfo(&err));
            d->backupServerItems.push_back(new DiskServerInfo(&err));
            p->diskItems.push_back(d);
            f->poolItems.push_back(p);
            f->mountedNodeItems.push_back(new MountedNodeInfo(&err));
            PolicyInfo* pol = new PolicyInfo(&err);
            pol->ruleItems.push_back(new RuleInfo(&err));
            f->policyItems.push_back(pol);
            f->perNodePerfItems.push_back(new FilesystemPerf(&err));
            c->filesystemItems.push_back(f);
        }
        DiskInfo* free1 = new DiskInfo(&err);
        free1->serverItems.push_back(new DiskServerInfo(&err));
        c->freeDiskItems.push_back(free1);
        EXPECT_GT(gLiveAllocations.load(), before + 30);
        delete c;
    }
    EXPECT_EQ(before, gLiveAllocations.load());
}

TEST(RecordOwnership, DestroyingANodeFreesItsOwnedStatisticsRecords)
{
    long before = gLiveAllocations.load();
    MErrno err;
    NodeInfo* n = new NodeInfo(&err);
    n->diskAccessItems.push_back(new DiskAccessInfo(&err));
    n->pCacheItems.push_back(new PCacheStatsInfo(&err));
    n->pCacheItems.push_back(new PCacheStatsInfo(&err));
    n->iocStats = new IocStatsInfo(&err);
    n->vfsStats = new VfsStatsInfo(&err);
    n->threadUtil = new ThreadUtilInfo(&err);
    n->cacheStats = new CacheStatsInfo(&err);
    n->kxcommCfg = new KxcommCfgInfo(&err);
    n->verbsClient = new VerbsClientStatsInfo(&err);
    n->verbsServer = new VerbsServerStatsInfo(&err);
    EXPECT_GE(gLiveAllocations.load(), before + 11);
    delete n;
    EXPECT_EQ(before, gLiveAllocations.load());
}

TEST(RecordOwnership, DestroyingANodeLeavesItsRpcRecordsAlone)
{
    MErrno err;
    RPCUtilInfo* rpc = new RPCUtilInfo(&err);
    RPCRawUtilInfo* raw = new RPCRawUtilInfo(&err);
    RPCSizeUtilInfo* size = new RPCSizeUtilInfo(&err);
    RPCMsgUtilInfo* msg = new RPCMsgUtilInfo(&err);
    AggregatedRPCUtilInfoPerSec* perSec = new AggregatedRPCUtilInfoPerSec();
    rpc->nNodeUtil = 7;
    raw->statCnt = 8;
    size->nSizes = 9;
    msg->nStats = 10;
    perSec->nStats = 11;

    long before = gLiveAllocations.load();
    NodeInfo* n = new NodeInfo(&err);
    n->rpcUtil = rpc;
    n->rpcRawUtil = raw;
    n->rpcSizeUtil = size;
    n->rpcMsgUtil = msg;
    n->rpcUtilPerSec = perSec;
    delete n;
    // Only the node itself went; the five records are still alive and intact.
    EXPECT_EQ(before, gLiveAllocations.load());
    EXPECT_EQ(rpc->nNodeUtil, 7u);
    EXPECT_EQ(raw->statCnt, 8);
    EXPECT_EQ(size->nSizes, 9);
    EXPECT_EQ(msg->nStats, 10);
    EXPECT_EQ(perSec->nStats, 11);
    delete rpc;
    delete raw;
    delete size;
    delete msg;
    delete perSec;
    EXPECT_LT(gLiveAllocations.load(), before);
}

TEST(RecordOwnership, ClusterConfigurationRecordsGoWithTheLastTreeHoldingThem)
{
    MErrno err;
    ClusterInfo* recipe = new ClusterInfo(&err);
    ClusterInfo* app = new ClusterInfo(&err);
    long before = gLiveAllocations.load();
    recipe->clusterCfgItems.push_back(new ClusterCfgInfo(&err));
    recipe->clusterCfgItems.push_back(new ClusterCfgInfo(&err));
    recipe->clusterCfgItems.front()->joinSeq = 41;
    recipe->clusterCfgItems.back()->joinSeq = 42;
    // The update hands the list over by pointer: both trees refer to the same
    // records, and the second list counts as a holder of each.
    app->clusterCfgItems = recipe->clusterCfgItems;
    for (ClusterCfgInfo* r : app->clusterCfgItems)
        qv::shareHold(r);
    EXPECT_EQ(recipe->clusterCfgItems.front(), app->clusterCfgItems.front());
    EXPECT_EQ(recipe->clusterCfgItems.back(), app->clusterCfgItems.back());

    delete recipe;
    // The application's tree still reads them.
    EXPECT_EQ(app->clusterCfgItems.front()->joinSeq, 41u);
    EXPECT_EQ(app->clusterCfgItems.back()->joinSeq, 42u);
    EXPECT_GT(gLiveAllocations.load(), before);
    delete app;
}

TEST(RecordOwnership, DestroyingAClusterReleasesItsOwnConfigurationRecords)
{
    MErrno err;
    ClusterInfo* c = new ClusterInfo(&err);
    long before = gLiveAllocations.load();
    for (int i = 0; i < 3; ++i)
        c->clusterCfgItems.push_back(new ClusterCfgInfo(&err));
    EXPECT_GE(gLiveAllocations.load(), before + 3);
    long withRecords = gLiveAllocations.load();
    delete c;
    // The three records and the list's nodes went with the tree.
    EXPECT_LE(gLiveAllocations.load(), withRecords - 6);
}

TEST(RecordOwnership, DestroyingAPolicyFreesItsRules)
{
    long before = gLiveAllocations.load();
    MErrno err;
    PolicyInfo* p = new PolicyInfo(&err);
    for (int i = 0; i < 5; ++i)
        p->ruleItems.push_back(new RuleInfo(&err));
    EXPECT_GE(gLiveAllocations.load(), before + 6);
    delete p;
    EXPECT_EQ(before, gLiveAllocations.load());
}

TEST(RecordOwnership, VectorsGrowPastTheirCapacity)
{
    MErrno err;
    DiskInfo d(&err);
    for (int i = 0; i < 40; ++i) {
        DiskServerInfo* s = new DiskServerInfo(&err);
        snprintf(s->name, sizeof(s->name), "srv%d", i);
        d.serverItems.push_back(s);
    }
    EXPECT_EQ(40u, d.serverItems.size());
    EXPECT_EQ(39, d.getServerIndex("srv39"));
}
