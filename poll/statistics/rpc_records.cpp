// The records of the RPC time series: bounds, copy rules and assertions.

#include <quelvane/rpc_stats_info.h>

#include <cstring>
#include <new>

#include "foundation/qv_assert_internal.h"
#include "poll/statistics/shared_records_internal.h"

namespace {

// The assertions name the polling API's source.
const char kAssertFile[] = "api_poll.cpp";

PerfSample* newSamples(unsigned int n)
{
    return n == 0 ? nullptr : new PerfSample[n];
}

// Copies a name into a 256-byte text, bounded and terminated.
void copyName(char (&dst)[256], const char* src)
{
    if (src == nullptr) {
        dst[0] = '\0';
        return;
    }
    strncpy(dst, src, sizeof(dst) - 1);
    dst[sizeof(dst) - 1] = '\0';
}

}  // namespace

PerfSample::PerfSample() : min(0), max(0), av(0), cnt(0) {}

// ---------------------------------------------------------------------------

AggregatedRPCPerfStat::AggregatedRPCPerfStat()
    : numSecs(0), numMins(0), numHours(0), numDays(0), secs(nullptr), mins(nullptr), hours(nullptr),
      days(nullptr)
{
    memset(objName, 0, sizeof(objName));
}

AggregatedRPCPerfStat::AggregatedRPCPerfStat(unsigned int nSecs, unsigned int nMins, unsigned int nHours,
                                             unsigned int nDays, char* name)
    : numSecs(0), numMins(0), numHours(0), numDays(0), secs(newSamples(nSecs)), mins(newSamples(nMins)),
      hours(newSamples(nHours)), days(newSamples(nDays))
{
    memset(objName, 0, sizeof(objName));
    copyName(objName, name);
}

AggregatedRPCPerfStat::AggregatedRPCPerfStat(const AggregatedRPCPerfStat& src)
    : numSecs(0), numMins(0), numHours(0), numDays(0), secs(nullptr), mins(nullptr), hours(nullptr),
      days(nullptr)
{
    memset(objName, 0, sizeof(objName));
    *this = src;
}

AggregatedRPCPerfStat& AggregatedRPCPerfStat::operator=(const AggregatedRPCPerfStat& src)
{
    if (this == &src)
        return *this;
    delete[] secs;
    delete[] mins;
    delete[] hours;
    delete[] days;
    numSecs = src.numSecs;
    numMins = src.numMins;
    numHours = src.numHours;
    numDays = src.numDays;
    memcpy(objName, src.objName, sizeof(objName));
    // Each array as long as its count, zeroed, with element 0 copied only.
    secs = newSamples(numSecs);
    mins = newSamples(numMins);
    hours = newSamples(numHours);
    days = newSamples(numDays);
    if (secs != nullptr && src.secs != nullptr)
        secs[0] = src.secs[0];
    if (mins != nullptr && src.mins != nullptr)
        mins[0] = src.mins[0];
    if (hours != nullptr && src.hours != nullptr)
        hours[0] = src.hours[0];
    if (days != nullptr && src.days != nullptr)
        days[0] = src.days[0];
    return *this;
}

AggregatedRPCPerfStat::~AggregatedRPCPerfStat()
{
    delete[] secs;
    delete[] mins;
    delete[] hours;
    delete[] days;
}

PerfSample* AggregatedRPCPerfStat::getSecs(int n)
{
    QV_ASSERT_IN(static_cast<unsigned int>(n) < numSecs, "n < numSecs", kAssertFile, __LINE__,
                 "PerfSample* AggregatedRPCPerfStat::getSecs(int)");
    return &secs[n];
}

PerfSample* AggregatedRPCPerfStat::getMins(int n)
{
    QV_ASSERT_IN(static_cast<unsigned int>(n) < numMins, "n < numMins", kAssertFile, __LINE__,
                 "PerfSample* AggregatedRPCPerfStat::getMins(int)");
    return &mins[n];
}

PerfSample* AggregatedRPCPerfStat::getHours(int n)
{
    QV_ASSERT_IN(static_cast<unsigned int>(n) < numHours, "n < numHours", kAssertFile, __LINE__,
                 "PerfSample* AggregatedRPCPerfStat::getHours(int)");
    return &hours[n];
}

PerfSample* AggregatedRPCPerfStat::getDays(int n)
{
    QV_ASSERT_IN(static_cast<unsigned int>(n) < numDays, "n < numDays", kAssertFile, __LINE__,
                 "PerfSample* AggregatedRPCPerfStat::getDays(int)");
    return &days[n];
}

// ---------------------------------------------------------------------------

NodeUtilInfo::NodeUtilInfo() : nStats(0)
{
    memset(remoteName, 0, sizeof(remoteName));
    memset(remoteAddr, 0, sizeof(remoteAddr));
    for (AggregatedRPCPerfStat*& s : statP)
        s = nullptr;
}

NodeUtilInfo::NodeUtilInfo(MErrno* err, char* name, char* addr) : NodeUtilInfo()
{
    *err = 0;
    copyName(remoteName, name);
    copyName(remoteAddr, addr);
}

