// The statistics queries of the two frames, family by family: realistic
// responses over three nodes with every field checked, and the edge cases of
// each family's scan.
#include <quelvane/api_poll.h>
#include <quelvane/cache_stats_info.h>
#include <quelvane/config_stats_info.h>
#include <quelvane/device_stats_info.h>
#include <quelvane/pcache_stats_info.h>
#include <quelvane/vfs_stats_info.h>

#include "support/files.h"
#include "support/handler_fixture.h"
#include "support/log_capture.h"
#include "support/log_entries.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using namespace qvtest;

namespace {

const char* const kVfsOps[45] = {
    "_access_",  "_close_",    "_create_",    "_fclear_",    "_fsync_",     "_fsync_range_", "_ftrunc_",
    "_getattr_", "_link_",     "_lockctl_",   "_lookup_",    "_map_lloff_", "_mkdir_",       "_mknod_",
    "_open_",    "_read_",     "_write_",     "_mmapRead_",  "_mmapWrite_", "_readdir_",     "_readlink_",
    "_readpage_", "_remove_",  "_rename_",    "_rmdir_",     "_setacl_",    "_setattr_",     "_symlink_",
    "_unmap_",   "_writepage_", "_kxfattr_",  "_kxfsattr_",  "_flock_",     "_setxattr_",    "_getxattr_",
    "_listxattr_", "_removexattr_", "_encode_fh_", "_decode_fh_", "_get_dentry_", "_get_parent_", "_mount_",
    "_statfs_",  "_sync_",     "_vget_"};

std::string addr(int k)
{
    return "10.0.0." + std::to_string(k + 1);
}

// Queries in the local scope (the staged families' only scope) or the
// cluster scope with a node list of `nodes`.
class StatsQuery : public HandlerFixture
{
protected:
    void startLocal() { startHandler(POLL_LOCAL_NODE); }
    void startCluster(int nodes)
    {
        daemon.respond("tavrel ng cnt", {"_tavrel _c_ " + std::to_string(nodes)});
        startHandler(POLL_LOCAL_CLUSTER);
        ASSERT_EQ(handler()->nNodes, nodes);
    }
};

} // namespace

// ---------------------------------------------------------------- vfss

TEST_F(StatsQuery, VfsThreeNodesEveryOperation)
{
    startCluster(3);
    std::vector<std::string> lines;
    for (int k = 0; k < 3; k++) {
        std::string l = "_tavrel::vfss_ _n_ " + addr(k) + " _rc_ 0";
        for (int i = 0; i < 45; i++)
            l += std::string(" ") + kVfsOps[i] + " " + std::to_string(k * 100 + i) + " " +
                 std::to_string(k + i * 0.25);
        lines.push_back(l);
    }
    daemon.respond("tavrel vfss", Response(lines));
    VfsStatsInfo recs[3];
    int nNeeded = -1, err = -1;
    ASSERT_EQ(handler()->vfsStatsInfo(0, recs, sizeof(recs), &nNeeded, &err), 0);
    EXPECT_EQ(nNeeded, 3);
    EXPECT_EQ(err, 0);
    for (int k = 0; k < 3; k++) {
        EXPECT_EQ(recs[k].recordVersion, 1u);
        EXPECT_EQ(recs[k].recordSize, 628u);
        EXPECT_EQ(recs[k].rc, 0);
        EXPECT_EQ(std::string(recs[k].nodeAddr), addr(k));
        // Counts, then times, each in the order of the operations.
        const uint32_t* counts = &recs[k].accessCount;
        const float* times = &recs[k].accessTime;
        for (int i = 0; i < 45; i++) {
            EXPECT_EQ(counts[i], static_cast<uint32_t>(k * 100 + i)) << kVfsOps[i];
            EXPECT_EQ(times[i], static_cast<float>(k + i * 0.25)) << kVfsOps[i];
        }
        EXPECT_EQ(recs[k].vgetCount, static_cast<uint32_t>(k * 100 + 44));
        EXPECT_EQ(recs[k].fsyncRangeCount, static_cast<uint32_t>(k * 100 + 5));
        EXPECT_EQ(recs[k].getDentryTime, static_cast<float>(k + 39 * 0.25));
    }
}

TEST_F(StatsQuery, VfsReadAndWriteOnlyAndExactWords)
{
    startLocal();
    daemon.respond("tavrel vfss", {"_tavrel _n_ n1 _rc_ 0 _read_ 4 0.5 _write_ 2 0.25 _fsync_range_ 9 1.5 "
                                   "_kxfsattr_ 8 2.5 _fsync 77 7 _kxfattr 66 6"});
    VfsStatsInfo rec;
    int nNeeded = 0, err = 0;
    ASSERT_EQ(handler()->vfsStatsInfo(0, &rec, sizeof(rec), &nNeeded, &err), 0);
    EXPECT_EQ(rec.readCount, 4u);
    EXPECT_EQ(rec.readTime, 0.5f);
    EXPECT_EQ(rec.writeCount, 2u);
    EXPECT_EQ(rec.writeTime, 0.25f);
    // Told apart by exact comparison, not by prefix.
    EXPECT_EQ(rec.fsyncRangeCount, 9u);
    EXPECT_EQ(rec.fsyncCount, 0u);
    EXPECT_EQ(rec.kxfsattrCount, 8u);
    EXPECT_EQ(rec.kxfattrCount, 0u);
    const uint32_t* counts = &rec.accessCount;
    int nonZero = 0;
    for (int i = 0; i < 45; i++)
        nonZero += counts[i] != 0 ? 1 : 0;
    EXPECT_EQ(nonZero, 4);
}

