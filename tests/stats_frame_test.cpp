// The statistics query frames (direct and staged) and cacheStatsInfo.
#include "support/fake_daemon.h"
#include "support/fake_tool.h"
#include "support/files.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include <quelvane/api_poll.h>
#include <quelvane/cache_stats_info.h>

#include "../poll/keyword_scan_internal.h"
#include "../poll/statistics/stats_frame_internal.h"

using namespace qvtest;

namespace {

// Starts a handler against the fake daemon; with a node list unless the
// scope is local, the daemon reporting `nodes` nodes.
void startHandler(FakeDaemon& daemon, FakeTool& kx, int scope, int nodes = 0, int debug = 0)
{
    kx.output("3504\n");
    if (nodes != 0)
        daemon.respond("tavrel ng cnt", {"_tavrel _c_ " + std::to_string(nodes)});
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, debug, scope), 0);
    ASSERT_EQ(thePollingHandler->nNodes, nodes);
}

size_t countRequests(const FakeDaemon& daemon, const std::string& text)
{
    size_t n = 0;
    for (const std::string& l : daemon.requestLines())
        if (l == text)
            n++;
    return n;
}

std::string cacheLine(const std::string& addr, int rc, unsigned a, unsigned b, unsigned c, unsigned d)
{
    return "_tavrel _n_ " + addr + " _rc_ " + std::to_string(rc) + " _dch_ " + std::to_string(a) +
           " _dcm_ " + std::to_string(b) + " _sch_ " + std::to_string(c) + " _scm_ " +
           std::to_string(d);
}

// A record of the staged kind, for exercising the staged frame itself.
class StagedRec
{
public:
    uint32_t recordVersion;
    uint32_t recordSize;
    int32_t rc;
    char nodeAddr[256];
    char fsName[64];
    uint64_t bytes;
    double seconds;
    char pad[4];

    static const uint32_t kSize;
    static int constructed;

    StagedRec(MErrno* err)
    {
        *err = 0;
        constructed++;
        clearStats();
    }
    void clearStats()
    {
        recordVersion = 1;
        recordSize = kSize;
        rc = 0;
        memset(nodeAddr, 0, sizeof(nodeAddr));
        memset(fsName, 0, sizeof(fsName));
        bytes = 0;
        seconds = 0;
        memset(pad, 0, sizeof(pad));
    }
    StagedRec& operator=(const StagedRec& o)
    {
        recordVersion = o.recordVersion;
        recordSize = o.recordSize;
        rc = o.rc;
        memcpy(nodeAddr, o.nodeAddr, sizeof(nodeAddr));
        memcpy(fsName, o.fsName, sizeof(fsName));
        bytes = o.bytes;
        seconds = o.seconds;
        return *this;
    }
};
const uint32_t StagedRec::kSize = sizeof(StagedRec);
int StagedRec::constructed = 0;

const qv::StatsFamily kStagedFamily = {"stagedTest", "tavrel stg",
                                       "_warning_ : 'tavrel stg' returned error rc=%d\n",
                                       StagedRec::kSize, false};

int stagedQuery(void* bufP, int bufSize, int* nNeeded, int* errP)
{
    return qv::stagedStatsFrame<StagedRec>(
        thePollingHandler, kStagedFamily, bufP, bufSize, nNeeded, errP,
        [](StagedRec* r, TavrelWrapperUtils* tw) {
            const qv::KwField t[] = {qv::kwU64("_b_", &r->bytes), qv::kwDouble("_t_", &r->seconds)};
            qv::keywordScan(tw, t, 2);
        },
        [](StagedRec* r, TavrelWrapperUtils* tw) {
            qv::statsCopyText(r->fsName, tw->getBufferedValue("_fs_", 0, 256));
        });
}

// A direct family that clears only its first record.
const qv::StatsFamily kFirstOnlyFamily = {"firstOnly", "tavrel chms",
                                          "_warning_ 'tavrel chms' returned error rc=%d\n",
                                          CacheStatsInfo::kRecordSize, true};

} // namespace

