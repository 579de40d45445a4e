// Cluster level collection: the cluster's own attributes (repository query and
// "get clusterinfo"), the manager and node counts, the state of the local
// daemon, and the failed-node test that the other collectors run first.

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/time.h>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>
#include <quelvane/kx_log.h>
#include <quelvane/tavrel_wrapper_utils.h>

#include "poll/keyword_scan_internal.h"
#include "poll/records/records_text_internal.h"
#include "poll/tools/tool_runner_internal.h"

namespace {

// Room for any text column of a tool line: fgets reads at most 399 bytes.
constexpr size_t kColumn = 400;

// The caller's manager buffers are the 256-byte fields of ClusterStatus.
constexpr size_t kManagerField = 256;

// Copies a scanned column back into a fixed field of the tree, cut to the
// field and terminated.
template <size_t N>
void storeColumn(char (&dst)[N], const char* column)
{
    qvCopyText(dst, column);
}

// Bounded copy into a caller's buffer of kManagerField bytes.
void storeManagerText(char* dst, const char* src)
{
    size_t len = strnlen(src, kManagerField - 1);
    memmove(dst, src, len);
    dst[len] = '\0';
}

}  // namespace

MErrno PollingHandler::updateClusterInfo(ClusterInfo* clusterP, int norefresh)
{
    const char* who = "PollingHandler::updateClusterInfo";
    getPollingLock();

    const std::string cmd = qv::repositoryQueryCommand(
        10, {1001, 1002, 1003, 1008, 1006, 1007, 1011, 1004, 1005}, norefresh);

    MErrno result = 0;
    int lineRc = 0;
    auto onLine = [&](char* line) {
        // The text columns go straight into the recipe: a column that the
        // scan does not reach keeps what the recipe held. They are scanned
        // into buffers that hold any column of the line and then cut to the
        // recipe's fields.
        char* fields[8] = {recipe->clusterName,  recipe->sdrField1002, recipe->sdrField1003,
                           recipe->sdrField1008, recipe->sdrField1006, recipe->sdrField1007,
                           recipe->sdrField1004, recipe->sdrField1005};
        char columns[8][kColumn];
        for (int i = 0; i < 8; i++) {
            size_t len = strnlen(fields[i], 255);
            memcpy(columns[i], fields[i], len);
            columns[i][len] = '\0';
        }
        int second = 0;
        sscanf(line,
               "vksdrquery:sdrq_cluster_info:%d:%d:::%[^:]:%[^:]:%[^:]:%[^:]:%[^:]:%[^:]:%d:%[^:]:"
               "%[^:]:",
               &lineRc, &second, columns[0], columns[1], columns[2], columns[3], columns[4],
               columns[5], &recipe->sdrField1011, columns[6], columns[7]);
        storeColumn(recipe->clusterName, columns[0]);
        storeColumn(recipe->sdrField1002, columns[1]);
        storeColumn(recipe->sdrField1003, columns[2]);
        storeColumn(recipe->sdrField1008, columns[3]);
        storeColumn(recipe->sdrField1006, columns[4]);
        storeColumn(recipe->sdrField1007, columns[5]);
        storeColumn(recipe->sdrField1004, columns[6]);
        storeColumn(recipe->sdrField1005, columns[7]);
        if (lineRc != 0) {
            result = 1;
            kx_log(2, who, "vksdrquery:sdrq_cluster_info rc %d\n", lineRc);
        }
        // One line is all the query gives.
        return false;
    };
    qv::ToolRunResult run = qv::runTool(who, cmd.c_str(), onLine);
    if (!run.started) {
        releasePollingLock();
        return 1;
    }
    if (run.exitStatus != 0)
        result = 1;

    if (result == 0) {
        result = processCommand("get clusterinfo");
        if (result == 0) {
            tavrelWrapper->prepBuffer();
            if (tavrelWrapper->getNextInstance("_cluster_")) {
                const qv::KwField table[] = {
                    qv::kwI32("_maxblksiz_", &recipe->maxBlockSize),
                    qv::kwText("_maxfeature_", recipe->maxFeature),
                    qv::kwCustom("_distribtokenserver_",
                                 [this](char* value, TavrelWrapperUtils*) {
                                     recipe->distribTokenServer =
                                         strcmp(value, "true") == 0 ? 1 : 0;
                                 }),
                    qv::kwI32("_failuredetectiontime_", &recipe->failureDetectionTime),
                    qv::kwI32("_minmissedpingtimeout_", &recipe->minMissedPingTimeout),
                    qv::kwI32("_maxmissedpingtimeout_", &recipe->maxMissedPingTimeout),
                };
                // Six keywords are all the line has to give.
                qv::keywordScan(tavrelWrapper, table, 6);
            }
            tavrelWrapper->cleanupCommand();
            recipe->sdrfsGenNumber = getSdrfsGenNumber();
            gettimeofday(&recipe->clusterUpdateTime, nullptr);
            *clusterP = *recipe;
        }
    }

    releasePollingLock();
    return result;
}