TEST_F(StatsQuery, VfsScanRunsToTheLineEndUnlessVgetRepeats)
{
    startLocal();
    std::string l = "_tavrel _n_ n1 _rc_ 0";
    for (int i = 0; i < 45; i++)
        l += " _vget_ " + std::to_string(i) + " 1";
    l += " _read_ 5 1";
    daemon.respond("tavrel vfss", {"_tavrel _n_ n0 _rc_ 0 _vget_ 1 1 _read_ 3 1", l});
    VfsStatsInfo recs[2];
    int nNeeded = 0, err = 0;
    ASSERT_EQ(handler()->vfsStatsInfo(0, recs, sizeof(recs), &nNeeded, &err), 0);
    // One _vget_ does not end the scan; the 45th does.
    EXPECT_EQ(recs[0].readCount, 3u);
    EXPECT_EQ(recs[1].vgetCount, 44u);
    EXPECT_EQ(recs[1].readCount, 0u);
}

TEST_F(StatsQuery, VfsAssignmentKeepsTheDestinationsAddress)
{
    VfsStatsInfo a, b;
    strcpy(a.nodeAddr, "dest");
    strcpy(b.nodeAddr, "src");
    b.vgetCount = 3;
    b.rc = 4;
    a = b;
    EXPECT_STREQ(a.nodeAddr, "dest");
    EXPECT_EQ(a.vgetCount, 3u);
    EXPECT_EQ(a.rc, 4);
}

// ---------------------------------------------------------------- iocs

TEST_F(StatsQuery, IocThreeNodesEveryPair)
{
    startCluster(3);
    const char* kws[8] = {"_other_", "_mb_", "_steal_", "_cleaner_", "_sync_", "_logwrap_", "_revoke_", "_prefetch_"};
    std::vector<std::string> lines;
    for (int k = 0; k < 3; k++) {
        std::string l = "_tavrel _n_ " + addr(k) + " _rc_ 0";
        for (int i = 0; i < 8; i++)
            l += std::string(" ") + kws[i] + " " + std::to_string(k * 100 + 2 * i) + " " +
                 std::to_string(k * 100 + 2 * i + 1);
        lines.push_back(l);
    }
    daemon.respond("tavrel iocs", Response(lines));
    IocStatsInfo recs[3];
    int nNeeded = 0, err = 0;
    ASSERT_EQ(handler()->iocStatsInfo(0, recs, sizeof(recs), &nNeeded, &err), 0);
    EXPECT_EQ(nNeeded, 3);
    for (int k = 0; k < 3; k++) {
        EXPECT_EQ(std::string(recs[k].nodeAddr), addr(k));
        const uint32_t* pairs = recs[k].other;
        for (int i = 0; i < 16; i++)
            EXPECT_EQ(pairs[i], static_cast<uint32_t>(k * 100 + i)) << i;
    }
}

TEST_F(StatsQuery, IocStopsAfterTheEighthKeyword)
{
    startLocal();
    daemon.respond("tavrel iocs", {"_tavrel _n_ n1 _rc_ 0 _other_ 1 2 _mb_ 3 4 _steal_ 5 6 _cleaner_ 7 8 "
                                   "_sync_ 9 10 _logwrap_ 11 12 _revoke_ 13 14 _prefetch_ 15 16 _other_ 99 99"});
    IocStatsInfo rec;
    int nNeeded = 0, err = 0;
    ASSERT_EQ(handler()->iocStatsInfo(0, &rec, sizeof(rec), &nNeeded, &err), 0);
    EXPECT_EQ(rec.other[0], 1u);
    EXPECT_EQ(rec.prefetch[1], 16u);
}

TEST_F(StatsQuery, IocClearsOnlyTheFirstRecord)
{
    startLocal();
    daemon.respond("tavrel iocs", Response(std::vector<std::string>{}));
    IocStatsInfo recs[2];
    recs[0].mb[0] = 5;
    recs[1].mb[0] = 6;
    int nNeeded = 0, err = 0;
    ASSERT_EQ(handler()->iocStatsInfo(0, recs, sizeof(recs), &nNeeded, &err), 0);
    EXPECT_EQ(recs[0].mb[0], 0u);
    EXPECT_EQ(recs[1].mb[0], 6u);
}

