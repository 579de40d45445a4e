// The inventory commands against the simulated cluster: the tables, and the
// JSON documents compared field by field with the model.
#include "cli/tests/cli_fixture.h"

#include <quelvane/version.h>

#include <csignal>
#include <map>
#include <set>

using namespace qvclitest;
using nlohmann::json;
using qvsim::SimCluster;

namespace {

std::string nodeNameOf(const SimCluster& m, const std::string& ip)
{
    for (const auto& n : m.nodes)
        if (n.ipAddr == ip)
            return n.name;
    return std::string();
}

std::string attribute(const qvsim::SimFilesystem& fs, const std::string& name)
{
    for (const auto& kv : fs.attributes)
        if (kv.first == name)
            return kv.second;
    return std::string();
}

std::string shellOutputOf(const std::string& cmd, int* status)
{
    std::string out;
    FILE* p = popen(cmd.c_str(), "r");
    if (p == nullptr)
        return out;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), p)) > 0)
        out.append(buf, n);
    *status = pclose(p);
    return out;
}

bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

} // namespace

TEST_F(CliTest, StatusShowsClusterManagerQuorumNodesAndFilesystems)
{
    startSim();
    Result r = run("status");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    SimCluster m = dump();
    EXPECT_TRUE(contains(r.out, "Cluster:     " + m.clusterName + " (id " + m.sdrField1002 + ")")) << r.out;
    EXPECT_TRUE(contains(r.out, "Manager:     " + nodeNameOf(m, m.clusterManagerIp) + " (" + m.clusterManagerIp + ")"))
        << r.out;
    EXPECT_TRUE(contains(r.out, "Quorum:      achieved")) << r.out;
    EXPECT_TRUE(contains(r.out, "Nodes:       8 (8 up)")) << r.out;
    EXPECT_TRUE(contains(r.out, "Daemon:      active on every node")) << r.out;
    for (const auto& fs : m.filesystems)
        EXPECT_TRUE(contains(r.out, "\n" + fs.name + " ")) << r.out;
}

TEST_F(CliTest, StatusJsonMatchesTheModelAndFollowsAFailedNode)
{
    startSim();
    json doc = runJson("status");
    SimCluster m = dump();
    EXPECT_EQ(doc["cluster"]["clusterName"], m.clusterName);
    EXPECT_EQ(doc["cluster"]["sdrField1002"], m.sdrField1002);
    EXPECT_EQ(doc["clusterStatus"]["managerIpAddr"], m.clusterManagerIp);
    EXPECT_EQ(doc["clusterStatus"]["managerName"], nodeNameOf(m, m.clusterManagerIp));
    EXPECT_EQ(doc["clusterStatus"]["nodesDefined"], static_cast<int>(m.nodes.size()));
    EXPECT_EQ(doc["clusterStatus"]["quorumAchieved"], 1);
    EXPECT_EQ(doc["nodesByState"]["up"], static_cast<int>(m.nodes.size()));
    EXPECT_EQ(doc["daemonState"], 0);
    EXPECT_EQ(doc["managerKnown"], true);
    EXPECT_EQ(doc["nodeCountsKnown"], true);
    ASSERT_EQ(doc["filesystems"].size(), m.filesystems.size());
    for (size_t i = 0; i < m.filesystems.size(); ++i) {
        EXPECT_EQ(doc["filesystems"][i]["name"], m.filesystems[i].name);
        EXPECT_EQ(doc["filesystems"][i]["totalSpace"], m.filesystems[i].totalSpace);
        EXPECT_EQ(doc["filesystems"][i]["freeSpace"], m.filesystems[i].freeSpace);
    }

    ctl("fail-node", {"node03"});
    doc = runJson("status");
    EXPECT_EQ(doc["nodesByState"]["up"], static_cast<int>(m.nodes.size()) - 1);
    EXPECT_EQ(doc["nodesByState"]["down"], 1);
    EXPECT_EQ(doc["daemonState"], 1);
    Result r = run("status");
    EXPECT_TRUE(contains(r.out, "Daemon:      down on some node")) << r.out;
}

TEST_F(CliTest, StatusWithoutAManagerShowsTheRest)
{
    startSim();
    sim->withModel([](SimCluster& c) { c.clusterManagerIp.clear(); });
    Result r = run("status");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "Manager:     unknown")) << r.out;
    EXPECT_TRUE(contains(r.out, "Quorum:      achieved")) << r.out;
    json doc = runJson("status");
    EXPECT_EQ(doc["managerKnown"], false);
    EXPECT_EQ(doc["nodeCountsKnown"], true);
    EXPECT_EQ(doc["clusterStatus"]["managerIpAddr"], "");
    EXPECT_EQ(doc["clusterStatus"]["managerName"], "");
}

