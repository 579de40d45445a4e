// Lookups, own-field assignments and level copies of the inventory tree.
#include <quelvane/cluster_info.h>
#include <quelvane/kx_log.h>

#include "support/files.h"

#include "support/alloc_counter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

MErrno gErr;

NodeInfo* makeNode(const char* name, const char* ip)
{
    NodeInfo* n = new NodeInfo(&gErr);
    strcpy(n->name, name);
    strcpy(n->ipAddr, ip);
    return n;
}

FilesystemInfo* makeFs(const char* name)
{
    FilesystemInfo* f = new FilesystemInfo(&gErr);
    strcpy(f->name, name);
    return f;
}

StoragePoolInfo* makePool(const char* name)
{
    StoragePoolInfo* p = new StoragePoolInfo(&gErr);
    strcpy(p->name, name);
    return p;
}

DiskInfo* makeDisk(const char* name)
{
    DiskInfo* d = new DiskInfo(&gErr);
    strcpy(d->name, name);
    return d;
}

DiskServerInfo* makeServer(const char* name)
{
    DiskServerInfo* s = new DiskServerInfo(&gErr);
    strcpy(s->name, name);
    return s;
}

DiskAccessInfo* makeAccess(const char* disk, int local, const char* dev, const char* server)
{
    DiskAccessInfo* a = new DiskAccessInfo(&gErr);
    strcpy(a->diskName, disk);
    a->local = local;
    strcpy(a->deviceName, dev);
    strcpy(a->serverName, server);
    return a;
}

MountedNodeInfo* makeMount(const char* name, const char* ip)
{
    MountedNodeInfo* m = new MountedNodeInfo(&gErr);
    strcpy(m->nodeName, name);
    strcpy(m->nodeIpAddr, ip);
    return m;
}

PolicyInfo* makePolicy(const char* name, const char* user)
{
    PolicyInfo* p = new PolicyInfo(&gErr);
    strcpy(p->name, name);
    strcpy(p->userName, user);
    return p;
}

RuleInfo* makeRule(const char* name, const char* desc)
{
    RuleInfo* r = new RuleInfo(&gErr);
    strcpy(r->name, name);
    strcpy(r->desc, desc);
    return r;
}

FilesystemPerf* makePerf(const char* ip, unsigned long long bytesRead)
{
    FilesystemPerf* p = new FilesystemPerf(&gErr);
    strcpy(p->nodeIpAddr, ip);
    p->bytesRead = bytesRead;
    return p;
}

template <class Item, std::size_t N>
std::vector<std::string> keysOf(const std::vector<Item*>& items, char (Item::*key)[N])
{
    std::vector<std::string> out;
    for (Item* i : items)
        out.push_back(i->*key);
    return out;
}

using Keys = std::vector<std::string>;

// Opens a log file for the library and gives back its lines without the
// time prefix, as "LEVEL: who: text".
class LogCapture
{
public:
    LogCapture() : path_("/tmp/copy_merge_test.log")
    {
        QuelvaneLogFileP = fopen(path_.c_str(), "w");
    }
    ~LogCapture()
    {
        if (QuelvaneLogFileP != nullptr)
            fclose(QuelvaneLogFileP);
        QuelvaneLogFileP = nullptr;
    }
    std::vector<std::string> lines()
    {
        fflush(QuelvaneLogFileP);
        std::vector<std::string> out;
        std::regex prefix(std::string("^") + qvtest::kTimeRegex + ": (.*)$");
        for (const std::string& line : qvtest::splitLines(qvtest::readFile(path_))) {
            std::smatch m;
            if (std::regex_match(line, m, prefix))
                out.push_back(m[3].str());
            else
                out.push_back("UNPREFIXED: " + line);
        }
        return out;
    }

private:
    std::string path_;
};

} // namespace

// ---------------------------------------------------------------------------
// Lookups

TEST(Lookup, FirstExactMatchOrMinusOne)
{
    MErrno err;
    ClusterInfo c(&err);
    EXPECT_EQ(-1, c.getNodeInfoIndex("10.0.0.1"));
    c.nodeItems.push_back(makeNode("a", "10.0.0.1"));
    c.nodeItems.push_back(makeNode("b", "10.0.0.2"));
    c.nodeItems.push_back(makeNode("c", "10.0.0.2"));
    EXPECT_EQ(0, c.getNodeInfoIndex("10.0.0.1"));
    EXPECT_EQ(1, c.getNodeInfoIndex("10.0.0.2"));
    EXPECT_EQ(-1, c.getNodeInfoIndex("10.0.0.3"));
    EXPECT_EQ(-1, c.getNodeInfoIndex("10.0.0."));
    EXPECT_EQ(-1, c.getNodeInfoIndex("10.0.0.10"));
    char key[] = "10.0.0.2";
    EXPECT_EQ(1, c.getNodeInfoIndex(key));
}

TEST(Lookup, KeysLongerThanTheFieldFindTheRecordMadeFromThem)
{
    // A key of 300 characters is stored cut to 255, as the collectors store
    // it; looked up again it must find that record, or every poll would add
    // another one.
    MErrno err;
    ClusterInfo c(&err);
    std::string longAddr(300, 'a');
    std::string longName = std::string(255, 'n') + "-tail-that-is-cut";
    NodeInfo* n = makeNode("", "");
    snprintf(n->name, sizeof(n->name), "%s", longName.c_str());
    snprintf(n->ipAddr, sizeof(n->ipAddr), "%s", longAddr.c_str());
    c.nodeItems.push_back(n);
    EXPECT_EQ(strlen(c.nodeItems[0]->ipAddr), 255u);
    EXPECT_EQ(0, c.getNodeInfoIndex(longAddr.c_str()));
    EXPECT_EQ(0, c.getNodeInfoIndexByName(longName.c_str()));
    EXPECT_EQ(-1, c.getNodeInfoIndex(std::string(254, 'a').c_str()));
    FilesystemInfo* f = makeFs("");
    snprintf(f->name, sizeof(f->name), "%s", std::string(400, 'f').c_str());
    c.filesystemItems.push_back(f);
    EXPECT_EQ(0, c.getFilesystemInfoIndex(std::string(256, 'f').c_str()));
    EXPECT_EQ(-1, c.getFilesystemInfoIndex((std::string(254, 'f') + "g").c_str()));
}

TEST(Lookup, CaseSensitive)
{
    MErrno err;
    ClusterInfo c(&err);
    c.filesystemItems.push_back(makeFs("fs1"));
    EXPECT_EQ(-1, c.getFilesystemInfoIndex("FS1"));
    EXPECT_EQ(0, c.getFilesystemInfoIndex("fs1"));
}

TEST(Lookup, NameAndAddressAreSeparateKeys)
{
    MErrno err;
    ClusterInfo c(&err);
    c.nodeItems.push_back(makeNode("nodeA", "10.0.0.1"));
    c.nodeItems.push_back(makeNode("nodeB", "10.0.0.2"));
    EXPECT_EQ(-1, c.getNodeInfoIndex("nodeB"));
    EXPECT_EQ(-1, c.getNodeInfoIndexByName("10.0.0.2"));
    EXPECT_EQ(1, c.getNodeInfoIndexByName("nodeB"));
    EXPECT_EQ(1, c.getNodeInfoIndex("10.0.0.2"));
}

TEST(Lookup, EmptyKeyFindsAnItemWithAnEmptyKey)
{
    MErrno err;
    ClusterInfo c(&err);
    EXPECT_EQ(-1, c.getNodeInfoIndex(""));
    c.nodeItems.push_back(makeNode("a", "10.0.0.1"));
    EXPECT_EQ(-1, c.getNodeInfoIndex(""));
    c.nodeItems.push_back(makeNode("b", ""));
    EXPECT_EQ(1, c.getNodeInfoIndex(""));
    EXPECT_EQ(-1, c.getNodeInfoIndexByName(""));
}

