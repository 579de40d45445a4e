// StoragePoolInfo, DiskInfo and DiskServerInfo: construction, destruction,
// counters and own-field assignment.

#include <quelvane/cluster_info.h>

#include "poll/records/records_text_internal.h"

// ---------------------------------------------------------------------------
// StoragePoolInfo

StoragePoolInfo::StoragePoolInfo(MErrno* err)
    : nDisks(0),
      totalSpace(0),
      freeSpace(0),
      fsIndex(0),
      found(0),
      diskUpdateTime{0, 0},
      diskPerfUpdateTime{0, 0}
{
    qvClearText(name);
    qvClearText(status);
    clearStats();
    diskItems.reserve(1024);
    *err = 0;
}

StoragePoolInfo::~StoragePoolInfo()
{
    for (DiskInfo* d : diskItems)
        delete d;
    diskItems.clear();
}

void StoragePoolInfo::clearStats()
{
    bytesRead = 0;
    bytesWritten = 0;
    readTime = 0.0;
    writeTime = 0.0;
}

StoragePoolInfo& StoragePoolInfo::operator=(StoragePoolInfo& other)
{
    qvCopyText(name, other.name);
    qvCopyText(status, other.status);
    nDisks = other.nDisks;
    totalSpace = other.totalSpace;
    freeSpace = other.freeSpace;
    fsIndex = other.fsIndex;
    diskUpdateTime = other.diskUpdateTime;
    diskPerfUpdateTime = other.diskPerfUpdateTime;
    bytesRead = other.bytesRead;
    bytesWritten = other.bytesWritten;
    readTime = other.readTime;
    writeTime = other.writeTime;
    return *this;
}

// ---------------------------------------------------------------------------
// DiskInfo

DiskInfo::DiskInfo(MErrno* err)
    : found(0),
      isFree(0),
      totalSpace(0),
      fullBlockFreeSpace(0),
      fragFreeSpace(0)
{
    qvClearText(name);
    qvClearText(nodeName);
    qvClearText(poolName);
    qvClearText(status);
    qvCopyText(status, "unknown");
    qvClearText(availability);
    qvClearText(sdrField3007);
    qvClearText(sdrField3008);
    qvClearText(holdsMetadata);
    qvClearText(holdsData);
    qvClearText(diskWait);
    clearStats();
    serverItems.reserve(32);
    backupServerItems.reserve(32);
    *err = 0;
}

DiskInfo::~DiskInfo()
{
    for (DiskServerInfo* s : serverItems)
        delete s;
    serverItems.clear();
    for (DiskServerInfo* s : backupServerItems)
        delete s;
    backupServerItems.clear();
}

void DiskInfo::clearStats()
{
    readTime = 0.0;
    writeTime = 0.0;
    longestReadTime = 0.0;
    longestWriteTime = 0.0;
    shortestReadTime = 0.0;
    shortestWriteTime = 0.0;
    bytesRead = 0;
    bytesWritten = 0;
    readOps = 0;
    writeOps = 0;
    perfInstanceCount = 0;
}

void DiskInfo::updateDiskInfoStatus(char* newStatus)
{
    if (newStatus != nullptr)
        qvCopyText(status, newStatus);
}

DiskInfo& DiskInfo::operator=(DiskInfo& other)
{
    isFree = other.isFree;
    qvCopyText(name, other.name);
    qvCopyText(nodeName, other.nodeName);
    qvCopyText(poolName, other.poolName);
    // The three limited texts may fill their arrays: copied whole.
    qvCopyLimitedText(status, other.status);
    qvCopyLimitedText(availability, other.availability);
    qvCopyText(sdrField3007, other.sdrField3007);
    qvCopyText(sdrField3008, other.sdrField3008);
    qvCopyText(holdsMetadata, other.holdsMetadata);
    qvCopyText(holdsData, other.holdsData);
    qvCopyLimitedText(diskWait, other.diskWait);
    totalSpace = other.totalSpace;
    fullBlockFreeSpace = other.fullBlockFreeSpace;
    fragFreeSpace = other.fragFreeSpace;
    readTime = other.readTime;
    writeTime = other.writeTime;
    longestReadTime = other.longestReadTime;
    longestWriteTime = other.longestWriteTime;
    shortestReadTime = other.shortestReadTime;
    shortestWriteTime = other.shortestWriteTime;
    bytesRead = other.bytesRead;
    bytesWritten = other.bytesWritten;
    readOps = other.readOps;
    writeOps = other.writeOps;
    perfInstanceCount = other.perfInstanceCount;
    return *this;
}

// ---------------------------------------------------------------------------
// DiskServerInfo

DiskServerInfo::DiskServerInfo(MErrno* err)
{
    qvClearText(name);
    *err = 0;
}

DiskServerInfo::~DiskServerInfo()
{
}

DiskServerInfo& DiskServerInfo::operator=(DiskServerInfo& other)
{
    qvCopyText(name, other.name);
    return *this;
}
