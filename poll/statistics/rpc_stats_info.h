#ifndef QUELVANE_RPC_STATS_INFO_H
#define QUELVANE_RPC_STATS_INFO_H

// The daemon's remote procedure call timings: per time unit (seconds,
// minutes, hours, days) the average, minimum, maximum and count of each
// measured object, by peer node (RPCUtilInfo), by message size
// (RPCSizeUtilInfo), by message type (RPCMsgUtilInfo), a per-second summary
// (AggregatedRPCUtilInfoPerSec) and raw event tables (RPCRawUtilInfo). They
// hang on NodeInfo and are filled by the RPC updates of PollingHandler.
//
// Ownership. Unlike the other statistics records these own heap memory.
// The records that the updates make for a node are not destroyed with the
// node (the application may keep and read them); the library gives back
// those that nobody destroyed at the end of the process. RPCSizeUtilInfo,
// RPCMsgUtilInfo and RPCRawUtilInfo copy by pointer: after operator= both
// records refer to the same series, and each object lives as long as one
// record still holds it, so clearStats or the destruction of one side never
// pulls memory from under the other.
//
// The accessors and setRPCPerfStatObj end the process through an assertion
// failure when an index is out of bounds, in every build type.

#include <cstdint>

#include <quelvane/export.h>
#include <quelvane/merrno.h>

// One measurement of one object in one time slot.
class QUELVANE_API PerfSample
{
public:
    double min;                 // _min_
    double max;                 // _max_
    double av;                  // _av_
    uint64_t cnt;               // _cnt_

    PerfSample();
};

// The time series of one object. The num fields are fill counts, not
// capacities: an array holds as many samples as the constructor was given.
class QUELVANE_API AggregatedRPCPerfStat
{
public:
    uint32_t numSecs;
    uint32_t numMins;
    uint32_t numHours;
    uint32_t numDays;
    PerfSample* secs;           // null when made for 0
    PerfSample* mins;
    PerfSample* hours;
    PerfSample* days;
    char objName[256];          // _obj_; empty in RPCSizeUtilInfo

    AggregatedRPCPerfStat();
    // Arrays of the given capacities with zeroed samples; all fill counts 0.
    AggregatedRPCPerfStat(unsigned int nSecs, unsigned int nMins, unsigned int nHours,
                          unsigned int nDays, char* name);
    // Copies the counts and objName, makes each array anew with as many
    // zeroed samples as its count, and copies element 0 of each only.
    AggregatedRPCPerfStat(const AggregatedRPCPerfStat& src);
    AggregatedRPCPerfStat& operator=(const AggregatedRPCPerfStat& src);
    ~AggregatedRPCPerfStat();

    // Element n; n must be below the fill count (assertion otherwise).
    PerfSample* getSecs(int n);
    PerfSample* getMins(int n);
    PerfSample* getHours(int n);
    PerfSample* getDays(int n);
};

// The series of one node towards one peer.
class QUELVANE_API NodeUtilInfo
{
public:
    char remoteName[256];       // _rnn_
    char remoteAddr[256];       // _rn_
    int32_t nStats;             // used slots of statP
    AggregatedRPCPerfStat* statP[7];   // owned

    NodeUtilInfo();
    NodeUtilInfo(MErrno* err, char* name, char* addr);
    NodeUtilInfo(const NodeUtilInfo& src);          // deep copy
    NodeUtilInfo& operator=(const NodeUtilInfo& src);
    ~NodeUtilInfo();
};

// NodeInfo::rpcUtil: one NodeUtilInfo for each peer.
class QUELVANE_API RPCUtilInfo
{
public:
    NodeUtilInfo* nodeUtilP[1024];  // owned
    uint32_t nNodeUtil;             // used slots

    RPCUtilInfo(MErrno* err);
    RPCUtilInfo(const RPCUtilInfo& src);            // deep copy
    RPCUtilInfo& operator=(const RPCUtilInfo& src); // clearStats, then deep copy
    ~RPCUtilInfo();
    void clearStats();
};

// NodeInfo::rpcSizeUtil: one series for each message size bucket.
class QUELVANE_API RPCSizeUtilInfo
{
public:
    AggregatedRPCPerfStat* statP[26];
    uint32_t sizes[26];             // _size_ of each bucket
    int32_t nSizes;                 // used entries

    RPCSizeUtilInfo(MErrno* err);
    ~RPCSizeUtilInfo();
    // Gives back this record's hold on every series and zeroes the table.
    void clearStats();
    // Copies the pointers, sizes and count: both records then share the
    // series.
    RPCSizeUtilInfo& operator=(const RPCSizeUtilInfo& src);
    // Stores obj in slot n; n must be below 26 (assertion otherwise).
    void setRPCPerfStatObj(AggregatedRPCPerfStat* obj, int n);

