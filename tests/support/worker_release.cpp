#include "support/worker_release.h"

#include <pthread.h>
#include <signal.h>

#include <cstring>

namespace qvtest {

namespace {

void ignoreSignal(int) {}

} // namespace

void keepProcessOnSigterm()
{
    struct sigaction sa;
    memset(&sa, 0, sizeof(sa));
    sa.sa_handler = ignoreSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGTERM, &sa, nullptr);
}

void releaseCmdThread(PollingHandler* handler)
{
    __atomic_store_n(&handler->terminate, 1, __ATOMIC_SEQ_CST);
    handler->wakeupCmdThread();
}

void releaseTimerThread(PollingHandler* handler)
{
    __atomic_store_n(&handler->timer_terminate, 1, __ATOMIC_SEQ_CST);
    pthread_mutex_lock(&handler->pollingMutex);
    setTimerLatch();
    pthread_cond_broadcast(&TimerPollCond);
    pthread_mutex_unlock(&handler->pollingMutex);
}

int timerLatch()
{
    return __atomic_load_n(&TimerPollConditionMet, __ATOMIC_SEQ_CST);
}

void setTimerLatch()
{
    __atomic_store_n(&TimerPollConditionMet, 1, __ATOMIC_SEQ_CST);
}

void releaseDispatchThread(PollingHandler* handler)
{
    __atomic_store_n(&handler->execTerminate, 1, __ATOMIC_SEQ_CST);
    handler->wakeupDispatchThread();
}

void releaseWorkerThreads(PollingHandler* handler)
{
    keepProcessOnSigterm();
    releaseCmdThread(handler);
    releaseTimerThread(handler);
    releaseDispatchThread(handler);
}

} // namespace qvtest
