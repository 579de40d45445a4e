// The filesystem poll: "get fs NAME" for every filesystem of the recipe,
// "tavrel gfis" with per-node records, sums and their sweep, and the caller's
// tree after it.
#include "support/files.h"
#include "support/handler_fixture.h"
#include "support/log_capture.h"
#include "support/collector_checks.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <sys/time.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>

using namespace qvtest;

namespace {

using Lines = std::vector<std::string>;

std::vector<std::string> perfAddresses(FilesystemInfo* fs)
{
    std::vector<std::string> out;
    for (FilesystemPerf* p : fs->perNodePerfItems)
        out.push_back(p->nodeIpAddr);
    return out;
}

std::vector<std::string> stderrLines(const std::string& text)
{
    return splitLines(text);
}

const char* const kFsState1 =
    "_fsstate_ _status_ up _xstatus_ clean _readduration_ 11 _writeduration_ 12 _nsysmgt_ 2 "
    "_mgrchangecnt_ 3 _totalspace_ 10995116277760 _totalinodes_ 4000000 _freespace_ 5497558138880 "
    "_freeinodes_ 3000000 _fullblockfreespace_ 5000000000000 _fragfreespace_ 1234 "
    "_threadwait_ tw1 _diskwait_ dw1";

class FsCollect : public HandlerFixture
{
protected:
    NodeInfo* addNode(const char* ip, const char* name, const char* status = "active")
    {
        MErrno err = 0;
        NodeInfo* n = new NodeInfo(&err);
        strcpy(n->ipAddr, ip);
        strcpy(n->name, name);
        strcpy(n->status, status);
        handler()->recipe->nodeItems.push_back(n);
        return n;
    }
    FilesystemInfo* addFs(const char* name)
    {
        MErrno err = 0;
        FilesystemInfo* fs = new FilesystemInfo(&err);
        strcpy(fs->name, name);
        handler()->recipe->filesystemItems.push_back(fs);
        return fs;
    }
    FilesystemInfo* recipeFs(size_t i) { return handler()->recipe->filesystemItems[i]; }

    // The recipe through a full copy into a fresh tree.
    std::unique_ptr<ClusterInfo> recipeCopy()
    {
        MErrno err = 0;
        std::unique_ptr<ClusterInfo> copy(new ClusterInfo(&err));
        EXPECT_EQ(handler()->copyRecipe(copy.get()), 0);
        return copy;
    }
};

} // namespace

