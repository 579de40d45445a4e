// EventsHandler: construction, callback registration and the send thread,
// which decodes the pending lines and hands the records to the callbacks.
#include <quelvane/events_handler.h>

#include <quelvane/kx_log.h>

#include <cstdio>
#include <cstring>

EventsHandler* theEventsHandler = nullptr;

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
    eventCallbacks[type].callback = cb;
    eventCallbacks[type].callbackData = data;
}

void* EventsHandler::sendHandlerBody(void* arg)
{
    EventsHandler* self = static_cast<EventsHandler*>(arg);
    char buffer[1024];

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
                if (record != nullptr && self->eventCallbacks[type].callback != nullptr)
                    self->eventCallbacks[type].callback(record,
                                                        self->eventCallbacks[type].callbackData);
                // Without a callback the record is not delivered and stays
                // allocated: its class is known only to a callback.
            }

            if (line != buffer)
                delete[] line;
        }
    }
}
