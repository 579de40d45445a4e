#ifndef QUELVANE_EVENT_STOP_INTERNAL_H
#define QUELVANE_EVENT_STOP_INTERNAL_H

// Stopping an event session that waits for lines. The session's reading loop
// (TavrelWrapperUtils::waitEvents) tells which socket it reads; whoever stops
// the session marks it and shuts that socket down, and the loop then returns
// instead of reconnecting. The marks live here, keyed by the session's
// address, since the session's own layout is fixed.

class TavrelWrapperUtils;

namespace qv {

// Called by the reading loop on its start and after each reconnection, with
// the socket it now reads. False when the session is being stopped: the loop
// returns.
bool eventSessionReads(const TavrelWrapperUtils* session, int sock);
// True when the session is being stopped.
bool eventSessionStopping(const TavrelWrapperUtils* session);
// Marks the session and shuts its current socket down, so that a reading
// loop that waits on it wakes up and returns.
void stopEventSession(const TavrelWrapperUtils* session);
// Forgets the mark (the session is gone).
void forgetEventSession(const TavrelWrapperUtils* session);

} // namespace qv

#endif
