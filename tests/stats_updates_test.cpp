// Statistics updates onto the inventory: both trees, realistic responses,
// and the oddities of each family's scan.
#include <quelvane/api_poll.h>
#include <quelvane/cache_stats_info.h>
#include <quelvane/cluster_info.h>
#include <quelvane/config_stats_info.h>
#include <quelvane/pcache_stats_info.h>
#include <quelvane/rpc_stats_info.h>
#include <quelvane/vfs_stats_info.h>

#include "../poll/statistics/shared_records_internal.h"
#include "support/files.h"
#include "support/handler_fixture.h"
#include "support/log_capture.h"
#include "support/log_entries.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <list>
#include <memory>
#include <thread>
#include <string>
#include <vector>

using namespace qvtest;

namespace {

std::string addr(int k)
{
    return "10.0.0." + std::to_string(k + 1);
}

class StatsUpdate : public HandlerFixture
{
protected:
    std::unique_ptr<ClusterInfo> app;

    // A handler whose recipe has `n` nodes (status "up" unless given), and an
    // application tree copied from it.
    void startWithNodes(int n, const std::vector<std::string>& statuses = {}, int debug = 0,
                        int scope = POLL_LOCAL_CLUSTER)
    {
        startHandler(scope, debug);
        for (int k = 0; k < n; k++) {
            MErrno err = 0;
            NodeInfo* node = new NodeInfo(&err);
            snprintf(node->name, sizeof(node->name), "node%d", k + 1);
            snprintf(node->ipAddr, sizeof(node->ipAddr), "%s", addr(k).c_str());
            snprintf(node->status, sizeof(node->status), "%s",
                     k < static_cast<int>(statuses.size()) ? statuses[static_cast<size_t>(k)].c_str() : "up");
            handler()->recipe->nodeItems.push_back(node);
        }
        MErrno err = 0;
        app.reset(new ClusterInfo(&err));
        ASSERT_EQ(handler()->copyRecipe(app.get()), 0);
        ASSERT_EQ(app->nodeItems.size(), static_cast<size_t>(n));
    }
    NodeInfo* mine(int k) { return handler()->recipe->nodeItems[static_cast<size_t>(k)]; }
    NodeInfo* theirs(int k) { return app->nodeItems[static_cast<size_t>(k)]; }
};

} // namespace

// ---------------------------------------------------------------- cache, ioc, vfs

TEST_F(StatsUpdate, CacheThreeNodesSecondFailed)
{
    startWithNodes(3);
    daemon.respond("tavrel chms", {"_tavrel _n_ 10.0.0.1 _rc_ 0 _dch_ 1 _dcm_ 2 _sch_ 3 _scm_ 4",
                                   "_tavrel _n_ 10.0.0.2 _rc_ 2 _dch_ 9 _dcm_ 9 _sch_ 9 _scm_ 9",
                                   "_tavrel _n_ 10.0.0.3 _rc_ 0 _dch_ 5 _dcm_ 6 _sch_ 7 _scm_ 8",
                                   "_tavrel _n_ 10.9.9.9 _rc_ 0 _dch_ 7"});
    EXPECT_EQ(handler()->updateCacheStatsInfo(app.get()), 0);
    EXPECT_EQ(requestsSinceStart(), (std::vector<std::string>{"tavrel chms"}));
    for (NodeInfo* n : {mine(0), theirs(0)}) {
        ASSERT_NE(n->cacheStats, nullptr);
        EXPECT_EQ(n->cacheStats->dcHits, 1u);
        EXPECT_EQ(n->cacheStats->dcMisses, 2u);
        EXPECT_EQ(n->cacheStats->scHits, 3u);
        EXPECT_EQ(n->cacheStats->scMisses, 4u);
        EXPECT_STREQ(n->cacheStats->nodeAddr, "");
        EXPECT_EQ(n->cacheStats->recordSize, 284u);
    }
    for (NodeInfo* n : {mine(1), theirs(1)}) {
        ASSERT_NE(n->cacheStats, nullptr);
        EXPECT_EQ(n->cacheStats->dcHits + n->cacheStats->dcMisses + n->cacheStats->scHits + n->cacheStats->scMisses, 0u);
        EXPECT_EQ(n->cacheStats->rc, 0);
    }
    EXPECT_EQ(theirs(2)->cacheStats->scMisses, 8u);
    // Each tree has records of its own.
    EXPECT_NE(mine(0)->cacheStats, theirs(0)->cacheStats);
}