TEST_F(StatsQuery, IocAssignmentDoublesTheFirstSyncValue)
{
    IocStatsInfo a, b;
    strcpy(a.nodeAddr, "old");
    strcpy(b.nodeAddr, "new");
    b.sync[0] = 7;
    b.sync[1] = 8;
    b.revoke[1] = 9;
    a = b;
    EXPECT_EQ(a.sync[0], 7u);
    EXPECT_EQ(a.sync[1], 7u);
    EXPECT_EQ(a.revoke[1], 9u);
    EXPECT_STREQ(a.nodeAddr, "old");
}

// ---------------------------------------------------------------- threads

TEST_F(StatsQuery, ThreadsThreeNodesEveryPool)
{
    startCluster(3);
    const char* pools[12] = {"_noncri_", "_daestr_", "_mbhan_",  "_rcvwor_", "_revwor_", "_rngrev_",
                             "_recrvk_", "_prefth_", "_sgexpn_", "_recv_",   "_pcache_", "_multh_"};
    std::vector<std::string> lines;
    for (int k = 0; k < 3; k++) {
        std::string l = "_tavrel _n_ " + addr(k) + " _rc_ 0 _nthreads_ " + std::to_string(50 + k) + " _seq_ " +
                        std::to_string(7 + k);
        for (int i = 0; i < 12; i++)
            l += std::string(" ") + pools[i] + " " + std::to_string(k) + "/" + std::to_string(i) + "/" +
                 std::to_string(k * 12 + i);
        lines.push_back(l);
    }
    daemon.respond("tavrel threads", Response(lines));
    ThreadUtilInfo recs[3];
    int nNeeded = 0, err = 0;
    ASSERT_EQ(handler()->threadUtilInfo(0, recs, sizeof(recs), &nNeeded, &err), 0);
    EXPECT_EQ(nNeeded, 3);
    for (int k = 0; k < 3; k++) {
        EXPECT_EQ(std::string(recs[k].nodeAddr), addr(k));
        EXPECT_EQ(recs[k].rc, 1);   // the query never writes rc on success
        EXPECT_EQ(recs[k].nThreads, static_cast<uint32_t>(50 + k));
        EXPECT_EQ(recs[k].seq, static_cast<uint32_t>(7 + k));
        const threadUtil* t = &recs[k].noncri;
        for (int i = 0; i < 12; i++) {
            EXPECT_EQ(t[i].count1, k);
            EXPECT_EQ(t[i].count2, i);
            EXPECT_EQ(t[i].count3, k * 12 + i);
        }
    }
}

TEST_F(StatsQuery, ThreadsAbsentPoolRepeatsThePreviousValues)
{
    startLocal();
    daemon.respond("tavrel threads", {"_tavrel _n_ n1 _rc_ 0 _noncri_ 3/5/7 _mbhan_ 1/2"});
    ThreadUtilInfo rec;
    int nNeeded = 0, err = 0;
    ASSERT_EQ(handler()->threadUtilInfo(0, &rec, sizeof(rec), &nNeeded, &err), 0);
    EXPECT_EQ(rec.noncri.count1, 3);
    EXPECT_EQ(rec.noncri.count2, 5);
    EXPECT_EQ(rec.noncri.count3, 7);
    EXPECT_EQ(rec.daestr.count1, 3);
    EXPECT_EQ(rec.daestr.count3, 7);
    // Two numbers change, the third is carried.
    EXPECT_EQ(rec.mbhan.count1, 1);
    EXPECT_EQ(rec.mbhan.count2, 2);
    EXPECT_EQ(rec.mbhan.count3, 7);
    EXPECT_EQ(rec.multh.count3, 7);
}

TEST_F(StatsQuery, ThreadsStopAtTheSecondSeq)
{
    startLocal();
    daemon.respond("tavrel threads", {"_tavrel _n_ n1 _rc_ 0 _seq_ 1 _seq_ 2 _nthreads_ 9"});
    ThreadUtilInfo rec;
    int nNeeded = 0, err = 0;
    ASSERT_EQ(handler()->threadUtilInfo(0, &rec, sizeof(rec), &nNeeded, &err), 0);
    EXPECT_EQ(rec.seq, 2u);
    EXPECT_EQ(rec.nThreads, 0u);
}

TEST(StatsRecords, ThreadUtilClearingKeepsPoolsAndSetsRcOne)
{
    ThreadUtilInfo rec;
    EXPECT_EQ(rec.rc, 1);
    EXPECT_EQ(rec.recordVersion, 1u);
    EXPECT_EQ(rec.recordSize, 420u);
    rec.noncri = threadUtil{4, 5, 6};
    rec.nThreads = 3;
    strcpy(rec.nodeAddr, "x");
    rec.rc = 0;
    rec.clearStats();
    EXPECT_EQ(rec.rc, 1);
    EXPECT_EQ(rec.nThreads, 0u);
    EXPECT_STREQ(rec.nodeAddr, "");
    EXPECT_EQ(rec.noncri.count2, 5);
    threadUtil t{1, 2, 3};
    clearThreadUtil(t);
    EXPECT_EQ(t.count1, 1);
    EXPECT_EQ(t.count3, 3);
    ThreadUtilInfo copy;
    strcpy(copy.nodeAddr, "keep");
    copy = rec;
    EXPECT_STREQ(copy.nodeAddr, "keep");
    EXPECT_EQ(copy.noncri.count3, 6);
}