TEST(CacheStatsRecord, LayoutAndOperations)
{
    EXPECT_EQ(sizeof(CacheStatsInfo), 284u);
    MErrno err = 7;
    CacheStatsInfo a(&err);
    EXPECT_EQ(err, 0);
    EXPECT_EQ(a.recordVersion, 1u);
    EXPECT_EQ(a.recordSize, 284u);
    EXPECT_EQ(a.rc, 0);
    EXPECT_STREQ(a.nodeAddr, "");
    a.dcHits = 1;
    a.dcMisses = 2;
    a.scHits = 3;
    a.scMisses = 4;
    a.rc = 9;
    strcpy(a.nodeAddr, "src");
    CacheStatsInfo b;
    strcpy(b.nodeAddr, "dst");
    b = a;
    EXPECT_STREQ(b.nodeAddr, "dst");
    EXPECT_EQ(b.rc, 9);
    EXPECT_EQ(b.dcHits, 1u);
    EXPECT_EQ(b.dcMisses, 2u);
    EXPECT_EQ(b.scHits, 3u);
    EXPECT_EQ(b.scMisses, 4u);
    a.recordSize = 5;
    a.clearStats();
    EXPECT_EQ(a.recordSize, 284u);
    EXPECT_EQ(a.dcHits, 0u);
    EXPECT_EQ(a.rc, 0);
    EXPECT_STREQ(a.nodeAddr, "");
}

TEST(DirectFrame, NullBufferRefusedWithoutARequest)
{
    for (int scope : {POLL_LOCAL_CLUSTER, POLL_LOCAL_NODE}) {
        FakeDaemon daemon;
        FakeTool kx("kxctl");
        startHandler(daemon, kx, scope);
        LogCapture log;
        size_t before = daemon.requestLines().size();
        int nNeeded = -1;
        int errP = -1;
        EXPECT_EQ(thePollingHandler->cacheStatsInfo(0, nullptr, 10000, &nNeeded, &errP), 1);
        EXPECT_EQ(nNeeded, 1);
        EXPECT_EQ(errP, 28);
        EXPECT_EQ(daemon.requestLines().size(), before);
        EXPECT_EQ(log.lines(), (std::vector<std::string>{"INFO: cacheStatsInfo: err 1 *errP 28"}));
        PollingHandler::term();
        log.closedByLibrary();
    }
}

TEST(DirectFrame, SizeOfOneRecordIsTheLimit)
{
    FakeDaemon daemon;
    daemon.respondAlways("tavrel chms", {cacheLine("10.0.0.1", 0, 1, 2, 3, 4)});
    FakeTool kx("kxctl");
    startHandler(daemon, kx, POLL_LOCAL_NODE);
    CacheStatsInfo rec[1];
    int nNeeded = -1;
    int errP = -1;
    EXPECT_EQ(thePollingHandler->cacheStatsInfo(0, rec, 283, &nNeeded, &errP), 1);
    EXPECT_EQ(nNeeded, 1);
    EXPECT_EQ(errP, 28);
    EXPECT_EQ(countRequests(daemon, "tavrel chms"), 0u);

    EXPECT_EQ(thePollingHandler->cacheStatsInfo(0, rec, 284, &nNeeded, &errP), 0);
    EXPECT_EQ(nNeeded, 1);
    EXPECT_EQ(errP, 0);
    EXPECT_EQ(countRequests(daemon, "tavrel chms"), 1u);
    EXPECT_STREQ(rec[0].nodeAddr, "10.0.0.1");
    EXPECT_EQ(rec[0].dcHits, 1u);
    EXPECT_EQ(rec[0].dcMisses, 2u);
    EXPECT_EQ(rec[0].scHits, 3u);
    EXPECT_EQ(rec[0].scMisses, 4u);
    EXPECT_EQ(rec[0].recordVersion, 1u);
    EXPECT_EQ(rec[0].recordSize, 284u);
    PollingHandler::term();
}