TEST_F(FsCollect, GetFsFillsEachFilesystemAndKeepsOldValuesWithoutAnswer)
{
    daemon.respond("get fs fs1", {"_other_ line", kFsState1});
    startHandler();
    addNode("10.0.0.1", "n1");
    addFs("fs1");
    FilesystemInfo* fs2 = addFs("fs2");
    strcpy(fs2->status, "mounted");
    fs2->totalSpace = 77;
    LogCapture log;
    MErrno err = 0;
    ClusterInfo caller(&err);
    StderrCapture cap;
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 0), 0);
    // debug 0: no warning for the filesystem without answer.
    EXPECT_EQ(cap.finish(), "");

    EXPECT_EQ(requestsSinceStart(), (Lines{"get fs fs1", "get fs fs2"}));
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(lockIsFree(handler()));

    FilesystemInfo* r1 = recipeFs(0);
    EXPECT_STREQ(r1->status, "up");
    EXPECT_STREQ(r1->xstatus, "clean");
    EXPECT_EQ(r1->readDuration, 11);
    EXPECT_EQ(r1->writeDuration, 12);
    EXPECT_EQ(r1->nSysMgt, 2);
    EXPECT_EQ(r1->mgrChangeCnt, 3);
    EXPECT_EQ(r1->totalSpace, 10995116277760LL);
    EXPECT_EQ(r1->totalInodes, 4000000LL);
    EXPECT_EQ(r1->freeSpace, 5497558138880LL);
    EXPECT_EQ(r1->freeInodes, 3000000LL);
    EXPECT_EQ(r1->fullBlockFreeSpace, 5000000000000LL);
    EXPECT_EQ(r1->fragFreeSpace, 1234LL);
    EXPECT_STREQ(r1->threadWait, "tw1");
    EXPECT_STREQ(r1->diskWait, "dw1");
    EXPECT_STREQ(recipeFs(1)->status, "mounted");
    EXPECT_EQ(recipeFs(1)->totalSpace, 77);

    ClusterInfo* r = handler()->recipe;
    EXPECT_TRUE(isRecent(r->filesystemUpdateTime));
    EXPECT_FALSE(isSet(r->filesystemPerfUpdateTime));

    ASSERT_EQ(caller.filesystemItems.size(), 2u);
    EXPECT_STREQ(caller.filesystemItems[0]->name, "fs1");
    EXPECT_STREQ(caller.filesystemItems[0]->status, "up");
    EXPECT_EQ(caller.filesystemItems[0]->totalSpace, 10995116277760LL);
    EXPECT_STREQ(caller.filesystemItems[0]->diskWait, "dw1");
    EXPECT_STREQ(caller.filesystemItems[1]->name, "fs2");
    EXPECT_STREQ(caller.filesystemItems[1]->status, "mounted");
    EXPECT_EQ(caller.filesystemUpdateTime.tv_sec, r->filesystemUpdateTime.tv_sec);
    EXPECT_EQ(caller.filesystemUpdateTime.tv_usec, r->filesystemUpdateTime.tv_usec);
    EXPECT_FALSE(isSet(caller.filesystemPerfUpdateTime));
    // The node level is not this poll's business.
    EXPECT_TRUE(caller.nodeItems.empty());

    std::unique_ptr<ClusterInfo> copy = recipeCopy();
    ASSERT_EQ(copy->filesystemItems.size(), 2u);
    EXPECT_STREQ(copy->filesystemItems[0]->xstatus, "clean");
}

TEST_F(FsCollect, MissingFsStateWarnsOnStderrAtDebug)
{
    daemon.respond("get fs fs1", {kFsState1});
    startHandler(POLL_LOCAL_CLUSTER, 1);
    addNode("10.0.0.1", "n1");
    addFs("fs1");
    addFs("fs2");
    MErrno err = 0;
    ClusterInfo caller(&err);
    StderrCapture cap;
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 0), 0);
    Lines lines = stderrLines(cap.finish());
    int warnings = 0;
    for (const std::string& l : lines) {
        if (l.rfind("_warning_", 0) == 0) {
            EXPECT_EQ(l, "_warning_ 'get fs fs2' returned 0 instance");
            warnings++;
        }
    }
    EXPECT_EQ(warnings, 1);
    EXPECT_STREQ(caller.filesystemItems[0]->status, "up");
}

TEST_F(FsCollect, CheckFailedNodeRefusesWithoutNodes)
{
    startHandler();
    addFs("fs1");
    LogCapture log;
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 1), 1);
    EXPECT_TRUE(requestsSinceStart().empty());
    EXPECT_TRUE(caller.filesystemItems.empty());
    EXPECT_TRUE(log.lines().empty());
    EXPECT_FALSE(isSet(handler()->recipe->filesystemUpdateTime));
    EXPECT_TRUE(lockIsFree(handler()));
}

TEST_F(FsCollect, CheckFailedNodeRefusesWithFailedNode)
{
    startHandler();
    addNode("10.0.0.1", "n1", "active");
    addNode("10.0.0.2", "n2", "-failed");
    addFs("fs1");
    LogCapture log;
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 0), 1);
    EXPECT_TRUE(requestsSinceStart().empty());
    EXPECT_TRUE(caller.filesystemItems.empty());
    EXPECT_EQ(log.lines(), (Lines{"WARNING: PollingHandler::checkFailedNode: failed node"}));
    EXPECT_TRUE(lockIsFree(handler()));
}

TEST_F(FsCollect, NoFilesystemsStillSendsGfisWithPerf)
{
    startHandler();
    addNode("10.0.0.1", "n1");
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 1), 0);
    EXPECT_EQ(requestsSinceStart(), (Lines{"tavrel gfis"}));
    EXPECT_TRUE(isRecent(handler()->recipe->filesystemPerfUpdateTime));
    EXPECT_TRUE(isRecent(caller.filesystemPerfUpdateTime));
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 0), 0);
    EXPECT_EQ(requestsSinceStart(), (Lines{"tavrel gfis"}));
}

