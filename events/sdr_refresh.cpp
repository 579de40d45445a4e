// The refresh that an sdrChanged event runs on the send thread.
#include "events/sdr_refresh_internal.h"

#include <quelvane/api_poll.h>

#include <atomic>

void defaultSdrRefresh(PollingHandler* handler)
{
    // The disk repository scan takes no polling lock; its result is not
    // looked at here.
    handler->updateDiskSDRInfo(1);
}

namespace {

std::atomic<SdrRefreshHook> currentHook{defaultSdrRefresh};

} // namespace

SdrRefreshHook setSdrRefreshHook(SdrRefreshHook hook)
{
    return currentHook.exchange(hook != nullptr ? hook : defaultSdrRefresh);
}

void runSdrRefresh(PollingHandler* handler)
{
    currentHook.load()(handler);
}
