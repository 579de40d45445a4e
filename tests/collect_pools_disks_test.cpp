// Pools and disks: updateStoragePoolInfo ("get stgpools") and updateDiskInfo
// ("get fs <fs> <pool>", "tavrel ds"), against the fake daemon, with the recipe
// set up directly.
#include "support/files.h"
#include "support/handler_fixture.h"
#include "support/log_capture.h"
#include "support/tree_builder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>

using namespace qvtest;

namespace {

using Lines = std::vector<std::string>;

class PoolsDisks : public HandlerFixture
{
protected:
    ClusterInfo* recipe() const { return handler()->recipe; }

    // Starts the handler and gives the recipe the nodes that the collectors
    // want to see before they work.
    void startWithNodes()
    {
        startHandler();
        addNode(recipe(), "n1", "10.0.0.1");
        addNode(recipe(), "n2", "10.0.0.2");
    }

    std::string diskLine(const std::string& name, const std::string& status,
                         const std::string& avail, const std::string& wait, long long total,
                         long long full, long long frag)
    {
        return "_disk_ " + name + " _status_ " + status + " _availability_ " + avail +
               " _diskwait_ " + wait + " _totalspace_ " + std::to_string(total) +
               " _fullblockfreespace_ " + std::to_string(full) + " _fragfreespace_ " +
               std::to_string(frag);
    }
};

bool isSet(const struct timeval& tv)
{
    return tv.tv_sec != 0;
}

// One "tavrel ds" instance: the disk line, its read and write lines.
Lines dsInstance(const std::string& disk, const std::string& node, const std::string& r,
                 const std::string& w, int rc = 0)
{
    return {"_tavrel_ds_ _rc_ " + std::to_string(rc) + " _d_ " + disk + " _nn_ " + node,
            "_r_ " + r, "_w_ " + w};
}

Lines join(std::initializer_list<Lines> parts)
{
    Lines out;
    for (const Lines& p : parts)
        out.insert(out.end(), p.begin(), p.end());
    return out;
}

} // namespace

// ---------------------------------------------------------------------------
// updateStoragePoolInfo

TEST_F(PoolsDisks, StgpoolsCreatesPoolsOfAFilesystemThatHasNone)
{
    startWithNodes();
    addFs(recipe(), "fs1");
    daemon.respond("get stgpools fs1",
                   {"_pool_ system _status_ ok _ndisks_ 2 _totalspace_ 1000 _freespace_ 400",
                    "_pool_ data _status_ degraded _ndisks_ 3 _totalspace_ 5000000000 _freespace_ 100"});
    MErrno err = 0;
    ClusterInfo mine(&err);
    LogCapture log;

    EXPECT_EQ(handler()->updateStoragePoolInfo(&mine, nullptr), 0);

    EXPECT_EQ(requestsSinceStart(), (Lines{"get stgpools fs1"}));
    // The collector itself logs nothing.
    EXPECT_EQ(log.lines(), Lines{});

    FilesystemInfo* fs = recipe()->filesystemItems[0];
    ASSERT_EQ(namesOf(fs->poolItems), (Lines{"system", "data"}));
    StoragePoolInfo* sys = fs->poolItems[0];
    EXPECT_STREQ(sys->status, "ok");
    EXPECT_EQ(sys->nDisks, 2);
    EXPECT_EQ(sys->totalSpace, 1000);
    EXPECT_EQ(sys->freeSpace, 400);
    EXPECT_EQ(sys->fsIndex, 0);
    StoragePoolInfo* data = fs->poolItems[1];
    EXPECT_STREQ(data->status, "degraded");
    EXPECT_EQ(data->nDisks, 3);
    EXPECT_EQ(data->totalSpace, 5000000000LL);
    EXPECT_EQ(data->freeSpace, 100);
    EXPECT_TRUE(isSet(fs->poolUpdateTime));

    // The caller's tree: the filesystem and its pools with their fields.
    ASSERT_EQ(namesOf(mine.filesystemItems), (Lines{"fs1"}));
    FilesystemInfo* myFs = mine.filesystemItems[0];
    ASSERT_EQ(namesOf(myFs->poolItems), (Lines{"system", "data"}));
    EXPECT_STREQ(myFs->poolItems[1]->status, "degraded");
    EXPECT_EQ(myFs->poolItems[1]->totalSpace, 5000000000LL);
    EXPECT_EQ(myFs->poolItems[0]->nDisks, 2);
    EXPECT_EQ(myFs->poolUpdateTime.tv_sec, fs->poolUpdateTime.tv_sec);
    EXPECT_EQ(myFs->poolUpdateTime.tv_usec, fs->poolUpdateTime.tv_usec);

    // The recipe as a fresh deep copy shows the same.
    ClusterInfo copy(&err);
    ASSERT_EQ(handler()->copyRecipe(&copy), 0);
    ASSERT_EQ(copy.filesystemItems.size(), 1u);
    EXPECT_EQ(namesOf(copy.filesystemItems[0]->poolItems), (Lines{"system", "data"}));
    EXPECT_EQ(copy.filesystemItems[0]->poolItems[0]->freeSpace, 400);
}

