// EventItem: one pending event line, linked both ways.
#include <quelvane/events_handler.h>

#include <cstring>

EventItem::EventItem() : buf(nullptr), prev(nullptr), next(nullptr) {}

EventItem::~EventItem()
{
    if (buf != nullptr)
        delete[] buf;
    if (prev != nullptr)
        prev->next = next;
    if (next != nullptr)
        next->prev = prev;
}

void EventItem::append(EventItem* item)
{
    next = item;
    if (item != nullptr)
        item->prev = this;
}

void EventItem::copyBuf(char* dst)
{
    if (buf == nullptr) {
        dst[0] = '\0';
        return;
    }
    strcpy(dst, buf);
}

EventItem* EventItem::strdup(const char* text)
{
    EventItem* item = new EventItem;
    size_t size = strlen(text) + 1;
    item->buf = new char[size];
    memcpy(item->buf, text, size);
    return item;
}

void EventItem::destroyList(EventItem* first)
{
    if (first == nullptr)
        return;
    // Each delete unlinks its item, so first->next walks down the chain.
    while (first->next != nullptr)
        delete first->next;
    delete first;
}
