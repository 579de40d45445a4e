#ifndef QUELVANE_TEST_TREE_BUILDER_H
#define QUELVANE_TEST_TREE_BUILDER_H

// Short-hand for putting records straight into an inventory tree (a fresh
// ClusterInfo or the handler's recipe), so that a collector can be tested
// against a known tree without running the collectors that would build it.

#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include <quelvane/cluster_info.h>

namespace qvtest {

// Fills a fixed text field: the whole array is cleared first, the text is
// truncated to fit and always terminated.
template <size_t N>
inline void setText(char (&dst)[N], const std::string& text)
{
    memset(dst, 0, N);
    strncpy(dst, text.c_str(), N - 1);
}

inline NodeInfo* addNode(ClusterInfo* c, const std::string& name, const std::string& ip,
                         const std::string& status = "")
{
    MErrno err = 0;
    NodeInfo* n = new NodeInfo(&err);
    setText(n->name, name);
    setText(n->ipAddr, ip);
    setText(n->status, status);
    c->nodeItems.push_back(n);
    return n;
}

inline FilesystemInfo* addFs(ClusterInfo* c, const std::string& name)
{
    MErrno err = 0;
    FilesystemInfo* f = new FilesystemInfo(&err);
    setText(f->name, name);
    c->filesystemItems.push_back(f);
    return f;
}

inline StoragePoolInfo* addPool(FilesystemInfo* f, const std::string& name)
{
    MErrno err = 0;
    StoragePoolInfo* p = new StoragePoolInfo(&err);
    setText(p->name, name);
    f->poolItems.push_back(p);
    return p;
}

inline DiskServerInfo* addServer(std::vector<DiskServerInfo*>& v, const std::string& name)
{
    MErrno err = 0;
    DiskServerInfo* srv = new DiskServerInfo(&err);
    setText(srv->name, name);
    v.push_back(srv);
    return srv;
}

inline void addServers(std::vector<DiskServerInfo*>& v, std::initializer_list<const char*> names)
{
    for (const char* s : names)
        addServer(v, s);
}

// A disk with its primary and backup servers, not yet in any tree.
inline DiskInfo* makeDisk(const std::string& name, std::initializer_list<const char*> servers = {},
                          std::initializer_list<const char*> backups = {})
{
    MErrno err = 0;
    DiskInfo* d = new DiskInfo(&err);
    setText(d->name, name);
    addServers(d->serverItems, servers);
    addServers(d->backupServerItems, backups);
    return d;
}

inline DiskInfo* addDisk(StoragePoolInfo* p, const std::string& name,
                         std::initializer_list<const char*> servers = {},
                         std::initializer_list<const char*> backups = {})
{
    DiskInfo* d = makeDisk(name, servers, backups);
    p->diskItems.push_back(d);
    return d;
}

inline DiskInfo* addFreeDisk(ClusterInfo* c, const std::string& name,
                             std::initializer_list<const char*> servers = {})
{
    DiskInfo* d = makeDisk(name, servers);
    d->isFree = 1;
    c->freeDiskItems.push_back(d);
    return d;
}

inline DiskAccessInfo* addAccess(NodeInfo* n, const std::string& disk, int local,
                                 const std::string& device, const std::string& server)
{
    MErrno err = 0;
    DiskAccessInfo* a = new DiskAccessInfo(&err);
    setText(a->diskName, disk);
    a->local = local;
    setText(a->deviceName, device);
    setText(a->serverName, server);
    n->diskAccessItems.push_back(a);
    return a;
}

inline MountedNodeInfo* addMount(FilesystemInfo* f, const std::string& name, const std::string& ip)
{
    MErrno err = 0;
    MountedNodeInfo* m = new MountedNodeInfo(&err);
    setText(m->nodeName, name);
    setText(m->nodeIpAddr, ip);
    f->mountedNodeItems.push_back(m);
    return m;
}

inline PolicyInfo* addPolicy(FilesystemInfo* f, const std::string& name, const std::string& user,
                             const std::string& installTime)
{
    MErrno err = 0;
    PolicyInfo* p = new PolicyInfo(&err);
    setText(p->name, name);
    setText(p->userName, user);
    setText(p->installTime, installTime);
    f->policyItems.push_back(p);
    return p;
}

inline RuleInfo* addRule(PolicyInfo* p, const std::string& name, const std::string& desc)
{
    MErrno err = 0;
    RuleInfo* r = new RuleInfo(&err);
    setText(r->name, name);
    setText(r->desc, desc);
    p->ruleItems.push_back(r);
    return r;
}

// A path as one comparable text: "disk/local/device/server".
inline std::string pathText(DiskAccessInfo* a)
{
    return std::string(a->diskName) + "/" + std::to_string(a->local) + "/" + a->deviceName + "/" +
           a->serverName;
}

inline std::vector<std::string> pathsOf(NodeInfo* n)
{
    std::vector<std::string> out;
    for (DiskAccessInfo* a : n->diskAccessItems)
        out.push_back(pathText(a));
    return out;
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
