// The node poll: repository query, "get nodes", "tavrel nc", "tavrel v", and
// the caller's tree after it.
#include "support/fake_tool.h"
#include "support/files.h"
#include "support/handler_fixture.h"
#include "support/log_capture.h"
#include "support/popen_failure.h"
#include "support/collector_checks.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <sys/time.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>

using namespace qvtest;

namespace {

using Lines = std::vector<std::string>;

const char* const kNodeArgs = "20 2003:2004:2005:2006:2007:2008:2010:2014:2015";
const char* const kNodeCmd =
    "/usr/kpx/vesk/bin/vksdrquery 20 2003:2004:2005:2006:2007:2008:2010:2014:2015";
const char* const kWho = "INFO: PollingHandler::updateNodeInfo: ";

// One repository line: name, address, 2005, manager, quorum, 2008, 2010,
// snmp collector, gateway.
std::string nodeLine(const std::string& name, const std::string& ip, const std::string& mgr,
                     const std::string& quorum, const std::string& f2010,
                     const std::string& snmp, const std::string& gw, int rc = 0)
{
    return "vksdrquery:sdrq_node_info:" + std::to_string(rc) + ":3:::" + name + ":" + ip +
           ":c2005:" + mgr + ":" + quorum + ":c2008:" + f2010 + ":" + snmp + ":" + gw + ":\n";
}

std::string info(const std::string& text)
{
    return kWho + text;
}

std::vector<std::string> addresses(ClusterInfo& tree)
{
    std::vector<std::string> out;
    for (NodeInfo* n : tree.nodeItems)
        out.push_back(n->ipAddr);
    return out;
}

class NodeCollect : public HandlerFixture
{
protected:
    FakeTool sdrquery{"vksdrquery"};

    // The recipe through a full copy into a fresh tree.
    std::unique_ptr<ClusterInfo> recipeCopy()
    {
        MErrno err = 0;
        std::unique_ptr<ClusterInfo> copy(new ClusterInfo(&err));
        EXPECT_EQ(handler()->copyRecipe(copy.get()), 0);
        return copy;
    }
};

const char* const kNcLine1 =
    "_tavrel _n_ 10.0.0.1 _version_ 5.1.2 _pagepool_ 1073741824 _pfthreads_ 72 _maxmbps_ 2048 "
    "_maxfilestocache_ 1000 _maxstatcache_ 500 _wkr1threads_ 48 _dmapieventtimeout_ 86400000 "
    "_dmapimounttimeout_ 60 _dmapisessfailuretimeout_ 0 _nsdserverwaittimewindowonmount_ 20 "
    "_nsdserverwaittimeformount_ 300 _unmountondiskfail_ no";

} // namespace

