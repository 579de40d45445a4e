// The RPC time series records: capacities and fill counts, the element-0
// copy rule, the bounds that end the process, and series shared by pointer.
#include <quelvane/rpc_stats_info.h>

#include "../poll/statistics/shared_records_internal.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

char* s(const char* t)
{
    return const_cast<char*>(t);
}

std::string assertion(const std::string& function, const std::string& expr)
{
    std::string f;
    for (char c : function) {
        if (std::string("()*[]").find(c) != std::string::npos)
            f += '\\';
        f += c;
    }
    return "api_poll\\.cpp:[0-9]+: " + f + ": Assertion `" + expr + "' failed";
}

class RpcRecordsDeath : public ::testing::Test
{
protected:
    RpcRecordsDeath() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

} // namespace

TEST(RpcRecords, NewSeriesHasCapacityButNoFill)
{
    AggregatedRPCPerfStat a(3, 0, 0, 0, s("AG_STAT_CHANNEL_WAIT"));
    ASSERT_NE(a.secs, nullptr);
    EXPECT_EQ(a.mins, nullptr);
    EXPECT_EQ(a.hours, nullptr);
    EXPECT_EQ(a.days, nullptr);
    EXPECT_EQ(a.numSecs, 0u);
    EXPECT_EQ(a.numMins, 0u);
    EXPECT_EQ(a.numHours, 0u);
    EXPECT_EQ(a.numDays, 0u);
    EXPECT_STREQ(a.objName, "AG_STAT_CHANNEL_WAIT");
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(a.secs[i].av, 0.0);
        EXPECT_EQ(a.secs[i].cnt, 0u);
    }
    AggregatedRPCPerfStat unnamed(0, 1, 1, 1, nullptr);
    EXPECT_STREQ(unnamed.objName, "");
    EXPECT_EQ(unnamed.secs, nullptr);
    AggregatedRPCPerfStat empty;
    EXPECT_EQ(empty.secs, nullptr);
    EXPECT_EQ(empty.numDays, 0u);
}

TEST_F(RpcRecordsDeath, AccessorsEndTheProcessBeyondTheFillCount)
{
    AggregatedRPCPerfStat a(3, 3, 3, 3, s("x"));
    EXPECT_DEATH(a.getSecs(0), assertion("PerfSample* AggregatedRPCPerfStat::getSecs(int)", "n < numSecs"));
    EXPECT_DEATH(a.getMins(0), assertion("PerfSample* AggregatedRPCPerfStat::getMins(int)", "n < numMins"));
    EXPECT_DEATH(a.getHours(0), assertion("PerfSample* AggregatedRPCPerfStat::getHours(int)", "n < numHours"));
    EXPECT_DEATH(a.getDays(0), assertion("PerfSample* AggregatedRPCPerfStat::getDays(int)", "n < numDays"));
    a.numSecs = 1;
    EXPECT_EQ(a.getSecs(0), &a.secs[0]);
    EXPECT_DEATH(a.getSecs(1), assertion("PerfSample* AggregatedRPCPerfStat::getSecs(int)", "n < numSecs"));
}

TEST(RpcRecords, CopiesKeepOnlyTheFirstSample)
{
    AggregatedRPCPerfStat a(3, 2, 0, 1, s("AG_STAT_RPC_LATENCY_TCP"));
    a.numSecs = 2;
    a.getSecs(0)->av = 1.5;
    a.getSecs(1)->av = 2.5;
    a.getSecs(1)->cnt = 7;
    a.numDays = 1;
    a.getDays(0)->max = 9;
    AggregatedRPCPerfStat copy(a);
    EXPECT_EQ(copy.numSecs, 2u);
    EXPECT_EQ(copy.numMins, 0u);
    EXPECT_EQ(copy.mins, nullptr);   // made for its count: none
    EXPECT_STREQ(copy.objName, "AG_STAT_RPC_LATENCY_TCP");
    EXPECT_EQ(copy.getSecs(0)->av, 1.5);
    EXPECT_EQ(copy.getSecs(1)->av, 0.0);
    EXPECT_EQ(copy.getSecs(1)->cnt, 0u);
    EXPECT_EQ(a.getSecs(1)->av, 2.5);
    EXPECT_EQ(copy.getDays(0)->max, 9.0);
    AggregatedRPCPerfStat assigned(5, 5, 5, 5, s("old"));
    assigned = a;
    EXPECT_EQ(assigned.numSecs, 2u);
    EXPECT_STREQ(assigned.objName, "AG_STAT_RPC_LATENCY_TCP");
    EXPECT_EQ(assigned.getSecs(1)->av, 0.0);
}

