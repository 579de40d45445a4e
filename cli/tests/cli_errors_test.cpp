// What goes wrong, said in one line with its own exit status: no daemon, a
// daemon that does not answer, a missing tool, a failing tool, a refused
// name, statistics that the daemon does not answer, bad arguments.
#include "cli/tests/cli_fixture.h"

#include "support/fake_daemon.h"
#include "support/fake_tool.h"

#include "sim/render.h"

#include <chrono>
#include <sys/stat.h>
#include <unistd.h>

using namespace qvclitest;

namespace {

bool oneLine(const std::string& text)
{
    return !text.empty() && text.back() == '\n' && text.find('\n') == text.size() - 1;
}

bool startsWith(const std::string& text, const std::string& head)
{
    return text.compare(0, head.size(), head) == 0;
}

} // namespace

TEST_F(CliTest, NoDaemonIsOneClearLine)
{
    installTools();
    for (const char* args : {"status", "nodes --json", "fs", "disks fs1", "filesets fs1", "stats cache",
                             "fileset create fs1 x", "quota get fs1 --user u", "events"}) {
        Result r = run(args);
        EXPECT_EQ(r.status, 3) << args;
        EXPECT_TRUE(oneLine(r.err)) << args << ": " << r.err;
        EXPECT_TRUE(startsWith(r.err, "quelvane: daemon not reachable: no connection to /var/vesk/tavrel/tavrelSocket"))
            << args << ": " << r.err;
        EXPECT_EQ(r.out, "") << args;
    }
}

TEST_F(CliTest, DaemonThatDoesNotAnswerEndsAtTheTimeLimit)
{
    qvtest::FakeDaemon daemon;
    qvtest::Response silent;
    silent.silent = true;
    daemon.setDefault(silent);
    qvtest::FakeTool kxctl("kxctl");
    kxctl.output("3504\n");
    qvtest::FakeTool sdr("vksdrquery");
    auto start = std::chrono::steady_clock::now();
    Result r = run("nodes --timeout 1");
    double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_EQ(r.status, 4);
    EXPECT_TRUE(oneLine(r.err)) << r.err;
    EXPECT_TRUE(startsWith(r.err, "quelvane: no answer within 1 s while starting the library")) << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_LT(took, 4.0);

    // The limit of the main options works the same, before the command.
    r = run("--timeout 0.5 fs --json");
    EXPECT_EQ(r.status, 4);
    EXPECT_TRUE(startsWith(r.err, "quelvane: no answer within 0.5 s")) << r.err;
}

TEST_F(CliTest, MissingToolIsNamed)
{
    startSim();
    unlink((std::string(qvsim::kToolDir) + "/kxctl").c_str());
    Result r = run("nodes");
    EXPECT_EQ(r.status, 127);
    EXPECT_TRUE(oneLine(r.err)) << r.err;
    EXPECT_TRUE(startsWith(r.err, "quelvane: tool missing: /usr/kpx/vesk/bin/kxctl")) << r.err;

    installTools();
    unlink((std::string(qvsim::kToolDir) + "/vkcrfileset").c_str());
    r = run("fileset create fs1 newset");
    EXPECT_EQ(r.status, 127);
    EXPECT_TRUE(startsWith(r.err, "quelvane: tool missing: /usr/kpx/vesk/bin/vkcrfileset")) << r.err;
    qvsim::SimCluster m = dump();
    for (const auto& f : m.filesystems[0].filesets)
        EXPECT_NE(f.name, "newset");

    installTools();
    unlink((std::string(qvsim::kToolDir) + "/vklsfileset").c_str());
    r = run("filesets fs1");
    EXPECT_EQ(r.status, 127);
    EXPECT_TRUE(startsWith(r.err, "quelvane: tool missing: /usr/kpx/vesk/bin/vklsfileset")) << r.err;
}

TEST_F(CliTest, FailingToolPassesOnItsStatusAndWords)
{
    startSim();
    // The simulated tool refuses a fileset that exists.
    Result r = run("fileset create fs1 home");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "quelvane: vkcrfileset failed with status 1: vkcrfileset: Fileset home already exists.\n");
    EXPECT_EQ(r.out, "");

    // A tool of our own with a status and words of its own.
    scriptTool("vklinkfileset", "echo 'vklinkfileset: junction busy'; exit 3");
    r = run("fileset link fs1 home");
    EXPECT_EQ(r.status, 3);
    EXPECT_EQ(r.err, "quelvane: vklinkfileset failed with status 3: vklinkfileset: junction busy\n");

    // chown's own words.
    r = run("owner set /tmp/no-such-file --owner root");
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(oneLine(r.err)) << r.err;
    EXPECT_TRUE(startsWith(r.err, "quelvane: chown failed with status 1: chown: cannot access")) << r.err;
}