TEST_F(FsCollect, GetFsScanEndsAtFifteenKeywords)
{
    std::string line = "_fsstate_";
    for (int i = 1; i <= 15; i++)
        line += " _nsysmgt_ " + std::to_string(i);
    line += " _xstatus_ late";
    daemon.respond("get fs fs1", {line});
    startHandler();
    addNode("10.0.0.1", "n1");
    addFs("fs1");
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 0), 0);
    EXPECT_EQ(caller.filesystemItems[0]->nSysMgt, 15);
    EXPECT_STREQ(caller.filesystemItems[0]->xstatus, "");
}

TEST_F(FsCollect, LongNameMakesTheRequestWhole)
{
    std::string name(240, 'f');
    startHandler();
    addNode("10.0.0.1", "n1");
    addFs(name.c_str());
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 0), 0);
    EXPECT_EQ(requestsSinceStart(), (Lines{"get fs " + name}));
}

TEST_F(FsCollect, PerNodeCountersAreStoredAndSummed)
{
    daemon.respond(
        "tavrel gfis",
        {"_tavrel _rc_ 0 _fs_ fs1 _n_ 10.0.0.1 _br_ 100 _bc_ 10 _bw_ 200 _r_ 1 _c_ 2 _w_ 3 "
         "_oc_ 4 _cc_ 5 _rdc_ 6 _wc_ 7 _dir_ 8 _iu_ 9 _irc_ 10 _idc_ 11 _icc_ 12 _sch_ 13 "
         "_scm_ 14",
         "_tavrel _rc_ 0 _fs_ fs1 _n_ 10.0.0.2 _br_ 1000 _bc_ 20 _bw_ 2000 _r_ 10 _c_ 20 _w_ 30 "
         "_oc_ 40 _cc_ 50 _rdc_ 60 _wc_ 70 _dir_ 80 _iu_ 90 _irc_ 100 _idc_ 110 _icc_ 120 "
         "_sch_ 130 _scm_ 140",
         "_tavrel _rc_ 0 _fs_ fs2 _n_ 10.0.0.2 _br_ 5"});
    startHandler();
    addNode("10.0.0.1", "n1");
    addNode("10.0.0.2", "");
    addFs("fs1");
    addFs("fs2");
    LogCapture log;
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 1), 0);
    EXPECT_EQ(requestsSinceStart(), (Lines{"get fs fs1", "get fs fs2", "tavrel gfis"}));

    FilesystemInfo* fs1 = recipeFs(0);
    ASSERT_EQ(perfAddresses(fs1), (Lines{"10.0.0.1", "10.0.0.2"}));
    FilesystemPerf* p1 = fs1->perNodePerfItems[0];
    EXPECT_STREQ(p1->fsName, "fs1");
    EXPECT_STREQ(p1->nodeName, "n1");
    EXPECT_EQ(p1->bytesRead, 100u);
    EXPECT_EQ(p1->bytesCache, 10u);
    EXPECT_EQ(p1->bytesWritten, 200u);
    EXPECT_EQ(p1->reads, 1u);
    EXPECT_EQ(p1->caches, 2u);
    EXPECT_EQ(p1->writes, 3u);
    EXPECT_EQ(p1->openCalls, 4u);
    EXPECT_EQ(p1->closeCalls, 5u);
    EXPECT_EQ(p1->readCalls, 6u);
    EXPECT_EQ(p1->writeCalls, 7u);
    EXPECT_EQ(p1->dirCalls, 8u);
    EXPECT_EQ(p1->inodeUpdates, 9u);
    EXPECT_EQ(p1->ircCount, 10u);
    EXPECT_EQ(p1->idcCount, 11u);
    EXPECT_EQ(p1->iccCount, 12u);
    EXPECT_EQ(p1->schCount, 13u);
    EXPECT_EQ(p1->scmCount, 14u);
    // Marked during the poll, unmarked by the sweep at its end.
    EXPECT_EQ(p1->found, 0);
    // A node without a name gives a record without one.
    EXPECT_STREQ(fs1->perNodePerfItems[1]->nodeName, "");
    EXPECT_STREQ(fs1->perNodePerfItems[1]->nodeIpAddr, "10.0.0.2");

    EXPECT_EQ(fs1->bytesRead, 1100u);
    EXPECT_EQ(fs1->bytesCache, 30u);
    EXPECT_EQ(fs1->bytesWritten, 2200u);
    EXPECT_EQ(fs1->reads, 11u);
    EXPECT_EQ(fs1->caches, 22u);
    EXPECT_EQ(fs1->writes, 33u);
    EXPECT_EQ(fs1->openCalls, 44u);
    EXPECT_EQ(fs1->closeCalls, 55u);
    EXPECT_EQ(fs1->readCalls, 66u);
    EXPECT_EQ(fs1->writeCalls, 77u);
    EXPECT_EQ(fs1->dirCalls, 88u);
    EXPECT_EQ(fs1->inodeUpdates, 99u);
    EXPECT_EQ(fs1->ircCount, 110u);
    EXPECT_EQ(fs1->idcCount, 121u);
    EXPECT_EQ(fs1->iccCount, 132u);
    EXPECT_EQ(fs1->schCount, 143u);
    EXPECT_EQ(fs1->scmCount, 154u);
    EXPECT_EQ(fs1->perfInstances, 2u);
    FilesystemInfo* fs2 = recipeFs(1);
    EXPECT_EQ(fs2->bytesRead, 5u);
    EXPECT_EQ(fs2->perfInstances, 1u);
    EXPECT_TRUE(isRecent(handler()->recipe->filesystemPerfUpdateTime));

    // The caller's tree: the same filesystems, sums and per-node records.
    ASSERT_EQ(caller.filesystemItems.size(), 2u);
    FilesystemInfo* c1 = caller.filesystemItems[0];
    EXPECT_EQ(c1->bytesRead, 1100u);
    EXPECT_EQ(c1->perfInstances, 2u);
    ASSERT_EQ(perfAddresses(c1), (Lines{"10.0.0.1", "10.0.0.2"}));
    EXPECT_EQ(c1->perNodePerfItems[0]->bytesWritten, 200u);
    EXPECT_EQ(c1->perNodePerfItems[1]->scmCount, 140u);
    EXPECT_STREQ(c1->perNodePerfItems[0]->fsName, "fs1");
    EXPECT_EQ(perfAddresses(caller.filesystemItems[1]), (Lines{"10.0.0.2"}));
    EXPECT_EQ(caller.filesystemPerfUpdateTime.tv_sec,
              handler()->recipe->filesystemPerfUpdateTime.tv_sec);

    // The trace: three new records looked up, then the two copies.
    const std::string idx = "INFO: FilesystemInfo::getPerNodePerfIndex: index = ";
    const std::string cp = "INFO: FilesystemInfo::copyPerNodePerfs: ";
    EXPECT_EQ(log.lines(),
              (Lines{idx + "-1", idx + "-1", idx + "-1",
                     // fs1 into the caller's empty fs1
                     idx + "-1", cp + "10.0.0.1 copied", cp + "now perf item size = 1",
                     idx + "-1", cp + "10.0.0.2 copied", cp + "now perf item size = 2",
                     // fs2
                     idx + "-1", cp + "10.0.0.2 copied", cp + "now perf item size = 1"}));
}

