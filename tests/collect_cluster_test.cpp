// Cluster level collection: updateClusterInfo, getClusterStatus,
// getClusterManager, getClusterNodesStatus, getDaemonState, checkFailedNode.
#include "support/fake_tool.h"
#include "support/files.h"
#include "support/handler_fixture.h"
#include "support/log_capture.h"
#include "support/popen_failure.h"
#include "support/collector_checks.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <sys/time.h>

#include <cstring>
#include <regex>
#include <string>
#include <vector>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>

using namespace qvtest;

namespace {

using Lines = std::vector<std::string>;

const char* const kClusterArgs = "10 1001:1002:1003:1008:1006:1007:1011:1004:1005";
const char* const kClusterCmd =
    "/usr/kpx/vesk/bin/vksdrquery 10 1001:1002:1003:1008:1006:1007:1011:1004:1005";
const char* const kGenArgs = "10 1015 all norefresh";

std::string clusterLine(int rc, const std::string& name, const std::string& f1002 = "f1002",
                        int f1011 = 42)
{
    return "vksdrquery:sdrq_cluster_info:" + std::to_string(rc) + ":1:::" + name + ":" + f1002 +
           ":f1003:f1008:f1006:f1007:" + std::to_string(f1011) + ":f1004:f1005:\n";
}

const char* const kClusterResponse =
    "_cluster_ _maxblksiz_ 16777216 _maxfeature_ 1402 _other_ x _distribtokenserver_ true "
    "_failuredetectiontime_ 35 _minmissedpingtimeout_ 3 _maxmissedpingtimeout_ 60";

void addNode(ClusterInfo* tree, const char* ip, const char* status)
{
    MErrno err = 0;
    NodeInfo* n = new NodeInfo(&err);
    strcpy(n->ipAddr, ip);
    strcpy(n->status, status);
    tree->nodeItems.push_back(n);
}

class ClusterCollect : public HandlerFixture
{
protected:
    FakeTool sdrquery{"vksdrquery"};
};

} // namespace

// ---------------------------------------------------------------------------
// updateClusterInfo

TEST_F(ClusterCollect, UpdateClusterInfoFillsRecipeThenCallerTree)
{
    sdrquery.on(kClusterArgs, clusterLine(0, "clu1"));
    sdrquery.on(kGenArgs, "vksdrquery:sdrq_cluster_info:0:1:::77:\n");
    daemon.respond("get clusterinfo", {kClusterResponse});
    startHandler();
    LogCapture log;
    // Stamped at start; the poll stamps it again.
    handler()->recipe->clusterUpdateTime = {1, 0};

    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateClusterInfo(&caller, 0), 0);

    EXPECT_EQ(sdrquery.commandLines(),
              (Lines{kClusterCmd, "/usr/kpx/vesk/bin/vksdrquery 10 1015 all norefresh"}));
    EXPECT_EQ(requestsSinceStart(), (Lines{"get clusterinfo"}));
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(lockIsFree(handler()));

    ClusterInfo* r = handler()->recipe;
    EXPECT_STREQ(r->clusterName, "clu1");
    EXPECT_STREQ(r->sdrField1002, "f1002");
    EXPECT_STREQ(r->sdrField1003, "f1003");
    EXPECT_STREQ(r->sdrField1008, "f1008");
    EXPECT_STREQ(r->sdrField1006, "f1006");
    EXPECT_STREQ(r->sdrField1007, "f1007");
    EXPECT_EQ(r->sdrField1011, 42);
    EXPECT_STREQ(r->sdrField1004, "f1004");
    EXPECT_STREQ(r->sdrField1005, "f1005");
    EXPECT_EQ(r->maxBlockSize, 16777216);
    EXPECT_STREQ(r->maxFeature, "1402");
    EXPECT_EQ(r->distribTokenServer, 1);
    EXPECT_EQ(r->failureDetectionTime, 35);
    EXPECT_EQ(r->minMissedPingTimeout, 3);
    EXPECT_EQ(r->maxMissedPingTimeout, 60);
    EXPECT_EQ(r->sdrfsGenNumber, 77u);
    EXPECT_TRUE(isRecent(r->clusterUpdateTime));

    // The caller's tree: every own field but clusterUpdateTime.
    EXPECT_STREQ(caller.clusterName, "clu1");
    EXPECT_STREQ(caller.sdrField1002, "f1002");
    EXPECT_STREQ(caller.sdrField1003, "f1003");
    EXPECT_STREQ(caller.sdrField1008, "f1008");
    EXPECT_STREQ(caller.sdrField1006, "f1006");
    EXPECT_STREQ(caller.sdrField1007, "f1007");
    EXPECT_STREQ(caller.sdrField1004, "f1004");
    EXPECT_STREQ(caller.sdrField1005, "f1005");
    EXPECT_EQ(caller.sdrField1011, 42);
    EXPECT_EQ(caller.maxBlockSize, 16777216);
    EXPECT_STREQ(caller.maxFeature, "1402");
    EXPECT_EQ(caller.distribTokenServer, 1);
    EXPECT_EQ(caller.failureDetectionTime, 35);
    EXPECT_EQ(caller.minMissedPingTimeout, 3);
    EXPECT_EQ(caller.maxMissedPingTimeout, 60);
    EXPECT_EQ(caller.sdrfsGenNumber, 77u);
    EXPECT_FALSE(isSet(caller.clusterUpdateTime));

    // The recipe as a full copy sees it.
    ClusterInfo copy(&err);
    EXPECT_EQ(handler()->copyRecipe(&copy), 0);
    EXPECT_STREQ(copy.clusterName, "clu1");
    EXPECT_STREQ(copy.maxFeature, "1402");
    EXPECT_STREQ(copy.sdrField1005, "f1005");
    EXPECT_EQ(copy.maxBlockSize, 16777216);
    EXPECT_TRUE(copy.nodeItems.empty());
    EXPECT_TRUE(copy.filesystemItems.empty());
}