TEST_F(NodeCollect, FullPollFillsRecipeAndCallerTree)
{
    sdrquery.output(nodeLine("node1", "10.0.0.1", "true", "true", "s1", "false", "false") +
                    nodeLine("node2", "10.0.0.2", "false", "false", "s2", "true", "true"));
    daemon.respond("get nodes",
                   {"_node_ _addr_ 10.0.0.1 _name_ other _admin_ up _status_ active "
                    "_failures_ 2 _threadwait_ 7 _healthy_ yes _diagnosis_ ok"});
    daemon.respond("tavrel nc", {kNcLine1});
    daemon.respond("tavrel v", {"_tavrel _n_ 10.0.0.1 _nn_ ignored _p_ x86_64 _f_ 0x80",
                                "_tavrel _n_ 10.0.0.2 _nn_ other2 _p_ ppc64 _f_ 0x7f"});
    startHandler();
    LogCapture log;
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);

    EXPECT_EQ(sdrquery.commandLines(), (Lines{kNodeCmd}));
    EXPECT_EQ(requestsSinceStart(), (Lines{"get nodes", "tavrel nc", "tavrel v"}));
    EXPECT_TRUE(lockIsFree(handler()));
    EXPECT_EQ(log.lines(),
              (Lines{info("new node 10.0.0.1"), info("new node 10.0.0.2"), info("nNode 2"),
                     info("extractedNodeAddr 10.0.0.1 nodeIdx 0 nNode 2"),
                     info("extractedNodeAddr 10.0.0.1 nodeIdx 0 nNode 2"),
                     info("extractedNodeAddr 10.0.0.1 bitFlags 0x80, endian 0x80 little_endian"),
                     info("extractedNodeAddr 10.0.0.2 bitFlags 0x7f, endian 0x7f big_endian")}));

    ClusterInfo* r = handler()->recipe;
    ASSERT_EQ(r->nodeItems.size(), 2u);
    NodeInfo* n1 = r->nodeItems[0];
    EXPECT_STREQ(n1->name, "node1");
    EXPECT_STREQ(n1->ipAddr, "10.0.0.1");
    EXPECT_STREQ(n1->roles, "manager quorum ");
    EXPECT_STREQ(n1->sdrField2010, "s1");
    EXPECT_STREQ(n1->adminState, "up");
    EXPECT_STREQ(n1->status, "active");
    EXPECT_EQ(n1->failures, 2);
    EXPECT_EQ(n1->threadWait, 7);
    EXPECT_STREQ(n1->healthy, "yes");
    EXPECT_STREQ(n1->diagnosis, "ok");
    EXPECT_STREQ(n1->version, "5.1.2");
    EXPECT_EQ(n1->pagePool, 1073741824LL);
    EXPECT_EQ(n1->pfThreads, 72u);
    EXPECT_EQ(n1->maxMBps, 2048u);
    EXPECT_EQ(n1->maxFilesToCache, 1000u);
    EXPECT_EQ(n1->maxStatCache, 500u);
    EXPECT_EQ(n1->wkr1Threads, 48u);
    EXPECT_EQ(n1->dmapiEventTimeout, 86400000u);
    EXPECT_EQ(n1->dmapiMountTimeout, 60u);
    EXPECT_EQ(n1->dmapiSessFailureTimeout, 0u);
    EXPECT_EQ(n1->nsdServerWaitTimeWindowOnMount, 20u);
    EXPECT_EQ(n1->nsdServerWaitTimeForMount, 300u);
    EXPECT_STREQ(n1->unmountOnDiskFail, "no");
    EXPECT_STREQ(n1->platform, "x86_64");
    EXPECT_STREQ(n1->endian, "little_endian");
    EXPECT_EQ(n1->found, 1);

    NodeInfo* n2 = r->nodeItems[1];
    EXPECT_STREQ(n2->name, "node2");
    EXPECT_STREQ(n2->roles, "gateway snmp_collector ");
    EXPECT_STREQ(n2->sdrField2010, "s2");
    // Not reported by "get nodes".
    EXPECT_STREQ(n2->status, "unknown");
    EXPECT_STREQ(n2->healthy, "no");
    EXPECT_STREQ(n2->diagnosis, "unknown");
    EXPECT_STREQ(n2->adminState, "");
    EXPECT_STREQ(n2->version, "");
    EXPECT_EQ(n2->pagePool, 0);
    EXPECT_STREQ(n2->platform, "ppc64");
    EXPECT_STREQ(n2->endian, "big_endian");
    EXPECT_TRUE(isRecent(r->nodeUpdateTime));

    // The caller's tree holds the same, with the same stamp.
    ASSERT_EQ(caller.nodeItems.size(), 2u);
    NodeInfo* c1 = caller.nodeItems[0];
    EXPECT_STREQ(c1->name, "node1");
    EXPECT_STREQ(c1->ipAddr, "10.0.0.1");
    EXPECT_STREQ(c1->roles, "manager quorum ");
    EXPECT_STREQ(c1->status, "active");
    EXPECT_EQ(c1->maxStatCache, 500u);
    EXPECT_STREQ(c1->endian, "little_endian");
    EXPECT_STREQ(caller.nodeItems[1]->status, "unknown");
    EXPECT_STREQ(caller.nodeItems[1]->endian, "big_endian");
    EXPECT_EQ(caller.nodeUpdateTime.tv_sec, r->nodeUpdateTime.tv_sec);
    EXPECT_EQ(caller.nodeUpdateTime.tv_usec, r->nodeUpdateTime.tv_usec);

    std::unique_ptr<ClusterInfo> copy = recipeCopy();
    EXPECT_EQ(addresses(*copy), (Lines{"10.0.0.1", "10.0.0.2"}));
    EXPECT_STREQ(copy->nodeItems[1]->roles, "gateway snmp_collector ");
    EXPECT_STREQ(copy->nodeItems[0]->diagnosis, "ok");
}

