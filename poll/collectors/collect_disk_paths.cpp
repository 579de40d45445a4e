// Disk paths: how each node reaches each disk. The direct paths come from the
// device table of "vklsnsd -M"; every node without a device of its own for a
// disk then reaches it over the network through the disk's first server. The
// paths are rebuilt on the caller's (scratch) tree without the lock and merged
// into the recipe by node name at the end.

#include <cstdio>
#include <cstring>

#include <memory>
#include <vector>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>
#include <quelvane/command_wrapper_utils.h>
#include <quelvane/kx_log.h>

#include "poll/records/records_text_internal.h"
#include "poll/tools/tool_runner_internal.h"

namespace {

const char* const kWhoPaths = "PollingHandler::updateDiskAccessInfo";
const char* const kWhoIndirect = "PollingHandler::updateIndirectDiskAccessInfo";

// The five trace lines written for every path that is added.
void logAccess(const char* who, NodeInfo* nodeP, DiskAccessInfo* accessP)
{
    kx_log(0, who, "node name = %s\n", nodeP->name);
    kx_log(0, who, "accessP->getDiskName() = %s\n", accessP->getDiskName());
    kx_log(0, who, "accessP->isLocal() = %d\n", accessP->isLocal());
    kx_log(0, who, "accessP->getDeviceName() = %s\n", accessP->getDeviceName());
    kx_log(0, who, "accessP->getServerName() = %s\n", accessP->getServerName());
}

// Finds a disk of the tree by name: free disks first, then the pools of each
// filesystem in order; the first match wins. Null when there is none.
DiskInfo* findDisk(ClusterInfo* clusterP, const char* diskName)
{
    int freeIndex = clusterP->getFreeDiskInfoIndex(diskName);
    kx_log(0, kWhoPaths, "free disk_index = %d\n", freeIndex);
    if (freeIndex >= 0)
        return clusterP->freeDiskItems[static_cast<size_t>(freeIndex)];

    int nFs = static_cast<int>(clusterP->filesystemItems.size());
    kx_log(0, kWhoPaths, "nFs = %d\n", nFs);
    for (FilesystemInfo* fsP : clusterP->filesystemItems) {
        kx_log(0, kWhoPaths, "fs name = %s\n", fsP->name);
        kx_log(0, kWhoPaths, "nPool = %d\n", static_cast<int>(fsP->poolItems.size()));
        for (StoragePoolInfo* poolP : fsP->poolItems) {
            kx_log(0, kWhoPaths, "pool name = %s\n", poolP->name);
            int diskIndex = poolP->getDiskInfoIndex(diskName);
            if (diskIndex >= 0) {
                kx_log(0, kWhoPaths, "disk_index = %d\n", diskIndex);
                return poolP->diskItems[static_cast<size_t>(diskIndex)];
            }
        }
    }
    return nullptr;
}

// One row of the device table: disk name, an unused column, the device, the
// node name. The row is cut at blanks only, so the last word of a row keeps
// its newline.
void handleDeviceRow(CommandWrapperUtils* tokens, ClusterInfo* clusterP, char* line)
{
    char diskName[256];
    char deviceName[256];
    char nodeName[256];
    diskName[0] = '\0';
    deviceName[0] = '\0';
    nodeName[0] = '\0';

    char* save = nullptr;
    for (int column = 0; column < 4; column++) {
        char* token = tokens->getTableNextToken(line, &save);
        if (token == nullptr)
            break;
        if (column == 0)
            qvCopyText(diskName, token);
        else if (column == 2)
            qvCopyText(deviceName, token);
        else if (column == 3)
            qvCopyText(nodeName, token);
    }
    kx_log(0, kWhoPaths, "diskName=%s, deviceName=%s, nodeName=%s\n", diskName, deviceName,
           nodeName);

    if (strcmp(deviceName, "-") == 0) {
        kx_log(1, kWhoPaths, "Invalid device name\n");
        return;
    }

    int nodeIndex = clusterP->getNodeInfoIndexByName(nodeName);
    if (nodeIndex < 0) {
        kx_log(1, kWhoPaths, "Couldn't find node name\n");
        return;
    }
    kx_log(0, kWhoPaths, "node_index = %d\n", nodeIndex);
    NodeInfo* nodeP = clusterP->nodeItems[static_cast<size_t>(nodeIndex)];

    DiskInfo* diskP = findDisk(clusterP, diskName);
    if (diskP == nullptr) {
        kx_log(1, kWhoPaths, "Couldn't find disk name\n");
        return;
    }

    MErrno err = 0;
    std::unique_ptr<DiskAccessInfo> accessP(new DiskAccessInfo(&err));
    qvCopyText(accessP->diskName, diskP->name);
    accessP->local = 1;
    qvCopyText(accessP->deviceName, deviceName);
    // Every disk of the table must have a server: an empty list ends here
    // with std::out_of_range, which nobody catches.
    DiskServerInfo* firstServer = diskP->serverItems.at(0);
    if (strcmp(firstServer->name, nodeP->name) != 0)
        qvCopyText(accessP->serverName, firstServer->name);

    DiskAccessInfo* added = accessP.release();
    nodeP->diskAccessItems.push_back(added);
    logAccess(kWhoPaths, nodeP, added);
}

}  // namespace

