// The RPC time series updates: the nested responses of "tavrel rpcs" and its
// four forms, read into the records of every node of the recipe and copied
// to the application's tree.

#include <cstdlib>
#include <cstring>
#include <new>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>
#include <quelvane/rpc_stats_info.h>
#include <quelvane/tavrel_wrapper_utils.h>

#include "poll/keyword_scan_internal.h"
#include "poll/statistics/shared_records_internal.h"
#include "poll/statistics/stats_frame_internal.h"
#include "poll/statistics/stats_update_frame_internal.h"

namespace {

struct Limits
{
    unsigned int secs = 0, mins = 0, hours = 0, days = 0;
};

// The limits that timeUnit and count select; false for a pair that is not
// allowed. timeUnit 0 takes them from each object's line later.
bool limitsFor(short timeUnit, short count, Limits* l)
{
    switch (static_cast<unsigned short>(timeUnit)) {
    case 0:
        return true;
    case 1:
        if (count < 1 || count > 60)
            return false;
        l->secs = static_cast<unsigned int>(count);
        return true;
    case 2:
        if (count < 1 || count > 60)
            return false;
        l->mins = static_cast<unsigned int>(count);
        return true;
    case 3:
        if (count < 1 || count > 24)
            return false;
        l->hours = static_cast<unsigned int>(count);
        return true;
    case 4:
        if (count < 1 || count > 30)
            return false;
        l->days = static_cast<unsigned int>(count);
        return true;
    default:
        return false;
    }
}

unsigned int bufferedU32(TavrelWrapperUtils* tw, const char* keyword)
{
    char v[257];
    qv::statsCopyText(v, tw->getBufferedValue(keyword, 0, 256));
    return qv::kwLow32(v);
}

long bufferedLong(TavrelWrapperUtils* tw, const char* keyword)
{
    char v[257];
    qv::statsCopyText(v, tw->getBufferedValue(keyword, 0, 256));
    return strtol(v, nullptr, 10);
}

// The limits of the current object: fixed, or read from its line.
Limits objectLimits(short timeUnit, const Limits& fixed, TavrelWrapperUtils* tw)
{
    if (timeUnit != 0)
        return fixed;
    Limits l;
    l.secs = bufferedU32(tw, "_nsecs_");
    l.mins = bufferedU32(tw, "_nmins_");
    l.hours = bufferedU32(tw, "_nhours_");
    l.days = bufferedU32(tw, "_ndays_");
    return l;
}

bool nextLineIs(TavrelWrapperUtils* tw, const char* prefix)
{
    return tw->getNextResponse(prefix) != 0;
}

// The samples of one object: "_stats_" lines until the next line begins with
// "_subresponse_", `objectPrefix` or "_tavrel". `hourIntoMinutes` is the
// message size update's rule: an hour sample raises numHours but fills
// mins (through getMins and its check).
void readSamples(AggregatedRPCPerfStat* obj, const Limits& lim, TavrelWrapperUtils* tw,
                 const char* objectPrefix, bool hourIntoMinutes)
{
    unsigned int si = 0, mi = 0, hi = 0, di = 0;
    while (tw->getNextInstance("_stats_")) {
        tw->beginParsing();
        PerfSample* current = nullptr;
        int count = 0;
        for (char* word = tw->getNextToken(); word != nullptr; word = tw->getNextToken()) {
            if (si >= lim.secs && mi >= lim.mins && hi >= lim.hours && di >= lim.days) {
                // Every unit is full: the line's words are dropped.
                if (!nextLineIs(tw, "_stats_"))
                    break;
                continue;
            }
            if (strcmp(word, "_tmu_") == 0) {
                const char* unit = qv::kwNextWord(tw);
                if (strcmp(unit, "sec") == 0 && si < lim.secs) {
                    obj->numSecs++;
                    current = obj->getSecs(static_cast<int>(si++));
                } else if (strcmp(unit, "min") == 0 && mi < lim.mins) {
                    obj->numMins++;
                    current = obj->getMins(static_cast<int>(mi++));
                } else if (strcmp(unit, "hour") == 0 && hi < lim.hours) {
                    obj->numHours++;
                    current = hourIntoMinutes ? obj->getMins(static_cast<int>(hi++))
                                              : obj->getHours(static_cast<int>(hi++));
                } else if (strcmp(unit, "day") == 0 && di < lim.days) {
                    obj->numDays++;
                    current = obj->getDays(static_cast<int>(di++));
                }
                count++;
            } else if (strcmp(word, "_av_") == 0 || strcmp(word, "_min_") == 0 || strcmp(word, "_max_") == 0) {
                double v = strtod(qv::kwNextWord(tw), nullptr);
                if (current != nullptr)
                    (word[1] == 'a' ? current->av : word[2] == 'i' ? current->min : current->max) = v;
                count++;
            } else if (strcmp(word, "_cnt_") == 0) {
                unsigned long v = strtoul(qv::kwNextWord(tw), nullptr, 10);
                if (current != nullptr)
                    current->cnt = v;
                count++;
            }
            if (count >= 5)
                break;
        }
        if (nextLineIs(tw, "_subresponse_") || nextLineIs(tw, objectPrefix) || nextLineIs(tw, "_tavrel"))
            return;
    }
}

// The frame of the five: the records that they make on a node are not
// destroyed with the node, and are kept until someone destroys them or the
// process ends; the instance loop of all scans finds the node by "_n_".
template <class Rec, class Make, class Scan>
int rpcUpdate(PollingHandler* h, ClusterInfo* clusterP, Rec* NodeInfo::*field, const char* request, Make make,
              Scan scan)
{
    auto makeKept = [make]() {
        Rec* rec = make();
        if (rec != nullptr)
            qv::rememberMadeRecord(rec, [](void* p) { delete static_cast<Rec*>(p); });
        return rec;
    };
    auto instances = [field, scan](ClusterInfo* recipe, TavrelWrapperUtils* tw, int) {
        while (tw->getNextInstance("_tavrel")) {
            char addr[257];
            qv::statsCopyText(addr, tw->getBufferedValue("_n_", 0, 256));
            int idx = recipe->getNodeInfoIndex(addr);
            if (idx < 0)
                continue;
            scan(recipe->nodeItems[static_cast<size_t>(idx)]->*field, tw);
        }
        return 0;
    };
    return qv::updateFrame(h, clusterP, field, request, makeKept, instances, qv::assignTo(field));
}

bool lineFailed(TavrelWrapperUtils* tw)
{
    return qv::statsLineRc(tw) != 0;
}

}  // namespace

