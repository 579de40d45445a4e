#include <pthread.h>

#include <quelvane/api_poll.h>

PollingHandler* thePollingHandler = nullptr;

// Condition variables and latches of the worker threads, all guarded by
// pollingMutex of the handler. Statically initialised: no run-time call.
pthread_cond_t PollCond = PTHREAD_COND_INITIALIZER;
int PollConditionMet = 0;
pthread_cond_t TimerPollCond = PTHREAD_COND_INITIALIZER;
int TimerPollConditionMet = 0;
pthread_cond_t CmdPollCond = PTHREAD_COND_INITIALIZER;
int CmdPollConditionMet = 0;
int CmdWaiters = 0;
pthread_cond_t DispatchPollCond = PTHREAD_COND_INITIALIZER;
int DispatchPollConditionMet = 0;
