// The worker threads of the polling handler: start and end with protocol 1,
// and the latches and wait and wake operations that connect the threads.
#include "support/fake_daemon.h"
#include "support/fake_tool.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/worker_release.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>

using namespace qvtest;

namespace {

using Clock = std::chrono::steady_clock;

int loadFlag(const int& flag)
{
    return __atomic_load_n(&flag, __ATOMIC_SEQ_CST);
}

// Waits (bounded) until `pred` holds.
template <class P>
bool waitFor(P pred, int ms = 3000)
{
    auto end = Clock::now() + std::chrono::milliseconds(ms);
    while (!pred()) {
        if (Clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

// Log lines of threads that log at the same moment may interleave their
// prefix and their text, so the threaded checks look at message texts alone.
size_t textCount(const LogCapture& log, const std::string& text)
{
    std::string all = log.text();
    size_t n = 0;
    for (size_t pos = all.find(text); pos != std::string::npos; pos = all.find(text, pos + 1))
        n++;
    return n;
}

// Reads a latch under the handler's lock.
int latch(PollingHandler* h, const int& value)
{
    h->getPollingLock();
    int v = value;
    h->releasePollingLock();
    return v;
}

// Stands in for the ticks that end the waits of a stopping handler: when the
// destructor has flagged a thread, this sets that thread's latch (after
// `delayMs`) and broadcasts, as the timer or a task producer would. It
// touches the handler only while the destructor is still waiting for the
// thread concerned, so never after the handler is gone.
class Rescuer
{
public:
    // With `gated`, nothing is released before open() is called.
    Rescuer(PollingHandler* h, int delayMs, bool gated = false)
        : h_(h), delayMs_(delayMs), open_(!gated)
    {
        thread_ = std::thread([this] { run(); });
    }
    ~Rescuer()
    {
        if (thread_.joinable())
            thread_.join();
    }
    void join() { thread_.join(); }
    void open() { open_ = true; }
    std::atomic<int> rescued{0};

private:
    void release(const int& flag, pthread_cond_t* cond, int* cond_met)
    {
        if (!waitFor([&] { return loadFlag(flag) != 0; }, 5000))
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(delayMs_));
        waitFor([&] { return open_.load(); }, 5000);
        pthread_mutex_lock(&h_->pollingMutex);
        // Atomic for all three, as the timer latch must be.
        __atomic_store_n(cond_met, 1, __ATOMIC_SEQ_CST);
        pthread_cond_broadcast(cond);
        pthread_mutex_unlock(&h_->pollingMutex);
        rescued++;
    }
    void run()
    {
        release(h_->terminate, &PollCond, &PollConditionMet);
        release(h_->timer_terminate, &TimerPollCond, &TimerPollConditionMet);
        release(h_->execTerminate, &DispatchPollCond, &DispatchPollConditionMet);
    }

    PollingHandler* h_;
    int delayMs_;
    std::atomic<bool> open_;
    std::thread thread_;
};

// Starts a handler. With debug set and a log stream open already, init
// leaves the stream alone, so the threads it starts log into the capture.
void startHandler(FakeDaemon&, FakeTool& kx, MgmtProtocol protocol)
{
    kx.output("3504\n");
    if (protocol == MGMT_PROTOCOL_BACKGROUND) {
        ASSERT_NE(QuelvaneLogFileP, nullptr);
    }
    ASSERT_EQ(PollingHandler::init(protocol, 1, POLL_LOCAL_NODE), 0);
    ASSERT_NE(thePollingHandler, nullptr);
    ASSERT_NE(QuelvaneLogFileP, nullptr);
}

} // namespace

TEST(HandlerThreads, ProtocolOneStartsThreeThreadsAndTermJoinsThemInOrder)
{
    keepProcessOnSigterm();
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    LogCapture log;
    startHandler(daemon, kx, MGMT_PROTOCOL_BACKGROUND);
    PollingHandler* h = thePollingHandler;
    EXPECT_EQ(h->execTaskList.capacity(), 1024u);
    EXPECT_TRUE(h->execTaskList.empty());
    EXPECT_EQ(textCount(log, "create cmdThread\n"), 1u);
    EXPECT_EQ(textCount(log, "create timerThread\n"), 1u);
    EXPECT_EQ(textCount(log, "create dispatchThread\n"), 1u);
    // Both threads reach their first wait; no tick without a scan.
    ASSERT_TRUE(waitFor([&] { return textCount(log, "wait\n") == 2; })) << log.text();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(textCount(log, "start\n"), 0u);

    auto t0 = Clock::now();
    Rescuer rescuer(h, 0);
    PollingHandler::term();
    log.closedByLibrary();
    rescuer.join();
    EXPECT_LT(Clock::now() - t0, std::chrono::seconds(4));
    EXPECT_EQ(rescuer.rescued.load(), 3);
    EXPECT_EQ(thePollingHandler, nullptr);
}

TEST(HandlerThreads, TeardownLogOrder)
{
    keepProcessOnSigterm();
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    LogCapture log;
    startHandler(daemon, kx, MGMT_PROTOCOL_BACKGROUND);
    Rescuer rescuer(thePollingHandler, 0);
    PollingHandler::term();
    rescuer.join();
    std::vector<std::string> order;
    for (const std::string& l : log.lines()) {
        if (l.find("Joined") != std::string::npos || l.find("exiting") != std::string::npos ||
            l.find("Couldn't") != std::string::npos)
            order.push_back(l);
    }
    EXPECT_EQ(order, (std::vector<std::string>{
                         "INFO: PollingHandler::cmdHandlerBody: exiting...",
                         "INFO: PollingHandler::~PollingHandler: Joined cmdThread",
                         "INFO: PollingHandler::timerHandlerBody: exiting...",
                         "INFO: PollingHandler::~PollingHandler: Joined timerThread",
                         "INFO: PollingHandler::~PollingHandler: Joined dispatchThread",
                     }));
    std::string text = log.text();
    log.closedByLibrary();
    EXPECT_NE(text.find("INFO: PollingHandler::cmdHandlerBody: handlerP->terminate = 1\n"), std::string::npos);
    EXPECT_NE(text.find("INFO: PollingHandler::timerHandlerBody: handlerP->timer_terminate = 1\n"),
              std::string::npos);
}

TEST(HandlerThreads, CommandJoinWaitsForATickThatNeverComesWithoutAScan)
{
    keepProcessOnSigterm();
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    LogCapture log;
    startHandler(daemon, kx, MGMT_PROTOCOL_BACKGROUND);
    PollingHandler* h = thePollingHandler;
    // The rescuer holds back until the checks are done: until then the
    // command thread, flagged and signalled, still waits for a tick.
    Rescuer rescuer(h, 0, true);
    std::atomic<bool> done{false};
    std::thread stopper([&] {
        PollingHandler::term();
        done = true;
    });
    ASSERT_TRUE(waitFor([&] { return loadFlag(h->terminate) != 0; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    EXPECT_FALSE(done.load());
    EXPECT_EQ(loadFlag(h->timer_terminate), 0);
    EXPECT_EQ(rescuer.rescued.load(), 0);
    rescuer.open();
    stopper.join();
    rescuer.join();
    log.closedByLibrary();
    EXPECT_TRUE(done.load());
    EXPECT_EQ(rescuer.rescued.load(), 3);
}

TEST(HandlerThreads, DispatchJoinWaitsForAWakeUp)
{
    keepProcessOnSigterm();
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    LogCapture log;
    startHandler(daemon, kx, MGMT_PROTOCOL_BACKGROUND);
    PollingHandler* h = thePollingHandler;
    std::atomic<bool> dispatchFlagged{false};
    std::atomic<bool> done{false};
    // Releases the command and timer threads at once, the dispatch thread
    // only after a pause.
    std::thread helper([&] {
        waitFor([&] { return loadFlag(h->terminate) != 0; }, 5000);
        pthread_mutex_lock(&h->pollingMutex);
        PollConditionMet = 1;
        pthread_cond_broadcast(&PollCond);
        pthread_mutex_unlock(&h->pollingMutex);
        waitFor([&] { return loadFlag(h->timer_terminate) != 0; }, 5000);
        pthread_mutex_lock(&h->pollingMutex);
        setTimerLatch();
        pthread_cond_broadcast(&TimerPollCond);
        pthread_mutex_unlock(&h->pollingMutex);
        waitFor([&] { return loadFlag(h->execTerminate) != 0; }, 5000);
        dispatchFlagged = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        EXPECT_FALSE(done.load());
        pthread_mutex_lock(&h->pollingMutex);
        DispatchPollConditionMet = 1;
        pthread_cond_broadcast(&DispatchPollCond);
        pthread_mutex_unlock(&h->pollingMutex);
    });
    PollingHandler::term();
    done = true;
    helper.join();
    log.closedByLibrary();
    EXPECT_TRUE(dispatchFlagged.load());
}

TEST(HandlerThreads, LatchesAreNotCounters)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    startHandler(daemon, kx, MGMT_PROTOCOL_DIRECT);
    PollingHandler* h = thePollingHandler;
    EXPECT_EQ(h->wakeupCmdThread(), 0);
    EXPECT_EQ(h->wakeupCmdThread(), 0);
    EXPECT_EQ(latch(h, PollConditionMet), 1);
    EXPECT_EQ(h->waitTimerThread(), 0);
    EXPECT_EQ(latch(h, PollConditionMet), 0);
    // The second wake-up was absorbed by the first: a second wait blocks.
    std::atomic<bool> returned{false};
    std::thread t([&] {
        h->waitTimerThread();
        returned = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(returned.load());
    h->wakeupCmdThread();
    t.join();
    EXPECT_TRUE(returned.load());
    EXPECT_EQ(latch(h, PollConditionMet), 0);

    h->wakeupDispatchThread();
    EXPECT_EQ(latch(h, DispatchPollConditionMet), 1);
    EXPECT_EQ(h->waitExecutionTask(), 0);
    EXPECT_EQ(latch(h, DispatchPollConditionMet), 0);
    PollingHandler::term();
}

TEST(HandlerThreads, TimerLatchStaysSetOnceSet)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    startHandler(daemon, kx, MGMT_PROTOCOL_DIRECT);
    PollingHandler* h = thePollingHandler;
    h->getPollingLock();
    setTimerLatch();
    h->releasePollingLock();
    EXPECT_EQ(h->waitMainThread(), 0);
    EXPECT_EQ(h->waitMainThread(), 0);
    EXPECT_EQ(timerLatch(), 1);
    PollingHandler::term();
}

TEST(HandlerThreads, WaitCmdThreadDoneWithConditionSetReturnsAtOnce)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    startHandler(daemon, kx, MGMT_PROTOCOL_DIRECT);
    PollingHandler* h = thePollingHandler;
    h->getPollingLock();
    CmdPollConditionMet = 1;
    h->releasePollingLock();
    EXPECT_EQ(h->waitCmdThreadDone(), 0);
    EXPECT_EQ(latch(h, CmdPollConditionMet), 0);
    EXPECT_EQ(latch(h, CmdWaiters), 0);
    PollingHandler::term();
}

TEST(HandlerThreads, CycleWithoutWaiterIsNotRemembered)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    startHandler(daemon, kx, MGMT_PROTOCOL_DIRECT);
    PollingHandler* h = thePollingHandler;
    EXPECT_EQ(h->notifyCmdThreadDone(), 0);
    EXPECT_EQ(latch(h, CmdPollConditionMet), 0);
    PollingHandler::term();
}

TEST(HandlerThreads, TwoWaitersOneCycleWakesOne)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    startHandler(daemon, kx, MGMT_PROTOCOL_DIRECT);
    PollingHandler* h = thePollingHandler;
    std::atomic<int> returned{0};
    std::thread a([&] {
        h->waitCmdThreadDone();
        returned++;
    });
    std::thread b([&] {
        h->waitCmdThreadDone();
        returned++;
    });
    ASSERT_TRUE(waitFor([&] { return latch(h, CmdWaiters) == 2; }));
    h->notifyCmdThreadDone();
    // The broadcast wakes both; the first clears the latch, the second waits
    // on for the next cycle.
    ASSERT_TRUE(waitFor([&] { return returned.load() == 1; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(returned.load(), 1);
    EXPECT_EQ(latch(h, CmdWaiters), 1);
    EXPECT_EQ(latch(h, CmdPollConditionMet), 0);
    h->notifyCmdThreadDone();
    ASSERT_TRUE(waitFor([&] { return returned.load() == 2; }));
    a.join();
    b.join();
    EXPECT_EQ(latch(h, CmdWaiters), 0);
    EXPECT_EQ(latch(h, CmdPollConditionMet), 0);
    PollingHandler::term();
}

TEST(HandlerThreads, WakeupTimerThreadWithoutScanBroadcastsOnly)
{
    keepProcessOnSigterm();
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    LogCapture log;
    startHandler(daemon, kx, MGMT_PROTOCOL_BACKGROUND);
    PollingHandler* h = thePollingHandler;
    ASSERT_TRUE(waitFor([&] { return textCount(log, "wait\n") == 2; }));
    EXPECT_EQ(h->wakeupTimerThread(), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    // The timer woke, found the latch unset and waits on.
    EXPECT_EQ(timerLatch(), 0);
    EXPECT_EQ(textCount(log, "start\n"), 0u);
    EXPECT_EQ(textCount(log, "wait\n"), 2u);
    Rescuer rescuer(h, 0);
    PollingHandler::term();
    rescuer.join();
    log.closedByLibrary();
}

TEST(HandlerThreads, ScanReleasesTheTimerAndACycleRuns)
{
    keepProcessOnSigterm();
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    LogCapture log;
    startHandler(daemon, kx, MGMT_PROTOCOL_BACKGROUND);
    PollingHandler* h = thePollingHandler;
    ASSERT_TRUE(waitFor([&] { return textCount(log, "wait\n") == 2; }));

    // Only the node scan so far: the timer stays put.
    h->getPollingLock();
    h->recipe->nodeUpdateTime.tv_sec = 100;
    h->releasePollingLock();
    h->wakeupTimerThread();
    EXPECT_EQ(timerLatch(), 0);

    std::atomic<bool> cycleSeen{false};
    std::thread waiter([&] {
        h->waitCmdThreadDone();
        cycleSeen = true;
    });
    ASSERT_TRUE(waitFor([&] { return latch(h, CmdWaiters) == 1; }));

    // Both scans stamped: the next wake-up releases the timer for good.
    h->getPollingLock();
    h->recipe->diskSdrUpdateTime.tv_sec = 200;
    h->releasePollingLock();
    EXPECT_EQ(h->wakeupTimerThread(), 0);
    EXPECT_EQ(timerLatch(), 1);
    waiter.join();
    EXPECT_TRUE(cycleSeen.load());
    EXPECT_EQ(latch(h, CmdPollConditionMet), 0);
    ASSERT_TRUE(waitFor([&] { return textCount(log, "get disk access\n") == 1; }));
    EXPECT_EQ(textCount(log, "get fs manager\n"), 1u);
    EXPECT_EQ(textCount(log, "get mounted nodes\n"), 1u);
    EXPECT_EQ(textCount(log, "get fs config\n"), 1u);
    EXPECT_EQ(textCount(log, "handlerP->timer_terminate = 0\n"), 1u);
    EXPECT_EQ(textCount(log, "handlerP->terminate = 0\n"), 1u);

    // A signal cuts the timer's sleep short and brings the next tick forward.
    std::atomic<bool> secondCycle{false};
    std::thread waiter2([&] {
        h->waitCmdThreadDone();
        secondCycle = true;
    });
    ASSERT_TRUE(waitFor([&] { return latch(h, CmdWaiters) == 1; }));
    // (Signalled again until the tick comes, in case a signal lands just
    // before the timer has gone back to sleep.)
    auto end = Clock::now() + std::chrono::seconds(3);
    while (!secondCycle && Clock::now() < end) {
        pthread_kill(h->timerThread, SIGTERM);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    if (!secondCycle)
        h->notifyCmdThreadDone();
    waiter2.join();
    EXPECT_TRUE(secondCycle.load());
    EXPECT_GE(textCount(log, "get disk access\n"), 2u);

    // Let the command thread finish whatever ticks are pending and go idle.
    ASSERT_TRUE(waitFor([&] {
        size_t cycles = textCount(log, "handlerP->terminate = 0\n");
        return latch(h, PollConditionMet) == 0 && textCount(log, "get disk access\n") == cycles &&
               textCount(log, "wait\n") == cycles + 2;
    }));

    // Teardown: the command thread needs one more tick; the timer's sleep is
    // cut by the destructor's signal.
    Rescuer rescuer(h, 0);
    PollingHandler::term();
    rescuer.join();
    std::string text = log.text();
    log.closedByLibrary();
    EXPECT_NE(text.find("handlerP->terminate = 1\n"), std::string::npos);
    EXPECT_NE(text.find("handlerP->timer_terminate = 1\n"), std::string::npos);
    EXPECT_NE(text.find("Joined cmdThread\n"), std::string::npos);
    EXPECT_NE(text.find("Joined timerThread\n"), std::string::npos);
    EXPECT_NE(text.find("Joined dispatchThread\n"), std::string::npos);
    EXPECT_EQ(text.find("Couldn't"), std::string::npos);
}

TEST(HandlerThreads, CopyRecipeWaitsForTheLock)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    LogCapture log;
    startHandler(daemon, kx, MGMT_PROTOCOL_DIRECT);
    PollingHandler* h = thePollingHandler;
    MErrno err = 0;
    ClusterInfo tree(&err);
    strcpy(h->recipe->clusterName, "clu");
    h->getPollingLock();
    std::atomic<bool> copied{false};
    std::thread t([&] {
        h->copyRecipe(&tree);
        copied = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(copied.load());
    h->releasePollingLock();
    t.join();
    EXPECT_STREQ(tree.clusterName, "clu");
    PollingHandler::term();
    log.closedByLibrary();
}