// ---------------------------------------------------------------- ds

namespace {

std::string directionLine(const char* dir, int base)
{
    return std::string(dir) + " _ops_ " + std::to_string(base) + " _b_ " + std::to_string(1000000000000LL + base) +
           " _tw_ " + std::to_string(base + 0.5) + " _qt_ " + std::to_string(base + 1.5) + " _stw_ " +
           std::to_string(base + 2.5) + " _sqt_ " + std::to_string(base + 3.5) + " _ltw_ " +
           std::to_string(base + 4.5) + " _lqt_ " + std::to_string(base + 5.5);
}

} // namespace

TEST_F(StatsQuery, DisksEveryFieldOfThreeDisks)
{
    startLocal();
    std::vector<std::string> lines;
    for (int k = 0; k < 3; k++) {
        lines.push_back("_tavrel _n_ " + addr(0) + " _rc_ 0 _fs_ fs" + std::to_string(k) + " _d_ d" +
                        std::to_string(k) + " _cl_ c1");
        lines.push_back(directionLine("_r_", k * 100 + 10));
        lines.push_back(directionLine("_w_", k * 100 + 20));
    }
    daemon.respond("tavrel ds", Response(lines));
    std::vector<DiskStatsInfo> recs;
    MErrno e = 0;
    for (int i = 0; i < 3; i++)
        recs.emplace_back(&e);
    int nNeeded = 0, err = 0;
    ASSERT_EQ(handler()->diskStatsInfo(0, recs.data(), 3 * sizeof(DiskStatsInfo), &nNeeded, &err), 0);
    EXPECT_EQ(nNeeded, 3);
    for (int k = 0; k < 3; k++) {
        const DiskStatsInfo& r = recs[static_cast<size_t>(k)];
        EXPECT_EQ(r.recordSize, 1160u);
        EXPECT_EQ(std::string(r.nodeAddr), addr(0));
        EXPECT_EQ(std::string(r.fsName), "fs" + std::to_string(k));
        EXPECT_EQ(std::string(r.diskName), "d" + std::to_string(k));
        EXPECT_STREQ(r.clusterName, "c1");
        for (int dir = 0; dir < 2; dir++) {
            int base = k * 100 + (dir == 0 ? 10 : 20);
            EXPECT_EQ(dir == 0 ? r.readOps : r.writeOps, static_cast<uint32_t>(base));
            EXPECT_EQ(dir == 0 ? r.readBytes : r.writeBytes, static_cast<uint64_t>(1000000000000LL + base));
            EXPECT_EQ(dir == 0 ? r.readTw : r.writeTw, base + 0.5);
            EXPECT_EQ(dir == 0 ? r.readQt : r.writeQt, base + 1.5);
            EXPECT_EQ(dir == 0 ? r.readStw : r.writeStw, base + 2.5);
            EXPECT_EQ(dir == 0 ? r.readSqt : r.writeSqt, base + 3.5);
            EXPECT_EQ(dir == 0 ? r.readLtw : r.writeLtw, base + 4.5);
            EXPECT_EQ(dir == 0 ? r.readLqt : r.writeLqt, base + 5.5);
        }
    }
}

TEST_F(StatsQuery, DisksTwoInstancesRoomForOne)
{
    startLocal();
    daemon.respond("tavrel ds", {"_tavrel _n_ a _rc_ 0 _fs_ f _d_ d1 _cl_ c", "_r_ _ops_ 1", "_w_ _ops_ 2",
                                 "_tavrel _n_ a _rc_ 0 _fs_ f _d_ d2 _cl_ c", "_r_ _ops_ 3", "_w_ _ops_ 4"});
    MErrno e = 0;
    DiskStatsInfo rec(&e);
    int nNeeded = 0, err = 0;
    LogCapture log;
    EXPECT_EQ(handler()->diskStatsInfo(0, &rec, sizeof(rec), &nNeeded, &err), 1);
    EXPECT_EQ(nNeeded, 2);
    EXPECT_EQ(err, 28);
    EXPECT_STREQ(rec.diskName, "d1");
    EXPECT_EQ(rec.readOps, 1u);
    EXPECT_EQ(rec.writeOps, 2u);
    EXPECT_TRUE(log.contains(I("diskStatsInfo", "err 1 *errP 28 nNeeded 2 nAllocated 1")));
}

TEST_F(StatsQuery, DisksOpsGoToTheirDirectionOnly)
{
    startLocal();
    daemon.respond("tavrel ds", {"_tavrel _n_ a _rc_ 0 _d_ d1", "_r_ _b_ 5", "_w_ _ops_ 2"});
    MErrno e = 0;
    DiskStatsInfo rec(&e);
    int nNeeded = 0, err = 0;
    ASSERT_EQ(handler()->diskStatsInfo(0, &rec, sizeof(rec), &nNeeded, &err), 0);
    EXPECT_EQ(rec.readOps, 0u);
    EXPECT_EQ(rec.readBytes, 5u);
    EXPECT_EQ(rec.writeOps, 2u);
    EXPECT_EQ(rec.writeBytes, 0u);
}