TEST_F(ClusterCollect, NorefreshAppendsAllNorefresh)
{
    sdrquery.on(std::string(kClusterArgs) + " all norefresh", clusterLine(0, "clu2"));
    sdrquery.on(kGenArgs, "vksdrquery:sdrq_cluster_info:0:1:::5:\n");
    startHandler();
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateClusterInfo(&caller, 1), 0);
    EXPECT_EQ(sdrquery.commandLines(),
              (Lines{std::string(kClusterCmd) + " all norefresh",
                     "/usr/kpx/vesk/bin/vksdrquery 10 1015 all norefresh"}));
    EXPECT_STREQ(caller.clusterName, "clu2");
    EXPECT_EQ(caller.sdrfsGenNumber, 5u);
    // No "_cluster_" line in the answer: the numbers stay as they were.
    EXPECT_EQ(caller.maxBlockSize, 0);
    EXPECT_EQ(requestsSinceStart(), (Lines{"get clusterinfo"}));
}

TEST_F(ClusterCollect, TextColumnsAreNotPercentDecoded)
{
    sdrquery.on(kClusterArgs, clusterLine(0, "clu%3A1", "a%41b"));
    startHandler();
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateClusterInfo(&caller, 0), 0);
    EXPECT_STREQ(caller.clusterName, "clu%3A1");
    EXPECT_STREQ(caller.sdrField1002, "a%41b");
}

TEST_F(ClusterCollect, LineStatusNotZeroSendsNoRequestAndLeavesCallerTree)
{
    sdrquery.on(kClusterArgs, clusterLine(5, "written"));
    startHandler();
    LogCapture log;
    MErrno err = 0;
    ClusterInfo caller(&err);
    strcpy(caller.clusterName, "before");
    handler()->recipe->clusterUpdateTime = {1, 0};
    StderrCapture cap;
    EXPECT_EQ(handler()->updateClusterInfo(&caller, 0), 1);
    std::string err2 = cap.finish();

    EXPECT_TRUE(requestsSinceStart().empty());
    EXPECT_EQ(sdrquery.calls(), (Lines{kClusterArgs}));
    EXPECT_EQ(log.lines(), (Lines{"ERROR: PollingHandler::updateClusterInfo: "
                                  "vksdrquery:sdrq_cluster_info rc 5"}));
    EXPECT_EQ(stripTimes(err2),
              "ERROR: PollingHandler::updateClusterInfo: vksdrquery:sdrq_cluster_info rc 5\n");
    // The recipe has been written all the same; the caller's tree has not.
    EXPECT_STREQ(handler()->recipe->clusterName, "written");
    EXPECT_STREQ(caller.clusterName, "before");
    EXPECT_EQ(handler()->recipe->sdrfsGenNumber, 0u);
    EXPECT_EQ(handler()->recipe->clusterUpdateTime.tv_sec, 1);
    EXPECT_TRUE(lockIsFree(handler()));
}

TEST_F(ClusterCollect, LineStatusAndExitStatusBothLoggedInOrder)
{
    sdrquery.on(kClusterArgs, clusterLine(2, "x"), 3);
    startHandler();
    LogCapture log;
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateClusterInfo(&caller, 0), 1);
    EXPECT_EQ(log.lines(),
              (Lines{"ERROR: PollingHandler::updateClusterInfo: vksdrquery:sdrq_cluster_info rc 2",
                     "ERROR: PollingHandler::updateClusterInfo: pclose exit status: 3"}));
    EXPECT_TRUE(requestsSinceStart().empty());
}

