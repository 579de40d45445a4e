// Filesystem attributes that the daemon's keywords do not give: the manager
// node ("vklsmgr"), the nodes that have a filesystem mounted ("vklsmount"),
// the attributes ("vklsfs <fs> -Y") and the default mount point
// ("vklsfs all -T -Y"). The first three fill the caller's tree without the
// lock and bring the recipe into line by filesystem name at their end; the
// mount point scan holds the lock for its whole run.

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>
#include <quelvane/command_wrapper_utils.h>
#include <quelvane/kx_log.h>

#include "poll/records/records_text_internal.h"
#include "poll/sweep_internal.h"
#include "poll/tools/tool_runner_internal.h"

namespace {

const char* const kWhoManager = "PollingHandler::updateFilesystemManagerInfo";
const char* const kWhoMounted = "PollingHandler::updateMountedNodeInfo";
const char* const kWhoConfig = "PollingHandler::updateFilesystemConfigInfo";
const char* const kWhoMountPoint = "PollingHandler::updateFilesystemMountPointInfo";

// Text targets of the colon formats. A tool line is at most 399 characters,
// so no field of it can overrun one of these.
const size_t kFieldSize = 400;

// One row of the attribute table: the field name that the tool prints, which
// is also the name of the FilesystemInfo field, and where its value goes.
// Exactly one of the three targets is set.
struct AttrRow
{
    const char* field;
    long long FilesystemInfo::*int64Target;   // strtoll, base 10
    int FilesystemInfo::*int32Target;         // strtol, base 10
    char (FilesystemInfo::*textTarget)[256];  // copied as text
};

#define QV_ATTR_I64(f) {#f, &FilesystemInfo::f, nullptr, nullptr}
#define QV_ATTR_I32(f) {#f, nullptr, &FilesystemInfo::f, nullptr}
#define QV_ATTR_TEXT(f) {#f, nullptr, nullptr, &FilesystemInfo::f}

const AttrRow kAttributeTable[] = {
    QV_ATTR_I64(minFragmentSize),
    QV_ATTR_I64(inodeSize),
    QV_ATTR_I64(indirectBlockSize),
    QV_ATTR_I64(estimatedAverageFilesize),
    QV_ATTR_I64(numNodes),
    QV_ATTR_I64(blockSize),
    QV_ATTR_I64(maxNumberOfInodes),
    QV_ATTR_I32(defaultMetadataReplicas),
    QV_ATTR_I32(maxMetadataReplicas),
    QV_ATTR_I32(defaultDataReplicas),
    QV_ATTR_I32(maxDataReplicas),
    QV_ATTR_TEXT(blockAllocationType),
    QV_ATTR_TEXT(fileLockingSemantics),
    QV_ATTR_TEXT(ACLSemantics),
    QV_ATTR_TEXT(quotasEnforced),
    QV_ATTR_TEXT(defaultQuotasEnabled),
    QV_ATTR_TEXT(filesystemVersion),
    QV_ATTR_TEXT(supportForLargeLUNs),
    QV_ATTR_TEXT(DMAPIEnabled),
    QV_ATTR_TEXT(exactMtime),
    QV_ATTR_TEXT(suppressAtime),
    QV_ATTR_TEXT(automaticMountOption),
    QV_ATTR_TEXT(additionalMountOptions),
    QV_ATTR_TEXT(defaultMountPoint),
};

#undef QV_ATTR_I64
#undef QV_ATTR_I32
#undef QV_ATTR_TEXT

// Stores one attribute of the filesystem by the table; other field names are
// passed over.
void storeAttribute(FilesystemInfo* fsP, const char* field, const char* data)
{
    for (const AttrRow& row : kAttributeTable) {
        if (strcmp(row.field, field) != 0)
            continue;
        if (row.int64Target != nullptr)
            fsP->*row.int64Target = strtoll(data, nullptr, 10);
        else if (row.int32Target != nullptr)
            fsP->*row.int32Target = static_cast<int>(strtol(data, nullptr, 10));
        else
            qvCopyText(fsP->*row.textTarget, data);
        return;
    }
}

}  // namespace

