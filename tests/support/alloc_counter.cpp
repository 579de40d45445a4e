// Counting replacements of the global operator new and delete; see
// alloc_counter.h.

#include "support/alloc_counter.h"

#include <cstdlib>
#include <new>

std::atomic<long> gLiveAllocations{0};

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
