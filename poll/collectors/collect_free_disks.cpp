// Free disks: size and status of the disks that the repository lists without
// a filesystem, asked from the daemon with "get nsddisk" and a list of names,
// in as few requests as fit a 1024-character name buffer. The recipe's free
// disks are updated under the polling lock and then handed to the caller.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>
#include <quelvane/kx_log.h>
#include <quelvane/tavrel_wrapper_utils.h>

#include "poll/keyword_scan_internal.h"

namespace {

const char* const kWhoFree = "PollingHandler::updateFreeDiskInfo";

// The name buffer of one request holds 1024 characters; the names of a batch
// may add up to 1023 of them. The blanks behind the names are not counted.
const size_t kNameBudget = 1023;

}  // namespace

int PollingHandler::updateFreeDiskInfo(ClusterInfo* clusterP)
{
    getPollingLock();
    int nDisks = static_cast<int>(recipe->freeDiskItems.size());
    int start = 0;
    int rc = 0;
    TavrelWrapperUtils* tw = tavrelWrapper;

    for (;;) {
        kx_log(0, kWhoFree, "recipe numFreeDisks %d start %d\n", nDisks, start);

        // The list may run past the name budget by one blank per disk; it is
        // built where that fits.
        std::string list;
        size_t sum = 0;
        while (start < nDisks) {
            const char* name = recipe->freeDiskItems[static_cast<size_t>(start)]->name;
            sum += strlen(name);
            if (sum > kNameBudget)
                break;
            list += name;
            list += ' ';
            start++;
        }
        kx_log(0, kWhoFree, "recipe free disks (i %d nDisks %d) %s\n", start, nDisks, list.c_str());

        std::vector<char> cmd(list.size() + 17);
        snprintf(cmd.data(), cmd.size(), "%s %s", "get nsddisk", list.c_str());
        kx_log(0, kWhoFree, "cmd: %s\n", cmd.data());
        rc = processCommand(cmd.data());
        tw->prepBuffer();

        while (tw->getNextInstance("_nsddisk_")) {
            char name[256] = {};
            char status[256] = {};
            int32_t iocnt = 0;
            int size = 0;
            const qv::KwField table[] = {
                qv::kwText("_name_", name),
                qv::kwText("_dstatus_", status),
                qv::kwI32("_iocnt_", &iocnt),
                qv::kwCustom("_size_", [&size](char* v, TavrelWrapperUtils*) {
                    // Kilobytes, through a signed 32-bit number.
                    size = static_cast<int32_t>(strtol(v, nullptr, 10));
                }),
            };
            qv::keywordScan(tw, table, 4);
            (void)iocnt;

            // An unknown name is out of range: the exception leaves this
            // operation with the lock still held.
            int index = recipe->getFreeDiskInfoIndex(name);
            DiskInfo* disk = recipe->freeDiskItems.at(static_cast<size_t>(index));
            disk->totalSpace = static_cast<long long>(size) * 1024;
            disk->updateDiskInfoStatus(status);
            kx_log(0, kWhoFree, "getFreeDiskInfoIndex: %s %s %d %d %lld KB\n", name, status,
                   index, size, disk->totalSpace);
        }
        tw->cleanupCommand();

        // The test is that of the last index, not of the count.
        if (start >= nDisks - 1)
            break;
        kx_log(0, kWhoFree, "allRead %d\n", 0);
    }
    kx_log(0, kWhoFree, "allRead %d\n", 1);

    clusterP->copyFreeDisks(recipe);
    for (size_t i = 0; i < recipe->freeDiskItems.size() && i < clusterP->freeDiskItems.size(); i++) {
        clusterP->freeDiskItems[i]->copyServers(recipe->freeDiskItems[i]);
        clusterP->freeDiskItems[i]->copyBackupServers(recipe->freeDiskItems[i]);
    }
    kx_log(0, kWhoFree, "copyFreeDisks clusterP freeDiskItems %d\n",
           static_cast<int>(clusterP->freeDiskItems.size()));

    releasePollingLock();
    return rc;
}