TEST_F(PoolsDisks, StgpoolsUpdatesKnownPoolAndKeepsUnreportedOne)
{
    startWithNodes();
    FilesystemInfo* fs = addFs(recipe(), "fs1");
    StoragePoolInfo* sys = addPool(fs, "system");
    setText(sys->status, "old");
    sys->nDisks = 9;
    StoragePoolInfo* gone = addPool(fs, "gone");
    setText(gone->status, "stays");
    daemon.respond("get stgpools fs1", {"_pool_ system _status_ new _ndisks_ 1"});
    MErrno err = 0;
    ClusterInfo mine(&err);

    EXPECT_EQ(handler()->updateStoragePoolInfo(&mine, nullptr), 0);

    // The pool that the daemon no longer reports stays; only the repository
    // scan removes pools.
    ASSERT_EQ(namesOf(fs->poolItems), (Lines{"system", "gone"}));
    EXPECT_EQ(fs->poolItems[0], sys);
    EXPECT_STREQ(sys->status, "new");
    EXPECT_EQ(sys->nDisks, 1);
    EXPECT_STREQ(gone->status, "stays");
    ASSERT_EQ(namesOf(mine.filesystemItems[0]->poolItems), (Lines{"system", "gone"}));
    EXPECT_STREQ(mine.filesystemItems[0]->poolItems[1]->status, "stays");
}

TEST_F(PoolsDisks, StgpoolsScanStopsAfterFourKeywordsAndPassesOverOthers)
{
    startWithNodes();
    addFs(recipe(), "fs1");
    // Unknown words are not counted; a repeated keyword counts again. The
    // fifth keyword is never reached.
    daemon.respond("get stgpools fs1",
                   {"_pool_ p1 _x_ 7 _status_ a _y_ 8 _status_ b _totalspace_ 11 _status_ c "
                    "_ndisks_ 5 _freespace_ 3"});
    MErrno err = 0;
    ClusterInfo mine(&err);

    EXPECT_EQ(handler()->updateStoragePoolInfo(&mine, nullptr), 0);

    StoragePoolInfo* p = recipe()->filesystemItems[0]->poolItems[0];
    EXPECT_STREQ(p->status, "c");
    EXPECT_EQ(p->totalSpace, 11);
    EXPECT_EQ(p->nDisks, 0);
    EXPECT_EQ(p->freeSpace, 0);
}

TEST_F(PoolsDisks, StgpoolsWithNameAsksOnlyThatFilesystemAndCopiesOnlyItsPools)
{
    startWithNodes();
    FilesystemInfo* fs1 = addFs(recipe(), "fs1");
    addPool(fs1, "p0");
    addFs(recipe(), "fs2");
    daemon.respond("get stgpools fs2", {"_pool_ system _status_ ok"});
    MErrno err = 0;
    ClusterInfo mine(&err);
    char name[] = "fs2";

    EXPECT_EQ(handler()->updateStoragePoolInfo(&mine, name), 0);

    EXPECT_EQ(requestsSinceStart(), (Lines{"get stgpools fs2"}));
    FilesystemInfo* fs2 = recipe()->filesystemItems[1];
    ASSERT_EQ(namesOf(fs2->poolItems), (Lines{"system"}));
    EXPECT_EQ(fs2->poolItems[0]->fsIndex, 1);
    EXPECT_TRUE(isSet(fs2->poolUpdateTime));
    EXPECT_FALSE(isSet(fs1->poolUpdateTime));

    // Both filesystems reach the caller, but only the named one's pools.
    ASSERT_EQ(namesOf(mine.filesystemItems), (Lines{"fs1", "fs2"}));
    EXPECT_TRUE(mine.filesystemItems[0]->poolItems.empty());
    EXPECT_EQ(namesOf(mine.filesystemItems[1]->poolItems), (Lines{"system"}));
}

TEST_F(PoolsDisks, StgpoolsWithoutNameWalksEveryFilesystemInOrder)
{
    startWithNodes();
    addFs(recipe(), "fs1");
    addFs(recipe(), "fs2");
    daemon.respond("get stgpools fs1", {"_pool_ a _status_ s1"});
    daemon.respond("get stgpools fs2", {"_pool_ b _status_ s2", "_other_ c", "_pool_ c"});
    MErrno err = 0;
    ClusterInfo mine(&err);

    EXPECT_EQ(handler()->updateStoragePoolInfo(&mine, nullptr), 0);

    EXPECT_EQ(requestsSinceStart(), (Lines{"get stgpools fs1", "get stgpools fs2"}));
    EXPECT_EQ(namesOf(recipe()->filesystemItems[0]->poolItems), (Lines{"a"}));
    EXPECT_EQ(namesOf(recipe()->filesystemItems[1]->poolItems), (Lines{"b", "c"}));
    EXPECT_EQ(recipe()->filesystemItems[1]->poolItems[1]->fsIndex, 1);
    EXPECT_EQ(namesOf(mine.filesystemItems[0]->poolItems), (Lines{"a"}));
    EXPECT_EQ(namesOf(mine.filesystemItems[1]->poolItems), (Lines{"b", "c"}));
}

TEST_F(PoolsDisks, StgpoolsOnEmptyFilesystemListStillCopiesWhenNodesAreThere)
{
    startWithNodes();
    recipe()->filesystemUpdateTime.tv_sec = 1234;
    recipe()->filesystemUpdateTime.tv_usec = 56;
    MErrno err = 0;
    ClusterInfo mine(&err);
    addFs(&mine, "stale");

    EXPECT_EQ(handler()->updateStoragePoolInfo(&mine, nullptr), 0);

    EXPECT_EQ(requestsSinceStart(), Lines{});
    // copyFS ran: the caller's tree lost what the recipe does not hold and
    // took the recipe's times.
    EXPECT_TRUE(mine.filesystemItems.empty());
    EXPECT_EQ(mine.filesystemUpdateTime.tv_sec, 1234);
    EXPECT_EQ(mine.filesystemUpdateTime.tv_usec, 56);
}

