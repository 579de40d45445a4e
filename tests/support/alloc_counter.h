#ifndef QUELVANE_TEST_ALLOC_COUNTER_H
#define QUELVANE_TEST_ALLOC_COUNTER_H

// Live allocation count of a test program, to see that destructors give back
// what a tree held. support/alloc_counter.cpp replaces the global operator
// new/delete of every test program with counting versions (the library's
// allocations go through them too).

#include <atomic>

// Allocations made through operator new and not yet deleted.
extern std::atomic<long> gLiveAllocations;

#endif