TEST(RpcRecords, ObjectNamesMapToTheirIndex)
{
    EXPECT_EQ(getRPCObject(s("AG_STAT_CHANNEL_WAIT")), 0);
    EXPECT_EQ(getRPCObject(s("AG_STAT_SEND_TIME_TCP")), 1);
    EXPECT_EQ(getRPCObject(s("AG_STAT_SEND_TIME_VERBS")), 2);
    EXPECT_EQ(getRPCObject(s("AG_STAT_RECEIVE_TIME_TCP")), 3);
    EXPECT_EQ(getRPCObject(s("AG_STAT_RPC_LATENCY_TCP")), 4);
    EXPECT_EQ(getRPCObject(s("AG_STAT_RPC_LATENCY_VERBS")), 5);
    EXPECT_EQ(getRPCObject(s("AG_STAT_RPC_LATENCY_MIXED")), 6);
    EXPECT_EQ(getRPCObject(s("AG_STAT_RPC_LATENCY_MIXED ")), 999);
    EXPECT_EQ(getRPCObject(s("")), 999);
}

TEST_F(RpcRecordsDeath, SlotBoundsEndTheProcess)
{
    MErrno err = 0;
    RPCSizeUtilInfo size(&err);
    size.setRPCPerfStatObj(new AggregatedRPCPerfStat(), 25);
    EXPECT_NE(size.statP[25], nullptr);
    EXPECT_DEATH(size.setRPCPerfStatObj(nullptr, 26),
                 assertion("void RPCSizeUtilInfo::setRPCPerfStatObj(AggregatedRPCPerfStat*, int)", "n < 26"));
    RPCMsgUtilInfo msg(&err);
    msg.setRPCPerfStatObj(new AggregatedRPCPerfStat(), 1249);
    EXPECT_NE(msg.statP[1249], nullptr);
    EXPECT_DEATH(msg.setRPCPerfStatObj(nullptr, 1250),
                 assertion("void RPCMsgUtilInfo::setRPCPerfStatObj(AggregatedRPCPerfStat*, int)", "n < 26 \\* 48 \\+ 2"));
    AggregatedRPCUtilInfoPerSec perSec;
    perSec.setRPCPerfStatObj(new AggregatedRPCPerfStatPerSec(), 6);
    EXPECT_DEATH(perSec.setRPCPerfStatObj(nullptr, 7),
                 assertion("void AggregatedRPCUtilInfoPerSec::setRPCPerfStatObj(AggregatedRPCPerfStatPerSec*, int)",
                           "n < 7"));
}

TEST(RpcRecords, ClearingOneSideOfASharedTableLeavesTheOtherReadable)
{
    MErrno err = 0;
    RPCSizeUtilInfo* a = new RPCSizeUtilInfo(&err);
    RPCSizeUtilInfo* b = new RPCSizeUtilInfo(&err);
    AggregatedRPCPerfStat* series = new AggregatedRPCPerfStat(2, 0, 0, 0, nullptr);
    series->numSecs = 1;
    series->getSecs(0)->av = 4.5;
    a->setRPCPerfStatObj(series, 0);
    a->sizes[0] = 512;
    a->nSizes = 1;
    *b = *a;
    EXPECT_EQ(b->statP[0], series);
    EXPECT_EQ(b->sizes[0], 512u);
    EXPECT_EQ(qv::shareHolders(series), 2);
    a->clearStats();
    EXPECT_EQ(a->statP[0], nullptr);
    EXPECT_EQ(a->nSizes, 0);
    EXPECT_EQ(a->sizes[0], 0u);
    // The other record still holds the series, and it is whole.
    EXPECT_EQ(b->statP[0], series);
    EXPECT_EQ(b->statP[0]->getSecs(0)->av, 4.5);
    EXPECT_EQ(qv::shareHolders(series), 1);
    delete a;
    delete b;   // the last holder: the series goes (the sanitizers see a leak or a double free otherwise)
}

