// The node poll: the repository says which nodes are defined, the daemon
// tells their state ("get nodes"), their configuration ("tavrel nc") and their
// platform ("tavrel v"). The recipe keeps every node it ever saw; the caller's
// tree is brought into line with it only once all four sources have been read.

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/time.h>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>
#include <quelvane/command_wrapper_utils.h>
#include <quelvane/kx_log.h>
#include <quelvane/tavrel_wrapper_utils.h>

#include "poll/keyword_scan_internal.h"
#include "poll/records/records_text_internal.h"
#include "poll/tools/tool_runner_internal.h"

namespace {

// Width of a repository column: fgets reads at most 399 bytes, so no column
// of a line can be longer.
constexpr size_t kColumn = 400;

// A node address taken from a response line. getBufferedValue hands out at
// most 256 bytes, without a terminator when the value fills them all.
struct NodeAddr
{
    char text[257];

    explicit NodeAddr(const char* value)
    {
        size_t len = strnlen(value, 256);
        memcpy(text, value, len);
        text[len] = '\0';
    }
};

// A configuration value that the daemon sends as a signed number and the
// node keeps unsigned: strtol, then the low 32 bits.
qv::KwField kwLongAsU32(const char* keyword, unsigned int* dst)
{
    return qv::kwCustom(keyword, [dst](char* value, TavrelWrapperUtils*) {
        *dst = static_cast<unsigned int>(strtol(value, nullptr, 10));
    });
}

}  // namespace

