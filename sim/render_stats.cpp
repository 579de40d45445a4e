// The daemon's statistics responses ("tavrel chms", "tavrel vfss", "tavrel
// iocs", "tavrel threads", "tavrel ds", "tavrel plios", "tavrel fis",
// "tavrel nsd_dst"): one "_tavrel" line per node (a down node answers with
// an error code), the device families with one line per disk, pool or
// filesystem. Every counter is a function of the node, the counter and the
// simulated time, so that it grows between two polls and a test can compute
// it from the model.
#include "sim/render.h"

#include <cstdio>

namespace qvsim {

namespace {

const char* const kVfsOperations[] = {"_access_", "_close_", "_create_", "_fclear_", "_fsync_", "_fsync_range_", "_ftrunc_", "_getattr_", "_link_", "_lockctl_", "_lookup_", "_map_lloff_", "_mkdir_", "_mknod_", "_open_", "_read_", "_write_", "_mmapRead_", "_mmapWrite_", "_readdir_", "_readlink_", "_readpage_", "_remove_", "_rename_", "_rmdir_", "_setacl_", "_setattr_", "_symlink_", "_unmap_", "_writepage_", "_kxfattr_", "_kxfsattr_", "_flock_", "_setxattr_", "_getxattr_", "_listxattr_", "_removexattr_", "_encode_fh_", "_decode_fh_", "_get_dentry_", "_get_parent_", "_mount_", "_statfs_", "_sync_", "_vget_"};

const char* const kIocKinds[] = {"_other_", "_mb_", "_steal_", "_cleaner_",
                                 "_sync_", "_logwrap_", "_revoke_", "_prefetch_"};

const char* const kThreadPools[] = {"_noncri_", "_daestr_", "_mbhan_",  "_rcvwor_",
                                    "_revwor_", "_rngrev_", "_recrvk_", "_prefth_",
                                    "_sgexpn_", "_recv_",   "_pcache_", "_multh_"};

std::string kv(const std::string& keyword, const std::string& value)
{
    return " " + keyword + " " + value;
}

std::string kv(const std::string& keyword, unsigned long long value)
{
    return kv(keyword, std::to_string(value));
}

std::string head(const SimNode& n, int rc)
{
    return "_tavrel _n_ " + n.ipAddr + " _rc_ " + std::to_string(rc);
}

} // namespace

const int kDownNodeStatsRc = 5;

unsigned long long statCounter(const SimCluster& c, const std::string& object, const std::string& counter)
{
    // FNV-1a over the two names: a stable base and rate per counter.
    unsigned long long h = 1469598103934665603ULL;
    for (const std::string* s : {&object, &counter})
        for (unsigned char ch : *s) {
            h ^= ch;
            h *= 1099511628211ULL;
        }
    unsigned long long base = h % 100000;
    unsigned long long rate = (h >> 20) % 50 + 1;
    return base + rate * static_cast<unsigned long long>(c.simTime);
}

double statSeconds(const SimCluster& c, const std::string& object, const std::string& counter)
{
    return static_cast<double>(statCounter(c, object, counter) % 100000) / 1000.0;
}

bool nodeAnswersStats(const SimNode& n)
{
    return n.status != "down";
}

std::vector<std::string> statsLines(const SimCluster& c, const std::string& request)
{
    std::vector<std::string> out;
    if (request == "tavrel chms" || request == "tavrel vfss" || request == "tavrel iocs" ||
        request == "tavrel threads") {
        for (const SimNode& n : c.nodes) {
            if (!nodeAnswersStats(n)) {
                out.push_back(head(n, kDownNodeStatsRc));
                continue;
            }
            std::string line = head(n, 0);
            if (request == "tavrel chms") {
                for (const char* k : {"_dch_", "_dcm_", "_sch_", "_scm_"})
                    line += kv(k, statCounter(c, n.ipAddr, k) & 0xFFFFFFFFULL);
            } else if (request == "tavrel vfss") {
                for (const char* op : kVfsOperations)
                    line += kv(op, std::to_string(statCounter(c, n.ipAddr, op) & 0xFFFFFFFFULL) + " " +
                                       num(statSeconds(c, n.ipAddr, std::string(op) + "time")));
            } else if (request == "tavrel iocs") {
                for (const char* k : kIocKinds)
                    line += kv(k, std::to_string(statCounter(c, n.ipAddr, std::string(k) + "0") & 0xFFFFFFFFULL) +
                                      " " +
                                      std::to_string(statCounter(c, n.ipAddr, std::string(k) + "1") & 0xFFFFFFFFULL));
            } else {
                line += kv("_nthreads_", statCounter(c, n.ipAddr, "_nthreads_") % 1000);
                line += kv("_seq_", statCounter(c, n.ipAddr, "_seq_") & 0xFFFFFFFFULL);
                for (const char* p : kThreadPools) {
                    unsigned long long mx = 16 + statCounter(c, n.ipAddr, std::string(p) + "max") % 240;
                    unsigned long long hi = statCounter(c, n.ipAddr, std::string(p) + "hi") % (mx + 1);
                    unsigned long long cur = statCounter(c, n.ipAddr, std::string(p) + "cur") % (hi + 1);
                    line += kv(p, std::to_string(cur) + "/" + std::to_string(hi) + "/" + std::to_string(mx));
                }
            }
            out.push_back(line);
        }
        return out;
    }
    const SimNode* local = c.nodes.empty() ? nullptr : &c.nodes.front();
    if (local == nullptr)
        return out;
    if (request == "tavrel ds" || request == "tavrel nsd_dst") {
        bool server = request == "tavrel nsd_dst";
        for (const SimFilesystem& fs : c.filesystems)
            for (const SimPool& p : fs.pools)
                for (const SimDisk& d : p.disks) {
                    std::string obj = fs.name + "/" + d.name;
                    if (server)
                        out.push_back(head(*local, 0) + kv("_d_", d.name) +
                                      kv("_dev_", d.paths.empty() ? std::string("-") : d.paths.front().device));
                    else
                        out.push_back(head(*local, 0) + kv("_fs_", fs.name) + kv("_d_", d.name) +
                                      kv("_cl_", c.clusterName));
                    for (const char* dir : {"_r_", "_w_"}) {
                        std::string o = obj + dir;
                        std::string line = dir;
                        line += kv("_ops_", statCounter(c, o, "ops") & 0xFFFFFFFFULL);
                        line += kv("_b_", statCounter(c, o, "b") * 4096);
                        line += kv("_tw_", num(statSeconds(c, o, "tw")));
                        if (!server)
                            for (const char* k : {"_qt_", "_stw_", "_sqt_", "_ltw_", "_lqt_"})
                                line += kv(k, num(statSeconds(c, o, k)));
                        out.push_back(line);
                    }
                }
        return out;
    }
    if (request == "tavrel plios") {
        for (const SimFilesystem& fs : c.filesystems)
            for (const SimPool& p : fs.pools) {
                std::string o = fs.name + "/" + p.name;
                out.push_back(head(*local, 0) + kv("_fs_", fs.name) + kv("_pl_", p.name) +
                              kv("_d_", std::to_string(p.disks.size())) + kv("_br_", statCounter(c, o, "br") * 4096) +
                              kv("_bw_", statCounter(c, o, "bw") * 4096));
            }
        return out;
    }
    if (request == "tavrel fis") {
        for (const SimFilesystem& fs : c.filesystems) {
            size_t disks = 0;
            for (const SimPool& p : fs.pools)
                disks += p.disks.size();
            std::string line = head(*local, 0) + kv("_fs_", fs.name) + kv("_d_", std::to_string(disks)) +
                               kv("_br_", statCounter(c, fs.name, "br") * 4096) +
                               kv("_bw_", statCounter(c, fs.name, "bw") * 4096);
            for (const char* k : {"_oc_", "_cc_", "_rdc_", "_wc_", "_dir_"})
                line += kv(k, statCounter(c, fs.name, k) & 0xFFFFFFFFULL);
            line += kv("_iu_", statCounter(c, fs.name, "_iu_"));
            out.push_back(line);
        }
        return out;
    }
    return out;
}

bool isStatsRequest(const std::string& request)
{
    for (const char* r : {"tavrel chms", "tavrel vfss", "tavrel iocs", "tavrel threads", "tavrel ds",
                          "tavrel plios", "tavrel fis", "tavrel nsd_dst"})
        if (request == r)
            return true;
    return false;
}

} // namespace qvsim