TEST_F(ClusterCollect, ExitStatusNotZeroFailsWithoutRequest)
{
    sdrquery.on(kClusterArgs, clusterLine(0, "clu3"), 4);
    startHandler();
    LogCapture log;
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateClusterInfo(&caller, 0), 1);
    EXPECT_EQ(log.lines(),
              (Lines{"ERROR: PollingHandler::updateClusterInfo: pclose exit status: 4"}));
    EXPECT_TRUE(requestsSinceStart().empty());
    // The generation number is not asked for either.
    EXPECT_EQ(sdrquery.calls(), (Lines{kClusterArgs}));
    EXPECT_STREQ(handler()->recipe->clusterName, "clu3");
    EXPECT_STREQ(caller.clusterName, "");
    EXPECT_TRUE(lockIsFree(handler()));
}

TEST(ClusterCollectNoTool, MissingToolFailsWithShellStatus)
{
    FakeDaemon daemon;
    FakeTool kxctl("kxctl");
    kxctl.output("3504\n");
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_CLUSTER), 0);
    size_t before = daemon.requestLines().size();
    {
        // The capture ends before term(), which closes whatever log is open.
        LogCapture log;
        MErrno err = 0;
        ClusterInfo caller(&err);
        StderrCapture cap;
        EXPECT_EQ(thePollingHandler->updateClusterInfo(&caller, 0), 1);
        cap.finish();
        EXPECT_EQ(log.lines(),
                  (Lines{"ERROR: PollingHandler::updateClusterInfo: pclose exit status: 127"}));
        EXPECT_EQ(daemon.requestLines().size(), before);
    }
    PollingHandler::term();
}

TEST_F(ClusterCollect, PopenFailureLogsCommandAndFails)
{
    startHandler();
    LogCapture log;
    MErrno err = 0;
    ClusterInfo caller(&err);
    MErrno rc;
    {
        PopenFailure block;
        ASSERT_GT(block.held(), 0u);
        rc = handler()->updateClusterInfo(&caller, 1);
    }
    EXPECT_EQ(rc, 1);
    EXPECT_EQ(log.lines(),
              (Lines{std::string("ERROR: PollingHandler::updateClusterInfo: Error: Couldn't find ") +
                     kClusterCmd + " all norefresh command"}));
    EXPECT_TRUE(sdrquery.calls().empty());
    EXPECT_TRUE(requestsSinceStart().empty());
    EXPECT_TRUE(lockIsFree(handler()));
}

TEST_F(ClusterCollect, ScanStopsAfterSixKeywords)
{
    sdrquery.on(kClusterArgs, clusterLine(0, "c"));
    daemon.respond("get clusterinfo",
                   {"_cluster_ _maxblksiz_ 1 _maxblksiz_ 2 _maxblksiz_ 3 _distribtokenserver_ yes "
                    "_maxblksiz_ 5 _maxblksiz_ 6 _maxmissedpingtimeout_ 60 _maxfeature_ late"});
    startHandler();
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateClusterInfo(&caller, 0), 0);
    EXPECT_EQ(caller.maxBlockSize, 6);
    EXPECT_EQ(caller.distribTokenServer, 0);
    EXPECT_EQ(caller.maxMissedPingTimeout, 0);
    EXPECT_STREQ(caller.maxFeature, "");
}

TEST_F(ClusterCollect, DistribTokenServerIsOneOnlyForTrue)
{
    sdrquery.on(kClusterArgs, clusterLine(0, "c"));
    daemon.respond("get clusterinfo", {"_cluster_ _distribtokenserver_ true"});
    daemon.respond("get clusterinfo", {"_cluster_ _distribtokenserver_ True"});
    startHandler();
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateClusterInfo(&caller, 0), 0);
    EXPECT_EQ(caller.distribTokenServer, 1);
    EXPECT_EQ(handler()->updateClusterInfo(&caller, 0), 0);
    EXPECT_EQ(caller.distribTokenServer, 0);
}

TEST_F(ClusterCollect, EmptyColumnLeavesLaterRecipeTextsAsTheyWere)
{
    sdrquery.output(clusterLine(0, "first"));
    startHandler();
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateClusterInfo(&caller, 0), 0);
    // Column 1002 empty: the scan ends there, the rest keeps the first poll's.
    sdrquery.output("vksdrquery:sdrq_cluster_info:0:1:::second::g1003:g1008:g1006:g1007:9:g1004:"
                    "g1005:\n");
    EXPECT_EQ(handler()->updateClusterInfo(&caller, 0), 0);
    EXPECT_STREQ(caller.clusterName, "second");
    EXPECT_STREQ(caller.sdrField1002, "f1002");
    EXPECT_STREQ(caller.sdrField1003, "f1003");
    EXPECT_EQ(caller.sdrField1011, 42);
    EXPECT_STREQ(caller.sdrField1005, "f1005");
    EXPECT_EQ(requestsSinceStart(), (Lines{"get clusterinfo", "get clusterinfo"}));
}