TEST(DirectFrame, NegativeSizePassesTheSizeTest)
{
    FakeDaemon daemon;
    daemon.respondAlways("tavrel chms", {cacheLine("10.0.0.1", 0, 1, 2, 3, 4)});
    FakeTool kx("kxctl");
    startHandler(daemon, kx, POLL_LOCAL_NODE);
    unsigned char mem[284 * 2];
    memset(mem, 0xab, sizeof(mem));
    int nNeeded = -1;
    int errP = -1;
    EXPECT_EQ(thePollingHandler->cacheStatsInfo(0, mem, -284 * 2, &nNeeded, &errP), 0);
    EXPECT_EQ(errP, 0);
    EXPECT_EQ(nNeeded, 1);
    EXPECT_EQ(countRequests(daemon, "tavrel chms"), 1u);
    // No record is available, so nothing lands in the caller's memory.
    for (unsigned char c : mem)
        ASSERT_EQ(c, 0xab);
    PollingHandler::term();
}

TEST(DirectFrame, FewerRecordsThanNodesRefused)
{
    FakeDaemon daemon;
    daemon.respondAlways("tavrel chms", {cacheLine("10.0.0.1", 0, 1, 2, 3, 4)});
    FakeTool kx("kxctl");
    startHandler(daemon, kx, POLL_LOCAL_CLUSTER, 3);
    unsigned char mem[284 * 2];
    memset(mem, 0xab, sizeof(mem));
    int nNeeded = -1;
    int errP = -1;
    EXPECT_EQ(thePollingHandler->cacheStatsInfo(0, mem, sizeof(mem), &nNeeded, &errP), 1);
    EXPECT_EQ(nNeeded, 3);
    EXPECT_EQ(errP, 28);
    EXPECT_EQ(countRequests(daemon, "tavrel chms"), 0u);
    for (unsigned char c : mem)
        ASSERT_EQ(c, 0xab);
    PollingHandler::term();
}

TEST(DirectFrame, LocalScopeOneRecordOneInstance)
{
    FakeDaemon daemon;
    daemon.respond("tavrel chms", {cacheLine("10.0.0.9", 0, 11, 12, 13, 14)});
    FakeTool kx("kxctl");
    startHandler(daemon, kx, POLL_LOCAL_NODE);
    LogCapture log;
    CacheStatsInfo rec;
    int nNeeded = -1;
    int errP = -1;
    EXPECT_EQ(thePollingHandler->cacheStatsInfo(0, &rec, sizeof(rec), &nNeeded, &errP), 0);
    EXPECT_EQ(nNeeded, 1);
    EXPECT_EQ(errP, 0);
    EXPECT_EQ(rec.dcHits, 11u);
    EXPECT_EQ(rec.scMisses, 14u);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"INFO: cacheStatsInfo: err 0 *errP 0"}));
    PollingHandler::term();
    log.closedByLibrary();
}

TEST(DirectFrame, ThreeNodesWithAFailingSecond)
{
    FakeDaemon daemon;
    daemon.respond("tavrel chms", {cacheLine("10.0.0.1", 0, 1, 2, 3, 4),
                                   "_tavrel _n_ 10.0.0.2 _rc_ 5",
                                   cacheLine("10.0.0.3", 0, 31, 32, 33, 34)});
    FakeTool kx("kxctl");
    startHandler(daemon, kx, POLL_LOCAL_CLUSTER, 3, 1);
    CacheStatsInfo rec[3];
    memset(static_cast<void*>(rec), 0x77, sizeof(rec));
    int nNeeded = -1;
    int errP = -1;
    StderrCapture cap;
    EXPECT_EQ(thePollingHandler->cacheStatsInfo(0, rec, sizeof(rec), &nNeeded, &errP), 0);
    std::string err = cap.finish();
    EXPECT_NE(err.find("_warning_ 'tavrel chms' returned error rc=5\n"), std::string::npos);
    EXPECT_EQ(nNeeded, 2);
    EXPECT_EQ(errP, 0);
    EXPECT_STREQ(rec[0].nodeAddr, "10.0.0.1");
    EXPECT_EQ(rec[0].rc, 0);
    EXPECT_EQ(rec[0].dcHits, 1u);
    // The failed node took no slot; the third node's data is in slot 1 and
    // the failed node's rc stays there.
    EXPECT_STREQ(rec[1].nodeAddr, "10.0.0.3");
    EXPECT_EQ(rec[1].rc, 5);
    EXPECT_EQ(rec[1].dcHits, 31u);
    EXPECT_EQ(rec[1].scMisses, 34u);
    // The third slot was cleared and stays clear.
    EXPECT_EQ(rec[2].recordVersion, 1u);
    EXPECT_EQ(rec[2].recordSize, 284u);
    EXPECT_EQ(rec[2].rc, 0);
    EXPECT_STREQ(rec[2].nodeAddr, "");
    EXPECT_EQ(rec[2].dcHits, 0u);
    PollingHandler::term();
}

