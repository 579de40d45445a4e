#ifndef QUELVANE_TEST_ALLOC_COUNTER_H
#define QUELVANE_TEST_ALLOC_COUNTER_H

// Live allocation count of a test program, to see that destructors give back
// what a tree held: replaces the global operator new/delete with counting
// versions (the library's allocations go through them too).
//
// This header DEFINES the replacement operators, it does not just declare
// them: include it from exactly one file of a test program, never from
// another header or a support source, or the program will not link.

#include <atomic>
#include <cstdlib>
#include <new>

// Allocations made through operator new and not yet deleted.
static std::atomic<long> gLiveAllocations{0};

__attribute__((noinline)) void* operator new(std::size_t size)
{
    void* p = std::malloc(size == 0 ? 1 : size);
    if (p == nullptr)
        throw std::bad_alloc();
    ++gLiveAllocations;
    return p;
}

__attribute__((noinline)) void operator delete(void* p) noexcept
{
    if (p == nullptr)
        return;
    --gLiveAllocations;
    std::free(p);
}

__attribute__((noinline)) void operator delete(void* p, std::size_t) noexcept
{
    operator delete(p);
}

#endif
