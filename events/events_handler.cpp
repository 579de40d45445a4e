// EventsHandler: construction, callback registration and the send thread,
// which decodes the pending lines and hands the records to the callbacks.
#include <quelvane/events_handler.h>

#include "events/events_sync_internal.h"

#include <quelvane/kx_log.h>

#include <cstdio>
#include <cstring>
#include <mutex>

EventsHandler* theEventsHandler = nullptr;

namespace {

// One lock for each callback slot number, shared by all handlers (the
// handler's layout is public and has no room for locks). It is held only
// while a (callback, data) pair is written or copied out, never while a
// callback runs: so the send thread never pairs the callback of one
// registration with the data of another, and a callback may itself register
// (for its own number too) without deadlock.
std::mutex slotLocks[EVENTS_MAX_TYPES];

// The pair of slot `type` as one registration left it.
EventCallbackSlot readSlot(const EventsHandler* handler, int type)
{
    std::lock_guard<std::mutex> hold(slotLocks[type]);
    return handler->eventCallbacks[type];
}

} // namespace

EventsHandler::EventsHandler(MErrno* err, int debug)
{
    *err = 0;
    memset(&sendThread, 0, sizeof(sendThread));
    memset(&receiveThread, 0, sizeof(receiveThread));
    eventListHead.buf = nullptr;
    eventListHead.prev = nullptr;
    eventListHead.next = nullptr;
    eventListTail = &eventListHead;
    for (int i = 0; i < EVENTS_MAX_TYPES; ++i) {
        eventCallbacks[i].callback = nullptr;
        eventCallbacks[i].callbackData = nullptr;
    }
    tavrelWrapper = nullptr;
    this->debug = debug;
    // Set by init; cleared here too so that a handler made without init
    // never refreshes through an undefined pointer.
    pollingHandler = nullptr;
    receiveDone = 0;
}

EventsHandler::~EventsHandler()
{
    // Lines still pending are freed; the sentinel itself is a member.
    EventItem::destroyList(eventListHead.next);
}

void EventsHandler::registerEventCallback(int type, int (*cb)(Event*, void*), void* data)
{
    // A number outside the table names no slot: nothing is written.
    if (type < 0 || type >= EVENTS_MAX_TYPES)
        return;
    std::lock_guard<std::mutex> hold(slotLocks[type]);
    eventCallbacks[type].callback = cb;
    eventCallbacks[type].callbackData = data;
}

void* EventsHandler::sendHandlerBody(void* arg)
{
    EventsHandler* self = static_cast<EventsHandler*>(arg);
    char buffer[1024];
    qv_events::tPipelineOf = self;

    for (;;) {
        self->waitReceiveThread();

        // Tested before the list is looked at: lines still pending when the
        // receive side has ended are not delivered (term frees them).
        if (__atomic_load_n(&self->receiveDone, __ATOMIC_ACQUIRE)) {
            kx_log(0, "EventsHandler::sendHandlerBody", "exiting...\n");
            return nullptr;
        }

        // After a wake-up the list is emptied, so that wake-ups that
        // collapsed into one lose no line.
        int counter = 0;
        for (char* line = self->getEventFromList(buffer, sizeof(buffer)); line != nullptr;
             line = self->getEventFromList(buffer, sizeof(buffer)), ++counter) {
            if (self->debug)
                fprintf(stderr, "%dth extracted item = %s\n", counter, line);

            int type = self->getEventType(line);
            if (type >= 0) {
                // Decoded from the line actually taken, which is a fresh array
                // rather than the local buffer when the line did not fit it.
                Event* record = self->createEventObject(type, line);
                // The pair is read once, after the record is built, and the
                // callback runs with no lock held.
                EventCallbackSlot slot = readSlot(self, type);
                if (record != nullptr && slot.callback != nullptr)
                    slot.callback(record, slot.callbackData);
                // Without a callback the record is not delivered and stays
                // allocated: its class is known only to a callback.
            }

            if (line != buffer)
                delete[] line;
        }
    }
}
