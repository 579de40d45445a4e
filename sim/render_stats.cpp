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

std::vector<std::string> rpcLines(const SimCluster& c, const std::string& form);
std::vector<std::string> configLines(const SimCluster& c, const std::string& request);

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
    if (request.compare(0, 11, "tavrel rpcs") == 0)
        return rpcLines(c, request.size() > 12 ? request.substr(12) : std::string());
    if (request == "tavrel verbsc" || request == "tavrel verbss" || request == "tavrel kxcommcfg" ||
        request == "tavrel cfgmgr" || request == "tavrel pncs")
        return configLines(c, request);
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

namespace {

const char* const kRpcObjects[] = {"AG_STAT_CHANNEL_WAIT", "AG_STAT_SEND_TIME_TCP", "AG_STAT_RECV_TIME_TCP"};

// One "_stats_" sample line of a series.
std::string sampleLine(const SimCluster& c, const std::string& o, const char* unit, int k)
{
    std::string key = o + "/" + unit + std::to_string(k);
    double av = statSeconds(c, key, "av");
    return std::string("_stats_ _tmu_ ") + unit + kv("_av_", num(av)) + kv("_min_", num(av / 2)) +
           kv("_max_", num(av * 2)) + kv("_cnt_", statCounter(c, key, "cnt") % 100000);
}

std::vector<std::string> rpcLines(const SimCluster& c, const std::string& form)
{
    std::vector<std::string> out;
    for (size_t i = 0; i < c.nodes.size(); ++i) {
        const SimNode& n = c.nodes[i];
        if (!nodeAnswersStats(n)) {
            out.push_back(head(n, kDownNodeStatsRc));
            continue;
        }
        if (form.empty()) {
            // Per peer: the next node of the cluster.
            const SimNode& peer = c.nodes[(i + 1) % c.nodes.size()];
            out.push_back("_tavrel _n_ " + n.ipAddr + " _rn_ " + peer.ipAddr + " _rnn_ " + peer.name + " _rc_ 0");
            for (const char* obj : kRpcObjects) {
                out.push_back(std::string("_rpcObj_ _obj_ ") + obj + " _nsecs_ 2");
                for (int k = 0; k < 2; ++k)
                    out.push_back(sampleLine(c, n.ipAddr + "/" + obj, "sec", k));
            }
        } else if (form == "size") {
            out.push_back(head(n, 0));
            for (unsigned size : {512u, 4096u, 65536u}) {
                out.push_back("_rpcSize_ _size_ " + std::to_string(size) + " _nmins_ 2");
                for (int k = 0; k < 2; ++k)
                    out.push_back(sampleLine(c, n.ipAddr + "/" + std::to_string(size), "min", k));
            }
        } else if (form == "message") {
            out.push_back(head(n, 0));
            for (const char* msg : {"nsdMsgRead", "nsdMsgWrite"}) {
                out.push_back(std::string("_rpcObj_ _obj_ ") + msg + " _ndays_ 1");
                out.push_back(sampleLine(c, n.ipAddr + "/" + msg, "day", 0));
            }
        } else if (form == "ns") {
            out.push_back(head(n, 0));
            for (const char* obj : kRpcObjects) {
                out.push_back(std::string("_rpcObj_ _obj_ ") + obj);
                out.push_back(sampleLine(c, n.ipAddr + "/" + obj, "sec", 0));
            }
        } else {
            out.push_back(head(n, 0));
            out.push_back("_rpcstat_ _rpcstator_ 1 _rpcstatcnt_ 1");
            out.push_back("_stat_" + kv("_cw_", statCounter(c, n.ipAddr, "cw")) + kv("_st_", statCounter(c, n.ipAddr, "st")) +
                          kv("_rt_", statCounter(c, n.ipAddr, "rt")) + kv("_rpclt_", statCounter(c, n.ipAddr, "rpclt")));
            out.push_back("_rpcexec_ _rpcexecor_ 2 _rpcexeccnt_ 1");
            out.push_back("_stat_" + kv("_rpcet_", statCounter(c, n.ipAddr, "rpcet")));
        }
        out.push_back("_subresponse_");
    }
    return out;
}

std::vector<std::string> configLines(const SimCluster& c, const std::string& request)
{
    std::vector<std::string> out;
    for (size_t i = 0; i < c.nodes.size(); ++i) {
        const SimNode& n = c.nodes[i];
        if (!nodeAnswersStats(n)) {
            out.push_back(head(n, kDownNodeStatsRc));
            continue;
        }
        const SimNode& peer = c.nodes[(i + 1) % c.nodes.size()];
        const std::string& ip = n.ipAddr;
        if (request == "tavrel verbsc") {
            std::string line = head(n, 0) + " _dst " + peer.ipAddr + " _st_ connected";
            for (const char* k : {"_crw_", "_prw_", "_frd_", "_frk_", "_fwr_", "_fwk_"})
                line += kv(k, statCounter(c, ip, k) & 0xFFFFFFFFULL);
            out.push_back(line + " _dvi_ 0 _prt_ 1");
        } else if (request == "tavrel verbss") {
            std::string line = head(n, 0) + " _dst " + peer.ipAddr + " _st_ connected";
            for (const char* k : {"_crd_", "_wrd_", "_rrd_", "_rwr_", "_rdk_", "_rwk_"})
                line += kv(k, statCounter(c, ip, k) & 0xFFFFFFFFULL);
            out.push_back(line + " _dvi_ 0 _prt_ 1");
        } else if (request == "tavrel kxcommcfg") {
            out.push_back(head(n, 0) + " _naddr_ " + ip + " _addrlist_ " + ip + " _port_ 1191 _no_ " +
                          std::to_string(n.nodeNumber) + " _commver_ 1700 _compatver_ 1500 _maxcompatver_ 1700"
                          " _maxfeat_ 2401");
        } else if (request == "tavrel cfgmgr") {
            out.push_back(std::string(i == 0 ? "_tavrel" : "_tavrel::cfgmgr_") + " _n_ " + ip + " _rc_ 0 _naddr_ " + ip +
                          " _host_ " + n.name + " _cl_ " + c.clusterName + " _ip_ " + ip + " _admin_ " + n.name +
                          " _tr_ tcp _p_ 1191 _rpc_ up _lastfail_ none _no_ " + std::to_string(n.nodeNumber) +
                          " _joinseq_ " + std::to_string(i + 1) + " _failcnt_ " + std::to_string(n.failures) +
                          " _fsmanaged_ 0 _cnfsgrp_ 0 _rcksum_ 0 _wcksum_ 0" +
                          // The same texts under the long words that the query reads.
                          " TAVREL_CLUSTERCFG_IPADDR " + ip + " TAVREL_CLUSTERCFG_ADMIN " + n.name +
                          " TAVREL_CLUSTERCFG_GPNTRANS tcp TAVREL_CLUSTERCFG_GPNSTATUS 1191"
                          " TAVREL_CLUSTERCFG_NODESTATUS up TAVREL_CLUSTERCFG_LASTFAIL none");
        } else if (request == "tavrel pncs") {
            for (const SimFilesystem& fs : c.filesystems)
                for (const SimFileset& f : fs.filesets) {
                    if (f.id == 0)
                        continue;
                    std::string o = ip + "/" + fs.name + "/" + f.name;
                    std::string line = "_tavrel::pncs_ _n_ " + ip + " _rc_ 0 _fs_ " + fs.name + " _fset_ " + f.name;
                    for (const char* k : {"_hcn_", "_hdi_", "_fex_", "_nme_", "_br_", "_bw_", "_ne_", "_nf_", "_ns_",
                                          "_nr_", "_ws_", "_wl_", "_wa_"})
                        line += kv(k, statCounter(c, o, k) & 0xFFFFFFFFULL);
                    out.push_back(line);
                }
        }
    }
    return out;
}

} // namespace

bool isStatsRequest(const std::string& request)
{
    for (const char* r : {"tavrel chms", "tavrel vfss", "tavrel iocs", "tavrel threads", "tavrel ds",
                          "tavrel plios", "tavrel fis", "tavrel nsd_dst", "tavrel verbsc", "tavrel verbss",
                          "tavrel kxcommcfg", "tavrel cfgmgr", "tavrel pncs", "tavrel rpcs", "tavrel rpcs size",
                          "tavrel rpcs message", "tavrel rpcs ns", "tavrel rpcs raw"})
        if (request == r)
            return true;
    return false;
}

} // namespace qvsim