TEST_F(CliTest, NodesTableAndJson)
{
    startSim();
    SimCluster m = dump();
    Result r = run("nodes");
    ASSERT_EQ(r.status, 0) << r.err;
    std::vector<std::string> rows = lines(r.out);
    ASSERT_EQ(rows.size(), m.nodes.size() + 1) << r.out;
    EXPECT_EQ(rows[0].compare(0, 4, "NAME"), 0);
    // The columns are aligned: every row has its address where the heading has it.
    size_t addressColumn = rows[0].find("ADDRESS");
    for (size_t i = 0; i < m.nodes.size(); ++i) {
        EXPECT_EQ(rows[i + 1].compare(0, m.nodes[i].name.size(), m.nodes[i].name), 0) << rows[i + 1];
        EXPECT_EQ(rows[i + 1].compare(addressColumn, m.nodes[i].ipAddr.size(), m.nodes[i].ipAddr), 0) << rows[i + 1];
    }

    json doc = runJson("nodes");
    ASSERT_EQ(doc["nodes"].size(), m.nodes.size());
    std::map<std::string, json> byAddress;
    for (const json& n : doc["nodes"])
        byAddress[n["ipAddr"].get<std::string>()] = n;
    for (const auto& e : m.nodes) {
        SCOPED_TRACE(e.name);
        ASSERT_EQ(byAddress.count(e.ipAddr), 1u);
        const json& n = byAddress[e.ipAddr];
        EXPECT_EQ(n["name"], e.name);
        EXPECT_EQ(n["status"], e.status);
        EXPECT_EQ(n["adminState"], e.adminState);
        EXPECT_EQ(n["healthy"], e.healthy);
        EXPECT_EQ(n["diagnosis"], e.diagnosis);
        EXPECT_EQ(n["version"], e.version);
        EXPECT_EQ(n["platform"], e.platform);
        EXPECT_EQ(n["failures"], e.failures);
        EXPECT_EQ(n["threadWait"], e.threadWait);
        EXPECT_EQ(n["pagePool"], e.pagePool);
        EXPECT_TRUE(n["pagePool"].is_number());
        EXPECT_EQ(n["maxFilesToCache"], e.maxFilesToCache);
        EXPECT_EQ(contains(n["roles"].get<std::string>(), "quorum"), e.quorum);
        EXPECT_EQ(contains(n["roles"].get<std::string>(), "manager"), e.manager);
    }
}

TEST_F(CliTest, FilesystemsTableAndJson)
{
    startSim();
    SimCluster m = dump();
    Result r = run("fs");
    ASSERT_EQ(r.status, 0) << r.err;
    ASSERT_EQ(lines(r.out).size(), m.filesystems.size() + 1) << r.out;
    for (const auto& fs : m.filesystems)
        EXPECT_TRUE(contains(r.out, fs.defaultMountPoint)) << r.out;

    json doc = runJson("fs");
    ASSERT_EQ(doc["filesystems"].size(), m.filesystems.size());
    for (size_t i = 0; i < m.filesystems.size(); ++i) {
        const auto& e = m.filesystems[i];
        const json& f = doc["filesystems"][i];
        SCOPED_TRACE(e.name);
        EXPECT_EQ(f["name"], e.name);
        EXPECT_EQ(f["status"], e.status);
        EXPECT_EQ(f["xstatus"], e.xstatus);
        EXPECT_EQ(f["totalSpace"], e.totalSpace);
        EXPECT_EQ(f["freeSpace"], e.freeSpace);
        EXPECT_EQ(f["totalInodes"], e.totalInodes);
        EXPECT_EQ(f["freeInodes"], e.freeInodes);
        EXPECT_EQ(f["manager"], nodeNameOf(m, e.managerIp));
        EXPECT_EQ(f["defaultMountPoint"], e.defaultMountPoint);
        EXPECT_EQ(f["blockSize"], std::stoll(attribute(e, "blockSize")));
        EXPECT_EQ(f["mountedNodes"], e.mountedBy.size());
    }
}