TEST(DirectFrame, NoWarningWithoutDebug)
{
    FakeDaemon daemon;
    daemon.respond("tavrel chms", {"_tavrel _n_ 10.0.0.2 _rc_ 5"});
    FakeTool kx("kxctl");
    startHandler(daemon, kx, POLL_LOCAL_NODE);
    CacheStatsInfo rec;
    int nNeeded = -1;
    int errP = -1;
    StderrCapture cap;
    EXPECT_EQ(thePollingHandler->cacheStatsInfo(0, &rec, sizeof(rec), &nNeeded, &errP), 0);
    EXPECT_EQ(cap.finish(), "");
    EXPECT_EQ(nNeeded, 0);
    EXPECT_EQ(rec.rc, 5);
    EXPECT_STREQ(rec.nodeAddr, "10.0.0.2");
    PollingHandler::term();
}

TEST(DirectFrame, MissingRcIsSuccessMissingKeywordStaysZero)
{
    FakeDaemon daemon;
    daemon.respond("tavrel chms", {"_tavrel _n_ 10.0.0.1 _dcm_ 2 _x_ _sch_ _y_ 9 _scm_ 4 _w_ 1",
                                   "_tavrel _n_ 10.0.0.2 _dch_ 1 _dch_ 7 _dcm_ 2 _sch_ 3 _scm_ 4"});
    FakeTool kx("kxctl");
    startHandler(daemon, kx, POLL_LOCAL_NODE);
    CacheStatsInfo rec[2];
    int nNeeded = -1;
    int errP = -1;
    EXPECT_EQ(thePollingHandler->cacheStatsInfo(0, rec, sizeof(rec), &nNeeded, &errP), 0);
    EXPECT_EQ(nNeeded, 2);
    EXPECT_EQ(rec[0].rc, 0);
    EXPECT_EQ(rec[0].dcHits, 0u);
    EXPECT_EQ(rec[0].dcMisses, 2u);
    // "_sch_" takes the next word as its value, a word that is no number.
    EXPECT_EQ(rec[0].scHits, 0u);
    EXPECT_EQ(rec[0].scMisses, 4u);
    // A repeated keyword counts twice: the fourth match is "_sch_", so
    // "_scm_" is never reached.
    EXPECT_EQ(rec[1].dcHits, 7u);
    EXPECT_EQ(rec[1].dcMisses, 2u);
    EXPECT_EQ(rec[1].scHits, 3u);
    EXPECT_EQ(rec[1].scMisses, 0u);
    PollingHandler::term();
}

TEST(DirectFrame, EmptyResponse)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    startHandler(daemon, kx, POLL_LOCAL_NODE);
    CacheStatsInfo rec[2];
    rec[1].dcHits = 99;
    int nNeeded = -1;
    int errP = -1;
    EXPECT_EQ(thePollingHandler->cacheStatsInfo(0, rec, sizeof(rec), &nNeeded, &errP), 0);
    EXPECT_EQ(nNeeded, 0);
    EXPECT_EQ(errP, 0);
    EXPECT_EQ(rec[1].dcHits, 0u);
    EXPECT_EQ(countRequests(daemon, "tavrel chms"), 1u);
    PollingHandler::term();
}

