// Level copies: each brings one vector of this tree into line with the same
// vector of another tree (see level_copy_internal.h), then copies the update
// times that belong to that level.

#include <quelvane/cluster_info.h>
#include <quelvane/kx_log.h>

#include "poll/records/level_copy_internal.h"

namespace {

// Trace of PolicyInfo::copyRules.
struct RuleCopyTrace : QvLevelCopyTrace<RuleInfo>
{
    PolicyInfo* dest;
    PolicyInfo* src;

    RuleCopyTrace(PolicyInfo* d, PolicyInfo* s) : dest(d), src(s) {}

    void removing(RuleInfo* item, int)
    {
        kx_log(0, who, "delete ruleItem name %s\n", item->name);
    }
    void removalDone()
    {
        kx_log(0, who, "policyP ruleItems.size() = %d, ruleItems.size = %d\n",
               static_cast<int>(src->ruleItems.size()), static_cast<int>(dest->ruleItems.size()));
    }
    void sourceItem(int i, RuleInfo* item)
    {
        kx_log(0, who, "rule [%d] name %s desc %s\n", i, item->name, item->desc);
    }
    void added(RuleInfo*, int)
    {
        kx_log(0, who, "new object is being added\n");
    }
    void assigned(int j, int i, RuleInfo* item)
    {
        kx_log(0, who, "ruleItems[%d], policyP->ruleItems[%d] name %s\n", j, i, item->name);
    }
    void done()
    {
        kx_log(0, who, "Exit: ruleItems.size %d policyP->ruleItems.size %d\n",
               static_cast<int>(dest->ruleItems.size()), static_cast<int>(src->ruleItems.size()));
    }

    static constexpr const char* who = "PolicyInfo::copyRules";
};

// Trace of FilesystemInfo::copyPolicies.
struct PolicyCopyTrace : QvLevelCopyTrace<PolicyInfo>
{
    FilesystemInfo* dest;
    FilesystemInfo* src;

    PolicyCopyTrace(FilesystemInfo* d, FilesystemInfo* s) : dest(d), src(s) {}

    void checking(PolicyInfo* item)
    {
        kx_log(0, who, "check %s\n", item->name);
    }
    void removing(PolicyInfo* item, int sourceIndex)
    {
        kx_log(0, who, "policyInfo %s not found: index %d\n", item->name, sourceIndex);
    }
    void added(PolicyInfo* item, int destIndex)
    {
        kx_log(0, who, "%s copied, j %d\n", item->name, destIndex);
        kx_log(0, who, "now policy item size = %d\n", static_cast<int>(dest->policyItems.size()));
    }
    void done()
    {
        kx_log(0, who, "fs %s policyItems.size %d, fsP->policyItems.size %d\n", dest->name,
               static_cast<int>(dest->policyItems.size()), static_cast<int>(src->policyItems.size()));
    }

    static constexpr const char* who = "FilesystemInfo::copyPolicies";
};

// Trace of FilesystemInfo::copyPerNodePerfs.
struct PerfCopyTrace : QvLevelCopyTrace<FilesystemPerf>
{
    FilesystemInfo* dest;

    explicit PerfCopyTrace(FilesystemInfo* d) : dest(d) {}

    void checking(FilesystemPerf* item)
    {
        kx_log(0, who, "check %s\n", item->nodeIpAddr);
    }
    void added(FilesystemPerf* item, int)
    {
        kx_log(0, who, "%s copied\n", item->nodeIpAddr);
        kx_log(0, who, "now perf item size = %d\n", static_cast<int>(dest->perNodePerfItems.size()));
    }

    static constexpr const char* who = "FilesystemInfo::copyPerNodePerfs";
};

} // namespace

// ---------------------------------------------------------------------------
// ClusterInfo levels

