// The refresh that an sdrChanged event runs on the send thread.
#include "events/sdr_refresh_internal.h"

#include <atomic>

void defaultSdrRefresh(PollingHandler* handler)
{
    // PENDING: this is to become `handler->updateDiskSDRInfo(1);` (result
    // ignored, no polling lock taken here). PollingHandler is only forward
    // declared for now; its declaration (poll/api_poll.h) and the collector
    // updateDiskSDRInfo have not reached this tree yet. Until then an
    // sdrChanged event refreshes nothing.
    (void)handler;
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