TEST(RpcRecords, SharedTablesSurviveRepeatedAssignmentAndDestruction)
{
    MErrno err = 0;
    RPCMsgUtilInfo* recipe = new RPCMsgUtilInfo(&err);
    RPCMsgUtilInfo* app = new RPCMsgUtilInfo(&err);
    RPCRawUtilInfo* rawA = new RPCRawUtilInfo(&err);
    RPCRawUtilInfo* rawB = new RPCRawUtilInfo(&err);
    for (int round = 0; round < 10; round++) {
        recipe->clearStats();
        app->clearStats();
        rawA->clearStats();
        rawB->clearStats();
        for (int i = 0; i < 3; i++)
            recipe->setRPCPerfStatObj(new AggregatedRPCPerfStat(1, 1, 1, 1, s("o")), i);
        recipe->nStats = 3;
        rawA->statItems = new RPCRawStat[4];
        rawA->statCnt = 4;
        rawA->execItems = new RPCRawExec[2];
        rawA->execCnt = 2;
        *app = *recipe;
        *rawB = *rawA;
        *rawB = *rawA;   // a second assignment holds nothing twice
        EXPECT_EQ(app->statP[2], recipe->statP[2]);
        EXPECT_EQ(rawB->statItems, rawA->statItems);
        EXPECT_EQ(qv::shareHolders(rawA->statItems), 2);
    }
    delete recipe;
    EXPECT_EQ(app->statP[0]->numSecs, 0u);
    delete app;
    delete rawB;
    EXPECT_EQ(rawA->statItems[3].cw, 0u);
    delete rawA;
}

TEST(RpcRecords, PeerTablesAndPerSecondValuesCopyDeeply)
{
    MErrno err = 0;
    RPCUtilInfo a(&err);
    NodeUtilInfo* peer = new NodeUtilInfo(&err, s("n2"), s("10.0.0.2"));
    peer->statP[0] = new AggregatedRPCPerfStat(2, 0, 0, 0, s("AG_STAT_SEND_TIME_TCP"));
    peer->statP[0]->numSecs = 2;
    peer->statP[0]->getSecs(1)->cnt = 5;
    peer->nStats = 1;
    a.nodeUtilP[0] = peer;
    a.nNodeUtil = 1;
    RPCUtilInfo b(&err);
    b = a;
    ASSERT_NE(b.nodeUtilP[0], nullptr);
    EXPECT_NE(b.nodeUtilP[0], peer);
    EXPECT_STREQ(b.nodeUtilP[0]->remoteName, "n2");
    EXPECT_STREQ(b.nodeUtilP[0]->remoteAddr, "10.0.0.2");
    EXPECT_EQ(b.nodeUtilP[0]->nStats, 1);
    EXPECT_EQ(b.nodeUtilP[0]->statP[0]->getSecs(1)->cnt, 0u);
    EXPECT_EQ(a.nodeUtilP[0]->statP[0]->getSecs(1)->cnt, 5u);
    a.clearStats();
    EXPECT_EQ(a.nNodeUtil, 0u);
    EXPECT_EQ(a.nodeUtilP[0], nullptr);

    AggregatedRPCUtilInfoPerSec p, q;
    AggregatedRPCPerfStatPerSec* v = new AggregatedRPCPerfStatPerSec();
    v->av = 3;
    strcpy(v->objName, "x");
    p.setRPCPerfStatObj(v, 0);
    p.nStats = 1;
    q = p;
    EXPECT_NE(q.statP[0], v);
    EXPECT_EQ(q.statP[0]->av, 3.0);
    EXPECT_STREQ(q.statP[0]->objName, "x");
    EXPECT_EQ(q.nStats, 1);
    AggregatedRPCPerfStatPerSec fresh;
    EXPECT_EQ(fresh.objName[0], '\0');
    EXPECT_EQ(fresh.cnt, 0u);
}

TEST(RpcRecords, RawRecordsStartZeroed)
{
    RPCRawStat st;
    EXPECT_EQ(st.cw + st.st + st.rt + st.rpclt, 0u);
    EXPECT_EQ(st.rdmas + st.rdmar, 0);
    RPCRawExec ex;
    EXPECT_EQ(ex.rpcet, 0u);
    EXPECT_EQ(ex.rpcsn, 0u);
    MErrno err = 0;
    RPCRawUtilInfo raw(&err);
    EXPECT_EQ(raw.execItems, nullptr);
    EXPECT_EQ(raw.statItems, nullptr);
    EXPECT_EQ(raw.statCnt, 0);
}