TEST(Lookup, EveryVectorByItsKeyField)
{
    MErrno err;
    ClusterInfo c(&err);
    c.freeDiskItems.push_back(makeDisk("f0"));
    c.freeDiskItems.push_back(makeDisk("f1"));
    EXPECT_EQ(1, c.getFreeDiskInfoIndex("f1"));
    EXPECT_EQ(-1, c.getFreeDiskInfoIndex("f2"));

    FilesystemInfo f(&err);
    f.poolItems.push_back(makePool("system"));
    f.poolItems.push_back(makePool("data"));
    EXPECT_EQ(1, f.getStoragePoolInfoIndex("data"));
    EXPECT_EQ(-1, f.getStoragePoolInfoIndex("Data"));
    f.mountedNodeItems.push_back(makeMount("n1", "10.0.0.1"));
    EXPECT_EQ(0, f.getMountedNodeIndex("10.0.0.1"));
    EXPECT_EQ(-1, f.getMountedNodeIndex("n1"));
    f.policyItems.push_back(makePolicy("p0", "root"));
    f.policyItems.push_back(makePolicy("p1", "root"));
    EXPECT_EQ(1, f.getPolicyInfoIndex("p1"));
    EXPECT_EQ(-1, f.getPolicyInfoIndex("root"));
    f.perNodePerfItems.push_back(makePerf("10.0.0.9", 0));
    EXPECT_EQ(0, f.getPerNodePerfIndex("10.0.0.9"));
    EXPECT_EQ(-1, f.getPerNodePerfIndex("10.0.0.8"));

    StoragePoolInfo p(&err);
    p.diskItems.push_back(makeDisk("d0"));
    p.diskItems.push_back(makeDisk("d1"));
    p.diskItems.push_back(makeDisk("d2"));
    EXPECT_EQ(2, p.getDiskInfoIndex("d2"));
    EXPECT_EQ(-1, p.getDiskInfoIndex("d3"));

    DiskInfo d(&err);
    d.serverItems.push_back(makeServer("s0"));
    d.backupServerItems.push_back(makeServer("b0"));
    d.backupServerItems.push_back(makeServer("s0"));
    EXPECT_EQ(0, d.getServerIndex("s0"));
    EXPECT_EQ(-1, d.getServerIndex("b0"));
    EXPECT_EQ(0, d.getBackupServerIndex("b0"));
    EXPECT_EQ(1, d.getBackupServerIndex("s0"));

    NodeInfo n(&err);
    n.diskAccessItems.push_back(makeAccess("d0", 1, "/dev/sda", ""));
    n.diskAccessItems.push_back(makeAccess("d1", 0, "", "s0"));
    EXPECT_EQ(1, n.getDiskAccessIndex("d1"));
    EXPECT_EQ(-1, n.getDiskAccessIndex("/dev/sda"));

    PolicyInfo pol(&err);
    pol.ruleItems.push_back(makeRule("", "RULE without name"));
    pol.ruleItems.push_back(makeRule("r1", "RULE 'r1'"));
    EXPECT_EQ(1, pol.getRuleInfoIndex("r1"));
    EXPECT_EQ(0, pol.getRuleInfoIndex(""));
    EXPECT_EQ(-1, pol.getRuleInfoIndex("RULE 'r1'"));
}

TEST(Lookup, PolicyAndPerNodeLookupsLogTheirIndexEvenWhenNothingMatches)
{
    LogCapture log;
    MErrno err;
    FilesystemInfo f(&err);
    EXPECT_EQ(-1, f.getPolicyInfoIndex("p0"));
    f.policyItems.push_back(makePolicy("p0", "root"));
    f.policyItems.push_back(makePolicy("p1", "root"));
    EXPECT_EQ(1, f.getPolicyInfoIndex("p1"));
    f.perNodePerfItems.push_back(makePerf("10.0.0.1", 0));
    EXPECT_EQ(0, f.getPerNodePerfIndex("10.0.0.1"));
    EXPECT_EQ(-1, f.getPerNodePerfIndex("10.0.0.2"));
    // The other lookups stay silent.
    f.poolItems.push_back(makePool("system"));
    EXPECT_EQ(0, f.getStoragePoolInfoIndex("system"));
    EXPECT_EQ(-1, f.getMountedNodeIndex("x"));

    std::vector<std::string> expected = {
        "INFO: FilesystemInfo::getPolicyInfoIndex: index = -1",
        "INFO: FilesystemInfo::getPolicyInfoIndex: index = 1",
        "INFO: FilesystemInfo::getPerNodePerfIndex: index = 0",
        "INFO: FilesystemInfo::getPerNodePerfIndex: index = -1",
    };
    EXPECT_EQ(expected, log.lines());
}

TEST(Lookup, GetNodeGivesTheNodeAtThatPosition)
{
    MErrno err;
    ClusterInfo c(&err);
    NodeInfo* a = makeNode("a", "1");
    NodeInfo* b = makeNode("b", "2");
    c.nodeItems.push_back(a);
    c.nodeItems.push_back(b);
    EXPECT_EQ(a, c.getNode(0));
    EXPECT_EQ(b, c.getNode(1));
}

TEST(Lookup, GetNodeOutOfRangeThrowsRangeCheck)
{
    MErrno err;
    ClusterInfo c(&err);
    EXPECT_THROW(c.getNode(0), std::out_of_range);
    c.nodeItems.push_back(makeNode("a", "1"));
    EXPECT_THROW(c.getNode(1), std::out_of_range);
    EXPECT_THROW(c.getNode(-1), std::out_of_range);
    try {
        c.getNode(5);
        FAIL() << "no exception";
    } catch (const std::out_of_range& e) {
        EXPECT_EQ(0u, std::string(e.what()).find("vector::_M_range_check"));
    }
}

// ---------------------------------------------------------------------------
// Assignment of own fields

TEST(Assignment, ClusterInfoCopiesOwnFieldsButNotTheTwoOtherTimesOrChildren)
{
    MErrno err;
    ClusterInfo src(&err);
    ClusterInfo dst(&err);
    strcpy(src.clusterName, "cl");
    strcpy(src.sdrField1002, "a2");
    strcpy(src.sdrField1003, "a3");
    strcpy(src.maxFeature, "mf");
    strcpy(src.sdrField1008, "a8");
    strcpy(src.sdrField1006, "a6");
    strcpy(src.sdrField1007, "a7");
    strcpy(src.sdrField1004, "a4");
    strcpy(src.sdrField1005, "a5");
    src.maxBlockSize = 1;
    src.distribTokenServer = 2;
    src.failureDetectionTime = 3;
    src.sdrField1011 = 4;
    src.minMissedPingTimeout = 5;
    src.maxMissedPingTimeout = 6;
    src.sdrfsGenNumber = 7;
    src.clusterUpdateTime = {100, 1};
    src.nodeUpdateTime = {101, 2};
    src.filesystemUpdateTime = {102, 3};
    src.filesystemPerfUpdateTime = {103, 4};
    src.diskSdrUpdateTime = {104, 5};
    src.nodeItems.push_back(makeNode("n", "1"));
    src.filesystemItems.push_back(makeFs("fs"));
    dst.clusterUpdateTime = {7, 7};
    dst.diskSdrUpdateTime = {8, 8};
    NodeInfo* keep = makeNode("keep", "9");
    dst.nodeItems.push_back(keep);

    ClusterInfo& r = (dst = src);
    EXPECT_EQ(&dst, &r);
    EXPECT_STREQ("cl", dst.clusterName);
    EXPECT_STREQ("a2", dst.sdrField1002);
    EXPECT_STREQ("a3", dst.sdrField1003);
    EXPECT_STREQ("mf", dst.maxFeature);
    EXPECT_STREQ("a8", dst.sdrField1008);
    EXPECT_STREQ("a6", dst.sdrField1006);
    EXPECT_STREQ("a7", dst.sdrField1007);
    EXPECT_STREQ("a4", dst.sdrField1004);
    EXPECT_STREQ("a5", dst.sdrField1005);
    EXPECT_EQ(1, dst.maxBlockSize);
    EXPECT_EQ(2, dst.distribTokenServer);
    EXPECT_EQ(3, dst.failureDetectionTime);
    EXPECT_EQ(4, dst.sdrField1011);
    EXPECT_EQ(5, dst.minMissedPingTimeout);
    EXPECT_EQ(6, dst.maxMissedPingTimeout);
    EXPECT_EQ(7u, dst.sdrfsGenNumber);
    EXPECT_EQ(101, dst.nodeUpdateTime.tv_sec);
    EXPECT_EQ(2, dst.nodeUpdateTime.tv_usec);
    EXPECT_EQ(102, dst.filesystemUpdateTime.tv_sec);
    EXPECT_EQ(103, dst.filesystemPerfUpdateTime.tv_sec);
    EXPECT_EQ(4, dst.filesystemPerfUpdateTime.tv_usec);
    // Not copied.
    EXPECT_EQ(7, dst.clusterUpdateTime.tv_sec);
    EXPECT_EQ(7, dst.clusterUpdateTime.tv_usec);
    EXPECT_EQ(8, dst.diskSdrUpdateTime.tv_sec);
    EXPECT_EQ(8, dst.diskSdrUpdateTime.tv_usec);
    ASSERT_EQ(1u, dst.nodeItems.size());
    EXPECT_EQ(keep, dst.nodeItems[0]);
    EXPECT_TRUE(dst.filesystemItems.empty());
    EXPECT_EQ(1u, src.filesystemItems.size());
}