TEST_F(FsCollect, SilentNodeLosesItsRecordInBothTreesInTheSamePoll)
{
    daemon.respond("tavrel gfis", {"_tavrel _rc_ 0 _fs_ fs1 _n_ 10.0.0.1 _br_ 1",
                                   "_tavrel _rc_ 0 _fs_ fs1 _n_ 10.0.0.2 _br_ 2"});
    daemon.respond("tavrel gfis", {"_tavrel _rc_ 0 _fs_ fs1 _n_ 10.0.0.2 _br_ 3"});
    startHandler();
    addNode("10.0.0.1", "n1");
    addNode("10.0.0.2", "n2");
    addFs("fs1");
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 1), 0);
    EXPECT_EQ(perfAddresses(caller.filesystemItems[0]), (Lines{"10.0.0.1", "10.0.0.2"}));

    LogCapture log;
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 1), 0);
    EXPECT_EQ(perfAddresses(recipeFs(0)), (Lines{"10.0.0.2"}));
    EXPECT_EQ(perfAddresses(caller.filesystemItems[0]), (Lines{"10.0.0.2"}));
    EXPECT_EQ(caller.filesystemItems[0]->perNodePerfItems[0]->bytesRead, 3u);
    EXPECT_EQ(caller.filesystemItems[0]->bytesRead, 3u);
    const std::string idx = "INFO: FilesystemInfo::getPerNodePerfIndex: index = ";
    const std::string cp = "INFO: FilesystemInfo::copyPerNodePerfs: ";
    EXPECT_EQ(log.lines(),
              (Lines{idx + "1", "INFO: PollingHandler::updateFilesystemInfo: Erase perf 10.0.0.1",
                     // removal pass over the caller's two records
                     cp + "check 10.0.0.1", idx + "-1", cp + "check 10.0.0.2", idx + "0",
                     // merge pass
                     idx + "0"}));
}