TEST_F(CliTest, PoolsOfAllFilesystemsAndOfOne)
{
    startSim();
    SimCluster m = dump();
    json doc = runJson("pools");
    size_t k = 0;
    for (const auto& fs : m.filesystems)
        for (const auto& p : fs.pools) {
            ASSERT_LT(k, doc["pools"].size());
            const json& j = doc["pools"][k++];
            EXPECT_EQ(j["filesystem"], fs.name);
            EXPECT_EQ(j["name"], p.name);
            EXPECT_EQ(j["status"], p.status);
            EXPECT_EQ(j["nDisks"], p.nDisks >= 0 ? p.nDisks : static_cast<int>(p.disks.size()));
            EXPECT_EQ(j["totalSpace"], p.totalSpace);
            EXPECT_EQ(j["freeSpace"], p.freeSpace);
        }
    EXPECT_EQ(k, doc["pools"].size());

    const auto& fs2 = m.filesystems[1];
    doc = runJson("pools " + fs2.name);
    ASSERT_EQ(doc["pools"].size(), fs2.pools.size());
    for (const json& j : doc["pools"])
        EXPECT_EQ(j["filesystem"], fs2.name);
    Result r = run("pools " + fs2.name);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(lines(r.out).size(), fs2.pools.size() + 1) << r.out;
}

TEST_F(CliTest, DisksWithTheirCountersAndServers)
{
    startSim();
    ctl("tick", {"30"});
    SimCluster m = dump();
    json doc = runJson("disks");
    std::map<std::string, json> byName;
    for (const json& d : doc["disks"])
        byName[d["name"].get<std::string>()] = d;
    size_t total = 0;
    for (const auto& fs : m.filesystems)
        for (const auto& p : fs.pools)
            for (const auto& e : p.disks) {
                SCOPED_TRACE(e.name);
                ++total;
                ASSERT_EQ(byName.count(e.name), 1u);
                const json& d = byName[e.name];
                EXPECT_EQ(d["filesystem"], fs.name);
                EXPECT_EQ(d["poolName"], p.name);
                EXPECT_EQ(d["status"], e.status);
                EXPECT_EQ(d["availability"], e.availability);
                EXPECT_EQ(d["totalSpace"], e.totalSpace);
                EXPECT_EQ(d["fullBlockFreeSpace"], e.fullBlockFreeSpace);
                EXPECT_EQ(d["servers"], json(e.servers));
                EXPECT_EQ(d["backupServers"], json(e.backupServers));
                unsigned long long br = 0, bw = 0;
                for (const auto& io : e.io)
                    if (io.rc == 0) {
                        br += io.read.b;
                        bw += io.write.b;
                    }
                EXPECT_EQ(d["bytesRead"], br);
                EXPECT_EQ(d["bytesWritten"], bw);
            }
    EXPECT_EQ(doc["disks"].size(), total);

    const auto& fs = m.filesystems[0];
    const auto& pool = fs.pools[1];
    doc = runJson("disks " + fs.name + " " + pool.name);
    ASSERT_EQ(doc["disks"].size(), pool.disks.size());
    for (size_t i = 0; i < pool.disks.size(); ++i)
        EXPECT_EQ(doc["disks"][i]["name"], pool.disks[i].name);
    Result r = run("disks " + fs.name + " " + pool.name);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(lines(r.out).size(), pool.disks.size() + 1) << r.out;

    // A disk that went down shows so.
    ctl("disk-down", {fs.name, pool.disks[0].name});
    doc = runJson("disks " + fs.name + " " + pool.name);
    EXPECT_EQ(doc["disks"][0]["status"], "down");
}

TEST_F(CliTest, FreeDisks)
{
    qvsim::ClusterShape shape;
    shape.freeDisks = 3;
    startSim(shape);
    SimCluster m = dump();
    json doc = runJson("free-disks");
    ASSERT_EQ(doc["freeDisks"].size(), m.freeDisks.size());
    for (size_t i = 0; i < m.freeDisks.size(); ++i) {
        const auto& e = m.freeDisks[i];
        const json& d = doc["freeDisks"][i];
        EXPECT_EQ(d["name"], e.name);
        EXPECT_EQ(d["isFree"], 1);
        EXPECT_EQ(d["status"], e.dstatus);
        // The size in KB passes through a signed 32-bit number.
        EXPECT_EQ(d["totalSpace"], static_cast<long long>(static_cast<int32_t>(e.sizeKB)) * 1024);
        EXPECT_EQ(d["servers"], json(e.servers));
    }
    Result r = run("free-disks");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(lines(r.out).size(), m.freeDisks.size() + 1) << r.out;
}

