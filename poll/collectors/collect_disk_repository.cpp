// The disk repository scan: the one collector that decides which filesystems,
// pools and disks exist. It reads the repository's disk list with vksdrquery,
// creates what it has not seen before, marks what it sees, and sweeps the rest
// out of the recipe. It takes no lock: it runs on the event thread as well as
// on the application's.

#include <sys/time.h>

#include <cstdio>
#include <cstring>
#include <string>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>
#include <quelvane/command_wrapper_utils.h>
#include <quelvane/kx_log.h>

#include "poll/handler_internal.h"
#include "poll/records/records_text_internal.h"
#include "poll/sweep_internal.h"
#include "poll/tools/tool_runner_internal.h"

namespace {

const char* const kWhoScan = "PollingHandler::updateDiskSDRInfo";
const char* const kWhoServers = "PollingHandler::updateDiskServerInfo";

// Return code of a repository line after which nothing more is read.
const int kRcStop = 19;

// Column 3006 decides what a disk holds; any other text leaves both marks.
void applyUsage(DiskInfo* disk, const char* usage)
{
    if (strcmp(usage, "dataOnly") == 0) {
        qvCopyText(disk->holdsMetadata, "n");
        qvCopyText(disk->holdsData, "y");
    } else if (strcmp(usage, "dataAndMetadata") == 0) {
        qvCopyText(disk->holdsMetadata, "y");
        qvCopyText(disk->holdsData, "y");
    } else if (strcmp(usage, "metadataOnly") == 0) {
        qvCopyText(disk->holdsMetadata, "y");
        qvCopyText(disk->holdsData, "n");
    }
}

// The columns of one repository line. A line is at most 399 characters, so
// no field can be longer than its buffer.
struct RepositoryLine
{
    int rc = 0;
    int unused = 0;
    char diskName[400] = {};      // 3001
    char fsName[400] = {};        // 3004
    char poolName[400] = {};      // 3005
    char usage[400] = {};         // 3006
    char field3007[400] = {};     // 3007
    char field3008[400] = {};     // 3008
    char serverList[400] = {};    // 3002
    char backupList[400] = {};    // 3003
};

// Fills the server vector of a disk with the names of `list` (cut at commas)
// that are nodes of the recipe. The old records are freed.
void fillServers(ClusterInfo* recipe, CommandWrapperUtils* cw, std::vector<DiskServerInfo*>& items,
                 char* list)
{
    for (DiskServerInfo* s : items)
        delete s;
    items.clear();
    if (list == nullptr)
        return;
    for (char* name = cw->beginListParsing(list); name != nullptr; name = cw->getListNextToken()) {
        if (recipe->getNodeInfoIndexByName(name) < 0)
            continue;
        MErrno err = 0;
        DiskServerInfo* server = new DiskServerInfo(&err);
        qvCopyText(server->name, name);
        items.push_back(server);
    }
}

}  // namespace