TEST_F(ClusterCollect, LongColumnIsCutToTheField)
{
    std::string longName(300, 'n');
    sdrquery.on(kClusterArgs, clusterLine(0, longName));
    startHandler();
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateClusterInfo(&caller, 0), 0);
    EXPECT_EQ(std::string(caller.clusterName), longName.substr(0, 255));
    EXPECT_STREQ(caller.sdrField1002, "f1002");
}

// ---------------------------------------------------------------------------
// getClusterStatus

TEST_F(ClusterCollect, GetClusterStatusWithNoFlagsRunsNoTool)
{
    FakeTool vklsmgr("vklsmgr");
    startHandler();
    kxctl.clearCalls();
    LogCapture log;
    ClusterStatus st;
    st.nodesDefined = 9;
    EXPECT_EQ(handler()->getClusterStatus(&st, 0), 0);
    EXPECT_TRUE(vklsmgr.calls().empty());
    EXPECT_TRUE(kxctl.calls().empty());
    EXPECT_EQ(st.nodesDefined, 9);
    EXPECT_EQ(log.lines(), (Lines{"INFO: PollingHandler::getClusterStatus: rc 0 flag 0x0 code 0"}));
}

TEST_F(ClusterCollect, GetClusterStatusWithNullRecordFails)
{
    FakeTool vklsmgr("vklsmgr");
    startHandler();
    kxctl.clearCalls();
    LogCapture log;
    EXPECT_EQ(handler()->getClusterStatus(nullptr, 3), 1);
    EXPECT_TRUE(vklsmgr.calls().empty());
    EXPECT_TRUE(kxctl.calls().empty());
    EXPECT_EQ(log.lines(),
              (Lines{"INFO: PollingHandler::getClusterStatus: rc -1 flag 0x3 code 1"}));
}

TEST_F(ClusterCollect, GetClusterStatusManagerFailureDoesNotAskForCounts)
{
    FakeTool vklsmgr("vklsmgr");
    vklsmgr.output("Cluster manager node: 10.0.0.1 (mgr)\n", 2);
    startHandler();
    kxctl.clearCalls();
    LogCapture log;
    ClusterStatus st;
    StderrCapture cap;
    EXPECT_EQ(handler()->getClusterStatus(&st, 3), 1);
    cap.finish();
    EXPECT_EQ(vklsmgr.calls(), (Lines{"-c"}));
    EXPECT_TRUE(kxctl.calls().empty());
    EXPECT_EQ(log.lines(), (Lines{"ERROR: getClusterManager: pclose exit status: 2",
                                  "INFO: PollingHandler::getClusterStatus: rc 2 flag 0x3 code 2"}));
    // What the tool wrote stays in the caller's record on failure.
    EXPECT_STREQ(st.managerIpAddr, "10.0.0.1");
    EXPECT_STREQ(st.managerName, "mgr0");
}

TEST_F(ClusterCollect, GetClusterStatusManagerParseFailureGivesCount)
{
    FakeTool vklsmgr("vklsmgr");
    vklsmgr.output("Cluster manager node: 10.0.0.1\n");
    startHandler();
    LogCapture log;
    ClusterStatus st;
    StderrCapture cap;
    EXPECT_EQ(handler()->getClusterStatus(&st, 1), 1);
    EXPECT_EQ(cap.finish(), "result ERROR rc 1\n");
    EXPECT_EQ(log.lines(),
              (Lines{"INFO: PollingHandler::getClusterStatus: rc 1 flag 0x1 code 2"}));
}

TEST_F(ClusterCollect, GetClusterStatusSuccessLeavesAskedFieldsEmpty)
{
    FakeTool vklsmgr("vklsmgr");
    vklsmgr.output("Cluster manager node: 10.0.0.1 (mgr1)\n");
    kxctl.on("clusternodeinfo",
             "Number of nodes defined in the cluster: 5\n"
             "Number of local nodes active in the cluster: 4\n"
             "Number of remote nodes joined in this cluster: 1\n"
             "Number of quorum nodes defined in the cluster: 3\n"
             "Number of quorum nodes active in the cluster: 2\n"
             "Quorum = 2, Quorum achieved\n");
    startHandler();
    kxctl.clearCalls();
    LogCapture log;
    ClusterStatus st;
    EXPECT_EQ(handler()->getClusterStatus(&st, 3), 0);
    EXPECT_EQ(vklsmgr.calls(), (Lines{"-c"}));
    EXPECT_EQ(kxctl.calls(), (Lines{"clusternodeinfo"}));
    // The fields were read and then overwritten from the empty local record.
    EXPECT_STREQ(st.managerName, "");
    EXPECT_STREQ(st.managerIpAddr, "");
    EXPECT_EQ(st.nodesDefined, 0);
    EXPECT_EQ(st.localNodesActive, 0);
    EXPECT_EQ(st.remoteNodesJoined, 0);
    EXPECT_EQ(st.quorumNodesDefined, 0);
    EXPECT_EQ(st.quorumNodesActive, 0);
    EXPECT_EQ(st.quorum, 0);
    EXPECT_EQ(st.quorumAchieved, 0);
    EXPECT_EQ(log.lines(),
              (Lines{"INFO: PollingHandler::getClusterStatus: rc 0 flag 0x3 code 0"}));
}

