// Temporary definitions of PollingHandler members that the handler's own code
// calls but whose real bodies live in files of their own that have not landed
// yet. Each is replaced when its implementation arrives: whoever adds the real
// body deletes the matching definition here (and this file once it is empty).

#include <quelvane/api_poll.h>

// Replaced by the filesystem attribute and mount collectors.
MErrno PollingHandler::updateFilesystemManagerInfo(ClusterInfo*)
{
    return 0;
}

MErrno PollingHandler::updateMountedNodeInfo(ClusterInfo*)
{
    return 0;
}

MErrno PollingHandler::updateFilesystemConfigInfo(ClusterInfo*)
{
    return 0;
}

// Replaced by the disk path collector.
int PollingHandler::updateDiskAccessInfo(ClusterInfo*)
{
    return 0;
}

// Replaced by the execution task queue: a dispatch loop that serves no task
// but wakes and ends as the real one does.
void* PollingHandler::dispatchHandlerBody(void* handler)
{
    PollingHandler* handlerP = static_cast<PollingHandler*>(handler);
    for (;;) {
        handlerP->waitExecutionTask();
        if (__atomic_load_n(&handlerP->execTerminate, __ATOMIC_SEQ_CST) != 0)
            pthread_exit(nullptr);
    }
    return nullptr;
}

ExecutionTask::~ExecutionTask()
{
    for (char* arg : argItems)
        delete[] arg;
}
