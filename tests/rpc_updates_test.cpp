// RPC time series updates: the nested responses of "tavrel rpcs" and its four
// forms, limits and time units, and what each tree holds afterwards.
#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>
#include <quelvane/rpc_stats_info.h>

#include "../poll/statistics/shared_records_internal.h"
#include "support/handler_fixture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

using namespace qvtest;

namespace {

std::string addr(int k)
{
    return "10.0.0." + std::to_string(k + 1);
}

std::string stats(const char* unit, int v)
{
    std::string s = std::to_string(v);
    return std::string("_stats_ _tmu_ ") + unit + " _av_ " + s + ".5 _min_ " + s + " _max_ " + s + "9 _cnt_ " + s;
}

class RpcUpdate : public HandlerFixture
{
protected:
    std::unique_ptr<ClusterInfo> app;

    void startWithNodes(int n)
    {
        startHandler(POLL_LOCAL_CLUSTER);
        for (int k = 0; k < n; k++) {
            MErrno err = 0;
            NodeInfo* node = new NodeInfo(&err);
            snprintf(node->ipAddr, sizeof(node->ipAddr), "%s", addr(k).c_str());
            strcpy(node->status, "up");
            handler()->recipe->nodeItems.push_back(node);
        }
        MErrno err = 0;
        app.reset(new ClusterInfo(&err));
        ASSERT_EQ(handler()->copyRecipe(app.get()), 0);
    }
    NodeInfo* mine(int k) { return handler()->recipe->nodeItems[static_cast<size_t>(k)]; }
    NodeInfo* theirs(int k) { return app->nodeItems[static_cast<size_t>(k)]; }

    void expectSample(PerfSample* p, int v)
    {
        EXPECT_EQ(p->av, v + 0.5);
        EXPECT_EQ(p->min, static_cast<double>(v));
        EXPECT_EQ(p->max, v * 10 + 9.0);
        EXPECT_EQ(p->cnt, static_cast<uint64_t>(v));
    }
};

} // namespace

TEST_F(RpcUpdate, TimeUnitAndCountAreCheckedBeforeTheLock)
{
    startWithNodes(1);
    PollingHandler* h = handler();
    h->getPollingLock();   // held: a call that took the lock would hang
    EXPECT_EQ(h->updateRPCUtilInfo(app.get(), 5, 1), 1);
    EXPECT_EQ(h->updateRPCUtilInfo(app.get(), -1, 1), 1);
    EXPECT_EQ(h->updateRPCUtilInfo(app.get(), 1, 61), 1);
    EXPECT_EQ(h->updateRPCUtilInfo(app.get(), 1, 0), 1);
    EXPECT_EQ(h->updateRPCSizeUtilInfo(app.get(), 3, 25), 1);
    EXPECT_EQ(h->updateRPCMsgUtilInfo(app.get(), 4, 31), 1);
    EXPECT_EQ(h->updateRPCUtilInfo(app.get(), 2, 61), 1);
    h->releasePollingLock();
    daemon.respondAlways("tavrel rpcs", Response(std::vector<std::string>{}));
    EXPECT_EQ(h->updateRPCUtilInfo(app.get(), 3, 24), 0);
    EXPECT_EQ(h->updateRPCUtilInfo(app.get(), 4, 30), 0);
    EXPECT_EQ(h->updateRPCUtilInfo(app.get(), 1, 60), 0);
    EXPECT_EQ(requestsSinceStart(), (std::vector<std::string>{"tavrel rpcs", "tavrel rpcs", "tavrel rpcs"}));
}