TEST_F(ClusterCollect, GetClusterStatusManagerOnlyLeavesCountsAlone)
{
    FakeTool vklsmgr("vklsmgr");
    vklsmgr.output("Cluster manager node: 10.0.0.1 (mgr1)\n");
    startHandler();
    kxctl.clearCalls();
    LogCapture log;
    ClusterStatus st;
    st.nodesDefined = 7;
    strcpy(st.managerName, "old");
    EXPECT_EQ(handler()->getClusterStatus(&st, 1), 0);
    EXPECT_STREQ(st.managerName, "");
    EXPECT_STREQ(st.managerIpAddr, "");
    EXPECT_EQ(st.nodesDefined, 7);
    EXPECT_TRUE(kxctl.calls().empty());
    EXPECT_EQ(log.lines(),
              (Lines{"INFO: PollingHandler::getClusterStatus: rc 0 flag 0x1 code 0"}));
}

TEST_F(ClusterCollect, GetClusterStatusCountsFailureKeepsWhatTheToolWrote)
{
    FakeTool vklsmgr("vklsmgr");
    kxctl.on("clusternodeinfo", "Number of nodes defined in the cluster: 5\n", 4);
    startHandler();
    kxctl.clearCalls();
    LogCapture log;
    ClusterStatus st;
    EXPECT_EQ(handler()->getClusterStatus(&st, 2), 1);
    EXPECT_TRUE(vklsmgr.calls().empty());
    EXPECT_EQ(kxctl.calls(), (Lines{"clusternodeinfo"}));
    EXPECT_EQ(st.nodesDefined, 5);
    EXPECT_EQ(log.lines(), (Lines{"ERROR: getClusterNodesStatus: pclose exit status: 4",
                                  "INFO: PollingHandler::getClusterStatus: rc 4 flag 0x2 code 3"}));
}

TEST_F(ClusterCollect, GetClusterStatusIgnoresOtherBits)
{
    FakeTool vklsmgr("vklsmgr");
    startHandler();
    kxctl.clearCalls();
    LogCapture log;
    ClusterStatus st;
    EXPECT_EQ(handler()->getClusterStatus(&st, 0x10), 0);
    EXPECT_TRUE(vklsmgr.calls().empty());
    EXPECT_TRUE(kxctl.calls().empty());
    EXPECT_EQ(log.lines(),
              (Lines{"INFO: PollingHandler::getClusterStatus: rc 0 flag 0x10 code 0"}));
}

// ---------------------------------------------------------------------------
// getClusterManager

TEST(ClusterManager, NullBufferGivesMinusOneWithoutTool)
{
    FakeTool vklsmgr("vklsmgr");
    char buf[256] = "x";
    EXPECT_EQ(getClusterManager(nullptr, buf), -1);
    EXPECT_EQ(getClusterManager(buf, nullptr), -1);
    EXPECT_STREQ(buf, "x");
    EXPECT_TRUE(vklsmgr.calls().empty());
}

TEST(ClusterManager, ParenthesisedNameEndsInDigitZero)
{
    FakeTool vklsmgr("vklsmgr");
    vklsmgr.output("Cluster manager node: 10.0.0.1 (mgr1)\n", 0, "noise on stderr\n");
    char name[256];
    char addr[256];
    LogCapture log;
    StderrCapture cap;
    EXPECT_EQ(getClusterManager(name, addr), 0);
    // The tool's own stderr goes to /dev/null.
    EXPECT_EQ(cap.finish(), "");
    EXPECT_EQ(vklsmgr.commandLines(), (Lines{"/usr/kpx/vesk/bin/vklsmgr -c"}));
    EXPECT_STREQ(addr, "10.0.0.1");
    EXPECT_STREQ(name, "mgr10");
    EXPECT_TRUE(log.lines().empty());
}