TEST_F(StatsUpdate, CacheWarningNamesTheNodeCount)
{
    startWithNodes(2, {}, 1);
    daemon.respond("tavrel chms", {"_tavrel _n_ 10.0.0.1 _rc_ 7", "_tavrel _n_ 10.0.0.2 _rc_ 3"});
    StderrCapture err;
    EXPECT_EQ(handler()->updateCacheStatsInfo(app.get()), 0);
    std::string text = err.finish();
    EXPECT_NE(text.find("_warning_ 2 instance: 'tavrel chms' returned error rc=7\n"), std::string::npos);
    EXPECT_NE(text.find("_warning_ 2 instance: 'tavrel chms' returned error rc=3\n"), std::string::npos);
    EXPECT_EQ(mine(0)->cacheStats->rc, 0);   // not stored, unlike the query
}

TEST_F(StatsUpdate, IocInEveryScopeWithTheDoubledSync)
{
    for (int scope : {POLL_LOCAL_CLUSTER, POLL_LOCAL_NODE}) {
        startWithNodes(1, {}, 0, scope);
        daemon.respond("tavrel iocs", {"_tavrel _n_ 10.0.0.1 _rc_ 0 _other_ 1 2 _mb_ 3 4 _steal_ 5 6 _cleaner_ 7 8 "
                                       "_sync_ 9 10 _logwrap_ 11 12 _revoke_ 13 14 _prefetch_ 15 16"});
        ASSERT_EQ(handler()->updateIocStatsInfo(app.get()), 0);
        const uint32_t* m = mine(0)->iocStats->other;
        for (int i = 0; i < 16; i++)
            EXPECT_EQ(m[i], static_cast<uint32_t>(i + 1));
        const uint32_t* t = theirs(0)->iocStats->other;
        for (int i = 0; i < 16; i++)
            EXPECT_EQ(t[i], i == 9 ? 9u : static_cast<uint32_t>(i + 1)) << i;
        app.reset();
        stopHandler();
    }
}

TEST_F(StatsUpdate, VfsHangsOnBothTrees)
{
    startWithNodes(2);
    daemon.respond("tavrel vfss", {"_tavrel _n_ 10.0.0.2 _rc_ 0 _read_ 4 0.5 _write_ 2 0.25 _vget_ 1 1"});
    ASSERT_EQ(handler()->updateVfsStatsInfo(app.get()), 0);
    EXPECT_EQ(theirs(1)->vfsStats->readCount, 4u);
    EXPECT_EQ(theirs(1)->vfsStats->writeTime, 0.25f);
    EXPECT_EQ(theirs(1)->vfsStats->vgetCount, 1u);
    EXPECT_EQ(theirs(0)->vfsStats->readCount, 0u);
    EXPECT_EQ(mine(1)->vfsStats->readCount, 4u);
}

TEST_F(StatsUpdate, RefusedWithoutNodesOrWithAFailedNode)
{
    startWithNodes(0);
    EXPECT_EQ(handler()->updateCacheStatsInfo(app.get()), 1);
    MErrno err = 0;
    NodeInfo* n = new NodeInfo(&err);
    strcpy(n->status, "Xfailed");
    handler()->recipe->nodeItems.push_back(n);
    EXPECT_EQ(handler()->updateVfsStatsInfo(app.get()), 1);
    EXPECT_TRUE(requestsSinceStart().empty());
}