TEST_F(StatsQuery, DisksKeepTheWriteStwOfTheInstanceBefore)
{
    startLocal();
    daemon.respond("tavrel ds", {"_tavrel _n_ a _rc_ 0 _d_ d1", "_r_ _ops_ 1", "_w_ _stw_ 9.5",
                                 "_tavrel _n_ a _rc_ 0 _d_ d2", "_r_ _ops_ 1", "_w_ _ops_ 3"});
    MErrno e = 0;
    std::vector<DiskStatsInfo> recs{DiskStatsInfo(&e), DiskStatsInfo(&e)};
    int nNeeded = 0, err = 0;
    ASSERT_EQ(handler()->diskStatsInfo(0, recs.data(), 2 * sizeof(DiskStatsInfo), &nNeeded, &err), 0);
    EXPECT_EQ(recs[0].writeStw, 9.5);
    EXPECT_EQ(recs[1].writeStw, 9.5);   // clearStats leaves it
    EXPECT_EQ(recs[1].readStw, 0.0);
    DiskStatsInfo fresh(&e);
    fresh.writeStw = 4;
    fresh.clearStats();
    EXPECT_EQ(fresh.writeStw, 4.0);
}

TEST_F(StatsQuery, DisksRefusedOutsideTheLocalScope)
{
    startCluster(2);
    MErrno e = 0;
    std::vector<DiskStatsInfo> recs(10, DiskStatsInfo(&e));
    int nNeeded = 5, err = 0;
    LogCapture log;
    EXPECT_EQ(handler()->diskStatsInfo(0, recs.data(), 10 * sizeof(DiskStatsInfo), &nNeeded, &err), 1);
    EXPECT_EQ(err, 22);
    EXPECT_EQ(nNeeded, 0);
    EXPECT_TRUE(requestsSinceStart().empty());
    EXPECT_EQ(logged(log), (std::vector<std::string>{I("diskStatsInfo", "err 1 *errP 22 nNeeded 0 nAllocated 0")}));
}

TEST_F(StatsQuery, DisksFailedInstanceKeepsItsSlot)
{
    startHandler(POLL_LOCAL_NODE, 1);
    daemon.respond("tavrel ds", {"_tavrel _n_ a _rc_ 3 _d_ d1", "_tavrel _n_ b _rc_ 0 _d_ d2", "_r_ _ops_ 1",
                                 "_w_ _ops_ 2"});
    MErrno e = 0;
    std::vector<DiskStatsInfo> recs{DiskStatsInfo(&e), DiskStatsInfo(&e)};
    int nNeeded = 0, err = 0;
    StderrCapture errText;
    ASSERT_EQ(handler()->diskStatsInfo(0, recs.data(), 2 * sizeof(DiskStatsInfo), &nNeeded, &err), 0);
    EXPECT_NE(errText.finish().find("_warning_ : 'tavrel ds' returned error rc=3\n"), std::string::npos);
    EXPECT_EQ(nNeeded, 2);
    EXPECT_EQ(recs[0].rc, 3);
    EXPECT_STREQ(recs[0].nodeAddr, "a");
    EXPECT_STREQ(recs[0].diskName, "");
    EXPECT_STREQ(recs[1].diskName, "d2");
}

// ---------------------------------------------------------------- plios

TEST_F(StatsQuery, PoolsEveryFieldAndTheNDisksCarry)
{
    startLocal();
    daemon.respond("tavrel plios", {"_tavrel _n_ a _rc_ 0 _fs_ fs1 _pl_ system _d_ 4 _br_ 1000 _bw_ 2000",
                                    "_tavrel _n_ a _rc_ 0 _fs_ fs1 _pl_ data _br_ 3000 _bw_ 4000",
                                    "_tavrel _n_ a _rc_ 0 _fs_ fs2 _pl_ system _d_ 6 _br_ 5 _bw_ 6"});
    MErrno e = 0;
    std::vector<PoolIoStatsInfo> recs(3, PoolIoStatsInfo(&e));
    int nNeeded = 0, err = 0;
    ASSERT_EQ(handler()->poolIoStatsInfo(0, recs.data(), 3 * sizeof(PoolIoStatsInfo), &nNeeded, &err), 0);
    EXPECT_EQ(nNeeded, 3);
    EXPECT_STREQ(recs[0].fsName, "fs1");
    EXPECT_STREQ(recs[0].poolName, "system");
    EXPECT_EQ(recs[0].nDisks, 4u);
    EXPECT_EQ(recs[0].bytesRead, 1000u);
    EXPECT_EQ(recs[0].bytesWritten, 2000u);
    EXPECT_STREQ(recs[1].poolName, "data");
    EXPECT_EQ(recs[1].nDisks, 4u);   // carried over: clearStats leaves it
    EXPECT_EQ(recs[1].bytesRead, 3000u);
    EXPECT_EQ(recs[2].nDisks, 6u);
    EXPECT_EQ(recs[2].recordSize, 800u);
}

// ---------------------------------------------------------------- fis