TEST(ClusterManager, NameWithoutParenthesisIsKeptWithoutItsFirstCharacter)
{
    FakeTool vklsmgr("vklsmgr");
    vklsmgr.output("Cluster manager node: 10.0.0.2 xmgr2\n");
    char name[256];
    char addr[256];
    EXPECT_EQ(getClusterManager(name, addr), 0);
    EXPECT_STREQ(addr, "10.0.0.2");
    EXPECT_STREQ(name, "mgr2");
}

TEST(ClusterManager, FifthWordIsAnError)
{
    FakeTool vklsmgr("vklsmgr");
    vklsmgr.output("Cluster manager node: 10.0.0.1 (mgr1) extra\n");
    char name[256];
    char addr[256];
    StderrCapture cap;
    EXPECT_EQ(getClusterManager(name, addr), 5);
    EXPECT_EQ(cap.finish(), "result ERROR rc 5\n");
    EXPECT_STREQ(addr, "10.0.0.1");
    // No replacement of the parenthesis on failure.
    EXPECT_STREQ(name, "mgr1)");
}

TEST(ClusterManager, LineWithoutNewlineGivesThree)
{
    FakeTool vklsmgr("vklsmgr");
    vklsmgr.output("Cluster manager node: 10.0.0.1 (mgr1)");
    char name[256];
    char addr[256];
    StderrCapture cap;
    EXPECT_EQ(getClusterManager(name, addr), 3);
    EXPECT_EQ(cap.finish(), "result ERROR rc 3\n");
}

TEST(ClusterManager, OtherLineGivesZeroCount)
{
    FakeTool vklsmgr("vklsmgr");
    vklsmgr.output("no manager\n");
    char name[256] = "abc";
    char addr[256] = "def";
    StderrCapture cap;
    EXPECT_EQ(getClusterManager(name, addr), 0);
    EXPECT_EQ(cap.finish(), "result ERROR rc 0\n");
    // The count 0 is also the success value; the buffers only got the digit.
    EXPECT_STREQ(name, "0bc");
    EXPECT_STREQ(addr, "0ef");
}

TEST(ClusterManager, NoLineGivesMinusOneAndOnlyTheDigit)
{
    FakeTool vklsmgr("vklsmgr");
    vklsmgr.output("");
    char name[256] = "abc";
    char addr[256] = "xyz";
    StderrCapture cap;
    EXPECT_EQ(getClusterManager(name, addr), -1);
    EXPECT_EQ(cap.finish(), "");
    EXPECT_STREQ(name, "0bc");
    EXPECT_STREQ(addr, "0yz");
}

TEST(ClusterManager, ExitStatusIsTheResult)
{
    FakeTool vklsmgr("vklsmgr");
    vklsmgr.output("Cluster manager node: 10.0.0.1 (mgr1)\n", 7);
    char name[256];
    char addr[256];
    LogCapture log;
    StderrCapture cap;
    EXPECT_EQ(getClusterManager(name, addr), 7);
    EXPECT_EQ(stripTimes(cap.finish()), "ERROR: getClusterManager: pclose exit status: 7\n");
    EXPECT_EQ(log.lines(), (Lines{"ERROR: getClusterManager: pclose exit status: 7"}));
    EXPECT_STREQ(name, "mgr10");
}

TEST(ClusterManager, PopenFailurePrintsToStderr)
{
    char name[256] = "abc";
    char addr[256] = "xyz";
    LogCapture log;
    StderrCapture cap;
    int rc;
    {
        PopenFailure block;
        ASSERT_GT(block.held(), 0u);
        rc = getClusterManager(name, addr);
    }
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(cap.finish(), "popen(/usr/kpx/vesk/bin/vklsmgr -c 2>/dev/null) failed\n");
    EXPECT_TRUE(log.lines().empty());
    EXPECT_STREQ(name, "0bc");
    EXPECT_STREQ(addr, "0yz");
}

// ---------------------------------------------------------------------------
// getClusterNodesStatus

TEST(ClusterNodesStatus, ReadsEveryCountAndQuorum)
{
    FakeTool kxctl("kxctl");
    kxctl.output("Summary of the cluster\n"
                 "Number of nodes defined in the cluster: 5\n"
                 "Number of local nodes active in the cluster: 4\n"
                 "Number of remote nodes joined in this cluster: 1\n"
                 "Number of quorum nodes defined in the cluster: 3\n"
                 "Number of quorum nodes active in the cluster: 2\n"
                 "Quorum = 2, Quorum achieved\n",
                 0, "noise\n");
    ClusterStatus st;
    strcpy(st.managerName, "kept");
    LogCapture log;
    StderrCapture cap;
    EXPECT_EQ(getClusterNodesStatus(&st), 0);
    EXPECT_EQ(cap.finish(), "");
    EXPECT_EQ(kxctl.commandLines(), (Lines{"/usr/kpx/vesk/bin/kxctl clusternodeinfo"}));
    EXPECT_EQ(st.nodesDefined, 5);
    EXPECT_EQ(st.localNodesActive, 4);
    EXPECT_EQ(st.remoteNodesJoined, 1);
    EXPECT_EQ(st.quorumNodesDefined, 3);
    EXPECT_EQ(st.quorumNodesActive, 2);
    EXPECT_EQ(st.quorum, 2);
    EXPECT_EQ(st.quorumAchieved, 1);
    EXPECT_STREQ(st.managerName, "kept");
    EXPECT_TRUE(log.lines().empty());
}

