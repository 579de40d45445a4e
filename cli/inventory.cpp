// The inventory commands: status, nodes, filesystems, pools, disks, free
// disks, mounts, policies, filesets and recovery groups.
#include "cli/commands.h"

#include "cli/console.h"
#include "cli/daemon.h"
#include "cli/names.h"
#include "cli/records_json.h"
#include "cli/table.h"
#include "cli/watchdog.h"

#include <map>
#include <memory>

namespace qvcli {

namespace {

void emit(const json& doc)
{
    std::string t = documentText(doc);
    fwrite(t.data(), 1, t.size(), out());
}

void emit(const Table& table)
{
    table.print(out());
}

std::string trimmed(const std::string& s)
{
    size_t b = s.find_first_not_of(' ');
    if (b == std::string::npos)
        return std::string();
    size_t e = s.find_last_not_of(' ');
    return s.substr(b, e - b + 1);
}

std::string joinNames(const std::vector<DiskServerInfo*>& servers)
{
    std::string s;
    for (DiskServerInfo* d : servers)
        s += (s.empty() ? "" : ",") + text(d->name);
    return s;
}

// The filesystems named by an optional argument: all, or the one named.
std::vector<FilesystemInfo*> chosen(Session& s, const std::string& fs)
{
    if (fs.empty())
        return s.tree()->filesystemItems;
    return {s.filesystem(fs)};
}

long long used(long long total, long long free)
{
    return total > free ? total - free : 0;
}

} // namespace

// ---------------------------------------------------------------------------

int cmdStatus(bool asJson)
{
    requireTools({"vklsmgr", "vkgetstate"});
    Session s;
    s.poll(0);
    ClusterInfo* t = s.tree();
    PollingHandler* h = s.handler();

    // The manager and the node counts come from tools of their own; when
    // one of them fails (a cluster without quorum, say) the rest of the
    // status is still worth showing.
    ClusterStatus st;
    st.init();
    bool managerKnown = false;
    {
        Armed armed("reading the cluster manager (vklsmgr -c)");
        managerKnown = getClusterManager(st.managerName, st.managerIpAddr) == 0;
    }
    if (!managerKnown)
        st.managerName[0] = st.managerIpAddr[0] = '\0';
    // The name from the manager tool is not reliable; the tree's name of the
    // node with that address is.
    std::string managerName = text(st.managerName);
    int mi = managerKnown ? t->getNodeInfoIndex(st.managerIpAddr) : -1;
    if (mi >= 0)
        managerName = text(t->nodeItems[static_cast<size_t>(mi)]->name);
    bool countsKnown = false;
    {
        Armed armed("reading the node counts (kxctl clusternodeinfo)");
        countsKnown = getClusterNodesStatus(&st) == 0;
    }
    if (!countsKnown)
        st.nodesDefined = st.localNodesActive = st.remoteNodesJoined = st.quorumNodesDefined =
            st.quorumNodesActive = st.quorum = st.quorumAchieved = 0;
    int daemonState = 0;
    {
        Armed armed("reading the daemon state (vkgetstate -Y)");
        daemonState = h->getDaemonState();
    }

    std::map<std::string, int> byState;
    for (NodeInfo* n : t->nodeItems)
        byState[orDash(text(n->status))]++;

    if (asJson) {
        json doc;
        doc["cluster"] = clusterJson(t);
        json cs = clusterStatusJson(st);
        cs["managerName"] = managerName;
        doc["clusterStatus"] = cs;
        doc["managerKnown"] = managerKnown;
        doc["nodeCountsKnown"] = countsKnown;
        doc["nodesByState"] = json::object();
        for (const auto& kv : byState)
            doc["nodesByState"][kv.first] = kv.second;
        doc["filesystems"] = json::array();
        for (FilesystemInfo* f : t->filesystemItems)
            doc["filesystems"].push_back(filesystemJson(f));
        doc["daemonState"] = daemonState;
        emit(doc);
        return kExitOk;
    }

    FILE* o = out();
    fprintf(o, "Cluster:     %s (id %s)\n", text(t->clusterName).c_str(), text(t->sdrField1002).c_str());
    if (managerKnown)
        fprintf(o, "Manager:     %s (%s)\n", orDash(managerName).c_str(), orDash(text(st.managerIpAddr)).c_str());
    else
        fprintf(o, "Manager:     unknown (vklsmgr -c named none)\n");
    if (countsKnown)
        fprintf(o, "Quorum:      %s, %d of %d quorum nodes active, %d needed\n",
                st.quorumAchieved ? "achieved" : "NOT achieved", st.quorumNodesActive, st.quorumNodesDefined,
                st.quorum);
    else
        fprintf(o, "Quorum:      unknown (kxctl clusternodeinfo failed)\n");
    std::string states = tallyText(byState);
    fprintf(o, "Nodes:       %zu (%s)", t->nodeItems.size(), states.empty() ? "none" : states.c_str());
    if (countsKnown)
        fprintf(o, "; %d of %d active", st.localNodesActive, st.nodesDefined);
    fputc('\n', o);
    fprintf(o, "Daemon:      %s\n", daemonState == 0 ? "active on every node" : "down on some node");
    fprintf(o, "Filesystems: %zu\n", t->filesystemItems.size());
    if (!t->filesystemItems.empty()) {
        Table table({{"NAME"}, {"STATUS"}, {"SIZE", true}, {"USED", true}, {"FREE", true}, {"USE", true}});
        for (FilesystemInfo* f : t->filesystemItems)
            table.add({text(f->name), text(f->status), bytesText(static_cast<double>(f->totalSpace)),
                       bytesText(static_cast<double>(used(f->totalSpace, f->freeSpace))),
                       bytesText(static_cast<double>(f->freeSpace)),
                       percentText(static_cast<double>(used(f->totalSpace, f->freeSpace)),
                                   static_cast<double>(f->totalSpace))});
        fputc('\n', o);
        emit(table);
    }
    return kExitOk;
}

int cmdNodes(bool asJson)
{
    Session s;
    s.poll(0);
    ClusterInfo* t = s.tree();
    if (asJson) {
        json doc;
        doc["nodes"] = json::array();
        for (NodeInfo* n : t->nodeItems)
            doc["nodes"].push_back(nodeJson(n));
        emit(doc);
        return kExitOk;
    }
    Table table({{"NAME"}, {"ADDRESS"}, {"STATUS"}, {"ADMIN"}, {"HEALTH"}, {"ROLES"}, {"VERSION"}, {"PLATFORM"}});
    for (NodeInfo* n : t->nodeItems) {
        std::string health = text(n->healthy) == "yes" ? "healthy" : orDash(text(n->diagnosis));
        table.add({text(n->name), text(n->ipAddr), orDash(text(n->status)), orDash(text(n->adminState)), health,
                   orDash(trimmed(text(n->roles))), orDash(text(n->version)), orDash(text(n->platform))});
    }
    emit(table);
    return kExitOk;
}

int cmdFilesystems(bool asJson)
{
    Session s;
    s.poll(kPollMounts);
    ClusterInfo* t = s.tree();
    if (asJson) {
        json doc;
        doc["filesystems"] = json::array();
        for (FilesystemInfo* f : t->filesystemItems) {
            json j = filesystemJson(f);
            j["mountedNodes"] = f->mountedNodeItems.size();
            doc["filesystems"].push_back(j);
        }
        emit(doc);
        return kExitOk;
    }
    Table table({{"NAME"}, {"STATUS"}, {"MANAGER"}, {"SIZE", true}, {"FREE", true}, {"USE", true},
                 {"INODES", true}, {"FREE INODES", true}, {"MOUNTED ON", true}, {"MOUNT POINT"}});
    for (FilesystemInfo* f : t->filesystemItems)
        table.add({text(f->name), orDash(text(f->status)), orDash(text(f->manager)),
                   bytesText(static_cast<double>(f->totalSpace)), bytesText(static_cast<double>(f->freeSpace)),
                   percentText(static_cast<double>(used(f->totalSpace, f->freeSpace)),
                               static_cast<double>(f->totalSpace)),
                   numberText(f->totalInodes), numberText(f->freeInodes),
                   std::to_string(f->mountedNodeItems.size()) + " nodes", orDash(text(f->defaultMountPoint))});
    emit(table);
    return kExitOk;
}

int cmdPools(const std::string& fs, bool asJson)
{
    if (!fs.empty())
        checkName("filesystem name", fs);
    Session s;
    s.poll(kPollPools);
    std::vector<FilesystemInfo*> list = chosen(s, fs);
    if (asJson) {
        json doc;
        doc["pools"] = json::array();
        for (FilesystemInfo* f : list)
            for (StoragePoolInfo* p : f->poolItems) {
                json j = poolJson(p);
                j["filesystem"] = text(f->name);
                doc["pools"].push_back(j);
            }
        emit(doc);
        return kExitOk;
    }
    Table table({{"FILESYSTEM"}, {"POOL"}, {"STATUS"}, {"DISKS", true}, {"SIZE", true}, {"FREE", true},
                 {"USE", true}});
    for (FilesystemInfo* f : list)
        for (StoragePoolInfo* p : f->poolItems)
            table.add({text(f->name), text(p->name), orDash(text(p->status)), std::to_string(p->nDisks),
                       bytesText(static_cast<double>(p->totalSpace)), bytesText(static_cast<double>(p->freeSpace)),
                       percentText(static_cast<double>(used(p->totalSpace, p->freeSpace)),
                                   static_cast<double>(p->totalSpace))});
    emit(table);
    return kExitOk;
}

int cmdDisks(const std::string& fs, const std::string& pool, bool asJson)
{
    if (!fs.empty())
        checkName("filesystem name", fs);
    if (!pool.empty())
        checkName("pool name", pool);
    Session s;
    s.poll(kPollDisks | kPollCounters);
    std::vector<FilesystemInfo*> list = chosen(s, fs);
    if (!pool.empty() && list.front()->getStoragePoolInfoIndex(pool.c_str()) < 0)
        fail(kExitFailure, "unknown pool " + pool + " of filesystem " + fs);
    auto pools = [&](FilesystemInfo* f) {
        std::vector<StoragePoolInfo*> v;
        for (StoragePoolInfo* p : f->poolItems)
            if (pool.empty() || text(p->name) == pool)
                v.push_back(p);
        return v;
    };
    if (asJson) {
        json doc;
        doc["disks"] = json::array();
        for (FilesystemInfo* f : list)
            for (StoragePoolInfo* p : pools(f))
                for (DiskInfo* d : p->diskItems) {
                    json j = diskJson(d);
                    j["filesystem"] = text(f->name);
                    doc["disks"].push_back(j);
                }
        emit(doc);
        return kExitOk;
    }
    Table table({{"FILESYSTEM"}, {"POOL"}, {"DISK"}, {"STATUS"}, {"AVAILABILITY"}, {"SIZE", true},
                 {"FREE", true}, {"READ", true}, {"WRITTEN", true}, {"SERVERS"}});
    for (FilesystemInfo* f : list)
        for (StoragePoolInfo* p : pools(f))
            for (DiskInfo* d : p->diskItems)
                table.add({text(f->name), text(p->name), text(d->name), orDash(text(d->status)),
                           orDash(text(d->availability)), bytesText(static_cast<double>(d->totalSpace)),
                           bytesText(static_cast<double>(d->fullBlockFreeSpace)),
                           bytesText(static_cast<double>(d->bytesRead)),
                           bytesText(static_cast<double>(d->bytesWritten)), orDash(joinNames(d->serverItems))});
    emit(table);
    return kExitOk;
}

int cmdFreeDisks(bool asJson)
{
    Session s;
    s.poll(kPollFreeDisks);
    ClusterInfo* t = s.tree();
    if (asJson) {
        json doc;
        doc["freeDisks"] = json::array();
        for (DiskInfo* d : t->freeDiskItems)
            doc["freeDisks"].push_back(diskJson(d));
        emit(doc);
        return kExitOk;
    }
    Table table({{"DISK"}, {"STATUS"}, {"SIZE", true}, {"SERVERS"}, {"BACKUP SERVERS"}});
    for (DiskInfo* d : t->freeDiskItems)
        table.add({text(d->name), orDash(text(d->status)), bytesText(static_cast<double>(d->totalSpace)),
                   orDash(joinNames(d->serverItems)), orDash(joinNames(d->backupServerItems))});
    emit(table);
    return kExitOk;
}

int cmdMounts(const std::string& fs, bool asJson)
{
    if (!fs.empty())
        checkName("filesystem name", fs);
    Session s;
    s.poll(kPollMounts);
    std::vector<FilesystemInfo*> list = chosen(s, fs);
    if (asJson) {
        json doc;
        doc["mounts"] = json::array();
        for (FilesystemInfo* f : list)
            for (MountedNodeInfo* m : f->mountedNodeItems) {
                json j = mountJson(m);
                j["filesystem"] = text(f->name);
                j["mountPoint"] = text(f->defaultMountPoint);
                doc["mounts"].push_back(j);
            }
        emit(doc);
        return kExitOk;
    }
    Table table({{"FILESYSTEM"}, {"NODE"}, {"ADDRESS"}, {"MOUNT POINT"}});
    for (FilesystemInfo* f : list)
        for (MountedNodeInfo* m : f->mountedNodeItems)
            table.add({text(f->name), orDash(text(m->nodeName)), text(m->nodeIpAddr),
                       orDash(text(f->defaultMountPoint))});
    emit(table);
    return kExitOk;
}

int cmdPolicies(const std::string& fs, bool asJson)
{
    if (!fs.empty())
        checkName("filesystem name", fs);
    Session s;
    s.poll(kPollPolicies);
    std::vector<FilesystemInfo*> list = chosen(s, fs);
    if (asJson) {
        json doc;
        doc["policies"] = json::array();
        for (FilesystemInfo* f : list)
            for (PolicyInfo* p : f->policyItems) {
                json j = policyJson(p);
                j["filesystem"] = text(f->name);
                doc["policies"].push_back(j);
            }
        emit(doc);
        return kExitOk;
    }
    Table table({{"FILESYSTEM"}, {"POLICY"}, {"INSTALLED BY"}, {"INSTALLED"}, {"RULES", true}});
    for (FilesystemInfo* f : list)
        for (PolicyInfo* p : f->policyItems)
            table.add({text(f->name), text(p->name), orDash(text(p->userName)), orDash(text(p->installTime)),
                       std::to_string(p->ruleItems.size())});
    emit(table);
    return kExitOk;
}

int cmdFilesets(const std::string& fs, bool asJson)
{
    checkName("filesystem name", fs);
    requireTool("vklsfileset");
    std::vector<FileSet*> sets;
    struct Owner {
        std::vector<FileSet*>& v;
        ~Owner()
        {
            for (FileSet* f : v)
                delete f;
        }
    } owner{sets};
    {
        Session s;
        s.poll(0);
        s.filesystem(fs);
        Armed armed("listing the filesets of " + fs);
        resetCapture();
        std::string name = fs;
        if (s.handler()->getFileSets(&name[0], &sets) != 0)
            fail(kExitFailure, "listing the filesets of " + fs + " failed: " + orDash(lastCapturedLine()));
        if (sets.empty() && !lastCapturedLine().empty())
            fail(kExitFailure, "listing the filesets of " + fs + " failed: " + lastCapturedLine());
    }
    if (asJson) {
        json doc;
        doc["filesystem"] = fs;
        doc["filesets"] = json::array();
        for (FileSet* f : sets)
            doc["filesets"].push_back(filesetJson(*f));
        emit(doc);
        return kExitOk;
    }
    Table table({{"NAME"}, {"ID", true}, {"STATUS"}, {"PATH"}, {"PARENT", true}, {"INODES", true},
                 {"DATA KB", true}, {"COMMENT"}});
    for (FileSet* f : sets) {
        std::string path = text(f->path);
        table.add({text(f->name), orDash(text(f->column8)), orDash(text(f->column10)),
                   path == "--" ? "-" : orDash(path), orDash(text(f->column12)), std::to_string(f->column14),
                   std::to_string(f->column15), orDash(text(f->comment))});
    }
    emit(table);
    return kExitOk;
}

// ---------------------------------------------------------------------------
// Recovery groups: the repository's list, then each group's summary.

namespace {

struct GroupList {
    std::vector<std::unique_ptr<orluRecoveryGroup>> groups;
};

GroupList readGroups(const std::string& only)
{
    GroupList list;
    int n = 0;
    {
        Armed armed("counting the recovery groups");
        resetCapture();
        n = orluRGDefined();
        if (n < 0)
            n = getRGDefinedSDR();
        if (n < 0)
            fail(kExitFailure, "counting the recovery groups failed (vksdrquery sdrq_recovery_group_info): " +
                                   orDash(lastCapturedLine()));
    }
    if (n == 0)
        return list;
    std::vector<orluRecoveryGroupSdrInfo> rows(static_cast<size_t>(n));
    int len = n;
    int rc = 0;
    {
        Armed armed("listing the recovery groups");
        resetCapture();
        rc = getNsdRAIDSdrInfo(rows.data(), &len);
        if (rc == 12 && len > n) {
            rows.resize(static_cast<size_t>(len));
            n = len;
            rc = getNsdRAIDSdrInfo(rows.data(), &len);
        }
    }
    if (rc == 19)
        return list;
    if (rc != 0)
        fail(kExitFailure, "listing the recovery groups failed (status " + std::to_string(rc) + ")");
    int rowsRead = std::min(len, n);
    for (int i = 0; i < rowsRead; ++i) {
        orluRecoveryGroupSdrInfo& row = rows[static_cast<size_t>(i)];
        if (!only.empty() && text(row.rgName) != only)
            continue;
        std::unique_ptr<orluRecoveryGroup> rg(new orluRecoveryGroup);
        rg->updateRgSdrInfo(row.rgName, row.rgServers, row.rgId);
        {
            Armed armed(std::string("reading recovery group ") + text(row.rgName));
            resetCapture();
            int s = getRecoveryGroupSummary(rg.get());
            if (s != 0)
                fail(kExitFailure, "reading recovery group " + text(row.rgName) + " failed (status " +
                                       std::to_string(s) + ")");
        }
        list.groups.push_back(std::move(rg));
    }
    return list;
}

} // namespace

int cmdRecoveryGroups(const std::string& name, bool asJson)
{
    if (!name.empty())
        checkName("recovery group name", name);
    requireTools({"vksdrquery", "vklsrecoverygroup"});
    if (!name.empty())
        requireTools({"vklspdisk", "vklsvdisk"});
    GroupList list = readGroups(name);
    if (!name.empty()) {
        if (list.groups.empty())
            fail(kExitFailure, "unknown recovery group " + name);
        orluRecoveryGroup* rg = list.groups.front().get();
        if (rg->nDeclusteredArrays > 0) {
            Armed armed("reading the disks of recovery group " + name);
            resetCapture();
            int s = getRecoveryGroupDeclusteredArrays(rg);
            if (s != 0)
                fail(kExitFailure, "reading the disks of recovery group " + name + " failed (status " +
                                       std::to_string(s) + ")");
        }
        if (asJson) {
            json doc;
            doc["recoveryGroup"] = recoveryGroupJson(rg, true);
            emit(doc);
            return kExitOk;
        }
        FILE* o = out();
        fprintf(o, "Recovery group %s (id %s)\n", text(rg->rgName).c_str(), orDash(text(rg->rgId)).c_str());
        fprintf(o, "Servers:       %s (active %s)\n", orDash(text(rg->rgServers)).c_str(),
                orDash(text(rg->rgActiveServer)).c_str());
        fprintf(o, "Arrays:        %d, %d virtual disks, %d physical disks\n", rg->nDeclusteredArrays, rg->nVdisks,
                rg->nPdisks);
        Table arrays({{"ARRAY"}, {"NEEDS SERVICE"}, {"VDISKS", true}, {"PDISKS", true}, {"SPARES", true},
                      {"REPLACE AT", true}, {"FREE", true}, {"SCRUB DAYS", true}, {"TASK"}, {"DONE", true},
                      {"PRIORITY"}});
        for (int i = 0; i < rg->nDeclusteredArrays && i < 16; ++i) {
            orluRecoveryGroupDeclusteredArray* da = rg->getDeclusteredArrayP(i);
            arrays.add({text(da->daName), text(da->daNeedsService), std::to_string(da->daVdisks),
                        std::to_string(da->daPdisks), std::to_string(da->daSpares),
                        std::to_string(da->daReplaceThreshold), std::to_string(da->daFreeSpace),
                        std::to_string(da->daScrubDuration), text(da->daBackgroundTask),
                        std::to_string(da->daTaskPercentComplete) + "%", text(da->daTaskPriority)});
        }
        fputc('\n', o);
        emit(arrays);
        for (int i = 0; i < rg->nDeclusteredArrays && i < 16; ++i) {
            orluRecoveryGroupDeclusteredArray* da = rg->getDeclusteredArrayP(i);
            fprintf(o, "\nArray %s: physical disks\n", text(da->daName).c_str());
            Table pd({{"PDISK"}, {"PRIORITY", true}, {"ARRAY"}, {"STATE"}, {"CAPACITY", true}, {"FRU"},
                      {"LOCATION"}});
            for (int k = 0; k < da->daPdisks; ++k) {
                orluDeclusteredArrayPdisk* p = da->getDeclusteredArrayPdiskP(k);
                if (p == nullptr)
                    break;
                pd.add({text(p->pdiskName), std::to_string(p->pdiskValue), text(p->pdiskText1), text(p->pdiskText2),
                        bytesText(static_cast<double>(p->pdiskNumber)), text(p->pdiskText3), text(p->pdiskText4)});
            }
            emit(pd);
            fprintf(o, "\nArray %s: virtual disks\n", text(da->daName).c_str());
            Table vd({{"VDISK"}, {"RAID CODE"}, {"BLOCK KIB", true}, {"SIZE", true}, {"STATE"}, {"REMARKS"}});
            for (int k = 0; k < da->daVdisks; ++k) {
                orluDeclusteredArrayVdisk* v = da->getDeclusteredArrayVdiskP(k);
                if (v == nullptr)
                    break;
                vd.add({text(v->vdiskName), text(v->vdiskText1), std::to_string(v->vdiskValue),
                        bytesText(static_cast<double>(v->vdiskNumber)), text(v->vdiskText2), text(v->vdiskText3)});
            }
            emit(vd);
        }
        return kExitOk;
    }
    if (asJson) {
        json doc;
        doc["recoveryGroups"] = json::array();
        for (auto& rg : list.groups)
            doc["recoveryGroups"].push_back(recoveryGroupJson(rg.get(), false));
        emit(doc);
        return kExitOk;
    }
    Table table({{"NAME"}, {"ACTIVE SERVER"}, {"SERVERS"}, {"ARRAYS", true}, {"VDISKS", true},
                 {"PDISKS", true}, {"NEEDING SERVICE"}});
    for (auto& rg : list.groups) {
        std::string service;
        for (int i = 0; i < rg->nDeclusteredArrays && i < 16; ++i) {
            orluRecoveryGroupDeclusteredArray* da = rg->getDeclusteredArrayP(i);
            if (text(da->daNeedsService) == "yes")
                service += (service.empty() ? "" : ",") + text(da->daName);
        }
        table.add({text(rg->rgName), orDash(text(rg->rgActiveServer)), orDash(text(rg->rgServers)),
                   std::to_string(rg->nDeclusteredArrays), std::to_string(rg->nVdisks), std::to_string(rg->nPdisks),
                   orDash(service)});
    }
    emit(table);
    return kExitOk;
}

} // namespace qvcli
