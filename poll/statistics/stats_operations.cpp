// Statistics of the work a node does: operations on the virtual file
// interface ("tavrel vfss") and categories of I/O completion ("tavrel iocs"),
// both in the direct frame.

#include <cstring>

#include <quelvane/api_poll.h>
#include <quelvane/vfs_stats_info.h>

#include "poll/keyword_scan_internal.h"
#include "poll/statistics/stats_families_internal.h"
#include "poll/statistics/stats_frame_internal.h"

// ---------------------------------------------------------------------------
// VfsStatsInfo

namespace {

struct VfsOperation
{
    const char* keyword;
    uint32_t VfsStatsInfo::*count;
    float VfsStatsInfo::*time;
};

// The 45 operations in field order.
const VfsOperation kVfsOperations[] = {
    {"_access_", &VfsStatsInfo::accessCount, &VfsStatsInfo::accessTime},
    {"_close_", &VfsStatsInfo::closeCount, &VfsStatsInfo::closeTime},
    {"_create_", &VfsStatsInfo::createCount, &VfsStatsInfo::createTime},
    {"_fclear_", &VfsStatsInfo::fclearCount, &VfsStatsInfo::fclearTime},
    {"_fsync_", &VfsStatsInfo::fsyncCount, &VfsStatsInfo::fsyncTime},
    {"_fsync_range_", &VfsStatsInfo::fsyncRangeCount, &VfsStatsInfo::fsyncRangeTime},
    {"_ftrunc_", &VfsStatsInfo::ftruncCount, &VfsStatsInfo::ftruncTime},
    {"_getattr_", &VfsStatsInfo::getattrCount, &VfsStatsInfo::getattrTime},
    {"_link_", &VfsStatsInfo::linkCount, &VfsStatsInfo::linkTime},
    {"_lockctl_", &VfsStatsInfo::lockctlCount, &VfsStatsInfo::lockctlTime},
    {"_lookup_", &VfsStatsInfo::lookupCount, &VfsStatsInfo::lookupTime},
    {"_map_lloff_", &VfsStatsInfo::mapLloffCount, &VfsStatsInfo::mapLloffTime},
    {"_mkdir_", &VfsStatsInfo::mkdirCount, &VfsStatsInfo::mkdirTime},
    {"_mknod_", &VfsStatsInfo::mknodCount, &VfsStatsInfo::mknodTime},
    {"_open_", &VfsStatsInfo::openCount, &VfsStatsInfo::openTime},
    {"_read_", &VfsStatsInfo::readCount, &VfsStatsInfo::readTime},
    {"_write_", &VfsStatsInfo::writeCount, &VfsStatsInfo::writeTime},
    {"_mmapRead_", &VfsStatsInfo::mmapReadCount, &VfsStatsInfo::mmapReadTime},
    {"_mmapWrite_", &VfsStatsInfo::mmapWriteCount, &VfsStatsInfo::mmapWriteTime},
    {"_readdir_", &VfsStatsInfo::readdirCount, &VfsStatsInfo::readdirTime},
    {"_readlink_", &VfsStatsInfo::readlinkCount, &VfsStatsInfo::readlinkTime},
    {"_readpage_", &VfsStatsInfo::readpageCount, &VfsStatsInfo::readpageTime},
    {"_remove_", &VfsStatsInfo::removeCount, &VfsStatsInfo::removeTime},
    {"_rename_", &VfsStatsInfo::renameCount, &VfsStatsInfo::renameTime},
    {"_rmdir_", &VfsStatsInfo::rmdirCount, &VfsStatsInfo::rmdirTime},
    {"_setacl_", &VfsStatsInfo::setaclCount, &VfsStatsInfo::setaclTime},
    {"_setattr_", &VfsStatsInfo::setattrCount, &VfsStatsInfo::setattrTime},
    {"_symlink_", &VfsStatsInfo::symlinkCount, &VfsStatsInfo::symlinkTime},
    {"_unmap_", &VfsStatsInfo::unmapCount, &VfsStatsInfo::unmapTime},
    {"_writepage_", &VfsStatsInfo::writepageCount, &VfsStatsInfo::writepageTime},
    {"_kxfattr_", &VfsStatsInfo::kxfattrCount, &VfsStatsInfo::kxfattrTime},
    {"_kxfsattr_", &VfsStatsInfo::kxfsattrCount, &VfsStatsInfo::kxfsattrTime},
    {"_flock_", &VfsStatsInfo::flockCount, &VfsStatsInfo::flockTime},
    {"_setxattr_", &VfsStatsInfo::setxattrCount, &VfsStatsInfo::setxattrTime},
    {"_getxattr_", &VfsStatsInfo::getxattrCount, &VfsStatsInfo::getxattrTime},
    {"_listxattr_", &VfsStatsInfo::listxattrCount, &VfsStatsInfo::listxattrTime},
    {"_removexattr_", &VfsStatsInfo::removexattrCount, &VfsStatsInfo::removexattrTime},
    {"_encode_fh_", &VfsStatsInfo::encodeFhCount, &VfsStatsInfo::encodeFhTime},
    {"_decode_fh_", &VfsStatsInfo::decodeFhCount, &VfsStatsInfo::decodeFhTime},
    {"_get_dentry_", &VfsStatsInfo::getDentryCount, &VfsStatsInfo::getDentryTime},
    {"_get_parent_", &VfsStatsInfo::getParentCount, &VfsStatsInfo::getParentTime},
    {"_mount_", &VfsStatsInfo::mountCount, &VfsStatsInfo::mountTime},
    {"_statfs_", &VfsStatsInfo::statfsCount, &VfsStatsInfo::statfsTime},
    {"_sync_", &VfsStatsInfo::syncCount, &VfsStatsInfo::syncTime},
    {"_vget_", &VfsStatsInfo::vgetCount, &VfsStatsInfo::vgetTime},
};

}  // namespace