TEST_F(NodeCollect, NoRefreshAppendsAllNorefresh)
{
    sdrquery.output(nodeLine("node1", "10.0.0.1", "false", "false", "s", "false", "false"));
    startHandler();
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 3), 0);
    EXPECT_EQ(sdrquery.commandLines(), (Lines{std::string(kNodeCmd) + " all norefresh"}));
    EXPECT_EQ(addresses(caller), (Lines{"10.0.0.1"}));
    EXPECT_STREQ(caller.nodeItems[0]->roles, "");
}

TEST_F(NodeCollect, MaxStatCacheMinusOneIsFourTimesFilesToCache)
{
    sdrquery.output(nodeLine("a", "10.0.0.1", "false", "false", "s", "false", "false") +
                    nodeLine("b", "10.0.0.2", "false", "false", "s", "false", "false") +
                    nodeLine("c", "10.0.0.3", "false", "false", "s", "false", "false"));
    daemon.respondAlways(
        "tavrel nc",
        {"_tavrel _n_ 10.0.0.1 _maxfilestocache_ 1000 _maxstatcache_ -1",
         // The product takes the field as it stands: a later value does not enter it.
         "_tavrel _n_ 10.0.0.2 _maxstatcache_ -1 _maxfilestocache_ 1000",
         "_tavrel _n_ 10.0.0.3 _maxfilestocache_ 7 _maxstatcache_ 4294967295"});
    startHandler();
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    ClusterInfo* r = handler()->recipe;
    EXPECT_EQ(r->nodeItems[0]->maxStatCache, 4000u);
    EXPECT_EQ(r->nodeItems[1]->maxStatCache, 0u);
    EXPECT_EQ(r->nodeItems[1]->maxFilesToCache, 1000u);
    EXPECT_EQ(r->nodeItems[2]->maxStatCache, 28u);
    EXPECT_EQ(caller.nodeItems[0]->maxStatCache, 4000u);

    // On the next poll the field holds the earlier 1000.
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    EXPECT_EQ(r->nodeItems[1]->maxStatCache, 4000u);
    EXPECT_EQ(caller.nodeItems[1]->maxStatCache, 4000u);
}

TEST_F(NodeCollect, EndianFromBitSevenOfHexFlags)
{
    sdrquery.output(nodeLine("a", "10.0.0.1", "false", "false", "s", "false", "false") +
                    nodeLine("b", "10.0.0.2", "false", "false", "s", "false", "false") +
                    nodeLine("c", "10.0.0.3", "false", "false", "s", "false", "false") +
                    nodeLine("d", "10.0.0.4", "false", "false", "s", "false", "false"));
    daemon.respond("tavrel v", {"_tavrel _n_ 10.0.0.1 _f_ 0x80", "_tavrel _n_ 10.0.0.2 _f_ 0x7f",
                                "_tavrel _n_ 10.0.0.3 _f_ 80", "_tavrel _n_ 10.0.0.4 _f_ 0xff81"});
    startHandler();
    LogCapture log;
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    EXPECT_STREQ(caller.nodeItems[0]->endian, "little_endian");
    EXPECT_STREQ(caller.nodeItems[1]->endian, "big_endian");
    EXPECT_STREQ(caller.nodeItems[2]->endian, "big_endian");
    EXPECT_STREQ(caller.nodeItems[3]->endian, "little_endian");
    Lines lines = log.lines();
    ASSERT_EQ(lines.size(), 9u);
    EXPECT_EQ(lines[5], info("extractedNodeAddr 10.0.0.1 bitFlags 0x80, endian 0x80 little_endian"));
    EXPECT_EQ(lines[6], info("extractedNodeAddr 10.0.0.2 bitFlags 0x7f, endian 0x7f big_endian"));
    EXPECT_EQ(lines[7], info("extractedNodeAddr 10.0.0.3 bitFlags 0x0, endian 80 big_endian"));
    EXPECT_EQ(lines[8],
              info("extractedNodeAddr 10.0.0.4 bitFlags 0xff81, endian 0xff81 little_endian"));
}

