#ifndef QUELVANE_STATS_FAMILIES_INTERNAL_H
#define QUELVANE_STATS_FAMILIES_INTERNAL_H

// The statistics families: their frames' constants and the line scans that
// the queries (into the caller's array) and the updates (onto the inventory)
// share.

#include <quelvane/cache_stats_info.h>
#include <quelvane/config_stats_info.h>
#include <quelvane/device_stats_info.h>
#include <quelvane/pcache_stats_info.h>
#include <quelvane/tavrel_wrapper_utils.h>
#include <quelvane/vfs_stats_info.h>

#include "poll/statistics/stats_frame_internal.h"

namespace qv {

extern const StatsFamily kCacheFamily;
extern const StatsFamily kVfsFamily;
extern const StatsFamily kIocFamily;
extern const StatsFamily kThreadFamily;
extern const StatsFamily kDiskFamily;
extern const StatsFamily kPoolIoFamily;
extern const StatsFamily kFsIoFamily;
extern const StatsFamily kNsdServerFamily;
extern const StatsFamily kPCacheFamily;
extern const StatsFamily kClusterCfgFamily;

// Keyword scans of one "_tavrel" line (beginParsing included).
void scanCacheLine(CacheStatsInfo* rec, TavrelWrapperUtils* tw);      // total 4
void scanVfsLine(VfsStatsInfo* rec, TavrelWrapperUtils* tw);          // 45 "_vget_"
void scanIocLine(IocStatsInfo* rec, TavrelWrapperUtils* tw);          // total 8

// The twelve thread pools read with getBufferedValue and "%d/%d/%d" (the
// three numbers live across the twelve keywords and across the lines, as
// `carry` holds them), then the scan for "_nthreads_" and "_seq_".
void scanThreadLine(ThreadUtilInfo* rec, TavrelWrapperUtils* tw, int carry[3]);

// The pCache scan of one line into `rec`: `nCmds` is the command count that
// lives across the instances; `withUpdateKeywords` adds "_hcn_", "_hdi_",
// "_fex_", "_nme_" (the inventory update reads them).
void scanPCacheLine(PCacheStatsInfo* rec, TavrelWrapperUtils* tw, uint32_t* nCmds,
                    bool withUpdateKeywords);

// The counters of a ClusterCfgInfo line ("_no_" to "_wcksum_"), to the
// line's end.
void scanClusterCfgCounters(ClusterCfgInfo* rec, TavrelWrapperUtils* tw);

// The counters of the Verbs records (texts "_dst" and "_st_" not included).
void scanVerbsClientLine(VerbsClientStatsInfo* rec, TavrelWrapperUtils* tw);
void scanVerbsServerLine(VerbsServerStatsInfo* rec, TavrelWrapperUtils* tw);

}  // namespace qv

#endif