TEST(Assignment, NodeInfoCopiesOwnFieldsClearsFoundAndLeavesStatistics)
{
    MErrno err;
    NodeInfo src(&err);
    NodeInfo dst(&err);
    strcpy(src.name, "n");
    strcpy(src.ipAddr, "10.0.0.1");
    strcpy(src.platform, "x86_64");
    strcpy(src.endian, "little_endian");
    strcpy(src.roles, "manager quorum ");
    strcpy(src.sdrField2010, "f2010");
    strcpy(src.adminState, "up");
    strcpy(src.status, "active");
    strcpy(src.version, "5.1");
    src.failures = 3;
    src.threadWait = 4;
    strcpy(src.healthy, "yes");
    strcpy(src.diagnosis, "ok");
    src.pagePool = 1LL << 40;
    src.pfThreads = 1;
    src.maxMBps = 2;
    src.maxFilesToCache = 3;
    src.maxStatCache = 4;
    src.wkr1Threads = 5;
    src.dmapiEventTimeout = 6;
    src.dmapiMountTimeout = 7;
    src.dmapiSessFailureTimeout = 8;
    src.nsdServerWaitTimeWindowOnMount = 9;
    src.nsdServerWaitTimeForMount = 10;
    strcpy(src.unmountOnDiskFail, "yes");
    src.lastUpdateTime = {55, 66};
    src.found = 1;
    src.diskAccessItems.push_back(makeAccess("d0", 1, "/dev/sda", ""));

    IocStatsInfo* srcIoc = reinterpret_cast<IocStatsInfo*>(::operator new(332));
    IocStatsInfo* dstIoc = reinterpret_cast<IocStatsInfo*>(::operator new(332));
    src.iocStats = srcIoc;
    dst.iocStats = dstIoc;
    RPCUtilInfo* rpc = reinterpret_cast<RPCUtilInfo*>(0x1000);
    src.rpcUtil = rpc;
    dst.found = 1;

    dst = src;

    EXPECT_STREQ("n", dst.name);
    EXPECT_STREQ("10.0.0.1", dst.ipAddr);
    EXPECT_STREQ("x86_64", dst.platform);
    EXPECT_STREQ("little_endian", dst.endian);
    EXPECT_STREQ("manager quorum ", dst.roles);
    EXPECT_STREQ("f2010", dst.sdrField2010);
    EXPECT_STREQ("up", dst.adminState);
    EXPECT_STREQ("active", dst.status);
    EXPECT_STREQ("5.1", dst.version);
    EXPECT_EQ(3, dst.failures);
    EXPECT_EQ(4, dst.threadWait);
    EXPECT_STREQ("yes", dst.healthy);
    EXPECT_STREQ("ok", dst.diagnosis);
    EXPECT_EQ(1LL << 40, dst.pagePool);
    EXPECT_EQ(1u, dst.pfThreads);
    EXPECT_EQ(2u, dst.maxMBps);
    EXPECT_EQ(3u, dst.maxFilesToCache);
    EXPECT_EQ(4u, dst.maxStatCache);
    EXPECT_EQ(5u, dst.wkr1Threads);
    EXPECT_EQ(6u, dst.dmapiEventTimeout);
    EXPECT_EQ(7u, dst.dmapiMountTimeout);
    EXPECT_EQ(8u, dst.dmapiSessFailureTimeout);
    EXPECT_EQ(9u, dst.nsdServerWaitTimeWindowOnMount);
    EXPECT_EQ(10u, dst.nsdServerWaitTimeForMount);
    EXPECT_STREQ("yes", dst.unmountOnDiskFail);
    EXPECT_EQ(55, dst.lastUpdateTime.tv_sec);
    EXPECT_EQ(66, dst.lastUpdateTime.tv_usec);
    EXPECT_EQ(0, dst.found);
    EXPECT_EQ(1, src.found);
    // Statistics pointers and vectors of both sides as they were.
    EXPECT_EQ(srcIoc, src.iocStats);
    EXPECT_EQ(dstIoc, dst.iocStats);
    EXPECT_EQ(nullptr, dst.rpcUtil);
    EXPECT_EQ(rpc, src.rpcUtil);
    EXPECT_TRUE(dst.diskAccessItems.empty());
    EXPECT_EQ(1u, src.diskAccessItems.size());
    src.rpcUtil = nullptr;   // not the node's to free, and not a real record
}

TEST(Assignment, FilesystemInfoCopiesEveryOwnFieldButFound)
{
    MErrno err;
    FilesystemInfo src(&err);
    FilesystemInfo dst(&err);
    strcpy(src.name, "fs1");
    strcpy(src.manager, "mgr");
    strcpy(src.status, "mounted");
    strcpy(src.xstatus, "x");
    src.readDuration = 1;
    src.writeDuration = 2;
    src.nSysMgt = 3;
    src.mgrChangeCnt = 4;
    src.totalSpace = 5;
    src.totalInodes = 6;
    src.freeSpace = 7;
    src.freeInodes = 8;
    src.fullBlockFreeSpace = 9;
    src.fragFreeSpace = 10;
    strcpy(src.threadWait, "tw");
    strcpy(src.diskWait, "dw");
    src.minFragmentSize = 11;
    src.inodeSize = 12;
    src.indirectBlockSize = 13;
    src.defaultMetadataReplicas = 14;
    src.maxMetadataReplicas = 15;
    src.defaultDataReplicas = 16;
    src.maxDataReplicas = 17;
    strcpy(src.blockAllocationType, "cluster");
    strcpy(src.fileLockingSemantics, "nfs4");
    strcpy(src.ACLSemantics, "all");
    src.estimatedAverageFilesize = 18;
    src.numNodes = 19;
    src.blockSize = 20;
    strcpy(src.quotasEnforced, "user");
    strcpy(src.defaultQuotasEnabled, "none");
    src.maxNumberOfInodes = 21;
    strcpy(src.filesystemVersion, "27.00");
    strcpy(src.supportForLargeLUNs, "yes");
    strcpy(src.DMAPIEnabled, "no");
    strcpy(src.exactMtime, "yes");
    strcpy(src.suppressAtime, "no");
    strcpy(src.automaticMountOption, "yes");
    strcpy(src.additionalMountOptions, "none");
    strcpy(src.defaultMountPoint, "/fs1");
    src.bytesRead = 22;
    src.bytesCache = 23;
    src.bytesWritten = 24;
    src.reads = 25;
    src.caches = 26;
    src.writes = 27;
    src.openCalls = 28;
    src.closeCalls = 29;
    src.readCalls = 30;
    src.writeCalls = 31;
    src.dirCalls = 32;
    src.inodeUpdates = 33;
    src.ircCount = 34;
    src.idcCount = 35;
    src.iccCount = 36;
    src.schCount = 37;
    src.scmCount = 38;
    src.perfInstances = 39;
    src.poolUpdateTime = {40, 41};
    src.found = 1;
    src.mountPointValid = 1;
    src.poolItems.push_back(makePool("system"));
    src.policyItems.push_back(makePolicy("p", "u"));

    dst = src;

    EXPECT_STREQ("fs1", dst.name);
    EXPECT_STREQ("mgr", dst.manager);
    EXPECT_STREQ("mounted", dst.status);
    EXPECT_STREQ("x", dst.xstatus);
    EXPECT_EQ(1, dst.readDuration);
    EXPECT_EQ(2, dst.writeDuration);
    EXPECT_EQ(3, dst.nSysMgt);
    EXPECT_EQ(4, dst.mgrChangeCnt);
    EXPECT_EQ(5, dst.totalSpace);
    EXPECT_EQ(6, dst.totalInodes);
    EXPECT_EQ(7, dst.freeSpace);
    EXPECT_EQ(8, dst.freeInodes);
    EXPECT_EQ(9, dst.fullBlockFreeSpace);
    EXPECT_EQ(10, dst.fragFreeSpace);
    EXPECT_STREQ("tw", dst.threadWait);
    EXPECT_STREQ("dw", dst.diskWait);
    EXPECT_EQ(11, dst.minFragmentSize);
    EXPECT_EQ(12, dst.inodeSize);
    EXPECT_EQ(13, dst.indirectBlockSize);
    EXPECT_EQ(14, dst.defaultMetadataReplicas);
    EXPECT_EQ(15, dst.maxMetadataReplicas);
    EXPECT_EQ(16, dst.defaultDataReplicas);
    EXPECT_EQ(17, dst.maxDataReplicas);
    EXPECT_STREQ("cluster", dst.blockAllocationType);
    EXPECT_STREQ("nfs4", dst.fileLockingSemantics);
    EXPECT_STREQ("all", dst.ACLSemantics);
    EXPECT_EQ(18, dst.estimatedAverageFilesize);
    EXPECT_EQ(19, dst.numNodes);
    EXPECT_EQ(20, dst.blockSize);
    EXPECT_STREQ("user", dst.quotasEnforced);
    EXPECT_STREQ("none", dst.defaultQuotasEnabled);
    EXPECT_EQ(21, dst.maxNumberOfInodes);
    EXPECT_STREQ("27.00", dst.filesystemVersion);
    EXPECT_STREQ("yes", dst.supportForLargeLUNs);
    EXPECT_STREQ("no", dst.DMAPIEnabled);
    EXPECT_STREQ("yes", dst.exactMtime);
    EXPECT_STREQ("no", dst.suppressAtime);
    EXPECT_STREQ("yes", dst.automaticMountOption);
    EXPECT_STREQ("none", dst.additionalMountOptions);
    EXPECT_STREQ("/fs1", dst.defaultMountPoint);
    EXPECT_EQ(22u, dst.bytesRead);
    EXPECT_EQ(23u, dst.bytesCache);
    EXPECT_EQ(24u, dst.bytesWritten);
    EXPECT_EQ(25u, dst.reads);
    EXPECT_EQ(26u, dst.caches);
    EXPECT_EQ(27u, dst.writes);
    EXPECT_EQ(28u, dst.openCalls);
    EXPECT_EQ(29u, dst.closeCalls);
    EXPECT_EQ(30u, dst.readCalls);
    EXPECT_EQ(31u, dst.writeCalls);
    EXPECT_EQ(32u, dst.dirCalls);
    EXPECT_EQ(33u, dst.inodeUpdates);
    EXPECT_EQ(34u, dst.ircCount);
    EXPECT_EQ(35u, dst.idcCount);
    EXPECT_EQ(36u, dst.iccCount);
    EXPECT_EQ(37u, dst.schCount);
    EXPECT_EQ(38u, dst.scmCount);
    EXPECT_EQ(39u, dst.perfInstances);
    EXPECT_EQ(40, dst.poolUpdateTime.tv_sec);
    EXPECT_EQ(41, dst.poolUpdateTime.tv_usec);
    EXPECT_EQ(1, dst.mountPointValid);
    EXPECT_EQ(0, dst.found);
    EXPECT_TRUE(dst.poolItems.empty());
    EXPECT_TRUE(dst.policyItems.empty());
}

