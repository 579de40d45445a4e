#ifndef QUELVANE_CONFIG_STATS_INFO_H
#define QUELVANE_CONFIG_STATS_INFO_H

// Records of a node's state: one node's view of a node of its cluster
// (ClusterCfgInfo, "tavrel cfgmgr"), the daemon's thread pools
// (ThreadUtilInfo, "tavrel threads"), its communication setup
// (KxcommCfgInfo) and its remote memory traffic (VerbsClientStatsInfo,
// VerbsServerStatsInfo). Plain data of a fixed size.

#include <cstdint>

#include <quelvane/export.h>
#include <quelvane/merrno.h>

// One node of a cluster as a node sees it (2344 bytes). The query
// (clusterCfgInfo) and the update (updateClusterCfgInfo) read different
// keywords for six of the texts.
class QUELVANE_API ClusterCfgInfo
{
public:
    uint32_t recordVersion;
    uint32_t recordSize;
    int32_t rc;                 // _rc_
    char clusterName[256];      // _cl_
    uint32_t nodeNumber;        // _no_
    char nodeAddr[256];         // _n_, replaced by _naddr_
    char hostName[256];         // _host_
    char ipAddr[256];           // "TAVREL_CLUSTERCFG_IPADDR" / _ip_
    char adminName[256];        // "TAVREL_CLUSTERCFG_ADMIN" / _admin_
    char gpnTrans[256];         // "TAVREL_CLUSTERCFG_GPNTRANS" / _tr_
    char gpnStatus[256];        // "TAVREL_CLUSTERCFG_GPNSTATUS" / _p_
    char nodeStatus[256];       // "TAVREL_CLUSTERCFG_NODESTATUS" / _rpc_
    uint32_t joinSeq;           // _joinseq_
    uint32_t failCount;         // _failcnt_
    uint32_t fsManaged;         // _fsmanaged_
    uint32_t cnfsGroup;         // _cnfsgrp_
    uint32_t readChecksum;      // _rcksum_
    uint32_t writeChecksum;     // _wcksum_
    char lastFail[256];         // "TAVREL_CLUSTERCFG_LASTFAIL" / _lastfail_

    static const uint32_t kRecordSize = 2344;

    ClusterCfgInfo(MErrno* err);
    ~ClusterCfgInfo();
    // Zeroes all but lastFail, which keeps its text.
    void clearStats();
    // Copies all but recordVersion and recordSize.
    ClusterCfgInfo& operator=(const ClusterCfgInfo& src);
};

static_assert(sizeof(ClusterCfgInfo) == 2344, "ClusterCfgInfo is 2344 bytes");

// The three numbers of one thread pool, from a value "%d/%d/%d".
struct QUELVANE_API threadUtil
{
    int32_t count1;
    int32_t count2;
    int32_t count3;
};

// Takes its argument by value and does nothing.
QUELVANE_API void clearThreadUtil(threadUtil util);

// The daemon's thread pools (420 bytes).
class QUELVANE_API ThreadUtilInfo
{
public:
    uint32_t recordVersion;
    uint32_t recordSize;
    int32_t rc;                 // 1 after clearStats; 0 on a good record of updateThreadUtilInfo
    char nodeAddr[256];
    uint32_t nThreads;          // _nthreads_
    uint32_t seq;               // _seq_
    threadUtil noncri;          // _noncri_
    threadUtil daestr;          // _daestr_
    threadUtil mbhan;           // _mbhan_
    threadUtil rcvwor;          // _rcvwor_
    threadUtil revwor;          // _revwor_
    threadUtil rngrev;          // _rngrev_
    threadUtil recrvk;          // _recrvk_
    threadUtil prefth;          // _prefth_
    threadUtil sgexpn;          // _sgexpn_
    threadUtil recv;            // _recv_
    threadUtil pcache;          // _pcache_
    threadUtil multh;           // _multh_

    static const uint32_t kRecordSize = 420;

    ThreadUtilInfo();
    ThreadUtilInfo(MErrno* err);
    ~ThreadUtilInfo();
    // Sets rc to 1 and zeroes nodeAddr, nThreads and seq; the twelve pools
    // keep their numbers (clearThreadUtil does nothing).
    void clearStats();
    // Copies rc, the header numbers, nThreads, seq and the twelve pools, not
    // nodeAddr.
    ThreadUtilInfo& operator=(const ThreadUtilInfo& src);
};

static_assert(sizeof(ThreadUtilInfo) == 420, "ThreadUtilInfo is 420 bytes");

// The daemon's communication setup ("tavrel kxcommcfg", 16676 bytes).
class QUELVANE_API KxcommCfgInfo
{
public:
    uint32_t recordVersion;
    uint32_t recordSize;        // clearStats writes 2344 here, not the record's size
    int32_t rc;                 // _rc_
    uint32_t port;              // _port_
    uint32_t nodeNumber;        // _no_
    char nodeAddr[256];         // _naddr_
    char addrList[16384];       // _addrlist_ (at most 256 characters arrive)
    uint32_t commVersion;       // _commver_
    uint32_t compatVersion;     // _compatver_
    uint32_t maxCompatVersion;  // _maxcompatver_
    uint32_t maxFeature;        // _maxfeat_

    KxcommCfgInfo(MErrno* err);
    ~KxcommCfgInfo();
    void clearStats();
    // Copies all but recordVersion and recordSize.
    KxcommCfgInfo& operator=(const KxcommCfgInfo& src);
};

static_assert(sizeof(KxcommCfgInfo) == 16676, "KxcommCfgInfo is 16676 bytes");

// Remote memory traffic of the client side ("tavrel verbsc", 584 bytes).
// c1 to c6: _crw_, _prw_, _frd_, _fwr_, _frk_, _fwk_.
class QUELVANE_API VerbsClientStatsInfo
{
public:
    uint32_t recordVersion;
    uint32_t recordSize;
    int32_t rc;                 // _rc_
    char dst[256];              // "_dst" (no trailing underscore)
    char st[256];               // _st_
    uint64_t c1;
    uint64_t c2;
    uint64_t c3;
    uint64_t c4;
    uint64_t c5;
    uint64_t c6;
    uint32_t dvi;               // _dvi_
    uint32_t prt;               // _prt_

    static const uint32_t kRecordSize = 584;

    VerbsClientStatsInfo(MErrno* err);
    ~VerbsClientStatsInfo();
    void clearStats();
    // Copies all but recordVersion and recordSize.
    VerbsClientStatsInfo& operator=(const VerbsClientStatsInfo& src);
};

static_assert(sizeof(VerbsClientStatsInfo) == 584, "VerbsClientStatsInfo is 584 bytes");

// Remote memory traffic of the server side ("tavrel verbss", 584 bytes).
// c1 to c6: _crd_, _wrd_, _rrd_, _rwr_, _rdk_, _rwk_.
class QUELVANE_API VerbsServerStatsInfo
{
public:
    uint32_t recordVersion;
    uint32_t recordSize;
    int32_t rc;
    char dst[256];
    char st[256];
    uint64_t c1;
    uint64_t c2;
    uint64_t c3;
    uint64_t c4;
    uint64_t c5;
    uint64_t c6;
    uint32_t dvi;
    uint32_t prt;

    static const uint32_t kRecordSize = 584;

    VerbsServerStatsInfo(MErrno* err);
    ~VerbsServerStatsInfo();
    void clearStats();
    VerbsServerStatsInfo& operator=(const VerbsServerStatsInfo& src);
};

static_assert(sizeof(VerbsServerStatsInfo) == 584, "VerbsServerStatsInfo is 584 bytes");

#endif