int PollingHandler::updateNodeInfo(ClusterInfo* clusterP, int noRefresh)
{
    const char* who = "PollingHandler::updateNodeInfo";
    getPollingLock();

    const std::string cmd = qv::repositoryQueryCommand(
        20, {2003, 2004, 2005, 2006, 2007, 2008, 2010, 2014, 2015}, noRefresh);

    auto onLine = [&](char* line) {
        char col[9][kColumn];
        for (auto& c : col)
            c[0] = '\0';
        int lineRc = 0;
        int unused = 0;
        // A column that does not match (an empty one included) ends the
        // scan: it and every column behind it stay empty.
        sscanf(line,
               "vksdrquery:sdrq_node_info:%d:%d:::%[^:]:%[^:]:%[^:]:%[^:]:%[^:]:%[^:]:%[^:]:%[^:]:"
               "%[^:]:",
               &lineRc, &unused, col[0], col[1], col[2], col[3], col[4], col[5], col[6], col[7],
               col[8]);
        percentDecode(col[0]);
        percentDecode(col[1]);
        percentDecode(col[2]);
        percentDecode(col[3]);
        percentDecode(col[4]);
        percentDecode(col[8]);
        percentDecode(col[7]);
        if (lineRc != 0)
            return false;

        const char* ipAddr = col[1];
        int idx = recipe->getNodeInfoIndex(ipAddr);
        if (idx < 0) {
            kx_log(0, who, "new node %s\n", ipAddr);
            MErrno err = 0;
            NodeInfo* node = new NodeInfo(&err);
            qvCopyText(node->ipAddr, ipAddr);
            qvCopyText(node->name, col[0]);
            // The roles in a fixed order, each followed by a blank.
            node->roles[0] = '\0';
            if (strcmp(col[3], "true") == 0)
                strcat(node->roles, "manager ");
            if (strcmp(col[4], "true") == 0)
                strcat(node->roles, "quorum ");
            if (strcmp(col[8], "true") == 0)
                strcat(node->roles, "gateway ");
            if (strcmp(col[7], "true") == 0)
                strcat(node->roles, "snmp_collector ");
            qvCopyText(node->sdrField2010, col[6]);
            node->found = 1;
            recipe->nodeItems.push_back(node);
        } else {
            // A known node keeps the name, roles and column 2010 that it was
            // created with.
            recipe->nodeItems[static_cast<size_t>(idx)]->found = 1;
        }
        return true;
    };
    qv::ToolRunResult run = qv::runTool(who, cmd.c_str(), onLine);
    if (!run.started || run.exitStatus != 0) {
        releasePollingLock();
        return 1;
    }

    int nNode = static_cast<int>(recipe->nodeItems.size());
    kx_log(0, who, "nNode %d\n", nNode);
    int err = processCommand("get nodes");
    if (err != 0) {
        releasePollingLock();
        return err;
    }

    // A node that the daemon does not report keeps these.
    for (int i = 0; i < nNode; i++) {
        NodeInfo* node = recipe->nodeItems[static_cast<size_t>(i)];
        qvCopyText(node->status, "unknown");
        qvCopyText(node->healthy, "no");
        qvCopyText(node->diagnosis, "unknown");
    }

    tavrelWrapper->prepBuffer();
    while (tavrelWrapper->getNextInstance("_node_")) {
        NodeAddr addr(tavrelWrapper->getBufferedValue("_addr_", 0, 256));
        int idx = recipe->getNodeInfoIndex(addr.text);
        kx_log(0, who, "extractedNodeAddr %s nodeIdx %d nNode %d\n", addr.text, idx, nNode);
        kx_log(0, who, "extractedNodeAddr %s nodeIdx %d nNode %d\n", addr.text, idx, nNode);

        if ((pollingScope & POLL_ALL_CLUSTERS) != 0 && idx < 0) {
            // A node of a remote cluster: known by its address alone.
            MErrno nerr = 0;
            NodeInfo* node = new NodeInfo(&nerr);
            qvCopyText(node->ipAddr, addr.text);
            recipe->nodeItems.push_back(node);
            nNode++;
            idx = recipe->getNodeInfoIndex(addr.text);
            kx_log(0, who, "pollingScope: POLL_ALL_CLUSTERS nNode %d idx %d addr %s\n", nNode, idx,
                   addr.text);
        }

        if (idx < 0)
            continue;

        NodeInfo* node = recipe->nodeItems[static_cast<size_t>(idx)];
        const qv::KwField table[] = {
            qv::kwCustom("_name_",
                         [node, who](char* value, TavrelWrapperUtils*) {
                             if (node->name[0] == '\0') {
                                 kx_log(0, who, "new NODE: name %s\n", value);
                                 qvCopyText(node->name, value);
                             }
                         },
                         false),
            qv::kwText("_admin_", node->adminState),
            qv::kwText("_status_", node->status),
            qv::kwI32("_failures_", &node->failures),
            qv::kwI32("_threadwait_", &node->threadWait),
            qv::kwText("_healthy_", node->healthy),
            qv::kwText("_diagnosis_", node->diagnosis),
        };
        qv::keywordScan(tavrelWrapper, table, qv::kwExceeds(6));
    }

    // "tavrel nc" and "tavrel v" answer one "_tavrel" line per node, named by
    // its _n_ value; lines of nodes that the recipe does not know are passed over.
    auto scanNodeLines = [&](const char* request, auto&& scanNode) {
        tavrelWrapper->cleanupCommand();
        int rc = processCommand(request);
        if (rc != 0)
            return rc;
        tavrelWrapper->prepBuffer();
        while (tavrelWrapper->getNextInstance("_tavrel")) {
            NodeAddr addr(tavrelWrapper->getBufferedValue("_n_", 0, 256));
            int idx = recipe->getNodeInfoIndex(addr.text);
            if (idx >= 0)
                scanNode(recipe->nodeItems[static_cast<size_t>(idx)], addr.text);
        }
        return 0;
    };

    err = scanNodeLines("tavrel nc", [&](NodeInfo* node, const char*) {
        const qv::KwField table[] = {
            qv::kwText("_version_", node->version),
            qv::kwI64("_pagepool_", &node->pagePool),
            kwLongAsU32("_pfthreads_", &node->pfThreads),
            kwLongAsU32("_maxmbps_", &node->maxMBps),
            kwLongAsU32("_maxfilestocache_", &node->maxFilesToCache),
            qv::kwCustom("_maxstatcache_",
                         [node](char* value, TavrelWrapperUtils*) {
                             node->maxStatCache =
                                 static_cast<unsigned int>(strtol(value, nullptr, 10));
                             // The daemon's -1: four times the files to cache,
                             // as the field stands at this point of the line.
                             if (node->maxStatCache == 4294967295u)
                                 node->maxStatCache = node->maxFilesToCache * 4;
                         }),
            kwLongAsU32("_wkr1threads_", &node->wkr1Threads),
            kwLongAsU32("_dmapieventtimeout_", &node->dmapiEventTimeout),
            kwLongAsU32("_dmapimounttimeout_", &node->dmapiMountTimeout),
            kwLongAsU32("_dmapisessfailuretimeout_", &node->dmapiSessFailureTimeout),
            kwLongAsU32("_nsdserverwaittimewindowonmount_",
                        &node->nsdServerWaitTimeWindowOnMount),
            kwLongAsU32("_nsdserverwaittimeformount_", &node->nsdServerWaitTimeForMount),
            qv::kwText("_unmountondiskfail_", node->unmountOnDiskFail),
        };
        qv::keywordScan(tavrelWrapper, table, qv::kwExceeds(14));
    });
    if (err != 0) {
        releasePollingLock();
        return err;
    }

    err = scanNodeLines("tavrel v", [&](NodeInfo* node, const char* addrText) {
        const qv::KwField table[] = {
            qv::kwCustom("_nn_",
                         [node](char* value, TavrelWrapperUtils*) {
                             if (node->name[0] == '\0')
                                 qvCopyText(node->name, value);
                         }),
            qv::kwText("_p_", node->platform),
            qv::kwCustom("_f_",
                         [node, who, addrText](char* value, TavrelWrapperUtils*) {
                             unsigned int bitFlags = 0;
                             sscanf(value, "0x%x", &bitFlags);
                             qvCopyText(node->endian,
                                        (bitFlags & 128) != 0 ? "little_endian" : "big_endian");
                             kx_log(0, who, "extractedNodeAddr %s bitFlags 0x%x, endian %s %s\n",
                                    addrText, bitFlags, value, node->endian);
                         }),
        };
        qv::keywordScan(tavrelWrapper, table, qv::kwExceeds(5));
    });
    if (err != 0) {
        releasePollingLock();
        return err;
    }

    tavrelWrapper->cleanupCommand();
    gettimeofday(&recipe->nodeUpdateTime, nullptr);

    clusterP->copyNodes(recipe);
    // The two lists have the same length after copyNodes; the bound holds
    // whatever happens.
    for (size_t i = 0; i < recipe->nodeItems.size() && i < clusterP->nodeItems.size(); i++)
        clusterP->nodeItems[i]->copyDiskAccesses(recipe->nodeItems[i]);

    releasePollingLock();
    return 0;
}
