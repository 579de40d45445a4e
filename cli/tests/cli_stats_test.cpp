// Statistics as the client shows them once a daemon answers them. The
// simulated daemon does not answer the statistics requests yet, so these
// tests put a scripted daemon on the socket instead: it gives the simulated
// cluster's own answers to every inventory request (rendered from the same
// model) and scripted lines to the statistics requests. The tools stay the
// simulator's.
#include "cli/tests/cli_fixture.h"

#include "support/fake_daemon.h"

#include "sim/render.h"

using namespace qvclitest;
using nlohmann::json;

namespace {

class StatsTest : public CliTest
{
protected:
    void startScripted(const std::map<std::string, std::vector<std::string>>& stats)
    {
        startSim();
        qvsim::SimCluster m = dump();
        daemon.reset(new qvtest::FakeDaemon(qvtest::FakeDaemon::kSocketPath, false));
        for (const std::string& request : qvsim::daemonRequests(m)) {
            std::vector<std::string> lines;
            qvsim::daemonAnswer(m, request, &lines);
            daemon->respondAlways(request, qvtest::Response(lines));
        }
        for (const auto& kv : stats)
            daemon->respondAlways(kv.first, qvtest::Response(kv.second));
        daemon->start();
    }

    void TearDown() override
    {
        daemon.reset();
        CliTest::TearDown();
    }

    std::unique_ptr<qvtest::FakeDaemon> daemon;
};

} // namespace

TEST_F(StatsTest, CacheStatisticsPerNode)
{
    startScripted({{"tavrel chms",
                    {"_tavrel::chms_ _rc_ 0 _n_ 10.0.0.1 _dch_ 10 _dcm_ 2 _sch_ 30 _scm_ 4",
                     "_tavrel::chms_ _rc_ 0 _n_ 10.0.0.2 _dch_ 11 _dcm_ 3 _sch_ 31 _scm_ 5"}}});
    json doc = runJson("stats cache");
    EXPECT_EQ(doc["family"], "cache");
    ASSERT_EQ(doc["nodes"].size(), 8u);
    EXPECT_EQ(doc["nodes"][0]["name"], "node01");
    EXPECT_EQ(doc["nodes"][0]["ipAddr"], "10.0.0.1");
    EXPECT_EQ(doc["nodes"][0]["record"]["dcHits"], 10);
    EXPECT_EQ(doc["nodes"][0]["record"]["scMisses"], 4);
    EXPECT_EQ(doc["nodes"][1]["record"]["dcMisses"], 3);
    EXPECT_EQ(doc["nodes"][2]["record"]["dcHits"], 0);

    Result r = run("stats cache --node 10.0.0.2");
    ASSERT_EQ(r.status, 0) << r.err;
    std::vector<std::string> rows = lines(r.out);
    ASSERT_EQ(rows.size(), 2u) << r.out;
    EXPECT_EQ(rows[0], "NODE    DIR HITS  DIR MISSES  STAT HITS  STAT MISSES");
    EXPECT_EQ(rows[1], "node02        11           3         31            5");
}

TEST_F(StatsTest, DiskStatisticsOfTheLocalNode)
{
    startScripted({{"tavrel ds",
                    {"_tavrel::ds_ _rc_ 0 _n_ 10.0.0.1 _fs_ fs1 _d_ nsd0001 _cl_ simcluster",
                     "_r_ _ops_ 5 _b_ 2048 _tw_ 0.5 _qt_ 0.1",
                     "_w_ _ops_ 7 _b_ 4096 _tw_ 0.25 _qt_ 0.2",
                     "_tavrel::ds_ _rc_ 0 _n_ 10.0.0.1 _fs_ fs2 _d_ nsd0009 _cl_ simcluster",
                     "_r_ _ops_ 1 _b_ 512 _tw_ 0.5 _qt_ 0.1",
                     "_w_ _ops_ 2 _b_ 1024 _tw_ 0.25 _qt_ 0.2"}}});
    json doc = runJson("stats disk");
    EXPECT_EQ(doc["family"], "disk");
    ASSERT_EQ(doc["records"].size(), 2u) << doc.dump();
    const json& a = doc["records"][0];
    EXPECT_EQ(a["nodeAddr"], "10.0.0.1");
    EXPECT_EQ(a["fsName"], "fs1");
    EXPECT_EQ(a["diskName"], "nsd0001");
    EXPECT_EQ(a["readOps"], 5);
    EXPECT_EQ(a["writeOps"], 7);
    EXPECT_EQ(a["readBytes"], 2048);
    EXPECT_EQ(a["writeBytes"], 4096);
    EXPECT_EQ(doc["records"][1]["diskName"], "nsd0009");

    Result r = run("stats disk --node 10.0.0.1");
    ASSERT_EQ(r.status, 0) << r.err;
    std::vector<std::string> rows = lines(r.out);
    ASSERT_EQ(rows.size(), 3u) << r.out;
    EXPECT_NE(rows[1].find("nsd0001"), std::string::npos) << rows[1];
    EXPECT_NE(rows[1].find("2.0 KiB"), std::string::npos) << rows[1];
    r = run("stats disk --node 10.0.0.9");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "quelvane: unknown node 10.0.0.9 (no disk statistics from it)\n");
}

TEST_F(StatsTest, AFamilyWithNothingToReportIsAnEmptyAnswer)
{
    startScripted({});
    json doc = runJson("stats pool-io");
    EXPECT_EQ(doc["records"].size(), 0u);
    doc = runJson("stats cluster-config");
    EXPECT_EQ(doc["records"].size(), 0u);
}