int PollingHandler::updateDiskAccessInfo(ClusterInfo* clusterP)
{
    // The paths are rebuilt from nothing.
    for (NodeInfo* nodeP : clusterP->nodeItems) {
        for (DiskAccessInfo* accessP : nodeP->diskAccessItems)
            delete accessP;
        nodeP->diskAccessItems.clear();
    }

    char cmd[512];
    snprintf(cmd, sizeof(cmd), "%s/%s -M", qv::kToolDir, "vklsnsd");

    qv::ToolRunOptions opts;
    opts.skipFirst = 3;
    qv::ToolRunResult run = qv::runTool(kWhoPaths, cmd, [&](char* line) {
        if (line[0] == '\n')
            return false;
        handleDeviceRow(commandWrapper, clusterP, line);
        return true;
    }, opts);
    if (!run.started || run.exitStatus != 0)
        return 1;

    for (DiskInfo* diskP : clusterP->freeDiskItems) {
        kx_log(0, kWhoPaths, "free disk name = %s\n", diskP->name);
        updateIndirectDiskAccessInfo(clusterP, diskP);
    }
    for (FilesystemInfo* fsP : clusterP->filesystemItems) {
        kx_log(0, kWhoPaths, "fs name = %s\n", fsP->name);
        kx_log(0, kWhoPaths, "nPool = %d\n", static_cast<int>(fsP->poolItems.size()));
        for (StoragePoolInfo* poolP : fsP->poolItems) {
            kx_log(0, kWhoPaths, "pool name = %s\n", poolP->name);
            for (DiskInfo* diskP : poolP->diskItems) {
                kx_log(0, kWhoPaths, "disk name = %s\n", diskP->name);
                updateIndirectDiskAccessInfo(clusterP, diskP);
            }
        }
    }

    getPollingLock();
    kx_log(0, kWhoPaths, "nNode = %d\n", static_cast<int>(clusterP->nodeItems.size()));
    for (NodeInfo* nodeP : clusterP->nodeItems) {
        kx_log(0, kWhoPaths, "node name = %s\n", nodeP->name);
        int recipeIndex = recipe->getNodeInfoIndexByName(nodeP->name);
        if (recipeIndex >= 0) {
            kx_log(0, kWhoPaths, "number of disk accesses = %d\n",
                   static_cast<int>(nodeP->diskAccessItems.size()));
            recipe->nodeItems[static_cast<size_t>(recipeIndex)]->copyDiskAccesses(nodeP);
        }
        kx_log(0, kWhoPaths, "recipe_node_index = %d\n", recipeIndex);
    }
    releasePollingLock();
    return 0;
}

int PollingHandler::updateIndirectDiskAccessInfo(ClusterInfo* clusterP, DiskInfo* diskP)
{
    if (diskP->serverItems.empty()) {
        kx_log(0, kWhoIndirect, "This NSD is directly attached\n");
        return 0;
    }

    // Only the first server counts.
    DiskServerInfo* serverP = diskP->serverItems[0];
    int serverIndex = clusterP->getNodeInfoIndexByName(serverP->name);
    if (serverIndex < 0)
        return 1;
    kx_log(0, kWhoIndirect, "server node index = %d\n", serverIndex);

    int nNodes = static_cast<int>(clusterP->nodeItems.size());
    for (int i = 0; i < nNodes; i++) {
        if (i == serverIndex)
            continue;
        NodeInfo* nodeP = clusterP->nodeItems[static_cast<size_t>(i)];
        kx_log(0, kWhoIndirect, "node name = %s\n", nodeP->name);
        if (nodeP->getDiskAccessIndex(diskP->name) >= 0) {
            kx_log(0, kWhoIndirect,
                   "Skip this node because it already has DIRECT disk access info.\n");
            continue;
        }
        MErrno err = 0;
        DiskAccessInfo* accessP = new DiskAccessInfo(&err);
        qvCopyText(accessP->diskName, diskP->name);
        accessP->local = 0;
        accessP->deviceName[0] = '\0';
        qvCopyText(accessP->serverName, serverP->name);
        nodeP->diskAccessItems.push_back(accessP);
        logAccess(kWhoIndirect, nodeP, accessP);
    }
    return 0;
}
