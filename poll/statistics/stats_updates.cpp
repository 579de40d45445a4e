// Statistics updates onto the inventory: each record is hung on the NodeInfo
// of the node that answered (or, for ClusterCfgInfo, on the ClusterInfo) in
// the recipe, and the application's tree is brought into line at the end,
// node by node in the recipe's order.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>
#include <quelvane/kx_log.h>
#include <quelvane/tavrel_wrapper_utils.h>

#include "poll/keyword_scan_internal.h"
#include "poll/statistics/shared_records_internal.h"
#include "poll/statistics/stats_families_internal.h"
#include "poll/statistics/stats_update_frame_internal.h"

namespace {

// A value taken with getBufferedValue, terminated (it may fill all 256
// bytes without a terminator of its own).
struct Value
{
    char text[257];
    Value(TavrelWrapperUtils* tw, const char* keyword)
    {
        qv::statsCopyText(text, tw->getBufferedValue(keyword, 0, 256));
    }
};

int lineRc(TavrelWrapperUtils* tw)
{
    return qv::statsLineRc(tw);
}

// The scan of the three plain families: lines that failed only warn, and
// the record is filled straight from the line.
template <class Rec, class LineScan>
auto plainScan(Rec* NodeInfo::*field, const char* warning, int debug, LineScan lineScan)
{
    return [=](ClusterInfo* recipe, TavrelWrapperUtils* tw, int nNodes) {
        while (tw->getNextInstance("_tavrel")) {
            int rc = lineRc(tw);
            if (rc != 0) {
                if (debug != 0)
                    fprintf(stderr, warning, nNodes, rc);
                continue;
            }
            Value addr(tw, "_n_");
            int idx = recipe->getNodeInfoIndex(addr.text);
            if (idx < 0)
                continue;
            lineScan(recipe->nodeItems[static_cast<size_t>(idx)]->*field, tw);
        }
        return 0;
    };
}

}  // namespace

int PollingHandler::updateCacheStatsInfo(ClusterInfo* clusterP)
{
    return qv::updateFrame(this, clusterP, &NodeInfo::cacheStats, "tavrel chms", qv::newRecord<CacheStatsInfo>,
                            plainScan(&NodeInfo::cacheStats,
                                      "_warning_ %d instance: 'tavrel chms' returned error rc=%d\n", debug,
                                      qv::scanCacheLine),
                            qv::assignTo(&NodeInfo::cacheStats));
}

int PollingHandler::updateIocStatsInfo(ClusterInfo* clusterP)
{
    return qv::updateFrame(this, clusterP, &NodeInfo::iocStats, "tavrel iocs", qv::newRecord<IocStatsInfo>,
                            plainScan(&NodeInfo::iocStats,
                                      "_warning_ %d instance: 'tavrel iocs' returned error rc=%d\n", debug,
                                      qv::scanIocLine),
                            qv::assignTo(&NodeInfo::iocStats));
}

int PollingHandler::updateVfsStatsInfo(ClusterInfo* clusterP)
{
    return qv::updateFrame(this, clusterP, &NodeInfo::vfsStats, "tavrel vfss", qv::newRecord<VfsStatsInfo>,
                            plainScan(&NodeInfo::vfsStats,
                                      "_warning_ %d instance: 'tavrel vfss' returned error rc=%d\n", debug,
                                      qv::scanVfsLine),
                            qv::assignTo(&NodeInfo::vfsStats));
}

namespace {

// The Verbs records: a failed line stores its rc; a good one empties the
// records of both trees again, copies the two texts and scans the counters.
template <class Rec, class LineScan>
auto verbsScan(PollingHandler* h, ClusterInfo* clusterP, Rec* NodeInfo::*field, bool client,
               LineScan lineScan)
{
    return [=](ClusterInfo* recipe, TavrelWrapperUtils* tw, int) {
        int result = 0;
        while (tw->getNextInstance("_tavrel")) {
            Value addr(tw, "_n_");
            int idx = recipe->getNodeInfoIndex(addr.text);
            if (idx < 0)
                continue;
            NodeInfo* node = recipe->nodeItems[static_cast<size_t>(idx)];
            if (!qv::prepareRecord(node, field)) {
                result = 1;
                if (client && h->debug != 0)
                    printf("The value of the verbsClientP2  = %lld\n", 0LL);
                continue;
            }
            Rec* rec = node->*field;
            int rc = lineRc(tw);
            if (rc != 0) {
                // The server's update prints the client's request word too.
                if (h->debug != 0)
                    fprintf(stderr, "_warning_ : 'tavrel verbsc' returned error rc=%d\n", rc);
                rec->rc = rc;
                continue;
            }
            qv::prepareRecord(clusterP->getNode(idx), field);
            qv::statsCopyText(rec->dst, tw->getBufferedValue("_dst", 0, 256));
            qv::statsCopyText(rec->st, tw->getBufferedValue("_st_", 0, 256));
            lineScan(rec, tw);
        }
        return result;
    };
}

}  // namespace