TEST_F(StatsQuery, FilesystemsEveryFieldAndTheNumberBeforeTheText)
{
    startLocal();
    std::vector<std::string> lines;
    for (int k = 0; k < 3; k++) {
        std::string b = std::to_string(k * 100);
        lines.push_back("_tavrel _n_ a _rc_ 0 _fs_ fs" + std::to_string(k) + " _d_ " + std::to_string(k + 1) +
                        " _br_ " + b + "1 _bw_ " + b + "2 _oc_ " + b + "3 _cc_ " + b + "4 _rdc_ " + b + "5 _wc_ " +
                        b + "6 _dir_ " + b + "7 _iu_ 9000000000" + std::to_string(k));
    }
    daemon.respond("tavrel fis", Response(lines));
    MErrno e = 0;
    std::vector<FsIoStatsInfo> recs(3, FsIoStatsInfo(&e));
    int nNeeded = 0, err = 0;
    ASSERT_EQ(handler()->fsIoStatsInfo(0, recs.data(), 3 * sizeof(FsIoStatsInfo), &nNeeded, &err), 0);
    for (int k = 0; k < 3; k++) {
        const FsIoStatsInfo& r = recs[static_cast<size_t>(k)];
        int b = k * 1000;
        EXPECT_EQ(std::string(r.fsName), "fs" + std::to_string(k));
        EXPECT_EQ(r.nDisks, static_cast<uint32_t>(k + 1));
        EXPECT_EQ(r.bytesRead, static_cast<uint64_t>(b + 1));
        EXPECT_EQ(r.bytesWritten, static_cast<uint64_t>(b + 2));
        EXPECT_EQ(r.opens, static_cast<uint32_t>(b + 3));
        EXPECT_EQ(r.closes, static_cast<uint32_t>(b + 4));
        EXPECT_EQ(r.reads, static_cast<uint32_t>(b + 5));
        EXPECT_EQ(r.writes, static_cast<uint32_t>(b + 6));
        EXPECT_EQ(r.dirs, static_cast<uint32_t>(b + 7));
        EXPECT_EQ(r.inodeUpdates, 90000000000ULL + k);
    }
    // The application reads nDisks at byte 12, before the address.
    uint32_t atTwelve = 0;
    memcpy(&atTwelve, reinterpret_cast<const char*>(&recs[2]) + 12, 4);
    EXPECT_EQ(atTwelve, 3u);
    EXPECT_STREQ(reinterpret_cast<const char*>(&recs[2]) + 16, "a");
}

// ---------------------------------------------------------------- nsd_dst

TEST_F(StatsQuery, DiskServersEveryField)
{
    startLocal();
    std::vector<std::string> lines;
    for (int k = 0; k < 3; k++) {
        lines.push_back("_tavrel _n_ a _rc_ 0 _d_ nsd" + std::to_string(k) + " _dev_ /dev/sd" +
                        std::string(1, static_cast<char>('a' + k)));
        lines.push_back("_r_ _ops_ " + std::to_string(k * 10 + 1) + " _b_ " + std::to_string(k * 10 + 2) +
                        " _tw_ " + std::to_string(k + 0.5));
        lines.push_back("_w_ _ops_ " + std::to_string(k * 10 + 3) + " _b_ " + std::to_string(k * 10 + 4) +
                        " _tw_ " + std::to_string(k + 0.75));
    }
    daemon.respond("tavrel nsd_dst", Response(lines));
    MErrno e = 0;
    std::vector<NsdServerStatsInfo> recs(3, NsdServerStatsInfo(&e));
    int nNeeded = 0, err = 0;
    ASSERT_EQ(handler()->nsdServerStatsInfo(0, recs.data(), 3 * sizeof(NsdServerStatsInfo), &nNeeded, &err), 0);
    for (int k = 0; k < 3; k++) {
        const NsdServerStatsInfo& r = recs[static_cast<size_t>(k)];
        EXPECT_EQ(std::string(r.diskName), "nsd" + std::to_string(k));
        EXPECT_EQ(std::string(r.devName), std::string("/dev/sd") + static_cast<char>('a' + k));
        EXPECT_EQ(r.readOps, static_cast<uint32_t>(k * 10 + 1));
        EXPECT_EQ(r.readBytes, static_cast<uint64_t>(k * 10 + 2));
        EXPECT_EQ(r.readTw, k + 0.5);
        EXPECT_EQ(r.writeOps, static_cast<uint32_t>(k * 10 + 3));
        EXPECT_EQ(r.writeBytes, static_cast<uint64_t>(k * 10 + 4));
        EXPECT_EQ(r.writeTw, k + 0.75);
        EXPECT_EQ(r.recordSize, 824u);
    }
}

// ---------------------------------------------------------------- pncs