MErrno PollingHandler::updateFilesystemManagerInfo(ClusterInfo* clusterP)
{
    for (FilesystemInfo* fsP : clusterP->filesystemItems) {
        char cmd[512];
        snprintf(cmd, sizeof(cmd), "%s/%s %s", qv::kToolDir, "vklsmgr", fsP->name);
        kx_log(0, kWhoManager, "cmd = %s\n", cmd);

        qv::ToolRunOptions opts;
        opts.skipFirst = 2;
        qv::ToolRunResult run = qv::runTool(kWhoManager, cmd, [&](char* line) {
            if (line[0] == '\n')
                return false;
            char extractedFsName[kFieldSize];
            char nodeIP[kFieldSize];
            extractedFsName[0] = '\0';
            nodeIP[0] = '\0';
            char* save = nullptr;
            char* token = commandWrapper->getTableNextToken(line, &save);
            if (token != nullptr) {
                qvCopyText(extractedFsName, token);
                token = commandWrapper->getTableNextToken(line, &save);
                if (token != nullptr)
                    qvCopyText(nodeIP, token);
            }
            kx_log(0, kWhoManager, "extractedFsName=%s, nodeIP=%s\n", extractedFsName, nodeIP);
            if (strcmp(extractedFsName, fsP->name) == 0) {
                int nodeIndex = clusterP->getNodeInfoIndex(nodeIP);
                if (nodeIndex >= 0) {
                    qvCopyText(fsP->manager, clusterP->nodeItems[static_cast<size_t>(nodeIndex)]->name);
                    kx_log(0, kWhoManager, "fsP->manager=%s\n", fsP->manager);
                }
            } else {
                kx_log(0, kWhoManager, "file system name does not match\n");
            }
            return true;
        }, opts);
        if (!run.started || run.exitStatus != 0)
            return 1;
    }

    getPollingLock();
    for (FilesystemInfo* fsP : clusterP->filesystemItems) {
        int recipeIndex = recipe->getFilesystemInfoIndex(fsP->name);
        if (recipeIndex >= 0)
            qvCopyText(recipe->filesystemItems[static_cast<size_t>(recipeIndex)]->manager,
                       fsP->manager);
    }
    releasePollingLock();
    return 0;
}

MErrno PollingHandler::updateMountedNodeInfo(ClusterInfo* clusterP)
{
    char cmd[512];
    snprintf(cmd, sizeof(cmd), "%s/vklsmount all_local -Y", qv::kToolDir);

    qv::ToolRunOptions opts;
    opts.skipFirst = 1;
    qv::ToolRunResult run = qv::runTool(kWhoMounted, cmd, [&](char* line) {
        char fsName[kFieldSize];
        char text2[kFieldSize];
        char text3[kFieldSize];
        char nodeAddr[kFieldSize];
        char text5[kFieldSize];
        char text6[kFieldSize];
        int status = 0;
        int version = 0;
        int number = 0;
        initBuf(fsName);
        initBuf(nodeAddr);
        int n = sscanf(line, "vklsmount::%d:%d:::%[^:]:%[^:]:%[^:]:%d:%[^:]:%[^:]:%[^:]:", &status,
                       &version, fsName, text2, text3, &number, nodeAddr, text5, text6);
        percentDecode(fsName);
        percentDecode(nodeAddr);
        if (n != 9) {
            kx_log(0, kWhoMounted, "sscanf match failure\n");
            return true;
        }
        int fsIndex = clusterP->getFilesystemInfoIndex(fsName);
        if (fsIndex < 0)
            return true;
        FilesystemInfo* fsP = clusterP->filesystemItems[static_cast<size_t>(fsIndex)];
        MountedNodeInfo* mountP = nullptr;
        int mountIndex = fsP->getMountedNodeIndex(nodeAddr);
        if (mountIndex >= 0) {
            mountP = fsP->mountedNodeItems[static_cast<size_t>(mountIndex)];
        } else {
            int nodeIndex = clusterP->getNodeInfoIndex(nodeAddr);
            if (nodeIndex < 0) {
                kx_log(1, kWhoMounted, "Error: Couldn't find node\n");
                return true;
            }
            MErrno err = 0;
            mountP = new MountedNodeInfo(&err);
            qvCopyText(mountP->nodeName, clusterP->nodeItems[static_cast<size_t>(nodeIndex)]->name);
            qvCopyText(mountP->nodeIpAddr, nodeAddr);
            fsP->mountedNodeItems.push_back(mountP);
        }
        mountP->found = 1;
        kx_log(0, kWhoMounted, "fsName=%s\n", fsName);
        return true;
    }, opts);
    if (!run.started || run.exitStatus != 0)
        return 1;

    // Mounts that the tool no longer lists go; the others lose their mark.
    for (FilesystemInfo* fsP : clusterP->filesystemItems) {
        kx_log(0, kWhoMounted, "fsName=%s\n", fsP->name);
        for (MountedNodeInfo* mountP : fsP->mountedNodeItems)
            kx_log(0, kWhoMounted, "nodeName=%s\n", mountP->nodeName);
        qv::sweepUnfound(fsP->mountedNodeItems);
        qv::clearFound(fsP->mountedNodeItems);
    }

    getPollingLock();
    for (FilesystemInfo* fsP : clusterP->filesystemItems) {
        int recipeIndex = recipe->getFilesystemInfoIndex(fsP->name);
        if (recipeIndex >= 0)
            recipe->filesystemItems[static_cast<size_t>(recipeIndex)]->copyMountedNodes(fsP);
    }
    releasePollingLock();
    return 0;
}

