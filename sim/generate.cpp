#include "sim/generate.h"

#include "sim/changes.h"

#include <cstdio>
#include <random>

namespace qvsim {

namespace {

// Deterministic numbers: the engine's raw output is fixed by the standard,
// unlike the library's distributions.
class Dice
{
public:
    explicit Dice(unsigned long long seed) : engine_(seed) {}
    // A number from 0 to n - 1.
    unsigned long long below(unsigned long long n) { return n == 0 ? 0 : engine_() % n; }
    // A fraction from 0 to 1.
    double fraction() { return static_cast<double>(engine_() >> 11) / 9007199254740992.0; }

private:
    std::mt19937_64 engine_;
};

std::string numbered(const char* prefix, int n, int width)
{
    char buf[64];
    snprintf(buf, sizeof(buf), "%s%0*d", prefix, width, n);
    return buf;
}

std::string ipOf(int i)
{
    return "10.0." + std::to_string(i / 250) + "." + std::to_string(i % 250 + 1);
}

std::string deviceName(int i)
{
    std::string s;
    int n = i;
    do {
        s.insert(s.begin(), static_cast<char>('a' + n % 26));
        n = n / 26 - 1;
    } while (n >= 0);
    return "/dev/sd" + s;
}

const long long kTiB = 1LL << 40;
const long long kGiB = 1LL << 30;

SimDisk makeDisk(Dice& dice, const SimCluster& c, const std::string& name, int index)
{
    SimDisk d;
    d.name = name;
    int n = static_cast<int>(c.nodes.size());
    const SimNode& primary = c.nodes[static_cast<size_t>(index % n)];
    const SimNode& backup = c.nodes[static_cast<size_t>((index + 1) % n)];
    d.servers = {primary.name};
    if (n > 1)
        d.backupServers = {backup.name};
    d.usage = index % 5 == 0 ? "metadataOnly" : (index % 5 == 1 ? "dataAndMetadata" : "dataOnly");
    d.sdrField3007 = "nsd";
    d.sdrField3008 = "generic";
    d.totalSpace = kTiB * static_cast<long long>(1 + dice.below(4));
    d.fullBlockFreeSpace = static_cast<long long>(static_cast<double>(d.totalSpace) * (0.2 + 0.7 * dice.fraction())) & ~0xFFFFLL;
    d.fragFreeSpace = static_cast<long long>(dice.below(1 << 20)) * 8;
    d.diskWait = std::to_string(dice.below(3));
    char id[32];
    snprintf(id, sizeof(id), "0A%06X%08X", index + 1, static_cast<unsigned>(dice.below(0xFFFFFFFFULL)));
    d.nsdId = id;
    d.paths.push_back({primary.name, deviceName(index % 600)});
    if (n > 1)
        d.paths.push_back({backup.name, deviceName((index + 7) % 600)});
    SimDiskIo io;
    io.nodeName = primary.name;
    io.read = {0.001 * static_cast<double>(1 + dice.below(900)), 0.5, 0.25,
               4096ULL * (1 + dice.below(100000)), static_cast<unsigned long>(1 + dice.below(100000))};
    io.write = {0.001 * static_cast<double>(1 + dice.below(900)), 0.75, 0.125,
                4096ULL * (1 + dice.below(100000)), static_cast<unsigned long>(1 + dice.below(100000))};
    d.io.push_back(io);
    d.sizeKB = d.totalSpace / 1024;
    return d;
}

} // namespace

SimCluster generateCluster(const ClusterShape& shape)
{
    Dice dice(shape.seed);
    SimCluster c;
    c.clusterName = shape.clusterName;
    c.sdrField1002 = std::to_string(1000000000000ULL + shape.seed % 1000000000ULL);
    c.sdrField1003 = "vesk-" + shape.clusterName;
    c.sdrField1008 = "primary";
    c.sdrField1006 = "secondary";
    c.sdrField1007 = "/usr/bin/ssh";
    c.sdrField1011 = 1;
    c.sdrField1004 = "/usr/bin/scp";
    c.sdrField1005 = "5";
    c.genNumber = 1;
    c.maxBlockSize = 16777216;
    c.maxFeature = "2401";
    c.distribTokenServer = true;
    c.failureDetectionTime = 35;
    c.minMissedPingTimeout = 3;
    c.maxMissedPingTimeout = 60;

    int nodeCount = shape.nodes < 1 ? 1 : shape.nodes;
    int width = nodeCount >= 1000 ? 4 : (nodeCount >= 100 ? 3 : 2);
    for (int i = 0; i < nodeCount; ++i) {
        SimNode n;
        n.name = numbered("node", i + 1, width);
        n.ipAddr = ipOf(i);
        n.manager = i < 2;
        n.quorum = i < 3 || (nodeCount > 50 && i < 7);
        n.gateway = i == 1;
        n.snmpCollector = i == nodeCount - 1;
        n.sdrField2010 = "-";
        n.failures = 0;
        n.threadWait = static_cast<int>(dice.below(3));
        n.version = i % 4 == 3 ? "5.2.0.0" : "5.2.0.1";
        n.pagePool = (1LL + static_cast<long long>(dice.below(4))) * kGiB;
        n.maxFilesToCache = 4000;
        n.maxStatCache = 1000;
        n.platform = "x86_64-linux";
        n.flags = 0x80;
        n.nodeNumber = i + 1;
        c.nodes.push_back(n);
    }
    c.clusterManagerIp = c.nodes.front().ipAddr;

    int diskIndex = 0;
    for (int f = 0; f < shape.filesystems; ++f) {
        SimFilesystem fs;
        fs.name = "fs" + std::to_string(f + 1);
        fs.status = "mounted";
        fs.xstatus = "normal";
        fs.readDuration = static_cast<int>(dice.below(50));
        fs.writeDuration = static_cast<int>(dice.below(50));
        fs.nSysMgt = 1;
        fs.mgrChangeCnt = 1;
        fs.totalInodes = 10000000;
        fs.freeInodes = 10000000 - static_cast<long long>(dice.below(5000000));
        fs.threadWait = "0";
        fs.diskWait = "0";
        fs.managerIp = c.nodes[static_cast<size_t>(f % nodeCount)].ipAddr;
        fs.defaultMountPoint = "/vesk/" + fs.name;
        for (const SimNode& n : c.nodes) {
            fs.mountedBy.push_back(n.ipAddr);
            SimFsCounters k;
            k.nodeIp = n.ipAddr;
            k.br = 1048576ULL * (1 + dice.below(10000));
            k.bw = 1048576ULL * (1 + dice.below(10000));
            k.bc = k.br / 8;
            k.r = 1 + dice.below(100000);
            k.w = 1 + dice.below(100000);
            k.oc = 1 + dice.below(10000);
            k.cc = k.oc;
            k.rdc = k.r / 2;
            k.wc = k.w / 2;
            k.dir = dice.below(1000);
            k.iu = dice.below(1000);
            k.irc = dice.below(1000);
            k.idc = dice.below(1000);
            k.icc = dice.below(1000);
            k.sch = dice.below(100000);
            k.scm = dice.below(1000);
            fs.counters.push_back(k);
        }
        for (int p = 0; p < shape.poolsPerFs; ++p) {
            SimPool pool;
            pool.name = p == 0 ? "system" : "data" + std::to_string(p);
            for (int d = 0; d < shape.disksPerPool; ++d) {
                ++diskIndex;
                pool.disks.push_back(makeDisk(dice, c, numbered("nsd", diskIndex, 4), diskIndex));
            }
            fs.pools.push_back(pool);
        }
        recomputeSpace(fs);
        fs.attributes = {
            {"minFragmentSize", "8192"},
            {"inodeSize", "4096"},
            {"indirectBlockSize", "32768"},
            {"defaultMetadataReplicas", "2"},
            {"maxMetadataReplicas", "2"},
            {"defaultDataReplicas", "1"},
            {"maxDataReplicas", "2"},
            {"blockAllocationType", "cluster"},
            {"fileLockingSemantics", "nfs4"},
            {"ACLSemantics", "all"},
            {"numNodes", std::to_string(nodeCount)},
            {"blockSize", "4194304"},
            {"quotasEnforced", "user;group;fileset"},
            {"defaultQuotasEnabled", "none"},
            {"maxNumberOfInodes", std::to_string(fs.totalInodes)},
            {"filesystemVersion", "27.00 (5.1.0.0)"},
            {"automaticMountOption", "yes"},
            {"defaultMountPoint", fs.defaultMountPoint},
        };
        SimFileset root;
        root.name = "root";
        root.id = 0;
        root.path = fs.defaultMountPoint;
        root.inodes = 4096 + static_cast<long long>(dice.below(100000));
        root.dataInKB = static_cast<long long>(dice.below(1LL << 30));
        root.comment = "root fileset";
        fs.filesets.push_back(root);
        for (int k = 1; k <= shape.filesetsPerFs; ++k) {
            SimFileset set;
            set.name = k == 1 ? "home" : (k == 2 ? "projects" : "fset" + std::to_string(k));
            set.id = k;
            set.rootInode = 131072LL * k + 3;
            set.path = fs.defaultMountPoint + "/" + set.name;
            set.inodes = static_cast<long long>(dice.below(1000000));
            set.dataInKB = static_cast<long long>(dice.below(1LL << 32));
            set.created = "Tue Nov 24 0" + std::to_string(k % 10) + ":30:00 2026";
            fs.filesets.push_back(set);
        }
        const char* users[] = {"alice", "bob", "carol"};
        for (int u = 0; u < 3; ++u) {
            SimQuota q;
            q.type = "USR";
            q.name = users[u];
            q.id = 1001 + u;
            q.blockUsage = static_cast<long long>(dice.below(1LL << 30));
            q.blockQuota = 2LL << 30;
            q.blockLimit = 4LL << 30;
            q.filesUsage = static_cast<long long>(dice.below(100000));
            q.filesQuota = 1000000;
            q.filesLimit = 2000000;
            fs.quotas.push_back(q);
        }
        for (const SimFileset& set : fs.filesets) {
            if (set.id == 0)
                continue;
            SimQuota q;
            q.type = "FILESET";
            q.name = set.name;
            q.id = set.id;
            q.blockUsage = set.dataInKB;
            q.filesUsage = set.inodes;
            fs.quotas.push_back(q);
        }
        SimPolicy pol;
        pol.fileName = "policy_" + fs.name;
        pol.userName = "root";
        pol.installTime = "Mon Nov 23 09:00:00 2026";
        fs.policies = {pol};
        fs.policyText = {"RULE 'default' SET POOL 'system'"};
        if (fs.pools.size() > 1)
            fs.policyText.push_back("RULE 'cold' MIGRATE FROM POOL 'system' TO POOL '" +
                                    fs.pools[1].name + "' WHERE ACCESS_AGE > 30");
        c.filesystems.push_back(fs);
    }
    for (int r = 0; r < shape.recoveryGroups; ++r) {
        SimRecoveryGroup rg;
        rg.name = "rg" + std::to_string(r + 1);
        const SimNode& a = c.nodes[static_cast<size_t>((2 * r) % nodeCount)];
        const SimNode& b = c.nodes[static_cast<size_t>((2 * r + 1) % nodeCount)];
        rg.servers = {a.name, b.name};
        char id[32];
        snprintf(id, sizeof(id), "%08X%08X", 0x0A000000u + static_cast<unsigned>(r),
                 static_cast<unsigned>(dice.below(0xFFFFFFFFULL)));
        rg.id = id;
        for (int k = 0; k < 2; ++k) {
            SimDeclusteredArray da;
            da.name = k == 0 ? "LOG" : "DA" + std::to_string(k);
            int pdisks = k == 0 ? 3 : 12;
            for (int p = 0; p < pdisks; ++p) {
                SimPdisk pd;
                pd.name = "e" + std::to_string(r + 1) + "d" + std::to_string(k + 1) + "s" + (p < 9 ? "0" : "") + std::to_string(p + 1);
                pd.replacementPriority = 1000.0;
                pd.sizeBytes = (k == 0 ? 800ULL : 4000ULL) * 1000000000ULL;
                pd.device = deviceName(p + 40 * k);
                pd.location = "SV" + std::to_string(r + 1) + "-" + std::to_string(k + 1) + "-" + std::to_string(p + 1);
                da.pdisks.push_back(pd);
            }
            SimVdisk v;
            v.name = rg.name + (k == 0 ? "logtip" : "data" + std::to_string(k));
            v.raidCode = k == 0 ? "2WayReplication" : "8+2p";
            v.blockSizeKiB = k == 0 ? 2048 : 16384;
            v.sizeBytes = (k == 0 ? 100ULL : 20000ULL) * 1000000000ULL;
            v.remarks = k == 0 ? "logTip" : "-";
            da.vdisks.push_back(v);
            da.spares = k == 0 ? 0 : 2;
            da.freeSpace = k == 0 ? 0 : static_cast<long long>(100 + dice.below(10000));
            da.taskPercentComplete = static_cast<int>(dice.below(100));
            rg.arrays.push_back(da);
        }
        c.recoveryGroups.push_back(rg);
    }
    c.nsdRaidConfig = {{"nsdRAIDTracks", "131072"}, {"nsdRAIDBufferPoolSizePct", "80"},
                       {"nsdRAIDBlockDeviceMaxSectorsKB", "8192"}, {"nsdRAIDEventLogToConsole", "all"}};
    for (int k = 0; k < shape.freeDisks; ++k) {
        ++diskIndex;
        SimDisk d = makeDisk(dice, c, numbered("nsd", diskIndex, 4), diskIndex);
        d.io.clear();
        d.dstatus = "ready";
        // Free disks of 512 GiB: the daemon states their size in KB.
        d.totalSpace = 512 * kGiB;
        d.fullBlockFreeSpace = d.totalSpace;
        d.sizeKB = d.totalSpace / 1024;
        d.freePoolName = "system";
        c.freeDisks.push_back(d);
    }
    return c;
}

} // namespace qvsim
