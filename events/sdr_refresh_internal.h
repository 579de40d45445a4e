#ifndef QUELVANE_SDR_REFRESH_INTERNAL_H
#define QUELVANE_SDR_REFRESH_INTERNAL_H

class PollingHandler;

// The refresh of the disk repository data that an sdrChanged event triggers on
// the send thread, after its record has been built and before its callback.
// It is called only with the non-null handler that was given to
// EventsHandler::init; its result, if any, is ignored.
typedef void (*SdrRefreshHook)(PollingHandler* handler);

// The refresh in force. Replaceable (by tests) while no event thread runs;
// returns the previous hook. A null hook restores the default.
SdrRefreshHook setSdrRefreshHook(SdrRefreshHook hook);

// Runs the refresh in force on `handler`.
void runSdrRefresh(PollingHandler* handler);

// The default refresh: handler->updateDiskSDRInfo(1).
void defaultSdrRefresh(PollingHandler* handler);

#endif
