// End to end: a small cluster (3 nodes, 2 filesystems, 3 pools, 4 disks, 1 free
// disk) served by the fake daemon and the fake tools from one model; every
// inventory collector runs in the order an application calls them, and every
// field that each source feeds is checked in the recipe and in the
// application's tree. A second poll after the cluster changed (a node gone, a
// disk moved to another pool, a filesystem deleted) shows what is swept and
// what is kept.
#include "support/fake_cluster.h"
#include "support/handler_fixture.h"
#include "support/log_capture.h"

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

using namespace qvtest;

namespace {

// Which tree is being checked: the application's, the recipe itself, or a
// deep copy of the recipe made by copyRecipe.
enum class Tree { App, Recipe, RecipeCopy };

const char* treeName(Tree t)
{
    switch (t) {
    case Tree::App: return "application tree";
    case Tree::Recipe: return "recipe";
    case Tree::RecipeCopy: return "copy of the recipe";
    }
    return "?";
}

// Holds the polling lock for a scope, also when an assertion leaves it early.
class PollingLock
{
public:
    explicit PollingLock(PollingHandler* h) : h_(h) { h_->getPollingLock(); }
    ~PollingLock() { h_->releasePollingLock(); }
    PollingLock(const PollingLock&) = delete;
    PollingLock& operator=(const PollingLock&) = delete;

private:
    PollingHandler* h_;
};

bool stamped(const timeval& tv)
{
    return tv.tv_sec != 0;
}

// ---------------------------------------------------------------------------
// Expected records.

struct NodeExp {
    const char* name;
    const char* ipAddr;
    const char* platform;
    const char* endian;
    const char* roles;
    const char* sdrField2010;
    const char* adminState;
    const char* status;
    const char* version;
    int failures;
    int threadWait;
    const char* healthy;
    const char* diagnosis;
    long long pagePool;
    unsigned pfThreads, maxMBps, maxFilesToCache, maxStatCache, wkr1Threads;
    unsigned dmapiEventTimeout, dmapiMountTimeout, dmapiSessFailureTimeout;
    unsigned nsdServerWaitTimeWindowOnMount, nsdServerWaitTimeForMount;
    const char* unmountOnDiskFail;
};

struct AccessExp {
    const char* diskName;
    int isLocal;
    const char* deviceName;
    const char* serverName;
};

struct FsExp {
    const char* name;
    const char* manager;
    const char* status;
    const char* xstatus;
    int readDuration, writeDuration, nSysMgt, mgrChangeCnt;
    long long totalSpace, totalInodes, freeSpace, freeInodes, fullBlockFreeSpace, fragFreeSpace;
    const char* threadWait;
    const char* diskWait;
};

struct AttrExp {
    long long minFragmentSize, inodeSize, indirectBlockSize;
    int defaultMetadataReplicas, maxMetadataReplicas, defaultDataReplicas, maxDataReplicas;
    const char* blockAllocationType;
    const char* fileLockingSemantics;
    const char* ACLSemantics;
    long long estimatedAverageFilesize, numNodes, blockSize;
    const char* quotasEnforced;
    const char* defaultQuotasEnabled;
    long long maxNumberOfInodes;
    const char* filesystemVersion;
    const char* supportForLargeLUNs;
    const char* DMAPIEnabled;
    const char* exactMtime;
    const char* suppressAtime;
    const char* automaticMountOption;
    const char* additionalMountOptions;
    const char* defaultMountPoint;
};

struct PerfExp {
    const char* nodeName;
    const char* nodeIpAddr;
    unsigned long long br, bc, bw;
    unsigned r, c, w, oc, cc, rdc, wc, dir;
    unsigned long long iu, irc, idc, icc;
    unsigned sch, scm;
};

struct PoolExp {
    const char* name;
    const char* status;
    int nDisks;
    long long totalSpace, freeSpace;
    int fsIndex;
    unsigned long long bytesRead, bytesWritten;
    double readTime, writeTime;
    std::vector<const char*> disks;
};

struct DiskExp {
    const char* name;
    int isFree;
    const char* nodeName;
    const char* poolName;
    const char* status;
    const char* availability;
    const char* sdrField3007;
    const char* sdrField3008;
    const char* holdsMetadata;
    const char* holdsData;
    const char* diskWait;
    long long totalSpace, fullBlockFreeSpace, fragFreeSpace;
    double readTime, writeTime, longestReadTime, longestWriteTime, shortestReadTime,
        shortestWriteTime;
    unsigned long long bytesRead, bytesWritten;
    unsigned readOps, writeOps, perfInstanceCount;
    std::vector<const char*> servers;
    std::vector<const char*> backupServers;
};

struct RuleExp {
    const char* name;
    const char* desc;
};

// ---------------------------------------------------------------------------
// Checks.

void expectNode(NodeInfo* n, const NodeExp& e)
{
    SCOPED_TRACE(std::string("node ") + e.ipAddr);
    EXPECT_STREQ(n->name, e.name);
    EXPECT_STREQ(n->ipAddr, e.ipAddr);
    EXPECT_STREQ(n->platform, e.platform);
    EXPECT_STREQ(n->endian, e.endian);
    EXPECT_STREQ(n->roles, e.roles);
    EXPECT_STREQ(n->sdrField2010, e.sdrField2010);
    EXPECT_STREQ(n->adminState, e.adminState);
    EXPECT_STREQ(n->status, e.status);
    EXPECT_STREQ(n->version, e.version);
    EXPECT_EQ(n->failures, e.failures);
    EXPECT_EQ(n->threadWait, e.threadWait);
    EXPECT_STREQ(n->healthy, e.healthy);
    EXPECT_STREQ(n->diagnosis, e.diagnosis);
    EXPECT_EQ(n->pagePool, e.pagePool);
    EXPECT_EQ(n->pfThreads, e.pfThreads);
    EXPECT_EQ(n->maxMBps, e.maxMBps);
    EXPECT_EQ(n->maxFilesToCache, e.maxFilesToCache);
    EXPECT_EQ(n->maxStatCache, e.maxStatCache);
    EXPECT_EQ(n->wkr1Threads, e.wkr1Threads);
    EXPECT_EQ(n->dmapiEventTimeout, e.dmapiEventTimeout);
    EXPECT_EQ(n->dmapiMountTimeout, e.dmapiMountTimeout);
    EXPECT_EQ(n->dmapiSessFailureTimeout, e.dmapiSessFailureTimeout);
    EXPECT_EQ(n->nsdServerWaitTimeWindowOnMount, e.nsdServerWaitTimeWindowOnMount);
    EXPECT_EQ(n->nsdServerWaitTimeForMount, e.nsdServerWaitTimeForMount);
    EXPECT_STREQ(n->unmountOnDiskFail, e.unmountOnDiskFail);
    // No collector stamps a node of its own.
    EXPECT_EQ(n->lastUpdateTime.tv_sec, 0);
}

void expectAccesses(NodeInfo* n, const std::vector<AccessExp>& e)
{
    SCOPED_TRACE(std::string("disk paths of ") + n->name);
    ASSERT_EQ(n->diskAccessItems.size(), e.size());
    for (size_t i = 0; i < e.size(); ++i) {
        SCOPED_TRACE("path " + std::to_string(i));
        DiskAccessInfo* a = n->diskAccessItems[i];
        EXPECT_STREQ(a->getDiskName(), e[i].diskName);
        EXPECT_EQ(a->isLocal(), e[i].isLocal);
        EXPECT_STREQ(a->getDeviceName(), e[i].deviceName);
        EXPECT_STREQ(a->getServerName(), e[i].serverName);
    }
}

void expectFs(FilesystemInfo* f, const FsExp& e)
{
    SCOPED_TRACE(std::string("filesystem ") + e.name);
    EXPECT_STREQ(f->name, e.name);
    EXPECT_STREQ(f->manager, e.manager);
    EXPECT_STREQ(f->status, e.status);
    EXPECT_STREQ(f->xstatus, e.xstatus);
    EXPECT_EQ(f->readDuration, e.readDuration);
    EXPECT_EQ(f->writeDuration, e.writeDuration);
    EXPECT_EQ(f->nSysMgt, e.nSysMgt);
    EXPECT_EQ(f->mgrChangeCnt, e.mgrChangeCnt);
    EXPECT_EQ(f->totalSpace, e.totalSpace);
    EXPECT_EQ(f->totalInodes, e.totalInodes);
    EXPECT_EQ(f->freeSpace, e.freeSpace);
    EXPECT_EQ(f->freeInodes, e.freeInodes);
    EXPECT_EQ(f->fullBlockFreeSpace, e.fullBlockFreeSpace);
    EXPECT_EQ(f->fragFreeSpace, e.fragFreeSpace);
    EXPECT_STREQ(f->threadWait, e.threadWait);
    EXPECT_STREQ(f->diskWait, e.diskWait);
    EXPECT_EQ(f->found, 0);
    EXPECT_EQ(f->mountPointValid, 1);
    EXPECT_TRUE(stamped(f->poolUpdateTime));
}

void expectAttributes(FilesystemInfo* f, const AttrExp& e)
{
    SCOPED_TRACE(std::string("attributes of ") + f->name);
    EXPECT_EQ(f->minFragmentSize, e.minFragmentSize);
    EXPECT_EQ(f->inodeSize, e.inodeSize);
    EXPECT_EQ(f->indirectBlockSize, e.indirectBlockSize);
    EXPECT_EQ(f->defaultMetadataReplicas, e.defaultMetadataReplicas);
    EXPECT_EQ(f->maxMetadataReplicas, e.maxMetadataReplicas);
    EXPECT_EQ(f->defaultDataReplicas, e.defaultDataReplicas);
    EXPECT_EQ(f->maxDataReplicas, e.maxDataReplicas);
    EXPECT_STREQ(f->blockAllocationType, e.blockAllocationType);
    EXPECT_STREQ(f->fileLockingSemantics, e.fileLockingSemantics);
    EXPECT_STREQ(f->ACLSemantics, e.ACLSemantics);
    EXPECT_EQ(f->estimatedAverageFilesize, e.estimatedAverageFilesize);
    EXPECT_EQ(f->numNodes, e.numNodes);
    EXPECT_EQ(f->blockSize, e.blockSize);
    EXPECT_STREQ(f->quotasEnforced, e.quotasEnforced);
    EXPECT_STREQ(f->defaultQuotasEnabled, e.defaultQuotasEnabled);
    EXPECT_EQ(f->maxNumberOfInodes, e.maxNumberOfInodes);
    EXPECT_STREQ(f->filesystemVersion, e.filesystemVersion);
    EXPECT_STREQ(f->supportForLargeLUNs, e.supportForLargeLUNs);
    EXPECT_STREQ(f->DMAPIEnabled, e.DMAPIEnabled);
    EXPECT_STREQ(f->exactMtime, e.exactMtime);
    EXPECT_STREQ(f->suppressAtime, e.suppressAtime);
    EXPECT_STREQ(f->automaticMountOption, e.automaticMountOption);
    EXPECT_STREQ(f->additionalMountOptions, e.additionalMountOptions);
    EXPECT_STREQ(f->defaultMountPoint, e.defaultMountPoint);
}

// The sums of a filesystem: the counters of the given nodes added up.
void expectFsSums(FilesystemInfo* f, const std::vector<PerfExp>& nodes)
{
    SCOPED_TRACE(std::string("counter sums of ") + f->name);
    PerfExp s{};
    for (const PerfExp& p : nodes) {
        s.br += p.br; s.bc += p.bc; s.bw += p.bw;
        s.r += p.r; s.c += p.c; s.w += p.w; s.oc += p.oc; s.cc += p.cc; s.rdc += p.rdc;
        s.wc += p.wc; s.dir += p.dir; s.iu += p.iu; s.irc += p.irc; s.idc += p.idc;
        s.icc += p.icc; s.sch += p.sch; s.scm += p.scm;
    }
    EXPECT_EQ(f->bytesRead, s.br);
    EXPECT_EQ(f->bytesCache, s.bc);
    EXPECT_EQ(f->bytesWritten, s.bw);
    EXPECT_EQ(f->reads, s.r);
    EXPECT_EQ(f->caches, s.c);
    EXPECT_EQ(f->writes, s.w);
    EXPECT_EQ(f->openCalls, s.oc);
    EXPECT_EQ(f->closeCalls, s.cc);
    EXPECT_EQ(f->readCalls, s.rdc);
    EXPECT_EQ(f->writeCalls, s.wc);
    EXPECT_EQ(f->dirCalls, s.dir);
    EXPECT_EQ(f->inodeUpdates, s.iu);
    EXPECT_EQ(f->ircCount, s.irc);
    EXPECT_EQ(f->idcCount, s.idc);
    EXPECT_EQ(f->iccCount, s.icc);
    EXPECT_EQ(f->schCount, s.sch);
    EXPECT_EQ(f->scmCount, s.scm);
    EXPECT_EQ(f->perfInstances, nodes.size());
}

void expectPerfRecords(FilesystemInfo* f, const std::vector<PerfExp>& e)
{
    SCOPED_TRACE(std::string("per-node counters of ") + f->name);
    ASSERT_EQ(f->perNodePerfItems.size(), e.size());
    for (size_t i = 0; i < e.size(); ++i) {
        SCOPED_TRACE(e[i].nodeIpAddr);
        FilesystemPerf* p = f->perNodePerfItems[i];
        EXPECT_STREQ(p->fsName, f->name);
        EXPECT_STREQ(p->nodeName, e[i].nodeName);
        EXPECT_STREQ(p->nodeIpAddr, e[i].nodeIpAddr);
        EXPECT_EQ(p->bytesRead, e[i].br);
        EXPECT_EQ(p->bytesCache, e[i].bc);
        EXPECT_EQ(p->bytesWritten, e[i].bw);
        EXPECT_EQ(p->reads, e[i].r);
        EXPECT_EQ(p->caches, e[i].c);
        EXPECT_EQ(p->writes, e[i].w);
        EXPECT_EQ(p->openCalls, e[i].oc);
        EXPECT_EQ(p->closeCalls, e[i].cc);
        EXPECT_EQ(p->readCalls, e[i].rdc);
        EXPECT_EQ(p->writeCalls, e[i].wc);
        EXPECT_EQ(p->dirCalls, e[i].dir);
        EXPECT_EQ(p->inodeUpdates, e[i].iu);
        EXPECT_EQ(p->ircCount, e[i].irc);
        EXPECT_EQ(p->idcCount, e[i].idc);
        EXPECT_EQ(p->iccCount, e[i].icc);
        EXPECT_EQ(p->schCount, e[i].sch);
        EXPECT_EQ(p->scmCount, e[i].scm);
        EXPECT_EQ(p->found, 0);
    }
}

void expectMounts(FilesystemInfo* f, const std::vector<std::pair<const char*, const char*>>& e)
{
    SCOPED_TRACE(std::string("mounts of ") + f->name);
    ASSERT_EQ(f->mountedNodeItems.size(), e.size());
    for (size_t i = 0; i < e.size(); ++i) {
        EXPECT_STREQ(f->mountedNodeItems[i]->nodeName, e[i].first);
        EXPECT_STREQ(f->mountedNodeItems[i]->nodeIpAddr, e[i].second);
        EXPECT_EQ(f->mountedNodeItems[i]->found, 0);
    }
}

void expectPolicies(FilesystemInfo* f, const std::vector<RuleExp>& rules)
{
    SCOPED_TRACE(std::string("policies of ") + f->name);
    ASSERT_EQ(f->policyItems.size(), 1u);
    PolicyInfo* p = f->policyItems[0];
    EXPECT_STREQ(p->name, "policy1");
    EXPECT_STREQ(p->userName, "root");
    EXPECT_STREQ(p->installTime, "Sat Nov 21 10:00:00 2026");
    ASSERT_EQ(p->ruleItems.size(), rules.size());
    for (size_t i = 0; i < rules.size(); ++i) {
        EXPECT_STREQ(p->ruleItems[i]->name, rules[i].name);
        EXPECT_STREQ(p->ruleItems[i]->desc, rules[i].desc);
    }
}

void expectPool(StoragePoolInfo* p, const PoolExp& e)
{
    SCOPED_TRACE(std::string("pool ") + e.name);
    EXPECT_STREQ(p->name, e.name);
    EXPECT_STREQ(p->status, e.status);
    EXPECT_EQ(p->nDisks, e.nDisks);
    EXPECT_EQ(p->totalSpace, e.totalSpace);
    EXPECT_EQ(p->freeSpace, e.freeSpace);
    EXPECT_EQ(p->fsIndex, e.fsIndex);
    EXPECT_EQ(p->found, 0);
    EXPECT_TRUE(stamped(p->diskUpdateTime));
    EXPECT_TRUE(stamped(p->diskPerfUpdateTime));
    EXPECT_EQ(p->bytesRead, e.bytesRead);
    EXPECT_EQ(p->bytesWritten, e.bytesWritten);
    EXPECT_DOUBLE_EQ(p->readTime, e.readTime);
    EXPECT_DOUBLE_EQ(p->writeTime, e.writeTime);
    ASSERT_EQ(p->diskItems.size(), e.disks.size());
    for (size_t i = 0; i < e.disks.size(); ++i)
        EXPECT_STREQ(p->diskItems[i]->name, e.disks[i]);
}

void expectDisk(DiskInfo* d, const DiskExp& e)
{
    SCOPED_TRACE(std::string("disk ") + e.name);
    EXPECT_EQ(d->found, 0);
    EXPECT_EQ(d->isFree, e.isFree);
    EXPECT_STREQ(d->name, e.name);
    EXPECT_STREQ(d->nodeName, e.nodeName);
    EXPECT_STREQ(d->poolName, e.poolName);
    EXPECT_STREQ(d->status, e.status);
    EXPECT_STREQ(d->availability, e.availability);
    EXPECT_STREQ(d->sdrField3007, e.sdrField3007);
    EXPECT_STREQ(d->sdrField3008, e.sdrField3008);
    EXPECT_STREQ(d->holdsMetadata, e.holdsMetadata);
    EXPECT_STREQ(d->holdsData, e.holdsData);
    EXPECT_STREQ(d->diskWait, e.diskWait);
    EXPECT_EQ(d->totalSpace, e.totalSpace);
    EXPECT_EQ(d->fullBlockFreeSpace, e.fullBlockFreeSpace);
    EXPECT_EQ(d->fragFreeSpace, e.fragFreeSpace);
    EXPECT_DOUBLE_EQ(d->readTime, e.readTime);
    EXPECT_DOUBLE_EQ(d->writeTime, e.writeTime);
    EXPECT_DOUBLE_EQ(d->longestReadTime, e.longestReadTime);
    EXPECT_DOUBLE_EQ(d->longestWriteTime, e.longestWriteTime);
    EXPECT_DOUBLE_EQ(d->shortestReadTime, e.shortestReadTime);
    EXPECT_DOUBLE_EQ(d->shortestWriteTime, e.shortestWriteTime);
    EXPECT_EQ(d->bytesRead, e.bytesRead);
    EXPECT_EQ(d->bytesWritten, e.bytesWritten);
    EXPECT_EQ(d->readOps, e.readOps);
    EXPECT_EQ(d->writeOps, e.writeOps);
    EXPECT_EQ(d->perfInstanceCount, e.perfInstanceCount);
    ASSERT_EQ(d->serverItems.size(), e.servers.size());
    for (size_t i = 0; i < e.servers.size(); ++i)
        EXPECT_STREQ(d->serverItems[i]->name, e.servers[i]);
    ASSERT_EQ(d->backupServerItems.size(), e.backupServers.size());
    for (size_t i = 0; i < e.backupServers.size(); ++i)
        EXPECT_STREQ(d->backupServerItems[i]->name, e.backupServers[i]);
}

// ---------------------------------------------------------------------------
// What the small cluster gives.

const NodeExp kNode1 = {"node1", "10.0.0.1", "x86_64-linux", "little_endian", "manager quorum ",
                        "n1-2010", "up", "up", "5.2.0.1", 0, 2, "yes", "ok", 1073741824LL,
                        72, 2048, 4000, 1000, 48, 86400000, 60, 0, 20, 300, "no"};
const NodeExp kNode2 = {"node2", "10.0.0.2", "ppc64-linux", "big_endian", "quorum gateway ",
                        "n2-2010", "up", "up", "5.2.0.0", 1, 5, "yes", "ok", 2147483648LL,
                        72, 2048, 1000, 4000, 48, 86400000, 60, 0, 20, 300, "yes"};
const NodeExp kNode3 = {"node3", "10.0.0.3", "x86_64-linux", "little_endian", "snmp_collector ",
                        "n3-2010", "down", "arbitrating", "5.1.9.0", 3, 9, "no", "network",
                        536870912LL, 32, 1024, 2000, 500, 16, 86400000, 60, 0, 20, 300, "no"};

const FsExp kFs1 = {"fs1", "node1", "mounted", "normal", 11, 12, 1, 2, 1649267441664LL, 1000000,
                    824633720832LL, 750000, 800000000000LL, 1234567, "3", "4"};
const FsExp kFs2 = {"fs2", "node2", "mounted", "normal", 21, 22, 0, 1, 214748364800LL, 200000,
                    107374182400LL, 150000, 100000000000LL, 7654321, "0", "1"};

const AttrExp kFs1Attr = {8192, 4096, 32768, 2, 3, 1, 2, "cluster", "nfs4", "all", 1048576, 32,
                          4194304, "user;group", "none", 2000000, "27.00 (5.1.0.0)", "yes", "no",
                          "yes", "relatime", "yes", "nodev:nosuid", "/gpfs/fs1"};
const AttrExp kFs2Attr = {0, 512, 0, 0, 0, 2, 0, "", "", "", 0, 0, 1048576, "", "", 0, "26.00",
                          "", "", "", "", "", "", "/gpfs/fs2"};

const PerfExp kFs1Node1 = {"node1", "10.0.0.1", 1000, 100, 2000, 10, 1, 20, 5, 4, 11, 21, 3,
                           7, 8, 9, 10, 2, 1};
const PerfExp kFs1Node2 = {"node2", "10.0.0.2", 3000, 300, 4000, 30, 3, 40, 6, 6, 31, 41, 5,
                           17, 18, 19, 20, 4, 3};
const PerfExp kFs1Node3 = {"node3", "10.0.0.3", 5000, 500, 6000, 50, 5, 60, 7, 7, 51, 61, 7,
                           27, 28, 29, 30, 6, 5};
const PerfExp kFs2Node2 = {"node2", "10.0.0.2", 70, 7, 80, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11,
                           12, 13, 14};

const RuleExp kPlacement = {"'placement'", "RULE 'placement' SET POOL 'system'"};
const RuleExp kMigrate = {"'migrate'", "RULE 'migrate' MIGRATE FROM POOL 'system' TO POOL 'data1'"};

// d1: two instances (node1, node2); d2: one; d3: one good (node2) and one
// failed (node3, rc 5); d4: one.
const DiskExp kD1 = {"d1", 0, "node2", "system", "up", "up", "d1-3007", "d1-3008", "y", "y", "1",
                     549755813888LL, 274877906944LL, 65536, 2.0, 3.0, 1.25, 1.0, 0.125, 0.0,
                     5120, 10240, 3, 7, 2, {"node1"}, {"node2"}};
const DiskExp kD2 = {"d2", 0, "node2", "data1", "up", "up", "d2-3007", "d2-3008", "n", "y", "0",
                     1099511627776LL, 824633720832LL, 131072, 3.0, 4.0, 2.0, 3.0, 1.0, 0.5,
                     65536, 131072, 16, 32, 1, {"node2"}, {"node1"}};
const DiskExp kD3 = {"d3", 0, "node2", "data1", "down", "unavailable", "d3-3007", "d3-3008", "y",
                     "n", "7", 274877906944LL, 137438953472LL, 8192, 0.75, 1.25, 0.5, 1.0, 0.25,
                     0.25, 512, 1536, 1, 2, 1, {"node2", "node3"}, {}};
const DiskExp kD4 = {"d4", 0, "node1", "system", "up", "up", "d4-3007", "d4-3008", "y", "y", "2",
                     214748364800LL, 107374182400LL, 4096, 0.25, 0.5, 0.25, 0.5, 0.25, 0.5, 100,
                     200, 1, 1, 1, {"node1"}, {"node2", "node3"}};
const DiskExp kD5 = {"d5", 1, "", "system", "ready", "", "d5-3007", "d5-3008", "n", "y", "",
                     104857600LL * 1024, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, {"node1"},
                     {"node2"}};

// After the change: d3 in fs1's pool system, served by node2 alone (node3 has
// left), with node2's instance only; d4 freed from the deleted fs2.
DiskExp movedD3()
{
    DiskExp d = kD3;
    d.poolName = "system";
    d.servers = {"node2"};
    return d;
}

DiskExp freedD4()
{
    DiskExp d = {"d4", 1, "", "system", "up", "", "d4-3007", "d4-3008", "y", "y", "",
                 214748364800LL, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, {"node1"}, {"node2"}};
    return d;
}

// ---------------------------------------------------------------------------

class InventoryE2E : public HandlerFixture
{
protected:
    FakeCluster cluster{daemon};
    std::unique_ptr<LogCapture> log;
    ClusterInfo* app = nullptr;

