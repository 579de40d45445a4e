#ifndef QUELVANE_LEVEL_COPY_INTERNAL_H
#define QUELVANE_LEVEL_COPY_INTERNAL_H

// The one level copy that brings a vector of one tree into line with the
// vector of the same level of another tree, and the linear lookup by key that
// all the records' lookups share.

#include <cstddef>
#include <cstring>
#include <memory>
#include <vector>

#include <quelvane/merrno.h>

// Position of the first item whose key equals `key` as the field would store
// it, or -1. Keys are stored cut to N - 1 characters, so a longer key is
// looked up by its first N - 1 characters: the record that a poll made from
// it is found again by the next poll instead of being added twice. A linear
// scan from position 0; no index exists. A null key matches nothing.
template <class Item, size_t N>
int qvFindByKey(const std::vector<Item*>& items, char (Item::*keyField)[N], const char* key)
{
    if (key == nullptr)
        return -1;
    for (size_t i = 0; i < items.size(); ++i) {
        if (strncmp(items[i]->*keyField, key, N - 1) == 0)
            return static_cast<int>(i);
    }
    return -1;
}

// Observers of the walk of a level copy. The default does nothing; the levels
// that trace their walk derive from it and hide the steps they log.
template <class Item>
struct QvLevelCopyTrace
{
    // Removal pass: a destination item is about to be looked up in the source.
    void checking(Item*) {}
    // Removal pass: a destination item that the source lacks is about to go.
    void removing(Item*, int /*sourceIndex*/) {}
    // Between the two passes.
    void removalDone() {}
    // Merge pass: source item `i` is about to be looked up in the destination.
    void sourceItem(int /*i*/, Item*) {}
    // Merge pass: a new record was made from the source item and appended.
    void added(Item*, int /*destIndex*/) {}
    // Merge pass: the destination item at `j` took the fields of source item `i`.
    void assigned(int /*j*/, int /*i*/, Item*) {}
    // After the merge pass.
    void done() {}
};

// Brings (dest->*items) into line with (src->*items), matching items by key
// with the owner's own lookup:
//  1. Removal pass: every destination item whose key the source lacks is
//     destroyed with its subtree and its slot taken out; the items behind
//     keep their order.
//  2. Merge pass: every source item, in order, is assigned to the destination
//     item of its key, or to a new record appended at the end.
// Children of the items are not touched: an item that stays keeps them, a new
// item starts without any. The source is only read.
template <class Owner, class Item, size_t N, class Trace>
void qvLevelCopy(Owner* dest,
                 Owner* src,
                 std::vector<Item*> Owner::*items,
                 int (Owner::*lookup)(char*),
                 char (Item::*keyField)[N],
                 Trace& trace)
{
    std::vector<Item*>& destItems = dest->*items;
    std::vector<Item*>& srcItems = src->*items;

    size_t pos = 0;
    while (pos < destItems.size()) {
        Item* item = destItems[pos];
        trace.checking(item);
        int srcIndex = (src->*lookup)(item->*keyField);
        if (srcIndex >= 0) {
            ++pos;
            continue;
        }
        trace.removing(item, srcIndex);
        destItems.erase(destItems.begin() + static_cast<std::ptrdiff_t>(pos));
        delete item;
    }
    trace.removalDone();

    for (size_t i = 0; i < srcItems.size(); ++i) {
        Item* srcItem = srcItems[i];
        trace.sourceItem(static_cast<int>(i), srcItem);
        int destIndex = (dest->*lookup)(srcItem->*keyField);
        if (destIndex < 0) {
            MErrno err = 0;
            std::unique_ptr<Item> fresh(new Item(&err));
            *fresh = *srcItem;
            destItems.push_back(fresh.get());
            fresh.release();
            trace.added(srcItem, destIndex);
        } else {
            *destItems[static_cast<size_t>(destIndex)] = *srcItem;
            trace.assigned(destIndex, static_cast<int>(i), srcItem);
        }
    }
    trace.done();
}

template <class Owner, class Item, size_t N>
void qvLevelCopy(Owner* dest,
                 Owner* src,
                 std::vector<Item*> Owner::*items,
                 int (Owner::*lookup)(char*),
                 char (Item::*keyField)[N])
{
    QvLevelCopyTrace<Item> quiet;
    qvLevelCopy(dest, src, items, lookup, keyField, quiet);
}

#endif
