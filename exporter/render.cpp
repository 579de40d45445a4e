#include "exporter/render.h"

#include <cstring>
#include <sstream>

namespace qvexp {

namespace {

bool isUp(const char* status)
{
    return strcmp(status, "up") == 0;
}

std::string nodeLabel(const NodeInfo* n)
{
    return n->name[0] != '\0' ? n->name : n->ipAddr;
}

struct VfsOp {
    const char* name;
    uint32_t VfsStatsInfo::*count;
};

// The daemon's operation keywords, without their underscores.
const VfsOp kVfsOps[] = {
    {"access", &VfsStatsInfo::accessCount},       {"close", &VfsStatsInfo::closeCount},
    {"create", &VfsStatsInfo::createCount},       {"fclear", &VfsStatsInfo::fclearCount},
    {"fsync", &VfsStatsInfo::fsyncCount},         {"fsync_range", &VfsStatsInfo::fsyncRangeCount},
    {"ftrunc", &VfsStatsInfo::ftruncCount},       {"getattr", &VfsStatsInfo::getattrCount},
    {"link", &VfsStatsInfo::linkCount},           {"lockctl", &VfsStatsInfo::lockctlCount},
    {"lookup", &VfsStatsInfo::lookupCount},       {"map_lloff", &VfsStatsInfo::mapLloffCount},
    {"mkdir", &VfsStatsInfo::mkdirCount},         {"mknod", &VfsStatsInfo::mknodCount},
    {"open", &VfsStatsInfo::openCount},           {"read", &VfsStatsInfo::readCount},
    {"write", &VfsStatsInfo::writeCount},         {"mmapRead", &VfsStatsInfo::mmapReadCount},
    {"mmapWrite", &VfsStatsInfo::mmapWriteCount}, {"readdir", &VfsStatsInfo::readdirCount},
    {"readlink", &VfsStatsInfo::readlinkCount},   {"readpage", &VfsStatsInfo::readpageCount},
    {"remove", &VfsStatsInfo::removeCount},       {"rename", &VfsStatsInfo::renameCount},
    {"rmdir", &VfsStatsInfo::rmdirCount},         {"setacl", &VfsStatsInfo::setaclCount},
    {"setattr", &VfsStatsInfo::setattrCount},     {"symlink", &VfsStatsInfo::symlinkCount},
    {"unmap", &VfsStatsInfo::unmapCount},         {"writepage", &VfsStatsInfo::writepageCount},
    {"kxfattr", &VfsStatsInfo::kxfattrCount},     {"kxfsattr", &VfsStatsInfo::kxfsattrCount},
    {"flock", &VfsStatsInfo::flockCount},         {"setxattr", &VfsStatsInfo::setxattrCount},
    {"getxattr", &VfsStatsInfo::getxattrCount},   {"listxattr", &VfsStatsInfo::listxattrCount},
    {"removexattr", &VfsStatsInfo::removexattrCount}, {"encode_fh", &VfsStatsInfo::encodeFhCount},
    {"decode_fh", &VfsStatsInfo::decodeFhCount},  {"get_dentry", &VfsStatsInfo::getDentryCount},
    {"get_parent", &VfsStatsInfo::getParentCount}, {"mount", &VfsStatsInfo::mountCount},
    {"statfs", &VfsStatsInfo::statfsCount},       {"sync", &VfsStatsInfo::syncCount},
    {"vget", &VfsStatsInfo::vgetCount},
};

struct ThreadPool {
    const char* name;
    threadUtil ThreadUtilInfo::*pool;
};

const ThreadPool kThreadPools[] = {
    {"noncri", &ThreadUtilInfo::noncri}, {"daestr", &ThreadUtilInfo::daestr}, {"mbhan", &ThreadUtilInfo::mbhan},
    {"rcvwor", &ThreadUtilInfo::rcvwor}, {"revwor", &ThreadUtilInfo::revwor}, {"rngrev", &ThreadUtilInfo::rngrev},
    {"recrvk", &ThreadUtilInfo::recrvk}, {"prefth", &ThreadUtilInfo::prefth}, {"sgexpn", &ThreadUtilInfo::sgexpn},
    {"recv", &ThreadUtilInfo::recv},     {"pcache", &ThreadUtilInfo::pcache}, {"multh", &ThreadUtilInfo::multh},
};

const char* const kEventKinds[32] = {
    "mount",        "unmount",      "adddisk",     "deldisk",        "chdisk",       "takeover",
    "failure",      "recovery",     "createfs",    "deletefs",       "fsstatechange", "newconnection",
    "exception",    "sgStats",      "hungthread",  "poolutil",       "sdrChanged",   "vkadddisk",
    "vkdeldisk",    "consoleLog",   "longIO",      "userEvent",      "rgTakeover",   "rgRelinquish",
    "rgOpenFailed", "rgPanic",      "pdFailed",    "pdRecovered",    "pdReplacePdisk", "pdPathFailed",
    "daRebuildFailed", "nsdCksumMismatch",
};

} // namespace

std::string rolesLabel(const char* roles)
{
    std::istringstream in(roles);
    std::string word, out;
    while (in >> word)
        out += (out.empty() ? "" : ",") + word;
    return out;
}

void renderCluster(MetricWriter& w, ClusterInfo* t, const QuorumView& q)
{
    // The manager tool's name text is not to be trusted (its closing
    // parenthesis comes back as a digit): the node is found by its address.
    std::string manager = q.managerIp;
    for (NodeInfo* n : t->nodeItems)
        if (q.managerIp == n->ipAddr)
            manager = nodeLabel(n);
    w.family("quelvane_cluster_info", "The cluster's name, id and manager node; always 1.", "gauge");
    w.sample({{"cluster", t->clusterName}, {"cluster_id", t->sdrField1002}, {"manager", manager}}, 1);
    w.family("quelvane_cluster_nodes", "Nodes of the cluster.", "gauge");
    w.sample({}, t->nodeItems.size());
    w.family("quelvane_cluster_nodes_up", "Nodes of the cluster whose daemon is up.", "gauge");
    size_t up = 0;
    for (NodeInfo* n : t->nodeItems)
        up += isUp(n->status) ? 1 : 0;
    w.sample({}, up);
    w.family("quelvane_cluster_quorum_nodes", "Quorum nodes defined in the cluster.", "gauge");
    w.sample({}, q.quorumNodesDefined);
    w.family("quelvane_cluster_quorum_nodes_active", "Quorum nodes that are active.", "gauge");
    w.sample({}, q.quorumNodesActive);
    w.family("quelvane_cluster_quorum_achieved", "1 when the cluster has quorum.", "gauge");
    w.sample({}, q.quorumAchieved);

    w.family("quelvane_node_up", "1 when the node's daemon is up; its roles as a label.", "gauge");
    for (NodeInfo* n : t->nodeItems)
        w.sample({{"node", nodeLabel(n)}, {"roles", rolesLabel(n->roles)}}, isUp(n->status));
    w.family("quelvane_node_info",
             "The node's address, version, platform and states as labels; always 1.", "gauge");
    for (NodeInfo* n : t->nodeItems)
        w.sample({{"node", nodeLabel(n)},
                  {"ip", n->ipAddr},
                  {"version", n->version},
                  {"platform", n->platform},
                  {"status", n->status},
                  {"admin_state", n->adminState}},
                 1);
    w.family("quelvane_node_quorum", "1 when the node is a quorum node.", "gauge");
    for (NodeInfo* n : t->nodeItems)
        w.sample({{"node", nodeLabel(n)}}, strstr(n->roles, "quorum") != nullptr);
    w.family("quelvane_node_manager", "1 when the node is a manager node.", "gauge");
    for (NodeInfo* n : t->nodeItems)
        w.sample({{"node", nodeLabel(n)}}, strstr(n->roles, "manager") != nullptr);
    w.family("quelvane_node_cluster_manager", "1 on the node that is the cluster manager.", "gauge");
    for (NodeInfo* n : t->nodeItems)
        w.sample({{"node", nodeLabel(n)}}, !q.managerIp.empty() && q.managerIp == n->ipAddr);
    w.family("quelvane_node_healthy", "1 when the daemon reports the node healthy.", "gauge");
    for (NodeInfo* n : t->nodeItems)
        w.sample({{"node", nodeLabel(n)}}, strcmp(n->healthy, "yes") == 0);
    w.family("quelvane_node_failures", "Failures of the node that the daemon counted.", "gauge");
    for (NodeInfo* n : t->nodeItems)
        w.sample({{"node", nodeLabel(n)}}, n->failures);
    w.family("quelvane_node_pagepool_bytes", "The node's page pool size.", "gauge");
    for (NodeInfo* n : t->nodeItems)
        w.sample({{"node", nodeLabel(n)}}, n->pagePool);
}

void renderFilesystems(MetricWriter& w, ClusterInfo* t)
{
    auto each = [&](const char* name, const char* help, const char* type, auto value) {
        w.family(name, help, type);
        for (FilesystemInfo* f : t->filesystemItems)
            w.sample({{"filesystem", f->name}}, value(f));
    };
    w.family("quelvane_filesystem_info", "The filesystem's status, manager and mount point; always 1.", "gauge");
    for (FilesystemInfo* f : t->filesystemItems)
        w.sample({{"filesystem", f->name},
                  {"status", f->status},
                  {"manager", f->manager},
                  {"mount_point", f->defaultMountPoint}},
                 1);
    each("quelvane_filesystem_mounted", "1 when the filesystem is mounted.", "gauge",
         [](FilesystemInfo* f) { return strcmp(f->status, "mounted") == 0; });
    each("quelvane_filesystem_size_bytes", "Capacity of the filesystem.", "gauge",
         [](FilesystemInfo* f) { return f->totalSpace; });
    each("quelvane_filesystem_free_bytes", "Free space of the filesystem.", "gauge",
         [](FilesystemInfo* f) { return f->freeSpace; });
    each("quelvane_filesystem_full_block_free_bytes", "Free space of the filesystem in full blocks.", "gauge",
         [](FilesystemInfo* f) { return f->fullBlockFreeSpace; });
    each("quelvane_filesystem_fragment_free_bytes", "Free space of the filesystem in fragments.", "gauge",
         [](FilesystemInfo* f) { return f->fragFreeSpace; });
    each("quelvane_filesystem_inodes", "Inodes of the filesystem.", "gauge",
         [](FilesystemInfo* f) { return f->totalInodes; });
    each("quelvane_filesystem_inodes_free", "Free inodes of the filesystem.", "gauge",
         [](FilesystemInfo* f) { return f->freeInodes; });
    each("quelvane_filesystem_block_size_bytes", "Block size of the filesystem.", "gauge",
         [](FilesystemInfo* f) { return f->blockSize; });
    each("quelvane_filesystem_mounted_nodes", "Nodes that have the filesystem mounted.", "gauge",
         [](FilesystemInfo* f) { return f->mountedNodeItems.size(); });
    each("quelvane_filesystem_read_bytes_total", "Bytes read from the filesystem, all nodes.", "counter",
         [](FilesystemInfo* f) { return f->bytesRead; });
    each("quelvane_filesystem_written_bytes_total", "Bytes written to the filesystem, all nodes.", "counter",
         [](FilesystemInfo* f) { return f->bytesWritten; });

    auto perNode = [&](const char* name, const char* help, auto value) {
        w.family(name, help, "counter");
        for (FilesystemInfo* f : t->filesystemItems)
            for (FilesystemPerf* p : f->perNodePerfItems)
                w.sample({{"filesystem", f->name}, {"node", p->nodeName[0] != '\0' ? p->nodeName : p->nodeIpAddr}},
                         value(p));
    };
    perNode("quelvane_filesystem_node_read_bytes_total", "Bytes read from the filesystem by the node.",
            [](FilesystemPerf* p) { return p->bytesRead; });
    perNode("quelvane_filesystem_node_written_bytes_total", "Bytes written to the filesystem by the node.",
            [](FilesystemPerf* p) { return p->bytesWritten; });
    perNode("quelvane_filesystem_node_cache_bytes_total", "Bytes the node read from its cache.",
            [](FilesystemPerf* p) { return p->bytesCache; });
    perNode("quelvane_filesystem_node_inode_updates_total", "Inode updates of the filesystem by the node.",
            [](FilesystemPerf* p) { return p->inodeUpdates; });
    w.family("quelvane_filesystem_node_calls_total", "Calls on the filesystem by the node, by kind.", "counter");
    for (FilesystemInfo* f : t->filesystemItems)
        for (FilesystemPerf* p : f->perNodePerfItems) {
            std::string node = p->nodeName[0] != '\0' ? p->nodeName : p->nodeIpAddr;
            const std::pair<const char*, unsigned int> calls[] = {{"open", p->openCalls},
                                                                  {"close", p->closeCalls},
                                                                  {"read", p->readCalls},
                                                                  {"write", p->writeCalls},
                                                                  {"readdir", p->dirCalls}};
            for (const auto& c : calls)
                w.sample({{"filesystem", f->name}, {"node", node}, {"call", c.first}}, c.second);
        }
}

void renderDisks(MetricWriter& w, ClusterInfo* t)
{
    auto eachPool = [&](const char* name, const char* help, const char* type, auto value) {
        w.family(name, help, type);
        for (FilesystemInfo* f : t->filesystemItems)
            for (StoragePoolInfo* p : f->poolItems)
                w.sample({{"filesystem", f->name}, {"pool", p->name}}, value(p));
    };
    w.family("quelvane_pool_info", "The pool's status; always 1.", "gauge");
    for (FilesystemInfo* f : t->filesystemItems)
        for (StoragePoolInfo* p : f->poolItems)
            w.sample({{"filesystem", f->name}, {"pool", p->name}, {"status", p->status}}, 1);
    eachPool("quelvane_pool_size_bytes", "Capacity of the storage pool.", "gauge",
             [](StoragePoolInfo* p) { return p->totalSpace; });
    eachPool("quelvane_pool_free_bytes", "Free space of the storage pool.", "gauge",
             [](StoragePoolInfo* p) { return p->freeSpace; });
    eachPool("quelvane_pool_disks", "Disks of the storage pool.", "gauge",
             [](StoragePoolInfo* p) { return p->diskItems.size(); });
    eachPool("quelvane_pool_disks_down", "Disks of the storage pool that are not up.", "gauge",
             [](StoragePoolInfo* p) {
                 size_t down = 0;
                 for (DiskInfo* d : p->diskItems)
                     down += isUp(d->status) && isUp(d->availability) ? 0 : 1;
                 return down;
             });

    auto eachDisk = [&](const char* name, const char* help, const char* type, auto value) {
        w.family(name, help, type);
        for (FilesystemInfo* f : t->filesystemItems)
            for (StoragePoolInfo* p : f->poolItems)
                for (DiskInfo* d : p->diskItems)
                    w.sample({{"filesystem", f->name}, {"pool", p->name}, {"disk", d->name}}, value(d));
    };
    w.family("quelvane_disk_up", "1 when the disk's status and availability are both up; both as labels.", "gauge");
    for (FilesystemInfo* f : t->filesystemItems)
        for (StoragePoolInfo* p : f->poolItems)
            for (DiskInfo* d : p->diskItems)
                w.sample({{"filesystem", f->name},
                          {"pool", p->name},
                          {"disk", d->name},
                          {"status", d->status},
                          {"availability", d->availability}},
                         isUp(d->status) && isUp(d->availability));
    eachDisk("quelvane_disk_size_bytes", "Capacity of the disk.", "gauge", [](DiskInfo* d) { return d->totalSpace; });
    eachDisk("quelvane_disk_free_bytes", "Free space of the disk in full blocks.", "gauge",
             [](DiskInfo* d) { return d->fullBlockFreeSpace; });
    eachDisk("quelvane_disk_fragment_free_bytes", "Free space of the disk in fragments.", "gauge",
             [](DiskInfo* d) { return d->fragFreeSpace; });
    eachDisk("quelvane_disk_read_bytes_total", "Bytes read from the disk, all nodes.", "counter",
             [](DiskInfo* d) { return d->bytesRead; });
    eachDisk("quelvane_disk_written_bytes_total", "Bytes written to the disk, all nodes.", "counter",
             [](DiskInfo* d) { return d->bytesWritten; });
    eachDisk("quelvane_disk_read_operations_total", "Read operations on the disk, all nodes.", "counter",
             [](DiskInfo* d) { return d->readOps; });
    eachDisk("quelvane_disk_write_operations_total", "Write operations on the disk, all nodes.", "counter",
             [](DiskInfo* d) { return d->writeOps; });

    w.family("quelvane_free_disks", "Disks that belong to no filesystem.", "gauge");
    w.sample({}, t->freeDiskItems.size());
    w.family("quelvane_free_disk_size_bytes", "Capacity of a disk that belongs to no filesystem.", "gauge");
    for (DiskInfo* d : t->freeDiskItems)
        w.sample({{"disk", d->name}}, d->totalSpace);
}

void renderFilesets(MetricWriter& w, const std::vector<FilesetCount>& counts)
{
    w.family("quelvane_filesets", "Filesets of the filesystem, the root fileset included.", "gauge");
    for (const FilesetCount& c : counts)
        w.sample({{"filesystem", c.filesystem}}, c.total);
    w.family("quelvane_filesets_linked", "Filesets of the filesystem that are linked.", "gauge");
    for (const FilesetCount& c : counts)
        w.sample({{"filesystem", c.filesystem}}, c.linked);
}

void renderStats(MetricWriter& w, ClusterInfo* t)
{
    // A node that is not up answers with an error code and its records are
    // left as they were cleared: it is left out rather than shown at zero.
    w.family("quelvane_cache_hits_total", "Hits of the node's directory and stat caches.", "counter");
    for (NodeInfo* n : t->nodeItems)
        if (CacheStatsInfo* c = n->cacheStats; c != nullptr && isUp(n->status)) {
            w.sample({{"node", nodeLabel(n)}, {"cache", "directory"}}, c->dcHits);
            w.sample({{"node", nodeLabel(n)}, {"cache", "stat"}}, c->scHits);
        }
    w.family("quelvane_cache_misses_total", "Misses of the node's directory and stat caches.", "counter");
    for (NodeInfo* n : t->nodeItems)
        if (CacheStatsInfo* c = n->cacheStats; c != nullptr && isUp(n->status)) {
            w.sample({{"node", nodeLabel(n)}, {"cache", "directory"}}, c->dcMisses);
            w.sample({{"node", nodeLabel(n)}, {"cache", "stat"}}, c->scMisses);
        }
    w.family("quelvane_vfs_operations_total", "Operations of the node's virtual file interface, by operation.",
             "counter");
    for (NodeInfo* n : t->nodeItems)
        if (VfsStatsInfo* v = n->vfsStats; v != nullptr && isUp(n->status))
            for (const VfsOp& op : kVfsOps)
                w.sample({{"node", nodeLabel(n)}, {"op", op.name}}, v->*op.count);
    w.family("quelvane_threads", "Threads of the node's daemon.", "gauge");
    for (NodeInfo* n : t->nodeItems)
        if (ThreadUtilInfo* u = n->threadUtil; u != nullptr && u->rc == 0 && isUp(n->status))
            w.sample({{"node", nodeLabel(n)}}, u->nThreads);
    const std::pair<const char*, int32_t threadUtil::*> poolValues[] = {
        {"quelvane_thread_pool_threads", &threadUtil::count1},
        {"quelvane_thread_pool_threads_peak", &threadUtil::count2},
        {"quelvane_thread_pool_threads_limit", &threadUtil::count3}};
    const char* const poolHelp[] = {"Threads of the daemon's thread pool in use.",
                                    "Highest number of threads the thread pool has had in use.",
                                    "Most threads the thread pool may have."};
    for (size_t k = 0; k < 3; ++k) {
        w.family(poolValues[k].first, poolHelp[k], "gauge");
        for (NodeInfo* n : t->nodeItems)
            if (ThreadUtilInfo* u = n->threadUtil; u != nullptr && u->rc == 0 && isUp(n->status))
                for (const ThreadPool& p : kThreadPools)
                    w.sample({{"node", nodeLabel(n)}, {"pool", p.name}}, (u->*p.pool).*poolValues[k].second);
    }
}

void renderRecoveryGroups(MetricWriter& w, const std::vector<std::unique_ptr<orluRecoveryGroup>>& groups)
{
    w.family("quelvane_recovery_groups", "Recovery groups of the cluster.", "gauge");
    w.sample({}, groups.size());
    w.family("quelvane_recovery_group_info", "The recovery group's active server; always 1.", "gauge");
    for (const auto& g : groups)
        w.sample({{"recovery_group", g->rgName}, {"active_server", g->rgActiveServer}}, 1);
    auto eachGroup = [&](const char* name, const char* help, int orluRecoveryGroup::*field) {
        w.family(name, help, "gauge");
        for (const auto& g : groups)
            w.sample({{"recovery_group", g->rgName}}, (*g).*field);
    };
    eachGroup("quelvane_recovery_group_declustered_arrays", "Declustered arrays of the recovery group.",
              &orluRecoveryGroup::nDeclusteredArrays);
    eachGroup("quelvane_recovery_group_pdisks", "Physical disks of the recovery group.", &orluRecoveryGroup::nPdisks);
    eachGroup("quelvane_recovery_group_vdisks", "Virtual disks of the recovery group.", &orluRecoveryGroup::nVdisks);

    auto eachArray = [&](const char* name, const char* help, auto value) {
        w.family(name, help, "gauge");
        for (const auto& g : groups) {
            int n = g->nDeclusteredArrays < 16 ? g->nDeclusteredArrays : 16;
            for (int i = 0; i < n; ++i) {
                orluRecoveryGroupDeclusteredArray& a = g->declusteredArrays[i];
                w.sample({{"recovery_group", g->rgName}, {"declustered_array", a.daName}}, value(a));
            }
        }
    };
    w.family("quelvane_declustered_array_info", "The declustered array's background task; always 1.", "gauge");
    for (const auto& g : groups) {
        int n = g->nDeclusteredArrays < 16 ? g->nDeclusteredArrays : 16;
        for (int i = 0; i < n; ++i) {
            orluRecoveryGroupDeclusteredArray& a = g->declusteredArrays[i];
            w.sample({{"recovery_group", g->rgName},
                      {"declustered_array", a.daName},
                      {"task", a.daBackgroundTask},
                      {"task_priority", a.daTaskPriority}},
                     1);
        }
    }
    using DA = orluRecoveryGroupDeclusteredArray;
    eachArray("quelvane_declustered_array_needs_service", "1 when the declustered array needs service.",
              [](DA& a) { return strcmp(a.daNeedsService, "yes") == 0; });
    eachArray("quelvane_declustered_array_pdisks", "Physical disks of the declustered array.",
              [](DA& a) { return a.daPdisks; });
    eachArray("quelvane_declustered_array_vdisks", "Virtual disks of the declustered array.",
              [](DA& a) { return a.daVdisks; });
    eachArray("quelvane_declustered_array_spares", "Spare disks of the declustered array.",
              [](DA& a) { return a.daSpares; });
    // The recovery group tool states the free space in GiB.
    eachArray("quelvane_declustered_array_free_bytes", "Free space of the declustered array.",
              [](DA& a) { return a.daFreeSpace * 1073741824ULL; });
    eachArray("quelvane_declustered_array_task_progress_ratio",
              "Progress of the declustered array's background task, 0 to 1.",
              [](DA& a) { return a.daTaskPercentComplete / 100.0; });
}

void renderHealth(MetricWriter& w, const std::vector<CollectorHealth>& collectors, bool lastPollOk,
                  double lastPollTimestamp, unsigned long long polls)
{
    w.family("quelvane_scrape_duration_seconds", "Duration of the collector's last run.", "gauge");
    for (const CollectorHealth& c : collectors)
        w.sample({{"collector", c.name}}, c.seconds);
    w.family("quelvane_collector_success", "1 when the collector's last run succeeded.", "gauge");
    for (const CollectorHealth& c : collectors)
        w.sample({{"collector", c.name}}, c.ok);
    w.family("quelvane_poll_errors_total", "Failed runs of the collector.", "counter");
    for (const CollectorHealth& c : collectors)
        w.sample({{"collector", c.name}}, c.errors);
    w.family("quelvane_last_poll_success", "1 when every collector of the last poll succeeded.", "gauge");
    w.sample({}, lastPollOk);
    w.family("quelvane_last_poll_timestamp_seconds", "When the last poll ended, in seconds since the epoch.",
             "gauge");
    w.sample({}, lastPollTimestamp);
    w.family("quelvane_polls_total", "Polls of the cluster since the exporter started.", "counter");
    w.sample({}, polls);
}

const char* eventKind(int type)
{
    return type >= 0 && type < 32 ? kEventKinds[type] : "unknown";
}

void renderEvents(MetricWriter& w, const unsigned long long counts[32], bool connected)
{
    w.family("quelvane_events_total", "Events the daemon sent, by kind.", "counter");
    for (int i = 0; i < 32; ++i)
        w.sample({{"kind", kEventKinds[i]}}, counts[i]);
    w.family("quelvane_events_connected", "1 while the exporter listens to the daemon's events.", "gauge");
    w.sample({}, connected);
}

} // namespace qvexp