TEST_F(StatsUpdate, AShorterApplicationTreeThrowsWithTheLockHeld)
{
    startWithNodes(2);
    delete app->nodeItems.back();
    app->nodeItems.pop_back();
    EXPECT_THROW(handler()->updateCacheStatsInfo(app.get()), std::out_of_range);
    EXPECT_NE(pthread_mutex_trylock(&handler()->pollingMutex), 0);
    handler()->releasePollingLock();
}

TEST_F(StatsUpdate, RequestIsSentAgainUntilTheDaemonIsBack)
{
    startWithNodes(1);
    daemon.respond("tavrel chms", {"_tavrel _n_ 10.0.0.1 _rc_ 0 _dch_ 5"});
    ASSERT_EQ(handler()->updateCacheStatsInfo(app.get()), 0);
    ASSERT_EQ(theirs(0)->cacheStats->dcHits, 5u);
    daemon.stop();
    // With the daemon gone the request is sent again until it is back.
    std::thread back([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        daemon.respond("tavrel chms", {"_tavrel _n_ 10.0.0.1 _rc_ 0 _dch_ 6"});
        daemon.start();
    });
    EXPECT_EQ(handler()->updateCacheStatsInfo(app.get()), 0);
    back.join();
    EXPECT_EQ(theirs(0)->cacheStats->dcHits, 6u);
}

// ---------------------------------------------------------------- threads

TEST_F(StatsUpdate, ThreadsFailedAndDownNodesLoseTheirRecord)
{
    startWithNodes(3, {"up", "up", "down"}, 1);
    daemon.respond("tavrel threads",
                   {"_tavrel _n_ 10.0.0.1 _rc_ 0 _nthreads_ 40 _seq_ 3 _noncri_ 1/2/3 _daestr_ 4/5/6",
                    "_tavrel _n_ 10.0.0.2 _rc_ 2", "_tavrel _n_ 10.0.0.3 _rc_ 0 _nthreads_ 5"});
    LogCapture log;
    StderrCapture err;
    EXPECT_EQ(handler()->updateThreadUtilInfo(app.get()), 0);
    std::string text = err.finish();
    ASSERT_NE(mine(0)->threadUtil, nullptr);
    ASSERT_NE(theirs(0)->threadUtil, nullptr);
    for (ThreadUtilInfo* t : {mine(0)->threadUtil, theirs(0)->threadUtil}) {
        EXPECT_EQ(t->rc, 0);   // the update sets rc 0 on a good record
        EXPECT_EQ(t->nThreads, 40u);
        EXPECT_EQ(t->seq, 3u);
        EXPECT_EQ(t->noncri.count3, 3);
        EXPECT_EQ(t->daestr.count1, 4);
        EXPECT_EQ(t->multh.count2, 5);
    }
    EXPECT_EQ(mine(1)->threadUtil, nullptr);
    EXPECT_EQ(theirs(1)->threadUtil, nullptr);
    EXPECT_EQ(mine(2)->threadUtil, nullptr);
    EXPECT_EQ(theirs(2)->threadUtil, nullptr);
    const char* who = "updateThreadUtilInfo";
    EXPECT_EQ(logged(log), (std::vector<std::string>{
                               I(who, "nNodes 3, nNodes2"), I(who, "extractedNodeAddr 10.0.0.1 nodeIdx 0"),
                               I(who, "extractedNodeAddr 10.0.0.2 nodeIdx 1"),
                               I(who, "_warning_ 3 instance: 'tavrel threads' returned error rc=2"),
                               I(who, "extractedNodeAddr 10.0.0.3 nodeIdx 2"),
                               I(who, "_warning_ Node 10.0.0.3: 'tavrel threads' returned error rc=1")}));
    EXPECT_NE(text.find("_warning_ 3 instance: 'tavrel threads' returned error rc=2\n"), std::string::npos);
    EXPECT_NE(text.find("_warning_ Node 10.0.0.3: 'tavrel threads' returned error rc=1\n"), std::string::npos);
    // The next update makes the records again.
    daemon.respond("tavrel threads", {"_tavrel _n_ 10.0.0.2 _rc_ 0 _seq_ 9"});
    EXPECT_EQ(handler()->updateThreadUtilInfo(app.get()), 0);
    ASSERT_NE(theirs(1)->threadUtil, nullptr);
    EXPECT_EQ(theirs(1)->threadUtil->seq, 9u);
}