TEST(DirectFrame, MoreInstancesThanRecordsNeverWritePastTheArray)
{
    FakeDaemon daemon;
    daemon.respond("tavrel chms", {cacheLine("10.0.0.1", 0, 1, 1, 1, 1), cacheLine("10.0.0.2", 0, 2, 2, 2, 2),
                                   cacheLine("10.0.0.3", 0, 3, 3, 3, 3), cacheLine("10.0.0.4", 0, 4, 4, 4, 4)});
    FakeTool kx("kxctl");
    startHandler(daemon, kx, POLL_LOCAL_NODE);
    struct {
        CacheStatsInfo rec[2];
        unsigned char guard[284 * 2];
    } mem;
    memset(mem.guard, 0xcd, sizeof(mem.guard));
    int nNeeded = -1;
    int errP = -1;
    EXPECT_EQ(thePollingHandler->cacheStatsInfo(0, mem.rec, sizeof(mem.rec), &nNeeded, &errP), 0);
    EXPECT_EQ(nNeeded, 4);
    EXPECT_EQ(errP, 0);
    EXPECT_STREQ(mem.rec[0].nodeAddr, "10.0.0.1");
    EXPECT_STREQ(mem.rec[1].nodeAddr, "10.0.0.2");
    EXPECT_EQ(mem.rec[1].dcHits, 2u);
    for (unsigned char c : mem.guard)
        ASSERT_EQ(c, 0xcd);
    PollingHandler::term();
}

TEST(DirectFrame, FirstOnlyClearingLeavesLaterRecords)
{
    FakeDaemon daemon;
    daemon.respond("tavrel chms", {cacheLine("10.0.0.1", 0, 1, 1, 1, 1)});
    FakeTool kx("kxctl");
    startHandler(daemon, kx, POLL_LOCAL_NODE);
    CacheStatsInfo rec[2];
    memset(static_cast<void*>(rec), 0x11, sizeof(rec));
    int nNeeded = -1;
    int errP = -1;
    int r = qv::directStatsFrame<CacheStatsInfo>(
        thePollingHandler, kFirstOnlyFamily, rec, sizeof(rec), &nNeeded, &errP,
        [](CacheStatsInfo*, TavrelWrapperUtils*) {});
    EXPECT_EQ(r, 0);
    EXPECT_EQ(nNeeded, 1);
    EXPECT_STREQ(rec[0].nodeAddr, "10.0.0.1");
    EXPECT_EQ(rec[0].dcHits, 0u);
    EXPECT_EQ(rec[1].dcHits, 0x11111111u);
    EXPECT_EQ(rec[1].recordSize, 0x11111111u);
    PollingHandler::term();
}

TEST(StagedFrame, NotLocalScopeRefusedWithoutARequest)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    startHandler(daemon, kx, POLL_LOCAL_CLUSTER);
    LogCapture log;
    MErrno e = 0;
    std::vector<StagedRec> big(8, StagedRec(&e));
    int nNeeded = -1;
    int errP = -1;
    EXPECT_EQ(stagedQuery(big.data(), static_cast<int>(big.size() * sizeof(StagedRec)), &nNeeded, &errP), 1);
    EXPECT_EQ(errP, 22);
    EXPECT_EQ(nNeeded, 0);
    EXPECT_EQ(countRequests(daemon, "tavrel stg"), 0u);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "INFO: stagedTest: err 1 *errP 22 nNeeded 0 nAllocated 0"}));
    PollingHandler::term();
    log.closedByLibrary();
}