TEST_F(CliTest, MountsAndPolicies)
{
    startSim();
    SimCluster m = dump();
    json doc = runJson("mounts");
    std::map<std::string, std::set<std::string>> mounted;
    for (const json& j : doc["mounts"]) {
        mounted[j["filesystem"].get<std::string>()].insert(j["nodeIpAddr"].get<std::string>());
        EXPECT_EQ(j["nodeName"], nodeNameOf(m, j["nodeIpAddr"].get<std::string>()));
    }
    for (const auto& fs : m.filesystems)
        EXPECT_EQ(mounted[fs.name], std::set<std::string>(fs.mountedBy.begin(), fs.mountedBy.end())) << fs.name;
    doc = runJson("mounts " + m.filesystems[0].name);
    EXPECT_EQ(doc["mounts"].size(), m.filesystems[0].mountedBy.size());

    doc = runJson("policies");
    size_t k = 0;
    for (const auto& fs : m.filesystems) {
        size_t rules = 0;
        for (const std::string& line : fs.policyText)
            rules += line.compare(0, 5, "RULE ") == 0 ? 1 : 0;
        for (const auto& p : fs.policies) {
            ASSERT_LT(k, doc["policies"].size());
            const json& j = doc["policies"][k++];
            EXPECT_EQ(j["filesystem"], fs.name);
            EXPECT_EQ(j["name"], p.fileName);
            EXPECT_EQ(j["userName"], p.userName);
            EXPECT_EQ(j["installTime"], p.installTime);
            EXPECT_EQ(j["rules"].size(), rules);
        }
    }
    EXPECT_EQ(k, doc["policies"].size());
    Result r = run("policies " + m.filesystems[1].name);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(lines(r.out).size(), m.filesystems[1].policies.size() + 1) << r.out;
}

TEST_F(CliTest, FilesetsOfAFilesystem)
{
    startSim();
    SimCluster m = dump();
    const auto& fs = m.filesystems[0];
    json doc = runJson("filesets " + fs.name);
    EXPECT_EQ(doc["filesystem"], fs.name);
    ASSERT_EQ(doc["filesets"].size(), fs.filesets.size());
    for (size_t i = 0; i < fs.filesets.size(); ++i) {
        const auto& e = fs.filesets[i];
        const json& f = doc["filesets"][i];
        SCOPED_TRACE(e.name);
        EXPECT_EQ(f["name"], e.name);
        EXPECT_EQ(f["fsName"], fs.name);
        EXPECT_EQ(f["column8"], std::to_string(e.id));
        EXPECT_EQ(f["column10"], e.status);
        EXPECT_EQ(f["path"], e.path);
        EXPECT_EQ(f["column14"], e.inodes);
        EXPECT_EQ(f["column15"], e.dataInKB);
    }
    Result r = run("filesets " + fs.name);
    ASSERT_EQ(r.status, 0) << r.err;
    std::vector<std::string> rows = lines(r.out);
    ASSERT_EQ(rows.size(), fs.filesets.size() + 1) << r.out;
    EXPECT_TRUE(contains(rows[1], fs.filesets[0].path)) << rows[1];
}

TEST_F(CliTest, RecoveryGroupsAndOneInDepth)
{
    qvsim::ClusterShape shape;
    shape.recoveryGroups = 2;
    startSim(shape);
    SimCluster m = dump();
    ASSERT_EQ(m.recoveryGroups.size(), 2u);
    json doc = runJson("rg");
    ASSERT_EQ(doc["recoveryGroups"].size(), m.recoveryGroups.size());
    for (size_t i = 0; i < m.recoveryGroups.size(); ++i) {
        const auto& e = m.recoveryGroups[i];
        const json& g = doc["recoveryGroups"][i];
        SCOPED_TRACE(e.name);
        EXPECT_EQ(g["rgName"], e.name);
        EXPECT_EQ(g["rgActiveServer"], e.servers.front());
        EXPECT_EQ(g["nDeclusteredArrays"], e.arrays.size());
        int pdisks = 0;
        for (const auto& da : e.arrays)
            pdisks += static_cast<int>(da.pdisks.size());
        EXPECT_EQ(g["nPdisks"], pdisks);
        ASSERT_EQ(g["declusteredArrays"].size(), e.arrays.size());
        for (size_t k = 0; k < e.arrays.size(); ++k) {
            EXPECT_EQ(g["declusteredArrays"][k]["daName"], e.arrays[k].name);
            EXPECT_EQ(g["declusteredArrays"][k]["daSpares"], e.arrays[k].spares);
        }
    }
    Result r = run("rg");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(lines(r.out).size(), m.recoveryGroups.size() + 1) << r.out;

    const auto& e = m.recoveryGroups[1];
    doc = runJson("rg " + e.name);
    const json& g = doc["recoveryGroup"];
    EXPECT_EQ(g["rgName"], e.name);
    ASSERT_EQ(g["declusteredArrays"].size(), e.arrays.size());
    for (size_t k = 0; k < e.arrays.size(); ++k) {
        const json& a = g["declusteredArrays"][k];
        ASSERT_EQ(a["pdisks"].size(), e.arrays[k].pdisks.size());
        for (size_t p = 0; p < e.arrays[k].pdisks.size(); ++p) {
            EXPECT_EQ(a["pdisks"][p]["pdiskName"], e.arrays[k].pdisks[p].name);
            EXPECT_EQ(a["pdisks"][p]["pdiskNumber"], e.arrays[k].pdisks[p].sizeBytes);
        }
        ASSERT_EQ(a["vdisks"].size(), e.arrays[k].vdisks.size());
        for (size_t v = 0; v < e.arrays[k].vdisks.size(); ++v) {
            EXPECT_EQ(a["vdisks"][v]["vdiskName"], e.arrays[k].vdisks[v].name);
            EXPECT_EQ(a["vdisks"][v]["vdiskText1"], e.arrays[k].vdisks[v].raidCode);
        }
    }
    r = run("rg " + e.name);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "Recovery group " + e.name)) << r.out;
    EXPECT_TRUE(contains(r.out, e.arrays[0].pdisks[0].name)) << r.out;
}