NodeUtilInfo::NodeUtilInfo(const NodeUtilInfo& src) : NodeUtilInfo()
{
    *this = src;
}

NodeUtilInfo& NodeUtilInfo::operator=(const NodeUtilInfo& src)
{
    if (this == &src)
        return *this;
    for (AggregatedRPCPerfStat*& s : statP) {
        delete s;
        s = nullptr;
    }
    memcpy(remoteName, src.remoteName, sizeof(remoteName));
    memcpy(remoteAddr, src.remoteAddr, sizeof(remoteAddr));
    nStats = src.nStats;
    for (int i = 0; i < 7; i++)
        statP[i] = src.statP[i] != nullptr ? new AggregatedRPCPerfStat(*src.statP[i]) : nullptr;
    return *this;
}

NodeUtilInfo::~NodeUtilInfo()
{
    for (AggregatedRPCPerfStat* s : statP)
        delete s;
}

// ---------------------------------------------------------------------------

RPCUtilInfo::RPCUtilInfo(MErrno* err) : nNodeUtil(0)
{
    *err = 0;
    for (NodeUtilInfo*& n : nodeUtilP)
        n = nullptr;
}

RPCUtilInfo::RPCUtilInfo(const RPCUtilInfo& src) : nNodeUtil(0)
{
    for (NodeUtilInfo*& n : nodeUtilP)
        n = nullptr;
    *this = src;
}

RPCUtilInfo& RPCUtilInfo::operator=(const RPCUtilInfo& src)
{
    if (this == &src)
        return *this;
    clearStats();
    nNodeUtil = src.nNodeUtil;
    for (uint32_t i = 0; i < src.nNodeUtil && i < 1024; i++)
        nodeUtilP[i] = src.nodeUtilP[i] != nullptr ? new NodeUtilInfo(*src.nodeUtilP[i]) : nullptr;
    return *this;
}

RPCUtilInfo::~RPCUtilInfo()
{
    qv::forgetMadeRecord(this);
    for (NodeUtilInfo* n : nodeUtilP)
        delete n;
}

void RPCUtilInfo::clearStats()
{
    for (NodeUtilInfo*& n : nodeUtilP) {
        delete n;
        n = nullptr;
    }
    nNodeUtil = 0;
}

// ---------------------------------------------------------------------------
// The two tables of shared series: each pointer slot is one hold.

RPCSizeUtilInfo::RPCSizeUtilInfo(MErrno* err) : nSizes(0)
{
    *err = 0;
    for (int i = 0; i < 26; i++) {
        statP[i] = nullptr;
        sizes[i] = 0;
    }
}

RPCSizeUtilInfo::~RPCSizeUtilInfo()
{
    qv::forgetMadeRecord(this);
    for (AggregatedRPCPerfStat*& s : statP)
        qv::releaseShared(s);
}

void RPCSizeUtilInfo::clearStats()
{
    for (int i = 0; i < 26; i++) {
        qv::releaseShared(statP[i]);
        sizes[i] = 0;
    }
    nSizes = 0;
}

RPCSizeUtilInfo& RPCSizeUtilInfo::operator=(const RPCSizeUtilInfo& src)
{
    if (this == &src)
        return *this;
    for (int i = 0; i < 26; i++) {
        qv::shareHold(src.statP[i]);
        qv::releaseShared(statP[i]);
        statP[i] = src.statP[i];
        sizes[i] = src.sizes[i];
    }
    nSizes = src.nSizes;
    return *this;
}

void RPCSizeUtilInfo::setRPCPerfStatObj(AggregatedRPCPerfStat* obj, int n)
{
    QV_ASSERT_IN(n < 26, "n < 26", kAssertFile, __LINE__,
                 "void RPCSizeUtilInfo::setRPCPerfStatObj(AggregatedRPCPerfStat*, int)");
    // A slot that held a series gives it back first (a negative slot is
    // outside the table and stores nothing).
    if (n < 0)
        return;
    if (statP[n] != obj)
        qv::releaseShared(statP[n]);
    statP[n] = obj;
}

RPCMsgUtilInfo::RPCMsgUtilInfo(MErrno* err) : nStats(0)
{
    *err = 0;
    for (AggregatedRPCPerfStat*& s : statP)
        s = nullptr;
}

RPCMsgUtilInfo::~RPCMsgUtilInfo()
{
    qv::forgetMadeRecord(this);
    for (AggregatedRPCPerfStat*& s : statP)
        qv::releaseShared(s);
}

void RPCMsgUtilInfo::clearStats()
{
    for (AggregatedRPCPerfStat*& s : statP)
        qv::releaseShared(s);
    nStats = 0;
}

RPCMsgUtilInfo& RPCMsgUtilInfo::operator=(const RPCMsgUtilInfo& src)
{
    if (this == &src)
        return *this;
    for (int i = 0; i < 26 * 48 + 2; i++) {
        qv::shareHold(src.statP[i]);
        qv::releaseShared(statP[i]);
        statP[i] = src.statP[i];
    }
    nStats = src.nStats;
    return *this;
}