void ClusterInfo::copyNodes(ClusterInfo* clusterP)
{
    qvLevelCopy(this, clusterP, &ClusterInfo::nodeItems, &ClusterInfo::getNodeInfoIndex,
                &NodeInfo::ipAddr);
    nodeUpdateTime = clusterP->nodeUpdateTime;
}

void ClusterInfo::copyFS(ClusterInfo* clusterP)
{
    qvLevelCopy(this, clusterP, &ClusterInfo::filesystemItems,
                &ClusterInfo::getFilesystemInfoIndex, &FilesystemInfo::name);
    filesystemUpdateTime = clusterP->filesystemUpdateTime;
    filesystemPerfUpdateTime = clusterP->filesystemPerfUpdateTime;
}

void ClusterInfo::copyFreeDisks(ClusterInfo* clusterP)
{
    qvLevelCopy(this, clusterP, &ClusterInfo::freeDiskItems, &ClusterInfo::getFreeDiskInfoIndex,
                &DiskInfo::name);
}

// ---------------------------------------------------------------------------
// FilesystemInfo levels

void FilesystemInfo::copyPools(FilesystemInfo* fsP)
{
    qvLevelCopy(this, fsP, &FilesystemInfo::poolItems, &FilesystemInfo::getStoragePoolInfoIndex,
                &StoragePoolInfo::name);
    poolUpdateTime = fsP->poolUpdateTime;
}

void FilesystemInfo::copyMountedNodes(FilesystemInfo* fsP)
{
    qvLevelCopy(this, fsP, &FilesystemInfo::mountedNodeItems, &FilesystemInfo::getMountedNodeIndex,
                &MountedNodeInfo::nodeIpAddr);
}

void FilesystemInfo::copyPolicies(FilesystemInfo* fsP)
{
    kx_log(0, PolicyCopyTrace::who, "fs %s policyItems.size %d\n", name,
           static_cast<int>(policyItems.size()));
    PolicyCopyTrace trace(this, fsP);
    qvLevelCopy(this, fsP, &FilesystemInfo::policyItems, &FilesystemInfo::getPolicyInfoIndex,
                &PolicyInfo::name, trace);
}

void FilesystemInfo::copyPerNodePerfs(FilesystemInfo* fsP)
{
    PerfCopyTrace trace(this);
    qvLevelCopy(this, fsP, &FilesystemInfo::perNodePerfItems, &FilesystemInfo::getPerNodePerfIndex,
                &FilesystemPerf::nodeIpAddr, trace);
}

// ---------------------------------------------------------------------------
// StoragePoolInfo, DiskInfo, NodeInfo, PolicyInfo levels

void StoragePoolInfo::copyDisks(StoragePoolInfo* poolP)
{
    qvLevelCopy(this, poolP, &StoragePoolInfo::diskItems, &StoragePoolInfo::getDiskInfoIndex,
                &DiskInfo::name);
    diskUpdateTime = poolP->diskUpdateTime;
    diskPerfUpdateTime = poolP->diskPerfUpdateTime;
}

void DiskInfo::copyServers(DiskInfo* diskP)
{
    qvLevelCopy(this, diskP, &DiskInfo::serverItems, &DiskInfo::getServerIndex,
                &DiskServerInfo::name);
}

void DiskInfo::copyBackupServers(DiskInfo* diskP)
{
    qvLevelCopy(this, diskP, &DiskInfo::backupServerItems, &DiskInfo::getBackupServerIndex,
                &DiskServerInfo::name);
}

void NodeInfo::copyDiskAccesses(NodeInfo* nodeP)
{
    qvLevelCopy(this, nodeP, &NodeInfo::diskAccessItems, &NodeInfo::getDiskAccessIndex,
                &DiskAccessInfo::diskName);
}

void PolicyInfo::copyRules(PolicyInfo* policyP)
{
    RuleCopyTrace trace(this, policyP);
    qvLevelCopy(this, policyP, &PolicyInfo::ruleItems, &PolicyInfo::getRuleInfoIndex,
                &RuleInfo::name, trace);
}