TEST(Assignment, StoragePoolInfoCopiesOwnFieldsButNotFoundOrDisks)
{
    MErrno err;
    StoragePoolInfo src(&err);
    StoragePoolInfo dst(&err);
    strcpy(src.name, "data");
    strcpy(src.status, "ok");
    src.nDisks = 2;
    src.totalSpace = 3;
    src.freeSpace = 4;
    src.fsIndex = 5;
    src.found = 1;
    src.diskUpdateTime = {6, 7};
    src.diskPerfUpdateTime = {8, 9};
    src.bytesRead = 10;
    src.bytesWritten = 11;
    src.readTime = 1.5;
    src.writeTime = 2.5;
    src.diskItems.push_back(makeDisk("d"));

    dst = src;

    EXPECT_STREQ("data", dst.name);
    EXPECT_STREQ("ok", dst.status);
    EXPECT_EQ(2, dst.nDisks);
    EXPECT_EQ(3, dst.totalSpace);
    EXPECT_EQ(4, dst.freeSpace);
    EXPECT_EQ(5, dst.fsIndex);
    EXPECT_EQ(6, dst.diskUpdateTime.tv_sec);
    EXPECT_EQ(7, dst.diskUpdateTime.tv_usec);
    EXPECT_EQ(8, dst.diskPerfUpdateTime.tv_sec);
    EXPECT_EQ(9, dst.diskPerfUpdateTime.tv_usec);
    EXPECT_EQ(10u, dst.bytesRead);
    EXPECT_EQ(11u, dst.bytesWritten);
    EXPECT_EQ(1.5, dst.readTime);
    EXPECT_EQ(2.5, dst.writeTime);
    EXPECT_EQ(0, dst.found);
    EXPECT_TRUE(dst.diskItems.empty());
}

TEST(Assignment, DiskInfoCopiesIsFreeTextsAndNumbersButNotFoundOrServers)
{
    MErrno err;
    DiskInfo src(&err);
    DiskInfo dst(&err);
    src.found = 1;
    src.isFree = 1;
    strcpy(src.name, "d1");
    strcpy(src.nodeName, "n1");
    strcpy(src.poolName, "system");
    strcpy(src.status, "ready");
    strcpy(src.availability, "up");
    std::string long3007(1000, 'z');
    strcpy(src.sdrField3007, long3007.c_str());
    strcpy(src.sdrField3008, "x8");
    strcpy(src.holdsMetadata, "y");
    strcpy(src.holdsData, "n");
    strcpy(src.diskWait, "dw");
    src.totalSpace = 1;
    src.fullBlockFreeSpace = 2;
    src.fragFreeSpace = 3;
    src.readTime = 4.5;
    src.writeTime = 5.5;
    src.longestReadTime = 6.5;
    src.longestWriteTime = 7.5;
    src.shortestReadTime = 8.5;
    src.shortestWriteTime = 9.5;
    src.bytesRead = 10;
    src.bytesWritten = 11;
    src.readOps = 12;
    src.writeOps = 13;
    src.perfInstanceCount = 14;
    src.serverItems.push_back(makeServer("s"));
    src.backupServerItems.push_back(makeServer("b"));

    dst = src;

    EXPECT_EQ(1, dst.isFree);
    EXPECT_EQ(0, dst.found);
    EXPECT_STREQ("d1", dst.name);
    EXPECT_STREQ("n1", dst.nodeName);
    EXPECT_STREQ("system", dst.poolName);
    EXPECT_STREQ("ready", dst.status);
    EXPECT_STREQ("up", dst.availability);
    EXPECT_EQ(long3007, dst.sdrField3007);
    EXPECT_STREQ("x8", dst.sdrField3008);
    EXPECT_STREQ("y", dst.holdsMetadata);
    EXPECT_STREQ("n", dst.holdsData);
    EXPECT_STREQ("dw", dst.diskWait);
    EXPECT_EQ(1, dst.totalSpace);
    EXPECT_EQ(2, dst.fullBlockFreeSpace);
    EXPECT_EQ(3, dst.fragFreeSpace);
    EXPECT_EQ(4.5, dst.readTime);
    EXPECT_EQ(5.5, dst.writeTime);
    EXPECT_EQ(6.5, dst.longestReadTime);
    EXPECT_EQ(7.5, dst.longestWriteTime);
    EXPECT_EQ(8.5, dst.shortestReadTime);
    EXPECT_EQ(9.5, dst.shortestWriteTime);
    EXPECT_EQ(10u, dst.bytesRead);
    EXPECT_EQ(11u, dst.bytesWritten);
    EXPECT_EQ(12u, dst.readOps);
    EXPECT_EQ(13u, dst.writeOps);
    EXPECT_EQ(14u, dst.perfInstanceCount);
    EXPECT_TRUE(dst.serverItems.empty());
    EXPECT_TRUE(dst.backupServerItems.empty());
}

TEST(Assignment, SmallRecords)
{
    MErrno err;
    DiskServerInfo s1(&err), s2(&err);
    strcpy(s1.name, "srv");
    s2 = s1;
    EXPECT_STREQ("srv", s2.name);

    DiskAccessInfo a1(&err), a2(&err);
    strcpy(a1.diskName, "d");
    a1.local = 1;
    strcpy(a1.deviceName, "/dev/x");
    strcpy(a1.serverName, "s");
    a2 = a1;
    EXPECT_STREQ("d", a2.diskName);
    EXPECT_EQ(1, a2.local);
    EXPECT_STREQ("/dev/x", a2.deviceName);
    EXPECT_STREQ("s", a2.serverName);

    MountedNodeInfo m1(&err), m2(&err);
    strcpy(m1.nodeName, "n");
    strcpy(m1.nodeIpAddr, "1.2.3.4");
    m1.found = 1;
    m2 = m1;
    EXPECT_STREQ("n", m2.nodeName);
    EXPECT_STREQ("1.2.3.4", m2.nodeIpAddr);
    EXPECT_EQ(0, m2.found);
    m2.found = 1;
    m1.found = 0;
    m2 = m1;
    EXPECT_EQ(1, m2.found);

    PolicyInfo p1(&err), p2(&err);
    strcpy(p1.name, "pol");
    strcpy(p1.userName, "root");
    strcpy(p1.installTime, "Mon");
    p1.ruleItems.push_back(makeRule("r", "d"));
    p2 = p1;
    EXPECT_STREQ("pol", p2.name);
    EXPECT_STREQ("root", p2.userName);
    EXPECT_STREQ("Mon", p2.installTime);
    EXPECT_TRUE(p2.ruleItems.empty());

    RuleInfo r1(&err), r2(&err);
    strcpy(r1.name, "r");
    std::string longDesc(1000, 'q');
    strcpy(r1.desc, longDesc.c_str());
    r2 = r1;
    EXPECT_STREQ("r", r2.name);
    EXPECT_EQ(longDesc, r2.desc);

    FilesystemPerf f1(&err), f2(&err);
    strcpy(f1.fsName, "fs");
    strcpy(f1.nodeName, "n");
    strcpy(f1.nodeIpAddr, "1.1.1.1");
    f1.bytesRead = 1;
    f1.bytesCache = 2;
    f1.bytesWritten = 3;
    f1.reads = 4;
    f1.caches = 5;
    f1.writes = 6;
    f1.openCalls = 7;
    f1.closeCalls = 8;
    f1.readCalls = 9;
    f1.writeCalls = 10;
    f1.dirCalls = 11;
    f1.inodeUpdates = 12;
    f1.ircCount = 13;
    f1.idcCount = 14;
    f1.iccCount = 15;
    f1.schCount = 16;
    f1.scmCount = 17;
    f1.found = 1;
    f2 = f1;
    EXPECT_STREQ("fs", f2.fsName);
    EXPECT_STREQ("n", f2.nodeName);
    EXPECT_STREQ("1.1.1.1", f2.nodeIpAddr);
    EXPECT_EQ(1u, f2.bytesRead);
    EXPECT_EQ(2u, f2.bytesCache);
    EXPECT_EQ(3u, f2.bytesWritten);
    EXPECT_EQ(4u, f2.reads);
    EXPECT_EQ(5u, f2.caches);
    EXPECT_EQ(6u, f2.writes);
    EXPECT_EQ(7u, f2.openCalls);
    EXPECT_EQ(8u, f2.closeCalls);
    EXPECT_EQ(9u, f2.readCalls);
    EXPECT_EQ(10u, f2.writeCalls);
    EXPECT_EQ(11u, f2.dirCalls);
    EXPECT_EQ(12u, f2.inodeUpdates);
    EXPECT_EQ(13u, f2.ircCount);
    EXPECT_EQ(14u, f2.idcCount);
    EXPECT_EQ(15u, f2.iccCount);
    EXPECT_EQ(16u, f2.schCount);
    EXPECT_EQ(17u, f2.scmCount);
    EXPECT_EQ(0, f2.found);
}

