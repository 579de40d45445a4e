// Pools and disks: the pools of a filesystem from "get stgpools", the disks of
// a pool from "get fs <fs> <pool>" with, on request, their I/O counters from
// "tavrel ds". Both write the recipe under the polling lock and then bring the
// caller's tree into line with it.

#include <sys/time.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>
#include <quelvane/tavrel_wrapper_utils.h>

#include "poll/keyword_scan_internal.h"

namespace {

// A name handed out by getBufferedValue, which leaves a value of 256 bytes or
// more without a terminator of its own: kept to what a key field can hold.
struct KeyText
{
    char text[256];
    explicit KeyText(const char* value)
    {
        size_t n = strnlen(value, sizeof(text) - 1);
        memcpy(text, value, n);
        text[n] = '\0';
    }
};

// The three disk texts of "get fs" are the tree's limited copies: at most 256
// characters, with no terminator behind them when the text fills the array.
template <size_t N>
qv::KwField kwLimitedText(const char* keyword, char (&dst)[N])
{
    static_assert(N == 256, "limited copies go into the 256-character texts");
    return qv::kwCustom(keyword, [&dst](char* value, TavrelWrapperUtils*) {
        strncpy(dst, value, N);
    });
}

// _stw_: a shortest time that is already set only goes down (to 0.0 as
// well); one that is still 0.0 takes the first value above 0.0.
void takeShortest(double& shortest, double value)
{
    if (shortest != 0.0) {
        if (value < shortest)
            shortest = value;
    } else if (value > 0.0) {
        shortest = value;
    }
}

// Scans one "_r_" or "_w_" line of "tavrel ds" into the disk and its pool.
void scanIoLine(TavrelWrapperUtils* tw, DiskInfo* disk, StoragePoolInfo* pool, bool reads)
{
    double& diskTime = reads ? disk->readTime : disk->writeTime;
    double& poolTime = reads ? pool->readTime : pool->writeTime;
    double& longest = reads ? disk->longestReadTime : disk->longestWriteTime;
    double& shortest = reads ? disk->shortestReadTime : disk->shortestWriteTime;
    unsigned long long& diskBytes = reads ? disk->bytesRead : disk->bytesWritten;
    unsigned long long& poolBytes = reads ? pool->bytesRead : pool->bytesWritten;
    unsigned int& ops = reads ? disk->readOps : disk->writeOps;

    const qv::KwField table[] = {
        qv::kwCustom("_tw_", [&](char* v, TavrelWrapperUtils*) {
            double t = strtod(v, nullptr);
            diskTime += t;
            poolTime += t;
        }),
        qv::kwCustom("_ltw_", [&](char* v, TavrelWrapperUtils*) {
            double t = strtod(v, nullptr);
            if (t > longest)
                longest = t;
        }),
        qv::kwCustom("_stw_", [&](char* v, TavrelWrapperUtils*) {
            takeShortest(shortest, strtod(v, nullptr));
        }),
        qv::kwCustom("_b_", [&](char* v, TavrelWrapperUtils*) {
            unsigned long long b = strtoull(v, nullptr, 10);
            diskBytes += b;
            poolBytes += b;
        }),
        qv::kwCustom("_ops_", [&](char* v, TavrelWrapperUtils*) {
            ops += static_cast<unsigned int>(strtoul(v, nullptr, 10));
        }),
    };
    qv::keywordScan(tw, table, 5);
}

void stampNow(struct timeval& tv)
{
    gettimeofday(&tv, nullptr);
}

}  // namespace

int PollingHandler::updateStoragePoolInfo(ClusterInfo* clusterP, char* fsName)
{
    getPollingLock();
    int fsIndex = -1;
    size_t start = 0;
    if (fsName != nullptr) {
        fsIndex = recipe->getFilesystemInfoIndex(fsName);
        if (fsIndex < 0) {
            releasePollingLock();
            return 1;
        }
        start = static_cast<size_t>(fsIndex);
    }
    if (checkFailedNode() == 1) {
        releasePollingLock();
        return 1;
    }

    TavrelWrapperUtils* tw = tavrelWrapper;
    if (!recipe->filesystemItems.empty()) {
        size_t end = fsName != nullptr ? start + 1 : recipe->filesystemItems.size();
        for (size_t i = start; i < end && i < recipe->filesystemItems.size(); i++) {
            FilesystemInfo* fs = recipe->filesystemItems[i];

            std::vector<char> cmd(strlen(fs->name) + 17);
            snprintf(cmd.data(), cmd.size(), "%s %s", "get stgpools", fs->name);
            processCommand(cmd.data());
            tw->prepBuffer();

            while (tw->getNextInstance("_pool_")) {
                KeyText name(tw->getBufferedValue("_pool_", 1, 256));
                int poolIndex = fs->getStoragePoolInfoIndex(name.text);
                StoragePoolInfo* pool;
                if (poolIndex < 0) {
                    MErrno err = 0;
                    pool = new StoragePoolInfo(&err);
                    strcpy(pool->name, name.text);
                    fs->poolItems.push_back(pool);
                } else {
                    pool = fs->poolItems[static_cast<size_t>(poolIndex)];
                }

                const qv::KwField table[] = {
                    qv::kwText("_status_", pool->status),
                    qv::kwI32("_ndisks_", &pool->nDisks),
                    qv::kwI64("_totalspace_", &pool->totalSpace),
                    qv::kwI64("_freespace_", &pool->freeSpace),
                };
                qv::keywordScan(tw, table, 4);
                pool->fsIndex = static_cast<int>(i);
            }
            tw->cleanupCommand();
            stampNow(fs->poolUpdateTime);
        }
    }

    clusterP->copyFS(recipe);
    for (size_t i = 0; i < recipe->filesystemItems.size() && i < clusterP->filesystemItems.size();
         i++) {
        if (fsName != nullptr && i != static_cast<size_t>(fsIndex))
            continue;
        clusterP->filesystemItems[i]->copyPools(recipe->filesystemItems[i]);
    }

    releasePollingLock();
    return 0;
}