TEST_F(RpcUpdate, PeersObjectsAndSamplesOnBothTrees)
{
    startWithNodes(3);
    daemon.respond("tavrel rpcs",
                   {"_tavrel _n_ 10.0.0.1 _rn_ 10.0.0.2 _rnn_ node2 _rc_ 0",
                    "_rpcObj_ _obj_ AG_STAT_CHANNEL_WAIT _nsecs_ 3 _nmins_ 2 _nhours_ 1 _ndays_ 1",
                    stats("sec", 1), stats("min", 2), stats("sec", 3), stats("hour", 4), stats("day", 5),
                    stats("sec", 6), "_rpcObj_ _obj_ AG_STAT_RPC_LATENCY_TCP _nsecs_ 2", stats("sec", 7),
                    "_subresponse_ end", "_tavrel _n_ 10.0.0.1 _rn_ 10.0.0.3 _rnn_ node3 _rc_ 1",
                    "_tavrel _n_ 10.0.0.3 _rn_ 10.0.0.1 _rnn_ node1 _rc_ 0", "_rpcObj_ _obj_ o _nhours_ 1",
                    stats("hour", 8), "_subresponse_"});
    ASSERT_EQ(handler()->updateRPCUtilInfo(app.get(), 0, 0), 0);
    RPCUtilInfo* r = mine(0)->rpcUtil;
    ASSERT_EQ(r->nNodeUtil, 2u);
    NodeUtilInfo* peer = r->nodeUtilP[0];
    EXPECT_STREQ(peer->remoteName, "node2");
    EXPECT_STREQ(peer->remoteAddr, "10.0.0.2");
    ASSERT_EQ(peer->nStats, 2);
    AggregatedRPCPerfStat* s = peer->statP[0];
    EXPECT_STREQ(s->objName, "AG_STAT_CHANNEL_WAIT");
    EXPECT_EQ(s->numSecs, 3u);
    EXPECT_EQ(s->numMins, 1u);
    EXPECT_EQ(s->numHours, 1u);
    EXPECT_EQ(s->numDays, 1u);
    expectSample(s->getSecs(0), 1);
    expectSample(s->getSecs(1), 3);
    expectSample(s->getMins(0), 2);
    expectSample(s->getHours(0), 4);
    expectSample(s->getDays(0), 5);
    expectSample(s->getSecs(2), 6);
    EXPECT_EQ(peer->statP[1]->numSecs, 1u);
    expectSample(peer->statP[1]->getSecs(0), 7);
    // A failed line leaves a peer without objects.
    EXPECT_STREQ(r->nodeUtilP[1]->remoteName, "node3");
    EXPECT_EQ(r->nodeUtilP[1]->nStats, 0);
    // The application's copy keeps the counts and sample 0 only.
    RPCUtilInfo* t = theirs(0)->rpcUtil;
    ASSERT_NE(t, r);
    ASSERT_EQ(t->nNodeUtil, 2u);
    AggregatedRPCPerfStat* ts = t->nodeUtilP[0]->statP[0];
    EXPECT_EQ(ts->numSecs, 3u);
    expectSample(ts->getSecs(0), 1);
    EXPECT_EQ(ts->getSecs(1)->av, 0.0);
    EXPECT_EQ(s->getSecs(1)->av, 3.5);
    EXPECT_EQ(mine(2)->rpcUtil->nodeUtilP[0]->statP[0]->numHours, 1u);
    EXPECT_EQ(mine(1)->rpcUtil->nNodeUtil, 0u);
}

TEST_F(RpcUpdate, TheLineThatFillsTheLastSlotLosesItsValues)
{
    // Once its _tmu_ has taken the last free slot of every unit, the rest
    // of the line is dropped word by word.
    startWithNodes(1);
    daemon.respond("tavrel rpcs", {"_tavrel _n_ 10.0.0.1 _rn_ x _rnn_ y _rc_ 0", "_rpcObj_ _obj_ o _nsecs_ 2",
                                   stats("sec", 1), stats("sec", 2), stats("sec", 3), "_subresponse_"});
    ASSERT_EQ(handler()->updateRPCUtilInfo(app.get(), 0, 0), 0);
    AggregatedRPCPerfStat* s = mine(0)->rpcUtil->nodeUtilP[0]->statP[0];
    EXPECT_EQ(s->numSecs, 2u);
    expectSample(s->getSecs(0), 1);
    EXPECT_EQ(s->getSecs(1)->av, 0.0);
    EXPECT_EQ(s->getSecs(1)->cnt, 0u);
}

