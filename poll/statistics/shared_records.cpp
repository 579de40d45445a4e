// Holder counts of shared statistics objects, and the records that the
// updates made, given back at the end of the process.

#include "poll/statistics/shared_records_internal.h"

#include <atomic>
#include <mutex>
#include <unordered_map>

namespace qv {

namespace {

// Made on first use and never destroyed, so that records destroyed during
// the process's end still find it.
struct Tables
{
    std::mutex mutex;
    std::unordered_map<const void*, int> extraHolders;     // holders beyond the first
    std::unordered_map<void*, void (*)(void*)> made;
};

Tables& tables()
{
    static Tables* t = new Tables;
    return *t;
}

std::atomic<bool> gEnding{false};

// At the end of the process: destroys the records made by updates that are
// still alive.
struct EndOfProcess
{
    ~EndOfProcess()
    {
        std::unordered_map<void*, void (*)(void*)> left;
        {
            std::lock_guard<std::mutex> lock(tables().mutex);
            left.swap(tables().made);
            gEnding = true;
        }
        for (auto& r : left)
            r.second(r.first);
    }
};

EndOfProcess& endOfProcess()
{
    static EndOfProcess e;
    return e;
}

}  // namespace

void shareHold(const void* p)
{
    if (p == nullptr)
        return;
    std::lock_guard<std::mutex> lock(tables().mutex);
    tables().extraHolders[p]++;
}

bool shareRelease(const void* p)
{
    if (p == nullptr)
        return false;
    std::lock_guard<std::mutex> lock(tables().mutex);
    auto it = tables().extraHolders.find(p);
    if (it == tables().extraHolders.end())
        return true;
    if (--it->second == 0)
        tables().extraHolders.erase(it);
    return false;
}

int shareHolders(const void* p)
{
    std::lock_guard<std::mutex> lock(tables().mutex);
    auto it = tables().extraHolders.find(p);
    return it == tables().extraHolders.end() ? 1 : 1 + it->second;
}

void rememberMadeRecord(void* record, void (*destroy)(void*))
{
    endOfProcess();
    std::lock_guard<std::mutex> lock(tables().mutex);
    if (!gEnding)
        tables().made[record] = destroy;
}

void forgetMadeRecord(void* record)
{
    std::lock_guard<std::mutex> lock(tables().mutex);
    tables().made.erase(record);
}

}  // namespace qv