TEST(Assignment, UnterminatedTextIsCutAtTheArrayAndKeepsTheTerminator)
{
    MErrno err;
    DiskServerInfo s1(&err), s2(&err);
    memset(s1.name, 'k', sizeof(s1.name));   // no terminator inside the array
    s2 = s1;
    EXPECT_EQ(std::string(255, 'k'), std::string(s2.name));
    EXPECT_EQ('\0', s2.name[255]);
}

TEST(Assignment, SelfAssignmentKeepsTheRecord)
{
    MErrno err;
    NodeInfo n(&err);
    strcpy(n.name, "self");
    strcpy(n.ipAddr, "10.1.1.1");
    n.failures = 2;
    n.found = 1;
    NodeInfo& alias = n;
    n = alias;
    EXPECT_STREQ("self", n.name);
    EXPECT_STREQ("10.1.1.1", n.ipAddr);
    EXPECT_EQ(2, n.failures);
    EXPECT_EQ(0, n.found);
}

// ---------------------------------------------------------------------------
// Level copies: the cluster levels

TEST(LevelCopy, CopyNodesFromEmptySourceEmptiesAndStillCopiesTheTime)
{
    long before = gLiveAllocations.load();
    {
        MErrno err;
        ClusterInfo src(&err);
        ClusterInfo dst(&err);
        NodeInfo* n = makeNode("a", "10.0.0.1");
        n->diskAccessItems.push_back(makeAccess("d0", 1, "/dev/sda", ""));
        dst.nodeItems.push_back(n);
        dst.nodeItems.push_back(makeNode("b", "10.0.0.2"));
        dst.nodeUpdateTime = {1, 1};
        src.nodeUpdateTime = {1234, 5678};

        dst.copyNodes(&src);

        EXPECT_TRUE(dst.nodeItems.empty());
        EXPECT_EQ(1234, dst.nodeUpdateTime.tv_sec);
        EXPECT_EQ(5678, dst.nodeUpdateTime.tv_usec);
    }
    EXPECT_EQ(before, gLiveAllocations.load());
}

TEST(LevelCopy, CopyNodesRemovesMergesAndKeepsOrder)
{
    MErrno err;
    ClusterInfo src(&err);
    ClusterInfo dst(&err);
    NodeInfo* a = makeNode("a", "1");
    NodeInfo* b = makeNode("b", "2");
    NodeInfo* c = makeNode("c", "3");
    NodeInfo* d = makeNode("d", "4");
    dst.nodeItems = {a, b, c, d};
    // The destination's b keeps its children and statistics.
    b->diskAccessItems.push_back(makeAccess("disk", 1, "/dev/b", ""));
    b->found = 1;
    src.nodeItems = {makeNode("D", "4"), makeNode("B", "2"), makeNode("E", "5")};
    strcpy(src.nodeItems[1]->status, "active");
    src.nodeItems[1]->failures = 9;
    src.nodeItems[1]->found = 1;
    NodeInfo* srcE = src.nodeItems[2];
    srcE->diskAccessItems.push_back(makeAccess("e-disk", 0, "", "srv"));
    srcE->pCacheItems.push_back(nullptr);
    srcE->found = 1;

    dst.copyNodes(&src);

    EXPECT_EQ((Keys{"2", "4", "5"}), keysOf(dst.nodeItems, &NodeInfo::ipAddr));
    EXPECT_EQ(b, dst.nodeItems[0]);
    EXPECT_EQ(d, dst.nodeItems[1]);
    EXPECT_STREQ("B", b->name);
    EXPECT_STREQ("active", b->status);
    EXPECT_EQ(9, b->failures);
    EXPECT_EQ(0, b->found);
    ASSERT_EQ(1u, b->diskAccessItems.size());
    EXPECT_STREQ("disk", b->diskAccessItems[0]->diskName);
    EXPECT_STREQ("D", d->name);
    // A new item: own fields from the source, no children, no statistics.
    NodeInfo* e = dst.nodeItems[2];
    EXPECT_NE(srcE, e);
    EXPECT_STREQ("E", e->name);
    EXPECT_TRUE(e->diskAccessItems.empty());
    EXPECT_TRUE(e->pCacheItems.empty());
    EXPECT_EQ(nullptr, e->iocStats);
    EXPECT_EQ(0, e->found);
    // The source is only read.
    EXPECT_EQ((Keys{"4", "2", "5"}), keysOf(src.nodeItems, &NodeInfo::ipAddr));
    EXPECT_EQ(1u, srcE->diskAccessItems.size());
    EXPECT_EQ(1, srcE->found);
    srcE->pCacheItems.clear();
}

TEST(LevelCopy, CopyFSIntoEmptyDestinationGivesNewRecordsWithOwnFieldsOnly)
{
    MErrno err;
    ClusterInfo src(&err);
    ClusterInfo dst(&err);
    FilesystemInfo* f = makeFs("fs1");
    strcpy(f->status, "mounted");
    strcpy(f->manager, "mgr");
    f->totalSpace = 77;
    f->blockSize = 1 << 20;
    strcpy(f->defaultMountPoint, "/fs1");
    f->bytesRead = 5;
    f->perfInstances = 3;
    f->poolUpdateTime = {9, 9};
    f->mountPointValid = 1;
    f->found = 1;
    f->poolItems.push_back(makePool("system"));
    f->mountedNodeItems.push_back(makeMount("n", "1"));
    f->policyItems.push_back(makePolicy("p", "u"));
    f->perNodePerfItems.push_back(makePerf("1", 1));
    src.filesystemItems = {f, makeFs("fs2")};
    src.filesystemUpdateTime = {100, 1};
    src.filesystemPerfUpdateTime = {200, 2};

    dst.copyFS(&src);

    ASSERT_EQ((Keys{"fs1", "fs2"}), keysOf(dst.filesystemItems, &FilesystemInfo::name));
    FilesystemInfo* g = dst.filesystemItems[0];
    EXPECT_NE(f, g);
    EXPECT_STREQ("mounted", g->status);
    EXPECT_STREQ("mgr", g->manager);
    EXPECT_EQ(77, g->totalSpace);
    EXPECT_EQ(1 << 20, g->blockSize);
    EXPECT_STREQ("/fs1", g->defaultMountPoint);
    EXPECT_EQ(5u, g->bytesRead);
    EXPECT_EQ(3u, g->perfInstances);
    EXPECT_EQ(9, g->poolUpdateTime.tv_sec);
    EXPECT_EQ(1, g->mountPointValid);
    EXPECT_EQ(0, g->found);
    EXPECT_TRUE(g->poolItems.empty());
    EXPECT_TRUE(g->mountedNodeItems.empty());
    EXPECT_TRUE(g->policyItems.empty());
    EXPECT_TRUE(g->perNodePerfItems.empty());
    EXPECT_STREQ("unknown", dst.filesystemItems[1]->status);
    EXPECT_EQ(100, dst.filesystemUpdateTime.tv_sec);
    EXPECT_EQ(1, dst.filesystemUpdateTime.tv_usec);
    EXPECT_EQ(200, dst.filesystemPerfUpdateTime.tv_sec);
    EXPECT_EQ(2, dst.filesystemPerfUpdateTime.tv_usec);
}