    void SetUp() override
    {
        cluster.model = smallCluster();
        cluster.script();
        startHandler(POLL_LOCAL_CLUSTER, 0, MGMT_PROTOCOL_DIRECT);
        // init drops the log stream when neither debug nor the marker asks
        // for one: capture from here on.
        log.reset(new LogCapture());
        MErrno err = 1;
        app = new ClusterInfo(&err);
        ASSERT_EQ(err, 0);
    }

    void TearDown() override
    {
        delete app;
        app = nullptr;
        log.reset();
    }

    // Every collector, in the order of an application.
    void pollEverything()
    {
        PollingHandler* h = handler();
        EXPECT_EQ(h->updateNodeInfo(app, 0), 0);
        EXPECT_EQ(h->updateDiskSDRInfo(0), 0);
        EXPECT_EQ(h->updateClusterInfo(app, 0), 0);
        EXPECT_EQ(h->updateFilesystemInfo(app, 1), 0);
        EXPECT_EQ(h->updateStoragePoolInfo(app, nullptr), 0);
        std::vector<std::string> names;
        for (FilesystemInfo* f : app->filesystemItems)
            names.push_back(f->name);
        for (std::string& n : names) {
            std::vector<char> name(n.begin(), n.end());
            name.push_back('\0');
            EXPECT_EQ(h->updateDiskInfo(app, name.data(), nullptr, 1), 0) << n;
        }
        EXPECT_EQ(h->updateFreeDiskInfo(app), 0);
        EXPECT_EQ(h->updateDiskAccessInfo(app), 0);
        EXPECT_EQ(h->updateFilesystemManagerInfo(app), 0);
        EXPECT_EQ(h->updateMountedNodeInfo(app), 0);
        EXPECT_EQ(h->updateFilesystemConfigInfo(app), 0);
        EXPECT_EQ(h->updateFilesystemMountPointInfo(app), 0);
        EXPECT_EQ(h->updatePolicyInfo(app), 0);
    }

