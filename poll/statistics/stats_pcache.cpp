// Per-fileset cache transfer statistics ("tavrel pncs"), in the staged
// frame. The scan's length depends on the command count that the line
// itself announces.

#include <cstring>

#include <quelvane/api_poll.h>
#include <quelvane/pcache_stats_info.h>

#include "poll/keyword_scan_internal.h"
#include "poll/statistics/stats_families_internal.h"

void clearPCacheCmdInfo(pCacheCmdInfo* info)
{
    info->q = info->i = info->c = info->e = info->f = info->n = 0;
}

PCacheStatsInfo::PCacheStatsInfo(MErrno* err)
{
    *err = 0;
    clearStats();
}

PCacheStatsInfo::~PCacheStatsInfo() {}

void PCacheStatsInfo::clearStats()
{
    recordVersion = 1;
    recordSize = kRecordSize;
    rc = 0;
    memset(nodeAddr, 0, sizeof(nodeAddr));
    memset(fsName, 0, sizeof(fsName));
    memset(fsetName, 0, sizeof(fsetName));
    bytesRead = bytesWritten = 0;
    ne = nf = ns = nr = ws = wl = wa = nCmds = 0;
    for (pCacheCmdInfo& c : cmds)
        clearPCacheCmdInfo(&c);
    nme = 0;
    hcn = hdi = fex = 0;
}

PCacheStatsInfo& PCacheStatsInfo::operator=(const PCacheStatsInfo& src)
{
    if (this != &src)
        memcpy(static_cast<void*>(this), &src, sizeof(*this));
    return *this;
}

pCacheCmdInfo* PCacheStatsInfo::getPCacheCmdInfoP(int n)
{
    if (static_cast<unsigned int>(n) > 38)
        return nullptr;
    return &cmds[n];
}

namespace qv {

void scanPCacheLine(PCacheStatsInfo* rec, TavrelWrapperUtils* tw, uint32_t* nCmds, bool withUpdateKeywords)
{
    // Each of these keywords stores its value and counts one; "_ncmd_" also
    // sets the command count that lives across the instances.
    std::vector<KwField> table = {
        kwU64("_br_", &rec->bytesRead), kwU64("_bw_", &rec->bytesWritten),
        kwU32("_ne_", &rec->ne),        kwU32("_nf_", &rec->nf),
        kwU32("_ns_", &rec->ns),        kwU32("_nr_", &rec->nr),
        kwU32("_ws_", &rec->ws),        kwU32("_wl_", &rec->wl),
        kwU32("_wa_", &rec->wa),
        kwCustom("_ncmd_", [rec, nCmds](char* v, TavrelWrapperUtils*) {
            rec->nCmds = kwLow32(v);
            *nCmds = rec->nCmds;
        }),
    };
    if (withUpdateKeywords) {
        table.push_back(kwU32("_hcn_", &rec->hcn));
        table.push_back(kwU32("_hdi_", &rec->hdi));
        table.push_back(kwU32("_fex_", &rec->fex));
        table.push_back(kwU64("_nme_", &rec->nme));
    }

    tw->beginParsing();
    int words = 0;
    int index = -1;
    // The scan ends at the line's end, or once the count exceeds the command
    // count times 6 plus 9 (the command count may change on the way).
    while (static_cast<long long>(words) <= static_cast<long long>(*nCmds) * 6 + 9) {
        char* word = tw->getNextToken();
        if (word == nullptr)
            break;
        if (*nCmds > 0 && strcmp(word, "_q_") == 0) {
            // A command group: "_q_" and its value, then five turns, each
            // taking a word and, when it names a field of the group, the
            // value behind it. The group counts six.
            index++;
            pCacheCmdInfo* cmd = rec->getPCacheCmdInfoP(index);
            pCacheCmdInfo scratch;   // a group beyond the 39 is read and dropped
            if (cmd == nullptr)
                cmd = &scratch;
            cmd->q = kwLow32(kwNextWord(tw));
            static const char* const kFields[5] = {"_i_", "_c_", "_e_", "_f_", "_n_"};
            uint32_t* dst[5] = {&cmd->i, &cmd->c, &cmd->e, &cmd->f, &cmd->n};
            for (int turn = 0; turn < 5; turn++) {
                char* w = kwNextWord(tw);
                for (int k = 0; k < 5; k++) {
                    if (strcmp(w, kFields[k]) == 0) {
                        *dst[k] = kwLow32(kwNextWord(tw));
                        break;
                    }
                }
            }
            words += 6;
            continue;
        }
        for (const KwField& f : table) {
            if (strcmp(word, f.keyword) != 0)
                continue;
            kwStore(f, kwNextWord(tw), tw);
            words++;
            break;
        }
    }
}

}  // namespace qv

int PollingHandler::pCacheStatsInfo(int, void* bufP, int bufSize, int* nNeeded, int* errP)
{
    // The command count starts at 0 before the first instance and is not
    // reset between instances.
    uint32_t nCmds = 0;
    return qv::stagedStatsFrame<PCacheStatsInfo>(
        this, qv::kPCacheFamily, bufP, bufSize, nNeeded, errP,
        [&nCmds](PCacheStatsInfo* rec, TavrelWrapperUtils* tw) { qv::scanPCacheLine(rec, tw, &nCmds, false); },
        [](PCacheStatsInfo* rec, TavrelWrapperUtils* tw) {
            // The texts come before "_rc_", so that a failed instance names
            // its fileset too.
            qv::statsCopyText(rec->fsName, tw->getBufferedValue("_fs_", 0, 256));
            qv::statsCopyText(rec->fsetName, tw->getBufferedValue("_fset_", 0, 256));
        });
}
