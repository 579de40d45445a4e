// Temporary definitions of PollingHandler members that the handler's own code
// calls but whose real bodies live in files of their own that have not landed
// yet. Each is replaced when its implementation arrives: whoever adds the real
// body deletes the matching definition here (and this file once it is empty).

#include <cstdio>
#include <cstring>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>
#include <quelvane/kx_log.h>

// Replaced by the cluster level collection. Weak, so that the real definition
// takes precedence as soon as it is part of the build. It behaves as the real
// one does: no node known, or a node whose status reads "failed" from its
// second byte on, refuses the collectors.
__attribute__((weak)) int PollingHandler::checkFailedNode()
{
    if (recipe->nodeItems.empty())
        return 1;
    for (NodeInfo* node : recipe->nodeItems) {
        if (strncmp(node->status + 1, "failed", 6) == 0) {
            kx_log(1, "PollingHandler::checkFailedNode", "failed node\n");
            return 1;
        }
    }
    if (debug != 0)
        fprintf(stderr, "_ok_ checkFailedNode: done\n");
    return 0;
}

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