MErrno PollingHandler::getClusterStatus(ClusterStatus* status, int flags)
{
    // The local record is what the caller's fields are copied from; it is
    // never filled in, so a successful call hands back empty texts and zero
    // counts for what was asked: the result only tells that the tools ran.
    ClusterStatus local;
    MErrno result = 1;
    int code = 1;
    int rc = -1;

    if (status != nullptr) {
        bool failed = false;
        if ((flags & 0x1) != 0) {
            rc = getClusterManager(status->managerName, status->managerIpAddr);
            code = 2;
            if (rc != 0) {
                failed = true;
            } else {
                strcpy(status->managerName, local.managerName);
                strcpy(status->managerIpAddr, local.managerIpAddr);
            }
        }
        if (!failed) {
            if ((flags & 0x2) != 0) {
                rc = getClusterNodesStatus(status);
                code = 3;
                if (rc != 0) {
                    result = 1;
                } else {
                    status->nodesDefined = local.nodesDefined;
                    status->localNodesActive = local.localNodesActive;
                    status->remoteNodesJoined = local.remoteNodesJoined;
                    status->quorumNodesDefined = local.quorumNodesDefined;
                    status->quorumNodesActive = local.quorumNodesActive;
                    status->quorum = local.quorum;
                    status->quorumAchieved = local.quorum;
                    result = 0;
                    rc = 0;
                    code = 0;
                }
            } else {
                result = 0;
                rc = 0;
                code = 0;
            }
        }
    }

    kx_log(0, "PollingHandler::getClusterStatus", "rc %d flag 0x%x code %d\n", rc, flags, code);
    return result;
}

int getClusterManager(char* managerName, char* managerIpAddr)
{
    if (managerName == nullptr || managerIpAddr == nullptr)
        return -1;

    // The digit, not a terminator: what stood behind it stays.
    managerName[0] = '0';
    managerIpAddr[0] = '0';

    char cmd[256];
    snprintf(cmd, sizeof(cmd), "%s/vklsmgr -c 2>/dev/null", qv::kToolDir);

    int value = -1;
    auto onLine = [&](char* line) {
        char addr[kColumn];
        char name[kColumn];
        char extra[kColumn];
        char open = 0;
        char close = 0;
        int n = sscanf(line, "Cluster manager node: %s %c%s%c%s", addr, &open, name, &close,
                       extra);
        if (n >= 1)
            storeManagerText(managerIpAddr, addr);
        if (n >= 3)
            storeManagerText(managerName, name);
        if (n == 4) {
            // The word keeps the closing parenthesis; it becomes the digit 0.
            size_t len = strlen(managerName);
            if (len > 0 && managerName[len - 1] == ')')
                managerName[len - 1] = '0';
            value = 0;
        } else {
            fprintf(stderr, "result ERROR rc %d\n", n);
            fflush(stderr);
            value = n;
        }
        return false;
    };
    qv::ToolRunOptions opts;
    opts.openFailFormat = nullptr;
    opts.openFailStderrFormat = "popen(%s) failed\n";
    qv::ToolRunResult run = qv::runTool("getClusterManager", cmd, onLine, opts);
    if (!run.started)
        return -1;
    if (run.exitStatus != 0)
        return run.exitStatus;
    return value;
}