// ---------------------------------------------------------------- verbs

TEST_F(StatsUpdate, VerbsClientAndServerEveryField)
{
    startWithNodes(2, {}, 1);
    daemon.respond("tavrel verbsc", {"_tavrel _n_ 10.0.0.1 _rc_ 0 _dst 10.0.0.2 _st_ connected _crw_ 1 _prw_ 2 "
                                     "_frd_ 3 _frk_ 5 _fwr_ 4 _fwk_ 6 _dvi_ 7 _prt_ 8",
                                     "_tavrel _n_ 10.0.0.2 _rc_ 4"});
    daemon.respond("tavrel verbss", {"_tavrel _n_ 10.0.0.2 _rc_ 0 _dst 10.0.0.1 _st_ idle _crd_ 11 _wrd_ 12 "
                                     "_rrd_ 13 _rwr_ 14 _rdk_ 15 _rwk_ 16 _dvi_ 17 _prt_ 18 _crw_ 99",
                                     "_tavrel _n_ 10.0.0.1 _rc_ 6"});
    StderrCapture err;
    ASSERT_EQ(handler()->updateVerbsClientInfo(app.get()), 0);
    ASSERT_EQ(handler()->updateVerbsServerInfo(app.get()), 0);
    std::string text = err.finish();
    VerbsClientStatsInfo* c = theirs(0)->verbsClient;
    EXPECT_STREQ(c->dst, "10.0.0.2");
    EXPECT_STREQ(c->st, "connected");
    EXPECT_EQ(c->c1, 1u);
    EXPECT_EQ(c->c2, 2u);
    EXPECT_EQ(c->c3, 3u);
    EXPECT_EQ(c->c4, 4u);
    EXPECT_EQ(c->c5, 5u);
    EXPECT_EQ(c->c6, 6u);
    EXPECT_EQ(c->dvi, 7u);
    EXPECT_EQ(c->prt, 8u);
    EXPECT_EQ(c->recordSize, 584u);
    EXPECT_EQ(theirs(1)->verbsClient->rc, 4);
    VerbsServerStatsInfo* v = theirs(1)->verbsServer;
    EXPECT_STREQ(v->dst, "10.0.0.1");
    EXPECT_STREQ(v->st, "idle");
    EXPECT_EQ(v->c1, 11u);
    EXPECT_EQ(v->c6, 16u);
    EXPECT_EQ(v->dvi, 17u);
    EXPECT_EQ(v->prt, 18u);
    EXPECT_EQ(theirs(0)->verbsServer->rc, 6);
    // The server's update names the client's request in its warning.
    EXPECT_NE(text.find("_warning_ : 'tavrel verbsc' returned error rc=4\n"), std::string::npos);
    EXPECT_NE(text.find("_warning_ : 'tavrel verbsc' returned error rc=6\n"), std::string::npos);
    EXPECT_EQ(text.find("'tavrel verbss'"), std::string::npos);
}

// ---------------------------------------------------------------- kxcommcfg

