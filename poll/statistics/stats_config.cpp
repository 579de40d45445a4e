// Records of a node's state: ClusterCfgInfo ("tavrel cfgmgr", staged
// frame), ThreadUtilInfo ("tavrel threads", direct frame), KxcommCfgInfo and
// the two Verbs records (filled by their inventory updates only).

#include <climits>
#include <cstdio>
#include <cstring>

#include <quelvane/api_poll.h>
#include <quelvane/config_stats_info.h>

#include "poll/keyword_scan_internal.h"
#include "poll/statistics/stats_families_internal.h"

namespace {

// The scans that run to the end of the line have no total.
const int kToLineEnd = INT_MAX;

}  // namespace

// ---------------------------------------------------------------------------
// ClusterCfgInfo

ClusterCfgInfo::ClusterCfgInfo(MErrno* err)
{
    *err = 0;
    memset(lastFail, 0, sizeof(lastFail));
    clearStats();
}

ClusterCfgInfo::~ClusterCfgInfo() {}

void ClusterCfgInfo::clearStats()
{
    recordVersion = 1;
    recordSize = kRecordSize;
    rc = 0;
    memset(clusterName, 0, sizeof(clusterName));
    nodeNumber = 0;
    for (char* t : {nodeAddr, hostName, ipAddr, adminName, gpnTrans, gpnStatus, nodeStatus})
        memset(t, 0, 256);
    joinSeq = failCount = fsManaged = cnfsGroup = readChecksum = writeChecksum = 0;
    // lastFail keeps its text.
}

ClusterCfgInfo& ClusterCfgInfo::operator=(const ClusterCfgInfo& src)
{
    if (this == &src)
        return *this;
    // Everything after recordVersion and recordSize.
    const size_t from = offsetof(ClusterCfgInfo, rc);
    memcpy(reinterpret_cast<char*>(this) + from, reinterpret_cast<const char*>(&src) + from,
           sizeof(*this) - from);
    return *this;
}

int PollingHandler::clusterCfgInfo(int, void* bufP, int bufSize, int* nNeeded, int* errP)
{
    return qv::stagedStatsFrame<ClusterCfgInfo>(
        this, qv::kClusterCfgFamily, bufP, bufSize, nNeeded, errP,
        [](ClusterCfgInfo* rec, TavrelWrapperUtils* tw) {
            // The query reads the long literal words; "_naddr_" replaces
            // the "_n_" text.
            qv::statsCopyText(rec->nodeAddr, tw->getBufferedValue("_naddr_", 0, 256));
            qv::statsCopyText(rec->clusterName, tw->getBufferedValue("_cl_", 0, 256));
            qv::statsCopyText(rec->hostName, tw->getBufferedValue("_host_", 0, 256));
            qv::statsCopyText(rec->ipAddr, tw->getBufferedValue("TAVREL_CLUSTERCFG_IPADDR", 0, 256));
            qv::statsCopyText(rec->adminName, tw->getBufferedValue("TAVREL_CLUSTERCFG_ADMIN", 0, 256));
            qv::statsCopyText(rec->gpnTrans, tw->getBufferedValue("TAVREL_CLUSTERCFG_GPNTRANS", 0, 256));
            qv::statsCopyText(rec->gpnStatus, tw->getBufferedValue("TAVREL_CLUSTERCFG_GPNSTATUS", 0, 256));
            qv::statsCopyText(rec->nodeStatus, tw->getBufferedValue("TAVREL_CLUSTERCFG_NODESTATUS", 0, 256));
            qv::statsCopyText(rec->lastFail, tw->getBufferedValue("TAVREL_CLUSTERCFG_LASTFAIL", 0, 256));
            qv::scanClusterCfgCounters(rec, tw);
        });
}

namespace qv {

void scanClusterCfgCounters(ClusterCfgInfo* rec, TavrelWrapperUtils* tw)
{
    const KwField table[] = {
        kwCustom("_no_", [rec](char* v, TavrelWrapperUtils*) { rec->nodeNumber = static_cast<uint32_t>(kwU64Of(v)); }),
        kwU32("_joinseq_", &rec->joinSeq),
        kwU32("_failcnt_", &rec->failCount),
        kwU32("_fsmanaged_", &rec->fsManaged),
        kwU32("_cnfsgrp_", &rec->cnfsGroup),
        kwU32("_rcksum_", &rec->readChecksum),
        kwU32("_wcksum_", &rec->writeChecksum),
    };
    keywordScan(tw, table, kToLineEnd);
}

}  // namespace qv