    // Log entries of the sweeps ("Erase ..."), in order.
    std::vector<std::string> eraseLines() const
    {
        std::vector<std::string> out;
        for (const std::string& l : log->lines())
            if (l.find(": Erase ") != std::string::npos)
                out.push_back(l);
        return out;
    }

    std::vector<std::string> calls(const char* tool) { return cluster.tool(tool).calls(); }

    // The cluster level of a tree. A copy of the recipe carries the texts and
    // maxBlockSize only; the application's tree gets every number from the
    // assignment of updateClusterInfo, but no clusterUpdateTime or
    // diskSdrUpdateTime.
    void expectClusterLevel(ClusterInfo* t, Tree kind, unsigned genNumber)
    {
        SCOPED_TRACE(treeName(kind));
        EXPECT_STREQ(t->clusterName, "cluster1");
        EXPECT_STREQ(t->sdrField1002, "id-1002");
        EXPECT_STREQ(t->sdrField1003, "uid-1003");
        EXPECT_STREQ(t->maxFeature, "2401");
        EXPECT_STREQ(t->sdrField1008, "prim-1008");
        EXPECT_STREQ(t->sdrField1006, "sec-1006");
        EXPECT_STREQ(t->sdrField1007, "rsh-1007");
        EXPECT_STREQ(t->sdrField1004, "rcp-1004");
        EXPECT_STREQ(t->sdrField1005, "gen-1005");
        EXPECT_EQ(t->maxBlockSize, 16777216);
        bool numbers = kind != Tree::RecipeCopy;
        EXPECT_EQ(t->distribTokenServer, numbers ? 1 : 0);
        EXPECT_EQ(t->failureDetectionTime, numbers ? 35 : 0);
        EXPECT_EQ(t->sdrField1011, numbers ? 1011 : 0);
        EXPECT_EQ(t->minMissedPingTimeout, numbers ? 3 : 0);
        EXPECT_EQ(t->maxMissedPingTimeout, numbers ? 60 : 0);
        EXPECT_EQ(t->sdrfsGenNumber, numbers ? genNumber : 0u);
        EXPECT_EQ(stamped(t->clusterUpdateTime), kind == Tree::Recipe);
        EXPECT_EQ(stamped(t->diskSdrUpdateTime), kind == Tree::Recipe);
        EXPECT_TRUE(stamped(t->nodeUpdateTime));
        EXPECT_TRUE(stamped(t->filesystemUpdateTime));
        EXPECT_TRUE(stamped(t->filesystemPerfUpdateTime));
        EXPECT_TRUE(t->clusterCfgItems.empty());
    }

