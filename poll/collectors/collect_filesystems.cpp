// The filesystem poll: state, space and inode figures of every filesystem the
// recipe knows ("get fs NAME"), and on request the I/O counters per filesystem
// and node ("tavrel gfis"), summed per filesystem. The list of filesystems is
// not changed here; the per-node counter records are, and are swept.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <sys/time.h>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>
#include <quelvane/kx_log.h>
#include <quelvane/tavrel_wrapper_utils.h>

#include "poll/keyword_scan_internal.h"
#include "poll/records/records_text_internal.h"
#include "poll/sweep_internal.h"

namespace {

// A value taken with getBufferedValue: at most 256 bytes, which come without
// a terminator when the value fills them all.
struct BufferedText
{
    char text[257];

    explicit BufferedText(const char* value)
    {
        size_t len = strnlen(value, 256);
        memcpy(text, value, len);
        text[len] = '\0';
    }
};

// Counter rows of "tavrel gfis": the value is stored in the per-node record
// and added to the filesystem's field of the same name.
qv::KwField kwSum64(const char* keyword, unsigned long long* perNode, unsigned long long* sum)
{
    return qv::kwCustom(keyword, [perNode, sum](char* value, TavrelWrapperUtils*) {
        unsigned long long v = strtoull(value, nullptr, 10);
        *perNode = v;
        *sum += v;
    });
}

qv::KwField kwSum32(const char* keyword, unsigned int* perNode, unsigned int* sum)
{
    return qv::kwCustom(keyword, [perNode, sum](char* value, TavrelWrapperUtils*) {
        unsigned int v = static_cast<unsigned int>(strtoul(value, nullptr, 10));
        *perNode = v;
        *sum += v;
    });
}

// Read as a 32-bit count, kept and summed in 64 bits.
qv::KwField kwSum32In64(const char* keyword, unsigned long long* perNode,
                        unsigned long long* sum)
{
    return qv::kwCustom(keyword, [perNode, sum](char* value, TavrelWrapperUtils*) {
        unsigned long long v = static_cast<uint32_t>(strtoul(value, nullptr, 10));
        *perNode = v;
        *sum += v;
    });
}

}  // namespace