TEST_F(RpcUpdate, FixedUnitsKeepTheirCountAndDropTheRest)
{
    startWithNodes(1);
    std::vector<std::string> lines = {"_tavrel _n_ 10.0.0.1 _rn_ x _rnn_ y _rc_ 0", "_rpcObj_ _obj_ o _nsecs_ 9"};
    for (int i = 0; i < 5; i++)
        lines.push_back(stats("min", 10 + i));
    for (int i = 0; i < 10; i++)
        lines.push_back(stats("sec", 20 + i));
    lines.push_back("_subresponse_");
    daemon.respond("tavrel rpcs", Response(lines));
    ASSERT_EQ(handler()->updateRPCUtilInfo(app.get(), 2, 3), 0);
    AggregatedRPCPerfStat* s = mine(0)->rpcUtil->nodeUtilP[0]->statP[0];
    EXPECT_EQ(s->numMins, 3u);
    EXPECT_EQ(s->numSecs, 0u);
    EXPECT_EQ(s->secs, nullptr);
    expectSample(s->getMins(0), 10);
    expectSample(s->getMins(1), 11);
}

TEST_F(RpcUpdate, OddLinesOfASample)
{
    startWithNodes(1);
    daemon.respond("tavrel rpcs",
                   {"_tavrel _n_ 10.0.0.1 _rn_ x _rnn_ y _rc_ 0", "_rpcObj_ _obj_ o _nsecs_ 5 _nmins_ 2",
                    "_stats_ _tmu_ week _av_ 3 _cnt_ 3",                       // no such unit
                    "_stats_ _av_ 4 _tmu_ sec _min_ 4",                         // _av_ before _tmu_
                    "_stats_ _tmu_ sec _av_ 5 _min_ 5 _max_ 5 _cnt_ 5 _cnt_ 6", // a sixth keyword
                    "_stats_ _tmu_ min _bogus_ 1 _av_ 7", "_subresponse_"});
    ASSERT_EQ(handler()->updateRPCUtilInfo(app.get(), 0, 0), 0);
    AggregatedRPCPerfStat* s = mine(0)->rpcUtil->nodeUtilP[0]->statP[0];
    EXPECT_EQ(s->numSecs, 2u);
    EXPECT_EQ(s->getSecs(0)->av, 0.0);
    EXPECT_EQ(s->getSecs(0)->min, 4.0);
    EXPECT_EQ(s->getSecs(1)->cnt, 5u);
    EXPECT_EQ(s->getMins(0)->av, 7.0);
}

TEST_F(RpcUpdate, MissingLimitsAndSizes)
{
    startWithNodes(1);
    daemon.respond("tavrel rpcs size", {"_tavrel _n_ 10.0.0.1 _rc_ 0", "_rpcSize_ _nmins_ 2", stats("sec", 1),
                                        stats("min", 2), "_subresponse_"});
    ASSERT_EQ(handler()->updateRPCSizeUtilInfo(app.get(), 0, 0), 0);
    RPCSizeUtilInfo* r = mine(0)->rpcSizeUtil;
    EXPECT_EQ(r->nSizes, 1);
    EXPECT_EQ(r->sizes[0], 0u);
    EXPECT_EQ(r->statP[0]->secs, nullptr);
    EXPECT_EQ(r->statP[0]->numSecs, 0u);
    EXPECT_STREQ(r->statP[0]->objName, "");
    expectSample(r->statP[0]->getMins(0), 2);
}

TEST_F(RpcUpdate, SizeUpdatePutsHourSamplesIntoMinutes)
{
    startWithNodes(2);
    daemon.respond("tavrel rpcs size",
                   {"_tavrel _n_ 10.0.0.1 _rc_ 0", "_rpcSize_ _size_ 4096 _nmins_ 3 _nhours_ 1", stats("min", 2),
                    stats("hour", 1), stats("min", 3), "_rpcSize_ _size_ 8192 _nmins_ 2 _nhours_ 2", stats("min", 4),
                    stats("min", 6), stats("hour", 5), "_subresponse_", "_tavrel _n_ 10.0.0.2 _rc_ 0",
                    "_rpcSize_ _size_ 1 _nsecs_ 2 _ndays_ 2", stats("day", 7), stats("day", 8), stats("sec", 9),
                    "_subresponse_"});
    ASSERT_EQ(handler()->updateRPCSizeUtilInfo(app.get(), 0, 0), 0);
    RPCSizeUtilInfo* r = mine(0)->rpcSizeUtil;
    ASSERT_EQ(r->nSizes, 2);
    EXPECT_EQ(r->sizes[0], 4096u);
    EXPECT_EQ(r->sizes[1], 8192u);
    AggregatedRPCPerfStat* a = r->statP[0];
    // The hour sample raised numHours and overwrote mins[0], which the first
    // minute line had filled; the next minute line took mins[1].
    EXPECT_EQ(a->numHours, 1u);
    EXPECT_EQ(a->numMins, 2u);
    expectSample(a->getMins(0), 1);
    expectSample(a->getMins(1), 3);
    EXPECT_EQ(a->hours[0].av, 0.0);
    AggregatedRPCPerfStat* b = r->statP[1];
    EXPECT_EQ(b->numHours, 1u);
    EXPECT_EQ(b->numMins, 2u);
    // After both minute lines, the hour line overwrote minute 4.
    expectSample(b->getMins(0), 5);
    expectSample(b->getMins(1), 6);
    EXPECT_EQ(mine(1)->rpcSizeUtil->statP[0]->numDays, 2u);
    expectSample(mine(1)->rpcSizeUtil->statP[0]->getDays(1), 8);
    // The application's tree shares the very same series.
    EXPECT_EQ(theirs(0)->rpcSizeUtil->statP[1], b);
    EXPECT_EQ(theirs(0)->rpcSizeUtil->nSizes, 2);
    EXPECT_EQ(theirs(0)->rpcSizeUtil->sizes[1], 8192u);
}