int PollingHandler::updateRPCUtilInfo(ClusterInfo* clusterP, short timeUnit, short count)
{
    Limits fixed;
    if (!limitsFor(timeUnit, count, &fixed))
        return 1;
    return rpcUpdate(this, clusterP, &NodeInfo::rpcUtil, "tavrel rpcs", qv::newRecord<RPCUtilInfo>,
                     [&](RPCUtilInfo* rec, TavrelWrapperUtils* tw) {
                         // Each line adds one peer, also when it failed.
                         char name[257];
                         char addr[257];
                         qv::statsCopyText(addr, tw->getBufferedValue("_rn_", 0, 256));
                         qv::statsCopyText(name, tw->getBufferedValue("_rnn_", 0, 256));
                         MErrno err = 0;
                         NodeUtilInfo* peer = nullptr;
                         // Beyond the table a peer's series are read and dropped.
                         if (rec->nNodeUtil < 1024) {
                             peer = new NodeUtilInfo(&err, name, addr);
                             rec->nodeUtilP[rec->nNodeUtil++] = peer;
                         }
                         if (lineFailed(tw))
                             return;
                         while (tw->getNextInstance("_rpcObj_")) {
                             char obj[257];
                             qv::statsCopyText(obj, tw->getBufferedValue("_obj_", 0, 256));
                             Limits lim = objectLimits(timeUnit, fixed, tw);
                             AggregatedRPCPerfStat* stat =
                                 new AggregatedRPCPerfStat(lim.secs, lim.mins, lim.hours, lim.days, obj);
                             readSamples(stat, lim, tw, "_rpcObj_", false);
                             if (peer != nullptr && peer->nStats < 7)
                                 peer->statP[peer->nStats++] = stat;
                             else
                                 delete stat;   // beyond the seven slots: read and dropped
                             if (nextLineIs(tw, "_subresponse_") || nextLineIs(tw, "_tavrel"))
                                 return;
                         }
                     });
}

