// The background poll with protocol 1: the timer thread is held until both the
// node scan and the disk repository scan have run; each tick makes the command
// thread copy the recipe into a scratch tree, run the four background
// collectors on it (which merge into the recipe) and destroy it; a thread in
// waitCmdThreadDone returns after a cycle. The 300-second sleep of the timer
// is never waited for: ticks are brought by the first repository scan after a
// node scan, or by wakeupCmdThread as the timer would call it.
//
// The library sends SIGTERM to its own threads at the end and installs no
// handler: these tests install one, as an application must. The command
// thread's join waits for a tick and the dispatch thread's for a wake-up, so
// the test's handler hands each SIGTERM to a releaser thread that gives the
// thread its wake-up (the operations the timer and a task producer call).
#include "support/fake_cluster.h"
#include "support/files.h"
#include "support/handler_fixture.h"
#include "support/worker_release.h"

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>
#include <quelvane/kx_log.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace qvtest;

namespace {

bool cycleEnded(size_t cycles);

const char* const kLogPath = "/tmp/background_poll.log";
const char* const kMarker = "/tmp/enableQuelvaneLog";

// ---------------------------------------------------------------------------
// SIGTERM: recorded (which thread got it) and passed to the releaser through
// a pipe. Only async-signal-safe work in the handler.

int gSigPipe[2] = {-1, -1};
std::atomic<int> gSigCount{0};
std::atomic<unsigned long> gSigThreads[16];

extern "C" void onSigterm(int)
{
    int saved = errno;
    int i = gSigCount.fetch_add(1);
    if (i < 16)
        gSigThreads[i].store(static_cast<unsigned long>(pthread_self()));
    char c = 't';
    ssize_t n = write(gSigPipe[1], &c, 1);
    (void)n;
    errno = saved;
}

void installSigterm()
{
    if (gSigPipe[0] < 0) {
        if (pipe(gSigPipe) != 0)
            abort();
        fcntl(gSigPipe[0], F_SETFL, O_NONBLOCK);
    }
    struct sigaction sa;
    sa.sa_handler = onSigterm;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = 0;
    sigaction(SIGTERM, &sa, nullptr);
}

// Gives the command thread the tick and the dispatch thread the wake-up that
// their joins wait for, as soon as their SIGTERM has arrived.
class Releaser
{
public:
    explicit Releaser(PollingHandler* h)
        : cmd_(h->cmdThread), dispatch_(h->dispatchThread), h_(h)
    {
        thread_ = std::thread([this] { run(); });
    }
    ~Releaser() { stop(); }

    void stop()
    {
        stop_.store(true);
        if (thread_.joinable())
            thread_.join();
    }

private:
    void run()
    {
        int seen = 0;
        while (!stop_.load()) {
            pollfd p{gSigPipe[0], POLLIN, 0};
            if (poll(&p, 1, 20) <= 0)
                continue;
            char c;
            if (read(gSigPipe[0], &c, 1) != 1)
                continue;
            pthread_t who = static_cast<pthread_t>(gSigThreads[seen++].load());
            if (pthread_equal(who, cmd_))
                h_->wakeupCmdThread();
            else if (pthread_equal(who, dispatch_))
                h_->wakeupDispatchThread();
        }
    }

