#include "sim/model.h"

#include <algorithm>

namespace qvsim {
// ---------------------------------------------------------------------------
// Model lookups and changes.

namespace {

template <typename C, typename N>
auto findNode(C& nodes, const std::string& key) -> N*
{
    for (auto& n : nodes)
        if (n.name == key || n.ipAddr == key)
            return &n;
    return nullptr;
}

void eraseName(std::vector<std::string>& v, const std::string& s)
{
    v.erase(std::remove(v.begin(), v.end(), s), v.end());
}

template <typename F>
void forEachDisk(SimCluster& c, F f)
{
    for (auto& fs : c.filesystems)
        for (auto& p : fs.pools)
            for (auto& d : p.disks)
                f(d);
    for (auto& d : c.freeDisks)
        f(d);
}

} // namespace

SimNode* SimCluster::node(const std::string& key)
{
    return findNode<std::vector<SimNode>, SimNode>(nodes, key);
}

const SimNode* SimCluster::node(const std::string& key) const
{
    return findNode<const std::vector<SimNode>, const SimNode>(nodes, key);
}

SimFilesystem* SimCluster::filesystem(const std::string& name)
{
    for (auto& fs : filesystems)
        if (fs.name == name)
            return &fs;
    return nullptr;
}

const SimFilesystem* SimCluster::filesystem(const std::string& name) const
{
    for (auto& fs : filesystems)
        if (fs.name == name)
            return &fs;
    return nullptr;
}

SimPool* SimCluster::pool(const std::string& fsName, const std::string& poolName)
{
    SimFilesystem* fs = filesystem(fsName);
    if (fs == nullptr)
        return nullptr;
    for (auto& p : fs->pools)
        if (p.name == poolName)
            return &p;
    return nullptr;
}

const SimPool* SimCluster::pool(const std::string& fsName, const std::string& poolName) const
{
    const SimFilesystem* fs = filesystem(fsName);
    if (fs == nullptr)
        return nullptr;
    for (auto& p : fs->pools)
        if (p.name == poolName)
            return &p;
    return nullptr;
}

SimDisk* SimCluster::disk(const std::string& name)
{
    SimDisk* found = nullptr;
    forEachDisk(*this, [&](SimDisk& d) {
        if (found == nullptr && d.name == name)
            found = &d;
    });
    return found;
}

void SimCluster::removeNode(const std::string& key)
{
    SimNode* n = node(key);
    if (n == nullptr)
        return;
    const std::string name = n->name;
    const std::string ip = n->ipAddr;
    nodes.erase(std::find_if(nodes.begin(), nodes.end(),
                             [&](const SimNode& x) { return x.ipAddr == ip; }));
    forEachDisk(*this, [&](SimDisk& d) {
        eraseName(d.servers, name);
        eraseName(d.backupServers, name);
        d.paths.erase(std::remove_if(d.paths.begin(), d.paths.end(),
                                     [&](const SimDiskPath& p) { return p.nodeName == name; }),
                      d.paths.end());
        d.io.erase(std::remove_if(d.io.begin(), d.io.end(),
                                  [&](const SimDiskIo& i) { return i.nodeName == name; }),
                   d.io.end());
    });
    for (auto& fs : filesystems) {
        eraseName(fs.mountedBy, ip);
        fs.counters.erase(std::remove_if(fs.counters.begin(), fs.counters.end(),
                                         [&](const SimFsCounters& k) { return k.nodeIp == ip; }),
                          fs.counters.end());
        if (fs.managerIp == ip)
            fs.managerIp.clear();
    }
    if (clusterManagerIp == ip)
        clusterManagerIp.clear();
}

void SimCluster::moveDisk(const std::string& diskName, const std::string& fsName,
                          const std::string& poolName)
{
    SimDisk moved;
    bool have = false;
    for (auto& fs : filesystems)
        for (auto& p : fs.pools)
            for (auto it = p.disks.begin(); !have && it != p.disks.end(); ++it)
                if (it->name == diskName) {
                    moved = *it;
                    p.disks.erase(it);
                    have = true;
                    break;
                }
    for (auto it = freeDisks.begin(); !have && it != freeDisks.end(); ++it)
        if (it->name == diskName) {
            moved = *it;
            freeDisks.erase(it);
            have = true;
            break;
        }
    if (!have)
        return;
    SimFilesystem* fs = filesystem(fsName);
    if (fs == nullptr) {
        filesystems.push_back(SimFilesystem());
        filesystems.back().name = fsName;
        fs = &filesystems.back();
    }
    SimPool* p = pool(fsName, poolName);
    if (p == nullptr) {
        fs->pools.push_back(SimPool());
        fs->pools.back().name = poolName;
        p = &fs->pools.back();
    }
    p->disks.push_back(moved);
}

void SimCluster::deleteFilesystem(const std::string& name)
{
    auto it = std::find_if(filesystems.begin(), filesystems.end(),
                           [&](const SimFilesystem& fs) { return fs.name == name; });
    if (it == filesystems.end())
        return;
    for (auto& p : it->pools)
        for (auto& d : p.disks) {
            SimDisk freed = d;
            freed.freePoolName = p.name;
            freed.sizeKB = d.totalSpace / 1024;
            freed.io.clear();
            freeDisks.push_back(freed);
        }
    filesystems.erase(it);
}
} // namespace qvsim