TEST_F(StatsUpdate, KxcommEveryFieldAndTheRcOfFailedLines)
{
    startWithNodes(3, {}, 1);
    std::string list(300, 'a');
    daemon.respond("tavrel kxcommcfg",
                   {"_tavrel _n_ 10.0.0.3 _rc_ 4",
                    "_tavrel _n_ 10.0.0.1 _rc_ 0 _naddr_ 192.168.1.1 _addrlist_ " + list +
                        " _port_ 4294967297 _no_ 3 _commver_ 4 _compatver_ 5 _maxcompatver_ 6 _maxfeat_ 7",
                    "_tavrel _n_ 10.0.0.2 _rc_ 5", "_tavrel _n_ 10.0.0.2 _rc_ 0 _naddr_ x"});
    StderrCapture err;
    ASSERT_EQ(handler()->updateKxcommCfgInfo(app.get()), 0);
    std::string text = err.finish();
    KxcommCfgInfo* k = theirs(0)->kxcommCfg;
    EXPECT_STREQ(k->nodeAddr, "192.168.1.1");
    EXPECT_EQ(std::string(k->addrList), list.substr(0, 256));   // 256 characters arrive
    EXPECT_EQ(k->port, 1u);   // the low 32 bits
    EXPECT_EQ(k->nodeNumber, 3u);
    EXPECT_EQ(k->commVersion, 4u);
    EXPECT_EQ(k->compatVersion, 5u);
    EXPECT_EQ(k->maxCompatVersion, 6u);
    EXPECT_EQ(k->maxFeature, 7u);
    // rc 5 went into the record of the line before (node 1), and the copy
    // brings it to the application's tree.
    EXPECT_EQ(mine(0)->kxcommCfg->rc, 5);
    EXPECT_EQ(k->rc, 5);
    // rc 4 of the first line went into the application's record of the last
    // node, which the copy then overwrites with the recipe's.
    EXPECT_EQ(theirs(2)->kxcommCfg->rc, 0);
    EXPECT_STREQ(theirs(1)->kxcommCfg->nodeAddr, "x");
    EXPECT_NE(text.find("_warning_ : 'tavrel kxcommcfg_s' returned error rc=4\n"), std::string::npos);
}

// ---------------------------------------------------------------- cfgmgr

namespace {

std::string cfgLine(const std::string& prefix, const std::string& n, int i, int rc = 0)
{
    std::string s = std::to_string(i);
    return prefix + " _n_ " + n + " _rc_ " + std::to_string(rc) + " _naddr_ 192.168.0." + s + " _host_ h" + s +
           " _cl_ c1 _ip_ 10.1.0." + s + " _admin_ a" + s + " _tr_ t" + s + " _p_ p" + s + " _rpc_ r" + s +
           " _lastfail_ l" + s + " _no_ " + s + " _joinseq_ 1" + s + " _failcnt_ 2" + s + " _fsmanaged_ 3" + s +
           " _cnfsgrp_ 4" + s + " _rcksum_ 5" + s + " _wcksum_ 6" + s;
}

} // namespace

TEST_F(StatsUpdate, ClusterConfigSharedListsAndTheBound)
{
    startWithNodes(2);
    std::vector<std::string> lines;
    for (int i = 1; i <= 5; i++)
        lines.push_back(cfgLine("_tavrel::cfgmgr_", addr(0), i));
    daemon.respond("tavrel cfgmgr", Response(lines));
    ASSERT_EQ(handler()->updateClusterCfgInfo(app.get()), 0);
    std::list<ClusterCfgInfo*>& list = handler()->recipe->clusterCfgItems;
    ASSERT_EQ(list.size(), 4u);
    std::vector<std::string> hosts;
    for (ClusterCfgInfo* r : list)
        hosts.push_back(r->hostName);
    // The fourth line ended the inner loop at the bound and was dropped.
    EXPECT_EQ(hosts, (std::vector<std::string>{"h1", "h2", "h3", "h5"}));
    EXPECT_EQ(app->clusterCfgItems, list);
    ClusterCfgInfo* r = list.front();
    EXPECT_STREQ(r->nodeAddr, "192.168.0.1");
    EXPECT_STREQ(r->clusterName, "c1");
    EXPECT_STREQ(r->ipAddr, "10.1.0.1");
    EXPECT_STREQ(r->adminName, "a1");
    EXPECT_STREQ(r->gpnTrans, "t1");
    EXPECT_STREQ(r->gpnStatus, "p1");
    EXPECT_STREQ(r->nodeStatus, "r1");
    EXPECT_STREQ(r->lastFail, "l1");
    EXPECT_EQ(r->nodeNumber, 1u);
    EXPECT_EQ(r->joinSeq, 11u);
    EXPECT_EQ(r->failCount, 21u);
    EXPECT_EQ(r->fsManaged, 31u);
    EXPECT_EQ(r->cnfsGroup, 41u);
    EXPECT_EQ(r->readChecksum, 51u);
    EXPECT_EQ(r->writeChecksum, 61u);
    EXPECT_EQ(qv::shareHolders(r), 2);

    // A refused second update: the recipe's list is gone, the application's
    // list stays (and its records readable).
    MErrno err = 0;
    NodeInfo* failed = new NodeInfo(&err);
    strcpy(failed->status, "Xfailed");
    handler()->recipe->nodeItems.push_back(failed);
    EXPECT_EQ(handler()->updateClusterCfgInfo(app.get()), 1);
    EXPECT_TRUE(handler()->recipe->clusterCfgItems.empty());
    ASSERT_EQ(app->clusterCfgItems.size(), 4u);
    EXPECT_STREQ(app->clusterCfgItems.back()->hostName, "h5");
    EXPECT_EQ(qv::shareHolders(app->clusterCfgItems.back()), 1);
}