TEST_F(RpcUpdate, SizeUpdateInHoursEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    startWithNodes(1);
    daemon.respondAlways("tavrel rpcs size",
                         {"_tavrel _n_ 10.0.0.1 _rc_ 0", "_rpcSize_ _size_ 1", stats("hour", 1), "_subresponse_"});
    EXPECT_DEATH(handler()->updateRPCSizeUtilInfo(app.get(), 3, 2),
                 "PerfSample\\* AggregatedRPCPerfStat::getMins\\(int\\): Assertion `n < numMins' failed");
}

TEST_F(RpcUpdate, TooManyBucketsEndTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    startWithNodes(1);
    std::vector<std::string> lines = {"_tavrel _n_ 10.0.0.1 _rc_ 0"};
    for (int i = 0; i < 27; i++) {
        lines.push_back("_rpcSize_ _size_ " + std::to_string(i));
        lines.push_back(stats("sec", i));
    }
    daemon.respondAlways("tavrel rpcs size", Response(lines));
    EXPECT_DEATH(handler()->updateRPCSizeUtilInfo(app.get(), 1, 1),
                 "void RPCSizeUtilInfo::setRPCPerfStatObj\\(AggregatedRPCPerfStat\\*, int\\): Assertion `n < 26' failed");
}

TEST_F(RpcUpdate, MessageTypesKeepTheirNamesAndHours)
{
    startWithNodes(1);
    daemon.respond("tavrel rpcs message",
                   {"_tavrel _n_ 10.0.0.1 _rc_ 0", "_rpcObj_ _obj_ msgA _nhours_ 2", stats("hour", 1), stats("hour", 2),
                    "_rpcObj_ _obj_ msgB _ndays_ 2", stats("day", 3), "_subresponse_", "_tavrel _n_ 10.0.0.9 _rc_ 0",
                    "_rpcObj_ _obj_ lost"});
    ASSERT_EQ(handler()->updateRPCMsgUtilInfo(app.get(), 0, 0), 0);
    RPCMsgUtilInfo* r = theirs(0)->rpcMsgUtil;
    ASSERT_EQ(r->nStats, 2);
    EXPECT_STREQ(r->statP[0]->objName, "msgA");
    EXPECT_EQ(r->statP[0]->numHours, 2u);
    expectSample(r->statP[0]->getHours(0), 1);
    EXPECT_STREQ(r->statP[1]->objName, "msgB");
    expectSample(r->statP[1]->getDays(0), 3);
    EXPECT_EQ(r->statP[0], mine(0)->rpcMsgUtil->statP[0]);
    EXPECT_EQ(qv::shareHolders(r->statP[0]), 2);
}

