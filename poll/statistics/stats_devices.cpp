// Traffic statistics of devices, in the staged frame: per disk ("tavrel
// ds"), per storage pool ("tavrel plios"), per filesystem ("tavrel fis") and
// of a shared disk server ("tavrel nsd_dst").

#include <cstring>

#include <quelvane/api_poll.h>
#include <quelvane/device_stats_info.h>

#include "poll/keyword_scan_internal.h"
#include "poll/statistics/stats_families_internal.h"

namespace {

template <size_t N>
void clearText(char (&t)[N])
{
    memset(t, 0, N);
}

// Reads the next line beginning with `prefix` ("_r_" or "_w_") and scans it:
// getNextInstance reads forward over every other line.
template <size_t N>
void scanDirectionLine(TavrelWrapperUtils* tw, const char* prefix, const qv::KwField (&table)[N])
{
    if (tw->getNextInstance(prefix))
        qv::keywordScan(tw, table, static_cast<int>(N));
}

}  // namespace

// ---------------------------------------------------------------------------
// DiskStatsInfo

DiskStatsInfo::DiskStatsInfo(MErrno* err)
{
    *err = 0;
    writeStw = 0;
    clearStats();
}

DiskStatsInfo::~DiskStatsInfo() {}

void DiskStatsInfo::clearStats()
{
    recordVersion = 1;
    recordSize = kRecordSize;
    rc = 0;
    clearText(nodeAddr);
    clearText(fsName);
    clearText(diskName);
    clearText(clusterName);
    readOps = writeOps = 0;
    readBytes = writeBytes = 0;
    readTw = writeTw = 0;
    readQt = writeQt = 0;
    readStw = 0;   // writeStw keeps its value
    readSqt = writeSqt = 0;
    readLtw = writeLtw = 0;
    readLqt = writeLqt = 0;
}

DiskStatsInfo& DiskStatsInfo::operator=(const DiskStatsInfo& src)
{
    if (this != &src)
        memcpy(static_cast<void*>(this), &src, sizeof(*this));
    return *this;
}

int PollingHandler::diskStatsInfo(int, void* bufP, int bufSize, int* nNeeded, int* errP)
{
    return qv::stagedStatsFrame<DiskStatsInfo>(
        this, qv::kDiskFamily, bufP, bufSize, nNeeded, errP, [](DiskStatsInfo* rec, TavrelWrapperUtils* tw) {
            qv::statsCopyText(rec->fsName, tw->getBufferedValue("_fs_", 0, 256));
            qv::statsCopyText(rec->diskName, tw->getBufferedValue("_d_", 0, 256));
            qv::statsCopyText(rec->clusterName, tw->getBufferedValue("_cl_", 0, 256));
            const qv::KwField reads[] = {
                qv::kwU32("_ops_", &rec->readOps),   qv::kwU64("_b_", &rec->readBytes),
                qv::kwDouble("_tw_", &rec->readTw),  qv::kwDouble("_qt_", &rec->readQt),
                qv::kwDouble("_stw_", &rec->readStw), qv::kwDouble("_sqt_", &rec->readSqt),
                qv::kwDouble("_ltw_", &rec->readLtw), qv::kwDouble("_lqt_", &rec->readLqt),
            };
            scanDirectionLine(tw, "_r_", reads);
            const qv::KwField writes[] = {
                qv::kwU32("_ops_", &rec->writeOps),   qv::kwU64("_b_", &rec->writeBytes),
                qv::kwDouble("_tw_", &rec->writeTw),  qv::kwDouble("_qt_", &rec->writeQt),
                qv::kwDouble("_stw_", &rec->writeStw), qv::kwDouble("_sqt_", &rec->writeSqt),
                qv::kwDouble("_ltw_", &rec->writeLtw), qv::kwDouble("_lqt_", &rec->writeLqt),
            };
            scanDirectionLine(tw, "_w_", writes);
        });
}

// ---------------------------------------------------------------------------
// PoolIoStatsInfo

PoolIoStatsInfo::PoolIoStatsInfo(MErrno* err)
{
    *err = 0;
    nDisks = 0;
    clearStats();
}

PoolIoStatsInfo::~PoolIoStatsInfo() {}

void PoolIoStatsInfo::clearStats()
{
    recordVersion = 1;
    recordSize = kRecordSize;
    rc = 0;
    clearText(nodeAddr);
    clearText(fsName);
    clearText(poolName);
    // nDisks keeps its value.
    bytesRead = 0;
    bytesWritten = 0;
}

PoolIoStatsInfo& PoolIoStatsInfo::operator=(const PoolIoStatsInfo& src)
{
    if (this != &src)
        memcpy(static_cast<void*>(this), &src, sizeof(*this));
    return *this;
}

