// Operations on the recipe's tree: its creation, a deep copy for the command
// thread, the shallow copy for the application, the generation number.

#include <sys/time.h>

#include <cstring>
#include <vector>

#include <quelvane/api_poll.h>

#include "poll/handler_internal.h"

#include <quelvane/cluster_info.h>

namespace {

// initClusterRecipe forgets records without freeing them; they are kept
// listed here so that they stay reachable for the life of the process.
struct ForgottenRecords
{
    std::vector<NodeInfo*> nodes;
    std::vector<FilesystemInfo*> filesystems;
    std::vector<StoragePoolInfo*> pools;
    std::vector<DiskInfo*> disks;
};

ForgottenRecords& forgotten()
{
    static ForgottenRecords* records = new ForgottenRecords;
    return *records;
}

void copyTexts(ClusterInfo* dst, const ClusterInfo* src)
{
    memcpy(dst->clusterName, src->clusterName, sizeof(dst->clusterName));
    memcpy(dst->sdrField1002, src->sdrField1002, sizeof(dst->sdrField1002));
    memcpy(dst->sdrField1003, src->sdrField1003, sizeof(dst->sdrField1003));
    memcpy(dst->maxFeature, src->maxFeature, sizeof(dst->maxFeature));
    memcpy(dst->sdrField1008, src->sdrField1008, sizeof(dst->sdrField1008));
    memcpy(dst->sdrField1006, src->sdrField1006, sizeof(dst->sdrField1006));
    memcpy(dst->sdrField1007, src->sdrField1007, sizeof(dst->sdrField1007));
    memcpy(dst->sdrField1004, src->sdrField1004, sizeof(dst->sdrField1004));
    memcpy(dst->sdrField1005, src->sdrField1005, sizeof(dst->sdrField1005));
}

// Both servers vectors of a disk, from the disk at the same position.
void copyDiskServers(DiskInfo* dst, DiskInfo* src)
{
    dst->copyServers(src);
    dst->copyBackupServers(src);
}

}  // namespace

namespace qv {

ClusterInfo* newRecipeTree()
{
    MErrno err = 0;
    return new ClusterInfo(&err);
}

void deleteRecipeTree(ClusterInfo* tree)
{
    delete tree;
}

bool recipeScanned(ClusterInfo* tree)
{
    return tree->nodeUpdateTime.tv_sec != 0 && tree->diskSdrUpdateTime.tv_sec != 0;
}

void stampClusterUpdate(ClusterInfo* tree)
{
    if (tree != nullptr)
        gettimeofday(&tree->clusterUpdateTime, nullptr);
}

unsigned int recipeGenNumber(ClusterInfo* tree)
{
    return tree != nullptr ? tree->sdrfsGenNumber : 0;
}

int clusterInfoSize()
{
    return static_cast<int>(sizeof(ClusterInfo));
}

}  // namespace qv

MErrno PollingHandler::initClusterRecipe(ClusterInfo* tree)
{
    memset(tree->clusterName, 0, sizeof(tree->clusterName));
    memset(tree->sdrField1002, 0, sizeof(tree->sdrField1002));
    memset(tree->sdrField1003, 0, sizeof(tree->sdrField1003));
    memset(tree->maxFeature, 0, sizeof(tree->maxFeature));

    ForgottenRecords& keep = forgotten();
    keep.nodes.insert(keep.nodes.end(), tree->nodeItems.begin(), tree->nodeItems.end());
    tree->nodeItems.resize(0);
    for (FilesystemInfo* fs : tree->filesystemItems) {
        for (StoragePoolInfo* pool : fs->poolItems) {
            keep.disks.insert(keep.disks.end(), pool->diskItems.begin(), pool->diskItems.end());
            pool->diskItems.resize(0);
        }
        keep.pools.insert(keep.pools.end(), fs->poolItems.begin(), fs->poolItems.end());
        fs->poolItems.resize(0);
    }
    keep.filesystems.insert(keep.filesystems.end(), tree->filesystemItems.begin(),
                            tree->filesystemItems.end());
    tree->filesystemItems.resize(0);
    return 0;
}

MErrno PollingHandler::copyRecipe(ClusterInfo* dst)
{
    getPollingLock();
    if (recipe == nullptr) {
        releasePollingLock();
        return 0;
    }
    copyTexts(dst, recipe);
    dst->maxBlockSize = recipe->maxBlockSize;

    dst->copyNodes(recipe);
    for (size_t i = 0; i < recipe->nodeItems.size() && i < dst->nodeItems.size(); i++)
        dst->nodeItems[i]->copyDiskAccesses(recipe->nodeItems[i]);

    dst->copyFS(recipe);
    for (size_t i = 0; i < recipe->filesystemItems.size() && i < dst->filesystemItems.size(); i++) {
        FilesystemInfo* srcFs = recipe->filesystemItems[i];
        FilesystemInfo* dstFs = dst->filesystemItems[i];
        dstFs->copyPools(srcFs);
        for (size_t j = 0; j < srcFs->poolItems.size() && j < dstFs->poolItems.size(); j++) {
            StoragePoolInfo* srcPool = srcFs->poolItems[j];
            StoragePoolInfo* dstPool = dstFs->poolItems[j];
            dstPool->copyDisks(srcPool);
            for (size_t k = 0; k < srcPool->diskItems.size() && k < dstPool->diskItems.size(); k++)
                copyDiskServers(dstPool->diskItems[k], srcPool->diskItems[k]);
        }
    }

    dst->copyFreeDisks(recipe);
    for (size_t i = 0; i < recipe->freeDiskItems.size() && i < dst->freeDiskItems.size(); i++)
        copyDiskServers(dst->freeDiskItems[i], recipe->freeDiskItems[i]);

    releasePollingLock();
    return 0;
}

MErrno PollingHandler::getClusterInfo(ClusterInfo* dst)
{
    copyTexts(dst, recipe);
    dst->maxBlockSize = recipe->maxBlockSize;
    dst->minMissedPingTimeout = recipe->minMissedPingTimeout;
    dst->maxMissedPingTimeout = recipe->maxMissedPingTimeout;
    dst->sdrfsGenNumber = recipe->sdrfsGenNumber;
    dst->copyNodes(recipe);
    dst->copyFS(recipe);
    dst->clusterUpdateTime.tv_sec = recipe->clusterUpdateTime.tv_sec;
    dst->clusterUpdateTime.tv_usec = recipe->clusterUpdateTime.tv_usec;
    return 0;
}

unsigned int PollingHandler::getSdrfsGenNumberFromRecipe()
{
    return recipe->sdrfsGenNumber;
}

MErrno PollingHandler::updateSdrfsGenNumber(unsigned int number)
{
    recipe->sdrfsGenNumber = number;
    return 0;
}