TEST_F(NodeCollect, SecondPollAddsNoNodeAndKeepsNameRolesAnd2010)
{
    sdrquery.output(nodeLine("node1", "10.0.0.1", "true", "false", "s1", "false", "false"));
    startHandler();
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    EXPECT_STREQ(caller.nodeItems[0]->roles, "manager ");

    // Same output: nothing new.
    LogCapture log;
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    EXPECT_EQ(log.lines(), (Lines{info("nNode 1")}));
    EXPECT_EQ(handler()->recipe->nodeItems.size(), 1u);
    EXPECT_STREQ(handler()->recipe->nodeItems[0]->roles, "manager ");

    // The repository now says otherwise: the node keeps what it was created with.
    sdrquery.output(nodeLine("renamed", "10.0.0.1", "false", "true", "s9", "true", "true"));
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    ASSERT_EQ(caller.nodeItems.size(), 1u);
    EXPECT_STREQ(caller.nodeItems[0]->name, "node1");
    EXPECT_STREQ(caller.nodeItems[0]->roles, "manager ");
    EXPECT_STREQ(caller.nodeItems[0]->sdrField2010, "s1");
    EXPECT_EQ(requestsSinceStart(), (Lines{"get nodes", "tavrel nc", "tavrel v", "get nodes",
                                           "tavrel nc", "tavrel v", "get nodes", "tavrel nc",
                                           "tavrel v"}));
}

TEST_F(NodeCollect, NodeNoLongerListedStaysInBothTrees)
{
    sdrquery.output(nodeLine("node1", "10.0.0.1", "false", "false", "s", "false", "false") +
                    nodeLine("node2", "10.0.0.2", "false", "false", "s", "false", "false"));
    daemon.respond("get nodes", {"_node_ _addr_ 10.0.0.2 _status_ active _healthy_ yes "
                                 "_diagnosis_ fine _admin_ up _failures_ 3"});
    daemon.respond("tavrel nc", {"_tavrel _n_ 10.0.0.2 _version_ 5.1"});
    startHandler();
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    EXPECT_STREQ(caller.nodeItems[1]->status, "active");

    sdrquery.output(nodeLine("node1", "10.0.0.1", "false", "false", "s", "false", "false"));
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    EXPECT_EQ(addresses(caller), (Lines{"10.0.0.1", "10.0.0.2"}));
    std::unique_ptr<ClusterInfo> copy = recipeCopy();
    EXPECT_EQ(addresses(*copy), (Lines{"10.0.0.1", "10.0.0.2"}));
    // Not reported any more: the reset texts, and the last other values.
    NodeInfo* gone = caller.nodeItems[1];
    EXPECT_STREQ(gone->status, "unknown");
    EXPECT_STREQ(gone->healthy, "no");
    EXPECT_STREQ(gone->diagnosis, "unknown");
    EXPECT_STREQ(gone->adminState, "up");
    EXPECT_EQ(gone->failures, 3);
    EXPECT_STREQ(gone->version, "5.1");
}