TEST_F(PoolsDisks, StgpoolsOnEmptyFilesystemListWithoutNodesRefuses)
{
    startHandler();
    recipe()->filesystemUpdateTime.tv_sec = 1234;
    MErrno err = 0;
    ClusterInfo mine(&err);
    addFs(&mine, "stale");

    EXPECT_EQ(handler()->updateStoragePoolInfo(&mine, nullptr), 1);

    EXPECT_EQ(requestsSinceStart(), Lines{});
    EXPECT_EQ(namesOf(mine.filesystemItems), (Lines{"stale"}));
    EXPECT_EQ(mine.filesystemUpdateTime.tv_sec, 0);
    // The lock was given back.
    EXPECT_EQ(handler()->getPollingLock(), 0);
    EXPECT_EQ(handler()->releasePollingLock(), 0);
}

TEST_F(PoolsDisks, StgpoolsUnknownFilesystemRefusesAndLeavesAllAlone)
{
    startWithNodes();
    addFs(recipe(), "fs1");
    MErrno err = 0;
    ClusterInfo mine(&err);
    addFs(&mine, "mine");
    char name[] = "nosuch";

    EXPECT_EQ(handler()->updateStoragePoolInfo(&mine, name), 1);

    EXPECT_EQ(requestsSinceStart(), Lines{});
    EXPECT_EQ(namesOf(mine.filesystemItems), (Lines{"mine"}));
    EXPECT_EQ(handler()->getPollingLock(), 0);
    EXPECT_EQ(handler()->releasePollingLock(), 0);
}

TEST_F(PoolsDisks, StgpoolsRefusedByAFailedNode)
{
    startHandler();
    addNode(recipe(), "n1", "10.0.0.1");
    addNode(recipe(), "n2", "10.0.0.2", " failed");
    addFs(recipe(), "fs1");
    MErrno err = 0;
    ClusterInfo mine(&err);
    LogCapture log;

    EXPECT_EQ(handler()->updateStoragePoolInfo(&mine, nullptr), 1);

    EXPECT_EQ(requestsSinceStart(), Lines{});
    EXPECT_EQ(log.lines(), (Lines{"WARNING: PollingHandler::checkFailedNode: failed node"}));
    EXPECT_TRUE(mine.filesystemItems.empty());
}

// ---------------------------------------------------------------------------
// updateDiskInfo

TEST_F(PoolsDisks, GetFsFillsReportedDisksAndPassesOverUnknownOnes)
{
    startWithNodes();
    FilesystemInfo* fs = addFs(recipe(), "fs1");
    StoragePoolInfo* pool = addPool(fs, "system");
    DiskInfo* d1 = addDisk(pool, "d1");
    DiskInfo* d2 = addDisk(pool, "d2");
    DiskInfo* d3 = addDisk(pool, "d3");
    addServer(d1->serverItems, "n1");
    addServer(d1->backupServerItems, "n2");
    // Counters of an earlier poll: the reported disks lose them, the
    // unreported one keeps them; the pool's sums start again at 0.
    d1->readOps = 7;
    d3->readOps = 9;
    d3->readTime = 1.5;
    pool->bytesRead = 100;
    pool->readTime = 2.0;
    daemon.respond("get fs fs1 system",
                   {diskLine("d1", "up", "ok", "0", 100, 50, 5),
                    diskLine("dX", "up", "ok", "1", 1, 1, 1),
                    diskLine("d2", "down", "unavailable", "12", 200, 60, 6)});
    MErrno err = 0;
    ClusterInfo mine(&err);
    LogCapture log;
    char fsName[] = "fs1";
    char poolName[] = "system";

    EXPECT_EQ(handler()->updateDiskInfo(&mine, fsName, poolName, 0), 0);

    EXPECT_EQ(requestsSinceStart(), (Lines{"get fs fs1 system"}));
    EXPECT_EQ(log.lines(), Lines{});
    ASSERT_EQ(namesOf(pool->diskItems), (Lines{"d1", "d2", "d3"}));
    EXPECT_STREQ(d1->status, "up");
    EXPECT_STREQ(d1->availability, "ok");
    EXPECT_STREQ(d1->diskWait, "0");
    EXPECT_EQ(d1->totalSpace, 100);
    EXPECT_EQ(d1->fullBlockFreeSpace, 50);
    EXPECT_EQ(d1->fragFreeSpace, 5);
    EXPECT_STREQ(d1->poolName, "system");
    EXPECT_EQ(d1->readOps, 0u);
    EXPECT_STREQ(d2->status, "down");
    EXPECT_STREQ(d2->availability, "unavailable");
    EXPECT_STREQ(d2->diskWait, "12");
    EXPECT_EQ(d2->totalSpace, 200);
    EXPECT_STREQ(d3->status, "unknown");
    EXPECT_STREQ(d3->poolName, "");
    EXPECT_EQ(d3->readOps, 9u);
    EXPECT_DOUBLE_EQ(d3->readTime, 1.5);
    EXPECT_EQ(pool->bytesRead, 0u);
    EXPECT_DOUBLE_EQ(pool->readTime, 0.0);
    EXPECT_TRUE(isSet(pool->diskUpdateTime));
    EXPECT_FALSE(isSet(pool->diskPerfUpdateTime));

    // The caller's tree: filesystem, pool, disks with their servers.
    ASSERT_EQ(namesOf(mine.filesystemItems), (Lines{"fs1"}));
    ASSERT_EQ(namesOf(mine.filesystemItems[0]->poolItems), (Lines{"system"}));
    StoragePoolInfo* myPool = mine.filesystemItems[0]->poolItems[0];
    ASSERT_EQ(namesOf(myPool->diskItems), (Lines{"d1", "d2", "d3"}));
    EXPECT_STREQ(myPool->diskItems[0]->status, "up");
    EXPECT_EQ(myPool->diskItems[1]->totalSpace, 200);
    EXPECT_EQ(myPool->diskItems[2]->readOps, 9u);
    EXPECT_EQ(namesOf(myPool->diskItems[0]->serverItems), (Lines{"n1"}));
    EXPECT_EQ(namesOf(myPool->diskItems[0]->backupServerItems), (Lines{"n2"}));
    EXPECT_EQ(myPool->diskUpdateTime.tv_sec, pool->diskUpdateTime.tv_sec);

    ClusterInfo copy(&err);
    ASSERT_EQ(handler()->copyRecipe(&copy), 0);
    StoragePoolInfo* cp = copy.filesystemItems[0]->poolItems[0];
    ASSERT_EQ(namesOf(cp->diskItems), (Lines{"d1", "d2", "d3"}));
    EXPECT_STREQ(cp->diskItems[1]->availability, "unavailable");
    EXPECT_EQ(namesOf(cp->diskItems[0]->serverItems), (Lines{"n1"}));
}