TEST_F(CliTest, UnknownFilesystemPoolNodeAndRecoveryGroup)
{
    startSim();
    struct Case {
        const char* args;
        const char* error;
    } cases[] = {
        {"pools nosuchfs", "quelvane: unknown filesystem nosuchfs\n"},
        {"disks fs1 nosuchpool", "quelvane: unknown pool nosuchpool of filesystem fs1\n"},
        {"mounts nosuchfs --json", "quelvane: unknown filesystem nosuchfs\n"},
        {"filesets nosuchfs", "quelvane: unknown filesystem nosuchfs\n"},
        {"rg nosuchrg", "quelvane: unknown recovery group nosuchrg\n"},
        {"stats cache --node nosuchnode", "quelvane: unknown node nosuchnode\n"},
    };
    for (const Case& c : cases) {
        Result r = run(c.args);
        EXPECT_EQ(r.status, 1) << c.args;
        EXPECT_EQ(r.err, c.error) << c.args;
        EXPECT_EQ(r.out, "") << c.args;
    }
}

TEST_F(CliTest, VersionAndHelpNeedNoDaemon)
{
    Result r = run("--version");
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(contains(r.out, "libquelvane " + std::to_string(libquelvaneVersion()))) << r.out;
    for (const char* cmd : {"", "status", "nodes", "fs", "pools", "disks", "free-disks", "mounts", "policies",
                            "filesets", "rg", "stats", "events", "watch", "fileset", "fileset create",
                            "fileset link", "fileset unlink", "fileset delete", "fileset edit", "quota",
                            "quota get", "quota set", "acl copy", "owner set"}) {
        Result h = run(std::string(cmd) + " --help");
        EXPECT_EQ(h.status, 0) << cmd;
        EXPECT_TRUE(contains(h.out, "Usage: quelvane")) << cmd << ": " << h.out;
        EXPECT_EQ(h.err, "") << cmd;
    }
}

TEST_F(CliTest, TwoClientsAtOnceDoNotReadEachOthersAnswers)
{
    startSim();
    SimCluster m = dump();
    // A watch refreshing as fast as it can, with its frames on a pipe.
    Child watch = spawn({"watch", "--interval", "0.1"});
    ASSERT_TRUE(readLines(watch, 5, 10.0)) << watch.err;
    for (int i = 0; i < 6; ++i) {
        json doc = runJson("nodes");
        ASSERT_EQ(doc["nodes"].size(), m.nodes.size()) << doc.dump();
        for (size_t k = 0; k < m.nodes.size(); ++k)
            EXPECT_EQ(doc["nodes"][k]["name"], m.nodes[k].name);
        readLines(watch, 0, 0.0);
    }
    EXPECT_EQ(finish(watch, SIGINT, 3.0), 0) << watch.err;
    EXPECT_EQ(watch.err, "");
    // Each client spooled the daemon's answers into a file of its own and
    // took it away at its end, interrupted or not.
    int status = 0;
    std::string left = shellOutputOf("ls /var/vesk/tavrel", &status);
    EXPECT_EQ(left.find("response.quelvane."), std::string::npos) << left;
}
