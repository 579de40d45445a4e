#ifndef QUELVANE_TEST_ALLOC_COUNTER_H
#define QUELVANE_TEST_ALLOC_COUNTER_H

// Live allocation count of the alloc_tests program, to see that destructors
// give back what a tree held. support/alloc_counter.cpp, linked into that
// program only, replaces the global operator new/delete with counting
// versions (the library's allocations go through them too).

#include <atomic>

// Allocations made through operator new and not yet deleted.
extern std::atomic<long> gLiveAllocations;

#endif