TEST_F(PoolsDisks, GetFsScanStopsAfterTenKeywords)
{
    startWithNodes();
    StoragePoolInfo* pool = addPool(addFs(recipe(), "fs1"), "system");
    DiskInfo* d1 = addDisk(pool, "d1");
    std::string line = "_disk_ d1 _junk_ 1";
    for (int i = 0; i < 9; i++)
        line += " _totalspace_ " + std::to_string(i + 1);
    line += " _status_ ten _availability_ eleven";
    daemon.respond("get fs fs1 system", {line});
    MErrno err = 0;
    ClusterInfo mine(&err);
    char fsName[] = "fs1";

    EXPECT_EQ(handler()->updateDiskInfo(&mine, fsName, nullptr, 0), 0);

    EXPECT_EQ(d1->totalSpace, 9);
    EXPECT_STREQ(d1->status, "ten");
    EXPECT_STREQ(d1->availability, "");
}

TEST_F(PoolsDisks, StatusTextsOf300CharactersAreCutAt256AndReachTheTreeWhole)
{
    startWithNodes();
    StoragePoolInfo* pool = addPool(addFs(recipe(), "fs1"), "system");
    DiskInfo* d1 = addDisk(pool, "d1");
    std::string s(300, 'S'), a(300, 'A'), w(300, 'W');
    daemon.respond("get fs fs1 system", {"_disk_ d1 _status_ " + s + " _availability_ " + a +
                                         " _diskwait_ " + w + " _totalspace_ 77"});
    MErrno err = 0;
    ClusterInfo mine(&err);
    char fsName[] = "fs1";

    EXPECT_EQ(handler()->updateDiskInfo(&mine, fsName, nullptr, 0), 0);

    // Each of the three texts holds its first 256 characters and fills the
    // array: no terminator behind them.
    EXPECT_EQ(std::string(d1->status, sizeof(d1->status)), std::string(256, 'S'));
    EXPECT_EQ(std::string(d1->availability, sizeof(d1->availability)), std::string(256, 'A'));
    EXPECT_EQ(std::string(d1->diskWait, sizeof(d1->diskWait)), std::string(256, 'W'));
    EXPECT_EQ(strnlen(d1->status, sizeof(d1->status)), 256u);
    // The scan went on behind them.
    EXPECT_EQ(d1->totalSpace, 77);
    // The copy into the caller's tree carries all 256 characters of each.
    DiskInfo* mine1 = mine.filesystemItems[0]->poolItems[0]->diskItems[0];
    EXPECT_EQ(std::string(mine1->status, sizeof(mine1->status)), std::string(256, 'S'));
    EXPECT_EQ(std::string(mine1->availability, sizeof(mine1->availability)), std::string(256, 'A'));
    EXPECT_EQ(std::string(mine1->diskWait, sizeof(mine1->diskWait)), std::string(256, 'W'));

    // A short text on the next poll replaces the whole array.
    daemon.respond("get fs fs1 system", {"_disk_ d1 _status_ up _availability_ ok _diskwait_ 3"});
    EXPECT_EQ(handler()->updateDiskInfo(&mine, fsName, nullptr, 0), 0);
    EXPECT_STREQ(d1->status, "up");
    EXPECT_STREQ(d1->availability, "ok");
    EXPECT_STREQ(d1->diskWait, "3");
    EXPECT_EQ(std::string(d1->status, sizeof(d1->status)), std::string("up") + std::string(254, '\0'));
    EXPECT_STREQ(mine1->status, "up");
}