TEST_F(NodeCollect, UnknownAddressOutsideAllClustersChangesNothing)
{
    sdrquery.output(nodeLine("node1", "10.0.0.1", "false", "false", "s", "false", "false"));
    daemon.respond("get nodes", {"_node_ _addr_ 10.9.9.9 _name_ remote _status_ active"});
    daemon.respond("tavrel nc", {"_tavrel _n_ 10.9.9.9 _version_ 9"});
    daemon.respond("tavrel v", {"_tavrel _n_ 10.9.9.9 _f_ 0x80"});
    startHandler(POLL_LOCAL_CLUSTER);
    LogCapture log;
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    EXPECT_EQ(addresses(caller), (Lines{"10.0.0.1"}));
    EXPECT_EQ(addresses(*recipeCopy()), (Lines{"10.0.0.1"}));
    EXPECT_STREQ(caller.nodeItems[0]->status, "unknown");
    EXPECT_EQ(log.lines(), (Lines{info("new node 10.0.0.1"), info("nNode 1"),
                                  info("extractedNodeAddr 10.9.9.9 nodeIdx -1 nNode 1"),
                                  info("extractedNodeAddr 10.9.9.9 nodeIdx -1 nNode 1")}));
}

TEST_F(NodeCollect, AllClustersCreatesRemoteNodeNamedByItsLine)
{
    sdrquery.output(nodeLine("node1", "10.0.0.1", "true", "true", "s", "true", "true"));
    daemon.respond("get nodes", {"_node_ _addr_ 10.0.0.1 _status_ active",
                                 "_node_ _addr_ 10.9.9.9 _name_ remote1 _status_ arbitrating "
                                 "_healthy_ yes"});
    daemon.respond("get nodes", {"_node_ _addr_ 10.9.9.9 _name_ changed _status_ active"});
    daemon.respond("tavrel v", {"_tavrel _n_ 10.9.9.9 _nn_ fromv _p_ aarch64 _f_ 0x0"});
    startHandler(POLL_ALL_CLUSTERS);
    LogCapture log;
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    EXPECT_EQ(log.lines(),
              (Lines{info("new node 10.0.0.1"), info("nNode 1"),
                     info("extractedNodeAddr 10.0.0.1 nodeIdx 0 nNode 1"),
                     info("extractedNodeAddr 10.0.0.1 nodeIdx 0 nNode 1"),
                     info("extractedNodeAddr 10.9.9.9 nodeIdx -1 nNode 1"),
                     info("extractedNodeAddr 10.9.9.9 nodeIdx -1 nNode 1"),
                     info("pollingScope: POLL_ALL_CLUSTERS nNode 2 idx 1 addr 10.9.9.9"),
                     info("new NODE: name remote1"),
                     info("extractedNodeAddr 10.9.9.9 bitFlags 0x0, endian 0x0 big_endian")}));
    ASSERT_EQ(addresses(caller), (Lines{"10.0.0.1", "10.9.9.9"}));
    NodeInfo* remote = caller.nodeItems[1];
    EXPECT_STREQ(remote->name, "remote1");
    EXPECT_STREQ(remote->roles, "");
    EXPECT_STREQ(remote->sdrField2010, "");
    EXPECT_STREQ(remote->status, "arbitrating");
    EXPECT_STREQ(remote->healthy, "yes");
    // Created after the reset of this poll: only the line's own values.
    EXPECT_STREQ(remote->diagnosis, "");
    EXPECT_STREQ(remote->platform, "aarch64");

    // Later polls keep the name, and reset the remote node too.
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    EXPECT_EQ(addresses(caller), (Lines{"10.0.0.1", "10.9.9.9"}));
    EXPECT_STREQ(caller.nodeItems[1]->name, "remote1");
    EXPECT_STREQ(caller.nodeItems[1]->status, "active");
    EXPECT_STREQ(caller.nodeItems[1]->diagnosis, "unknown");
    EXPECT_STREQ(caller.nodeItems[0]->status, "unknown");
    EXPECT_STREQ(caller.nodeItems[0]->roles, "manager quorum gateway snmp_collector ");
}

TEST_F(NodeCollect, AllClustersRemoteNodeWithoutNameTakesItFromTavrelV)
{
    sdrquery.output(nodeLine("node1", "10.0.0.1", "false", "false", "s", "false", "false"));
    daemon.respond("get nodes", {"_node_ _addr_ 10.9.9.9 _status_ active"});
    daemon.respond("tavrel v", {"_tavrel _n_ 10.9.9.9 _nn_ fromv _p_ aarch64",
                                "_tavrel _n_ 10.0.0.1 _nn_ notused"});
    startHandler(POLL_ALL_CLUSTERS);
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    EXPECT_STREQ(caller.nodeItems[1]->name, "fromv");
    EXPECT_STREQ(caller.nodeItems[0]->name, "node1");
}