int PollingHandler::updateVerbsClientInfo(ClusterInfo* clusterP)
{
    return qv::updateFrame(this, clusterP, &NodeInfo::verbsClient, "tavrel verbsc", qv::newRecord<VerbsClientStatsInfo>,
                            verbsScan(this, clusterP, &NodeInfo::verbsClient, true, qv::scanVerbsClientLine),
                            qv::assignTo(&NodeInfo::verbsClient));
}

int PollingHandler::updateVerbsServerInfo(ClusterInfo* clusterP)
{
    return qv::updateFrame(this, clusterP, &NodeInfo::verbsServer, "tavrel verbss", qv::newRecord<VerbsServerStatsInfo>,
                            verbsScan(this, clusterP, &NodeInfo::verbsServer, false, qv::scanVerbsServerLine),
                            qv::assignTo(&NodeInfo::verbsServer));
}

int PollingHandler::updateKxcommCfgInfo(ClusterInfo* clusterP)
{
    auto scan = [this, clusterP](ClusterInfo* recipe, TavrelWrapperUtils* tw, int nNodes) {
        // A failed line's rc goes into the record worked on last: the recipe
        // record of the last good line, or at first the record of the last
        // node of clusterP.
        KxcommCfgInfo* last = nNodes > 0 ? clusterP->nodeItems.at(static_cast<size_t>(nNodes) - 1)->kxcommCfg
                                         : nullptr;
        while (tw->getNextInstance("_tavrel")) {
            int rc = lineRc(tw);
            if (rc != 0) {
                if (debug != 0)
                    fprintf(stderr, "_warning_ : 'tavrel kxcommcfg_s' returned error rc=%d\n", rc);
                if (last != nullptr)
                    last->rc = rc;
                continue;
            }
            Value addr(tw, "_n_");
            int idx = recipe->getNodeInfoIndex(addr.text);
            if (idx < 0)
                continue;
            NodeInfo* node = recipe->nodeItems[static_cast<size_t>(idx)];
            if (!qv::prepareRecord(node, &NodeInfo::kxcommCfg))
                continue;
            qv::prepareRecord(clusterP->getNode(idx), &NodeInfo::kxcommCfg);
            KxcommCfgInfo* rec = node->kxcommCfg;
            last = rec;
            qv::statsCopyText(rec->nodeAddr, tw->getBufferedValue("_naddr_", 0, 256));
            // Taken like every other text: at most 256 characters arrive.
            char list[257];
            qv::statsCopyText(list, tw->getBufferedValue("_addrlist_", 0, 256));
            memcpy(rec->addrList, list, sizeof(list));
            const qv::KwField table[] = {
                qv::kwCustom("_port_",
                             [rec](char* v, TavrelWrapperUtils*) { rec->port = static_cast<uint32_t>(qv::kwU64Of(v)); }),
                qv::kwU32("_no_", &rec->nodeNumber),
                qv::kwU32("_commver_", &rec->commVersion),
                qv::kwU32("_compatver_", &rec->compatVersion),
                qv::kwU32("_maxcompatver_", &rec->maxCompatVersion),
                qv::kwU32("_maxfeat_", &rec->maxFeature),
            };
            qv::keywordScan(tw, table, 1 << 30);
        }
        return 0;
    };
    return qv::updateFrame(this, clusterP, &NodeInfo::kxcommCfg, "tavrel kxcommcfg", qv::newRecord<KxcommCfgInfo>, scan,
                            qv::assignTo(&NodeInfo::kxcommCfg));
}