TEST(ClusterNodesStatus, QuorumWordDecides)
{
    FakeTool kxctl("kxctl");
    kxctl.output("Quorum = 1, Quorum not achieved\n");
    ClusterStatus st;
    st.quorumAchieved = 1;
    EXPECT_EQ(getClusterNodesStatus(&st), 0);
    EXPECT_EQ(st.quorum, 1);
    EXPECT_EQ(st.quorumAchieved, 0);

    // Only the first eight bytes of the word count.
    kxctl.output("Quorum = 3, Quorum achievedX\n");
    EXPECT_EQ(getClusterNodesStatus(&st), 0);
    EXPECT_EQ(st.quorum, 3);
    EXPECT_EQ(st.quorumAchieved, 1);
}

TEST(ClusterNodesStatus, ExitStatusIsResultAndLogged)
{
    FakeTool kxctl("kxctl");
    kxctl.output("Number of nodes defined in the cluster: 8\n", 5);
    ClusterStatus st;
    LogCapture log;
    StderrCapture cap;
    EXPECT_EQ(getClusterNodesStatus(&st), 5);
    EXPECT_EQ(stripTimes(cap.finish()), "ERROR: getClusterNodesStatus: pclose exit status: 5\n");
    EXPECT_EQ(log.lines(), (Lines{"ERROR: getClusterNodesStatus: pclose exit status: 5"}));
    EXPECT_EQ(st.nodesDefined, 8);
}

TEST(ClusterNodesStatus, NullRecordAndPopenFailure)
{
    FakeTool kxctl("kxctl");
    EXPECT_EQ(getClusterNodesStatus(nullptr), -1);
    EXPECT_TRUE(kxctl.calls().empty());

    ClusterStatus st;
    StderrCapture cap;
    int rc;
    {
        PopenFailure block;
        ASSERT_GT(block.held(), 0u);
        rc = getClusterNodesStatus(&st);
    }
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(cap.finish(), "popen(/usr/kpx/vesk/bin/kxctl clusternodeinfo 2>/dev/null) failed\n");
    EXPECT_TRUE(kxctl.calls().empty());
}

// ---------------------------------------------------------------------------
// getDaemonState

namespace {
const char* const kStateHeader =
    "vkgetstate::HEADER:version:reserved:reserved:nodeName:nodeNumber:state:quorum:nodesUp:"
    "totalNodes:remarks:\n";

std::string stateLine(const std::string& node, int number, const std::string& state,
                      const std::string& remarks = "none")
{
    return "vkgetstate::0:1:::" + node + ":" + std::to_string(number) + ":" + state + ":1:2:2:" +
           remarks + ":\n";
}
} // namespace

TEST_F(ClusterCollect, DaemonStateDownNodeGivesOne)
{
    FakeTool vkgetstate("vkgetstate");
    vkgetstate.output(std::string(kStateHeader) + stateLine("n1", 1, "active") +
                      stateLine("n2", 2, "down"));
    startHandler();
    LogCapture log;
    EXPECT_EQ(handler()->getDaemonState(), 1);
    EXPECT_EQ(vkgetstate.commandLines(), (Lines{"/usr/kpx/vesk/bin/vkgetstate -Y"}));
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(requestsSinceStart().empty());
}

TEST_F(ClusterCollect, DaemonStateActiveAndOtherWordsGiveZero)
{
    FakeTool vkgetstate("vkgetstate");
    vkgetstate.output(std::string(kStateHeader) + stateLine("n1", 1, "active") +
                      stateLine("n2", 2, "arbitrating") + stateLine("n3", 3, "Down"));
    startHandler();
    EXPECT_EQ(handler()->getDaemonState(), 0);
}

TEST_F(ClusterCollect, DaemonStateWithoutDataLineIsZero)
{
    FakeTool vkgetstate("vkgetstate");
    vkgetstate.output(kStateHeader);
    startHandler();
    LogCapture log;
    EXPECT_EQ(handler()->getDaemonState(), 0);
    vkgetstate.output("");
    EXPECT_EQ(handler()->getDaemonState(), 0);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ClusterCollect, DaemonStateFirstLineIsDroppedWhateverItSays)
{
    FakeTool vkgetstate("vkgetstate");
    vkgetstate.output(stateLine("n1", 1, "down") + stateLine("n2", 2, "active"));
    startHandler();
    EXPECT_EQ(handler()->getDaemonState(), 0);
}

