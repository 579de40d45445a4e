#ifndef QUELVANE_STATS_UPDATE_FRAME_INTERNAL_H
#define QUELVANE_STATS_UPDATE_FRAME_INTERNAL_H

// The frame of the statistics updates that hang one record on every node:
// lock, refuse while a node has failed, make (or reuse) and empty the record
// on every node of both trees, send the request, scan the spool into the
// recipe, bring the application's tree into line node by node, unlock.

#include <new>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>
#include <quelvane/tavrel_wrapper_utils.h>

namespace qv {

// A new record made with its MErrno* constructor; null when out of memory.
template <class Rec>
Rec* newRecord()
{
    MErrno err = 0;
    return new (std::nothrow) Rec(&err);
}

// Makes the record of `field` on `node` with `make` when it has none, and
// empties it. False when it could not be made.
template <class Rec, class Make>
bool prepareRecord(NodeInfo* node, Rec* NodeInfo::*field, Make make)
{
    if (node->*field == nullptr) {
        node->*field = make();
        if (node->*field == nullptr)
            return false;
    }
    (node->*field)->clearStats();
    return true;
}

template <class Rec>
bool prepareRecord(NodeInfo* node, Rec* NodeInfo::*field)
{
    return prepareRecord(node, field, newRecord<Rec>);
}

// The frame. `scan(recipe, tw, nNodes)` walks the spool and gives the
// result; `copyBack(from, to)` brings one node's record from the recipe to
// clusterP; `onLocked` runs first under the lock. The node accesses are
// range-checked: a clusterP with fewer nodes than the recipe ends in
// std::out_of_range with the lock held.
template <class Rec, class Make, class Scan, class CopyBack>
int updateFrame(PollingHandler* h, ClusterInfo* clusterP, Rec* NodeInfo::*field, const char* request, Make make,
                Scan scan, CopyBack copyBack, void (*onLocked)(PollingHandler*) = nullptr)
{
    h->getPollingLock();
    if (onLocked != nullptr)
        onLocked(h);
    if (h->checkFailedNode() == 1) {
        h->releasePollingLock();
        return 1;
    }
    ClusterInfo* recipe = h->recipe;
    size_t nNodes = recipe->nodeItems.size();
    for (size_t i = 0; i < nNodes; i++) {
        if (!prepareRecord(recipe->nodeItems.at(i), field, make) ||
            !prepareRecord(clusterP->nodeItems.at(i), field, make)) {
            h->releasePollingLock();
            return 1;
        }
    }
    int err = h->processCommand(request);
    if (err != 0) {
        h->releasePollingLock();
        return err;
    }
    TavrelWrapperUtils* tw = h->tavrelWrapper;
    tw->prepBuffer();
    int result = scan(recipe, tw, static_cast<int>(nNodes));
    tw->cleanupCommand();
    for (size_t i = 0; i < nNodes; i++)
        copyBack(recipe->nodeItems.at(i), clusterP->nodeItems.at(i));
    h->releasePollingLock();
    return result;
}

// The copy for records that every node of both trees has.
template <class Rec>
auto assignTo(Rec* NodeInfo::*field)
{
    return [field](NodeInfo* from, NodeInfo* to) {
        if (from->*field != nullptr && to->*field != nullptr)
            *(to->*field) = *(from->*field);
    };
}

}  // namespace qv

#endif