TEST_F(FsCollect, CountersCutTo32Bits)
{
    daemon.respond("tavrel gfis",
                   {"_tavrel _fs_ fs1 _n_ 10.0.0.1 _iu_ 4294967296 _r_ 4294967296 _irc_ 4294967295 "
                    "_w_ 4294967295",
                    "_tavrel _fs_ fs1 _n_ 10.0.0.2 _irc_ 4294967295 _w_ 4294967295"});
    startHandler();
    addNode("10.0.0.1", "n1");
    addNode("10.0.0.2", "n2");
    addFs("fs1");
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 1), 0);
    FilesystemInfo* fs = caller.filesystemItems[0];
    EXPECT_EQ(fs->perNodePerfItems[0]->inodeUpdates, 0u);
    EXPECT_EQ(fs->perNodePerfItems[0]->reads, 0u);
    EXPECT_EQ(fs->perNodePerfItems[0]->ircCount, 4294967295u);
    EXPECT_EQ(fs->inodeUpdates, 0u);
    EXPECT_EQ(fs->reads, 0u);
    // Summed in 64 bits for the inode counts, in 32 bits for the others.
    EXPECT_EQ(fs->ircCount, 8589934590ULL);
    EXPECT_EQ(fs->writes, 4294967294u);
}

TEST_F(FsCollect, SameNodeTwiceKeepsSecondValuesAndSumsBoth)
{
    daemon.respond("tavrel gfis", {"_tavrel _rc_ 0 _fs_ fs1 _n_ 10.0.0.1 _br_ 10 _r_ 1 _bw_ 7",
                                   "_tavrel _rc_ 0 _fs_ fs1 _n_ 10.0.0.1 _br_ 20 _r_ 2"});
    startHandler();
    addNode("10.0.0.1", "n1");
    addFs("fs1");
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 1), 0);
    FilesystemInfo* fs = caller.filesystemItems[0];
    ASSERT_EQ(perfAddresses(fs), (Lines{"10.0.0.1"}));
    EXPECT_EQ(fs->perNodePerfItems[0]->bytesRead, 20u);
    EXPECT_EQ(fs->perNodePerfItems[0]->reads, 2u);
    // The record was cleared before the second line.
    EXPECT_EQ(fs->perNodePerfItems[0]->bytesWritten, 0u);
    EXPECT_EQ(fs->bytesRead, 30u);
    EXPECT_EQ(fs->reads, 3u);
    EXPECT_EQ(fs->bytesWritten, 7u);
    EXPECT_EQ(fs->perfInstances, 2u);
}