TEST(StagedFrame, TwoCallProtocolWithNullBuffer)
{
    FakeDaemon daemon;
    std::vector<std::string> lines = {"_tavrel _n_ 10.0.0.1 _fs_ fs1 _rc_ 0 _b_ 100 _t_ 1.5",
                                      "_tavrel _n_ 10.0.0.1 _fs_ fs2 _rc_ 3",
                                      "_tavrel _n_ 10.0.0.1 _fs_ fs3 _t_ 2.25 _b_ 300"};
    daemon.respondAlways("tavrel stg", Response(lines));
    FakeTool kx("kxctl");
    startHandler(daemon, kx, POLL_LOCAL_NODE, 0, 1);
    LogCapture log;
    int nNeeded = -1;
    int errP = -1;
    StagedRec::constructed = 0;
    EXPECT_EQ(stagedQuery(nullptr, 0, &nNeeded, &errP), 1);
    EXPECT_EQ(nNeeded, 3);
    EXPECT_EQ(errP, 28);
    EXPECT_EQ(StagedRec::constructed, 1);

    MErrno e = 0;
    std::vector<StagedRec> arr(static_cast<size_t>(nNeeded), StagedRec(&e));
    StderrCapture cap;
    EXPECT_EQ(stagedQuery(arr.data(), static_cast<int>(arr.size() * sizeof(StagedRec)), &nNeeded, &errP), 0);
    EXPECT_NE(cap.finish().find("_warning_ : 'tavrel stg' returned error rc=3\n"), std::string::npos);
    EXPECT_EQ(nNeeded, 3);
    EXPECT_EQ(errP, 0);
    EXPECT_STREQ(arr[0].fsName, "fs1");
    EXPECT_EQ(arr[0].bytes, 100u);
    EXPECT_EQ(arr[0].seconds, 1.5);
    // A failed node keeps its slot with its rc, its address and the texts
    // read before the rc.
    EXPECT_EQ(arr[1].rc, 3);
    EXPECT_STREQ(arr[1].nodeAddr, "10.0.0.1");
    EXPECT_STREQ(arr[1].fsName, "fs2");
    EXPECT_EQ(arr[1].bytes, 0u);
    EXPECT_EQ(arr[2].rc, 0);
    EXPECT_EQ(arr[2].bytes, 300u);
    EXPECT_EQ(arr[2].seconds, 2.25);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "INFO: stagedTest: err 1 *errP 28 nNeeded 3 nAllocated 0",
                               "INFO: stagedTest: err 0 *errP 0 nNeeded 3 nAllocated 3"}));
    PollingHandler::term();
    log.closedByLibrary();
}

TEST(StagedFrame, MoreInstancesThanRecordsKeepsTheFirst)
{
    FakeDaemon daemon;
    daemon.respond("tavrel stg", {"_tavrel _n_ a _b_ 1", "_tavrel _n_ b _b_ 2", "_tavrel _n_ c _b_ 3"});
    FakeTool kx("kxctl");
    startHandler(daemon, kx, POLL_LOCAL_NODE);
    MErrno e = 0;
    struct {
        StagedRec rec[2];
        unsigned char guard[sizeof(StagedRec)];
    } mem{{StagedRec(&e), StagedRec(&e)}, {}};
    memset(mem.guard, 0xee, sizeof(mem.guard));
    int nNeeded = -1;
    int errP = -1;
    EXPECT_EQ(stagedQuery(mem.rec, sizeof(mem.rec) + 5, &nNeeded, &errP), 1);
    EXPECT_EQ(nNeeded, 3);
    EXPECT_EQ(errP, 28);
    EXPECT_STREQ(mem.rec[0].nodeAddr, "a");
    EXPECT_STREQ(mem.rec[1].nodeAddr, "b");
    EXPECT_EQ(mem.rec[1].bytes, 2u);
    for (unsigned char c : mem.guard)
        ASSERT_EQ(c, 0xee);
    PollingHandler::term();
}

TEST(StagedFrame, EmptyResponseFitsAnything)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    startHandler(daemon, kx, POLL_LOCAL_NODE);
    int nNeeded = -1;
    int errP = -1;
    EXPECT_EQ(stagedQuery(nullptr, 0, &nNeeded, &errP), 0);
    EXPECT_EQ(nNeeded, 0);
    EXPECT_EQ(errP, 0);
    EXPECT_EQ(countRequests(daemon, "tavrel stg"), 1u);
    PollingHandler::term();
}

