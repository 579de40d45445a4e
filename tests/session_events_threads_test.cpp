// The session across threads: the event wait with its reconnection and its
// end, and the retry of a request while the daemon is away and comes back.
#include <quelvane/tavrel_wrapper_utils.h>

#include "support/fake_daemon.h"
#include "support/files.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <vector>

using namespace qvtest;

namespace {

std::mutex gMutex;
std::condition_variable gCond;
std::vector<std::string> gEvents;

int recordEvent(char* line, void* data)
{
    std::lock_guard<std::mutex> lock(gMutex);
    gEvents.push_back(std::string(line) + (data == nullptr ? "" : " (with data)"));
    gCond.notify_all();
    return 0;
}

bool waitForEvents(size_t count, int timeoutMs = 5000)
{
    std::unique_lock<std::mutex> lock(gMutex);
    return gCond.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return gEvents.size() >= count; });
}

std::vector<std::string> events()
{
    std::lock_guard<std::mutex> lock(gMutex);
    return gEvents;
}

std::unique_ptr<TavrelWrapperUtils> makeSession(int debug = 0)
{
    MErrno err = -1;
    std::unique_ptr<TavrelWrapperUtils> s(new TavrelWrapperUtils(&err, debug));
    EXPECT_EQ(err, 0);
    return s;
}

const char kEndText[] = ": quelvane_lib: Error: Events handler ORLU daemon connection failed, exiting\\.\\.\\.\n";

} // namespace

TEST(WaitEvents, DeliversEveryLineThenReturnsWhenTheDaemonStaysDown)
{
    FakeDaemon daemon;
    auto s = makeSession();
    s->registerEvents(recordEvent);
    ASSERT_TRUE(daemon.waitForConnections(1));

    StderrCapture cap;
    std::thread waiter([&] { s->waitEvents(); });
    EXPECT_EQ(daemon.pushEvent("_event_ nodeDown _node_ 10.0.0.7"), 1);
    EXPECT_EQ(daemon.pushEvent("_event_ fsMounted _fs_ gpfs1"), 1);
    ASSERT_TRUE(waitForEvents(2));
    // On this road every line goes to the callback, event word or not.
    EXPECT_EQ(daemon.pushRaw("plain line\n"), 1);
    ASSERT_TRUE(waitForEvents(3));

    daemon.stop();
    waiter.join();
    std::string err = cap.finish();
    EXPECT_EQ(events(), (std::vector<std::string>{"_event_ nodeDown _node_ 10.0.0.7",
                                                  "_event_ fsMounted _fs_ gpfs1", "plain line"}));
    EXPECT_TRUE(std::regex_match(err, std::regex(std::string(kTimeRegex) + kEndText))) << err;
    EXPECT_EQ(daemon.connectionsAccepted(), 1u);
    // The daemon received nothing on the event connection.
    EXPECT_EQ(daemon.received(), "");
}

TEST(WaitEvents, BurstOfLinesWrittenAtOnceArrivesWholeAndInOrder)
{
    FakeDaemon daemon;
    auto s = makeSession();
    s->registerEvents(recordEvent);
    ASSERT_TRUE(daemon.waitForConnections(1));
    {
        std::lock_guard<std::mutex> lock(gMutex);
        gEvents.clear();
    }

    StderrCapture cap;
    std::thread waiter([&] { s->waitEvents(); });
    // Some 600 KB in one write: many blocks of lines, lines cut at their
    // edges, and lines of every length up to the longest one taken.
    std::vector<std::string> lines;
    std::string bytes;
    for (int i = 0; i < 12000; ++i) {
        lines.push_back("_event_ mount _node_ n" + std::to_string(i) + " _fs_ " + std::string(i % 97, 'f'));
        bytes += lines.back() + "\n";
    }
    lines.push_back("_event_ " + std::string(1015, 'x'));
    bytes += lines.back() + "\n";
    EXPECT_EQ(daemon.pushRaw(bytes), 1);
    ASSERT_TRUE(waitForEvents(lines.size(), 20000));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));   // nothing more comes

    daemon.stop();
    waiter.join();
    cap.finish();
    EXPECT_EQ(events(), lines);
    EXPECT_EQ(daemon.connectionsAccepted(), 1u);
}

