#ifndef QUELVANE_SWEEP_INTERNAL_H
#define QUELVANE_SWEEP_INTERNAL_H

#include <cstddef>
#include <vector>

namespace qv {

// Mark-and-sweep over a vector of owned pointers whose records carry an int
// `found` mark. A poll clears the marks, sets `found` to 1 on each item that
// it sees, then sweeps: the items still at 0 are deleted and dropped, and the
// survivors keep their order.
//
//   qv::clearFound(recipe->filesystemItems);
//   ... fsP->found = 1 for every filesystem the tool lists ...
//   qv::sweepUnfound(recipe->filesystemItems,
//                    [](FilesystemInfo* fs) { kx_log(0, who, "remove %s\n", fs->name); });

template <class T>
inline void clearFound(std::vector<T*>& items)
{
    for (T* item : items) {
        if (item != nullptr)
            item->found = 0;
    }
}

// Deletes the items whose `found` is 0 (calling `beforeDelete(item)` first)
// and removes them from the vector. Returns the number removed.
template <class T, class F>
inline size_t sweepUnfound(std::vector<T*>& items, F beforeDelete)
{
    size_t kept = 0;
    size_t removed = 0;
    for (size_t i = 0; i < items.size(); i++) {
        T* item = items[i];
        if (item != nullptr && item->found == 0) {
            beforeDelete(item);
            delete item;
            removed++;
            continue;
        }
        items[kept++] = item;
    }
    items.resize(kept);
    return removed;
}

template <class T>
inline size_t sweepUnfound(std::vector<T*>& items)
{
    return sweepUnfound(items, [](T*) {});
}

// The sweep of a scan that sets `found` on what it meets and clears the marks
// again at its own end, level by level from the bottom up. For each item, in
// order: first `visit(item)`, which sweeps the item's own children while the
// item is still there; then an item marked 1 gets 0 and stays, and an item
// still at 0 is handed to `beforeDelete`, deleted with whatever it still owns,
// and taken out, the items behind keeping their order. Null items stay.
// Returns the number removed.
//
//   qv::sweepAndClearFound(fsP->poolItems,
//       [](StoragePoolInfo* p) { qv::sweepAndClearFound(p->diskItems, ...); },
//       [](StoragePoolInfo* p) { kx_log(0, who, "Erase pool %s\n", p->name); });
template <class T, class V, class F>
inline size_t sweepAndClearFound(std::vector<T*>& items, V visit, F beforeDelete)
{
    size_t kept = 0;
    size_t removed = 0;
    for (size_t i = 0; i < items.size(); i++) {
        T* item = items[i];
        if (item != nullptr) {
            visit(item);
            if (item->found == 0) {
                beforeDelete(item);
                delete item;
                removed++;
                continue;
            }
            item->found = 0;
        }
        items[kept++] = item;
    }
    items.resize(kept);
    return removed;
}

}  // namespace qv

#endif
