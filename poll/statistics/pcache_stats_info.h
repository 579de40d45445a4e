#ifndef QUELVANE_PCACHE_STATS_INFO_H
#define QUELVANE_PCACHE_STATS_INFO_H

// Per-fileset cache transfer statistics ("tavrel pncs"), answered only in
// the local scope. Plain data of a fixed size. The meaning of the short
// counters is the daemon's.

#include <cstdint>

#include <quelvane/export.h>
#include <quelvane/merrno.h>

// One command group of a PCacheStatsInfo ("_q_" and the five after it).
struct QUELVANE_API pCacheCmdInfo
{
    uint32_t q;
    uint32_t i;
    uint32_t c;
    uint32_t e;
    uint32_t f;
    uint32_t n;
};

// Zeroes one command group.
QUELVANE_API void clearPCacheCmdInfo(pCacheCmdInfo* info);

// One fileset's cache transfer on one node (1792 bytes).
class QUELVANE_API PCacheStatsInfo
{
public:
    uint32_t recordVersion;
    uint32_t recordSize;
    int32_t rc;
    char nodeAddr[256];
    char fsName[256];           // _fs_
    char fsetName[256];         // _fset_
    uint64_t bytesRead;         // _br_
    uint64_t bytesWritten;      // _bw_
    uint32_t ne;                // _ne_
    uint32_t nf;                // _nf_
    uint32_t ns;                // _ns_
    uint32_t nr;                // _nr_
    uint32_t ws;                // _ws_
    uint32_t wl;                // _wl_
    uint32_t wa;                // _wa_
    uint32_t nCmds;             // _ncmd_
    pCacheCmdInfo cmds[39];
    uint64_t nme;               // _nme_ (read by updatePCacheStatsInfo)
    uint32_t hcn;               // _hcn_ (likewise)
    uint32_t hdi;               // _hdi_ (likewise)
    uint32_t fex;               // _fex_ (likewise)

    static const uint32_t kRecordSize = 1792;

    PCacheStatsInfo(MErrno* err);
    ~PCacheStatsInfo();
    void clearStats();
    PCacheStatsInfo& operator=(const PCacheStatsInfo& src);
    // &cmds[n], or null when n taken as unsigned is above 38.
    pCacheCmdInfo* getPCacheCmdInfoP(int n);
};

static_assert(sizeof(PCacheStatsInfo) == 1792, "PCacheStatsInfo is 1792 bytes");

#endif