TEST_F(PoolsDisks, TwoDsInstancesOfOneDiskAddUpAndCountTwo)
{
    startWithNodes();
    setText(recipe()->clusterName, "clu1");
    StoragePoolInfo* pool = addPool(addFs(recipe(), "fs1"), "system");
    DiskInfo* d1 = addDisk(pool, "d1");
    DiskInfo* d2 = addDisk(pool, "d2");
    daemon.respond("get fs fs1 system", {"_disk_ d1 _status_ up", "_disk_ d2 _status_ up"});
    daemon.respond("tavrel ds f cl clu1 fs fs1 p system",
                   Response(join({dsInstance("d1", "n1", "_tw_ 1.5 _ltw_ 0.75 _stw_ 0.25 _b_ 1000 _ops_ 10",
                                    "_tw_ 2.5 _ltw_ 0.5 _stw_ 0.5 _b_ 2000 _ops_ 20"),
                         dsInstance("d1", "n2", "_tw_ 0.5 _ltw_ 0.875 _stw_ 0.125 _b_ 500 _ops_ 5",
                                    "_tw_ 1.0 _ltw_ 0.25 _stw_ 0.75 _b_ 100 _ops_ 1"),
                         dsInstance("d2", "n1", "_tw_ 4.0 _ltw_ 4.0 _stw_ 4.0 _b_ 7 _ops_ 1",
                                    "_tw_ 8.0 _ltw_ 8.0 _stw_ 8.0 _b_ 9 _ops_ 2")})));
    MErrno err = 0;
    ClusterInfo mine(&err);
    LogCapture log;
    char fsName[] = "fs1";
    char poolName[] = "system";

    EXPECT_EQ(handler()->updateDiskInfo(&mine, fsName, poolName, 1), 0);

    EXPECT_EQ(requestsSinceStart(), (Lines{"get fs fs1 system", "tavrel ds f cl clu1 fs fs1 p system"}));
    EXPECT_EQ(log.lines(), Lines{});
    EXPECT_STREQ(d1->nodeName, "n2");
    EXPECT_DOUBLE_EQ(d1->readTime, 2.0);
    EXPECT_DOUBLE_EQ(d1->writeTime, 3.5);
    EXPECT_DOUBLE_EQ(d1->longestReadTime, 0.875);
    EXPECT_DOUBLE_EQ(d1->longestWriteTime, 0.5);
    EXPECT_DOUBLE_EQ(d1->shortestReadTime, 0.125);
    EXPECT_DOUBLE_EQ(d1->shortestWriteTime, 0.5);
    EXPECT_EQ(d1->bytesRead, 1500u);
    EXPECT_EQ(d1->bytesWritten, 2100u);
    EXPECT_EQ(d1->readOps, 15u);
    EXPECT_EQ(d1->writeOps, 21u);
    EXPECT_EQ(d1->perfInstanceCount, 2u);
    EXPECT_STREQ(d2->nodeName, "n1");
    EXPECT_EQ(d2->perfInstanceCount, 1u);
    EXPECT_EQ(d2->writeOps, 2u);
    // The pool sums the times and bytes of all its disks.
    EXPECT_DOUBLE_EQ(pool->readTime, 6.0);
    EXPECT_DOUBLE_EQ(pool->writeTime, 11.5);
    EXPECT_EQ(pool->bytesRead, 1507u);
    EXPECT_EQ(pool->bytesWritten, 2109u);
    EXPECT_TRUE(isSet(pool->diskPerfUpdateTime));
    EXPECT_TRUE(isSet(pool->diskUpdateTime));

    StoragePoolInfo* myPool = mine.filesystemItems[0]->poolItems[0];
    EXPECT_EQ(myPool->bytesRead, 1507u);
    EXPECT_DOUBLE_EQ(myPool->writeTime, 11.5);
    EXPECT_EQ(myPool->diskPerfUpdateTime.tv_sec, pool->diskPerfUpdateTime.tv_sec);
    DiskInfo* my1 = myPool->diskItems[0];
    EXPECT_EQ(my1->perfInstanceCount, 2u);
    EXPECT_DOUBLE_EQ(my1->shortestReadTime, 0.125);
    EXPECT_EQ(my1->bytesWritten, 2100u);
    EXPECT_STREQ(my1->nodeName, "n2");
}

TEST_F(PoolsDisks, ShortestTimeTakesFirstPositiveThenOnlyGoesDown)
{
    startWithNodes();
    setText(recipe()->clusterName, "c");
    StoragePoolInfo* pool = addPool(addFs(recipe(), "fs1"), "system");
    DiskInfo* d1 = addDisk(pool, "d1");
    MErrno err = 0;
    ClusterInfo mine(&err);
    char fsName[] = "fs1";
    const char* values[] = {"0.5", "0.25", "0.0", "0.5"};
    const double expected[] = {0.5, 0.25, 0.0, 0.5};

    // Poll k carries the first k values as k instances of the same disk;
    // each poll starts from the cleared 0.0.
    for (int k = 1; k <= 4; k++) {
        Lines ds;
        for (int i = 0; i < k; i++) {
            std::string stw = std::string("_stw_ ") + values[i];
            Lines inst = dsInstance("d1", "n1", stw, stw);
            ds.insert(ds.end(), inst.begin(), inst.end());
        }
        daemon.respond("get fs fs1 system", {"_disk_ d1"});
        daemon.respond("tavrel ds f cl c fs fs1 p system", Response(ds));
        ASSERT_EQ(handler()->updateDiskInfo(&mine, fsName, nullptr, 1), 0);
        EXPECT_DOUBLE_EQ(d1->shortestReadTime, expected[k - 1]) << "after " << k << " values";
        EXPECT_DOUBLE_EQ(d1->shortestWriteTime, expected[k - 1]) << "after " << k << " values";
        EXPECT_EQ(d1->perfInstanceCount, static_cast<unsigned>(k));
    }
}

TEST_F(PoolsDisks, DsErrorInstanceIsDroppedWithWarningOnlyWhenDebugging)
{
    startWithNodes();
    setText(recipe()->clusterName, "c");
    StoragePoolInfo* pool = addPool(addFs(recipe(), "fs1"), "system");
    DiskInfo* d1 = addDisk(pool, "d1");
    Lines ds = join({dsInstance("d1", "n9", "_tw_ 9.0 _b_ 9", "_tw_ 9.0 _b_ 9", 5),
                     dsInstance("d1", "n1", "_tw_ 1.0 _b_ 1 _ops_ 1", "_tw_ 2.0 _b_ 2 _ops_ 2")});
    MErrno err = 0;
    ClusterInfo mine(&err);
    char fsName[] = "fs1";

    // debug 0: nothing on stderr.
    daemon.respond("get fs fs1 system", {"_disk_ d1"});
    daemon.respond("tavrel ds f cl c fs fs1 p system", Response(ds));
    StderrCapture quiet;
    EXPECT_EQ(handler()->updateDiskInfo(&mine, fsName, nullptr, 1), 0);
    EXPECT_EQ(quiet.finish(), "");
    EXPECT_STREQ(d1->nodeName, "n1");
    EXPECT_DOUBLE_EQ(d1->readTime, 1.0);
    EXPECT_DOUBLE_EQ(d1->writeTime, 2.0);
    EXPECT_EQ(d1->bytesRead, 1u);
    EXPECT_EQ(d1->perfInstanceCount, 1u);

    // debug 1 (the handler's own level): the warning names the instance
    // count and the code.
    handler()->debug = 1;
    daemon.respond("get fs fs1 system", {"_disk_ d1"});
    daemon.respond("tavrel ds f cl c fs fs1 p system", Response(ds));
    StderrCapture loud;
    EXPECT_EQ(handler()->updateDiskInfo(&mine, fsName, nullptr, 1), 0);
    EXPECT_EQ(loud.finish(), "_ok_ checkFailedNode: done\n"
                             "_warning_ 1 instance: 'tavrel ds' returned error (rc=5)\n");
    handler()->debug = 0;
    EXPECT_DOUBLE_EQ(d1->readTime, 1.0);
    EXPECT_EQ(d1->perfInstanceCount, 1u);
    EXPECT_DOUBLE_EQ(pool->readTime, 1.0);
}

