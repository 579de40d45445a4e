// The refresh that an sdrChanged event runs on the send thread.
#include "events/sdr_refresh_internal.h"

#include <atomic>

void defaultSdrRefresh(PollingHandler* handler)
{
    // PENDING: this is to become
    //     handler->updateDiskSDRInfo(1);   // result ignored, no polling lock here
    // with #include <quelvane/api_poll.h>. PollingHandler::updateDiskSDRInfo
    // is declared there but not yet defined in the library (the disk
    // repository collector has not landed), so calling it would leave the
    // library with an unresolved symbol. Until then an sdrChanged event
    // refreshes nothing; the rest of its handling (record, callback) is
    // complete.
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