TEST_F(NodeCollect, EmptyColumnThreeLeavesNoRoles)
{
    sdrquery.output("vksdrquery:sdrq_node_info:0:3:::node1:10.0.0.1::true:true:c:s1:true:true:\n");
    startHandler();
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    ASSERT_EQ(caller.nodeItems.size(), 1u);
    EXPECT_STREQ(caller.nodeItems[0]->name, "node1");
    EXPECT_STREQ(caller.nodeItems[0]->ipAddr, "10.0.0.1");
    EXPECT_STREQ(caller.nodeItems[0]->roles, "");
    EXPECT_STREQ(caller.nodeItems[0]->sdrField2010, "");
}

TEST_F(NodeCollect, UnmatchedFirstLineCreatesNodeWithEmptyAddress)
{
    sdrquery.output("some other text\n");
    startHandler();
    LogCapture log;
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    ASSERT_EQ(caller.nodeItems.size(), 1u);
    EXPECT_STREQ(caller.nodeItems[0]->ipAddr, "");
    EXPECT_STREQ(caller.nodeItems[0]->name, "");
    EXPECT_EQ(handler()->recipe->getNodeInfoIndex(""), 0);
    Lines lines = log.lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[0], info("new node "));
    EXPECT_EQ(lines[1], info("nNode 1"));
}

TEST_F(NodeCollect, RoleNeedsExactTrue)
{
    sdrquery.output(nodeLine("a", "10.0.0.1", "True", "true ", "s", "TRUE", "yes") +
                    nodeLine("b", "10.0.0.2", "false", "true", "s", "true", "false"));
    startHandler();
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    EXPECT_STREQ(caller.nodeItems[0]->roles, "");
    EXPECT_STREQ(caller.nodeItems[1]->roles, "quorum snmp_collector ");
}

TEST_F(NodeCollect, PercentDecodingOfTheDecodedColumnsOnly)
{
    sdrquery.output(nodeLine("n%3A1", "fe80%3A%3A1", "tru%65", "false", "a%3Ab", "tru%65",
                             "%74rue"));
    startHandler();
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    ASSERT_EQ(caller.nodeItems.size(), 1u);
    EXPECT_STREQ(caller.nodeItems[0]->name, "n:1");
    EXPECT_STREQ(caller.nodeItems[0]->ipAddr, "fe80::1");
    EXPECT_STREQ(caller.nodeItems[0]->roles, "manager gateway snmp_collector ");
    // Column 2010 stays as the tool printed it.
    EXPECT_STREQ(caller.nodeItems[0]->sdrField2010, "a%3Ab");
}

TEST_F(NodeCollect, LineWithReturnCodeStopsReading)
{
    sdrquery.output(nodeLine("a", "10.0.0.1", "false", "false", "s", "false", "false") +
                    nodeLine("b", "10.0.0.2", "false", "false", "s", "false", "false", 1) +
                    nodeLine("c", "10.0.0.3", "false", "false", "s", "false", "false"));
    startHandler();
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    EXPECT_EQ(addresses(caller), (Lines{"10.0.0.1"}));
    EXPECT_EQ(requestsSinceStart(), (Lines{"get nodes", "tavrel nc", "tavrel v"}));
}

