// The worker threads of the polling handler: the 300-second timer, the command
// thread that keeps the recipe fresh, and the wait and wake operations on the
// latches that connect them (all under pollingMutex).

#include <pthread.h>
#include <unistd.h>

#include <quelvane/api_poll.h>
#include <quelvane/kx_log.h>

#include "poll/handler_internal.h"

int PollingHandler::waitTimerThread()
{
    int rc = pthread_mutex_lock(&pollingMutex);
    while (PollConditionMet == 0)
        rc = pthread_cond_wait(&PollCond, &pollingMutex);
    PollConditionMet = 0;
    rc = pthread_mutex_unlock(&pollingMutex);
    return rc;
}

int PollingHandler::waitMainThread()
{
    int rc = pthread_mutex_lock(&pollingMutex);
    while (qv::readFlag(TimerPollConditionMet) == 0)
        rc = pthread_cond_wait(&TimerPollCond, &pollingMutex);
    rc = pthread_mutex_unlock(&pollingMutex);
    return rc;
}

int PollingHandler::waitExecutionTask()
{
    int rc = pthread_mutex_lock(&pollingMutex);
    while (DispatchPollConditionMet == 0)
        rc = pthread_cond_wait(&DispatchPollCond, &pollingMutex);
    DispatchPollConditionMet = 0;
    rc = pthread_mutex_unlock(&pollingMutex);
    return rc;
}

int PollingHandler::waitCmdThreadDone()
{
    int rc = pthread_mutex_lock(&pollingMutex);
    CmdWaiters++;
    while (CmdPollConditionMet == 0)
        rc = pthread_cond_wait(&CmdPollCond, &pollingMutex);
    CmdWaiters--;
    CmdPollConditionMet = 0;
    rc = pthread_mutex_unlock(&pollingMutex);
    return rc;
}

int PollingHandler::wakeupCmdThread()
{
    int rc = pthread_mutex_lock(&pollingMutex);
    PollConditionMet = 1;
    rc = pthread_cond_broadcast(&PollCond);
    rc = pthread_mutex_unlock(&pollingMutex);
    return rc;
}

int PollingHandler::wakeupTimerThread()
{
    int rc = pthread_mutex_lock(&pollingMutex);
    if (recipe != nullptr && qv::recipeScanned(recipe))
        qv::writeFlag(TimerPollConditionMet, 1);
    rc = pthread_cond_broadcast(&TimerPollCond);
    rc = pthread_mutex_unlock(&pollingMutex);
    return rc;
}

int PollingHandler::wakeupDispatchThread()
{
    int rc = pthread_mutex_lock(&pollingMutex);
    DispatchPollConditionMet = 1;
    rc = pthread_cond_broadcast(&DispatchPollCond);
    rc = pthread_mutex_unlock(&pollingMutex);
    return rc;
}

int PollingHandler::notifyCmdThreadDone()
{
    int rc = pthread_mutex_lock(&pollingMutex);
    if (CmdWaiters > 0) {
        CmdPollConditionMet = 1;
        rc = pthread_cond_broadcast(&CmdPollCond);
    }
    rc = pthread_mutex_unlock(&pollingMutex);
    return rc;
}

void* PollingHandler::timerHandlerBody(void* handler)
{
    const char* who = "PollingHandler::timerHandlerBody";
    PollingHandler* handlerP = static_cast<PollingHandler*>(handler);

    kx_log(0, who, "wait\n");
    handlerP->waitMainThread();
    for (;;) {
        kx_log(0, who, "start\n");
        int flag = qv::readFlag(handlerP->timer_terminate);
        kx_log(0, who, "handlerP->timer_terminate = %d\n", flag);
        if (flag != 0) {
            kx_log(0, who, "exiting...\n");
            pthread_exit(nullptr);
        }
        handlerP->wakeupCmdThread();
        sleep(300);
    }
    return nullptr;
}

void* PollingHandler::cmdHandlerBody(void* handler)
{
    const char* who = "PollingHandler::cmdHandlerBody";
    PollingHandler* handlerP = static_cast<PollingHandler*>(handler);

    for (;;) {
        kx_log(0, who, "wait\n");
        handlerP->waitTimerThread();
        kx_log(0, who, "start\n");
        int flag = qv::readFlag(handlerP->terminate);
        kx_log(0, who, "handlerP->terminate = %d\n", flag);
        if (flag != 0)
            break;

        ClusterInfo* tree = qv::newRecipeTree();
        handlerP->copyRecipe(tree);
        kx_log(0, who, "get fs manager\n");
        handlerP->updateFilesystemManagerInfo(tree);
        kx_log(0, who, "get mounted nodes\n");
        handlerP->updateMountedNodeInfo(tree);
        kx_log(0, who, "get fs config\n");
        handlerP->updateFilesystemConfigInfo(tree);
        kx_log(0, who, "get disk access\n");
        handlerP->updateDiskAccessInfo(tree);
        qv::deleteRecipeTree(tree);
        handlerP->notifyCmdThreadDone();
    }
    kx_log(0, who, "exiting...\n");
    pthread_exit(nullptr);
    return nullptr;
}
