// ClusterInfo and ClusterStatus: construction, destruction, own-field
// assignment and the access by position.

#include <quelvane/cluster_info.h>
#include <quelvane/config_stats_info.h>

#include <cstring>

#include "poll/records/records_text_internal.h"
#include "poll/statistics/shared_records_internal.h"

ClusterInfo::ClusterInfo(MErrno* err)
    : maxBlockSize(0),
      distribTokenServer(0),
      failureDetectionTime(0),
      sdrField1011(0),
      minMissedPingTimeout(0),
      maxMissedPingTimeout(0),
      sdrfsGenNumber(0),
      clusterUpdateTime{0, 0},
      nodeUpdateTime{0, 0},
      filesystemUpdateTime{0, 0},
      filesystemPerfUpdateTime{0, 0},
      diskSdrUpdateTime{0, 0}
{
    qvClearText(clusterName);
    qvClearText(sdrField1002);
    qvClearText(sdrField1003);
    qvClearText(maxFeature);
    qvClearText(sdrField1008);
    qvClearText(sdrField1006);
    qvClearText(sdrField1007);
    qvClearText(sdrField1004);
    qvClearText(sdrField1005);
    nodeItems.reserve(1024);
    filesystemItems.reserve(32);
    freeDiskItems.reserve(1024);
    *err = 0;
}

ClusterInfo::~ClusterInfo()
{
    // Top down: nodes, the configuration records, filesystems, free disks.
    for (NodeInfo* n : nodeItems)
        delete n;
    nodeItems.clear();
    // A configuration record goes with the last list that holds it.
    for (ClusterCfgInfo*& r : clusterCfgItems)
        qv::releaseShared(r);
    clusterCfgItems.clear();
    for (FilesystemInfo* f : filesystemItems)
        delete f;
    filesystemItems.clear();
    for (DiskInfo* d : freeDiskItems)
        delete d;
    freeDiskItems.clear();
}

ClusterInfo& ClusterInfo::operator=(ClusterInfo& other)
{
    qvCopyText(clusterName, other.clusterName);
    qvCopyText(sdrField1002, other.sdrField1002);
    qvCopyText(sdrField1003, other.sdrField1003);
    qvCopyText(maxFeature, other.maxFeature);
    qvCopyText(sdrField1008, other.sdrField1008);
    qvCopyText(sdrField1006, other.sdrField1006);
    qvCopyText(sdrField1007, other.sdrField1007);
    qvCopyText(sdrField1004, other.sdrField1004);
    qvCopyText(sdrField1005, other.sdrField1005);
    maxBlockSize = other.maxBlockSize;
    distribTokenServer = other.distribTokenServer;
    failureDetectionTime = other.failureDetectionTime;
    sdrField1011 = other.sdrField1011;
    minMissedPingTimeout = other.minMissedPingTimeout;
    maxMissedPingTimeout = other.maxMissedPingTimeout;
    sdrfsGenNumber = other.sdrfsGenNumber;
    nodeUpdateTime = other.nodeUpdateTime;
    filesystemUpdateTime = other.filesystemUpdateTime;
    filesystemPerfUpdateTime = other.filesystemPerfUpdateTime;
    return *this;
}

NodeInfo* ClusterInfo::getNode(int position)
{
    // A negative position becomes a huge index and fails the range check too.
    return nodeItems.at(static_cast<size_t>(position));
}

ClusterStatus::ClusterStatus()
{
    init();
}

ClusterStatus::~ClusterStatus()
{
}

int ClusterStatus::init()
{
    memset(managerName, 0, sizeof(managerName));
    memset(managerIpAddr, 0, sizeof(managerIpAddr));
    nodesDefined = 0;
    localNodesActive = 0;
    remoteNodesJoined = 0;
    quorumNodesDefined = 0;
    quorumNodesActive = 0;
    quorum = 0;
    quorumAchieved = 0;
    return 0;
}