void RPCMsgUtilInfo::setRPCPerfStatObj(AggregatedRPCPerfStat* obj, int n)
{
    QV_ASSERT_IN(n < 26 * 48 + 2, "n < 26 * 48 + 2", kAssertFile, __LINE__,
                 "void RPCMsgUtilInfo::setRPCPerfStatObj(AggregatedRPCPerfStat*, int)");
    if (n < 0)
        return;
    if (statP[n] != obj)
        qv::releaseShared(statP[n]);
    statP[n] = obj;
}

// ---------------------------------------------------------------------------

AggregatedRPCPerfStatPerSec::AggregatedRPCPerfStatPerSec() : min(0), max(0), av(0), cnt(0)
{
    objName[0] = '\0';
}

AggregatedRPCPerfStatPerSec::AggregatedRPCPerfStatPerSec(const AggregatedRPCPerfStatPerSec& src)
    : min(src.min), max(src.max), av(src.av), cnt(src.cnt)
{
    memcpy(objName, src.objName, sizeof(objName));
}

AggregatedRPCUtilInfoPerSec::AggregatedRPCUtilInfoPerSec() : nStats(0)
{
    for (AggregatedRPCPerfStatPerSec*& s : statP)
        s = nullptr;
}

AggregatedRPCUtilInfoPerSec::~AggregatedRPCUtilInfoPerSec()
{
    qv::forgetMadeRecord(this);
    for (AggregatedRPCPerfStatPerSec* s : statP)
        delete s;
}

void AggregatedRPCUtilInfoPerSec::clearStats()
{
    for (AggregatedRPCPerfStatPerSec*& s : statP) {
        delete s;
        s = nullptr;
    }
    nStats = 0;
}

AggregatedRPCUtilInfoPerSec& AggregatedRPCUtilInfoPerSec::operator=(const AggregatedRPCUtilInfoPerSec& src)
{
    if (this == &src)
        return *this;
    nStats = src.nStats;
    for (int i = 0; i < 7; i++) {
        delete statP[i];
        statP[i] = src.statP[i] != nullptr ? new AggregatedRPCPerfStatPerSec(*src.statP[i]) : nullptr;
    }
    return *this;
}

void AggregatedRPCUtilInfoPerSec::setRPCPerfStatObj(AggregatedRPCPerfStatPerSec* obj, int n)
{
    QV_ASSERT_IN(n < 7, "n < 7", kAssertFile, __LINE__,
                 "void AggregatedRPCUtilInfoPerSec::setRPCPerfStatObj(AggregatedRPCPerfStatPerSec*, int)");
    if (n < 0)
        return;
    if (statP[n] != obj)
        delete statP[n];
    statP[n] = obj;
}

// ---------------------------------------------------------------------------

RPCRawStat::RPCRawStat() : cw(0), st(0), rt(0), rpclt(0), ds(0), dr(0), rdmas(0), rdmar(0), ni(0) {}

RPCRawExec::RPCRawExec() : rpcet(0), rpcsn(0), rpcmt(0) {}

RPCRawUtilInfo::RPCRawUtilInfo(MErrno* err)
    : execItems(nullptr), statItems(nullptr), statOr(0), execOr(0), statCnt(0), execCnt(0)
{
    *err = 0;
}

RPCRawUtilInfo::~RPCRawUtilInfo()
{
    qv::forgetMadeRecord(this);
    qv::releaseSharedArray(execItems);
    qv::releaseSharedArray(statItems);
}

void RPCRawUtilInfo::clearStats()
{
    statOr = 0;
    execOr = 0;
    statCnt = 0;
    execCnt = 0;
    qv::releaseSharedArray(execItems);
    qv::releaseSharedArray(statItems);
}

RPCRawUtilInfo& RPCRawUtilInfo::operator=(const RPCRawUtilInfo& src)
{
    if (this == &src)
        return *this;
    qv::shareHold(src.execItems);
    qv::shareHold(src.statItems);
    qv::releaseSharedArray(execItems);
    qv::releaseSharedArray(statItems);
    execItems = src.execItems;
    statItems = src.statItems;
    statOr = src.statOr;
    execOr = src.execOr;
    statCnt = src.statCnt;
    execCnt = src.execCnt;
    return *this;
}

// ---------------------------------------------------------------------------

int getRPCObject(char* name)
{
    static const char* const kObjects[] = {
        "AG_STAT_CHANNEL_WAIT",     "AG_STAT_SEND_TIME_TCP",    "AG_STAT_SEND_TIME_VERBS",
        "AG_STAT_RECEIVE_TIME_TCP", "AG_STAT_RPC_LATENCY_TCP",  "AG_STAT_RPC_LATENCY_VERBS",
        "AG_STAT_RPC_LATENCY_MIXED",
    };
    for (int i = 0; i < 7; i++) {
        if (name != nullptr && strcmp(name, kObjects[i]) == 0)
            return i;
    }
    return 999;
}