namespace {

// The message size and message type updates: one table of series per node,
// each line of a node starting again at slot 0. `sizes` is the size table
// (null for message types, whose series carry the "_obj_" name);
// `hourIntoMinutes` the message size update's rule for hour samples.
template <class Rec>
void readSeriesTable(Rec* rec, TavrelWrapperUtils* tw, short timeUnit, const Limits& fixed, const char* prefix,
                     uint32_t* sizes, bool hourIntoMinutes, int32_t* used)
{
    if (lineFailed(tw))
        return;
    int i = 0;
    while (tw->getNextInstance(prefix)) {
        Limits lim = objectLimits(timeUnit, fixed, tw);
        char name[257] = "";
        if (sizes != nullptr) {
            unsigned int size = bufferedU32(tw, "_size_");
            if (i < 26)
                sizes[i] = size;
        } else {
            qv::statsCopyText(name, tw->getBufferedValue("_obj_", 0, 256));
        }
        AggregatedRPCPerfStat* stat = new AggregatedRPCPerfStat(lim.secs, lim.mins, lim.hours, lim.days,
                                                                sizes != nullptr ? nullptr : name);
        rec->setRPCPerfStatObj(stat, i);
        readSamples(stat, lim, tw, prefix, hourIntoMinutes);
        i++;
        if (nextLineIs(tw, "_subresponse_") || nextLineIs(tw, "_tavrel"))
            break;
    }
    *used = i;
}

}  // namespace

int PollingHandler::updateRPCSizeUtilInfo(ClusterInfo* clusterP, short timeUnit, short count)
{
    Limits fixed;
    if (!limitsFor(timeUnit, count, &fixed))
        return 1;
    return rpcUpdate(this, clusterP, &NodeInfo::rpcSizeUtil, "tavrel rpcs size", qv::newRecord<RPCSizeUtilInfo>,
                     [&](RPCSizeUtilInfo* rec, TavrelWrapperUtils* tw) {
                         readSeriesTable(rec, tw, timeUnit, fixed, "_rpcSize_", rec->sizes, true, &rec->nSizes);
                     });
}

int PollingHandler::updateRPCMsgUtilInfo(ClusterInfo* clusterP, short timeUnit, short count)
{
    Limits fixed;
    if (!limitsFor(timeUnit, count, &fixed))
        return 1;
    return rpcUpdate(this, clusterP, &NodeInfo::rpcMsgUtil, "tavrel rpcs message", qv::newRecord<RPCMsgUtilInfo>,
                     [&](RPCMsgUtilInfo* rec, TavrelWrapperUtils* tw) {
                         readSeriesTable(rec, tw, timeUnit, fixed, "_rpcObj_", nullptr, false, &rec->nStats);
                     });
}

int PollingHandler::updateRPCUtilInfoPerSec(ClusterInfo* clusterP)
{
    return rpcUpdate(
        this, clusterP, &NodeInfo::rpcUtilPerSec, "tavrel rpcs ns",
        [] { return new (std::nothrow) AggregatedRPCUtilInfoPerSec(); },
        [](AggregatedRPCUtilInfoPerSec* rec, TavrelWrapperUtils* tw) {
            if (lineFailed(tw))
                return;
            while (tw->getNextInstance("_rpcObj_")) {
                // The name is read and goes no further: objects are told
                // apart by their position.
                char obj[257];
                qv::statsCopyText(obj, tw->getBufferedValue("_obj_", 0, 256));
                AggregatedRPCPerfStatPerSec* stat = new AggregatedRPCPerfStatPerSec();
                rec->setRPCPerfStatObj(stat, rec->nStats);
                rec->nStats++;
                while (tw->getNextInstance("_stats_")) {
                    // Five keywords; "_tmu_" is read and ignored, and a later
                    // line of the object overwrites the one sample.
                    const qv::KwField table[] = {
                        qv::kwCustom("_tmu_", [](char*, TavrelWrapperUtils*) {}),
                        qv::kwDouble("_av_", &stat->av),
                        qv::kwDouble("_min_", &stat->min),
                        qv::kwDouble("_max_", &stat->max),
                        qv::kwCustom("_cnt_", [stat](char* v, TavrelWrapperUtils*) { stat->cnt = strtoul(v, nullptr, 10); }),
                    };
                    qv::keywordScan(tw, table, 5);
                    if (nextLineIs(tw, "_subresponse_") || nextLineIs(tw, "_rpcObj_") || nextLineIs(tw, "_tavrel"))
                        break;
                }
                if (nextLineIs(tw, "_subresponse_") || nextLineIs(tw, "_tavrel"))
                    return;
            }
        });
}