TEST(KeywordScan, CountedUncountedLimitsAndConversions)
{
    FakeDaemon daemon;
    daemon.respond("tavrel kw", {"_tavrel _name_ n1 _a_ 5 _skip_ 9 _name_ n2 _b_ 7 _c_ 1.5 _d_ -3 _e_ 99",
                                 "_tavrel _a_ 1 _b_ 2 _c_ 3 _d_",
                                 "_tavrel _w_ x y _a_ 6"});
    FakeTool kx("kxctl");
    startHandler(daemon, kx, POLL_LOCAL_NODE);
    TavrelWrapperUtils* tw = thePollingHandler->tavrelWrapper;
    ASSERT_EQ(thePollingHandler->processCommand("tavrel kw"), 0);
    tw->prepBuffer();

    // Line 1: "_name_" is not counted; the scan stops once 3 counted matches
    // have been made ("until the count exceeds 2"), so "_d_" is never seen.
    ASSERT_TRUE(tw->getNextInstance("_tavrel"));
    char name[4] = "";
    int32_t a = 0;
    uint64_t b = 0;
    double c = 0;
    int64_t d = 0;
    const qv::KwField t1[] = {qv::kwText("_name_", name, false), qv::kwI32("_a_", &a),
                              qv::kwU64("_b_", &b), qv::kwDouble("_c_", &c), qv::kwI64("_d_", &d)};
    EXPECT_EQ(qv::keywordScan(tw, t1, qv::kwExceeds(2)), 3);
    EXPECT_STREQ(name, "n2");
    EXPECT_EQ(a, 5);
    EXPECT_EQ(b, 7u);
    EXPECT_EQ(c, 1.5);
    EXPECT_EQ(d, 0);

    // Line 2: a keyword at the end of the line takes an empty value.
    ASSERT_TRUE(tw->getNextInstance("_tavrel"));
    d = 42;
    EXPECT_EQ(qv::keywordScan(tw, t1, 10), 4);
    EXPECT_EQ(d, 0);

    // Line 3: a custom conversion takes two words.
    ASSERT_TRUE(tw->getNextInstance("_tavrel"));
    std::string pair;
    const qv::KwField t3[] = {qv::kwCustom("_w_", [&](char* v, TavrelWrapperUtils* s) {
                                  pair = v;
                                  char* second = s->getNextToken();
                                  pair += std::string("+") + (second ? second : "");
                              }),
                              qv::kwI32("_a_", &a)};
    EXPECT_EQ(qv::keywordScan(tw, t3, 2), 2);
    EXPECT_EQ(pair, "x+y");
    EXPECT_EQ(a, 6);
    tw->cleanupCommand();
    PollingHandler::term();
}

TEST(KeywordScan, TextIsBoundedToItsArray)
{
    FakeDaemon daemon;
    daemon.respond("tavrel kw", {"_tavrel _n_ abcdefgh"});
    FakeTool kx("kxctl");
    startHandler(daemon, kx, POLL_LOCAL_NODE);
    TavrelWrapperUtils* tw = thePollingHandler->tavrelWrapper;
    ASSERT_EQ(thePollingHandler->processCommand("tavrel kw"), 0);
    tw->prepBuffer();
    ASSERT_TRUE(tw->getNextInstance("_tavrel"));
    struct {
        char text[4];
        char after[4];
    } mem = {{'x', 'x', 'x', 'x'}, {'y', 'y', 'y', 'y'}};
    const qv::KwField t[] = {qv::kwText("_n_", mem.text)};
    EXPECT_EQ(qv::keywordScan(tw, t, 1), 1);
    EXPECT_STREQ(mem.text, "abc");
    EXPECT_EQ(mem.after[0], 'y');
    tw->cleanupCommand();
    PollingHandler::term();
}
