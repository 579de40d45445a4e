#ifndef QUELVANE_CACHE_STATS_INFO_H
#define QUELVANE_CACHE_STATS_INFO_H

#include <cstdint>

#include <quelvane/export.h>
#include <quelvane/merrno.h>

// Directory and stat cache hits and misses of one node ("tavrel chms").
// Plain data: the application may copy it as bytes; 284 bytes.
class QUELVANE_API CacheStatsInfo
{
public:
    uint32_t recordVersion;     // always 1
    uint32_t recordSize;        // 284
    int32_t rc;                 // _rc_ of a failed instance, else 0
    char nodeAddr[256];         // _n_, the node that answered
    uint32_t dcHits;            // _dch_
    uint32_t dcMisses;          // _dcm_
    uint32_t scHits;            // _sch_
    uint32_t scMisses;          // _scm_

    static const uint32_t kRecordSize = 284;

    CacheStatsInfo();
    CacheStatsInfo(MErrno* err);
    ~CacheStatsInfo();
    void clearStats();
    // Copies all but nodeAddr: the destination keeps its address text.
    CacheStatsInfo& operator=(const CacheStatsInfo& src);
};

static_assert(sizeof(CacheStatsInfo) == 284, "CacheStatsInfo is 284 bytes");

#endif
