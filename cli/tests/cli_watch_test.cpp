// The watch command in a terminal of tmux: the first view, a refresh after
// the cluster changed, and a clean end with "q" or with Ctrl-C.
#include "cli/tests/cli_fixture.h"

#include <cstdio>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

using namespace qvclitest;

namespace {

std::string shellOutput(const std::string& cmd, int* status = nullptr)
{
    std::string out;
    FILE* p = popen(cmd.c_str(), "r");
    if (p == nullptr)
        return out;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), p)) > 0)
        out.append(buf, n);
    int rc = pclose(p);
    if (status != nullptr)
        *status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
    return out;
}

std::string fileText(const std::string& path)
{
    return shellOutput("cat " + path + " 2>/dev/null");
}

// A tmux server of the test's own, with one window running the watch.
class Terminal
{
public:
    Terminal()
    {
        socket_ = "quelvane-watch-test-" + std::to_string(getpid());
        statusFile_ = "/tmp/" + socket_ + ".status";
    }
    ~Terminal() { tmux("kill-server"); }

    static bool available() { return system("command -v tmux >/dev/null 2>&1") == 0; }

    bool start(const std::string& args)
    {
        std::string inner = std::string(QUELVANE_CLI_PATH) + " " + args + "; echo $? > " + statusFile_;
        int status = 0;
        shellOutput("TERM=xterm tmux -L " + socket_ + " -f /dev/null new-session -d -x 120 -y 40 \"" + inner +
                        "; sleep 60\" 2>&1",
                    &status);
        return status == 0;
    }

    std::string screen() { return tmux("capture-pane -p"); }
    void keys(const std::string& k) { tmux("send-keys " + k); }

    bool showsWithin(double seconds, const std::string& text)
    {
        return eventually(seconds, [&] { return screen().find(text) != std::string::npos; });
    }

    // The exit status of the watch once it has ended, -1 before.
    int status()
    {
        std::string s = fileText(statusFile_);
        return s.empty() ? -1 : std::atoi(s.c_str());
    }

private:
    std::string tmux(const std::string& words)
    {
        return shellOutput("tmux -L " + socket_ + " " + words + " 2>/dev/null");
    }

    std::string socket_;
    std::string statusFile_;
};

} // namespace

TEST_F(CliTest, WatchRefreshesAndEndsWithQ)
{
    if (!Terminal::available())
        GTEST_SKIP() << "tmux is not installed (scripts/ensure-deps installs it)";
    startSim();
    Terminal t;
    ASSERT_TRUE(t.start("watch --interval 1"));
    ASSERT_TRUE(t.showsWithin(4.0, "refresh 1")) << t.screen();
    std::string first = t.screen();
    EXPECT_NE(first.find("quelvane watch: cluster simcluster"), std::string::npos) << first;
    EXPECT_NE(first.find("Nodes: 8 (8 up)"), std::string::npos) << first;
    EXPECT_NE(first.find("node08"), std::string::npos) << first;
    EXPECT_NE(first.find("Filesystems: 2"), std::string::npos) << first;
    EXPECT_NE(first.find("Busiest disks"), std::string::npos) << first;

    // The cluster changes; the next refresh shows it, with traffic rates.
    ctl("fail-node", {"node04"});
    ctl("tick", {"20"});
    std::string later;
    EXPECT_TRUE(eventually(4.0, [&] {
        later = t.screen();
        return later.find("(7 up, 1 down)") != std::string::npos && later.find("MiB/s") != std::string::npos;
    })) << later;
    EXPECT_NE(later.find("node04  10.0.0.4  down"), std::string::npos) << later;

    t.keys("q");
    ASSERT_TRUE(eventually(4.0, [&] { return t.status() >= 0; })) << t.screen();
    EXPECT_EQ(t.status(), 0);
    // The terminal is given back: the view is gone from the screen.
    EXPECT_EQ(t.screen().find("Busiest disks"), std::string::npos) << t.screen();
}

TEST_F(CliTest, WatchEndsWithCtrlC)
{
    if (!Terminal::available())
        GTEST_SKIP() << "tmux is not installed (scripts/ensure-deps installs it)";
    startSim();
    Terminal t;
    ASSERT_TRUE(t.start("watch --interval 1"));
    ASSERT_TRUE(t.showsWithin(4.0, "refresh 1")) << t.screen();
    t.keys("C-c");
    ASSERT_TRUE(eventually(4.0, [&] { return t.status() >= 0; })) << t.screen();
    EXPECT_EQ(t.status(), 0);
}