MErrno PollingHandler::updateFilesystemConfigInfo(ClusterInfo* clusterP)
{
    for (FilesystemInfo* fsP : clusterP->filesystemItems) {
        char cmd[512];
        snprintf(cmd, sizeof(cmd), "%s/%s %s -Y", qv::kToolDir, "vklsfs", fsP->name);
        kx_log(0, kWhoConfig, "cmd = %s\n", cmd);

        qv::ToolRunOptions opts;
        opts.skipFirst = 1;
        qv::ToolRunResult run = qv::runTool(kWhoConfig, cmd, [&](char* line) {
            char deviceName[kFieldSize];
            char fieldName[kFieldSize];
            char data[kFieldSize];
            int status = 0;
            int version = 0;
            initBuf(deviceName);
            initBuf(fieldName);
            initBuf(data);
            int n = sscanf(line, "vklsfs::%d:%d:::%[^:]:%[^:]:%[^:]:", &status, &version,
                           deviceName, fieldName, data);
            percentDecode(deviceName);
            percentDecode(fieldName);
            percentDecode(data);
            if (n != 5) {
                kx_log(0, kWhoConfig, "sscanf match failure\n");
                return true;
            }
            kx_log(0, kWhoConfig, "deviceName=%s, fieldName=%s, data=%s\n", deviceName, fieldName,
                   data);
            if (strcmp(deviceName, fsP->name) != 0)
                return true;
            storeAttribute(fsP, fieldName, data);
            return true;
        }, opts);
        if (!run.started || run.exitStatus != 0)
            return 1;
    }

    getPollingLock();
    for (FilesystemInfo* fsP : clusterP->filesystemItems) {
        int recipeIndex = recipe->getFilesystemInfoIndex(fsP->name);
        if (recipeIndex >= 0)
            *recipe->filesystemItems[static_cast<size_t>(recipeIndex)] = *fsP;
    }
    releasePollingLock();
    return 0;
}

MErrno PollingHandler::updateFilesystemMountPointInfo(ClusterInfo* clusterP)
{
    char cmd[512];
    snprintf(cmd, sizeof(cmd), "%s/vklsfs all -T -Y 2>&1", qv::kToolDir);
    kx_log(0, kWhoMountPoint, "cmd = %s\n", cmd);
    getPollingLock();

    qv::ToolRunOptions opts;
    opts.skipFirst = 1;
    opts.openFailFormat = "Couldn't find %s command\n";
    opts.logExitStatus = false;
    qv::ToolRunResult run = qv::runTool(kWhoMountPoint, cmd, [&](char* line) {
        kx_log(0, kWhoMountPoint, "buf %s\n", line);
        char deviceName[kFieldSize];
        char fieldName[kFieldSize];
        char data[kFieldSize];
        int status = 0;
        int version = 0;
        initBuf(deviceName);
        initBuf(fieldName);
        initBuf(data);
        int n = sscanf(line, "vklsfs::%d:%d:::%[^:]:%[^:]:%[^:]:", &status, &version, deviceName,
                       fieldName, data);
        if (n != 5) {
            kx_log(0, kWhoMountPoint, "sscanf match failure\n");
            return true;
        }
        percentDecode(deviceName);
        percentDecode(fieldName);
        percentDecode(data);
        // The flag says that a scan has come by: every filesystem that the
        // walk reaches gets it, not only the one that matches.
        for (FilesystemInfo* fsP : clusterP->filesystemItems) {
            fsP->mountPointValid = 1;
            if (strcmp(fsP->name, deviceName) != 0)
                continue;
            qvCopyText(fsP->defaultMountPoint, data);
            int recipeIndex = recipe->getFilesystemInfoIndex(fsP->name);
            if (recipeIndex >= 0) {
                FilesystemInfo* recipeFs = recipe->filesystemItems[static_cast<size_t>(recipeIndex)];
                qvCopyText(recipeFs->defaultMountPoint, fsP->defaultMountPoint);
                recipeFs->mountPointValid = 1;
            }
            break;
        }
        return true;
    }, opts);
    if (!run.started) {
        releasePollingLock();
        return 1;
    }
    MErrno result = 0;
    if (run.exitStatus != 0) {
        kx_log(2, kWhoMountPoint, "exit status: %d\n", run.exitStatus);
        result = 1;
    }
    releasePollingLock();
    return result;
}