TEST(WaitEvents, ReconnectsOnceAfterAHangUp)
{
    FakeDaemon daemon;
    auto s = makeSession();
    s->registerEvents(recordEvent);
    ASSERT_TRUE(daemon.waitForConnections(1));

    StderrCapture cap;
    std::thread waiter([&] { s->waitEvents(); });
    EXPECT_EQ(daemon.pushEvent("_event_ before", 0), 1);
    ASSERT_TRUE(waitForEvents(1));

    daemon.dropConnections();
    ASSERT_TRUE(daemon.waitForConnections(2));
    EXPECT_EQ(daemon.pushEvent("_event_ after", 1), 1);
    ASSERT_TRUE(waitForEvents(2));

    daemon.stop();
    waiter.join();
    std::string err = cap.finish();
    EXPECT_EQ(events(), (std::vector<std::string>{"_event_ before", "_event_ after"}));
    EXPECT_EQ(daemon.connectionsAccepted(), 2u);
    EXPECT_TRUE(std::regex_match(err, std::regex(std::string(kTimeRegex) + kEndText))) << err;
}

TEST(WaitEvents, DaemonAlreadyGoneEndsTheWaitWithItsText)
{
    FakeDaemon daemon;
    auto s = makeSession();
    s->registerEvents(recordEvent);
    ASSERT_TRUE(daemon.waitForConnections(1));
    daemon.stop();

    StderrCapture cap;
    std::thread waiter([&] { s->waitEvents(); });
    waiter.join();
    std::string err = cap.finish();
    EXPECT_TRUE(events().empty());
    EXPECT_TRUE(std::regex_match(err, std::regex(std::string(kTimeRegex) + kEndText))) << err;
    // The session itself is still usable once the daemon is back.
    daemon.start();
    EXPECT_EQ(s->sendCommand("tavrel v"), 2);
    EXPECT_EQ(s->processCommand("tavrel v"), 0);
}

TEST(WaitEvents, AtDebugOneAlsoReportsTheFailedReconnection)
{
    FakeDaemon daemon;
    auto s = makeSession(1);
    s->registerEvents(recordEvent);
    ASSERT_TRUE(daemon.waitForConnections(1));
    daemon.stop();

    StderrCapture cap;
    std::thread waiter([&] { s->waitEvents(); });
    waiter.join();
    std::vector<std::string> lines = splitLines(cap.finish());
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0], "_info_ connectSocket: Connecting to /var/vesk/tavrel/tavrelSocket...");
    EXPECT_EQ(lines[1], "_info_ connectSocket: Using named socket /var/vesk/tavrel/tavrelSocket...");
    EXPECT_EQ(lines[2].rfind("_info_ connectSocket: port -1, socket ", 0), 0u);
    EXPECT_TRUE(std::regex_match(lines[3], std::regex(std::string(kTimeRegex) +
                                                      ": quelvane_lib: _error_ Node /var/vesk/tavrel/tavrelSocket, "
                                                      "port -1: Error 2 connecting stream socket: No such file or "
                                                      "directory")))
        << lines[3];
    EXPECT_TRUE(std::regex_match(lines[4] + "\n", std::regex(std::string(kTimeRegex) + kEndText))) << lines[4];
}

TEST(SessionRetry, RequestIsRepeatedUntilTheDaemonIsBack)
{
    FakeDaemon daemon;
    Response cut({"_node_ _name_ a _ip_ 10.0.0.1"});
    cut.appendEnd = false;
    cut.dropAfter = true;
    daemon.respond("get nodes", cut);
    daemon.respond("get nodes", {"_node_ _name_ a _ip_ 10.0.0.1", "_node_ _name_ b _ip_ 10.0.0.2"});
    auto s = makeSession();

    // The daemon dies in the middle of the response.
    ASSERT_EQ(s->processCommand("get nodes"), 0);
    s->prepBuffer();
    EXPECT_EQ(s->getInstanceCount("_node_"), 1);
    EXPECT_EQ(s->getInstanceCount("_response_ end"), 0);
    s->cleanupCommand();
    daemon.stop();

    std::thread restarter([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        daemon.start();
    });
    StderrCapture cap;
    int attempts = 0;
    auto started = std::chrono::steady_clock::now();
    while (s->processCommand("get nodes") == 2)
        ++attempts;
    auto elapsed = std::chrono::steady_clock::now() - started;
    restarter.join();
    EXPECT_EQ(cap.finish(), "");

    EXPECT_GE(attempts, 2);
    EXPECT_GE(elapsed, std::chrono::milliseconds(150));
    s->prepBuffer();
    EXPECT_EQ(s->getInstanceCount("_node_"), 2);
    s->prepBuffer();
    ASSERT_TRUE(s->getNextInstance("_node_ _name_ b"));
    EXPECT_STREQ(s->getBufferedValue("_ip_", 0, 256), "10.0.0.2");
    EXPECT_EQ(daemon.requestLines(), (std::vector<std::string>{"get nodes", "get nodes"}));
    EXPECT_EQ(daemon.connectionsAccepted(), 2u);
}