int PollingHandler::updateRPCRawUtilInfo(ClusterInfo* clusterP)
{
    return rpcUpdate(this, clusterP, &NodeInfo::rpcRawUtil, "tavrel rpcs raw", qv::newRecord<RPCRawUtilInfo>,
                     [](RPCRawUtilInfo* rec, TavrelWrapperUtils* tw) {
                         if (lineFailed(tw))
                             return;
                         if (tw->getNextInstance("_rpcstat_")) {
                             rec->statOr = static_cast<int32_t>(bufferedLong(tw, "_rpcstator_"));
                             rec->statCnt = static_cast<int32_t>(bufferedLong(tw, "_rpcstatcnt_"));
                             qv::releaseSharedArray(rec->statItems);
                             rec->statItems = new RPCRawStat[rec->statCnt > 0 ? rec->statCnt : 0];
                             // Each word of a line, matched or not, steps to
                             // the next record; records beyond the count are
                             // not there and their values are dropped.
                             int i = 0;
                             bool toExec = false;
                             while (!toExec && tw->getNextInstance("_stat_")) {
                                 tw->beginParsing();
                                 for (int turn = 0; turn < 9; turn++, i++) {
                                     char* word = tw->getNextToken();
                                     if (word == nullptr)
                                         break;
                                     RPCRawStat scratch;
                                     RPCRawStat* r = i < rec->statCnt ? &rec->statItems[i] : &scratch;
                                     const qv::KwField table[] = {
                                         qv::kwU64("_cw_", &r->cw),
                                         qv::kwU64("_st_", &r->st),
                                         qv::kwU64("_rt_", &r->rt),
                                         qv::kwU64("_rpclt_", &r->rpclt),
                                         qv::kwU32("_ds_", &r->ds),
                                         qv::kwU32("_dr_", &r->dr),
                                         qv::kwCustom("_rdmas_", [r](char* v, TavrelWrapperUtils*) { r->rdmas = qv::kwLow32(v) != 0 ? 1 : 0; }),
                                         qv::kwCustom("_rdmar_", [r](char* v, TavrelWrapperUtils*) { r->rdmar = qv::kwLow32(v) != 0 ? 1 : 0; }),
                                         qv::kwU32("_ni_", &r->ni),
                                     };
                                     for (const qv::KwField& f : table) {
                                         if (strcmp(word, f.keyword) == 0) {
                                             qv::kwStore(f, qv::kwNextWord(tw), tw);
                                             break;
                                         }
                                     }
                                 }
                                 toExec = nextLineIs(tw, "_rpcexec_");
                             }
                         }
                         if (!tw->getNextInstance("_rpcexec_"))
                             return;
                         rec->execOr = static_cast<int32_t>(bufferedLong(tw, "_rpcexecor_"));
                         rec->execCnt = static_cast<int32_t>(bufferedLong(tw, "_rpcexeccnt_"));
                         qv::releaseSharedArray(rec->execItems);
                         rec->execItems = new RPCRawExec[rec->execCnt > 0 ? rec->execCnt : 0];
                         int i = 0;
                         while (tw->getNextInstance("_stat_")) {
                             tw->beginParsing();
                             for (int turn = 0; turn < 3; turn++, i++) {
                                 char* word = tw->getNextToken();
                                 if (word == nullptr)
                                     break;
                                 RPCRawExec scratch;
                                 RPCRawExec* r = i < rec->execCnt ? &rec->execItems[i] : &scratch;
                                 if (strcmp(word, "_rpcet_") == 0)
                                     r->rpcet = strtoul(qv::kwNextWord(tw), nullptr, 10);
                                 else if (strcmp(word, "_rpcsn_") == 0)
                                     r->rpcsn = static_cast<uint16_t>(strtoul(qv::kwNextWord(tw), nullptr, 10));
                                 else if (strcmp(word, "_rpcmt_") == 0)
                                     r->rpcmt = qv::kwLow32(qv::kwNextWord(tw));
                             }
                             if (nextLineIs(tw, "_subresponse_"))
                                 return;
                         }
                     });
}
