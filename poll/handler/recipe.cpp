// The daemon's node list (built at start, torn down at end), the recipe's
// refresh at construction and the repository generation number of the tools.

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include <quelvane/api_poll.h>
#include <quelvane/kx_log.h>
#include <quelvane/tavrel_wrapper_utils.h>

#include "poll/handler_internal.h"
#include "poll/keyword_scan_internal.h"
#include "poll/tools/tool_runner_internal.h"

MErrno PollingHandler::refreshClusterRecipe(int /*pollingScope*/)
{
    const char* who = "PollingHandler::refreshClusterRecipe";
    kx_log(0, who, "enter, sdrfsGenNumber %d size %d recipe 0x%X\n",
           static_cast<int>(qv::recipeGenNumber(recipe)), qv::clusterInfoSize(),
           static_cast<unsigned int>(reinterpret_cast<uintptr_t>(recipe)));
    // The handler's own scope decides, not the argument.
    if ((pollingScope & POLL_LOCAL_NODE) == 0)
        initNodeList();
    qv::stampClusterUpdate(recipe);
    kx_log(0, who, "exit\n");
    return 0;
}

MErrno PollingHandler::initNodeList()
{
    const char* who = "PollingHandler::initNodeList";
    kx_log(0, who, "enter:\n");
    cleanupNodeList();
    kx_log(0, who, "pollingScope 0x%x\n", pollingScope);

    int err;
    if ((pollingScope & POLL_ALL_CLUSTERS) != 0)
        err = processCommand("tavrel ng + all");
    else
        err = processCommand("tavrel ng + *");
    if (debug != 0)
        tavrelWrapper->getInstanceCount("a");
    tavrelWrapper->cleanupCommand();
    if (err != 0) {
        kx_log(0, who, "nc %d exit err %d\n", 0, err);
        return err;
    }

    int count = 0;
    err = processCommand("tavrel ng cnt");
    if (err == 0) {
        tavrelWrapper->prepBuffer();
        if (tavrelWrapper->getNextInstance("_tavrel")) {
            // Every "_c_" on the line sets the count; the last one stands.
            const qv::KwField table[] = {qv::kwI32("_c_", &count, false)};
            qv::keywordScan(tavrelWrapper, table, INT_MAX);
        }
        if (debug != 0)
            tavrelWrapper->getInstanceCount("a");
        tavrelWrapper->cleanupCommand();
        if (count != 0)
            nNodes = count;
    }
    kx_log(0, who, "nc %d exit err %d\n", count, err);
    return err;
}

MErrno PollingHandler::cleanupNodeList()
{
    const char* who = "PollingHandler::cleanupNodeList";
    kx_log(0, who, "enter\n");
    if ((pollingScope & POLL_ALL_CLUSTERS) != 0) {
        kx_log(0, who, "tavrel n + all\n");
        processCommand("tavrel n + all");
    } else {
        kx_log(0, who, "tavrel n + *\n");
        processCommand("tavrel n + *");
    }
    if (debug != 0)
        tavrelWrapper->getInstanceCount("a");
    tavrelWrapper->cleanupCommand();

    kx_log(0, who, "tavrel ng ~\n");
    processCommand("tavrel ng ~");
    if (debug != 0)
        tavrelWrapper->getInstanceCount("a");
    tavrelWrapper->cleanupCommand();

    kx_log(0, who, "exit\n");
    return 0;
}

unsigned int PollingHandler::getSdrfsGenNumber()
{
    const char* who = "PollingHandler::getSdrfsGenNumber";
    const std::string cmd = qv::repositoryQueryCommand(10, {1015}, 1);
    unsigned int genNumber = 0;
    qv::runTool(who, cmd.c_str(), [&](char* line) {
        int status = 0;
        int version = 0;
        unsigned int number = 0;
        int n = sscanf(line, "vksdrquery:sdrq_cluster_info:%d:%d:::%u:", &status, &version,
                       &number);
        if (n != 3)
            kx_log(0, who, "sscanf match failure rc %d buf %s\n", n, line);
        else
            genNumber = number;
        return true;
    });
    return genNumber;
}