TEST_F(CliTest, NamesOutsideTheSafeSetAreRefusedBeforeAnythingRuns)
{
    startSim();
    size_t before = sim->requests().size();
    struct Case {
        const char* args;
        const char* error;
    } cases[] = {
        {"fileset create fs1 'x;touch /tmp/pwned'",
         "quelvane: refused fileset name \"x;touch /tmp/pwned\": only letters, digits and . _ - are allowed\n"},
        {"fileset create 'fs1 fs2' x",
         "quelvane: refused filesystem name \"fs1 fs2\": only letters, digits and . _ - are allowed\n"},
        {"fileset create fs1 -- -f", "quelvane: refused fileset name \"-f\": it must not begin with '-'\n"},
        {"fileset create fs1 ok --comment 'a $(touch /tmp/pwned)'",
         "quelvane: refused comment \"a $(touch /tmp/pwned)\": only letters, digits, blanks and . _ - , : / + = @ are "
         "allowed\n"},
        {"fileset link fs1 home --junction '/vesk/fs1/a b'",
         "quelvane: refused junction path \"/vesk/fs1/a b\": only letters, digits and . _ - / are allowed\n"},
        {"fileset edit fs1 home --new-name 'a`b`'",
         "quelvane: refused new fileset name \"a`b`\": only letters, digits and . _ - are allowed\n"},
        {"quota set fs1 --user 'root|true' --block-soft 1",
         "quelvane: refused user name \"root|true\": only letters, digits and . _ - are allowed\n"},
        {"acl copy /tmp/a '/tmp/b>c'", "quelvane: refused target path \"/tmp/b>c\": only letters, digits and . _ - / "
                                       "are allowed\n"},
        {"owner set /tmp/a --owner 'x&y'", "quelvane: refused owner \"x&y\": only letters, digits and . _ - are allowed\n"},
        {"filesets 'fs1;id'", "quelvane: refused filesystem name \"fs1;id\": only letters, digits and . _ - are allowed\n"},
        {"rg '../x'", "quelvane: refused recovery group name \"../x\": only letters, digits and . _ - are allowed\n"},
    };
    for (const Case& c : cases) {
        Result r = run(c.args);
        EXPECT_EQ(r.status, 2) << c.args;
        EXPECT_EQ(r.err, c.error) << c.args;
    }
    struct stat st;
    EXPECT_NE(stat("/tmp/pwned", &st), 0);
    // Nothing reached the daemon, and the model is as it was.
    EXPECT_EQ(sim->requests().size(), before);
    EXPECT_EQ(dump().filesystems[0].filesets.size(), qvsim::generateCluster(qvsim::ClusterShape()).filesystems[0].filesets.size());
}

// Every statistics family against the simulated daemon, as table and JSON.
TEST_F(CliTest, StatisticsOfEveryFamilyFromTheSimulatedDaemon)
{
    startSim();
    for (const char* family : {"cache", "vfs", "ioc", "threads", "pcache", "cluster-config", "rpc", "disk",
                               "pool-io", "fs-io", "nsd-server"}) {
        Result r = run(std::string("stats ") + family);
        EXPECT_EQ(r.status, 0) << family << ": " << r.err;
        EXPECT_NE(r.out, "") << family;
        Result j = run(std::string("stats ") + family + " --json");
        EXPECT_EQ(j.status, 0) << family << ": " << j.err;
        nlohmann::json parsed;
        EXPECT_NO_THROW(parsed = nlohmann::json::parse(j.out)) << family << ": " << j.out;
    }
    Result r = run("stats cache --json");
    EXPECT_NE(r.out.find("dcHits"), std::string::npos) << r.out;
    r = run("stats nosuchfamily");
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(startsWith(r.err, "quelvane: unknown statistics family \"nosuchfamily\" (families: cache, vfs"))
        << r.err;
    r = run("stats rpc --unit weeks");
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(startsWith(r.err, "quelvane: stats rpc: --unit takes seconds, minutes, hours or days")) << r.err;
}

TEST_F(CliTest, BadArgumentsAreUsageErrors)
{
    for (const char* args : {"", "frobnicate", "nodes extra", "filesets", "pools --json --bogus", "watch --interval 0",
                             "events --kinds mount,nosuchkind", "fileset", "quota get fs1",
                             "quota get fs1 --user a --group b", "quota set fs1 --user a", "fileset edit fs1 home",
                             "fileset unlink fs1", "owner set /tmp/x", "acl copy /tmp/a /tmp/b --type weird",
                             "nodes --timeout -1"}) {
        Result r = run(args);
        EXPECT_EQ(r.status, 2) << args;
        EXPECT_TRUE(oneLine(r.err)) << args << ": " << r.err;
        EXPECT_TRUE(startsWith(r.err, "quelvane: ")) << args << ": " << r.err;
        EXPECT_EQ(r.out, "") << args;
    }
}