// ---------------------------------------------------------------------------
// ThreadUtilInfo

void clearThreadUtil(threadUtil) {}

namespace {

struct ThreadPool
{
    const char* keyword;
    threadUtil ThreadUtilInfo::*pool;
};

const ThreadPool kThreadPools[12] = {
    {"_noncri_", &ThreadUtilInfo::noncri}, {"_daestr_", &ThreadUtilInfo::daestr},
    {"_mbhan_", &ThreadUtilInfo::mbhan},   {"_rcvwor_", &ThreadUtilInfo::rcvwor},
    {"_revwor_", &ThreadUtilInfo::revwor}, {"_rngrev_", &ThreadUtilInfo::rngrev},
    {"_recrvk_", &ThreadUtilInfo::recrvk}, {"_prefth_", &ThreadUtilInfo::prefth},
    {"_sgexpn_", &ThreadUtilInfo::sgexpn}, {"_recv_", &ThreadUtilInfo::recv},
    {"_pcache_", &ThreadUtilInfo::pcache}, {"_multh_", &ThreadUtilInfo::multh},
};

}  // namespace

ThreadUtilInfo::ThreadUtilInfo()
{
    // A fresh record's pools start at zero; clearStats leaves them.
    for (const ThreadPool& p : kThreadPools)
        this->*p.pool = threadUtil{0, 0, 0};
    clearStats();
}

ThreadUtilInfo::ThreadUtilInfo(MErrno* err) : ThreadUtilInfo()
{
    *err = 0;
}

ThreadUtilInfo::~ThreadUtilInfo() {}

void ThreadUtilInfo::clearStats()
{
    recordVersion = 1;
    recordSize = kRecordSize;
    rc = 1;
    memset(nodeAddr, 0, sizeof(nodeAddr));
    nThreads = 0;
    seq = 0;
    for (const ThreadPool& p : kThreadPools)
        clearThreadUtil(this->*p.pool);
}

ThreadUtilInfo& ThreadUtilInfo::operator=(const ThreadUtilInfo& src)
{
    rc = src.rc;
    recordVersion = src.recordVersion;
    recordSize = src.recordSize;
    nThreads = src.nThreads;
    seq = src.seq;
    for (const ThreadPool& p : kThreadPools)
        this->*p.pool = src.*p.pool;
    return *this;
}

namespace qv {

void scanThreadLine(ThreadUtilInfo* rec, TavrelWrapperUtils* tw, int carry[3])
{
    // The three numbers live across the keywords (and the lines): a pool
    // that is absent, or a value with fewer numbers, takes what they held.
    for (const ThreadPool& p : kThreadPools) {
        char value[257];
        statsCopyText(value, tw->getBufferedValue(p.keyword, 0, 256));
        sscanf(value, "%d/%d/%d", &carry[0], &carry[1], &carry[2]);
        rec->*p.pool = threadUtil{carry[0], carry[1], carry[2]};
    }
    // Each word is tested against "_nthreads_", then "_seq_"; the scan ends
    // at the second "_seq_".
    const KwField table[] = {
        kwU32("_nthreads_", &rec->nThreads, false),
        kwU32("_seq_", &rec->seq),
    };
    keywordScan(tw, table, 2);
}

}  // namespace qv

int PollingHandler::threadUtilInfo(int, void* bufP, int bufSize, int* nNeeded, int* errP)
{
    int carry[3] = {0, 0, 0};
    // On success rc is not written: the record keeps the 1 of clearStats.
    return qv::directStatsFrame<ThreadUtilInfo>(
        this, qv::kThreadFamily, bufP, bufSize, nNeeded, errP,
        [&carry](ThreadUtilInfo* rec, TavrelWrapperUtils* tw) { qv::scanThreadLine(rec, tw, carry); });
}

// ---------------------------------------------------------------------------
// KxcommCfgInfo