int getClusterNodesStatus(ClusterStatus* status)
{
    if (status == nullptr)
        return -1;

    char cmd[256];
    snprintf(cmd, sizeof(cmd), "%s/kxctl clusternodeinfo 2>/dev/null", qv::kToolDir);

    auto onLine = [&](char* line) {
        char word[kColumn];
        if (sscanf(line, "Number of nodes defined in the cluster: %d\n", &status->nodesDefined) ==
            1)
            return true;
        if (sscanf(line, "Number of local nodes active in the cluster: %d\n",
                   &status->localNodesActive) == 1)
            return true;
        if (sscanf(line, "Number of remote nodes joined in this cluster: %d\n",
                   &status->remoteNodesJoined) == 1)
            return true;
        if (sscanf(line, "Number of quorum nodes defined in the cluster: %d\n",
                   &status->quorumNodesDefined) == 1)
            return true;
        if (sscanf(line, "Number of quorum nodes active in the cluster: %d\n",
                   &status->quorumNodesActive) == 1)
            return true;
        if (sscanf(line, "Quorum = %d, Quorum %s\n", &status->quorum, word) == 2) {
            status->quorumAchieved = strncmp(word, "achieved", 8) == 0 ? 1 : 0;
            return true;
        }
        return true;
    };
    qv::ToolRunOptions opts;
    opts.openFailFormat = nullptr;
    opts.openFailStderrFormat = "popen(%s) failed\n";
    qv::ToolRunResult run = qv::runTool("getClusterNodesStatus", cmd, onLine, opts);
    if (!run.started)
        return -1;
    return run.exitStatus;
}

int PollingHandler::getDaemonState()
{
    const char* who = "PollingHandler::getDaemonState";
    char cmd[256];
    snprintf(cmd, sizeof(cmd), "%s/vkgetstate -Y", qv::kToolDir);

    int result = 0;
    auto onLine = [&](char* line) {
        char nodeName[kColumn];
        char state[kColumn];
        char further[kColumn];
        int marker = 0;
        int version = 0;
        int nodeNumber = 0;
        int n1 = 0;
        int n2 = 0;
        int n3 = 0;
        initBuf(nodeName);
        initBuf(state);
        int n = sscanf(line, "vkgetstate::%d:%d:::%[^:]:%d:%[^:]:%d:%d:%d:%[^:]:", &marker,
                       &version, nodeName, &nodeNumber, state, &n1, &n2, &n3, further);
        if (n == 9) {
            if (strcmp(state, "down") == 0)
                result = 1;
        } else {
            kx_log(0, who, "sscanf match failure\n");
        }
        return true;
    };
    qv::ToolRunOptions opts;
    opts.skipFirst = 1;   // the header line
    qv::ToolRunResult run = qv::runTool(who, cmd, onLine, opts);
    if (!run.started)
        return 1;
    if (run.exitStatus != 0)
        result = 1;
    return result;
}

int PollingHandler::checkFailedNode()
{
    // No node known: the collectors do not work on an empty list.
    if (recipe->nodeItems.empty())
        return 1;
    for (NodeInfo* node : recipe->nodeItems) {
        // The word is looked for one byte into the status text.
        if (strncmp(node->status + 1, "failed", 6) == 0) {
            kx_log(1, "PollingHandler::checkFailedNode", "failed node\n");
            return 1;
        }
    }
    if (debug != 0) {
        fprintf(stderr, "_ok_ checkFailedNode: done\n");
        fflush(stderr);
    }
    return 0;
}
