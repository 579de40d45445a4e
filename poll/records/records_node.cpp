// NodeInfo and DiskAccessInfo: construction, destruction and own-field
// assignment.

#include <quelvane/cache_stats_info.h>
#include <quelvane/cluster_info.h>
#include <quelvane/config_stats_info.h>
#include <quelvane/pcache_stats_info.h>
#include <quelvane/vfs_stats_info.h>

#include <new>

#include "poll/records/records_text_internal.h"

NodeInfo::NodeInfo(MErrno* err)
    : failures(0),
      threadWait(0),
      pagePool(0),
      pfThreads(0),
      maxMBps(0),
      maxFilesToCache(0),
      maxStatCache(0),
      wkr1Threads(0),
      dmapiEventTimeout(0),
      dmapiMountTimeout(0),
      dmapiSessFailureTimeout(0),
      nsdServerWaitTimeWindowOnMount(0),
      nsdServerWaitTimeForMount(0),
      lastUpdateTime{0, 0},
      found(0),
      iocStats(nullptr),
      vfsStats(nullptr),
      threadUtil(nullptr),
      rpcUtil(nullptr),
      rpcRawUtil(nullptr),
      rpcSizeUtil(nullptr),
      rpcMsgUtil(nullptr),
      rpcUtilPerSec(nullptr),
      cacheStats(nullptr),
      kxcommCfg(nullptr),
      verbsClient(nullptr),
      verbsServer(nullptr)
{
    qvClearText(name);
    qvClearText(ipAddr);
    qvClearText(platform);
    qvClearText(endian);
    qvClearText(roles);
    qvClearText(sdrField2010);
    qvClearText(adminState);
    qvClearText(status);
    qvClearText(version);
    qvClearText(healthy);
    qvClearText(diagnosis);
    qvClearText(unmountOnDiskFail);
    *err = 0;
}

NodeInfo::~NodeInfo()
{
    for (DiskAccessInfo* a : diskAccessItems)
        delete a;
    diskAccessItems.clear();
    for (PCacheStatsInfo* p : pCacheItems)
        delete p;
    pCacheItems.clear();
    delete iocStats;
    delete vfsStats;
    delete threadUtil;
    delete cacheStats;
    delete kxcommCfg;
    delete verbsClient;
    delete verbsServer;
    // The five RPC records are left alone: the application may go on
    // reading them (those made by the updates are given back at the end of
    // the process).
}

NodeInfo& NodeInfo::operator=(NodeInfo& other)
{
    qvCopyText(name, other.name);
    qvCopyText(ipAddr, other.ipAddr);
    qvCopyText(platform, other.platform);
    qvCopyText(endian, other.endian);
    qvCopyText(roles, other.roles);
    qvCopyText(sdrField2010, other.sdrField2010);
    qvCopyText(adminState, other.adminState);
    qvCopyText(status, other.status);
    qvCopyText(version, other.version);
    qvCopyText(healthy, other.healthy);
    qvCopyText(diagnosis, other.diagnosis);
    failures = other.failures;
    threadWait = other.threadWait;
    pagePool = other.pagePool;
    pfThreads = other.pfThreads;
    maxMBps = other.maxMBps;
    maxFilesToCache = other.maxFilesToCache;
    maxStatCache = other.maxStatCache;
    wkr1Threads = other.wkr1Threads;
    dmapiEventTimeout = other.dmapiEventTimeout;
    dmapiMountTimeout = other.dmapiMountTimeout;
    dmapiSessFailureTimeout = other.dmapiSessFailureTimeout;
    nsdServerWaitTimeWindowOnMount = other.nsdServerWaitTimeWindowOnMount;
    nsdServerWaitTimeForMount = other.nsdServerWaitTimeForMount;
    qvCopyText(unmountOnDiskFail, other.unmountOnDiskFail);
    lastUpdateTime = other.lastUpdateTime;
    // The sweep mark belongs to the collector of the destination's tree.
    found = 0;
    return *this;
}

DiskAccessInfo::DiskAccessInfo(MErrno* err) : local(0)
{
    qvClearText(diskName);
    qvClearText(deviceName);
    qvClearText(serverName);
    *err = 0;
}

DiskAccessInfo::~DiskAccessInfo()
{
}

DiskAccessInfo& DiskAccessInfo::operator=(DiskAccessInfo& other)
{
    qvCopyText(diskName, other.diskName);
    local = other.local;
    qvCopyText(deviceName, other.deviceName);
    qvCopyText(serverName, other.serverName);
    return *this;
}