TEST_F(ClusterCollect, DaemonStateUnmatchedLineIsLoggedAndNotTested)
{
    FakeTool vkgetstate("vkgetstate");
    // The empty last field leaves 8 conversions: the "down" is not looked at.
    vkgetstate.output(std::string(kStateHeader) + "vkgetstate::0:1:::n1:1:down:1:2:2::\n" +
                      "garbage\n");
    startHandler();
    LogCapture log;
    EXPECT_EQ(handler()->getDaemonState(), 0);
    EXPECT_EQ(log.lines(), (Lines{"INFO: PollingHandler::getDaemonState: sscanf match failure",
                                  "INFO: PollingHandler::getDaemonState: sscanf match failure"}));
}

TEST_F(ClusterCollect, DaemonStateExitStatusGivesOne)
{
    FakeTool vkgetstate("vkgetstate");
    vkgetstate.output(std::string(kStateHeader) + stateLine("n1", 1, "active"), 1);
    startHandler();
    LogCapture log;
    StderrCapture cap;
    EXPECT_EQ(handler()->getDaemonState(), 1);
    EXPECT_EQ(stripTimes(cap.finish()),
              "ERROR: PollingHandler::getDaemonState: pclose exit status: 1\n");
    EXPECT_EQ(log.lines(), (Lines{"ERROR: PollingHandler::getDaemonState: pclose exit status: 1"}));
}

TEST_F(ClusterCollect, DaemonStatePopenFailure)
{
    FakeTool vkgetstate("vkgetstate");
    startHandler();
    LogCapture log;
    int rc;
    {
        PopenFailure block;
        ASSERT_GT(block.held(), 0u);
        rc = handler()->getDaemonState();
    }
    EXPECT_EQ(rc, 1);
    EXPECT_EQ(log.lines(), (Lines{"ERROR: PollingHandler::getDaemonState: Error: Couldn't find "
                                  "/usr/kpx/vesk/bin/vkgetstate -Y command"}));
    EXPECT_TRUE(vkgetstate.calls().empty());
}

TEST_F(ClusterCollect, DaemonStateDoesNotTakeTheLock)
{
    FakeTool vkgetstate("vkgetstate");
    vkgetstate.output(std::string(kStateHeader) + stateLine("n1", 1, "down"));
    startHandler();
    ASSERT_EQ(handler()->getPollingLock(), 0);
    EXPECT_EQ(handler()->getDaemonState(), 1);
    EXPECT_EQ(handler()->releasePollingLock(), 0);
}

// ---------------------------------------------------------------------------
// checkFailedNode

TEST_F(ClusterCollect, CheckFailedNodeOnEmptyListIsOneWithoutLog)
{
    startHandler(POLL_LOCAL_CLUSTER, 1);
    LogCapture log;
    StderrCapture cap;
    EXPECT_EQ(handler()->checkFailedNode(), 1);
    EXPECT_EQ(cap.finish(), "");
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ClusterCollect, CheckFailedNodeLooksFromTheSecondByte)
{
    startHandler(POLL_LOCAL_CLUSTER, 1);
    addNode(handler()->recipe, "10.0.0.1", "active");
    addNode(handler()->recipe, "10.0.0.2", "failed");
    LogCapture log;
    StderrCapture cap;
    EXPECT_EQ(handler()->checkFailedNode(), 0);
    EXPECT_EQ(cap.finish(), "_ok_ checkFailedNode: done\n");
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ClusterCollect, CheckFailedNodeMatchesAWordBehindOneCharacter)
{
    startHandler(POLL_LOCAL_CLUSTER, 1);
    addNode(handler()->recipe, "10.0.0.1", "active");
    addNode(handler()->recipe, "10.0.0.2", " failed now");
    addNode(handler()->recipe, "10.0.0.3", "xfailed");
    LogCapture log;
    StderrCapture cap;
    EXPECT_EQ(handler()->checkFailedNode(), 1);
    EXPECT_EQ(cap.finish(), "");
    EXPECT_EQ(log.lines(), (Lines{"WARNING: PollingHandler::checkFailedNode: failed node"}));
}

TEST_F(ClusterCollect, CheckFailedNodeQuietWithoutDebug)
{
    startHandler();
    addNode(handler()->recipe, "10.0.0.1", "active");
    addNode(handler()->recipe, "10.0.0.2", "");
    StderrCapture cap;
    EXPECT_EQ(handler()->checkFailedNode(), 0);
    EXPECT_EQ(cap.finish(), "");
}