TEST_F(PoolsDisks, DsErrorOnTheOnlyInstanceLeavesTheDiskCleared)
{
    startWithNodes();
    setText(recipe()->clusterName, "c");
    StoragePoolInfo* pool = addPool(addFs(recipe(), "fs1"), "system");
    DiskInfo* d1 = addDisk(pool, "d1");
    d1->readTime = 3.0;
    d1->perfInstanceCount = 4;
    setText(d1->nodeName, "before");
    daemon.respond("get fs fs1 system", {"_disk_ d1"});
    daemon.respond("tavrel ds f cl c fs fs1 p system",
                   Response(dsInstance("d1", "n1", "_tw_ 1.0", "_tw_ 1.0", -1)));
    MErrno err = 0;
    ClusterInfo mine(&err);
    char fsName[] = "fs1";
    handler()->debug = 1;
    StderrCapture err2;

    EXPECT_EQ(handler()->updateDiskInfo(&mine, fsName, nullptr, 1), 0);

    EXPECT_EQ(err2.finish(), "_ok_ checkFailedNode: done\n"
                             "_warning_ 1 instance: 'tavrel ds' returned error (rc=-1)\n");
    EXPECT_DOUBLE_EQ(d1->readTime, 0.0);
    EXPECT_EQ(d1->perfInstanceCount, 0u);
    EXPECT_STREQ(d1->nodeName, "before");
    EXPECT_TRUE(isSet(pool->diskPerfUpdateTime));
}

TEST_F(PoolsDisks, DsLineOfUnknownDiskIsDropped)
{
    startWithNodes();
    setText(recipe()->clusterName, "c");
    StoragePoolInfo* pool = addPool(addFs(recipe(), "fs1"), "system");
    DiskInfo* d1 = addDisk(pool, "d1");
    daemon.respond("get fs fs1 system", {"_disk_ d1"});
    daemon.respond("tavrel ds f cl c fs fs1 p system",
                   Response(join({dsInstance("zz", "n1", "_tw_ 5.0 _b_ 5", "_tw_ 5.0 _b_ 5"),
                                  dsInstance("d1", "n2", "_tw_ 1.0 _b_ 1", "_tw_ 1.0 _b_ 1")})));
    MErrno err = 0;
    ClusterInfo mine(&err);
    char fsName[] = "fs1";

    EXPECT_EQ(handler()->updateDiskInfo(&mine, fsName, nullptr, 1), 0);

    EXPECT_DOUBLE_EQ(d1->readTime, 1.0);
    EXPECT_EQ(d1->perfInstanceCount, 1u);
    EXPECT_DOUBLE_EQ(pool->readTime, 1.0);
    EXPECT_EQ(pool->bytesRead, 1u);
}

TEST_F(PoolsDisks, MissingReadLineMakesTheSearchRunIntoTheNextDisk)
{
    startWithNodes();
    setText(recipe()->clusterName, "c");
    StoragePoolInfo* pool = addPool(addFs(recipe(), "fs1"), "system");
    DiskInfo* d1 = addDisk(pool, "d1");
    DiskInfo* d2 = addDisk(pool, "d2");
    daemon.respond("get fs fs1 system", {"_disk_ d1", "_disk_ d2"});
    // d1 has no "_r_" line: the read search finds d2's, and the write search
    // d2's write line; d2's own instance line is passed over.
    daemon.respond("tavrel ds f cl c fs fs1 p system",
                   {"_tavrel_ds_ _rc_ 0 _d_ d1 _nn_ n1", "_tavrel_ds_ _rc_ 0 _d_ d2 _nn_ n2",
                    "_r_ _tw_ 3.0 _b_ 30", "_w_ _tw_ 4.0 _b_ 40"});
    MErrno err = 0;
    ClusterInfo mine(&err);
    char fsName[] = "fs1";

    EXPECT_EQ(handler()->updateDiskInfo(&mine, fsName, nullptr, 1), 0);

    EXPECT_DOUBLE_EQ(d1->readTime, 3.0);
    EXPECT_DOUBLE_EQ(d1->writeTime, 4.0);
    EXPECT_EQ(d1->perfInstanceCount, 1u);
    EXPECT_STREQ(d2->nodeName, "");
    EXPECT_EQ(d2->perfInstanceCount, 0u);
    EXPECT_DOUBLE_EQ(d2->readTime, 0.0);
}

