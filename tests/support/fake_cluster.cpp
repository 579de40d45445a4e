#include "support/fake_cluster.h"

namespace qvtest {

// ---------------------------------------------------------------------------
// Scripting.

FakeCluster::FakeCluster(FakeDaemon& daemon) : daemon_(daemon)
{
    for (const std::string& name : sim::toolNames())
        tools_[name].reset(new FakeTool(name));
}

FakeTool& FakeCluster::tool(const std::string& name)
{
    return *tools_.at(name);
}

void FakeCluster::clearCalls()
{
    for (auto& t : tools_)
        t.second->clearCalls();
}

void FakeCluster::script()
{
    std::set<std::string> now;
    for (const std::string& req : sim::daemonRequests(model)) {
        std::vector<std::string> lines;
        if (!sim::daemonAnswer(model, req, &lines))
            continue;
        daemon_.respondAlways(req, Response(lines));
        now.insert(req);
    }
    for (const std::string& old : scripted_)
        if (now.count(old) == 0)
            daemon_.respondAlways(old, Response());
    scripted_.insert(now.begin(), now.end());

    for (auto& t : tools_)
        t.second->clearRules().output("", 1, "unscripted call\n");
    for (const auto& call : sim::toolCalls(model)) {
        sim::ToolAnswer a;
        if (tools_.count(call.first) == 0 || !sim::toolAnswer(model, call.first, call.second, &a))
            continue;
        tools_[call.first]->on(call.second, a.out, a.status, a.err);
    }
}

// ---------------------------------------------------------------------------
// The small cluster of the end-to-end tests.

SimCluster smallCluster()
{
    SimCluster c;
    c.clusterName = "cluster1";
    c.sdrField1002 = "id-1002";
    c.sdrField1003 = "uid-1003";
    c.sdrField1008 = "prim-1008";
    c.sdrField1006 = "sec-1006";
    c.sdrField1007 = "rsh-1007";
    c.sdrField1011 = 1011;
    c.sdrField1004 = "rcp-1004";
    c.sdrField1005 = "gen-1005";
    c.genNumber = 42;
    c.maxBlockSize = 16777216;
    c.maxFeature = "2401";
    c.distribTokenServer = true;
    c.failureDetectionTime = 35;
    c.minMissedPingTimeout = 3;
    c.maxMissedPingTimeout = 60;
    c.clusterManagerIp = "10.0.0.1";

    SimNode n1;
    n1.name = "node1";
    n1.ipAddr = "10.0.0.1";
    n1.manager = true;
    n1.quorum = true;
    n1.sdrField2010 = "n1-2010";
    n1.adminState = "up";
    n1.status = "up";
    n1.failures = 0;
    n1.threadWait = 2;
    n1.healthy = "yes";
    n1.diagnosis = "ok";
    n1.version = "5.2.0.1";
    n1.pagePool = 1073741824LL;
    n1.pfThreads = 72;
    n1.maxMBps = 2048;
    n1.maxFilesToCache = 4000;
    n1.maxStatCache = 1000;
    n1.wkr1Threads = 48;
    n1.dmapiEventTimeout = 86400000;
    n1.dmapiMountTimeout = 60;
    n1.dmapiSessFailureTimeout = 0;
    n1.nsdServerWaitTimeWindowOnMount = 20;
    n1.nsdServerWaitTimeForMount = 300;
    n1.unmountOnDiskFail = "no";
    n1.platform = "x86_64-linux";
    n1.flags = 0x80;
    n1.nodeNumber = 1;

    SimNode n2 = n1;
    n2.name = "node2";
    n2.ipAddr = "10.0.0.2";
    n2.manager = false;
    n2.quorum = true;
    n2.gateway = true;
    n2.sdrField2010 = "n2-2010";
    n2.failures = 1;
    n2.threadWait = 5;
    n2.version = "5.2.0.0";
    n2.pagePool = 2147483648LL;
    n2.maxFilesToCache = 1000;
    n2.maxStatCache = -1;   // stands for 4 x maxFilesToCache
    n2.unmountOnDiskFail = "yes";
    n2.platform = "ppc64-linux";
    n2.flags = 0x7f;
    n2.nodeNumber = 2;

    SimNode n3 = n1;
    n3.name = "node3";
    n3.ipAddr = "10.0.0.3";
    n3.manager = false;
    n3.quorum = false;
    n3.snmpCollector = true;
    n3.sdrField2010 = "n3-2010";
    n3.adminState = "down";
    n3.status = "arbitrating";
    n3.failures = 3;
    n3.threadWait = 9;
    n3.healthy = "no";
    n3.diagnosis = "network";
    n3.version = "5.1.9.0";
    n3.pagePool = 536870912LL;
    n3.pfThreads = 32;
    n3.maxMBps = 1024;
    n3.maxFilesToCache = 2000;
    n3.maxStatCache = 500;
    n3.wkr1Threads = 16;
    n3.platform = "x86_64-linux";
    n3.flags = 0x81;
    n3.nodeNumber = 3;
    c.nodes = {n1, n2, n3};

    // Disks.
    SimDisk d1;
    d1.name = "d1";
    d1.usage = "dataAndMetadata";
    d1.sdrField3007 = "d1-3007";
    d1.sdrField3008 = "d1-3008";
    d1.servers = {"node1"};
    d1.backupServers = {"node2"};
    d1.status = "up";
    d1.availability = "up";
    d1.diskWait = "1";
    d1.totalSpace = 549755813888LL;
    d1.fullBlockFreeSpace = 274877906944LL;
    d1.fragFreeSpace = 65536;
    d1.nsdId = "0A00000100000001";
    d1.paths = {{"node1", "/dev/sdb"}, {"node2", "/dev/sdc"}};
    SimDiskIo d1a;
    d1a.nodeName = "node1";
    d1a.read = {1.5, 0.75, 0.25, 4096, 2};
    d1a.write = {2.5, 1.0, 0.5, 8192, 4};
    SimDiskIo d1b;
    d1b.nodeName = "node2";
    d1b.read = {0.5, 1.25, 0.125, 1024, 1};
    d1b.write = {0.5, 0.25, 0.0, 2048, 3};
    d1.io = {d1a, d1b};

    SimDisk d2;
    d2.name = "d2";
    d2.usage = "dataOnly";
    d2.sdrField3007 = "d2-3007";
    d2.sdrField3008 = "d2-3008";
    d2.servers = {"node2"};
    d2.backupServers = {"node1"};
    d2.status = "up";
    d2.availability = "up";
    d2.diskWait = "0";
    d2.totalSpace = 1099511627776LL;
    d2.fullBlockFreeSpace = 824633720832LL;
    d2.fragFreeSpace = 131072;
    d2.nsdId = "0A00000200000002";
    d2.paths = {{"node1", "-"}, {"node2", "/dev/sdd"}};
    SimDiskIo d2a;
    d2a.nodeName = "node2";
    d2a.read = {3.0, 2.0, 1.0, 65536, 16};
    d2a.write = {4.0, 3.0, 0.5, 131072, 32};
    d2.io = {d2a};

    SimDisk d3;
    d3.name = "d3";
    d3.usage = "metadataOnly";
    d3.sdrField3007 = "d3-3007";
    d3.sdrField3008 = "d3-3008";
    d3.servers = {"node2", "node3"};
    d3.backupServers = {};
    d3.status = "down";
    d3.availability = "unavailable";
    d3.diskWait = "7";
    d3.totalSpace = 274877906944LL;
    d3.fullBlockFreeSpace = 137438953472LL;
    d3.fragFreeSpace = 8192;
    d3.nsdId = "0A00000300000003";
    d3.paths = {{"node2", "/dev/sde"}, {"node3", "/dev/sdf"}};
    SimDiskIo d3a;
    d3a.nodeName = "node2";
    d3a.read = {0.75, 0.5, 0.25, 512, 1};
    d3a.write = {1.25, 1.0, 0.25, 1536, 2};
    SimDiskIo d3b;
    d3b.nodeName = "node3";
    d3b.rc = 5;   // the daemon failed to ask node3
    d3.io = {d3a, d3b};

    SimDisk d4;
    d4.name = "d4";
    d4.usage = "dataAndMetadata";
    d4.sdrField3007 = "d4-3007";
    d4.sdrField3008 = "d4-3008";
    d4.servers = {"node1"};
    d4.backupServers = {"node2", "node3"};
    d4.status = "up";
    d4.availability = "up";
    d4.diskWait = "2";
    d4.totalSpace = 214748364800LL;
    d4.fullBlockFreeSpace = 107374182400LL;
    d4.fragFreeSpace = 4096;
    d4.nsdId = "0A00000400000004";
    d4.paths = {{"node1", "/dev/sdg"}};
    SimDiskIo d4a;
    d4a.nodeName = "node1";
    d4a.read = {0.25, 0.25, 0.25, 100, 1};
    d4a.write = {0.5, 0.5, 0.5, 200, 1};
    d4.io = {d4a};

    SimDisk d5;
    d5.name = "d5";
    d5.usage = "dataOnly";
    d5.sdrField3007 = "d5-3007";
    d5.sdrField3008 = "d5-3008";
    d5.servers = {"node1"};
    d5.backupServers = {"node2"};
    d5.freePoolName = "system";
    d5.sizeKB = 104857600;
    d5.dstatus = "ready";
    d5.iocnt = 0;
    d5.nsdId = "0A00000500000005";
    d5.paths = {{"node1", "/dev/sdh"}};
    c.freeDisks = {d5};

    // Filesystems.
    SimFilesystem fs1;
    fs1.name = "fs1";
    fs1.status = "mounted";
    fs1.xstatus = "normal";
    fs1.readDuration = 11;
    fs1.writeDuration = 12;
    fs1.nSysMgt = 1;
    fs1.mgrChangeCnt = 2;
    fs1.totalSpace = 1649267441664LL;
    fs1.totalInodes = 1000000;
    fs1.freeSpace = 824633720832LL;
    fs1.freeInodes = 750000;
    fs1.fullBlockFreeSpace = 800000000000LL;
    fs1.fragFreeSpace = 1234567;
    fs1.threadWait = "3";
    fs1.diskWait = "4";
    SimFsCounters k11;
    k11.nodeIp = "10.0.0.1";
    k11.br = 1000; k11.bc = 100; k11.bw = 2000;
    k11.r = 10; k11.c = 1; k11.w = 20; k11.oc = 5; k11.cc = 4; k11.rdc = 11; k11.wc = 21;
    k11.dir = 3; k11.iu = 7; k11.irc = 8; k11.idc = 9; k11.icc = 10; k11.sch = 2; k11.scm = 1;
    SimFsCounters k12;
    k12.nodeIp = "10.0.0.2";
    k12.br = 3000; k12.bc = 300; k12.bw = 4000;
    k12.r = 30; k12.c = 3; k12.w = 40; k12.oc = 6; k12.cc = 6; k12.rdc = 31; k12.wc = 41;
    k12.dir = 5; k12.iu = 17; k12.irc = 18; k12.idc = 19; k12.icc = 20; k12.sch = 4; k12.scm = 3;
    SimFsCounters k13;
    k13.nodeIp = "10.0.0.3";
    k13.br = 5000; k13.bc = 500; k13.bw = 6000;
    k13.r = 50; k13.c = 5; k13.w = 60; k13.oc = 7; k13.cc = 7; k13.rdc = 51; k13.wc = 61;
    k13.dir = 7; k13.iu = 27; k13.irc = 28; k13.idc = 29; k13.icc = 30; k13.sch = 6; k13.scm = 5;
    fs1.counters = {k11, k12, k13};
    fs1.managerIp = "10.0.0.1";
    fs1.attributes = {
        {"minFragmentSize", "8192"},
        {"inodeSize", "4096"},
        {"indirectBlockSize", "32768"},
        {"defaultMetadataReplicas", "2"},
        {"maxMetadataReplicas", "3"},
        {"defaultDataReplicas", "1"},
        {"maxDataReplicas", "2"},
        {"blockAllocationType", "cluster"},
        {"fileLockingSemantics", "nfs4"},
        {"ACLSemantics", "all"},
        {"estimatedAverageFilesize", "1048576"},
        {"numNodes", "32"},
        {"blockSize", "4194304"},
        {"quotasEnforced", "user;group"},
        {"defaultQuotasEnabled", "none"},
        {"maxNumberOfInodes", "2000000"},
        {"filesystemVersion", "27.00 (5.1.0.0)"},
        {"supportForLargeLUNs", "yes"},
        {"DMAPIEnabled", "no"},
        {"exactMtime", "yes"},
        {"suppressAtime", "relatime"},
        {"automaticMountOption", "yes"},
        {"additionalMountOptions", "nodev:nosuid"},
        {"defaultMountPoint", "/gpfs/fs1"},
        {"disks", "d1;d2;d3"},
    };
    fs1.defaultMountPoint = "/gpfs/fs1";
    fs1.mountedBy = {"10.0.0.1", "10.0.0.2", "10.0.0.3"};
    SimPolicy pol;
    pol.fileName = "policy1";
    pol.userName = "root";
    pol.installTime = "Sat Nov 21 10:00:00 2026";
    fs1.policies = {pol};
    fs1.policyText = {"RULE 'placement' SET POOL 'system'",
                      "/* keep the bulk on data1 */",
                      "RULE 'migrate' MIGRATE FROM POOL 'system' TO POOL 'data1'"};
    SimPool p1;
    p1.name = "system";
    p1.status = "up";
    p1.totalSpace = 549755813888LL;
    p1.freeSpace = 274877906944LL;
    p1.disks = {d1};
    SimPool p2;
    p2.name = "data1";
    p2.status = "degraded";
    p2.totalSpace = 1374389534720LL;
    p2.freeSpace = 962072674304LL;
    p2.disks = {d2, d3};
    fs1.pools = {p1, p2};

    SimFilesystem fs2;
    fs2.name = "fs2";
    fs2.status = "mounted";
    fs2.xstatus = "normal";
    fs2.readDuration = 21;
    fs2.writeDuration = 22;
    fs2.nSysMgt = 0;
    fs2.mgrChangeCnt = 1;
    fs2.totalSpace = 214748364800LL;
    fs2.totalInodes = 200000;
    fs2.freeSpace = 107374182400LL;
    fs2.freeInodes = 150000;
    fs2.fullBlockFreeSpace = 100000000000LL;
    fs2.fragFreeSpace = 7654321;
    fs2.threadWait = "0";
    fs2.diskWait = "1";
    SimFsCounters k21;
    k21.nodeIp = "10.0.0.2";
    k21.br = 70; k21.bc = 7; k21.bw = 80;
    k21.r = 1; k21.c = 2; k21.w = 3; k21.oc = 4; k21.cc = 5; k21.rdc = 6; k21.wc = 7;
    k21.dir = 8; k21.iu = 9; k21.irc = 10; k21.idc = 11; k21.icc = 12; k21.sch = 13; k21.scm = 14;
    fs2.counters = {k21};
    fs2.managerIp = "10.0.0.2";
    fs2.attributes = {
        {"blockSize", "1048576"},
        {"inodeSize", "512"},
        {"defaultDataReplicas", "2"},
        {"filesystemVersion", "26.00"},
        {"defaultMountPoint", "/gpfs/fs2"},
    };
    fs2.defaultMountPoint = "/gpfs/fs2";
    fs2.mountedBy = {"10.0.0.2"};
    SimPool p3;
    p3.name = "system";
    p3.status = "up";
    p3.totalSpace = 214748364800LL;
    p3.freeSpace = 107374182400LL;
    p3.disks = {d4};
    fs2.pools = {p3};

    c.filesystems = {fs1, fs2};
    return c;
}

} // namespace qvtest
