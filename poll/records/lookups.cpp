// Lookups by key: the position of the first exact match, or -1.

#include <quelvane/cluster_info.h>
#include <quelvane/kx_log.h>

#include "poll/records/level_copy_internal.h"

int ClusterInfo::getNodeInfoIndex(char* key)
{
    return qvFindByKey(nodeItems, &NodeInfo::ipAddr, key);
}

int ClusterInfo::getNodeInfoIndexByName(char* key)
{
    return qvFindByKey(nodeItems, &NodeInfo::name, key);
}

int ClusterInfo::getFilesystemInfoIndex(char* key)
{
    return qvFindByKey(filesystemItems, &FilesystemInfo::name, key);
}

int ClusterInfo::getFreeDiskInfoIndex(char* key)
{
    return qvFindByKey(freeDiskItems, &DiskInfo::name, key);
}

int FilesystemInfo::getStoragePoolInfoIndex(char* key)
{
    return qvFindByKey(poolItems, &StoragePoolInfo::name, key);
}

int FilesystemInfo::getMountedNodeIndex(char* key)
{
    return qvFindByKey(mountedNodeItems, &MountedNodeInfo::nodeIpAddr, key);
}

int FilesystemInfo::getPolicyInfoIndex(char* key)
{
    int index = qvFindByKey(policyItems, &PolicyInfo::name, key);
    kx_log(0, "FilesystemInfo::getPolicyInfoIndex", "index = %d\n", index);
    return index;
}

int FilesystemInfo::getPerNodePerfIndex(char* key)
{
    int index = qvFindByKey(perNodePerfItems, &FilesystemPerf::nodeIpAddr, key);
    kx_log(0, "FilesystemInfo::getPerNodePerfIndex", "index = %d\n", index);
    return index;
}

int StoragePoolInfo::getDiskInfoIndex(char* key)
{
    return qvFindByKey(diskItems, &DiskInfo::name, key);
}

int DiskInfo::getServerIndex(char* key)
{
    return qvFindByKey(serverItems, &DiskServerInfo::name, key);
}

int DiskInfo::getBackupServerIndex(char* key)
{
    return qvFindByKey(backupServerItems, &DiskServerInfo::name, key);
}

int NodeInfo::getDiskAccessIndex(char* key)
{
    return qvFindByKey(diskAccessItems, &DiskAccessInfo::diskName, key);
}

int PolicyInfo::getRuleInfoIndex(char* key)
{
    return qvFindByKey(ruleItems, &RuleInfo::name, key);
}