TEST_F(StatsUpdate, ClusterConfigFailedLinesAndUnknownNodes)
{
    startWithNodes(2, {}, 1);
    daemon.respond("tavrel cfgmgr", {cfgLine("_tavrel", "10.9.9.9", 1), cfgLine("_tavrel::cfgmgr_", addr(1), 2, 3),
                                     cfgLine("_tavrel", addr(1), 3), cfgLine("_tavrel::cfgmgr_", "x", 4, 8),
                                     cfgLine("_tavrel::cfgmgr_", "y", 5)});
    StderrCapture err;
    ASSERT_EQ(handler()->updateClusterCfgInfo(app.get()), 0);
    std::string text = err.finish();
    std::vector<std::string> hosts;
    for (ClusterCfgInfo* r : app->clusterCfgItems)
        hosts.push_back(r->hostName);
    // Line 1: unknown node. Line 2 failed as a first line. Line 3 starts a
    // group, line 4 failed in it, line 5 joins it.
    EXPECT_EQ(hosts, (std::vector<std::string>{"h3", "h5"}));
    EXPECT_NE(text.find("_warning_ : 'tavrel clustercfg_s' returned error rc=3\n"), std::string::npos);
    EXPECT_NE(text.find("_warning_ : 'tavrel clustercfg_s' returned error rc=8\n"), std::string::npos);
}

// ---------------------------------------------------------------- pncs