    void expectFirstPoll(ClusterInfo* t, Tree kind)
    {
        SCOPED_TRACE(treeName(kind));
        expectClusterLevel(t, kind, 42);

        ASSERT_EQ(t->nodeItems.size(), 3u);
        expectNode(t->nodeItems[0], kNode1);
        expectNode(t->nodeItems[1], kNode2);
        expectNode(t->nodeItems[2], kNode3);
        // Direct paths from the table first, then the paths through each
        // disk's first server: free disks, then the disks of the pools.
        expectAccesses(t->nodeItems[0], {{"d1", 1, "/dev/sdb", ""},
                                         {"d4", 1, "/dev/sdg", ""},
                                         {"d5", 1, "/dev/sdh", ""},
                                         {"d2", 0, "", "node2"},
                                         {"d3", 0, "", "node2"}});
        expectAccesses(t->nodeItems[1], {{"d1", 1, "/dev/sdc", "node1"},
                                         {"d2", 1, "/dev/sdd", ""},
                                         {"d3", 1, "/dev/sde", ""},
                                         {"d5", 0, "", "node1"},
                                         {"d4", 0, "", "node1"}});
        expectAccesses(t->nodeItems[2], {{"d3", 1, "/dev/sdf", "node2"},
                                         {"d5", 0, "", "node1"},
                                         {"d1", 0, "", "node1"},
                                         {"d2", 0, "", "node2"},
                                         {"d4", 0, "", "node1"}});

        ASSERT_EQ(t->filesystemItems.size(), 2u);
        FilesystemInfo* fs1 = t->filesystemItems[0];
        FilesystemInfo* fs2 = t->filesystemItems[1];
        expectFs(fs1, kFs1);
        expectFs(fs2, kFs2);
        expectAttributes(fs1, kFs1Attr);
        expectAttributes(fs2, kFs2Attr);
        expectFsSums(fs1, {kFs1Node1, kFs1Node2, kFs1Node3});
        expectFsSums(fs2, {kFs2Node2});
        if (kind == Tree::RecipeCopy) {
            // copyRecipe does not carry mounts, policies or per-node counters.
            EXPECT_TRUE(fs1->perNodePerfItems.empty());
            EXPECT_TRUE(fs1->mountedNodeItems.empty());
            EXPECT_TRUE(fs1->policyItems.empty());
        } else {
            expectPerfRecords(fs1, {kFs1Node1, kFs1Node2, kFs1Node3});
            expectPerfRecords(fs2, {kFs2Node2});
            expectMounts(fs1, {{"node1", "10.0.0.1"}, {"node2", "10.0.0.2"},
                               {"node3", "10.0.0.3"}});
            expectMounts(fs2, {{"node2", "10.0.0.2"}});
            expectPolicies(fs1, {kPlacement, kMigrate});
            EXPECT_TRUE(fs2->policyItems.empty());
        }

        ASSERT_EQ(fs1->poolItems.size(), 2u);
        ASSERT_EQ(fs2->poolItems.size(), 1u);
        expectPool(fs1->poolItems[0], {"system", "up", 1, 549755813888LL, 274877906944LL, 0, 5120,
                                       10240, 2.0, 3.0, {"d1"}});
        expectPool(fs1->poolItems[1], {"data1", "degraded", 2, 1374389534720LL, 962072674304LL, 0,
                                       66048, 132608, 3.75, 5.25, {"d2", "d3"}});
        expectPool(fs2->poolItems[0], {"system", "up", 1, 214748364800LL, 107374182400LL, 1, 100,
                                       200, 0.25, 0.5, {"d4"}});
        expectDisk(fs1->poolItems[0]->diskItems[0], kD1);
        expectDisk(fs1->poolItems[1]->diskItems[0], kD2);
        expectDisk(fs1->poolItems[1]->diskItems[1], kD3);
        expectDisk(fs2->poolItems[0]->diskItems[0], kD4);

        ASSERT_EQ(t->freeDiskItems.size(), 1u);
        expectDisk(t->freeDiskItems[0], kD5);
    }
};

TEST_F(InventoryE2E, FirstPollFillsBothTreesFromEverySource)
{
    pollEverything();

    // Exact requests and tool calls, in the order of the collectors.
    EXPECT_EQ(requestsSinceStart(),
              (std::vector<std::string>{"get nodes",
                                        "tavrel nc",
                                        "tavrel v",
                                        "get clusterinfo",
                                        "get fs fs1",
                                        "get fs fs2",
                                        "tavrel gfis",
                                        "get stgpools fs1",
                                        "get stgpools fs2",
                                        "get fs fs1 system",
                                        "tavrel ds f cl cluster1 fs fs1 p system",
                                        "get fs fs1 data1",
                                        "tavrel ds f cl cluster1 fs fs1 p data1",
                                        "get fs fs2 system",
                                        "tavrel ds f cl cluster1 fs fs2 p system",
                                        "get nsddisk d5 "}));
    EXPECT_EQ(cluster.tool("vksdrquery").commandLines(),
              (std::vector<std::string>{
                  "/usr/kpx/vesk/bin/vksdrquery 20 2003:2004:2005:2006:2007:2008:2010:2014:2015",
                  "/usr/kpx/vesk/bin/vksdrquery 30 3001:3004:3005:3006:3007:3008:3002:3003",
                  "/usr/kpx/vesk/bin/vksdrquery 10 1001:1002:1003:1008:1006:1007:1011:1004:1005",
                  "/usr/kpx/vesk/bin/vksdrquery 10 1015 all norefresh"}));
    EXPECT_EQ(calls("vklsnsd"), (std::vector<std::string>{"-M"}));
    EXPECT_EQ(calls("vklsmgr"), (std::vector<std::string>{"fs1", "fs2"}));
    EXPECT_EQ(calls("vklsmount"), (std::vector<std::string>{"all_local -Y"}));
    EXPECT_EQ(calls("vklsfs"), (std::vector<std::string>{"fs1 -Y", "fs2 -Y", "all -T -Y"}));
    EXPECT_EQ(calls("vklspolicy"),
              (std::vector<std::string>{"fs1 -Y", "fs1 -L -Y", "fs2 -Y"}));
    EXPECT_TRUE(calls("vkgetstate").empty());

    // Nothing was swept in a first poll.
    EXPECT_TRUE(eraseLines().empty());

    expectFirstPoll(app, Tree::App);
    {
        MErrno err = 1;
        ClusterInfo copy(&err);
        EXPECT_EQ(handler()->copyRecipe(&copy), 0);
        expectFirstPoll(&copy, Tree::RecipeCopy);
    }
    {
        PollingLock lock(handler());
        expectFirstPoll(handler()->recipe, Tree::Recipe);
    }
    EXPECT_EQ(handler()->getSdrfsGenNumberFromRecipe(), 42u);
}

TEST_F(InventoryE2E, SecondPollAfterTheClusterChangedSweepsAndKeeps)
{
    pollEverything();

    // node3 leaves, d3 moves from fs1/data1 to fs1/system, fs2 is deleted
    // (its disk d4 becomes free); the repository moves on, fs1 changes its
    // manager, node1 reports a failure.
    cluster.model.removeNode("node3");
    cluster.model.moveDisk("d3", "fs1", "system");
    cluster.model.deleteFilesystem("fs2");
    cluster.model.genNumber = 43;
    cluster.model.filesystem("fs1")->managerIp = "10.0.0.2";
    cluster.model.node("node1")->failures = 1;
    cluster.script();
    cluster.clearCalls();
    size_t before = requestsSinceStart().size();
    log.reset();   // restores the log stream before the next capture takes it
    log.reset(new LogCapture());

    pollEverything();

    std::vector<std::string> all = requestsSinceStart();
    EXPECT_EQ(std::vector<std::string>(all.begin() + static_cast<long>(before), all.end()),
              (std::vector<std::string>{"get nodes",
                                        "tavrel nc",
                                        "tavrel v",
                                        "get clusterinfo",
                                        "get fs fs1",
                                        "tavrel gfis",
                                        "get stgpools fs1",
                                        "get fs fs1 system",
                                        "tavrel ds f cl cluster1 fs fs1 p system",
                                        "get fs fs1 data1",
                                        "tavrel ds f cl cluster1 fs fs1 p data1",
                                        "get nsddisk d5 d4 "}));
    EXPECT_EQ(calls("vklsmgr"), (std::vector<std::string>{"fs1"}));
    EXPECT_EQ(calls("vklsfs"), (std::vector<std::string>{"fs1 -Y", "all -T -Y"}));
    EXPECT_EQ(calls("vklspolicy"), (std::vector<std::string>{"fs1 -Y", "fs1 -L -Y"}));

    // The sweeps: the disk that moved leaves its old pool, the deleted
    // filesystem goes bottom up, node3's counters go; nodes are never swept.
    EXPECT_EQ(eraseLines(),
              (std::vector<std::string>{"INFO: PollingHandler::updateDiskSDRInfo: Erase disk d3",
                                        "INFO: PollingHandler::updateDiskSDRInfo: Erase disk d4",
                                        "INFO: PollingHandler::updateDiskSDRInfo: Erase pool system",
                                        "INFO: PollingHandler::updateDiskSDRInfo: Erase fs fs2",
                                        "INFO: PollingHandler::updateFilesystemInfo: Erase perf 10.0.0.3"}));

    NodeExp node1 = kNode1;
    node1.failures = 1;
    // node3 stays, with the status texts of a node the daemon no longer
    // reports and everything else as last reported.
    NodeExp node3 = kNode3;
    node3.status = "unknown";
    node3.healthy = "no";
    node3.diagnosis = "unknown";
    FsExp fs1e = kFs1;
    fs1e.manager = "node2";

    MErrno err = 1;
    ClusterInfo copy(&err);
    EXPECT_EQ(handler()->copyRecipe(&copy), 0);
    std::unique_ptr<PollingLock> lock(new PollingLock(handler()));
    ClusterInfo* recipe = handler()->recipe;
    for (auto tk : {std::make_pair(app, Tree::App), std::make_pair(&copy, Tree::RecipeCopy),
                    std::make_pair(recipe, Tree::Recipe)}) {
        ClusterInfo* t = tk.first;
        Tree kind = tk.second;
        SCOPED_TRACE(treeName(kind));
        expectClusterLevel(t, kind, 43);

        ASSERT_EQ(t->nodeItems.size(), 3u);
        expectNode(t->nodeItems[0], node1);
        expectNode(t->nodeItems[1], kNode2);
        expectNode(t->nodeItems[2], node3);
        if (kind == Tree::App) {
            // Rebuilt from nothing in this poll: the table's direct paths,
            // then free disks (d5, d4), then the pools' disks. node3 still
            // gets a path through the first server of every disk.
            expectAccesses(t->nodeItems[0], {{"d1", 1, "/dev/sdb", ""},
                                             {"d5", 1, "/dev/sdh", ""},
                                             {"d4", 1, "/dev/sdg", ""},
                                             {"d3", 0, "", "node2"},
                                             {"d2", 0, "", "node2"}});
            expectAccesses(t->nodeItems[1], {{"d1", 1, "/dev/sdc", "node1"},
                                             {"d3", 1, "/dev/sde", ""},
                                             {"d2", 1, "/dev/sdd", ""},
                                             {"d5", 0, "", "node1"},
                                             {"d4", 0, "", "node1"}});
            expectAccesses(t->nodeItems[2], {{"d5", 0, "", "node1"},
                                             {"d4", 0, "", "node1"},
                                             {"d1", 0, "", "node1"},
                                             {"d3", 0, "", "node2"},
                                             {"d2", 0, "", "node2"}});
        } else {
            // Merged into the recipe by key: the recipe keeps its order, and
            // node3's path to d3 now goes through node2.
            expectAccesses(t->nodeItems[0], {{"d1", 1, "/dev/sdb", ""},
                                             {"d4", 1, "/dev/sdg", ""},
                                             {"d5", 1, "/dev/sdh", ""},
                                             {"d2", 0, "", "node2"},
                                             {"d3", 0, "", "node2"}});
            expectAccesses(t->nodeItems[1], {{"d1", 1, "/dev/sdc", "node1"},
                                             {"d2", 1, "/dev/sdd", ""},
                                             {"d3", 1, "/dev/sde", ""},
                                             {"d5", 0, "", "node1"},
                                             {"d4", 0, "", "node1"}});
            expectAccesses(t->nodeItems[2], {{"d3", 0, "", "node2"},
                                             {"d5", 0, "", "node1"},
                                             {"d1", 0, "", "node1"},
                                             {"d2", 0, "", "node2"},
                                             {"d4", 0, "", "node1"}});
        }

        // fs2 is gone, with its pool, disk, counters and mounts.
        ASSERT_EQ(t->filesystemItems.size(), 1u);
        FilesystemInfo* fs1 = t->filesystemItems[0];
        expectFs(fs1, fs1e);
        expectAttributes(fs1, kFs1Attr);
        expectFsSums(fs1, {kFs1Node1, kFs1Node2});
        if (kind == Tree::RecipeCopy) {
            EXPECT_TRUE(fs1->perNodePerfItems.empty());
            EXPECT_TRUE(fs1->mountedNodeItems.empty());
            EXPECT_TRUE(fs1->policyItems.empty());
        } else {
            expectPerfRecords(fs1, {kFs1Node1, kFs1Node2});
            expectMounts(fs1, {{"node1", "10.0.0.1"}, {"node2", "10.0.0.2"}});
            if (kind == Tree::App)
                // Rules are only ever appended: the application's policy now
                // holds each rule twice.
                expectPolicies(fs1, {kPlacement, kMigrate, kPlacement, kMigrate});
            else
                // The copy into the recipe matches rules by name.
                expectPolicies(fs1, {kPlacement, kMigrate});
        }

        ASSERT_EQ(fs1->poolItems.size(), 2u);
        expectPool(fs1->poolItems[0], {"system", "up", 2, 549755813888LL, 274877906944LL, 0, 5632,
                                       11776, 2.75, 4.25, {"d1", "d3"}});
        expectPool(fs1->poolItems[1], {"data1", "degraded", 1, 1374389534720LL, 962072674304LL, 0,
                                       65536, 131072, 3.0, 4.0, {"d2"}});
        expectDisk(fs1->poolItems[0]->diskItems[0], kD1);
        expectDisk(fs1->poolItems[0]->diskItems[1], movedD3());
        expectDisk(fs1->poolItems[1]->diskItems[0], kD2);

        ASSERT_EQ(t->freeDiskItems.size(), 2u);
        expectDisk(t->freeDiskItems[0], kD5);
        expectDisk(t->freeDiskItems[1], freedD4());
    }
    lock.reset();
    EXPECT_EQ(handler()->getSdrfsGenNumberFromRecipe(), 43u);
}

} // namespace