TEST_F(PoolsDisks, MissingWriteLineKeepsReadValuesButDoesNotCount)
{
    startWithNodes();
    setText(recipe()->clusterName, "c");
    StoragePoolInfo* pool = addPool(addFs(recipe(), "fs1"), "system");
    DiskInfo* d1 = addDisk(pool, "d1");
    daemon.respond("get fs fs1 system", {"_disk_ d1"});
    daemon.respond("tavrel ds f cl c fs fs1 p system",
                   {"_tavrel_ds_ _rc_ 0 _d_ d1 _nn_ n1", "_r_ _tw_ 2.0 _b_ 20 _ops_ 2"});
    MErrno err = 0;
    ClusterInfo mine(&err);
    char fsName[] = "fs1";

    EXPECT_EQ(handler()->updateDiskInfo(&mine, fsName, nullptr, 1), 0);

    EXPECT_DOUBLE_EQ(d1->readTime, 2.0);
    EXPECT_EQ(d1->bytesRead, 20u);
    EXPECT_EQ(d1->readOps, 2u);
    EXPECT_EQ(d1->perfInstanceCount, 0u);
    EXPECT_STREQ(d1->nodeName, "n1");
}

TEST_F(PoolsDisks, ReadLineScanStopsAfterFiveKeywords)
{
    startWithNodes();
    setText(recipe()->clusterName, "c");
    StoragePoolInfo* pool = addPool(addFs(recipe(), "fs1"), "system");
    DiskInfo* d1 = addDisk(pool, "d1");
    daemon.respond("get fs fs1 system", {"_disk_ d1"});
    daemon.respond("tavrel ds f cl c fs fs1 p system",
                   {"_tavrel_ds_ _rc_ 0 _d_ d1 _nn_ n1",
                    "_r_ _q_ 1 _tw_ 1.0 _tw_ 1.0 _tw_ 1.0 _tw_ 1.0 _tw_ 1.0 _tw_ 1.0 _b_ 5",
                    "_w_ _ops_ 1"});
    MErrno err = 0;
    ClusterInfo mine(&err);
    char fsName[] = "fs1";

    EXPECT_EQ(handler()->updateDiskInfo(&mine, fsName, nullptr, 1), 0);

    EXPECT_DOUBLE_EQ(d1->readTime, 5.0);
    EXPECT_EQ(d1->bytesRead, 0u);
    EXPECT_EQ(d1->writeOps, 1u);
}

TEST_F(PoolsDisks, PoolWithoutDisksMakesBothRequestsAndChangesOnlyTheTimes)
{
    startWithNodes();
    setText(recipe()->clusterName, "clu1");
    FilesystemInfo* fs = addFs(recipe(), "fs1");
    StoragePoolInfo* pool = addPool(fs, "empty");
    setText(pool->status, "ok");
    pool->nDisks = 0;
    pool->totalSpace = 10;
    pool->freeSpace = 5;
    pool->fsIndex = 0;
    MErrno err = 0;
    ClusterInfo before(&err);
    ASSERT_EQ(handler()->copyRecipe(&before), 0);
    char fsName[] = "fs1";
    char poolName[] = "empty";
    ClusterInfo mine(&err);

    EXPECT_EQ(handler()->updateDiskInfo(&mine, fsName, poolName, 1), 0);

    EXPECT_EQ(requestsSinceStart(), (Lines{"get fs fs1 empty", "tavrel ds f cl clu1 fs fs1 p empty"}));
    EXPECT_TRUE(isSet(pool->diskUpdateTime));
    EXPECT_TRUE(isSet(pool->diskPerfUpdateTime));
    // Every other field as it was.
    StoragePoolInfo* was = before.filesystemItems[0]->poolItems[0];
    EXPECT_STREQ(pool->status, was->status);
    EXPECT_EQ(pool->nDisks, was->nDisks);
    EXPECT_EQ(pool->totalSpace, was->totalSpace);
    EXPECT_EQ(pool->freeSpace, was->freeSpace);
    EXPECT_EQ(pool->fsIndex, was->fsIndex);
    EXPECT_EQ(pool->bytesRead, 0u);
    EXPECT_EQ(pool->bytesWritten, 0u);
    EXPECT_DOUBLE_EQ(pool->readTime, 0.0);
    EXPECT_DOUBLE_EQ(pool->writeTime, 0.0);
    EXPECT_TRUE(pool->diskItems.empty());
    EXPECT_EQ(fs->poolUpdateTime.tv_sec, 0);
    EXPECT_EQ(mine.filesystemItems[0]->poolItems[0]->diskPerfUpdateTime.tv_sec,
              pool->diskPerfUpdateTime.tv_sec);
}

TEST_F(PoolsDisks, WithoutPoolNameEveryPoolIsWalkedInOrder)
{
    startWithNodes();
    setText(recipe()->clusterName, "c");
    FilesystemInfo* fs = addFs(recipe(), "fs1");
    addDisk(addPool(fs, "system"), "d1");
    addDisk(addPool(fs, "data"), "d2");
    daemon.respond("get fs fs1 system", {"_disk_ d1 _status_ s1"});
    daemon.respond("get fs fs1 data", {"_disk_ d2 _status_ s2"});
    MErrno err = 0;
    ClusterInfo mine(&err);
    char fsName[] = "fs1";

    EXPECT_EQ(handler()->updateDiskInfo(&mine, fsName, nullptr, 1), 0);

    EXPECT_EQ(requestsSinceStart(), (Lines{"get fs fs1 system", "tavrel ds f cl c fs fs1 p system",
                                           "get fs fs1 data", "tavrel ds f cl c fs fs1 p data"}));
    EXPECT_STREQ(fs->poolItems[1]->diskItems[0]->status, "s2");
    EXPECT_STREQ(fs->poolItems[1]->diskItems[0]->poolName, "data");
    ASSERT_EQ(namesOf(mine.filesystemItems[0]->poolItems), (Lines{"system", "data"}));
    EXPECT_STREQ(mine.filesystemItems[0]->poolItems[0]->diskItems[0]->status, "s1");
    EXPECT_STREQ(mine.filesystemItems[0]->poolItems[1]->diskItems[0]->status, "s2");
}