int PollingHandler::updateThreadUtilInfo(ClusterInfo* clusterP)
{
    const char* who = "updateThreadUtilInfo";
    auto scan = [this, who](ClusterInfo* recipe, TavrelWrapperUtils* tw, int nNodes) {
        int carry[3] = {0, 0, 0};
        while (tw->getNextInstance("_tavrel")) {
            Value addr(tw, "_n_");
            int idx = recipe->getNodeInfoIndex(addr.text);
            kx_log(0, who, "extractedNodeAddr %s nodeIdx %d\n", addr.text, idx);
            if (idx < 0)
                continue;
            NodeInfo* node = recipe->nodeItems[static_cast<size_t>(idx)];
            int rc = lineRc(tw);
            if (rc != 0) {
                kx_log(0, who, "_warning_ %d instance: 'tavrel threads' returned error rc=%d\n", nNodes, rc);
                if (debug != 0)
                    fprintf(stderr, "_warning_ %d instance: 'tavrel threads' returned error rc=%d\n", nNodes, rc);
                delete node->threadUtil;
                node->threadUtil = nullptr;
                continue;
            }
            // A node that is not up has no thread statistics.
            if (strcmp(node->status, "up") != 0) {
                kx_log(0, who, "_warning_ Node %s: 'tavrel threads' returned error rc=%d\n", addr.text, 1);
                if (debug != 0)
                    fprintf(stderr, "_warning_ Node %s: 'tavrel threads' returned error rc=%d\n", addr.text, 1);
                if (node->threadUtil != nullptr)
                    node->threadUtil->rc = 1;
                delete node->threadUtil;
                node->threadUtil = nullptr;
                continue;
            }
            if (node->threadUtil == nullptr)
                continue;
            node->threadUtil->rc = 0;
            qv::scanThreadLine(node->threadUtil, tw, carry);
        }
        return 0;
    };
    auto copyBack = [](NodeInfo* from, NodeInfo* to) {
        if (from->threadUtil != nullptr) {
            if (to->threadUtil != nullptr)
                *to->threadUtil = *from->threadUtil;
        } else {
            delete to->threadUtil;
            to->threadUtil = nullptr;
        }
    };
    return qv::updateFrame(this, clusterP, &NodeInfo::threadUtil, "tavrel threads", qv::newRecord<ThreadUtilInfo>, scan, copyBack,
                            [](PollingHandler* h) {
                                kx_log(0, "updateThreadUtilInfo", "nNodes %d, nNodes2\n",
                                       static_cast<int>(h->recipe->nodeItems.size()));
                            });
}

// ---------------------------------------------------------------------------
// The two updates whose record count varies.

int PollingHandler::updateClusterCfgInfo(ClusterInfo* clusterP)
{
    getPollingLock();
    // The recipe's list goes first, before any test (its records live on
    // while the application's list still holds them).
    for (ClusterCfgInfo*& r : recipe->clusterCfgItems)
        qv::releaseShared(r);
    recipe->clusterCfgItems.clear();
    if (checkFailedNode() == 1) {
        releasePollingLock();
        return 1;
    }
    const size_t bound = recipe->nodeItems.size();
    int err = processCommand("tavrel cfgmgr");
    if (err != 0) {
        releasePollingLock();
        return err;
    }
    int result = 0;
    size_t count = 0;
    TavrelWrapperUtils* tw = tavrelWrapper;
    tw->prepBuffer();
    while (tw->getNextInstance("_tavrel")) {
        int rc = lineRc(tw);
        if (rc != 0) {
            if (debug != 0)
                fprintf(stderr, "_warning_ : 'tavrel clustercfg_s' returned error rc=%d\n", rc);
            continue;
        }
        Value addr(tw, "_n_");
        if (recipe->getNodeInfoIndex(addr.text) < 0)
            continue;
        // One record for this line and each "_tavrel::cfgmgr_" line after
        // it, while the count stays within the node count; the _n_ of the
        // further lines is not looked up.
        for (int turn = 0;; turn++) {
            MErrno merr = 0;
            ClusterCfgInfo* rec = new (std::nothrow) ClusterCfgInfo(&merr);
            if (rec == nullptr) {
                result = 1;
            } else {
                rec->clearStats();
                int turnRc = turn > 0 ? lineRc(tw) : 0;
                if (turnRc != 0) {
                    if (debug != 0)
                        fprintf(stderr, "_warning_ : 'tavrel clustercfg_s' returned error rc=%d\n", turnRc);
                    rec->rc = turnRc;
                    delete rec;   // kept by no list
                } else {
                    qv::statsCopyText(rec->nodeAddr, tw->getBufferedValue("_naddr_", 0, 256));
                    qv::statsCopyText(rec->hostName, tw->getBufferedValue("_host_", 0, 256));
                    qv::statsCopyText(rec->clusterName, tw->getBufferedValue("_cl_", 0, 256));
                    qv::statsCopyText(rec->ipAddr, tw->getBufferedValue("_ip_", 0, 256));
                    qv::statsCopyText(rec->adminName, tw->getBufferedValue("_admin_", 0, 256));
                    qv::statsCopyText(rec->gpnTrans, tw->getBufferedValue("_tr_", 0, 256));
                    qv::statsCopyText(rec->gpnStatus, tw->getBufferedValue("_p_", 0, 256));
                    qv::statsCopyText(rec->nodeStatus, tw->getBufferedValue("_rpc_", 0, 256));
                    qv::statsCopyText(rec->lastFail, tw->getBufferedValue("_lastfail_", 0, 256));
                    qv::scanClusterCfgCounters(rec, tw);
                    recipe->clusterCfgItems.push_back(rec);
                    count++;
                }
            }
            if (!tw->getNextInstance("_tavrel::cfgmgr_") || count > bound)
                break;
        }
    }
    // The application's list takes the recipe's records: both lists hold
    // them.
    for (ClusterCfgInfo*& r : clusterP->clusterCfgItems)
        qv::releaseShared(r);
    clusterP->clusterCfgItems = recipe->clusterCfgItems;
    for (ClusterCfgInfo* r : clusterP->clusterCfgItems)
        qv::shareHold(r);
    tw->cleanupCommand();
    releasePollingLock();
    return result;
}

