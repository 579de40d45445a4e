// Cache hit statistics ("tavrel chms"), the first family of the direct frame.

#include <cstring>

#include <quelvane/api_poll.h>
#include <quelvane/cache_stats_info.h>

#include "poll/keyword_scan_internal.h"
#include "poll/statistics/stats_frame_internal.h"

CacheStatsInfo::CacheStatsInfo()
{
    clearStats();
}

CacheStatsInfo::CacheStatsInfo(MErrno* err)
{
    *err = 0;
    clearStats();
}

CacheStatsInfo::~CacheStatsInfo() {}

void CacheStatsInfo::clearStats()
{
    recordVersion = 1;
    recordSize = kRecordSize;
    rc = 0;
    memset(nodeAddr, 0, sizeof(nodeAddr));
    dcHits = 0;
    dcMisses = 0;
    scHits = 0;
    scMisses = 0;
}

CacheStatsInfo& CacheStatsInfo::operator=(const CacheStatsInfo& src)
{
    recordVersion = src.recordVersion;
    recordSize = src.recordSize;
    rc = src.rc;
    dcHits = src.dcHits;
    dcMisses = src.dcMisses;
    scHits = src.scHits;
    scMisses = src.scMisses;
    return *this;
}

namespace {

const qv::StatsFamily kCacheFamily = {
    "cacheStatsInfo", "tavrel chms", "_warning_ 'tavrel chms' returned error rc=%d\n",
    CacheStatsInfo::kRecordSize, false};

void scanCacheLine(CacheStatsInfo* rec, TavrelWrapperUtils* tw)
{
    const qv::KwField table[] = {
        qv::kwU32("_dch_", &rec->dcHits),
        qv::kwU32("_dcm_", &rec->dcMisses),
        qv::kwU32("_sch_", &rec->scHits),
        qv::kwU32("_scm_", &rec->scMisses),
    };
    qv::keywordScan(tw, table, 4);
}

}  // namespace

int PollingHandler::cacheStatsInfo(int, void* bufP, int bufSize, int* nNeeded, int* errP)
{
    return qv::directStatsFrame<CacheStatsInfo>(this, kCacheFamily, bufP, bufSize, nNeeded, errP,
                                                scanCacheLine);
}
