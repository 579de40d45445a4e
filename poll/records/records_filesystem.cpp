// FilesystemInfo and the records that hang off it directly: mounted nodes,
// policies with their rules, and per-node counters.

#include <quelvane/cluster_info.h>

#include "poll/records/records_text_internal.h"

// ---------------------------------------------------------------------------
// FilesystemInfo

FilesystemInfo::FilesystemInfo(MErrno* err)
    : readDuration(0),
      writeDuration(0),
      nSysMgt(0),
      mgrChangeCnt(0),
      totalSpace(0),
      totalInodes(0),
      freeSpace(0),
      freeInodes(0),
      fullBlockFreeSpace(0),
      fragFreeSpace(0),
      minFragmentSize(0),
      inodeSize(0),
      indirectBlockSize(0),
      defaultMetadataReplicas(0),
      maxMetadataReplicas(0),
      defaultDataReplicas(0),
      maxDataReplicas(0),
      estimatedAverageFilesize(0),
      numNodes(0),
      blockSize(0),
      maxNumberOfInodes(0),
      poolUpdateTime{0, 0},
      found(0),
      mountPointValid(0)
{
    qvClearText(name);
    qvClearText(manager);
    qvClearText(status);
    qvCopyText(status, "unknown");
    qvClearText(xstatus);
    qvClearText(threadWait);
    qvClearText(diskWait);
    qvClearText(blockAllocationType);
    qvClearText(fileLockingSemantics);
    qvClearText(ACLSemantics);
    qvClearText(quotasEnforced);
    qvClearText(defaultQuotasEnabled);
    qvClearText(filesystemVersion);
    qvClearText(supportForLargeLUNs);
    qvClearText(DMAPIEnabled);
    qvClearText(exactMtime);
    qvClearText(suppressAtime);
    qvClearText(automaticMountOption);
    qvClearText(additionalMountOptions);
    qvClearText(defaultMountPoint);
    clearStats();
    poolItems.reserve(256);
    mountedNodeItems.reserve(1024);
    policyItems.reserve(32);
    perNodePerfItems.reserve(1024);
    *err = 0;
}

FilesystemInfo::~FilesystemInfo()
{
    for (StoragePoolInfo* p : poolItems)
        delete p;
    poolItems.clear();
    for (MountedNodeInfo* m : mountedNodeItems)
        delete m;
    mountedNodeItems.clear();
    for (PolicyInfo* p : policyItems)
        delete p;
    policyItems.clear();
    for (FilesystemPerf* p : perNodePerfItems)
        delete p;
    perNodePerfItems.clear();
}

void FilesystemInfo::clearStats()
{
    bytesRead = 0;
    bytesCache = 0;
    bytesWritten = 0;
    reads = 0;
    caches = 0;
    writes = 0;
    openCalls = 0;
    closeCalls = 0;
    readCalls = 0;
    writeCalls = 0;
    dirCalls = 0;
    inodeUpdates = 0;
    ircCount = 0;
    idcCount = 0;
    iccCount = 0;
    schCount = 0;
    scmCount = 0;
    perfInstances = 0;
}

FilesystemInfo& FilesystemInfo::operator=(FilesystemInfo& other)
{
    qvCopyText(name, other.name);
    qvCopyText(manager, other.manager);
    qvCopyText(status, other.status);
    qvCopyText(xstatus, other.xstatus);
    readDuration = other.readDuration;
    writeDuration = other.writeDuration;
    nSysMgt = other.nSysMgt;
    mgrChangeCnt = other.mgrChangeCnt;
    totalSpace = other.totalSpace;
    totalInodes = other.totalInodes;
    freeSpace = other.freeSpace;
    freeInodes = other.freeInodes;
    fullBlockFreeSpace = other.fullBlockFreeSpace;
    fragFreeSpace = other.fragFreeSpace;
    qvCopyText(threadWait, other.threadWait);
    qvCopyText(diskWait, other.diskWait);
    minFragmentSize = other.minFragmentSize;
    inodeSize = other.inodeSize;
    indirectBlockSize = other.indirectBlockSize;
    defaultMetadataReplicas = other.defaultMetadataReplicas;
    maxMetadataReplicas = other.maxMetadataReplicas;
    defaultDataReplicas = other.defaultDataReplicas;
    maxDataReplicas = other.maxDataReplicas;
    qvCopyText(blockAllocationType, other.blockAllocationType);
    qvCopyText(fileLockingSemantics, other.fileLockingSemantics);
    qvCopyText(ACLSemantics, other.ACLSemantics);
    estimatedAverageFilesize = other.estimatedAverageFilesize;
    numNodes = other.numNodes;
    blockSize = other.blockSize;
    qvCopyText(quotasEnforced, other.quotasEnforced);
    qvCopyText(defaultQuotasEnabled, other.defaultQuotasEnabled);
    maxNumberOfInodes = other.maxNumberOfInodes;
    qvCopyText(filesystemVersion, other.filesystemVersion);
    qvCopyText(supportForLargeLUNs, other.supportForLargeLUNs);
    qvCopyText(DMAPIEnabled, other.DMAPIEnabled);
    qvCopyText(exactMtime, other.exactMtime);
    qvCopyText(suppressAtime, other.suppressAtime);
    qvCopyText(automaticMountOption, other.automaticMountOption);
    qvCopyText(additionalMountOptions, other.additionalMountOptions);
    qvCopyText(defaultMountPoint, other.defaultMountPoint);
    bytesRead = other.bytesRead;
    bytesCache = other.bytesCache;
    bytesWritten = other.bytesWritten;
    reads = other.reads;
    caches = other.caches;
    writes = other.writes;
    openCalls = other.openCalls;
    closeCalls = other.closeCalls;
    readCalls = other.readCalls;
    writeCalls = other.writeCalls;
    dirCalls = other.dirCalls;
    inodeUpdates = other.inodeUpdates;
    ircCount = other.ircCount;
    idcCount = other.idcCount;
    iccCount = other.iccCount;
    schCount = other.schCount;
    scmCount = other.scmCount;
    perfInstances = other.perfInstances;
    poolUpdateTime = other.poolUpdateTime;
    mountPointValid = other.mountPointValid;
    return *this;
}

