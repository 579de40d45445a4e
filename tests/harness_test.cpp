// The test harness itself: namespace, fake daemon, fake tools, captures.
#include "support/fake_daemon.h"
#include "support/fake_tool.h"
#include "support/files.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace qvtest;

namespace {

int connectTo(const char* path)
{
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path);
    if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

std::string readUntilEnd(int fd)
{
    std::string got;
    char c;
    while (got.find("_response_ end\n") == std::string::npos && recv(fd, &c, 1, 0) == 1)
        got += c;
    return got;
}

} // namespace

TEST(Harness, FixedDirectoriesArePrivateAndEmpty)
{
    EXPECT_TRUE(fileExists("/var/vesk/tavrel"));
    EXPECT_TRUE(fileExists("/var/vesk/gen"));
    EXPECT_TRUE(fileExists("/usr/kpx/vesk/bin"));
    EXPECT_FALSE(fileExists("/tmp/enableQuelvaneLog"));
    EXPECT_FALSE(fileExists("/var/vesk/tavrel/tavrelSocket"));
}

TEST(Harness, FakeDaemonAnswersScriptedAndDefaultResponses)
{
    FakeDaemon daemon;
    daemon.respond("get nodes", {"_node_ _n_ a", "_node_ _n_ b"});
    int fd = connectTo(FakeDaemon::kSocketPath);
    ASSERT_GE(fd, 0);
    const char req[] = "get nodes\nother\n";
    ASSERT_EQ(send(fd, req, strlen(req), 0), static_cast<ssize_t>(strlen(req)));
    EXPECT_EQ(readUntilEnd(fd), "_node_ _n_ a\n_node_ _n_ b\n_response_ end\n");
    EXPECT_EQ(readUntilEnd(fd), "_response_ end\n");
    ASSERT_TRUE(daemon.waitForRequests(2));
    EXPECT_EQ(daemon.requestLines(), (std::vector<std::string>{"get nodes", "other"}));
    EXPECT_EQ(daemon.received(), "get nodes\nother\n");
    close(fd);
}

TEST(Harness, FakeDaemonStopsAndComesBack)
{
    FakeDaemon daemon;
    int fd = connectTo(FakeDaemon::kSocketPath);
    ASSERT_GE(fd, 0);
    ASSERT_TRUE(daemon.waitForConnections(1));
    daemon.stop();
    char c;
    EXPECT_EQ(recv(fd, &c, 1, 0), 0);
    close(fd);
    EXPECT_EQ(connectTo(FakeDaemon::kSocketPath), -1);
    daemon.start();
    fd = connectTo(FakeDaemon::kSocketPath);
    EXPECT_GE(fd, 0);
    ASSERT_TRUE(daemon.waitForConnections(2));
    EXPECT_EQ(daemon.pushEvent("_event_ x", 1), 1);
    std::string got;
    while (got.find('\n') == std::string::npos && recv(fd, &c, 1, 0) == 1)
        got += c;
    EXPECT_EQ(got, "_event_ x\n");
    close(fd);
}

TEST(Harness, FakeToolRecordsArgumentsAndAnswersByRule)
{
    FakeTool tool("vkdemo");
    tool.output("default line\n", 3, "oops\n").on("-Y one", "rule line\n", 0);
    FILE* p = popen("/usr/kpx/vesk/bin/vkdemo -Y one", "r");
    char buf[64] = {0};
    ASSERT_NE(fgets(buf, sizeof(buf), p), nullptr);
    EXPECT_STREQ(buf, "rule line\n");
    EXPECT_EQ((pclose(p) >> 8) & 255, 0);
    StderrCapture cap;
    p = popen("/usr/kpx/vesk/bin/vkdemo other", "r");
    ASSERT_NE(fgets(buf, sizeof(buf), p), nullptr);
    EXPECT_STREQ(buf, "default line\n");
    EXPECT_EQ((pclose(p) >> 8) & 255, 3);
    EXPECT_EQ(cap.finish(), "oops\n");
    EXPECT_EQ(tool.calls(), (std::vector<std::string>{"-Y one", "other"}));
    EXPECT_EQ(tool.commandLines()[0], "/usr/kpx/vesk/bin/vkdemo -Y one");
}

TEST(Harness, FakeToolOfTheSameNameStartsWithoutTheRulesOfAnEarlierOne)
{
    {
        FakeTool first("vkagain");
        first.on("-Y", "old rule\n");
    }
    FakeTool second("vkagain");
    second.output("default\n");
    FILE* p = popen("/usr/kpx/vesk/bin/vkagain -Y", "r");
    char buf[64] = {0};
    ASSERT_NE(fgets(buf, sizeof(buf), p), nullptr);
    pclose(p);
    EXPECT_STREQ(buf, "default\n");
    EXPECT_EQ(second.calls(), (std::vector<std::string>{"-Y"}));
}