TEST_F(FsCollect, FailedLineWarnsWithFilesystemCountAndIsSwept)
{
    daemon.respond("tavrel gfis", {"_tavrel _rc_ 0 _fs_ fs1 _n_ 10.0.0.1 _br_ 1",
                                   "_tavrel _rc_ 0 _fs_ fs1 _n_ 10.0.0.2 _br_ 2"});
    daemon.respond("tavrel gfis", {"_tavrel _rc_ 0 _fs_ fs1 _n_ 10.0.0.1 _br_ 4",
                                   "_tavrel _rc_ 5 _fs_ fs1 _n_ 10.0.0.2 _br_ 8"});
    startHandler(POLL_LOCAL_CLUSTER, 1);
    addNode("10.0.0.1", "n1");
    addNode("10.0.0.2", "n2");
    addFs("fs1");
    addFs("fs2");
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 1), 0);
    EXPECT_EQ(perfAddresses(caller.filesystemItems[0]), (Lines{"10.0.0.1", "10.0.0.2"}));

    StderrCapture cap;
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 1), 0);
    Lines lines = stderrLines(cap.finish());
    Lines warnings;
    for (const std::string& l : lines)
        if (l.rfind("_warning_", 0) == 0)
            warnings.push_back(l);
    EXPECT_EQ(warnings, (Lines{"_warning_ 'get fs fs1' returned 0 instance",
                               "_warning_ 'get fs fs2' returned 0 instance",
                               "_warning_ 2 instance: 'tavrel gfis' returned error (rc=5)"}));
    EXPECT_EQ(perfAddresses(recipeFs(0)), (Lines{"10.0.0.1"}));
    EXPECT_EQ(perfAddresses(caller.filesystemItems[0]), (Lines{"10.0.0.1"}));
    EXPECT_EQ(caller.filesystemItems[0]->bytesRead, 4u);
    EXPECT_EQ(caller.filesystemItems[0]->perfInstances, 1u);
}

TEST_F(FsCollect, FailedLineIsQuietWithoutDebug)
{
    daemon.respond("tavrel gfis", {"_tavrel _rc_ 5 _fs_ fs1 _n_ 10.0.0.1 _br_ 8"});
    startHandler();
    addNode("10.0.0.1", "n1");
    addFs("fs1");
    MErrno err = 0;
    ClusterInfo caller(&err);
    StderrCapture cap;
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 1), 0);
    EXPECT_EQ(cap.finish(), "");
    EXPECT_TRUE(caller.filesystemItems[0]->perNodePerfItems.empty());
    EXPECT_EQ(caller.filesystemItems[0]->perfInstances, 0u);
}

TEST_F(FsCollect, UnknownFilesystemOrNodeIsNotCounted)
{
    daemon.respond("tavrel gfis", {"_tavrel _rc_ 0 _fs_ nofs _n_ 10.0.0.1 _br_ 1",
                                   "_tavrel _rc_ 0 _fs_ fs1 _n_ 10.0.0.9 _br_ 2",
                                   "_tavrel _rc_ 0 _fs_ fs1 _br_ 4"});
    startHandler();
    addNode("10.0.0.1", "n1");
    addFs("fs1");
    LogCapture log;
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 1), 0);
    EXPECT_TRUE(recipeFs(0)->perNodePerfItems.empty());
    EXPECT_EQ(recipeFs(0)->bytesRead, 0u);
    EXPECT_EQ(recipeFs(0)->perfInstances, 0u);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(FsCollect, SumsStartFromZeroAtEachPollWithCounters)
{
    daemon.respond("tavrel gfis", {"_tavrel _fs_ fs1 _n_ 10.0.0.1 _br_ 10"});
    startHandler();
    addNode("10.0.0.1", "n1");
    addFs("fs1");
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 1), 0);
    EXPECT_EQ(caller.filesystemItems[0]->bytesRead, 10u);
    struct timeval perfTime = handler()->recipe->filesystemPerfUpdateTime;

    // Without counters: nothing of the counters moves, no request for them.
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 0), 0);
    EXPECT_EQ(caller.filesystemItems[0]->bytesRead, 10u);
    EXPECT_EQ(perfAddresses(caller.filesystemItems[0]), (Lines{"10.0.0.1"}));
    EXPECT_EQ(perfAddresses(recipeFs(0)), (Lines{"10.0.0.1"}));
    EXPECT_EQ(handler()->recipe->filesystemPerfUpdateTime.tv_sec, perfTime.tv_sec);
    EXPECT_EQ(handler()->recipe->filesystemPerfUpdateTime.tv_usec, perfTime.tv_usec);

    // With counters and an empty answer: sums cleared, record swept.
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 1), 0);
    EXPECT_EQ(caller.filesystemItems[0]->bytesRead, 0u);
    EXPECT_EQ(caller.filesystemItems[0]->perfInstances, 0u);
    EXPECT_TRUE(caller.filesystemItems[0]->perNodePerfItems.empty());
    EXPECT_EQ(requestsSinceStart(), (Lines{"get fs fs1", "tavrel gfis", "get fs fs1",
                                           "get fs fs1", "tavrel gfis"}));
}

