#include "sim/events.h"

namespace qvsim {

const std::vector<EventWord>& eventWords()
{
    static const std::vector<EventWord> words = {
        {"mount", {"_node_", "_fs_"}},
        {"unmount", {"_node_", "_fs_"}},
        {"adddisk", {"_node_", "_fs_", "_disk_"}},
        {"deldisk", {"_node_", "_fs_", "_disk_"}},
        {"chdisk", {"_node_", "_fs_", "_disk_", "_status_", "_availability_", "_fg_", "_meta_", "_data_"}},
        {"takeover", {"_node_", "_prevnode_", "_fs_"}},
        {"failure", {"_node_"}},
        {"recovery", {"_node_"}},
        {"createfs", {"_node_", "_fs_"}},
        {"deletefs", {"_node_", "_fs_"}},
        {"fsstatechange", {"_fs_", "_user_", "_meta_", "_illreplicated_", "_exposed_"}},
        {"newconnection", {"_n_"}},
        {"exception", {}},
        {"sgStats", {"_node_", "_fs_", "_tmSpace_", "_tmRequest_"}},
        {"hungthread", {"_node_", "_wait_", "_diagnosis_"}},
        {"poolutil", {"_fs_", "_pool_", "_util_", "_status_"}},
        {"sdrChanged", {"_node_"}},
        {"vkadddisk", {"_node_", "_fs_", "_disk_", "_cmd_", "_status_", "_rc_"}},
        {"vkdeldisk", {"_node_", "_fs_", "_disk_", "_cmd_", "_status_", "_rc_"}},
        {"consoleLog", {"_n_", "_level_", "_msg_"}},
        {"longIO", {"_n_", "_fs_", "_disk_", "_cmd_", "_len_", "_time_"}},
        {"userEvent", {"_n_", "_arg_"}},
        {"rgTakeover", {"_n_", "_rg_", "_err_", "_reason_"}},
        {"rgRelinquish", {"_n_", "_rg_", "_err_", "_reason_"}},
        {"rgOpenFailed", {"_n_", "_rg_", "_err_", "_reason_"}},
        {"rgPanic", {"_n_", "_rg_", "_err_", "_reason_"}},
        {"pdFailed", {"_n_", "_location_", "_fru_", "_wwn_", "_rg_", "_da_", "_pdisk_", "_state_"}},
        {"pdRecovered", {"_n_", "_location_", "_fru_", "_wwn_", "_rg_", "_da_", "_pdisk_"}},
        {"pdReplacePdisk", {"_n_", "_location_", "_fru_", "_wwn_", "_rg_", "_da_", "_pdisk_", "_priority_", "_state_"}},
        {"pdPathFailed", {"_n_", "_location_", "_fru_", "_wwn_", "_rg_", "_da_", "_pdisk_", "_device_"}},
        {"daRebuildFailed", {"_n_", "_rg_", "_da_", "_remainingRedundancy_"}},
        {"nsdCksumMismatch", {"_n_", "_role_", "_othernode_", "_nsd_", "_reason_", "_sector_", "_dlen_", "_ecc_", "_ecs_", "_ecnsd_", "_ri_"}},
    };
    return words;
}

const EventWord* eventWord(const std::string& word)
{
    for (const EventWord& w : eventWords())
        if (word == w.word)
            return &w;
    return nullptr;
}

std::string eventLine(const std::string& word, const EventPairs& pairs)
{
    std::string line = "_event_ " + word;
    std::string msg;
    bool haveMsg = false;
    for (const auto& kv : pairs) {
        if (kv.first == "_msg_") {
            msg = kv.second;
            haveMsg = true;
            continue;
        }
        if (kv.first == "_illreplicated_" || kv.first == "_exposed_") {
            // A marker word followed by its own user and metadata counts,
            // given as "USER META".
            size_t blank = kv.second.find(' ');
            std::string user = kv.second.substr(0, blank);
            std::string meta = blank == std::string::npos ? "0" : kv.second.substr(blank + 1);
            line += " " + kv.first + " _user_ " + user + " _meta_ " + meta;
            continue;
        }
        line += " " + kv.first + " ";
        if (kv.second.find(' ') != std::string::npos || kv.second.empty())
            line += "'" + kv.second + "'";
        else
            line += kv.second;
    }
    if (haveMsg)
        line += " _msg_ " + msg;
    return line;
}

namespace {

std::string defaultValue(const SimCluster& c, const std::string& kw)
{
    const SimNode* n = c.nodes.empty() ? nullptr : &c.nodes.front();
    const SimFilesystem* fs = c.filesystems.empty() ? nullptr : &c.filesystems.front();
    const SimPool* pool = fs != nullptr && !fs->pools.empty() ? &fs->pools.front() : nullptr;
    const SimDisk* disk = pool != nullptr && !pool->disks.empty() ? &pool->disks.front() : nullptr;
    if (kw == "_node_" || kw == "_n_" || kw == "_prevnode_" || kw == "_othernode_")
        return n != nullptr ? n->ipAddr : "0.0.0.0";
    if (kw == "_fs_")
        return fs != nullptr ? fs->name : "fs0";
    if (kw == "_pool_")
        return pool != nullptr ? pool->name : "system";
    if (kw == "_disk_" || kw == "_nsd_")
        return disk != nullptr ? disk->name : "disk0";
    if (kw == "_status_")
        return disk != nullptr ? disk->status : "up";
    if (kw == "_availability_")
        return disk != nullptr ? disk->availability : "up";
    if (kw == "_state_")
        return "failing";
    if (kw == "_user_" || kw == "_meta_")
        return "0";
    if (kw == "_illreplicated_" || kw == "_exposed_")
        return "0 0";
    if (kw == "_rg_")
        return "rg1";
    if (kw == "_da_")
        return "DA1";
    if (kw == "_pdisk_")
        return "e1d1s01";
    if (kw == "_location_")
        return "SV1-1-1";
    if (kw == "_fru_")
        return "00W1240";
    if (kw == "_wwn_")
        return "naa.5000C500525D8F3B";
    if (kw == "_device_")
        return "/dev/sdq";
    if (kw == "_cmd_")
        return "write";
    if (kw == "_diagnosis_")
        return "waiting";
    if (kw == "_reason_")
        return "simulated";
    if (kw == "_arg_")
        return "hello";
    if (kw == "_msg_")
        return "simulated console message";
    if (kw == "_role_")
        return "client";
    if (kw == "_fg_" || kw == "_meta_" || kw == "_data_")
        return "yes";
    if (kw == "_level_")
        return "1";
    if (kw == "_wait_")
        return "300";
    if (kw == "_util_")
        return "80";
    if (kw == "_len_" || kw == "_dlen_")
        return "4096";
    if (kw == "_time_")
        return "12";
    if (kw == "_sector_")
        return "4294967296";
    if (kw == "_priority_")
        return "2";
    if (kw == "_ecc_" || kw == "_ecs_" || kw == "_ecnsd_" || kw == "_ri_")
        return "0";
    if (kw == "_remainingRedundancy_")
        return "1";
    return "0";
}

} // namespace

EventPairs completeEventPairs(const SimCluster& c, const std::string& word, const EventPairs& given)
{
    EventPairs out;
    const EventWord* w = eventWord(word);
    if (w != nullptr)
        for (const char* kw : w->keywords) {
            std::string value = defaultValue(c, kw);
            for (const auto& g : given)
                if (g.first == kw) {
                    value = g.second;
                    break;
                }
            out.emplace_back(kw, value);
        }
    for (const auto& g : given) {
        bool known = false;
        for (const auto& o : out)
            known = known || o.first == g.first;
        if (!known)
            out.push_back(g);
    }
    return out;
}

} // namespace qvsim