KxcommCfgInfo::KxcommCfgInfo(MErrno* err)
{
    *err = 0;
    clearStats();
}

KxcommCfgInfo::~KxcommCfgInfo() {}

void KxcommCfgInfo::clearStats()
{
    recordVersion = 1;
    // The size written here is not this record's: so it stays.
    recordSize = 2344;
    rc = 0;
    port = 0;
    nodeNumber = 0;
    memset(nodeAddr, 0, sizeof(nodeAddr));
    memset(addrList, 0, sizeof(addrList));
    commVersion = compatVersion = maxCompatVersion = maxFeature = 0;
}

KxcommCfgInfo& KxcommCfgInfo::operator=(const KxcommCfgInfo& src)
{
    if (this == &src)
        return *this;
    const size_t from = offsetof(KxcommCfgInfo, rc);
    memcpy(reinterpret_cast<char*>(this) + from, reinterpret_cast<const char*>(&src) + from,
           sizeof(*this) - from);
    return *this;
}

// ---------------------------------------------------------------------------
// VerbsClientStatsInfo and VerbsServerStatsInfo: one layout, two keyword
// sets.

namespace {

template <class Rec>
void clearVerbs(Rec* r)
{
    r->recordVersion = 1;
    r->recordSize = Rec::kRecordSize;
    r->rc = 0;
    memset(r->dst, 0, sizeof(r->dst));
    memset(r->st, 0, sizeof(r->st));
    r->c1 = r->c2 = r->c3 = r->c4 = r->c5 = r->c6 = 0;
    r->dvi = 0;
    r->prt = 0;
}

template <class Rec>
void copyVerbs(Rec* dst, const Rec& src)
{
    if (dst == &src)
        return;
    const size_t from = offsetof(Rec, rc);
    memcpy(reinterpret_cast<char*>(dst) + from, reinterpret_cast<const char*>(&src) + from,
           sizeof(Rec) - from);
}

template <class Rec>
void scanVerbs(Rec* r, TavrelWrapperUtils* tw, const char* const (&keywords)[6])
{
    const qv::KwField table[] = {
        qv::kwU64(keywords[0], &r->c1), qv::kwU64(keywords[1], &r->c2), qv::kwU64(keywords[2], &r->c3),
        qv::kwU64(keywords[3], &r->c4), qv::kwU64(keywords[4], &r->c5), qv::kwU64(keywords[5], &r->c6),
        qv::kwU32("_dvi_", &r->dvi),    qv::kwU32("_prt_", &r->prt),
    };
    qv::keywordScan(tw, table, kToLineEnd);
}

const char* const kClientCounters[6] = {"_crw_", "_prw_", "_frd_", "_fwr_", "_frk_", "_fwk_"};
const char* const kServerCounters[6] = {"_crd_", "_wrd_", "_rrd_", "_rwr_", "_rdk_", "_rwk_"};

}  // namespace

VerbsClientStatsInfo::VerbsClientStatsInfo(MErrno* err)
{
    *err = 0;
    clearStats();
}

VerbsClientStatsInfo::~VerbsClientStatsInfo() {}

void VerbsClientStatsInfo::clearStats()
{
    clearVerbs(this);
}

VerbsClientStatsInfo& VerbsClientStatsInfo::operator=(const VerbsClientStatsInfo& src)
{
    copyVerbs(this, src);
    return *this;
}

VerbsServerStatsInfo::VerbsServerStatsInfo(MErrno* err)
{
    *err = 0;
    clearStats();
}

VerbsServerStatsInfo::~VerbsServerStatsInfo() {}

void VerbsServerStatsInfo::clearStats()
{
    clearVerbs(this);
}

VerbsServerStatsInfo& VerbsServerStatsInfo::operator=(const VerbsServerStatsInfo& src)
{
    copyVerbs(this, src);
    return *this;
}

namespace qv {

void scanVerbsClientLine(VerbsClientStatsInfo* rec, TavrelWrapperUtils* tw)
{
    scanVerbs(rec, tw, kClientCounters);
}

void scanVerbsServerLine(VerbsServerStatsInfo* rec, TavrelWrapperUtils* tw)
{
    scanVerbs(rec, tw, kServerCounters);
}

}  // namespace qv