int PollingHandler::poolIoStatsInfo(int, void* bufP, int bufSize, int* nNeeded, int* errP)
{
    return qv::stagedStatsFrame<PoolIoStatsInfo>(
        this, qv::kPoolIoFamily, bufP, bufSize, nNeeded, errP, [](PoolIoStatsInfo* rec, TavrelWrapperUtils* tw) {
            qv::statsCopyText(rec->fsName, tw->getBufferedValue("_fs_", 0, 256));
            qv::statsCopyText(rec->poolName, tw->getBufferedValue("_pl_", 0, 256));
            const qv::KwField table[] = {
                qv::kwU32("_d_", &rec->nDisks),
                qv::kwU64("_br_", &rec->bytesRead),
                qv::kwU64("_bw_", &rec->bytesWritten),
            };
            qv::keywordScan(tw, table, 3);
        });
}

// ---------------------------------------------------------------------------
// FsIoStatsInfo

FsIoStatsInfo::FsIoStatsInfo(MErrno* err)
{
    *err = 0;
    clearStats();
}

FsIoStatsInfo::~FsIoStatsInfo() {}

void FsIoStatsInfo::clearStats()
{
    recordVersion = 1;
    recordSize = kRecordSize;
    rc = 0;
    nDisks = 0;
    clearText(nodeAddr);
    clearText(fsName);
    bytesRead = bytesWritten = 0;
    opens = closes = reads = writes = dirs = 0;
    inodeUpdates = 0;
}

FsIoStatsInfo& FsIoStatsInfo::operator=(const FsIoStatsInfo& src)
{
    if (this != &src)
        memcpy(static_cast<void*>(this), &src, sizeof(*this));
    return *this;
}

int PollingHandler::fsIoStatsInfo(int, void* bufP, int bufSize, int* nNeeded, int* errP)
{
    return qv::stagedStatsFrame<FsIoStatsInfo>(
        this, qv::kFsIoFamily, bufP, bufSize, nNeeded, errP, [](FsIoStatsInfo* rec, TavrelWrapperUtils* tw) {
            qv::statsCopyText(rec->fsName, tw->getBufferedValue("_fs_", 0, 256));
            const qv::KwField table[] = {
                qv::kwU32("_d_", &rec->nDisks),       qv::kwU64("_br_", &rec->bytesRead),
                qv::kwU64("_bw_", &rec->bytesWritten), qv::kwU32("_oc_", &rec->opens),
                qv::kwU32("_cc_", &rec->closes),      qv::kwU32("_rdc_", &rec->reads),
                qv::kwU32("_wc_", &rec->writes),      qv::kwU32("_dir_", &rec->dirs),
                qv::kwU64("_iu_", &rec->inodeUpdates),
            };
            qv::keywordScan(tw, table, 9);
        });
}

// ---------------------------------------------------------------------------
// NsdServerStatsInfo

NsdServerStatsInfo::NsdServerStatsInfo(MErrno* err)
{
    *err = 0;
    clearStats();
}

NsdServerStatsInfo::~NsdServerStatsInfo() {}

void NsdServerStatsInfo::clearStats()
{
    recordVersion = 1;
    recordSize = kRecordSize;
    rc = 0;
    clearText(nodeAddr);
    clearText(devName);
    clearText(diskName);
    readOps = writeOps = 0;
    readBytes = writeBytes = 0;
    readTw = writeTw = 0;
}

NsdServerStatsInfo& NsdServerStatsInfo::operator=(const NsdServerStatsInfo& src)
{
    if (this != &src)
        memcpy(static_cast<void*>(this), &src, sizeof(*this));
    return *this;
}

int PollingHandler::nsdServerStatsInfo(int, void* bufP, int bufSize, int* nNeeded, int* errP)
{
    return qv::stagedStatsFrame<NsdServerStatsInfo>(
        this, qv::kNsdServerFamily, bufP, bufSize, nNeeded, errP,
        [](NsdServerStatsInfo* rec, TavrelWrapperUtils* tw) {
            qv::statsCopyText(rec->diskName, tw->getBufferedValue("_d_", 0, 256));
            qv::statsCopyText(rec->devName, tw->getBufferedValue("_dev_", 0, 256));
            const qv::KwField reads[] = {
                qv::kwU32("_ops_", &rec->readOps),
                qv::kwU64("_b_", &rec->readBytes),
                qv::kwDouble("_tw_", &rec->readTw),
            };
            scanDirectionLine(tw, "_r_", reads);
            const qv::KwField writes[] = {
                qv::kwU32("_ops_", &rec->writeOps),
                qv::kwU64("_b_", &rec->writeBytes),
                qv::kwDouble("_tw_", &rec->writeTw),
            };
            scanDirectionLine(tw, "_w_", writes);
        });
}