TEST_F(NodeCollect, ExitStatusKeepsNewNodesInRecipeOnly)
{
    sdrquery.output(nodeLine("a", "10.0.0.1", "false", "false", "s", "false", "false"), 2);
    startHandler();
    LogCapture log;
    MErrno err = 0;
    ClusterInfo caller(&err);
    StderrCapture cap;
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 1);
    EXPECT_EQ(stripTimes(cap.finish()),
              "ERROR: PollingHandler::updateNodeInfo: pclose exit status: 2\n");
    EXPECT_EQ(log.lines(), (Lines{info("new node 10.0.0.1"),
                                  "ERROR: PollingHandler::updateNodeInfo: pclose exit status: 2"}));
    EXPECT_TRUE(requestsSinceStart().empty());
    EXPECT_TRUE(caller.nodeItems.empty());
    EXPECT_EQ(addresses(*recipeCopy()), (Lines{"10.0.0.1"}));
    EXPECT_TRUE(lockIsFree(handler()));
}

TEST(NodeCollectNoTool, MissingToolFailsWithShellStatus)
{
    FakeDaemon daemon;
    FakeTool kxctl("kxctl");
    kxctl.output("3504\n");
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_CLUSTER), 0);
    size_t before = daemon.requestLines().size();
    {
        LogCapture log;
        MErrno err = 0;
        ClusterInfo caller(&err);
        StderrCapture cap;
        EXPECT_EQ(thePollingHandler->updateNodeInfo(&caller, 0), 1);
        cap.finish();
        EXPECT_EQ(log.lines(),
                  (Lines{"ERROR: PollingHandler::updateNodeInfo: pclose exit status: 127"}));
        EXPECT_EQ(daemon.requestLines().size(), before);
        EXPECT_TRUE(thePollingHandler->recipe->nodeItems.empty());
    }
    PollingHandler::term();
}

TEST_F(NodeCollect, PopenFailureLogsTheCommandLine)
{
    startHandler();
    LogCapture log;
    MErrno err = 0;
    ClusterInfo caller(&err);
    int rc;
    {
        PopenFailure block;
        ASSERT_GT(block.held(), 0u);
        rc = handler()->updateNodeInfo(&caller, 0);
    }
    EXPECT_EQ(rc, 1);
    EXPECT_EQ(log.lines(), (Lines{std::string("ERROR: PollingHandler::updateNodeInfo: Error: "
                                              "Couldn't find ") +
                                  kNodeCmd + " command"}));
    EXPECT_TRUE(sdrquery.calls().empty());
    EXPECT_TRUE(requestsSinceStart().empty());
    EXPECT_TRUE(lockIsFree(handler()));
}

TEST_F(NodeCollect, GetNodesScanEndsWhenCountExceedsSix)
{
    sdrquery.output(nodeLine("a", "10.0.0.1", "false", "false", "s", "false", "false"));
    daemon.respond("get nodes",
                   {"_node_ _addr_ 10.0.0.1 _admin_ a1 _name_ x _admin_ a2 _admin_ a3 _admin_ a4 "
                    "_admin_ a5 _admin_ a6 _admin_ a7 _status_ late"});
    startHandler();
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    EXPECT_STREQ(caller.nodeItems[0]->adminState, "a7");
    EXPECT_STREQ(caller.nodeItems[0]->status, "unknown");
    EXPECT_STREQ(caller.nodeItems[0]->name, "a");
}

TEST_F(NodeCollect, TavrelNcScanEndsWhenCountExceedsFourteen)
{
    sdrquery.output(nodeLine("a", "10.0.0.1", "false", "false", "s", "false", "false"));
    std::string line = "_tavrel _n_ 10.0.0.1";
    for (int i = 1; i <= 15; i++)
        line += " _pfthreads_ " + std::to_string(i);
    line += " _maxmbps_ 99";
    daemon.respond("tavrel nc", {line});
    startHandler();
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    EXPECT_EQ(caller.nodeItems[0]->pfThreads, 15u);
    EXPECT_EQ(caller.nodeItems[0]->maxMBps, 0u);
}

TEST_F(NodeCollect, TavrelVScanEndsWhenCountExceedsFive)
{
    sdrquery.output(nodeLine("a", "10.0.0.1", "false", "false", "s", "false", "false"));
    daemon.respond("tavrel v", {"_tavrel _n_ 10.0.0.1 _p_ p1 _p_ p2 _other_ o _p_ p3 _p_ p4 "
                                "_p_ p5 _p_ p6 _f_ 0x80"});
    startHandler();
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    EXPECT_STREQ(caller.nodeItems[0]->platform, "p6");
    EXPECT_STREQ(caller.nodeItems[0]->endian, "");
}

