#ifndef QUELVANE_SHARED_RECORDS_INTERNAL_H
#define QUELVANE_SHARED_RECORDS_INTERNAL_H

// Bookkeeping for statistics objects that two records hold at once.
//
// Some records copy by pointer (RPCSizeUtilInfo, RPCMsgUtilInfo,
// RPCRawUtilInfo, and the lists of ClusterCfgInfo that the recipe hands to
// the application's tree), so one object may be held by the recipe and by
// the application's tree. Every holder counts: an object that one holder
// lets go of stays alive while another still holds it, and goes with its last
// holder. Objects that no table knows have exactly one holder. The counts
// live in one table keyed by address, under a mutex of its own, so the
// public records keep their plain pointer fields.
//
// The RPC records that the updates make for a node are not destroyed with
// the node (the application may go on reading them). They are registered
// here when made and given back at the end of the process, unless someone
// destroyed them before (their destructors deregister them).

namespace qv {

// One more holder of `p` (null is ignored).
void shareHold(const void* p);
// One holder less of `p`; true when that was the last one: the caller then
// destroys the object. Null gives false.
bool shareRelease(const void* p);
// Holders of `p` (1 for an object the table does not know); for tests.
int shareHolders(const void* p);

// Destroys *p and nulls it when its last holder lets go.
template <class T>
void releaseShared(T*& p)
{
    if (p != nullptr && shareRelease(p))
        delete p;
    p = nullptr;
}
// The same for an array made with new[].
template <class T>
void releaseSharedArray(T*& p)
{
    if (p != nullptr && shareRelease(p))
        delete[] p;
    p = nullptr;
}

// Keeps a record made by an update until the end of the process, when it is
// destroyed with `destroy` unless forgetMadeRecord ran for it before.
void rememberMadeRecord(void* record, void (*destroy)(void*));
// Called by the destructors of those records.
void forgetMadeRecord(void* record);

}  // namespace qv

#endif
