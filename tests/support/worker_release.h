#ifndef QUELVANE_TEST_WORKER_RELEASE_H
#define QUELVANE_TEST_WORKER_RELEASE_H

#include <quelvane/api_poll.h>

namespace qvtest {

// A handler started with protocol 1 has three threads that end only when
// their flag is set and they are woken: the command thread on a tick, the
// timer thread once released, the dispatch thread on a task wake-up. Its
// destructor sets the flags and signals, but wakes nobody. These end the
// threads ahead of PollingHandler::term, so that term's joins return. They
// join nothing themselves: term does that.

// Installs a no-op SIGTERM handler: the library installs none, and the
// default action would end the test process at term's pthread_kill.
void keepProcessOnSigterm();
// Sets terminate and wakes the command thread.
void releaseCmdThread(PollingHandler* handler);
// Sets timer_terminate and releases the timer thread for good.
void releaseTimerThread(PollingHandler* handler);
// Sets execTerminate and wakes the dispatch thread.
void releaseDispatchThread(PollingHandler* handler);

// The timer latch TimerPollConditionMet, read and set the one way the library
// touches it: atomically (the disk repository scan reads it without the lock).
// Setting it wakes nobody; whoever must wake a waiter holds the polling lock
// around the set and broadcasts TimerPollCond.
int timerLatch();
void setTimerLatch();

// All of the above, in that order. The threads then end concurrently, and
// their last log lines may interleave with each other and with term's; a
// test that reads the log line by line releases them one at a time and
// waits for each one's last line instead.
void releaseWorkerThreads(PollingHandler* handler);

} // namespace qvtest

#endif
