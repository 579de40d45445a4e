#ifndef QUELVANE_DEVICE_STATS_INFO_H
#define QUELVANE_DEVICE_STATS_INFO_H

// Traffic statistics of devices: per disk ("tavrel ds"), per storage pool
// ("tavrel plios"), per filesystem ("tavrel fis") and of a shared disk server
// ("tavrel nsd_dst"). Plain data of a fixed size, answered only in the local
// scope. Each starts with the header recordVersion, recordSize, rc, nodeAddr
// (FsIoStatsInfo has nDisks before nodeAddr). Times are the daemon's.

#include <cstdint>

#include <quelvane/export.h>
#include <quelvane/merrno.h>

// One disk's traffic: read fields from the "_r_" line, write fields from the
// "_w_" line (1160 bytes).
class QUELVANE_API DiskStatsInfo
{
public:
    uint32_t recordVersion;
    uint32_t recordSize;
    int32_t rc;
    char nodeAddr[256];
    char fsName[256];           // _fs_
    char diskName[256];         // _d_
    char clusterName[256];      // _cl_
    uint32_t readOps;           // _ops_
    uint32_t writeOps;
    uint64_t readBytes;         // _b_
    uint64_t writeBytes;
    double readTw;              // _tw_
    double writeTw;
    double readQt;              // _qt_
    double writeQt;
    double readStw;             // _stw_
    double writeStw;            // left alone by clearStats
    double readSqt;             // _sqt_
    double writeSqt;
    double readLtw;             // _ltw_
    double writeLtw;
    double readLqt;             // _lqt_
    double writeLqt;

    static const uint32_t kRecordSize = 1160;

    DiskStatsInfo(MErrno* err);
    ~DiskStatsInfo();
    // Zeroes all but writeStw, which keeps its value.
    void clearStats();
    DiskStatsInfo& operator=(const DiskStatsInfo& src);
};

static_assert(sizeof(DiskStatsInfo) == 1160, "DiskStatsInfo is 1160 bytes");

// One storage pool's traffic (800 bytes).
class QUELVANE_API PoolIoStatsInfo
{
public:
    uint32_t recordVersion;
    uint32_t recordSize;
    int32_t rc;
    char nodeAddr[256];
    char fsName[256];           // _fs_
    char poolName[256];         // _pl_
    uint32_t nDisks;            // _d_; left alone by clearStats
    uint64_t bytesRead;         // _br_
    uint64_t bytesWritten;      // _bw_

    static const uint32_t kRecordSize = 800;

    PoolIoStatsInfo(MErrno* err);
    ~PoolIoStatsInfo();
    // Zeroes all but nDisks, which keeps its value.
    void clearStats();
    PoolIoStatsInfo& operator=(const PoolIoStatsInfo& src);
};

static_assert(sizeof(PoolIoStatsInfo) == 800, "PoolIoStatsInfo is 800 bytes");

// One filesystem's traffic (576 bytes). nDisks stands before nodeAddr.
class QUELVANE_API FsIoStatsInfo
{
public:
    uint32_t recordVersion;
    uint32_t recordSize;
    int32_t rc;
    uint32_t nDisks;            // _d_
    char nodeAddr[256];
    char fsName[256];           // _fs_
    uint64_t bytesRead;         // _br_
    uint64_t bytesWritten;      // _bw_
    uint32_t opens;             // _oc_
    uint32_t closes;            // _cc_
    uint32_t reads;             // _rdc_
    uint32_t writes;            // _wc_
    uint32_t dirs;              // _dir_
    uint64_t inodeUpdates;      // _iu_

    static const uint32_t kRecordSize = 576;

    FsIoStatsInfo(MErrno* err);
    ~FsIoStatsInfo();
    void clearStats();
    FsIoStatsInfo& operator=(const FsIoStatsInfo& src);
};

static_assert(sizeof(FsIoStatsInfo) == 576, "FsIoStatsInfo is 576 bytes");

// A shared disk server's traffic for one device: read fields from the "_r_"
// line, write fields from the "_w_" line (824 bytes).
class QUELVANE_API NsdServerStatsInfo
{
public:
    uint32_t recordVersion;
    uint32_t recordSize;
    int32_t rc;
    char nodeAddr[256];
    char devName[256];          // _dev_
    char diskName[256];         // _d_
    uint32_t readOps;           // _ops_
    uint32_t writeOps;
    uint64_t readBytes;         // _b_
    uint64_t writeBytes;
    double readTw;              // _tw_
    double writeTw;

    static const uint32_t kRecordSize = 824;

    NsdServerStatsInfo(MErrno* err);
    ~NsdServerStatsInfo();
    void clearStats();
    NsdServerStatsInfo& operator=(const NsdServerStatsInfo& src);
};

static_assert(sizeof(NsdServerStatsInfo) == 824, "NsdServerStatsInfo is 824 bytes");

#endif