TEST_F(StatsUpdate, PCacheLinesAfterTheFirstGoodOneHangOnItsNode)
{
    startWithNodes(2);
    daemon.respond("tavrel pncs",
                   {"_tavrel::pncs_ _n_ 10.0.0.1 _rc_ 0 _fs_ fs1 _fset_ a1 _hcn_ 10 _hdi_ 11 _fex_ 12 _nme_ 13 _br_ 1 "
                    "_bw_ 2 _ne_ 3 _nf_ 4 _ns_ 5 _nr_ 6 _ws_ 7 _wl_ 8 _wa_ 9",
                    "_tavrel::pncs_ _n_ 10.0.0.1 _rc_ 0 _fs_ fs1 _fset_ a2 _br_ 21",
                    "_tavrel::pncs_ _n_ 10.0.0.2 _rc_ 0 _fs_ fs2 _fset_ b1 _br_ 31"});
    ASSERT_EQ(handler()->updatePCacheStatsInfo(app.get()), 0);
    ASSERT_EQ(mine(0)->pCacheItems.size(), 3u);
    ASSERT_EQ(theirs(0)->pCacheItems.size(), 3u);
    EXPECT_TRUE(theirs(1)->pCacheItems.empty());
    PCacheStatsInfo* p = theirs(0)->pCacheItems[0];
    EXPECT_STREQ(p->fsName, "fs1");
    EXPECT_STREQ(p->fsetName, "a1");
    EXPECT_EQ(p->bytesRead, 1u);
    EXPECT_EQ(p->bytesWritten, 2u);
    EXPECT_EQ(p->ne, 3u);
    EXPECT_EQ(p->nf, 4u);
    EXPECT_EQ(p->ns, 5u);
    EXPECT_EQ(p->nr, 6u);
    // The scan ends once its count exceeds 9: the last three are not read.
    EXPECT_EQ(p->ws, 0u);
    EXPECT_EQ(p->wl, 0u);
    EXPECT_EQ(p->wa, 0u);
    EXPECT_EQ(p->hcn, 10u);
    EXPECT_EQ(p->hdi, 11u);
    EXPECT_EQ(p->fex, 12u);
    EXPECT_EQ(p->nme, 13u);
    EXPECT_STREQ(p->nodeAddr, "");
    EXPECT_STREQ(theirs(0)->pCacheItems[2]->fsetName, "b1");
    EXPECT_NE(mine(0)->pCacheItems[0], theirs(0)->pCacheItems[0]);
    daemon.respond("tavrel pncs", {"_tavrel::pncs_ _n_ 10.0.0.1 _rc_ 0 _fset_ z _br_ 1 _bw_ 2 _ne_ 3 _nf_ 4 _ns_ 5 "
                                   "_nr_ 6 _ws_ 7 _wl_ 8 _wa_ 9 _hcn_ 10 _hdi_ 11"});
    ASSERT_EQ(handler()->updatePCacheStatsInfo(app.get()), 0);
    // The earlier records were replaced (and released).
    ASSERT_EQ(theirs(0)->pCacheItems.size(), 1u);
    EXPECT_STREQ(theirs(0)->pCacheItems[0]->fsetName, "z");
    EXPECT_EQ(theirs(0)->pCacheItems[0]->hcn, 10u);
    EXPECT_EQ(theirs(0)->pCacheItems[0]->hdi, 0u);
}

// ---------------------------------------------------------------- many updates

