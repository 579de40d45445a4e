// Cache hit statistics ("tavrel chms"), the first family of the direct frame.

#include <cstring>

#include <quelvane/api_poll.h>
#include <quelvane/cache_stats_info.h>

#include "poll/keyword_scan_internal.h"
#include "poll/statistics/stats_families_internal.h"

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

namespace qv {

// The request and warning texts of every family of the two frames.
const StatsFamily kCacheFamily = {"cacheStatsInfo", "tavrel chms",
                                  "_warning_ 'tavrel chms' returned error rc=%d\n",
                                  CacheStatsInfo::kRecordSize, false};
const StatsFamily kVfsFamily = {"vfsStatsInfo", "tavrel vfss",
                                "_warning_ 'tavrel vfss' returned error rc=%d\n",
                                VfsStatsInfo::kRecordSize, false};
const StatsFamily kIocFamily = {"iocStatsInfo", "tavrel iocs",
                                "_warning_ 'tavrel iocs' returned error rc=%d\n",
                                IocStatsInfo::kRecordSize, true};
const StatsFamily kThreadFamily = {"threadUtilInfo", "tavrel threads",
                                   "_warning_ 'tavrel threads' returned error rc=%d\n",
                                   ThreadUtilInfo::kRecordSize, false};
const StatsFamily kDiskFamily = {"diskStatsInfo", "tavrel ds",
                                 "_warning_ : 'tavrel ds' returned error rc=%d\n",
                                 DiskStatsInfo::kRecordSize, false};
const StatsFamily kPoolIoFamily = {"poolIoStatsInfo", "tavrel plios",
                                   "_warning_ : 'tavrel plios' returned error rc=%d\n",
                                   PoolIoStatsInfo::kRecordSize, false};
const StatsFamily kFsIoFamily = {"fsIoStatsInfo", "tavrel fis",
                                 "_warning_ : 'tavrel fis' returned error rc=%d\n",
                                 FsIoStatsInfo::kRecordSize, false};
const StatsFamily kNsdServerFamily = {"nsdServerStatsInfo", "tavrel nsd_dst",
                                      "_warning_ : 'tavrel nsd_dst' returned error rc=%d\n",
                                      NsdServerStatsInfo::kRecordSize, false};
const StatsFamily kPCacheFamily = {"pCacheStatsInfo", "tavrel pncs",
                                   "_warning_ : 'tavrel pncs' returned error rc=%d\n",
                                   PCacheStatsInfo::kRecordSize, false};
// The warning names another word than the request; so it stays.
const StatsFamily kClusterCfgFamily = {"clusterCfgInfo", "tavrel cfgmgr",
                                       "_warning_ : 'tavrel clustercfg' returned error rc=%d\n",
                                       ClusterCfgInfo::kRecordSize, false};

void scanCacheLine(CacheStatsInfo* rec, TavrelWrapperUtils* tw)
{
    const KwField table[] = {
        kwU32("_dch_", &rec->dcHits),
        kwU32("_dcm_", &rec->dcMisses),
        kwU32("_sch_", &rec->scHits),
        kwU32("_scm_", &rec->scMisses),
    };
    keywordScan(tw, table, 4);
}

}  // namespace qv

int PollingHandler::cacheStatsInfo(int, void* bufP, int bufSize, int* nNeeded, int* errP)
{
    return qv::directStatsFrame<CacheStatsInfo>(this, qv::kCacheFamily, bufP, bufSize, nNeeded, errP,
                                                qv::scanCacheLine);
}
