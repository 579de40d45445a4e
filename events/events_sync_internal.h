#ifndef QUELVANE_EVENTS_SYNC_INTERNAL_H
#define QUELVANE_EVENTS_SYNC_INTERNAL_H

#include <pthread.h>

// Shared state of the event pipeline's two threads, statically initialised.
// `listMutex` guards the list (next, prev and eventListTail); `mutex` with
// `cond` guards the one-bit latch `conditionMet`. The two mutexes are never
// held together.
namespace qv_events {

extern pthread_mutex_t mutex;
extern pthread_cond_t cond;
extern int conditionMet;        // 1: lines may be waiting (a latch, not a count)
extern pthread_mutex_t listMutex;

// The handler whose send or receive thread is the calling thread, or null:
// term, called from a callback, must not wait for its own pipeline.
extern thread_local const void* tPipelineOf;

} // namespace qv_events

#endif