int PollingHandler::updatePCacheStatsInfo(ClusterInfo* clusterP)
{
    getPollingLock();
    if (checkFailedNode() == 1) {
        releasePollingLock();
        return 1;
    }
    int err = processCommand("tavrel pncs");
    if (err != 0) {
        releasePollingLock();
        return err;
    }
    int result = 0;
    TavrelWrapperUtils* tw = tavrelWrapper;
    tw->getInstanceCount("_tavrel::pncs_");
    tw->prepBuffer();
    uint32_t nCmds = 0;
    auto releaseAll = [](NodeInfo* node) {
        for (PCacheStatsInfo* p : node->pCacheItems)
            delete p;
        node->pCacheItems.clear();
    };
    while (tw->getNextInstance("_tavrel")) {
        int rc = lineRc(tw);
        if (rc != 0) {
            if (debug != 0)
                fprintf(stderr, "_warning_ : 'tavrel pncs' returned error rc=%d\n", rc);
            continue;
        }
        Value addr(tw, "_n_");
        int idx = recipe->getNodeInfoIndex(addr.text);
        if (idx < 0)
            continue;
        NodeInfo* mine = recipe->nodeItems[static_cast<size_t>(idx)];
        NodeInfo* theirs = clusterP->getNode(idx);
        releaseAll(mine);
        releaseAll(theirs);
        // Every line that follows goes to this node, whichever node it
        // came from.
        int turn = 0;
        do {
            int turnRc = turn++ > 0 ? lineRc(tw) : 0;
            if (turnRc != 0) {
                if (debug != 0)
                    fprintf(stderr, "_warning_ : 'tavrel pncs' returned error rc=%d\n", turnRc);
                continue;
            }
            MErrno e1 = 0;
            MErrno e2 = 0;
            PCacheStatsInfo* first = new (std::nothrow) PCacheStatsInfo(&e1);
            PCacheStatsInfo* second = new (std::nothrow) PCacheStatsInfo(&e2);
            if (first == nullptr || second == nullptr) {
                delete first;
                delete second;
                result = 1;
                continue;
            }
            first->clearStats();
            second->clearStats();
            qv::statsCopyText(first->fsName, tw->getBufferedValue("_fs_", 0, 256));
            qv::statsCopyText(first->fsetName, tw->getBufferedValue("_fset_", 0, 256));
            qv::scanPCacheLine(first, tw, &nCmds, true);
            *second = *first;
            mine->pCacheItems.push_back(first);
            theirs->pCacheItems.push_back(second);
        } while (tw->getNextInstance("_tavrel::pncs_"));
    }
    tw->cleanupCommand();
    releasePollingLock();
    return result;
}
