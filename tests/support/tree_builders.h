#ifndef QUELVANE_TEST_TREE_BUILDERS_H
#define QUELVANE_TEST_TREE_BUILDERS_H

// Short-hand for putting records straight into an inventory tree (a fresh
// ClusterInfo or the handler's recipe), so that a collector can be tested
// against a known tree without running the collectors that would build it.

#include <cstring>
#include <string>
#include <vector>

#include <quelvane/cluster_info.h>

namespace qvtest {

template <size_t N>
inline void setText(char (&dst)[N], const std::string& text)
{
    memset(dst, 0, N);
    strncpy(dst, text.c_str(), N - 1);
}

inline NodeInfo* addNode(ClusterInfo* tree, const std::string& name, const std::string& ipAddr,
                         const std::string& status = "")
{
    MErrno err = 0;
    NodeInfo* node = new NodeInfo(&err);
    setText(node->name, name);
    setText(node->ipAddr, ipAddr);
    setText(node->status, status);
    tree->nodeItems.push_back(node);
    return node;
}

inline FilesystemInfo* addFs(ClusterInfo* tree, const std::string& name)
{
    MErrno err = 0;
    FilesystemInfo* fs = new FilesystemInfo(&err);
    setText(fs->name, name);
    tree->filesystemItems.push_back(fs);
    return fs;
}

inline StoragePoolInfo* addPool(FilesystemInfo* fs, const std::string& name)
{
    MErrno err = 0;
    StoragePoolInfo* pool = new StoragePoolInfo(&err);
    setText(pool->name, name);
    fs->poolItems.push_back(pool);
    return pool;
}

inline DiskInfo* addDisk(StoragePoolInfo* pool, const std::string& name)
{
    MErrno err = 0;
    DiskInfo* disk = new DiskInfo(&err);
    setText(disk->name, name);
    pool->diskItems.push_back(disk);
    return disk;
}

inline DiskInfo* addFreeDisk(ClusterInfo* tree, const std::string& name)
{
    MErrno err = 0;
    DiskInfo* disk = new DiskInfo(&err);
    disk->isFree = 1;
    setText(disk->name, name);
    tree->freeDiskItems.push_back(disk);
    return disk;
}

inline DiskServerInfo* addServer(std::vector<DiskServerInfo*>& items, const std::string& name)
{
    MErrno err = 0;
    DiskServerInfo* server = new DiskServerInfo(&err);
    setText(server->name, name);
    items.push_back(server);
    return server;
}

// The names of a vector of records, in order.
template <class T>
inline std::vector<std::string> namesOf(const std::vector<T*>& items)
{
    std::vector<std::string> out;
    for (T* item : items)
        out.push_back(item->name);
    return out;
}

} // namespace qvtest

#endif