TEST(LevelCopy, CopyFSKeepsTheChildrenOfAFilesystemThatStays)
{
    MErrno err;
    ClusterInfo src(&err);
    ClusterInfo dst(&err);
    FilesystemInfo* kept = makeFs("fs1");
    StoragePoolInfo* keptPool = makePool("old");
    PolicyInfo* keptPolicy = makePolicy("oldpol", "u");
    kept->poolItems.push_back(keptPool);
    kept->policyItems.push_back(keptPolicy);
    kept->found = 1;
    dst.filesystemItems.push_back(kept);

    FilesystemInfo* s = makeFs("fs1");
    strcpy(s->status, "mounted");
    s->poolItems.push_back(makePool("new1"));
    s->poolItems.push_back(makePool("new2"));
    src.filesystemItems.push_back(s);

    dst.copyFS(&src);

    ASSERT_EQ(1u, dst.filesystemItems.size());
    EXPECT_EQ(kept, dst.filesystemItems[0]);
    EXPECT_STREQ("mounted", kept->status);
    EXPECT_EQ(1, kept->found);
    ASSERT_EQ(1u, kept->poolItems.size());
    EXPECT_EQ(keptPool, kept->poolItems[0]);
    ASSERT_EQ(1u, kept->policyItems.size());
    EXPECT_EQ(keptPolicy, kept->policyItems[0]);
}

TEST(LevelCopy, CopyFSFreesTheWholeSubtreeOfARemovedFilesystem)
{
    MErrno err;
    ClusterInfo src(&err);
    ClusterInfo dst(&err);
    src.filesystemItems.push_back(makeFs("fs2"));
    dst.filesystemItems.push_back(makeFs("fs2"));
    long before = gLiveAllocations.load();
    FilesystemInfo* gone = makeFs("fs1");
    StoragePoolInfo* p = makePool("system");
    DiskInfo* d = makeDisk("d1");
    d->serverItems.push_back(makeServer("s1"));
    d->backupServerItems.push_back(makeServer("s2"));
    p->diskItems.push_back(d);
    gone->poolItems.push_back(p);
    gone->mountedNodeItems.push_back(makeMount("n", "1"));
    PolicyInfo* pol = makePolicy("p", "u");
    pol->ruleItems.push_back(makeRule("r", "d"));
    gone->policyItems.push_back(pol);
    gone->perNodePerfItems.push_back(makePerf("1", 1));
    dst.filesystemItems.insert(dst.filesystemItems.begin(), gone);

    dst.copyFS(&src);

    EXPECT_EQ((Keys{"fs2"}), keysOf(dst.filesystemItems, &FilesystemInfo::name));
    EXPECT_EQ(before, gLiveAllocations.load());
}

TEST(LevelCopy, RemovingTheLastItemsEndsTheWalk)
{
    MErrno err;
    ClusterInfo src(&err);
    ClusterInfo dst(&err);
    dst.freeDiskItems = {makeDisk("a"), makeDisk("b"), makeDisk("c")};
    src.freeDiskItems = {makeDisk("a")};

    dst.copyFreeDisks(&src);

    EXPECT_EQ((Keys{"a"}), keysOf(dst.freeDiskItems, &DiskInfo::name));

    // A single item that goes: the vector ends empty.
    ClusterInfo empty(&err);
    dst.copyFreeDisks(&empty);
    EXPECT_TRUE(dst.freeDiskItems.empty());
}

TEST(LevelCopy, AdjacentRemovalsAreAllSeen)
{
    MErrno err;
    ClusterInfo src(&err);
    ClusterInfo dst(&err);
    dst.freeDiskItems = {makeDisk("a"), makeDisk("b"), makeDisk("c"), makeDisk("d"),
                         makeDisk("e")};
    src.freeDiskItems = {makeDisk("e"), makeDisk("c")};

    dst.copyFreeDisks(&src);

    EXPECT_EQ((Keys{"c", "e"}), keysOf(dst.freeDiskItems, &DiskInfo::name));
}

TEST(LevelCopy, CopyFreeDisksCopiesNoTimeAndKeepsServers)
{
    MErrno err;
    ClusterInfo src(&err);
    ClusterInfo dst(&err);
    src.diskSdrUpdateTime = {50, 5};
    src.clusterUpdateTime = {60, 6};
    DiskInfo* s = makeDisk("free1");
    s->isFree = 1;
    s->totalSpace = 1024;
    s->serverItems.push_back(makeServer("srv"));
    src.freeDiskItems.push_back(s);
    DiskInfo* kept = makeDisk("free0");
    kept->serverItems.push_back(makeServer("mine"));
    dst.freeDiskItems.push_back(kept);
    src.freeDiskItems.insert(src.freeDiskItems.begin(), makeDisk("free0"));

    dst.copyFreeDisks(&src);

    ASSERT_EQ((Keys{"free0", "free1"}), keysOf(dst.freeDiskItems, &DiskInfo::name));
    EXPECT_EQ(kept, dst.freeDiskItems[0]);
    EXPECT_EQ((Keys{"mine"}), keysOf(kept->serverItems, &DiskServerInfo::name));
    DiskInfo* fresh = dst.freeDiskItems[1];
    EXPECT_EQ(1, fresh->isFree);
    EXPECT_EQ(1024, fresh->totalSpace);
    EXPECT_TRUE(fresh->serverItems.empty());
    EXPECT_EQ(0, dst.diskSdrUpdateTime.tv_sec);
    EXPECT_EQ(0, dst.clusterUpdateTime.tv_sec);
}

TEST(LevelCopy, LaterSourceItemOfTheSameKeyWins)
{
    MErrno err;
    ClusterInfo src(&err);
    ClusterInfo dst(&err);
    NodeInfo* first = makeNode("first", "1");
    NodeInfo* second = makeNode("second", "1");
    strcpy(second->status, "down");
    src.nodeItems = {first, second};

    dst.copyNodes(&src);

    ASSERT_EQ(1u, dst.nodeItems.size());
    EXPECT_STREQ("second", dst.nodeItems[0]->name);
    EXPECT_STREQ("down", dst.nodeItems[0]->status);
}

TEST(LevelCopy, CopyIntoItselfChangesNothing)
{
    MErrno err;
    ClusterInfo c(&err);
    NodeInfo* a = makeNode("a", "1");
    NodeInfo* b = makeNode("b", "2");
    c.nodeItems = {a, b};
    c.nodeUpdateTime = {3, 4};

    c.copyNodes(&c);

    ASSERT_EQ(2u, c.nodeItems.size());
    EXPECT_EQ(a, c.nodeItems[0]);
    EXPECT_EQ(b, c.nodeItems[1]);
    EXPECT_STREQ("a", a->name);
    EXPECT_EQ(3, c.nodeUpdateTime.tv_sec);
}

TEST(LevelCopy, TreesChangedOnlyByCopiesLineUpByPosition)
{
    MErrno err;
    ClusterInfo recipe(&err);
    ClusterInfo app(&err);
    recipe.filesystemItems = {makeFs("fs1"), makeFs("fs2"), makeFs("fs3")};
    recipe.filesystemItems[1]->poolItems = {makePool("system"), makePool("data")};
    app.copyFS(&recipe);
    for (size_t i = 0; i < recipe.filesystemItems.size(); ++i)
        app.filesystemItems[i]->copyPools(recipe.filesystemItems[i]);

    // fs2 goes, fs4 arrives.
    delete recipe.filesystemItems[1];
    recipe.filesystemItems.erase(recipe.filesystemItems.begin() + 1);
    recipe.filesystemItems.push_back(makeFs("fs4"));
    recipe.filesystemItems[2]->poolItems = {makePool("p4")};
    app.copyFS(&recipe);
    for (size_t i = 0; i < recipe.filesystemItems.size(); ++i)
        app.filesystemItems[i]->copyPools(recipe.filesystemItems[i]);

    EXPECT_EQ((Keys{"fs1", "fs3", "fs4"}), keysOf(app.filesystemItems, &FilesystemInfo::name));
    EXPECT_TRUE(app.filesystemItems[0]->poolItems.empty());
    EXPECT_TRUE(app.filesystemItems[1]->poolItems.empty());
    EXPECT_EQ((Keys{"p4"}), keysOf(app.filesystemItems[2]->poolItems, &StoragePoolInfo::name));
}

// ---------------------------------------------------------------------------
// Level copies: filesystem, pool, disk, node and policy levels

