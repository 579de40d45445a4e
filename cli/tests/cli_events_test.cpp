// The events command: events made in the simulated cluster arrive as lines
// (or JSON objects) until SIGINT ends the command with status 0.
#include "cli/tests/cli_fixture.h"

#include <csignal>

using namespace qvclitest;
using nlohmann::json;

namespace {

bool connected(qvsim::SimDaemon& sim, size_t n)
{
    return eventually(5.0, [&] { return sim.openConnections() >= n; });
}

} // namespace

TEST_F(CliTest, EventsArriveAsLinesUntilInterrupted)
{
    startSim();
    Child c = spawn({"events"});
    ASSERT_TRUE(connected(*sim, 1));
    ctl("event", {"mount", "_node_", "10.0.0.2", "_fs_", "fs2"});
    ctl("fail-node", {"node03"});
    ctl("disk-down", {"fs1", "nsd0001"});
    ctl("event", {"userEvent", "_arg_", "two words"});
    ASSERT_TRUE(readLines(c, 4, 5.0)) << c.out << c.err;
    EXPECT_EQ(finish(c, SIGINT, 3.0), 0) << c.err;
    EXPECT_EQ(c.err, "");
    std::vector<std::string> got = lines(c.out);
    ASSERT_EQ(got.size(), 4u) << c.out;
    auto after = [](const std::string& line) { return line.substr(line.find(' ') + 1); };
    EXPECT_EQ(after(got[0]), "mount node=10.0.0.2 fs=fs2");
    EXPECT_EQ(after(got[1]), "failure node=10.0.0.3");
    EXPECT_EQ(after(got[2]).compare(0, 52, "chdisk node=10.0.0.1 fs=fs1 disk=nsd0001 status=down"), 0) << got[2];
    EXPECT_EQ(after(got[3]), "userEvent node=10.0.0.1 arg='two words'");
    // Each line starts with the time the record was made, in UTC.
    EXPECT_EQ(got[0].size() > 24 && got[0][4] == '-' && got[0][10] == 'T' && got[0][23] == 'Z', true) << got[0];
}

TEST_F(CliTest, EventsAsJsonOfTheChosenKinds)
{
    startSim();
    Child c = spawn({"events", "--json", "--kinds", "failure,userEvent,recovery"});
    ASSERT_TRUE(connected(*sim, 1));
    ctl("event", {"mount"});
    ctl("fail-node", {"node05"});
    ctl("event", {"userEvent", "_arg_", "a b c"});
    ctl("recover-node", {"node05"});
    ASSERT_TRUE(readLines(c, 3, 5.0)) << c.out << c.err;
    EXPECT_EQ(finish(c, SIGINT, 3.0), 0) << c.err;
    std::vector<std::string> got = lines(c.out);
    ASSERT_EQ(got.size(), 3u) << c.out;
    json a = json::parse(got[0]);
    EXPECT_EQ(a["event"], "failure");
    EXPECT_EQ(a["number"], 6);
    EXPECT_EQ(a["node"], "10.0.0.5");
    EXPECT_TRUE(a.contains("severity"));
    EXPECT_TRUE(a["time"].is_string());
    json b = json::parse(got[1]);
    EXPECT_EQ(b["event"], "userEvent");
    EXPECT_EQ(b["arg"], "a b c");
    json d = json::parse(got[2]);
    EXPECT_EQ(d["event"], "recovery");
    EXPECT_EQ(d["node"], "10.0.0.5");
}

TEST_F(CliTest, EventsEndWhenTheDaemonGoes)
{
    startSim();
    Child c = spawn({"events"});
    ASSERT_TRUE(connected(*sim, 1));
    sim->stop();
    EXPECT_EQ(finish(c, 0, 5.0), 3);
    EXPECT_EQ(c.err, "quelvane: daemon not reachable: the connection to the daemon was lost\n");
}

TEST_F(CliTest, EventsEndOnSigtermToo)
{
    startSim();
    Child c = spawn({"events"});
    ASSERT_TRUE(connected(*sim, 1));
    EXPECT_EQ(finish(c, SIGTERM, 3.0), 0);
    EXPECT_EQ(c.out, "");
    EXPECT_EQ(c.err, "");
}