int PollingHandler::updateDiskInfo(ClusterInfo* clusterP, char* fsName, char* poolName, int withPerf)
{
    getPollingLock();
    int fsIndex = recipe->getFilesystemInfoIndex(fsName);
    if (fsIndex < 0) {
        releasePollingLock();
        return 1;
    }
    FilesystemInfo* fs = recipe->filesystemItems[static_cast<size_t>(fsIndex)];
    int poolIndex = -1;
    if (poolName != nullptr) {
        poolIndex = fs->getStoragePoolInfoIndex(poolName);
        if (poolIndex < 0) {
            releasePollingLock();
            return 1;
        }
    }
    if (checkFailedNode() == 1) {
        releasePollingLock();
        return 1;
    }

    TavrelWrapperUtils* tw = tavrelWrapper;
    size_t first = poolName != nullptr ? static_cast<size_t>(poolIndex) : 0;
    size_t end = poolName != nullptr ? first + 1 : fs->poolItems.size();
    for (size_t p = first; p < end && p < fs->poolItems.size(); p++) {
        StoragePoolInfo* pool = fs->poolItems[p];
        pool->clearStats();

        std::vector<char> cmd(strlen(fs->name) + strlen(pool->name) + 14);
        snprintf(cmd.data(), cmd.size(), "%s %s %s", "get fs", fs->name, pool->name);
        processCommand(cmd.data());
        tw->prepBuffer();

        while (tw->getNextInstance("_disk_")) {
            KeyText name(tw->getBufferedValue("_disk_", 1, 256));
            int diskIndex = pool->getDiskInfoIndex(name.text);
            if (diskIndex < 0)
                continue;
            DiskInfo*& slot = pool->diskItems[static_cast<size_t>(diskIndex)];
            if (slot == nullptr) {
                MErrno err = 0;
                slot = new DiskInfo(&err);
            }
            DiskInfo* disk = slot;
            disk->clearStats();
            strcpy(disk->poolName, pool->name);

            const qv::KwField table[] = {
                kwLimitedText("_status_", disk->status),
                kwLimitedText("_availability_", disk->availability),
                kwLimitedText("_diskwait_", disk->diskWait),
                qv::kwI64("_totalspace_", &disk->totalSpace),
                qv::kwI64("_fullblockfreespace_", &disk->fullBlockFreeSpace),
                qv::kwI64("_fragfreespace_", &disk->fragFreeSpace),
            };
            qv::keywordScan(tw, table, 10);
        }
        tw->cleanupCommand();

        if (withPerf != 0) {
            std::string ds = std::string("tavrel ds") + " f cl " + recipe->clusterName + " fs " +
                             fs->name + " p " + pool->name;
            processCommand(ds.c_str());
            tw->prepBuffer();

            int instance = 0;
            while (tw->getNextInstance("_tavrel")) {
                instance++;
                KeyText rcText(tw->getBufferedValue("_rc_", 0, 256));
                int rc = static_cast<int>(strtol(rcText.text, nullptr, 10));
                if (rc != 0) {
                    if (debug != 0)
                        fprintf(stderr, "_warning_ %d instance: 'tavrel ds' returned error (rc=%d)\n",
                                instance, rc);
                    continue;
                }
                KeyText diskName(tw->getBufferedValue("_d_", 0, 256));
                int diskIndex = pool->getDiskInfoIndex(diskName.text);
                if (diskIndex < 0)
                    continue;
                DiskInfo* disk = pool->diskItems[static_cast<size_t>(diskIndex)];
                KeyText nodeName(tw->getBufferedValue("_nn_", 0, 256));
                strcpy(disk->nodeName, nodeName.text);

                if (tw->getNextInstance("_r_"))
                    scanIoLine(tw, disk, pool, true);
                if (!tw->getNextInstance("_w_"))
                    continue;
                scanIoLine(tw, disk, pool, false);
                disk->perfInstanceCount++;
            }
            tw->cleanupCommand();
            stampNow(pool->diskPerfUpdateTime);
        }
        stampNow(pool->diskUpdateTime);
    }

    // The caller's tree follows the recipe position by position, over every
    // filesystem: with a pool named, the pool at that position of each
    // filesystem has its disks copied.
    clusterP->copyFS(recipe);
    for (size_t i = 0; i < recipe->filesystemItems.size() && i < clusterP->filesystemItems.size();
         i++) {
        FilesystemInfo* srcFs = recipe->filesystemItems[i];
        FilesystemInfo* dstFs = clusterP->filesystemItems[i];
        dstFs->copyPools(srcFs);
        for (size_t j = 0; j < srcFs->poolItems.size() && j < dstFs->poolItems.size(); j++) {
            if (poolName != nullptr && j != static_cast<size_t>(poolIndex))
                continue;
            StoragePoolInfo* srcPool = srcFs->poolItems[j];
            StoragePoolInfo* dstPool = dstFs->poolItems[j];
            dstPool->copyDisks(srcPool);
            for (size_t k = 0; k < srcPool->diskItems.size() && k < dstPool->diskItems.size(); k++) {
                dstPool->diskItems[k]->copyServers(srcPool->diskItems[k]);
                dstPool->diskItems[k]->copyBackupServers(srcPool->diskItems[k]);
            }
        }
    }

    releasePollingLock();
    return 0;
}