    RPCSizeUtilInfo(const RPCSizeUtilInfo&) = delete;
};

// NodeInfo::rpcMsgUtil: one series for each message type.
class QUELVANE_API RPCMsgUtilInfo
{
public:
    AggregatedRPCPerfStat* statP[26 * 48 + 2];
    int32_t nStats;                 // used entries

    RPCMsgUtilInfo(MErrno* err);
    ~RPCMsgUtilInfo();
    void clearStats();
    // Copies the pointers and count: both records then share the series.
    RPCMsgUtilInfo& operator=(const RPCMsgUtilInfo& src);
    // Stores obj in slot n; n must be below 26 * 48 + 2 (assertion otherwise).
    void setRPCPerfStatObj(AggregatedRPCPerfStat* obj, int n);

    RPCMsgUtilInfo(const RPCMsgUtilInfo&) = delete;
};

// The per-second value of one object.
class QUELVANE_API AggregatedRPCPerfStatPerSec
{
public:
    double min;
    double max;
    double av;
    uint64_t cnt;
    char objName[256];              // left empty by the update

    AggregatedRPCPerfStatPerSec();
    AggregatedRPCPerfStatPerSec(const AggregatedRPCPerfStatPerSec& src);
    AggregatedRPCPerfStatPerSec& operator=(const AggregatedRPCPerfStatPerSec& src) = default;
};

// NodeInfo::rpcUtilPerSec.
class QUELVANE_API AggregatedRPCUtilInfoPerSec
{
public:
    AggregatedRPCPerfStatPerSec* statP[7];  // owned
    int32_t nStats;

    AggregatedRPCUtilInfoPerSec();
    ~AggregatedRPCUtilInfoPerSec();
    void clearStats();
    // Copies nStats and deep-copies each slot.
    AggregatedRPCUtilInfoPerSec& operator=(const AggregatedRPCUtilInfoPerSec& src);
    // Stores obj in slot n; n must be below 7 (assertion otherwise).
    void setRPCPerfStatObj(AggregatedRPCPerfStatPerSec* obj, int n);

    AggregatedRPCUtilInfoPerSec(const AggregatedRPCUtilInfoPerSec&) = delete;
};

// One raw statistics record ("_stat_" under "_rpcstat_").
class QUELVANE_API RPCRawStat
{
public:
    uint64_t cw;                    // _cw_
    uint64_t st;                    // _st_
    uint64_t rt;                    // _rt_
    uint64_t rpclt;                 // _rpclt_
    uint32_t ds;                    // _ds_
    uint32_t dr;                    // _dr_
    int32_t rdmas;                  // _rdmas_, 1 when the value is not 0
    int32_t rdmar;                  // _rdmar_, likewise
    uint32_t ni;                    // _ni_

    RPCRawStat();
};

// One raw execution record ("_stat_" under "_rpcexec_").
class QUELVANE_API RPCRawExec
{
public:
    uint64_t rpcet;                 // _rpcet_
    uint16_t rpcsn;                 // _rpcsn_, low 16 bits
    uint32_t rpcmt;                 // _rpcmt_

    RPCRawExec();
};

// NodeInfo::rpcRawUtil: the raw tables.
class QUELVANE_API RPCRawUtilInfo
{
public:
    RPCRawExec* execItems;          // execCnt records
    RPCRawStat* statItems;          // statCnt records
    int32_t statOr;                 // _rpcstator_
    int32_t execOr;                 // _rpcexecor_
    int32_t statCnt;                // _rpcstatcnt_
    int32_t execCnt;                // _rpcexeccnt_

    RPCRawUtilInfo(MErrno* err);
    ~RPCRawUtilInfo();
    void clearStats();
    // Copies all six fields: both records then share the tables.
    RPCRawUtilInfo& operator=(const RPCRawUtilInfo& src);

    RPCRawUtilInfo(const RPCRawUtilInfo&) = delete;
};

// Index of an object name: "AG_STAT_CHANNEL_WAIT" 0, "AG_STAT_SEND_TIME_TCP" 1,
// "AG_STAT_SEND_TIME_VERBS" 2, "AG_STAT_RECEIVE_TIME_TCP" 3,
// "AG_STAT_RPC_LATENCY_TCP" 4, "AG_STAT_RPC_LATENCY_VERBS" 5,
// "AG_STAT_RPC_LATENCY_MIXED" 6, anything else 999 (exact comparison).
QUELVANE_API int getRPCObject(char* name);

#endif