int PollingHandler::updateFilesystemInfo(ClusterInfo* clusterP, int withPerf)
{
    const char* who = "PollingHandler::updateFilesystemInfo";
    getPollingLock();

    int nFs = static_cast<int>(recipe->filesystemItems.size());
    if (checkFailedNode() == 1) {
        releasePollingLock();
        return 1;
    }

    for (int i = 0; i < nFs; i++) {
        FilesystemInfo* fs = recipe->filesystemItems[static_cast<size_t>(i)];
        std::vector<char> request(strlen(fs->name) + 12);
        snprintf(request.data(), request.size(), "%s %s", "get fs", fs->name);
        processCommand(request.data());

        tavrelWrapper->prepBuffer();
        if (tavrelWrapper->getNextInstance("_fsstate_")) {
            const qv::KwField table[] = {
                qv::kwText("_status_", fs->status),
                qv::kwText("_xstatus_", fs->xstatus),
                qv::kwI32("_readduration_", &fs->readDuration),
                qv::kwI32("_writeduration_", &fs->writeDuration),
                qv::kwI32("_nsysmgt_", &fs->nSysMgt),
                qv::kwI32("_mgrchangecnt_", &fs->mgrChangeCnt),
                qv::kwI64("_totalspace_", &fs->totalSpace),
                qv::kwI64("_totalinodes_", &fs->totalInodes),
                qv::kwI64("_freespace_", &fs->freeSpace),
                qv::kwI64("_freeinodes_", &fs->freeInodes),
                qv::kwI64("_fullblockfreespace_", &fs->fullBlockFreeSpace),
                qv::kwI64("_fragfreespace_", &fs->fragFreeSpace),
                qv::kwText("_threadwait_", fs->threadWait),
                qv::kwText("_diskwait_", fs->diskWait),
            };
            qv::keywordScan(tavrelWrapper, table, 15);
        } else if (debug != 0) {
            fprintf(stderr, "_warning_ 'get fs %s' returned 0 instance\n", fs->name);
            fflush(stderr);
        }
        tavrelWrapper->cleanupCommand();
    }

    if (withPerf != 0) {
        processCommand("tavrel gfis");
        // The sums start from zero whatever the request gave.
        for (int i = 0; i < nFs; i++)
            recipe->filesystemItems[static_cast<size_t>(i)]->clearStats();

        tavrelWrapper->prepBuffer();
        while (tavrelWrapper->getNextInstance("_tavrel")) {
            int rc = static_cast<int>(
                strtol(tavrelWrapper->getBufferedValue("_rc_", 0, 256), nullptr, 10));
            if (rc != 0) {
                if (debug != 0) {
                    fprintf(stderr,
                            "_warning_ %d instance: 'tavrel gfis' returned error (rc=%d)\n", nFs,
                            rc);
                    fflush(stderr);
                }
                continue;
            }
            BufferedText fsName(tavrelWrapper->getBufferedValue("_fs_", 0, 256));
            int fsIdx = recipe->getFilesystemInfoIndex(fsName.text);
            if (fsIdx < 0)
                continue;
            BufferedText nodeAddr(tavrelWrapper->getBufferedValue("_n_", 0, 256));
            int nodeIdx = recipe->getNodeInfoIndex(nodeAddr.text);
            if (nodeIdx < 0)
                continue;

            FilesystemInfo* fs = recipe->filesystemItems[static_cast<size_t>(fsIdx)];
            NodeInfo* node = recipe->nodeItems[static_cast<size_t>(nodeIdx)];
            int perfIdx = fs->getPerNodePerfIndex(node->ipAddr);
            FilesystemPerf* perf;
            if (perfIdx < 0) {
                MErrno err = 0;
                perf = new FilesystemPerf(&err);
                qvCopyText(perf->fsName, fs->name);
                qvCopyText(perf->nodeName, node->name);
                qvCopyText(perf->nodeIpAddr, node->ipAddr);
                fs->perNodePerfItems.push_back(perf);
            } else {
                perf = fs->perNodePerfItems[static_cast<size_t>(perfIdx)];
            }
            perf->found = 1;
            perf->clearStats();

            const qv::KwField table[] = {
                kwSum64("_br_", &perf->bytesRead, &fs->bytesRead),
                kwSum64("_bc_", &perf->bytesCache, &fs->bytesCache),
                kwSum64("_bw_", &perf->bytesWritten, &fs->bytesWritten),
                kwSum32("_r_", &perf->reads, &fs->reads),
                kwSum32("_c_", &perf->caches, &fs->caches),
                kwSum32("_w_", &perf->writes, &fs->writes),
                kwSum32("_oc_", &perf->openCalls, &fs->openCalls),
                kwSum32("_cc_", &perf->closeCalls, &fs->closeCalls),
                kwSum32("_rdc_", &perf->readCalls, &fs->readCalls),
                kwSum32("_wc_", &perf->writeCalls, &fs->writeCalls),
                kwSum32("_dir_", &perf->dirCalls, &fs->dirCalls),
                kwSum32In64("_iu_", &perf->inodeUpdates, &fs->inodeUpdates),
                kwSum32In64("_irc_", &perf->ircCount, &fs->ircCount),
                kwSum32In64("_idc_", &perf->idcCount, &fs->idcCount),
                kwSum32In64("_icc_", &perf->iccCount, &fs->iccCount),
                kwSum32("_sch_", &perf->schCount, &fs->schCount),
                kwSum32("_scm_", &perf->scmCount, &fs->scmCount),
            };
            qv::keywordScan(tavrelWrapper, table, 17);
            fs->perfInstances++;
        }
        tavrelWrapper->cleanupCommand();
        gettimeofday(&recipe->filesystemPerfUpdateTime, nullptr);
    }

    gettimeofday(&recipe->filesystemUpdateTime, nullptr);
    clusterP->copyFS(recipe);

    for (size_t i = 0; i < recipe->filesystemItems.size() && i < clusterP->filesystemItems.size(); i++) {
        FilesystemInfo* mine = recipe->filesystemItems[i];
        FilesystemInfo* theirs = clusterP->filesystemItems[i];
        theirs->copyMountedNodes(mine);
        if (withPerf != 0) {
            // What this poll did not report goes before the caller sees it;
            // what it did report is unmarked for the next poll.
            qv::sweepUnfound(mine->perNodePerfItems, [who](FilesystemPerf* perf) {
                kx_log(0, who, "Erase perf %s\n", perf->nodeIpAddr);
            });
            qv::clearFound(mine->perNodePerfItems);
            theirs->copyPerNodePerfs(mine);
        }
    }

    releasePollingLock();
    return 0;
}
