#ifndef QUELVANE_VFS_STATS_INFO_H
#define QUELVANE_VFS_STATS_INFO_H

// Statistics of the work a node does: operations on the virtual file
// interface ("tavrel vfss") and categories of I/O completion ("tavrel
// iocs"). Plain data of a fixed size; the application may copy them as bytes.
// Both start with the header of every statistics record: recordVersion (1),
// recordSize, rc (the _rc_ of a failed instance, else 0) and nodeAddr (the
// address of the node that answered).

#include <cstdint>

#include <quelvane/export.h>
#include <quelvane/merrno.h>

// Count and time of each of 45 operations (628 bytes). Count and time of one
// operation come from one keyword followed by two words; times are the
// daemon's, narrowed to float.
class QUELVANE_API VfsStatsInfo
{
public:
    uint32_t recordVersion;
    uint32_t recordSize;
    int32_t rc;
    char nodeAddr[256];
    uint32_t accessCount;
    uint32_t closeCount;
    uint32_t createCount;
    uint32_t fclearCount;
    uint32_t fsyncCount;
    uint32_t fsyncRangeCount;
    uint32_t ftruncCount;
    uint32_t getattrCount;
    uint32_t linkCount;
    uint32_t lockctlCount;
    uint32_t lookupCount;
    uint32_t mapLloffCount;
    uint32_t mkdirCount;
    uint32_t mknodCount;
    uint32_t openCount;
    uint32_t readCount;
    uint32_t writeCount;
    uint32_t mmapReadCount;
    uint32_t mmapWriteCount;
    uint32_t readdirCount;
    uint32_t readlinkCount;
    uint32_t readpageCount;
    uint32_t removeCount;
    uint32_t renameCount;
    uint32_t rmdirCount;
    uint32_t setaclCount;
    uint32_t setattrCount;
    uint32_t symlinkCount;
    uint32_t unmapCount;
    uint32_t writepageCount;
    uint32_t kxfattrCount;
    uint32_t kxfsattrCount;
    uint32_t flockCount;
    uint32_t setxattrCount;
    uint32_t getxattrCount;
    uint32_t listxattrCount;
    uint32_t removexattrCount;
    uint32_t encodeFhCount;
    uint32_t decodeFhCount;
    uint32_t getDentryCount;
    uint32_t getParentCount;
    uint32_t mountCount;
    uint32_t statfsCount;
    uint32_t syncCount;
    uint32_t vgetCount;
    float accessTime;
    float closeTime;
    float createTime;
    float fclearTime;
    float fsyncTime;
    float fsyncRangeTime;
    float ftruncTime;
    float getattrTime;
    float linkTime;
    float lockctlTime;
    float lookupTime;
    float mapLloffTime;
    float mkdirTime;
    float mknodTime;
    float openTime;
    float readTime;
    float writeTime;
    float mmapReadTime;
    float mmapWriteTime;
    float readdirTime;
    float readlinkTime;
    float readpageTime;
    float removeTime;
    float renameTime;
    float rmdirTime;
    float setaclTime;
    float setattrTime;
    float symlinkTime;
    float unmapTime;
    float writepageTime;
    float kxfattrTime;
    float kxfsattrTime;
    float flockTime;
    float setxattrTime;
    float getxattrTime;
    float listxattrTime;
    float removexattrTime;
    float encodeFhTime;
    float decodeFhTime;
    float getDentryTime;
    float getParentTime;
    float mountTime;
    float statfsTime;
    float syncTime;
    float vgetTime;

    static const uint32_t kRecordSize = 628;

    VfsStatsInfo();
    VfsStatsInfo(MErrno* err);
    ~VfsStatsInfo();
    void clearStats();
    // Copies the header numbers and the counters, not nodeAddr.
    VfsStatsInfo& operator=(const VfsStatsInfo& src);
};

static_assert(sizeof(VfsStatsInfo) == 628, "VfsStatsInfo is 628 bytes");

// Eight categories of I/O completion, two values each (332 bytes).
class QUELVANE_API IocStatsInfo
{
public:
    uint32_t recordVersion;
    uint32_t recordSize;
    int32_t rc;
    char nodeAddr[256];
    uint32_t other[2];          // _other_
    uint32_t mb[2];             // _mb_
    uint32_t steal[2];          // _steal_
    uint32_t cleaner[2];        // _cleaner_
    uint32_t sync[2];           // _sync_
    uint32_t logwrap[2];        // _logwrap_
    uint32_t revoke[2];         // _revoke_
    uint32_t prefetch[2];       // _prefetch_

    static const uint32_t kRecordSize = 332;

    IocStatsInfo();
    IocStatsInfo(MErrno* err);
    ~IocStatsInfo();
    void clearStats();
    // Copies the header numbers and the counters, not nodeAddr; sync[1] of
    // the destination receives sync[0] of the source (the source's sync[1]
    // is not copied).
    IocStatsInfo& operator=(const IocStatsInfo& src);
};

static_assert(sizeof(IocStatsInfo) == 332, "IocStatsInfo is 332 bytes");

#endif
