// The list of pending event lines and the one-bit latch between the receive
// thread (the only appender) and the send thread (the only taker).
#include <quelvane/events_handler.h>

#include "events/events_sync_internal.h"

#include <cstdio>
#include <cstring>

namespace qv_events {

pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t cond = PTHREAD_COND_INITIALIZER;
int conditionMet = 0;
pthread_mutex_t listMutex = PTHREAD_MUTEX_INITIALIZER;
thread_local const void* tPipelineOf = nullptr;

} // namespace qv_events

using qv_events::cond;
using qv_events::conditionMet;
using qv_events::listMutex;

void EventsHandler::appendEventToList(EventItem* first, EventItem* last, int /* count */,
                                      int /* size */)
{
    pthread_mutex_lock(&listMutex);
    eventListTail->append(first);
    eventListTail = last;
    pthread_mutex_unlock(&listMutex);

    if (debug)
        fprintf(stderr, "new event item is added to list\n");

    // listMutex is released before the latch's mutex is taken: never both.
    wakeSendThread();
}

char* EventsHandler::getEventFromList(char* buffer, int bufferLen)
{
    pthread_mutex_lock(&listMutex);

    EventItem* item = eventListHead.next;
    if (item == nullptr) {
        pthread_mutex_unlock(&listMutex);
        return nullptr;
    }

    // A bufferLen of 0 or less declares the buffer large enough.
    int size = static_cast<int>(strlen(item->buf != nullptr ? item->buf : "")) + 1;
    char* dst = buffer;
    if (bufferLen > 0 && size > bufferLen)
        dst = new char[size];

    item->copyBuf(dst);
    delete item;   // unlinks it from the sentinel and its successor

    if (eventListHead.next == nullptr)
        eventListTail = &eventListHead;

    pthread_mutex_unlock(&listMutex);
    return dst;
}

void EventsHandler::wakeSendThread()
{
    pthread_mutex_lock(&qv_events::mutex);
    if (debug)
        fprintf(stderr, "recv pthread_mutex_lock()\n");
    conditionMet = 1;
    if (debug)
        fprintf(stderr, "recv Wake up all waiters...\n");
    pthread_cond_broadcast(&cond);
    if (debug)
        fprintf(stderr, "recv pthread_cond_broadcast()\n");
    pthread_mutex_unlock(&qv_events::mutex);
    if (debug)
        fprintf(stderr, "recv pthread_mutex_unlock()\n");
}

void EventsHandler::waitReceiveThread()
{
    pthread_mutex_lock(&qv_events::mutex);
    if (debug)
        fprintf(stderr, "send pthread_mutex_lock()\n");
    while (conditionMet == 0) {
        if (debug)
            fprintf(stderr, "send Thread blocked\n");
        pthread_cond_wait(&cond, &qv_events::mutex);
        if (debug)
            fprintf(stderr, "send pthread_cond_wait()\n");
    }
    conditionMet = 0;
    pthread_mutex_unlock(&qv_events::mutex);
    if (debug)
        fprintf(stderr, "send pthread_mutex_unlock()\n");
}