TEST_F(StatsQuery, PCacheEveryFieldAndCommandGroups)
{
    startLocal();
    daemon.respond("tavrel pncs",
                   {"_tavrel _n_ a _rc_ 0 _fs_ fs1 _fset_ s1 _q_ 99 _i_ 98 _br_ 10 _bw_ 20 _ne_ 1 _nf_ 2 _ns_ 3 "
                    "_nr_ 4 _ws_ 5 _wl_ 6 _wa_ 7 _ncmd_ 2 _q_ 11 _i_ 12 _c_ 13 _e_ 14 _f_ 15 _n_ 16 "
                    "_q_ 21 _n_ 26 _f_ 25 _x_ 0 _i_ 22 _c_ 23",
                    "_tavrel _n_ a _rc_ 5 _fs_ fs2 _fset_ s2",
                    "_tavrel _n_ a _rc_ 0 _fs_ fs1 _fset_ s3 _q_ 31 _i_ 32 _c_ 33 _e_ 34 _f_ 35 _n_ 36"});
    MErrno e = 0;
    std::vector<PCacheStatsInfo> recs(3, PCacheStatsInfo(&e));
    int nNeeded = 0, err = 0;
    ASSERT_EQ(handler()->pCacheStatsInfo(0, recs.data(), 3 * sizeof(PCacheStatsInfo), &nNeeded, &err), 0);
    EXPECT_EQ(nNeeded, 3);
    const PCacheStatsInfo& r = recs[0];
    EXPECT_STREQ(r.fsName, "fs1");
    EXPECT_STREQ(r.fsetName, "s1");
    EXPECT_EQ(r.bytesRead, 10u);
    EXPECT_EQ(r.bytesWritten, 20u);
    EXPECT_EQ(r.ne, 1u);
    EXPECT_EQ(r.nf, 2u);
    EXPECT_EQ(r.ns, 3u);
    EXPECT_EQ(r.nr, 4u);
    EXPECT_EQ(r.ws, 5u);
    EXPECT_EQ(r.wl, 6u);
    EXPECT_EQ(r.wa, 7u);
    EXPECT_EQ(r.nCmds, 2u);
    // The "_q_" before "_ncmd_" was dropped: the count was still 0.
    EXPECT_EQ(r.cmds[0].q, 11u);
    EXPECT_EQ(r.cmds[0].i, 12u);
    EXPECT_EQ(r.cmds[0].c, 13u);
    EXPECT_EQ(r.cmds[0].e, 14u);
    EXPECT_EQ(r.cmds[0].f, 15u);
    EXPECT_EQ(r.cmds[0].n, 16u);
    // Five turns: _n_ 26, _f_ 25, then _x_ and 0 match no field and use up
    // their turns, then _i_ 22; _c_ 23 is past the group.
    EXPECT_EQ(r.cmds[1].q, 21u);
    EXPECT_EQ(r.cmds[1].n, 26u);
    EXPECT_EQ(r.cmds[1].f, 25u);
    EXPECT_EQ(r.cmds[1].i, 22u);
    EXPECT_EQ(r.cmds[1].c, 0u);
    EXPECT_EQ(r.cmds[1].e, 0u);
    // A failed instance names its fileset.
    EXPECT_EQ(recs[1].rc, 5);
    EXPECT_STREQ(recs[1].fsName, "fs2");
    EXPECT_STREQ(recs[1].fsetName, "s2");
    // The command count lives on across instances.
    EXPECT_EQ(recs[2].nCmds, 0u);
    EXPECT_EQ(recs[2].cmds[0].q, 31u);
    EXPECT_EQ(recs[2].cmds[0].n, 36u);
}

TEST(StatsRecords, PCacheCommandGroupAccess)
{
    MErrno e = 0;
    PCacheStatsInfo r(&e);
    EXPECT_EQ(r.getPCacheCmdInfoP(39), nullptr);
    EXPECT_EQ(r.getPCacheCmdInfoP(-1), nullptr);
    EXPECT_EQ(r.getPCacheCmdInfoP(38), &r.cmds[38]);
    r.cmds[3].f = 9;
    clearPCacheCmdInfo(&r.cmds[3]);
    EXPECT_EQ(r.cmds[3].f, 0u);
}

// ---------------------------------------------------------------- cfgmgr