TEST_F(StatsUpdate, TenUpdatesInARowOfEveryKindThenBothTreesGo)
{
    startWithNodes(3);
    daemon.respondAlways("tavrel chms", {"_tavrel _n_ 10.0.0.1 _rc_ 0 _dch_ 1"});
    daemon.respondAlways("tavrel iocs", {"_tavrel _n_ 10.0.0.2 _rc_ 0 _mb_ 1 2"});
    daemon.respondAlways("tavrel vfss", {"_tavrel _n_ 10.0.0.3 _rc_ 0 _read_ 1 1"});
    daemon.respondAlways("tavrel threads", {"_tavrel _n_ 10.0.0.1 _rc_ 0 _seq_ 1", "_tavrel _n_ 10.0.0.2 _rc_ 1"});
    daemon.respondAlways("tavrel verbsc", {"_tavrel _n_ 10.0.0.1 _rc_ 0 _crw_ 1"});
    daemon.respondAlways("tavrel verbss", {"_tavrel _n_ 10.0.0.1 _rc_ 0 _crd_ 1"});
    daemon.respondAlways("tavrel kxcommcfg", {"_tavrel _n_ 10.0.0.1 _rc_ 0 _port_ 1"});
    daemon.respondAlways("tavrel pncs", {"_tavrel::pncs_ _n_ 10.0.0.1 _rc_ 0 _fset_ a",
                                         "_tavrel::pncs_ _n_ 10.0.0.1 _rc_ 0 _fset_ b"});
    daemon.respondAlways("tavrel cfgmgr", {cfgLine("_tavrel", addr(0), 1), cfgLine("_tavrel::cfgmgr_", addr(1), 2)});
    daemon.respondAlways("tavrel rpcs", {"_tavrel _n_ 10.0.0.1 _rn_ 10.0.0.2 _rnn_ n2 _rc_ 0",
                                         "_rpcObj_ _obj_ AG_STAT_CHANNEL_WAIT _nsecs_ 2",
                                         "_stats_ _tmu_ sec _av_ 1 _min_ 1 _max_ 1 _cnt_ 1", "_subresponse_"});
    daemon.respondAlways("tavrel rpcs size", {"_tavrel _n_ 10.0.0.1 _rc_ 0", "_rpcSize_ _size_ 512 _nmins_ 2",
                                              "_stats_ _tmu_ min _av_ 1", "_rpcSize_ _size_ 1024 _nmins_ 2",
                                              "_stats_ _tmu_ min _av_ 2", "_subresponse_"});
    daemon.respondAlways("tavrel rpcs message", {"_tavrel _n_ 10.0.0.2 _rc_ 0", "_rpcObj_ _obj_ m1 _ndays_ 1",
                                                 "_stats_ _tmu_ day _cnt_ 3", "_subresponse_"});
    daemon.respondAlways("tavrel rpcs ns", {"_tavrel _n_ 10.0.0.1 _rc_ 0", "_rpcObj_ _obj_ o1",
                                            "_stats_ _tmu_ sec _av_ 5", "_subresponse_"});
    daemon.respondAlways("tavrel rpcs raw", {"_tavrel _n_ 10.0.0.3 _rc_ 0", "_rpcstat_ _rpcstator_ 1 _rpcstatcnt_ 3",
                                             "_stat_ _cw_ 1 _st_ 2", "_rpcexec_ _rpcexecor_ 2 _rpcexeccnt_ 2",
                                             "_stat_ _rpcet_ 5", "_subresponse_"});
    PollingHandler* h = handler();
    for (int round = 0; round < 10; round++) {
        ASSERT_EQ(h->updateCacheStatsInfo(app.get()), 0);
        ASSERT_EQ(h->updateIocStatsInfo(app.get()), 0);
        ASSERT_EQ(h->updateVfsStatsInfo(app.get()), 0);
        ASSERT_EQ(h->updateThreadUtilInfo(app.get()), 0);
        ASSERT_EQ(h->updateVerbsClientInfo(app.get()), 0);
        ASSERT_EQ(h->updateVerbsServerInfo(app.get()), 0);
        ASSERT_EQ(h->updateKxcommCfgInfo(app.get()), 0);
        ASSERT_EQ(h->updatePCacheStatsInfo(app.get()), 0);
        ASSERT_EQ(h->updateClusterCfgInfo(app.get()), 0);
        ASSERT_EQ(h->updateRPCUtilInfo(app.get(), 0, 0), 0);
        ASSERT_EQ(h->updateRPCSizeUtilInfo(app.get(), 0, 0), 0);
        ASSERT_EQ(h->updateRPCMsgUtilInfo(app.get(), 0, 0), 0);
        ASSERT_EQ(h->updateRPCUtilInfoPerSec(app.get()), 0);
        ASSERT_EQ(h->updateRPCRawUtilInfo(app.get()), 0);
        // The shared series are held by both trees, once each.
        ASSERT_EQ(theirs(0)->rpcSizeUtil->statP[1], mine(0)->rpcSizeUtil->statP[1]);
        ASSERT_EQ(qv::shareHolders(theirs(0)->rpcSizeUtil->statP[1]), 2);
        ASSERT_EQ(qv::shareHolders(theirs(2)->rpcRawUtil->statItems), 2);
        ASSERT_EQ(app->clusterCfgItems.size(), 2u);
    }
    EXPECT_EQ(theirs(0)->rpcSizeUtil->nSizes, 2);
    EXPECT_EQ(theirs(0)->rpcSizeUtil->sizes[1], 1024u);
    EXPECT_EQ(theirs(0)->rpcSizeUtil->statP[1]->getMins(0)->av, 2.0);
    EXPECT_EQ(theirs(2)->rpcRawUtil->statItems[1].st, 2u);
    EXPECT_EQ(theirs(0)->pCacheItems.size(), 2u);
    // The application's tree goes first, then the handler with the recipe;
    // the sanitizers check that nothing is released twice or left behind.
    app.reset();
    stopHandler();
}