int PollingHandler::updateDiskSDRInfo(int noRefresh)
{
    const std::string cmd =
        qv::repositoryQueryCommand(30, {3001, 3004, 3005, 3006, 3007, 3008, 3002, 3003}, noRefresh);

    int result = 0;
    RepositoryLine col;
    qv::ToolRunResult run = qv::runTool(kWhoScan, cmd.c_str(), [&](char* line) {
        // 3006 and 3008 are not emptied, nor is the return code: a short
        // line keeps what the line before left there.
        initBuf(col.diskName);
        initBuf(col.fsName);
        initBuf(col.poolName);
        initBuf(col.field3007);
        initBuf(col.serverList);
        initBuf(col.backupList);
        sscanf(line, "vksdrquery:sdrq_nsd_info:%d:%d:::%[^:]:%[^:]:%[^:]:%[^:]:%[^:]:%[^:]:%[^:]:%[^:]:",
               &col.rc, &col.unused, col.diskName, col.fsName, col.poolName, col.usage, col.field3007,
               col.field3008, col.serverList, col.backupList);
        percentDecode(col.serverList);
        percentDecode(col.backupList);

        if (col.rc == kRcStop) {
            kx_log(0, kWhoScan, "rc %d\n", col.rc);
            return false;
        }
        kx_log(0, kWhoScan, "diskName=%s, fsName=%s, poolName=%s\n", col.diskName, col.fsName,
               col.poolName);
        if (col.diskName[0] == '\0' || col.fsName[0] == '\0')
            return true;
        kx_log(0, kWhoScan, "serverList=%s\n", col.serverList);
        kx_log(0, kWhoScan, "backupServerList=%s\n", col.backupList);

        DiskInfo* disk;
        if (strcmp(col.fsName, "free_disk") == 0) {
            int index = recipe->getFreeDiskInfoIndex(col.diskName);
            if (index < 0) {
                kx_log(0, kWhoScan, "diskName=%s, freeDiskIndex %d\n", col.diskName, index);
                MErrno err = 0;
                disk = new DiskInfo(&err);
                disk->isFree = 1;
                qvCopyText(disk->name, col.diskName);
                qvCopyText(disk->poolName, col.poolName);
                qvCopyText(disk->sdrField3007, col.field3007);
                qvCopyText(disk->sdrField3008, col.field3008);
                applyUsage(disk, col.usage);
                recipe->freeDiskItems.push_back(disk);
                kx_log(0, kWhoScan, "freeDiskItems %d\n",
                       static_cast<int>(recipe->freeDiskItems.size()));
            } else {
                disk = recipe->freeDiskItems[static_cast<size_t>(index)];
            }
            disk->found = 1;
        } else {
            FilesystemInfo* fs;
            int fsIndex = recipe->getFilesystemInfoIndex(col.fsName);
            if (fsIndex < 0) {
                MErrno err = 0;
                fs = new FilesystemInfo(&err);
                qvCopyText(fs->name, col.fsName);
                recipe->filesystemItems.push_back(fs);
            } else {
                fs = recipe->filesystemItems[static_cast<size_t>(fsIndex)];
            }
            fs->found = 1;
            kx_log(0, kWhoScan, "fs %s found\n", fs->name);

            StoragePoolInfo* pool;
            int poolIndex = fs->getStoragePoolInfoIndex(col.poolName);
            if (poolIndex < 0) {
                MErrno err = 0;
                pool = new StoragePoolInfo(&err);
                qvCopyText(pool->name, col.poolName);
                fs->poolItems.push_back(pool);
            } else {
                pool = fs->poolItems[static_cast<size_t>(poolIndex)];
            }
            pool->found = 1;
            kx_log(0, kWhoScan, "pool %s found\n", pool->name);

            int diskIndex = pool->getDiskInfoIndex(col.diskName);
            if (diskIndex < 0) {
                MErrno err = 0;
                disk = new DiskInfo(&err);
                qvCopyText(disk->name, col.diskName);
                pool->diskItems.push_back(disk);
            } else {
                disk = pool->diskItems[static_cast<size_t>(diskIndex)];
            }
            disk->found = 1;
            kx_log(0, kWhoScan, "disk %s found\n", disk->name);
            applyUsage(disk, col.usage);
            qvCopyText(disk->sdrField3007, col.field3007);
            qvCopyText(disk->sdrField3008, col.field3008);
        }
        result = updateDiskServerInfo(disk, col.serverList, col.backupList);
        return true;
    });
    if (!run.started)
        return 1;
    if (run.exitStatus != 0)
        result = 1;

    // The sweep, from the bottom up: disks of each pool, the pool, then the
    // filesystem; last the free disks, which go without a log line.
    qv::sweepAndClearFound(
        recipe->filesystemItems,
        [](FilesystemInfo* fs) {
            qv::sweepAndClearFound(
                fs->poolItems,
                [](StoragePoolInfo* pool) {
                    qv::sweepAndClearFound(pool->diskItems, [](DiskInfo*) {}, [](DiskInfo* disk) {
                        kx_log(0, kWhoScan, "Erase disk %s\n", disk->name);
                    });
                },
                [](StoragePoolInfo* pool) { kx_log(0, kWhoScan, "Erase pool %s\n", pool->name); });
        },
        [](FilesystemInfo* fs) { kx_log(0, kWhoScan, "Erase fs %s\n", fs->name); });
    qv::sweepAndClearFound(recipe->freeDiskItems, [](DiskInfo*) {}, [](DiskInfo*) {});

    gettimeofday(&recipe->diskSdrUpdateTime, nullptr);

    // The latch is read without the lock, as this scan holds none; once set it
    // stays set, and the wake-up (which locks) is not called again.
    if (qv::readFlag(TimerPollConditionMet) == 0)
        wakeupTimerThread();
    return result;
}

int PollingHandler::updateDiskServerInfo(DiskInfo* diskP, char* serverList, char* backupServerList)
{
    kx_log(0, kWhoServers, "diskName=%s\n", diskP->name);
    fillServers(recipe, commandWrapper, diskP->serverItems, serverList);
    fillServers(recipe, commandWrapper, diskP->backupServerItems, backupServerList);
    kx_log(0, kWhoServers, "num server = %d\n", static_cast<int>(diskP->serverItems.size()));
    return 0;
}
