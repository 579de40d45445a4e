#ifndef QUELVANE_TEST_WORKER_RELEASE_H
#define QUELVANE_TEST_WORKER_RELEASE_H

#include <quelvane/api_poll.h>

namespace qvtest {

// A handler started with protocol 1 has three threads that end only when
// their flag is set and they are woken: the command thread on a tick, the
// timer thread once released, the dispatch thread on a task wake-up. Its
// destructor sets the flags and signals, but wakes nobody. This ends all
// three ahead of PollingHandler::term, so that term's joins return:
// - a no-op SIGTERM handler is installed (the library installs none and the
//   default action would end the test process);
// - terminate is set and the command thread woken;
// - timer_terminate is set and the timer thread released;
// - execTerminate is set and the dispatch thread woken.
// Then it joins nothing itself: term does that.
void releaseWorkerThreads(PollingHandler* handler);

} // namespace qvtest

#endif