// ---------------------------------------------------------------------------
// MountedNodeInfo

MountedNodeInfo::MountedNodeInfo(MErrno* err) : found(0)
{
    qvClearText(nodeName);
    qvClearText(nodeIpAddr);
    *err = 0;
}

MountedNodeInfo::~MountedNodeInfo()
{
}

MountedNodeInfo& MountedNodeInfo::operator=(MountedNodeInfo& other)
{
    qvCopyText(nodeName, other.nodeName);
    qvCopyText(nodeIpAddr, other.nodeIpAddr);
    return *this;
}

// ---------------------------------------------------------------------------
// PolicyInfo

PolicyInfo::PolicyInfo(MErrno* err)
{
    qvClearText(name);
    qvClearText(userName);
    qvClearText(installTime);
    ruleItems.reserve(65536);
    *err = 0;
}

PolicyInfo::~PolicyInfo()
{
    for (RuleInfo* r : ruleItems)
        delete r;
    ruleItems.clear();
}

PolicyInfo& PolicyInfo::operator=(PolicyInfo& other)
{
    qvCopyText(name, other.name);
    qvCopyText(userName, other.userName);
    qvCopyText(installTime, other.installTime);
    return *this;
}

// ---------------------------------------------------------------------------
// RuleInfo

RuleInfo::RuleInfo(MErrno* err)
{
    qvClearText(name);
    qvClearText(desc);
    *err = 0;
}

RuleInfo::~RuleInfo()
{
}

RuleInfo& RuleInfo::operator=(RuleInfo& other)
{
    qvCopyText(name, other.name);
    qvCopyText(desc, other.desc);
    return *this;
}

// ---------------------------------------------------------------------------
// FilesystemPerf

FilesystemPerf::FilesystemPerf(MErrno* err) : found(0)
{
    qvClearText(fsName);
    qvClearText(nodeName);
    qvClearText(nodeIpAddr);
    clearStats();
    *err = 0;
}

FilesystemPerf::~FilesystemPerf()
{
}

void FilesystemPerf::clearStats()
{
    bytesRead = 0;
    bytesCache = 0;
    bytesWritten = 0;
    reads = 0;
    caches = 0;
    writes = 0;
    openCalls = 0;
    closeCalls = 0;
    readCalls = 0;
    writeCalls = 0;
    dirCalls = 0;
    inodeUpdates = 0;
    ircCount = 0;
    idcCount = 0;
    iccCount = 0;
    schCount = 0;
    scmCount = 0;
}

FilesystemPerf& FilesystemPerf::operator=(FilesystemPerf& other)
{
    qvCopyText(fsName, other.fsName);
    qvCopyText(nodeName, other.nodeName);
    qvCopyText(nodeIpAddr, other.nodeIpAddr);
    bytesRead = other.bytesRead;
    bytesCache = other.bytesCache;
    bytesWritten = other.bytesWritten;
    reads = other.reads;
    caches = other.caches;
    writes = other.writes;
    openCalls = other.openCalls;
    closeCalls = other.closeCalls;
    readCalls = other.readCalls;
    writeCalls = other.writeCalls;
    dirCalls = other.dirCalls;
    inodeUpdates = other.inodeUpdates;
    ircCount = other.ircCount;
    idcCount = other.idcCount;
    iccCount = other.iccCount;
    schCount = other.schCount;
    scmCount = other.scmCount;
    return *this;
}