TEST(LevelCopy, CopyPoolsMergesAndCopiesPoolUpdateTimeEvenWhenEmpty)
{
    MErrno err;
    FilesystemInfo src(&err);
    FilesystemInfo dst(&err);
    StoragePoolInfo* keep = makePool("system");
    DiskInfo* keepDisk = makeDisk("d0");
    keep->diskItems.push_back(keepDisk);
    keep->found = 1;
    dst.poolItems = {makePool("gone"), keep};
    StoragePoolInfo* s = makePool("system");
    strcpy(s->status, "ok");
    s->nDisks = 4;
    s->found = 0;
    src.poolItems = {makePool("data"), s};
    src.poolUpdateTime = {11, 12};

    dst.copyPools(&src);

    EXPECT_EQ((Keys{"system", "data"}), keysOf(dst.poolItems, &StoragePoolInfo::name));
    EXPECT_EQ(keep, dst.poolItems[0]);
    EXPECT_STREQ("ok", keep->status);
    EXPECT_EQ(4, keep->nDisks);
    EXPECT_EQ(1, keep->found);
    ASSERT_EQ(1u, keep->diskItems.size());
    EXPECT_EQ(keepDisk, keep->diskItems[0]);
    EXPECT_TRUE(dst.poolItems[1]->diskItems.empty());
    EXPECT_EQ(11, dst.poolUpdateTime.tv_sec);
    EXPECT_EQ(12, dst.poolUpdateTime.tv_usec);

    FilesystemInfo none(&err);
    none.poolUpdateTime = {21, 22};
    dst.copyPools(&none);
    EXPECT_TRUE(dst.poolItems.empty());
    EXPECT_EQ(21, dst.poolUpdateTime.tv_sec);
    EXPECT_EQ(22, dst.poolUpdateTime.tv_usec);
}

TEST(LevelCopy, CopyMountedNodesMergesByAddressAndKeepsFound)
{
    MErrno err;
    FilesystemInfo src(&err);
    FilesystemInfo dst(&err);
    MountedNodeInfo* keep = makeMount("old", "10.0.0.2");
    keep->found = 1;
    dst.mountedNodeItems = {makeMount("a", "10.0.0.1"), keep};
    MountedNodeInfo* s = makeMount("new", "10.0.0.2");
    src.mountedNodeItems = {s, makeMount("c", "10.0.0.3")};
    src.mountedNodeItems[1]->found = 1;
    dst.poolUpdateTime = {1, 2};
    src.poolUpdateTime = {3, 4};

    dst.copyMountedNodes(&src);

    EXPECT_EQ((Keys{"10.0.0.2", "10.0.0.3"}),
              keysOf(dst.mountedNodeItems, &MountedNodeInfo::nodeIpAddr));
    EXPECT_EQ(keep, dst.mountedNodeItems[0]);
    EXPECT_STREQ("new", keep->nodeName);
    EXPECT_EQ(1, keep->found);
    EXPECT_EQ(0, dst.mountedNodeItems[1]->found);
    EXPECT_EQ(1, dst.poolUpdateTime.tv_sec);
}

TEST(LevelCopy, CopyDisksCopiesBothTimesAndKeepsServers)
{
    MErrno err;
    StoragePoolInfo src(&err);
    StoragePoolInfo dst(&err);
    DiskInfo* keep = makeDisk("d1");
    keep->serverItems.push_back(makeServer("s1"));
    keep->found = 1;
    dst.diskItems = {keep, makeDisk("d0")};
    DiskInfo* s = makeDisk("d1");
    strcpy(s->status, "ready");
    s->bytesRead = 100;
    s->found = 0;
    s->serverItems.push_back(makeServer("other"));
    src.diskItems = {makeDisk("d2"), s};
    src.diskUpdateTime = {31, 32};
    src.diskPerfUpdateTime = {33, 34};

    dst.copyDisks(&src);

    EXPECT_EQ((Keys{"d1", "d2"}), keysOf(dst.diskItems, &DiskInfo::name));
    EXPECT_EQ(keep, dst.diskItems[0]);
    EXPECT_STREQ("ready", keep->status);
    EXPECT_EQ(100u, keep->bytesRead);
    EXPECT_EQ(1, keep->found);
    EXPECT_EQ((Keys{"s1"}), keysOf(keep->serverItems, &DiskServerInfo::name));
    EXPECT_EQ(31, dst.diskUpdateTime.tv_sec);
    EXPECT_EQ(32, dst.diskUpdateTime.tv_usec);
    EXPECT_EQ(33, dst.diskPerfUpdateTime.tv_sec);
    EXPECT_EQ(34, dst.diskPerfUpdateTime.tv_usec);

    StoragePoolInfo none(&err);
    none.diskUpdateTime = {41, 0};
    none.diskPerfUpdateTime = {42, 0};
    dst.copyDisks(&none);
    EXPECT_TRUE(dst.diskItems.empty());
    EXPECT_EQ(41, dst.diskUpdateTime.tv_sec);
    EXPECT_EQ(42, dst.diskPerfUpdateTime.tv_sec);
}

TEST(LevelCopy, CopyServersAndBackupServers)
{
    MErrno err;
    DiskInfo src(&err);
    DiskInfo dst(&err);
    DiskServerInfo* keep = makeServer("s2");
    dst.serverItems = {makeServer("s1"), keep};
    src.serverItems = {makeServer("s3"), makeServer("s2")};
    dst.backupServerItems = {makeServer("b1")};
    src.backupServerItems = {makeServer("b2"), makeServer("b1"), makeServer("b3")};

    dst.copyServers(&src);
    EXPECT_EQ((Keys{"s2", "s3"}), keysOf(dst.serverItems, &DiskServerInfo::name));
    EXPECT_EQ(keep, dst.serverItems[0]);
    // The backup list is a level of its own.
    EXPECT_EQ((Keys{"b1"}), keysOf(dst.backupServerItems, &DiskServerInfo::name));

    dst.copyBackupServers(&src);
    EXPECT_EQ((Keys{"b1", "b2", "b3"}), keysOf(dst.backupServerItems, &DiskServerInfo::name));
    EXPECT_EQ((Keys{"s2", "s3"}), keysOf(dst.serverItems, &DiskServerInfo::name));
}

TEST(LevelCopy, CopyDiskAccessesCopiesAllFourFields)
{
    MErrno err;
    NodeInfo src(&err);
    NodeInfo dst(&err);
    DiskAccessInfo* keep = makeAccess("d1", 0, "", "srv");
    dst.diskAccessItems = {makeAccess("d0", 1, "/dev/a", ""), keep};
    src.diskAccessItems = {makeAccess("d1", 1, "/dev/b", ""), makeAccess("d2", 0, "", "s9")};

    dst.copyDiskAccesses(&src);

    EXPECT_EQ((Keys{"d1", "d2"}), keysOf(dst.diskAccessItems, &DiskAccessInfo::diskName));
    EXPECT_EQ(keep, dst.diskAccessItems[0]);
    EXPECT_EQ(1, keep->isLocal());
    EXPECT_STREQ("/dev/b", keep->getDeviceName());
    EXPECT_STREQ("", keep->getServerName());
    DiskAccessInfo* fresh = dst.diskAccessItems[1];
    EXPECT_NE(src.diskAccessItems[1], fresh);
    EXPECT_EQ(0, fresh->isLocal());
    EXPECT_STREQ("s9", fresh->getServerName());
}

TEST(LevelCopy, SubtreesOfRemovedItemsAreFreedAtEveryLevel)
{
    MErrno err;
    long before = gLiveAllocations.load();
    {
        NodeInfo src(&err), dst(&err);
        dst.diskAccessItems = {makeAccess("x", 1, "/dev/x", "")};
        dst.copyDiskAccesses(&src);
        StoragePoolInfo ps(&err), pd(&err);
        DiskInfo* d = makeDisk("d");
        d->serverItems = {makeServer("a"), makeServer("b")};
        d->backupServerItems = {makeServer("c")};
        pd.diskItems = {d};
        pd.copyDisks(&ps);
        FilesystemInfo fs(&err), fd(&err);
        PolicyInfo* pol = makePolicy("p", "u");
        pol->ruleItems = {makeRule("r1", "x"), makeRule("r2", "y")};
        fd.policyItems = {pol};
        fd.perNodePerfItems = {makePerf("1", 1)};
        fd.mountedNodeItems = {makeMount("m", "1")};
        StoragePoolInfo* pool = makePool("p");
        pool->diskItems = {makeDisk("d1")};
        fd.poolItems = {pool};
        fd.copyPolicies(&fs);
        fd.copyPerNodePerfs(&fs);
        fd.copyMountedNodes(&fs);
        fd.copyPools(&fs);
        PolicyInfo rs(&err), rd(&err);
        rd.ruleItems = {makeRule("r", "d")};
        rd.copyRules(&rs);
        DiskInfo ds(&err), dd(&err);
        dd.serverItems = {makeServer("a")};
        dd.backupServerItems = {makeServer("b")};
        dd.copyServers(&ds);
        dd.copyBackupServers(&ds);
        EXPECT_TRUE(dst.diskAccessItems.empty());
        EXPECT_TRUE(pd.diskItems.empty());
        EXPECT_TRUE(fd.policyItems.empty());
        EXPECT_TRUE(fd.perNodePerfItems.empty());
        EXPECT_TRUE(fd.mountedNodeItems.empty());
        EXPECT_TRUE(fd.poolItems.empty());
        EXPECT_TRUE(rd.ruleItems.empty());
        EXPECT_TRUE(dd.serverItems.empty());
        EXPECT_TRUE(dd.backupServerItems.empty());
    }
    EXPECT_EQ(before, gLiveAllocations.load());
}

