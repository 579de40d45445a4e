// Statistics updates from application threads while the background poll of
// protocol 1 runs its cycles: the updates, the cycles and copies of the
// recipe exclude one another through the polling lock, and the sanitizers
// watch the shared records.
#include <quelvane/quelvane.h>
#include <quelvane/cluster_info.h>
#include <quelvane/rpc_stats_info.h>

#include "support/fake_cluster.h"
#include "support/files.h"
#include "support/handler_fixture.h"
#include "support/worker_release.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace qvtest;

namespace {

const char* const kLogPath = "/tmp/stats_beside_poll.log";

class StatsBesidePoll : public HandlerFixture
{
protected:
    FakeCluster cluster{daemon};

    // The command thread stands in its wait with no tick pending: it stays
    // there while nobody ticks.
    bool commandThreadIdle()
    {
        std::string last;
        for (const std::string& l : splitLines(readFile(kLogPath)))
            if (l.find("PollingHandler::cmdHandlerBody: ") != std::string::npos)
                last = l.substr(l.find("cmdHandlerBody: ") + 16);
        handler()->getPollingLock();
        bool pending = PollConditionMet != 0;
        handler()->releasePollingLock();
        return last == "wait" && !pending;
    }
};

} // namespace

TEST_F(StatsBesidePoll, UpdatesOfTwoThreadsWhileCyclesRun)
{
    alarm(60);
    keepProcessOnSigterm();
    cluster.model = smallCluster();
    cluster.script();
    daemon.respondAlways("tavrel chms", {"_tavrel _n_ 10.0.0.1 _rc_ 0 _dch_ 1", "_tavrel _n_ 10.0.0.3 _rc_ 0 _dch_ 3"});
    daemon.respondAlways("tavrel threads", {"_tavrel _n_ 10.0.0.2 _rc_ 0 _seq_ 2"});
    daemon.respondAlways("tavrel cfgmgr", {"_tavrel _n_ 10.0.0.1 _rc_ 0 _host_ h1", "_tavrel::cfgmgr_ _n_ x _rc_ 0 _host_ h2"});
    daemon.respondAlways("tavrel pncs", {"_tavrel::pncs_ _n_ 10.0.0.2 _rc_ 0 _fset_ f1"});
    daemon.respondAlways("tavrel rpcs size", {"_tavrel _n_ 10.0.0.1 _rc_ 0", "_rpcSize_ _size_ 8 _nsecs_ 2",
                                              "_stats_ _tmu_ sec _av_ 1", "_subresponse_"});
    daemon.respondAlways("tavrel rpcs raw", {"_tavrel _n_ 10.0.0.2 _rc_ 0", "_rpcstat_ _rpcstatcnt_ 2",
                                             "_stat_ _cw_ 5", "_subresponse_"});
    daemon.respondAlways("tavrel rpcs", {"_tavrel _n_ 10.0.0.3 _rn_ 10.0.0.1 _rnn_ n1 _rc_ 0",
                                         "_rpcObj_ _obj_ AG_STAT_CHANNEL_WAIT _nsecs_ 3", "_stats_ _tmu_ sec _av_ 2",
                                         "_subresponse_"});
    // The log is opened before the threads exist; the marker file makes
    // init keep it.
    writeFile("/tmp/enableQuelvaneLog", "");
    QuelvaneLogFileP = fopen(kLogPath, "w+");
    ASSERT_NE(QuelvaneLogFileP, nullptr);
    startHandler(POLL_LOCAL_CLUSTER, 0, MGMT_PROTOCOL_BACKGROUND);
    PollingHandler* h = handler();
    MErrno err = 0;
    std::unique_ptr<ClusterInfo> appA(new ClusterInfo(&err));
    ASSERT_EQ(h->updateNodeInfo(appA.get(), 0), 0);
    ASSERT_EQ(h->updateDiskSDRInfo(0), 0);   // releases the timer: the first cycle runs
    std::unique_ptr<ClusterInfo> appB(new ClusterInfo(&err));
    ASSERT_EQ(h->copyRecipe(appB.get()), 0);

    std::atomic<bool> stop{false};
    std::atomic<int> failures{0};
    std::atomic<int> rounds{0};
    // The ticks the timer would give every 300 seconds, much faster.
    std::thread ticker([&] {
        while (!stop.load()) {
            h->wakeupCmdThread();
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
        }
    });
    std::thread statsA([&] {
        while (!stop.load()) {
            failures += h->updateCacheStatsInfo(appA.get()) != 0;
            failures += h->updateThreadUtilInfo(appA.get()) != 0;
            failures += h->updateClusterCfgInfo(appA.get()) != 0;
            failures += h->updatePCacheStatsInfo(appA.get()) != 0;
            rounds++;
        }
    });
    std::thread statsB([&] {
        while (!stop.load()) {
            failures += h->updateRPCSizeUtilInfo(appB.get(), 0, 0) != 0;
            failures += h->updateRPCRawUtilInfo(appB.get()) != 0;
            failures += h->updateRPCUtilInfo(appB.get(), 1, 10) != 0;
            failures += h->updateClusterCfgInfo(appB.get()) != 0;
        }
    });
    std::this_thread::sleep_for(std::chrono::seconds(3));
    stop.store(true);
    statsA.join();
    statsB.join();
    ticker.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_GT(rounds.load(), 5);

    // Both application trees hold what the last updates gave them.
    EXPECT_EQ(appA->nodeItems[0]->cacheStats->dcHits, 1u);
    EXPECT_EQ(appA->nodeItems[2]->cacheStats->dcHits, 3u);
    ASSERT_EQ(appA->clusterCfgItems.size(), 2u);
    EXPECT_STREQ(appA->clusterCfgItems.back()->hostName, "h2");
    EXPECT_EQ(appB->nodeItems[0]->rpcSizeUtil->sizes[0], 8u);
    EXPECT_EQ(appB->nodeItems[1]->rpcRawUtil->statItems[0].cw, 5u);
    EXPECT_EQ(appB->nodeItems[2]->rpcUtil->nodeUtilP[0]->statP[0]->numSecs, 1u);

    // The handler ends once the command thread has finished its cycle.
    for (int i = 0; i < 2000 && !commandThreadIdle(); i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ASSERT_TRUE(commandThreadIdle());
    releaseWorkerThreads(h);
    stopHandler();
    appA.reset();
    appB.reset();
    alarm(0);
}
