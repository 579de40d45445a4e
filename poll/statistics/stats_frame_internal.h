#ifndef QUELVANE_STATS_FRAME_INTERNAL_H
#define QUELVANE_STATS_FRAME_INTERNAL_H

// The two bodies shared by the statistics queries that fill an array of the
// caller's: the direct frame (records parsed in place) and the staged frame
// (one scratch record, copied out by operator=). A family supplies its record
// type, a StatsFamily and the scan of one successful response line.
//
// A record type Rec has: recordVersion, recordSize, rc, nodeAddr[], clearStats(),
// and for the direct frame a default constructor, for the staged frame a
// constructor from MErrno* and operator=.
//
//   int PollingHandler::cacheStatsInfo(int, void* bufP, int bufSize, int* nNeeded, int* errP)
//   {
//       return qv::directStatsFrame<CacheStatsInfo>(this, kCacheFamily, bufP, bufSize,
//                                                   nNeeded, errP, scanCacheLine);
//   }

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>

#include <quelvane/api_poll.h>
#include <quelvane/kx_log.h>
#include <quelvane/tavrel_wrapper_utils.h>

namespace qv {

struct StatsFamily
{
    const char* who;            // the operation's bare name, e.g. "cacheStatsInfo"
    const char* request;        // e.g. "tavrel chms"
    const char* warning;        // printed to stderr at debug != 0 with the rc
    unsigned int recordSize;    // the family's constant
    bool clearFirstOnly;        // direct frame: clear only the first record (iocStatsInfo)
};

// Copies a buffered value into a record's text array, bounded, terminated.
template <size_t N>
inline void statsCopyText(char (&dst)[N], const char* src)
{
    if (src == nullptr)
        src = "";
    strncpy(dst, src, N - 1);
    dst[N - 1] = '\0';
}

// `_rc_` of the current line, 0 when the line has none.
inline int statsLineRc(TavrelWrapperUtils* tw)
{
    const char* v = tw->getBufferedValue("_rc_", 0, 256);
    if (v == nullptr)
        return 0;
    return static_cast<int>(strtol(v, nullptr, 10));
}

template <class Rec>
using StatsScanFn = std::function<void(Rec* rec, TavrelWrapperUtils* tw)>;

// Direct frame. `scan` runs the family's keyword scan on a successful line.
template <class Rec>
int directStatsFrame(PollingHandler* h, const StatsFamily& fam, void* bufP, int bufSize,
                     int* nNeeded, int* errP, const StatsScanFn<Rec>& scan)
{
    *errP = 0;
    if (bufP == nullptr || static_cast<unsigned int>(bufSize) < fam.recordSize) {
        *nNeeded = 1;
        *errP = ENOSPC;
        kx_log(0, fam.who, "err %d *errP %d\n", 1, *errP);
        return 1;
    }
    int nAllocated = bufSize / static_cast<int>(fam.recordSize);
    if ((h->pollingScope & POLL_LOCAL_NODE) == 0 && nAllocated < h->nNodes) {
        *nNeeded = h->nNodes;
        *errP = ENOSPC;
        kx_log(0, fam.who, "err %d *errP %d\n", 1, *errP);
        return 1;
    }
    Rec* array = static_cast<Rec*>(bufP);
    for (int k = 0; k < nAllocated; k++) {
        if (fam.clearFirstOnly && k > 0)
            break;
        array[k].clearStats();
        array[k].recordVersion = 1;
        array[k].recordSize = fam.recordSize;
    }

    int err = h->processCommand(fam.request);
    if (err != 0) {
        kx_log(0, fam.who, "err %d *errP %d\n", err, *errP);
        return err;
    }

    TavrelWrapperUtils* tw = h->tavrelWrapper;
    // Once the array is full the cursor stands one record past its end, and
    // every further instance is parsed there. That position is a record of
    // our own, so the caller's memory beyond the array is never written.
    Rec pastEnd;
    int cursor = 0;
    int i = 0;
    tw->prepBuffer();
    while (tw->getNextInstance("_tavrel")) {
        Rec* rec = cursor < nAllocated ? &array[cursor] : &pastEnd;
        statsCopyText(rec->nodeAddr, tw->getBufferedValue("_n_", 0, 256));
        int rc = statsLineRc(tw);
        if (rc != 0) {
            if (h->debug != 0)
                fprintf(stderr, fam.warning, rc);
            rec->rc = rc;
            continue;
        }
        scan(rec, tw);
        if (i < nAllocated)
            cursor++;
        i++;
    }
    *nNeeded = i;
    tw->cleanupCommand();

    int result = *errP != 0 ? 1 : 0;
    kx_log(0, fam.who, "err %d *errP %d\n", result, *errP);
    return result;
}

// Staged frame. `beforeRc` (may be empty) runs on every line before its
// `_rc_` is read; `scan` runs the family's text keywords and keyword scan on
// a successful line.
template <class Rec>
int stagedStatsFrame(PollingHandler* h, const StatsFamily& fam, void* bufP, int bufSize,
                     int* nNeeded, int* errP, const StatsScanFn<Rec>& scan,
                     const StatsScanFn<Rec>& beforeRc = StatsScanFn<Rec>())
{
    *errP = 0;
    int result = 0;
    int i = 0;
    int nAllocated = 0;
    if ((h->pollingScope & POLL_LOCAL_NODE) == 0) {
        *errP = EINVAL;
        *nNeeded = 0;
    } else {
        nAllocated = bufP == nullptr ? 0 : bufSize / static_cast<int>(fam.recordSize);
        MErrno cerr = 0;
        Rec* scratch = new (std::nothrow) Rec(&cerr);
        if (scratch == nullptr) {
            *errP = ENOMEM;
        } else {
            result = h->processCommand(fam.request);
            if (result == 0) {
                TavrelWrapperUtils* tw = h->tavrelWrapper;
                Rec* array = static_cast<Rec*>(bufP);
                tw->prepBuffer();
                while (tw->getNextInstance("_tavrel")) {
                    bool fits = i < nAllocated;
                    scratch->clearStats();
                    scratch->recordVersion = 1;
                    scratch->recordSize = fam.recordSize;
                    statsCopyText(scratch->nodeAddr, tw->getBufferedValue("_n_", 0, 256));
                    if (beforeRc)
                        beforeRc(scratch, tw);
                    int rc = statsLineRc(tw);
                    if (rc != 0) {
                        if (h->debug != 0)
                            fprintf(stderr, fam.warning, rc);
                        scratch->rc = rc;
                    } else {
                        scan(scratch, tw);
                    }
                    if (fits)
                        array[i] = *scratch;
                    i++;
                }
                tw->cleanupCommand();
            }
        }
        *nNeeded = i;
        if (nAllocated < i)
            *errP = ENOSPC;
        delete scratch;
    }
    if (*errP != 0)
        result = 1;
    kx_log(0, fam.who, "err %d *errP %d nNeeded %d nAllocated %d\n", result, *errP, i, nAllocated);
    return result;
}

}  // namespace qv

#endif
