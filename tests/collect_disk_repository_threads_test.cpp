// The disk repository scan beside other threads: it takes no polling lock,
// and its wake-up releases a thread that waits for the timer condition.
#include "support/fake_tool.h"
#include "support/handler_fixture.h"
#include "support/tree_builder.h"
#include "support/worker_release.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>

using namespace qvtest;

namespace {

using Lines = std::vector<std::string>;

const std::string kLine = "vksdrquery:sdrq_nsd_info:0:1:::d1:fs1:p1:dataOnly:a:b:n1:n1:\n";

class DiskRepositoryThreads : public HandlerFixture
{
protected:
    FakeTool sdrquery{"vksdrquery"};

    void startWithNode()
    {
        startHandler();
        addNode(handler()->recipe, "n1", "10.0.0.1");
        sdrquery.output(kLine);
    }
};

} // namespace

TEST_F(DiskRepositoryThreads, ScanRunsWhileAnotherThreadHoldsThePollingLock)
{
    startWithNode();
    // Once the timer is released the scan calls no wake-up, and it takes no
    // lock of its own: it finishes while the lock is held elsewhere.
    setTimerLatch();
    ASSERT_EQ(handler()->getPollingLock(), 0);
    std::promise<int> done;
    std::future<int> result = done.get_future();
    std::thread scan([&] { done.set_value(handler()->updateDiskSDRInfo(0)); });
    bool finished = result.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
    ASSERT_EQ(handler()->releasePollingLock(), 0);
    scan.join();

    EXPECT_TRUE(finished) << "the scan waited for the polling lock";
    EXPECT_EQ(result.get(), 0);
    ASSERT_EQ(namesOf(handler()->recipe->filesystemItems), (Lines{"fs1"}));
    EXPECT_EQ(timerLatch(), 1);
}

TEST_F(DiskRepositoryThreads, WakeupReleasesAThreadWaitingForTheTimerCondition)
{
    startWithNode();
    handler()->recipe->nodeUpdateTime.tv_sec = 1000;
    std::promise<void> woken;
    std::future<void> wokenF = woken.get_future();
    std::thread waiter([&] {
        handler()->waitMainThread();
        woken.set_value();
    });

    EXPECT_EQ(handler()->updateDiskSDRInfo(0), 0);

    bool released = wokenF.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
    if (!released) {
        // Let the waiter go so that it can be joined.
        handler()->getPollingLock();
        setTimerLatch();
        pthread_cond_broadcast(&TimerPollCond);
        handler()->releasePollingLock();
    }
    waiter.join();
    EXPECT_TRUE(released);
    handler()->getPollingLock();
    EXPECT_EQ(timerLatch(), 1);
    handler()->releasePollingLock();
}