    pthread_t cmd_;
    pthread_t dispatch_;
    PollingHandler* h_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

bool waitUntil(const std::function<bool()>& pred, int ms)
{
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (std::chrono::steady_clock::now() < end) {
        if (pred())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return pred();
}

// Holds the polling lock for a scope, also when an assertion leaves it early.
class PollingLock
{
public:
    explicit PollingLock(PollingHandler* h) : h_(h) { h_->getPollingLock(); }
    ~PollingLock() { h_->releasePollingLock(); }
    PollingLock(const PollingLock&) = delete;
    PollingLock& operator=(const PollingLock&) = delete;

private:
    PollingHandler* h_;
};

// Reads one of the latch globals under the polling lock.
int latch(PollingHandler* h, const int& value)
{
    h->getPollingLock();
    int v = value;
    h->releasePollingLock();
    return v;
}

// Log lines of the file, without the time prefix, of one caller.
std::vector<std::string> logOf(const std::string& who)
{
    std::vector<std::string> out;
    std::string tag = ": " + who + ": ";
    for (const std::string& l : splitLines(readFile(kLogPath))) {
        size_t at = l.find(tag);
        if (at != std::string::npos)
            out.push_back(l.substr(at + tag.size()));
    }
    return out;
}

// The entries from the first `first` on. Threads that start together may
// interleave the very first log lines; what follows a tick is ordered.
std::vector<std::string> fromFirst(const std::vector<std::string>& v, const std::string& first)
{
    for (size_t i = 0; i < v.size(); ++i)
        if (v[i] == first)
            return std::vector<std::string>(v.begin() + static_cast<long>(i), v.end());
    return {};
}

size_t countOf(const std::vector<std::string>& v, const std::string& s)
{
    size_t n = 0;
    for (const std::string& x : v)
        n += x == s ? 1 : 0;
    return n;
}

// The command thread has finished `cycles` cycles and stands in its wait.
bool cycleEnded(size_t cycles)
{
    return waitUntil(
        [&] {
            std::vector<std::string> cmd = logOf("PollingHandler::cmdHandlerBody");
            return countOf(cmd, "get disk access") == cycles && !cmd.empty() &&
                   cmd.back() == "wait";
        },
        10000);
}

// A thread that waits for one cycle of the command thread.
class CycleWaiter
{
public:
    explicit CycleWaiter(PollingHandler* h) : h_(h)
    {
        thread_ = std::thread([this, h] {
            h->waitCmdThreadDone();
            done_.store(true);
        });
    }
    ~CycleWaiter()
    {
        // After a failed test the waiter may still wait: release it as a
        // finished cycle would, so that the test ends instead of hanging.
        while (!done_.load()) {
            h_->getPollingLock();
            CmdPollConditionMet = 1;
            pthread_cond_broadcast(&CmdPollCond);
            h_->releasePollingLock();
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        if (thread_.joinable())
            thread_.join();
    }
    bool done() const { return done_.load(); }

private:
    PollingHandler* h_;
    std::atomic<bool> done_{false};
    std::thread thread_;
};

// ---------------------------------------------------------------------------

class BackgroundPoll : public HandlerFixture
{
protected:
    FakeCluster cluster{daemon};
    std::unique_ptr<Releaser> releaser;
    ClusterInfo* app = nullptr;

    void SetUp() override
    {
        // A hang anywhere ends the test instead of the CI job.
        alarm(60);
        installSigterm();
        cluster.model = smallCluster();
        cluster.script();
        // The log is opened before the threads exist, and the marker file
        // makes init keep it rather than replace it.
        writeFile(kMarker, "");
        QuelvaneLogFileP = fopen(kLogPath, "w+");
        ASSERT_NE(QuelvaneLogFileP, nullptr);
        startHandler(POLL_LOCAL_CLUSTER, 0, MGMT_PROTOCOL_BACKGROUND);
        releaser.reset(new Releaser(handler()));
        MErrno err = 1;
        app = new ClusterInfo(&err);
    }

    void TearDown() override
    {
        // term closes the log stream.
        stopHandler();
        releaser.reset();
        delete app;
        alarm(0);
    }

    int cmdWaiters() { return latch(handler(), CmdWaiters); }

    // Node scan, then a waiter, then the repository scan that releases the
    // timer; returns when the waiter has seen the first cycle.
    void scansAndFirstCycle()
    {
        ASSERT_EQ(handler()->updateNodeInfo(app, 0), 0);
        CycleWaiter waiter(handler());
        ASSERT_TRUE(waitUntil([&] { return cmdWaiters() == 1; }, 5000));
        ASSERT_EQ(handler()->updateDiskSDRInfo(0), 0);
        ASSERT_TRUE(waitUntil([&] { return waiter.done(); }, 20000))
            << "no cycle ended after the scans";
    }

    // Back in its wait after `cycles` cycles.
    bool commandThreadIdle(size_t cycles) { return cycleEnded(cycles); }
};

TEST_F(BackgroundPoll, TimerWaitsUntilBothScansHaveRun)
{
    // A repository scan before any node scan broadcasts, but the timer finds
    // its latch unset and waits on.
    ASSERT_EQ(handler()->updateDiskSDRInfo(0), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(timerLatch(), 0);
    EXPECT_EQ(latch(handler(), PollConditionMet), 0);
    EXPECT_TRUE(cluster.tool("vklsmgr").calls().empty());
    EXPECT_TRUE(cluster.tool("vklsnsd").calls().empty());

    // The node scan alone does not release it either.
    ASSERT_EQ(handler()->updateNodeInfo(app, 0), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(timerLatch(), 0);
    EXPECT_TRUE(cluster.tool("vklsmount").calls().empty());
    EXPECT_TRUE(fromFirst(logOf("PollingHandler::timerHandlerBody"), "start").empty());

    // The next repository scan finds both stamps: the timer ticks once and
    // the command thread runs one cycle.
    CycleWaiter waiter(handler());
    ASSERT_TRUE(waitUntil([&] { return cmdWaiters() == 1; }, 5000));
    ASSERT_EQ(handler()->updateDiskSDRInfo(0), 0);
    ASSERT_TRUE(waitUntil([&] { return waiter.done(); }, 20000));
    EXPECT_EQ(timerLatch(), 1);
    EXPECT_EQ(latch(handler(), CmdWaiters), 0);
    EXPECT_EQ(latch(handler(), CmdPollConditionMet), 0);
    EXPECT_EQ(fromFirst(logOf("PollingHandler::timerHandlerBody"), "start"),
              (std::vector<std::string>{"start", "handlerP->timer_terminate = 0"}));
    EXPECT_EQ(cluster.tool("vksdrquery").calls(),
              (std::vector<std::string>{"30 3001:3004:3005:3006:3007:3008:3002:3003",
                                        "20 2003:2004:2005:2006:2007:2008:2010:2014:2015",
                                        "30 3001:3004:3005:3006:3007:3008:3002:3003"}));
}

TEST_F(BackgroundPoll, CycleRunsFourCollectorsOnAScratchTreeAndMergesIntoTheRecipe)
{
    scansAndFirstCycle();
    ASSERT_TRUE(commandThreadIdle(1));
    size_t requestsAfterScans = 3;   // get nodes, tavrel nc, tavrel v
    EXPECT_EQ(requestsSinceStart().size(), requestsAfterScans) << "the cycle asks the daemon nothing";

    // The four collectors, each once, in this order; the mount point scan and
    // the policies are no part of the cycle.
    EXPECT_EQ(cluster.tool("vklsmgr").calls(), (std::vector<std::string>{"fs1", "fs2"}));
    EXPECT_EQ(cluster.tool("vklsmount").calls(), (std::vector<std::string>{"all_local -Y"}));
    EXPECT_EQ(cluster.tool("vklsfs").calls(), (std::vector<std::string>{"fs1 -Y", "fs2 -Y"}));
    EXPECT_EQ(cluster.tool("vklsnsd").calls(), (std::vector<std::string>{"-M"}));
    EXPECT_TRUE(cluster.tool("vklspolicy").calls().empty());

    std::vector<std::string> cmd = fromFirst(logOf("PollingHandler::cmdHandlerBody"), "start");
    EXPECT_EQ(cmd, (std::vector<std::string>{"start", "handlerP->terminate = 0",
                                             "get fs manager", "get mounted nodes",
                                             "get fs config", "get disk access", "wait"}));
    // Each collector logs between its announcement and the next one.
    std::vector<std::string> all = splitLines(readFile(kLogPath));
    auto firstIndex = [&](const std::string& part) {
        for (size_t i = 0; i < all.size(); ++i)
            if (all[i].find(part) != std::string::npos)
                return static_cast<long>(i);
        return -1L;
    };
    long manager = firstIndex("cmdHandlerBody: get fs manager");
    long mounted = firstIndex("cmdHandlerBody: get mounted nodes");
    long config = firstIndex("cmdHandlerBody: get fs config");
    long access = firstIndex("cmdHandlerBody: get disk access");
    long managerLog = firstIndex("PollingHandler::updateFilesystemManagerInfo: cmd = ");
    long mountedLog = firstIndex("PollingHandler::updateMountedNodeInfo: ");
    long configLog = firstIndex("PollingHandler::updateFilesystemConfigInfo: cmd = ");
    long accessLog = firstIndex("PollingHandler::updateDiskAccessInfo: ");
    EXPECT_LT(manager, managerLog);
    EXPECT_LT(managerLog, mounted);
    EXPECT_LT(mounted, mountedLog);
    EXPECT_LT(mountedLog, config);
    EXPECT_LT(config, configLog);
    EXPECT_LT(configLog, access);
    EXPECT_LT(access, accessLog);

    // What the cycle merged into the recipe.
    {
    PollingLock lock(handler());
    ClusterInfo* r = handler()->recipe;
    ASSERT_EQ(r->filesystemItems.size(), 2u);
    FilesystemInfo* fs1 = r->filesystemItems[0];
    FilesystemInfo* fs2 = r->filesystemItems[1];
    EXPECT_STREQ(fs1->manager, "node1");
    EXPECT_STREQ(fs2->manager, "node2");
    ASSERT_EQ(fs1->mountedNodeItems.size(), 3u);
    EXPECT_STREQ(fs1->mountedNodeItems[2]->nodeName, "node3");
    EXPECT_STREQ(fs1->mountedNodeItems[2]->nodeIpAddr, "10.0.0.3");
    ASSERT_EQ(fs2->mountedNodeItems.size(), 1u);
    EXPECT_STREQ(fs2->mountedNodeItems[0]->nodeIpAddr, "10.0.0.2");
    EXPECT_EQ(fs1->blockSize, 4194304);
    EXPECT_STREQ(fs1->additionalMountOptions, "nodev:nosuid");
    EXPECT_STREQ(fs1->defaultMountPoint, "/gpfs/fs1");
    EXPECT_EQ(fs1->mountPointValid, 0);
    EXPECT_EQ(fs2->inodeSize, 512);
    EXPECT_TRUE(fs1->policyItems.empty());
    ASSERT_EQ(r->nodeItems.size(), 3u);
    ASSERT_EQ(r->nodeItems[2]->diskAccessItems.size(), 5u);
    EXPECT_STREQ(r->nodeItems[2]->diskAccessItems[0]->getDiskName(), "d3");
    EXPECT_EQ(r->nodeItems[2]->diskAccessItems[0]->isLocal(), 1);
    EXPECT_STREQ(r->nodeItems[2]->diskAccessItems[0]->getServerName(), "node2");
    EXPECT_EQ(r->nodeItems[0]->diskAccessItems.size(), 5u);
    EXPECT_EQ(r->nodeItems[1]->diskAccessItems.size(), 5u);
    }

    // The scratch tree was the cycle's own: the application's tree has no
    // filesystems and no disk paths until it polls again.
    EXPECT_TRUE(app->filesystemItems.empty());
    ASSERT_EQ(app->nodeItems.size(), 3u);
    EXPECT_TRUE(app->nodeItems[0]->diskAccessItems.empty());
    ASSERT_EQ(handler()->updateNodeInfo(app, 0), 0);
    ASSERT_EQ(app->nodeItems[2]->diskAccessItems.size(), 5u);
    EXPECT_STREQ(app->nodeItems[2]->diskAccessItems[4]->getDiskName(), "d4");
    EXPECT_EQ(app->nodeItems[2]->diskAccessItems[4]->isLocal(), 0);
    EXPECT_STREQ(app->nodeItems[2]->diskAccessItems[4]->getServerName(), "node1");
}

TEST_F(BackgroundPoll, WaitCmdThreadDoneIsALatchNotACounter)
{
    scansAndFirstCycle();
    ASSERT_TRUE(commandThreadIdle(1));

    // A cycle with no waiter is not remembered.
    ASSERT_EQ(handler()->wakeupCmdThread(), 0);
    ASSERT_TRUE(commandThreadIdle(2));
    EXPECT_EQ(cluster.tool("vklsnsd").calls().size(), 2u);
    EXPECT_EQ(latch(handler(), CmdPollConditionMet), 0);

    // Two waiters, one cycle: the broadcast wakes both, the first clears the
    // latch and returns, the second waits for the next cycle.
    {
        CycleWaiter a(handler());
        CycleWaiter b(handler());
        ASSERT_TRUE(waitUntil([&] { return cmdWaiters() == 2; }, 5000));
        ASSERT_EQ(handler()->wakeupCmdThread(), 0);
        ASSERT_TRUE(waitUntil([&] { return a.done() || b.done(); }, 20000));
        ASSERT_TRUE(commandThreadIdle(3));
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        EXPECT_NE(a.done(), b.done()) << "exactly one waiter returns after one cycle";
        EXPECT_EQ(cmdWaiters(), 1);
        EXPECT_EQ(latch(handler(), CmdPollConditionMet), 0);

        ASSERT_EQ(handler()->wakeupCmdThread(), 0);
        ASSERT_TRUE(waitUntil([&] { return a.done() && b.done(); }, 20000));
        ASSERT_TRUE(commandThreadIdle(4));
    }
    EXPECT_EQ(cmdWaiters(), 0);
    EXPECT_EQ(cluster.tool("vklsnsd").calls().size(), 4u);
    EXPECT_EQ(cluster.tool("vklsmgr").calls().size(), 8u);
}

// ---------------------------------------------------------------------------
// One whole life in a process of its own: init with protocol 1, both scans,
// one cycle, term. Any failure prints its reason and exits with 1; a hang is
// ended by the alarm.

#define LIFE_CHECK(cond)                                                              \
    do {                                                                              \
        if (!(cond)) {                                                                \
            fprintf(stderr, "whole life: failed at line %d: %s\n", __LINE__, #cond); \
            return 1;                                                                 \
        }                                                                             \
    } while (0)

int wholeLife()
{
    alarm(30);
    installSigterm();
    FakeDaemon daemon;
    FakeTool kxctl("kxctl");
    kxctl.output("3504\n");
    FakeCluster cluster(daemon);
    cluster.model = smallCluster();
    cluster.script();
    writeFile(kMarker, "");
    QuelvaneLogFileP = fopen(kLogPath, "w+");
    LIFE_CHECK(QuelvaneLogFileP != nullptr);

    LIFE_CHECK(PollingHandler::init(MGMT_PROTOCOL_BACKGROUND, 0, POLL_LOCAL_CLUSTER) == 0);
    PollingHandler* h = thePollingHandler;
    LIFE_CHECK(h != nullptr);
    pthread_t cmd = h->cmdThread;
    pthread_t timer = h->timerThread;
    pthread_t dispatch = h->dispatchThread;
    Releaser releaser(h);

    MErrno err = 1;
    ClusterInfo app(&err);
    LIFE_CHECK(h->updateNodeInfo(&app, 0) == 0);
    {
        CycleWaiter waiter(h);
        LIFE_CHECK(waitUntil([&] { return latch(h, CmdWaiters) == 1; }, 5000));
        LIFE_CHECK(h->updateDiskSDRInfo(0) == 0);
        LIFE_CHECK(waitUntil([&] { return waiter.done(); }, 20000));
    }
    LIFE_CHECK(cycleEnded(1));

    PollingHandler::term();
    releaser.stop();
    LIFE_CHECK(thePollingHandler == nullptr);
    LIFE_CHECK(QuelvaneLogFileP == nullptr);

    // One SIGTERM to each thread, in the order command, timer, dispatch.
    LIFE_CHECK(gSigCount.load() == 3);
    LIFE_CHECK(pthread_equal(static_cast<pthread_t>(gSigThreads[0].load()), cmd));
    LIFE_CHECK(pthread_equal(static_cast<pthread_t>(gSigThreads[1].load()), timer));
    LIFE_CHECK(pthread_equal(static_cast<pthread_t>(gSigThreads[2].load()), dispatch));

    std::vector<std::string> dtor = logOf("PollingHandler::~PollingHandler");
    LIFE_CHECK(dtor == (std::vector<std::string>{"Joined cmdThread", "Joined timerThread",
                                                 "Joined dispatchThread"}));
    std::vector<std::string> cmdLog = logOf("PollingHandler::cmdHandlerBody");
    LIFE_CHECK(cmdLog.size() >= 3);
    LIFE_CHECK((std::vector<std::string>(cmdLog.end() - 3, cmdLog.end()) ==
                std::vector<std::string>{"start", "handlerP->terminate = 1", "exiting..."}));
    std::vector<std::string> timerLog =
        fromFirst(logOf("PollingHandler::timerHandlerBody"), "start");
    LIFE_CHECK((timerLog == std::vector<std::string>{"start",
                                                     "handlerP->timer_terminate = 0", "start",
                                                     "handlerP->timer_terminate = 1",
                                                     "exiting..."}));
    LIFE_CHECK(cluster.tool("vklsnsd").calls().size() == 1);
    fprintf(stderr, "whole life: done\n");
    return 0;
}

TEST(BackgroundPollLife, InitScansOneCycleAndTermWithSigterm)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(exit(wholeLife()), ::testing::ExitedWithCode(0), "whole life: done");
}

// term while the command thread is in the middle of a cycle: the disk path
// tool of the cycle's last collector is slow, and term comes while it runs.
// The cycle still merges into a recipe that is alive, and the teardown keeps
// its order.
int termDuringCycle()
{
    alarm(30);
    installSigterm();
    FakeDaemon daemon;
    FakeTool kxctl("kxctl");
    kxctl.output("3504\n");
    FakeCluster cluster(daemon);
    cluster.model = smallCluster();
    cluster.script();
    writeFile("/tmp/nsd-table", sim::diskPathTable(cluster.model));
    writeFile(cluster.tool("vklsnsd").path(),
              "#!/bin/sh\ntouch /tmp/nsd-started\nsleep 1\ncat /tmp/nsd-table\n");
    writeFile(kMarker, "");
    QuelvaneLogFileP = fopen(kLogPath, "w+");
    LIFE_CHECK(QuelvaneLogFileP != nullptr);

    LIFE_CHECK(PollingHandler::init(MGMT_PROTOCOL_BACKGROUND, 0, POLL_LOCAL_CLUSTER) == 0);
    PollingHandler* h = thePollingHandler;
    LIFE_CHECK(h != nullptr);
    Releaser releaser(h);

    MErrno err = 1;
    ClusterInfo app(&err);
    LIFE_CHECK(h->updateNodeInfo(&app, 0) == 0);
    LIFE_CHECK(h->updateDiskSDRInfo(0) == 0);   // releases the timer: the first cycle starts
    LIFE_CHECK(waitUntil([] { return access("/tmp/nsd-started", F_OK) == 0; }, 20000));

    PollingHandler::term();
    releaser.stop();
    LIFE_CHECK(thePollingHandler == nullptr);

    std::vector<std::string> cmdLog = logOf("PollingHandler::cmdHandlerBody");
    LIFE_CHECK(std::find(cmdLog.begin(), cmdLog.end(), "get disk access") != cmdLog.end());
    LIFE_CHECK(cmdLog.back() == "exiting...");
    std::vector<std::string> dtor = logOf("PollingHandler::~PollingHandler");
    LIFE_CHECK(dtor == (std::vector<std::string>{"Joined cmdThread", "Joined timerThread",
                                                 "Joined dispatchThread"}));
    // The interrupted cycle's disk path merge ran on the live recipe.
    std::vector<std::string> paths = logOf("PollingHandler::updateDiskAccessInfo");
    LIFE_CHECK(!paths.empty());
    fprintf(stderr, "term during a cycle: done\n");
    return 0;
}

TEST(BackgroundPollLife, TermDuringACycleKeepsTheRecipeUntilTheThreadsAreJoined)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(exit(termDuringCycle()), ::testing::ExitedWithCode(0), "term during a cycle: done");
}

} // namespace