TEST_F(PoolsDisks, NamedPoolIsCopiedOutByPositionInEveryFilesystem)
{
    startWithNodes();
    FilesystemInfo* fs1 = addFs(recipe(), "fs1");
    addDisk(addPool(fs1, "system"), "a1");
    addDisk(addPool(fs1, "data"), "a2");
    FilesystemInfo* fs2 = addFs(recipe(), "fs2");
    DiskInfo* b1 = addDisk(addPool(fs2, "p0"), "b1");
    DiskInfo* b2 = addDisk(addPool(fs2, "p1"), "b2");
    addServer(b2->serverItems, "n1");
    addServer(b1->serverItems, "n2");
    daemon.respond("get fs fs1 data", {"_disk_ a2 _status_ up"});
    MErrno err = 0;
    ClusterInfo mine(&err);
    char fsName[] = "fs1";
    char poolName[] = "data";

    EXPECT_EQ(handler()->updateDiskInfo(&mine, fsName, poolName, 0), 0);

    EXPECT_EQ(requestsSinceStart(), (Lines{"get fs fs1 data"}));
    ASSERT_EQ(namesOf(mine.filesystemItems), (Lines{"fs1", "fs2"}));
    FilesystemInfo* m1 = mine.filesystemItems[0];
    FilesystemInfo* m2 = mine.filesystemItems[1];
    ASSERT_EQ(namesOf(m1->poolItems), (Lines{"system", "data"}));
    ASSERT_EQ(namesOf(m2->poolItems), (Lines{"p0", "p1"}));
    // Position 1 decides: fs1's "data" and fs2's "p1" get their disks.
    EXPECT_TRUE(m1->poolItems[0]->diskItems.empty());
    EXPECT_EQ(namesOf(m1->poolItems[1]->diskItems), (Lines{"a2"}));
    EXPECT_STREQ(m1->poolItems[1]->diskItems[0]->status, "up");
    EXPECT_TRUE(m2->poolItems[0]->diskItems.empty());
    EXPECT_EQ(namesOf(m2->poolItems[1]->diskItems), (Lines{"b2"}));
    EXPECT_EQ(namesOf(m2->poolItems[1]->diskItems[0]->serverItems), (Lines{"n1"}));
}

TEST_F(PoolsDisks, UnknownFilesystemOrPoolRefuses)
{
    startWithNodes();
    addPool(addFs(recipe(), "fs1"), "system");
    MErrno err = 0;
    ClusterInfo mine(&err);
    addFs(&mine, "mine");
    char badFs[] = "nosuch";
    char fsName[] = "fs1";
    char badPool[] = "nopool";

    EXPECT_EQ(handler()->updateDiskInfo(&mine, badFs, nullptr, 1), 1);
    EXPECT_EQ(handler()->updateDiskInfo(&mine, fsName, badPool, 1), 1);

    EXPECT_EQ(requestsSinceStart(), Lines{});
    EXPECT_EQ(namesOf(mine.filesystemItems), (Lines{"mine"}));
    EXPECT_EQ(handler()->getPollingLock(), 0);
    EXPECT_EQ(handler()->releasePollingLock(), 0);
}

TEST_F(PoolsDisks, DiskInfoWithoutNodesRefuses)
{
    startHandler();
    addDisk(addPool(addFs(recipe(), "fs1"), "system"), "d1");
    MErrno err = 0;
    ClusterInfo mine(&err);
    char fsName[] = "fs1";

    EXPECT_EQ(handler()->updateDiskInfo(&mine, fsName, nullptr, 1), 1);

    EXPECT_EQ(requestsSinceStart(), Lines{});
    EXPECT_TRUE(mine.filesystemItems.empty());
    EXPECT_EQ(handler()->getPollingLock(), 0);
    EXPECT_EQ(handler()->releasePollingLock(), 0);
}

TEST_F(PoolsDisks, DiskInfoWithoutPerfLeavesCountersOfReportedDisksAtZero)
{
    startWithNodes();
    setText(recipe()->clusterName, "c");
    StoragePoolInfo* pool = addPool(addFs(recipe(), "fs1"), "system");
    DiskInfo* d1 = addDisk(pool, "d1");
    MErrno err = 0;
    ClusterInfo mine(&err);
    char fsName[] = "fs1";
    daemon.respond("get fs fs1 system", {"_disk_ d1"});
    daemon.respond("tavrel ds f cl c fs fs1 p system",
                   Response(dsInstance("d1", "n1", "_tw_ 1.0 _b_ 10 _ops_ 1", "_tw_ 1.0 _b_ 10")));
    ASSERT_EQ(handler()->updateDiskInfo(&mine, fsName, nullptr, 1), 0);
    ASSERT_EQ(d1->bytesRead, 10u);
    struct timeval perfTime = pool->diskPerfUpdateTime;

    daemon.respond("get fs fs1 system", {"_disk_ d1"});
    EXPECT_EQ(handler()->updateDiskInfo(&mine, fsName, nullptr, 0), 0);

    EXPECT_EQ(requestsSinceStart().back(), "get fs fs1 system");
    EXPECT_EQ(requestsSinceStart().size(), 3u);
    EXPECT_EQ(d1->bytesRead, 0u);
    EXPECT_DOUBLE_EQ(d1->readTime, 0.0);
    EXPECT_EQ(d1->readOps, 0u);
    EXPECT_EQ(d1->perfInstanceCount, 0u);
    EXPECT_EQ(pool->bytesRead, 0u);
    EXPECT_EQ(pool->diskPerfUpdateTime.tv_sec, perfTime.tv_sec);
    EXPECT_EQ(pool->diskPerfUpdateTime.tv_usec, perfTime.tv_usec);
    EXPECT_EQ(mine.filesystemItems[0]->poolItems[0]->diskItems[0]->bytesRead, 0u);
}