TEST_F(StatsQuery, ClusterConfigEveryFieldOfThreeNodes)
{
    startLocal();
    std::vector<std::string> lines;
    for (int k = 0; k < 3; k++) {
        std::string n = std::to_string(k);
        lines.push_back("_tavrel _n_ " + addr(k) + " _rc_ 0 _naddr_ 192.168.0." + n + " _cl_ c1 _host_ h" + n +
                        " TAVREL_CLUSTERCFG_IPADDR 10.1.1." + n + " TAVREL_CLUSTERCFG_ADMIN adm" + n +
                        " TAVREL_CLUSTERCFG_GPNTRANS tr" + n + " TAVREL_CLUSTERCFG_GPNSTATUS st" + n +
                        " TAVREL_CLUSTERCFG_NODESTATUS up" + n + " TAVREL_CLUSTERCFG_LASTFAIL lf" + n +
                        " _ip_ 9.9.9.9 _no_ " + n + "1 _joinseq_ " + n + "2 _failcnt_ " + n + "3 _fsmanaged_ " +
                        n + "4 _cnfsgrp_ " + n + "5 _rcksum_ " + n + "6 _wcksum_ " + n + "7");
    }
    daemon.respond("tavrel cfgmgr", Response(lines));
    MErrno e = 0;
    std::vector<ClusterCfgInfo> recs(3, ClusterCfgInfo(&e));
    for (ClusterCfgInfo& r : recs) {
        r.recordVersion = 77;
        r.recordSize = 88;
    }
    int nNeeded = 0, err = 0;
    ASSERT_EQ(handler()->clusterCfgInfo(0, recs.data(), 3 * sizeof(ClusterCfgInfo), &nNeeded, &err), 0);
    for (int k = 0; k < 3; k++) {
        const ClusterCfgInfo& r = recs[static_cast<size_t>(k)];
        std::string n = std::to_string(k);
        // The frame leaves these two of the caller's records unwritten.
        EXPECT_EQ(r.recordVersion, 77u);
        EXPECT_EQ(r.recordSize, 88u);
        EXPECT_EQ(r.rc, 0);
        EXPECT_STREQ(r.clusterName, "c1");
        EXPECT_EQ(r.nodeNumber, static_cast<uint32_t>(k * 10 + 1));
        EXPECT_EQ(std::string(r.nodeAddr), "192.168.0." + n);
        EXPECT_EQ(std::string(r.hostName), "h" + n);
        EXPECT_EQ(std::string(r.ipAddr), "10.1.1." + n);
        EXPECT_EQ(std::string(r.adminName), "adm" + n);
        EXPECT_EQ(std::string(r.gpnTrans), "tr" + n);
        EXPECT_EQ(std::string(r.gpnStatus), "st" + n);
        EXPECT_EQ(std::string(r.nodeStatus), "up" + n);
        EXPECT_EQ(r.joinSeq, static_cast<uint32_t>(k * 10 + 2));
        EXPECT_EQ(r.failCount, static_cast<uint32_t>(k * 10 + 3));
        EXPECT_EQ(r.fsManaged, static_cast<uint32_t>(k * 10 + 4));
        EXPECT_EQ(r.cnfsGroup, static_cast<uint32_t>(k * 10 + 5));
        EXPECT_EQ(r.readChecksum, static_cast<uint32_t>(k * 10 + 6));
        EXPECT_EQ(r.writeChecksum, static_cast<uint32_t>(k * 10 + 7));
        EXPECT_EQ(std::string(r.lastFail), "lf" + n);
    }
}

TEST_F(StatsQuery, ClusterConfigShortKeywordsLeaveTheLongFieldsEmpty)
{
    startHandler(POLL_LOCAL_NODE, 1);
    daemon.respond("tavrel cfgmgr", {"_tavrel _n_ a _rc_ 0 _ip_ 1.2.3.4 _admin_ x", "_tavrel _n_ b _rc_ 6"});
    MErrno e = 0;
    std::vector<ClusterCfgInfo> recs(2, ClusterCfgInfo(&e));
    int nNeeded = 0, err = 0;
    StderrCapture errText;
    ASSERT_EQ(handler()->clusterCfgInfo(0, recs.data(), 2 * sizeof(ClusterCfgInfo), &nNeeded, &err), 0);
    // The warning names "clustercfg", not the request's word.
    EXPECT_NE(errText.finish().find("_warning_ : 'tavrel clustercfg' returned error rc=6\n"), std::string::npos);
    EXPECT_STREQ(recs[0].ipAddr, "");
    EXPECT_STREQ(recs[0].adminName, "");
    // A failed instance keeps the _n_ text.
    EXPECT_STREQ(recs[1].nodeAddr, "b");
    EXPECT_EQ(recs[1].rc, 6);
}

TEST(StatsRecords, ClusterConfigClearingKeepsLastFail)
{
    MErrno e = 0;
    ClusterCfgInfo r(&e);
    strcpy(r.lastFail, "yesterday");
    strcpy(r.hostName, "h");
    r.joinSeq = 3;
    r.clearStats();
    EXPECT_STREQ(r.lastFail, "yesterday");
    EXPECT_STREQ(r.hostName, "");
    EXPECT_EQ(r.joinSeq, 0u);
    EXPECT_EQ(r.recordSize, 2344u);
}

TEST(StatsRecords, ConfigurationRecordsClearAllButTheirHeader)
{
    MErrno e = 0;
    KxcommCfgInfo k(&e);
    EXPECT_EQ(k.recordVersion, 1u);
    EXPECT_EQ(k.recordSize, 2344u);   // not this record's size: so it stays
    EXPECT_EQ(sizeof(KxcommCfgInfo), 16676u);
    k.port = 5;
    strcpy(k.addrList, "a b");
    KxcommCfgInfo copy(&e);
    copy.recordSize = 1;
    copy = k;
    EXPECT_EQ(copy.recordSize, 1u);
    EXPECT_EQ(copy.port, 5u);
    EXPECT_STREQ(copy.addrList, "a b");
    VerbsServerStatsInfo v(&e);
    EXPECT_EQ(v.recordSize, 584u);
    v.c6 = 9;
    v.clearStats();
    EXPECT_EQ(v.c6, 0u);
}