TEST_F(FsCollect, GfisScanEndsAtSeventeenKeywords)
{
    std::string line = "_tavrel _rc_ 0 _fs_ fs1 _n_ 10.0.0.1";
    for (int i = 0; i < 17; i++)
        line += " _br_ 1";
    line += " _bw_ 5";
    daemon.respond("tavrel gfis", {line});
    startHandler();
    addNode("10.0.0.1", "n1");
    addFs("fs1");
    MErrno err = 0;
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 1), 0);
    FilesystemInfo* fs = caller.filesystemItems[0];
    EXPECT_EQ(fs->perNodePerfItems[0]->bytesRead, 1u);
    EXPECT_EQ(fs->bytesRead, 17u);
    EXPECT_EQ(fs->bytesWritten, 0u);
}

TEST_F(FsCollect, MountedNodesOfTheRecipeReachTheCaller)
{
    startHandler();
    addNode("10.0.0.1", "n1");
    FilesystemInfo* fs = addFs("fs1");
    MErrno err = 0;
    MountedNodeInfo* m = new MountedNodeInfo(&err);
    strcpy(m->nodeName, "n1");
    strcpy(m->nodeIpAddr, "10.0.0.1");
    fs->mountedNodeItems.push_back(m);
    ClusterInfo caller(&err);
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 0), 0);
    ASSERT_EQ(caller.filesystemItems[0]->mountedNodeItems.size(), 1u);
    EXPECT_STREQ(caller.filesystemItems[0]->mountedNodeItems[0]->nodeIpAddr, "10.0.0.1");
    EXPECT_STREQ(caller.filesystemItems[0]->mountedNodeItems[0]->nodeName, "n1");
}

TEST_F(FsCollect, CallerFilesystemsFollowTheRecipe)
{
    startHandler();
    addNode("10.0.0.1", "n1");
    addFs("fs1");
    MErrno err = 0;
    ClusterInfo caller(&err);
    FilesystemInfo* stale = new FilesystemInfo(&err);
    strcpy(stale->name, "gone");
    caller.filesystemItems.push_back(stale);
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 0), 0);
    ASSERT_EQ(caller.filesystemItems.size(), 1u);
    EXPECT_STREQ(caller.filesystemItems[0]->name, "fs1");
    // The list of filesystems itself is never changed by this poll.
    ASSERT_EQ(handler()->recipe->filesystemItems.size(), 1u);
}

TEST_F(FsCollect, LineWithoutRcCountsAsCodeZero)
{
    daemon.respond("tavrel gfis", {"_tavrel _fs_ fs1 _n_ 10.0.0.1 _br_ 6 _rc_",
                                   "_tavrel _fs_ fs1 _n_ 10.0.0.2 _br_ 7"});
    startHandler(POLL_LOCAL_CLUSTER, 1);
    addNode("10.0.0.1", "n1");
    addNode("10.0.0.2", "n2");
    addFs("fs1");
    MErrno err = 0;
    ClusterInfo caller(&err);
    StderrCapture cap;
    EXPECT_EQ(handler()->updateFilesystemInfo(&caller, 1), 0);
    for (const std::string& l : stderrLines(cap.finish()))
        EXPECT_EQ(l.find("returned error"), std::string::npos) << l;
    EXPECT_EQ(perfAddresses(caller.filesystemItems[0]), (Lines{"10.0.0.1", "10.0.0.2"}));
    EXPECT_EQ(caller.filesystemItems[0]->bytesRead, 13u);
    EXPECT_EQ(caller.filesystemItems[0]->perfInstances, 2u);
}