TEST_F(RpcUpdate, PerSecondValuesAreOneSampleAnObject)
{
    startWithNodes(1);
    daemon.respond("tavrel rpcs ns", {"_tavrel _n_ 10.0.0.1 _rc_ 0", "_rpcObj_ _obj_ AG_STAT_CHANNEL_WAIT",
                                      stats("sec", 1), stats("min", 2), "_rpcObj_ _obj_ AG_STAT_SEND_TIME_TCP",
                                      stats("day", 3), "_subresponse_"});
    ASSERT_EQ(handler()->updateRPCUtilInfoPerSec(app.get()), 0);
    AggregatedRPCUtilInfoPerSec* r = theirs(0)->rpcUtilPerSec;
    ASSERT_EQ(r->nStats, 2);
    EXPECT_NE(r, mine(0)->rpcUtilPerSec);
    EXPECT_NE(r->statP[0], mine(0)->rpcUtilPerSec->statP[0]);
    // The later line of the object overwrote the one sample; the name is
    // not kept.
    EXPECT_EQ(r->statP[0]->av, 2.5);
    EXPECT_EQ(r->statP[0]->cnt, 2u);
    EXPECT_STREQ(r->statP[0]->objName, "");
    EXPECT_EQ(r->statP[1]->max, 39.0);
}

TEST_F(RpcUpdate, RawTablesStepOneRecordAWord)
{
    startWithNodes(1);
    daemon.respond("tavrel rpcs raw",
                   {"_tavrel _n_ 10.0.0.1 _rc_ 0", "_rpcstat_ _rpcstator_ 3 _rpcstatcnt_ 12",
                    "_stat_ _cw_ 1 _st_ 2 _rt_ 3 _rpclt_ 4 _ds_ 5 _dr_ 6 _rdmas_ 7 _rdmar_ 0 _ni_ 9 _cw_ 99",
                    "_stat_ _x_ _cw_ 10", "_rpcexec_ _rpcexecor_ 4 _rpcexeccnt_ 3",
                    "_stat_ _rpcet_ 11 _rpcsn_ 65537 _rpcmt_ 4294967299", "_subresponse_"});
    ASSERT_EQ(handler()->updateRPCRawUtilInfo(app.get()), 0);
    RPCRawUtilInfo* r = theirs(0)->rpcRawUtil;
    EXPECT_EQ(r->statOr, 3);
    EXPECT_EQ(r->statCnt, 12);
    EXPECT_EQ(r->statItems[0].cw, 1u);
    EXPECT_EQ(r->statItems[1].st, 2u);
    EXPECT_EQ(r->statItems[2].rt, 3u);
    EXPECT_EQ(r->statItems[3].rpclt, 4u);
    EXPECT_EQ(r->statItems[4].ds, 5u);
    EXPECT_EQ(r->statItems[5].dr, 6u);
    EXPECT_EQ(r->statItems[6].rdmas, 1);
    EXPECT_EQ(r->statItems[7].rdmar, 0);
    EXPECT_EQ(r->statItems[8].ni, 9u);
    EXPECT_EQ(r->statItems[0].st, 0u);
    // The next line starts at index 9; "_x_" uses record 9 up.
    EXPECT_EQ(r->statItems[9].cw, 0u);
    EXPECT_EQ(r->statItems[10].cw, 10u);
    EXPECT_EQ(r->execOr, 4);
    EXPECT_EQ(r->execCnt, 3);
    EXPECT_EQ(r->execItems[0].rpcet, 11u);
    EXPECT_EQ(r->execItems[1].rpcsn, 1u);
    EXPECT_EQ(r->execItems[2].rpcmt, 3u);
    EXPECT_EQ(r->statItems, mine(0)->rpcRawUtil->statItems);
}

TEST_F(RpcUpdate, RecordsOutliveTheirNodesAndTheRecipesNextUpdate)
{
    startWithNodes(1);
    daemon.respondAlways("tavrel rpcs size",
                         {"_tavrel _n_ 10.0.0.1 _rc_ 0", "_rpcSize_ _size_ 7 _nsecs_ 2", stats("sec", 1), "_subresponse_"});
    ASSERT_EQ(handler()->updateRPCSizeUtilInfo(app.get(), 0, 0), 0);
    RPCSizeUtilInfo* kept = theirs(0)->rpcSizeUtil;
    AggregatedRPCPerfStat* series = kept->statP[0];
    // The application's tree goes; its node did not destroy the record.
    app.reset();
    EXPECT_EQ(kept->statP[0], series);
    EXPECT_EQ(kept->sizes[0], 7u);
    expectSample(series->getSecs(0), 1);
    delete kept;   // the application may give it back itself
    // The recipe's record still holds the series.
    expectSample(mine(0)->rpcSizeUtil->statP[0]->getSecs(0), 1);
}