TEST_F(NodeCollect, UnknownNodeInTavrelLinesIsDropped)
{
    sdrquery.output(nodeLine("a", "10.0.0.1", "false", "false", "s", "false", "false"));
    daemon.respond("tavrel nc", {"_tavrel _n_ 10.0.0.9 _version_ 9", "_tavrel _version_ 8"});
    daemon.respond("tavrel v", {"_tavrel _n_ 10.0.0.9 _p_ x"});
    startHandler();
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    EXPECT_EQ(addresses(caller), (Lines{"10.0.0.1"}));
    EXPECT_STREQ(caller.nodeItems[0]->version, "");
    EXPECT_STREQ(caller.nodeItems[0]->platform, "");
}

TEST_F(NodeCollect, NameOfRepositoryIsNotOverwrittenByDaemon)
{
    sdrquery.output(nodeLine("repo", "10.0.0.1", "false", "false", "s", "false", "false"));
    daemon.respond("get nodes", {"_node_ _addr_ 10.0.0.1 _name_ daemonname"});
    daemon.respond("tavrel v", {"_tavrel _n_ 10.0.0.1 _nn_ vname"});
    startHandler();
    LogCapture log;
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    EXPECT_STREQ(caller.nodeItems[0]->name, "repo");
    for (const std::string& l : log.lines())
        EXPECT_EQ(l.find("new NODE"), std::string::npos) << l;
}

TEST_F(NodeCollect, CallerTreeFollowsRecipeWithDiskAccesses)
{
    sdrquery.output(nodeLine("a", "10.0.0.1", "false", "false", "s", "false", "false"));
    startHandler();
    MErrno err = 0;
    ClusterInfo caller(&err);
    // A stale node of the caller's goes; the recipe's disk paths come along.
    NodeInfo* stale = new NodeInfo(&err);
    strcpy(stale->ipAddr, "10.0.0.99");
    caller.nodeItems.push_back(stale);
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    EXPECT_EQ(addresses(caller), (Lines{"10.0.0.1"}));
    EXPECT_TRUE(caller.nodeItems[0]->diskAccessItems.empty());

    DiskAccessInfo* path = new DiskAccessInfo(&err);
    strcpy(path->diskName, "d1");
    strcpy(path->deviceName, "/dev/sdb");
    handler()->recipe->nodeItems[0]->diskAccessItems.push_back(path);
    EXPECT_EQ(handler()->updateNodeInfo(&caller, 0), 0);
    ASSERT_EQ(caller.nodeItems[0]->diskAccessItems.size(), 1u);
    EXPECT_STREQ(caller.nodeItems[0]->diskAccessItems[0]->diskName, "d1");
    EXPECT_STREQ(caller.nodeItems[0]->diskAccessItems[0]->deviceName, "/dev/sdb");
}

TEST_F(NodeCollect, TakesThePollingLockForTheWholeRun)
{
    sdrquery.output(nodeLine("a", "10.0.0.1", "false", "false", "s", "false", "false"));
    // The daemon holds its answer back; meanwhile the lock is held.
    Response slow{"_node_ _addr_ 10.0.0.1 _status_ active"};
    slow.delayMs = 300;
    daemon.respond("get nodes", slow);
    startHandler();
    MErrno err = 0;
    ClusterInfo caller(&err);
    int rc = -1;
    size_t before = daemon.requestLines().size();
    std::thread poll([&] { rc = handler()->updateNodeInfo(&caller, 0); });
    EXPECT_TRUE(daemon.waitForRequests(before + 1, 2000));
    EXPECT_EQ(pthread_mutex_trylock(&handler()->pollingMutex), EBUSY);
    poll.join();
    EXPECT_EQ(rc, 0);
    EXPECT_TRUE(lockIsFree(handler()));
    EXPECT_STREQ(caller.nodeItems[0]->status, "active");
}