TEST(LevelCopy, RemovedNodeFreesItsOwnedStatistics)
{
    MErrno err;
    ClusterInfo src(&err);
    ClusterInfo dst(&err);
    long before = gLiveAllocations.load();
    NodeInfo* n = makeNode("a", "1");
    n->iocStats = reinterpret_cast<IocStatsInfo*>(::operator new(332));
    n->cacheStats = reinterpret_cast<CacheStatsInfo*>(::operator new(284));
    n->pCacheItems.push_back(reinterpret_cast<PCacheStatsInfo*>(::operator new(1792)));
    n->diskAccessItems.push_back(makeAccess("d", 1, "/dev/d", ""));
    dst.nodeItems.push_back(n);

    dst.copyNodes(&src);

    EXPECT_TRUE(dst.nodeItems.empty());
    EXPECT_EQ(before, gLiveAllocations.load());
}

// ---------------------------------------------------------------------------
// Level copies that trace their walk

TEST(LevelCopyLog, CopyRulesTracesRemovalAndMerge)
{
    MErrno err;
    PolicyInfo src(&err);
    PolicyInfo dst(&err);
    dst.ruleItems = {makeRule("r0", "old0"), makeRule("r1", "old1")};
    src.ruleItems = {makeRule("r1", "RULE 'r1' SET POOL 'data'"), makeRule("r2", "RULE 'r2'")};

    LogCapture log;
    dst.copyRules(&src);

    std::vector<std::string> expected = {
        "INFO: PolicyInfo::copyRules: delete ruleItem name r0",
        "INFO: PolicyInfo::copyRules: policyP ruleItems.size() = 2, ruleItems.size = 1",
        "INFO: PolicyInfo::copyRules: rule [0] name r1 desc RULE 'r1' SET POOL 'data'",
        "INFO: PolicyInfo::copyRules: ruleItems[0], policyP->ruleItems[0] name r1",
        "INFO: PolicyInfo::copyRules: rule [1] name r2 desc RULE 'r2'",
        "INFO: PolicyInfo::copyRules: new object is being added",
        "INFO: PolicyInfo::copyRules: Exit: ruleItems.size 2 policyP->ruleItems.size 2",
    };
    EXPECT_EQ(expected, log.lines());
    EXPECT_EQ((Keys{"r1", "r2"}), keysOf(dst.ruleItems, &RuleInfo::name));
    EXPECT_STREQ("RULE 'r1' SET POOL 'data'", dst.ruleItems[0]->desc);
}

TEST(LevelCopyLog, CopyRulesInPlaceNamesBothPositions)
{
    MErrno err;
    PolicyInfo src(&err);
    PolicyInfo dst(&err);
    dst.ruleItems = {makeRule("a", "1"), makeRule("b", "2")};
    src.ruleItems = {makeRule("b", "3"), makeRule("a", "4")};

    LogCapture log;
    dst.copyRules(&src);

    std::vector<std::string> expected = {
        "INFO: PolicyInfo::copyRules: policyP ruleItems.size() = 2, ruleItems.size = 2",
        "INFO: PolicyInfo::copyRules: rule [0] name b desc 3",
        "INFO: PolicyInfo::copyRules: ruleItems[1], policyP->ruleItems[0] name b",
        "INFO: PolicyInfo::copyRules: rule [1] name a desc 4",
        "INFO: PolicyInfo::copyRules: ruleItems[0], policyP->ruleItems[1] name a",
        "INFO: PolicyInfo::copyRules: Exit: ruleItems.size 2 policyP->ruleItems.size 2",
    };
    EXPECT_EQ(expected, log.lines());
    EXPECT_EQ((Keys{"a", "b"}), keysOf(dst.ruleItems, &RuleInfo::name));
    EXPECT_STREQ("4", dst.ruleItems[0]->desc);
    EXPECT_STREQ("3", dst.ruleItems[1]->desc);
}

TEST(LevelCopyLog, CopyPoliciesTracesWithTheLookupsInBetween)
{
    MErrno err;
    FilesystemInfo src(&err);
    FilesystemInfo dst(&err);
    strcpy(dst.name, "fs1");
    strcpy(src.name, "scratchfs");
    PolicyInfo* keep = makePolicy("p1", "old");
    keep->ruleItems.push_back(makeRule("r", "d"));
    dst.policyItems = {makePolicy("p0", "x"), keep};
    src.policyItems = {makePolicy("p1", "root"), makePolicy("p2", "admin")};

    LogCapture log;
    dst.copyPolicies(&src);

    std::vector<std::string> expected = {
        "INFO: FilesystemInfo::copyPolicies: fs fs1 policyItems.size 2",
        "INFO: FilesystemInfo::copyPolicies: check p0",
        "INFO: FilesystemInfo::getPolicyInfoIndex: index = -1",
        "INFO: FilesystemInfo::copyPolicies: policyInfo p0 not found: index -1",
        "INFO: FilesystemInfo::copyPolicies: check p1",
        "INFO: FilesystemInfo::getPolicyInfoIndex: index = 0",
        "INFO: FilesystemInfo::getPolicyInfoIndex: index = 0",
        "INFO: FilesystemInfo::getPolicyInfoIndex: index = -1",
        "INFO: FilesystemInfo::copyPolicies: p2 copied, j -1",
        "INFO: FilesystemInfo::copyPolicies: now policy item size = 2",
        "INFO: FilesystemInfo::copyPolicies: fs fs1 policyItems.size 2, fsP->policyItems.size 2",
    };
    EXPECT_EQ(expected, log.lines());
    EXPECT_EQ((Keys{"p1", "p2"}), keysOf(dst.policyItems, &PolicyInfo::name));
    EXPECT_EQ(keep, dst.policyItems[0]);
    EXPECT_STREQ("root", keep->userName);
    EXPECT_EQ(1u, keep->ruleItems.size());
    EXPECT_TRUE(dst.policyItems[1]->ruleItems.empty());
}

TEST(LevelCopyLog, CopyPerNodePerfsTracesChecksAndNewItems)
{
    MErrno err;
    FilesystemInfo src(&err);
    FilesystemInfo dst(&err);
    FilesystemPerf* keep = makePerf("10.0.0.2", 1);
    keep->found = 1;
    dst.perNodePerfItems = {makePerf("10.0.0.1", 1), keep};
    src.perNodePerfItems = {makePerf("10.0.0.2", 20), makePerf("10.0.0.3", 30)};

    LogCapture log;
    dst.copyPerNodePerfs(&src);

    std::vector<std::string> expected = {
        "INFO: FilesystemInfo::copyPerNodePerfs: check 10.0.0.1",
        "INFO: FilesystemInfo::getPerNodePerfIndex: index = -1",
        "INFO: FilesystemInfo::copyPerNodePerfs: check 10.0.0.2",
        "INFO: FilesystemInfo::getPerNodePerfIndex: index = 0",
        "INFO: FilesystemInfo::getPerNodePerfIndex: index = 0",
        "INFO: FilesystemInfo::getPerNodePerfIndex: index = -1",
        "INFO: FilesystemInfo::copyPerNodePerfs: 10.0.0.3 copied",
        "INFO: FilesystemInfo::copyPerNodePerfs: now perf item size = 2",
    };
    EXPECT_EQ(expected, log.lines());
    EXPECT_EQ((Keys{"10.0.0.2", "10.0.0.3"}),
              keysOf(dst.perNodePerfItems, &FilesystemPerf::nodeIpAddr));
    EXPECT_EQ(keep, dst.perNodePerfItems[0]);
    EXPECT_EQ(20u, keep->bytesRead);
    EXPECT_EQ(1, keep->found);
    EXPECT_EQ(30u, dst.perNodePerfItems[1]->bytesRead);
}

TEST(LevelCopyLog, OtherLevelCopiesAreSilent)
{
    MErrno err;
    ClusterInfo src(&err);
    ClusterInfo dst(&err);
    src.nodeItems = {makeNode("a", "1")};
    src.filesystemItems = {makeFs("fs")};
    src.freeDiskItems = {makeDisk("f")};
    dst.filesystemItems = {makeFs("old")};

    LogCapture log;
    dst.copyNodes(&src);
    dst.copyFS(&src);
    dst.copyFreeDisks(&src);
    dst.filesystemItems[0]->copyPools(src.filesystemItems[0]);
    dst.filesystemItems[0]->copyMountedNodes(src.filesystemItems[0]);
    dst.nodeItems[0]->copyDiskAccesses(src.nodeItems[0]);
    dst.freeDiskItems[0]->copyServers(src.freeDiskItems[0]);
    dst.freeDiskItems[0]->copyBackupServers(src.freeDiskItems[0]);
    EXPECT_TRUE(log.lines().empty());
}