VfsStatsInfo::VfsStatsInfo()
{
    clearStats();
}

VfsStatsInfo::VfsStatsInfo(MErrno* err)
{
    *err = 0;
    clearStats();
}

VfsStatsInfo::~VfsStatsInfo() {}

void VfsStatsInfo::clearStats()
{
    recordVersion = 1;
    recordSize = kRecordSize;
    rc = 0;
    memset(nodeAddr, 0, sizeof(nodeAddr));
    for (const VfsOperation& op : kVfsOperations) {
        this->*op.count = 0;
        this->*op.time = 0;
    }
}

VfsStatsInfo& VfsStatsInfo::operator=(const VfsStatsInfo& src)
{
    recordVersion = src.recordVersion;
    recordSize = src.recordSize;
    rc = src.rc;
    for (const VfsOperation& op : kVfsOperations) {
        this->*op.count = src.*op.count;
        this->*op.time = src.*op.time;
    }
    return *this;
}

namespace qv {

void scanVfsLine(VfsStatsInfo* rec, TavrelWrapperUtils* tw)
{
    // Each keyword takes two words, the count and the time. Only "_vget_"
    // counts towards the end of the scan, which comes at its 45th sighting
    // or at the line's end.
    std::vector<KwField> table;
    table.reserve(45);
    for (const VfsOperation& op : kVfsOperations) {
        table.push_back(kwCustom(
            op.keyword,
            [rec, &op](char* count, TavrelWrapperUtils* t) {
                rec->*op.count = kwLow32(count);
                rec->*op.time = kwFloat(kwNextWord(t));
            },
            strcmp(op.keyword, "_vget_") == 0));
    }
    keywordScan(tw, table.data(), table.size(), 45);
}

}  // namespace qv

int PollingHandler::vfsStatsInfo(int, void* bufP, int bufSize, int* nNeeded, int* errP)
{
    return qv::directStatsFrame<VfsStatsInfo>(this, qv::kVfsFamily, bufP, bufSize, nNeeded, errP,
                                              qv::scanVfsLine);
}

// ---------------------------------------------------------------------------
// IocStatsInfo

IocStatsInfo::IocStatsInfo()
{
    clearStats();
}

IocStatsInfo::IocStatsInfo(MErrno* err)
{
    *err = 0;
    clearStats();
}

IocStatsInfo::~IocStatsInfo() {}

void IocStatsInfo::clearStats()
{
    recordVersion = 1;
    recordSize = kRecordSize;
    rc = 0;
    memset(nodeAddr, 0, sizeof(nodeAddr));
    for (uint32_t* pair : {other, mb, steal, cleaner, sync, logwrap, revoke, prefetch})
        pair[0] = pair[1] = 0;
}

IocStatsInfo& IocStatsInfo::operator=(const IocStatsInfo& src)
{
    recordVersion = src.recordVersion;
    recordSize = src.recordSize;
    rc = src.rc;
    memcpy(other, src.other, sizeof(other));
    memcpy(mb, src.mb, sizeof(mb));
    memcpy(steal, src.steal, sizeof(steal));
    memcpy(cleaner, src.cleaner, sizeof(cleaner));
    // The second value of sync receives the source's first.
    sync[0] = src.sync[0];
    sync[1] = src.sync[0];
    memcpy(logwrap, src.logwrap, sizeof(logwrap));
    memcpy(revoke, src.revoke, sizeof(revoke));
    memcpy(prefetch, src.prefetch, sizeof(prefetch));
    return *this;
}

namespace qv {

void scanIocLine(IocStatsInfo* rec, TavrelWrapperUtils* tw)
{
    auto pair = [](const char* kw, uint32_t* dst) {
        return kwCustom(kw, [dst](char* first, TavrelWrapperUtils* t) {
            dst[0] = kwLow32(first);
            dst[1] = kwLow32(kwNextWord(t));
        });
    };
    const KwField table[] = {
        pair("_other_", rec->other),     pair("_mb_", rec->mb),
        pair("_steal_", rec->steal),     pair("_cleaner_", rec->cleaner),
        pair("_sync_", rec->sync),       pair("_logwrap_", rec->logwrap),
        pair("_revoke_", rec->revoke),   pair("_prefetch_", rec->prefetch),
    };
    keywordScan(tw, table, 8);
}

}  // namespace qv

int PollingHandler::iocStatsInfo(int, void* bufP, int bufSize, int* nNeeded, int* errP)
{
    return qv::directStatsFrame<IocStatsInfo>(this, qv::kIocFamily, bufP, bufSize, nNeeded, errP,
                                              qv::scanIocLine);
}
