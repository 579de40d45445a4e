#include "support/fake_cluster.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

namespace qvtest {

// ---------------------------------------------------------------------------
// Model lookups and changes.

namespace {

template <typename C, typename N>
auto findNode(C& nodes, const std::string& key) -> N*
{
    for (auto& n : nodes)
        if (n.name == key || n.ipAddr == key)
            return &n;
    return nullptr;
}

void eraseName(std::vector<std::string>& v, const std::string& s)
{
    v.erase(std::remove(v.begin(), v.end(), s), v.end());
}

template <typename F>
void forEachDisk(SimCluster& c, F f)
{
    for (auto& fs : c.filesystems)
        for (auto& p : fs.pools)
            for (auto& d : p.disks)
                f(d);
    for (auto& d : c.freeDisks)
        f(d);
}

} // namespace

SimNode* SimCluster::node(const std::string& key)
{
    return findNode<std::vector<SimNode>, SimNode>(nodes, key);
}

const SimNode* SimCluster::node(const std::string& key) const
{
    return findNode<const std::vector<SimNode>, const SimNode>(nodes, key);
}

SimFilesystem* SimCluster::filesystem(const std::string& name)
{
    for (auto& fs : filesystems)
        if (fs.name == name)
            return &fs;
    return nullptr;
}

const SimFilesystem* SimCluster::filesystem(const std::string& name) const
{
    for (auto& fs : filesystems)
        if (fs.name == name)
            return &fs;
    return nullptr;
}

SimPool* SimCluster::pool(const std::string& fsName, const std::string& poolName)
{
    SimFilesystem* fs = filesystem(fsName);
    if (fs == nullptr)
        return nullptr;
    for (auto& p : fs->pools)
        if (p.name == poolName)
            return &p;
    return nullptr;
}

const SimPool* SimCluster::pool(const std::string& fsName, const std::string& poolName) const
{
    const SimFilesystem* fs = filesystem(fsName);
    if (fs == nullptr)
        return nullptr;
    for (auto& p : fs->pools)
        if (p.name == poolName)
            return &p;
    return nullptr;
}

SimDisk* SimCluster::disk(const std::string& name)
{
    SimDisk* found = nullptr;
    forEachDisk(*this, [&](SimDisk& d) {
        if (found == nullptr && d.name == name)
            found = &d;
    });
    return found;
}

void SimCluster::removeNode(const std::string& key)
{
    SimNode* n = node(key);
    if (n == nullptr)
        return;
    const std::string name = n->name;
    const std::string ip = n->ipAddr;
    nodes.erase(std::find_if(nodes.begin(), nodes.end(),
                             [&](const SimNode& x) { return x.ipAddr == ip; }));
    forEachDisk(*this, [&](SimDisk& d) {
        eraseName(d.servers, name);
        eraseName(d.backupServers, name);
        d.paths.erase(std::remove_if(d.paths.begin(), d.paths.end(),
                                     [&](const SimDiskPath& p) { return p.nodeName == name; }),
                      d.paths.end());
        d.io.erase(std::remove_if(d.io.begin(), d.io.end(),
                                  [&](const SimDiskIo& i) { return i.nodeName == name; }),
                   d.io.end());
    });
    for (auto& fs : filesystems) {
        eraseName(fs.mountedBy, ip);
        fs.counters.erase(std::remove_if(fs.counters.begin(), fs.counters.end(),
                                         [&](const SimFsCounters& k) { return k.nodeIp == ip; }),
                          fs.counters.end());
        if (fs.managerIp == ip)
            fs.managerIp.clear();
    }
    if (clusterManagerIp == ip)
        clusterManagerIp.clear();
}

void SimCluster::moveDisk(const std::string& diskName, const std::string& fsName,
                          const std::string& poolName)
{
    SimDisk moved;
    bool have = false;
    for (auto& fs : filesystems)
        for (auto& p : fs.pools)
            for (auto it = p.disks.begin(); !have && it != p.disks.end(); ++it)
                if (it->name == diskName) {
                    moved = *it;
                    p.disks.erase(it);
                    have = true;
                    break;
                }
    for (auto it = freeDisks.begin(); !have && it != freeDisks.end(); ++it)
        if (it->name == diskName) {
            moved = *it;
            freeDisks.erase(it);
            have = true;
            break;
        }
    if (!have)
        return;
    SimFilesystem* fs = filesystem(fsName);
    if (fs == nullptr) {
        filesystems.push_back(SimFilesystem());
        filesystems.back().name = fsName;
        fs = &filesystems.back();
    }
    SimPool* p = pool(fsName, poolName);
    if (p == nullptr) {
        fs->pools.push_back(SimPool());
        fs->pools.back().name = poolName;
        p = &fs->pools.back();
    }
    p->disks.push_back(moved);
}

void SimCluster::deleteFilesystem(const std::string& name)
{
    auto it = std::find_if(filesystems.begin(), filesystems.end(),
                           [&](const SimFilesystem& fs) { return fs.name == name; });
    if (it == filesystems.end())
        return;
    for (auto& p : it->pools)
        for (auto& d : p.disks) {
            SimDisk freed = d;
            freed.freePoolName = p.name;
            freed.sizeKB = d.totalSpace / 1024;
            freed.io.clear();
            freeDisks.push_back(freed);
        }
    filesystems.erase(it);
}

// ---------------------------------------------------------------------------
// Rendering.

namespace sim {

const char* const kToolDir = "/usr/kpx/vesk/bin";
const char* const kClusterQueryArgs = "10 1001:1002:1003:1008:1006:1007:1011:1004:1005";
const char* const kGenNumberArgs = "10 1015 all norefresh";
const char* const kNodeQueryArgs = "20 2003:2004:2005:2006:2007:2008:2010:2014:2015";
const char* const kDiskQueryArgs = "30 3001:3004:3005:3006:3007:3008:3002:3003";

namespace {

const char* const kNoRefresh = " all norefresh";

std::string tf(bool b)
{
    return b ? "true" : "false";
}

std::string join(const std::vector<std::string>& v, const std::string& sep)
{
    std::string out;
    for (size_t i = 0; i < v.size(); ++i) {
        if (i != 0)
            out += sep;
        out += v[i];
    }
    return out;
}

std::vector<std::string> words(const std::string& s)
{
    std::vector<std::string> out;
    std::istringstream in(s);
    std::string w;
    while (in >> w)
        out.push_back(w);
    return out;
}

std::string nodeNameOf(const SimCluster& c, const std::string& ip)
{
    const SimNode* n = c.node(ip);
    return n != nullptr ? n->name : std::string();
}

std::string pair(const char* keyword, const std::string& value)
{
    return std::string(" ") + keyword + " " + value;
}

template <typename T>
std::string pair(const char* keyword, T value)
{
    return pair(keyword, std::to_string(value));
}

std::string ioPairs(const SimIo& io)
{
    return pair("_tw_", num(io.tw)) + pair("_ltw_", num(io.ltw)) + pair("_stw_", num(io.stw)) +
           pair("_b_", io.b) + pair("_ops_", io.ops);
}

} // namespace

const std::vector<std::string>& toolNames()
{
    static const std::vector<std::string> names = {"vksdrquery", "vklsmgr",    "vklsmount",
                                                   "vklsfs",     "vklsnsd",    "vklspolicy",
                                                   "vkgetstate"};
    return names;
}

std::string percentEncode(const std::string& text)
{
    std::string out;
    for (unsigned char ch : text) {
        if (ch == ':' || ch == '%' || ch == ' ' || ch == '\n') {
            char buf[4];
            snprintf(buf, sizeof(buf), "%%%02X", ch);
            out += buf;
        } else {
            out += static_cast<char>(ch);
        }
    }
    return out;
}

std::string num(double v)
{
    char buf[64];
    snprintf(buf, sizeof(buf), "%g", v);
    return buf;
}

// ---- tool outputs ----

std::string clusterQueryOutput(const SimCluster& c)
{
    return "vksdrquery:sdrq_cluster_info:0:1:::" + c.clusterName + ":" + c.sdrField1002 + ":" +
           c.sdrField1003 + ":" + c.sdrField1008 + ":" + c.sdrField1006 + ":" + c.sdrField1007 +
           ":" + std::to_string(c.sdrField1011) + ":" + c.sdrField1004 + ":" + c.sdrField1005 +
           ":\n";
}

std::string genNumberOutput(const SimCluster& c)
{
    return "vksdrquery:sdrq_cluster_info:0:1:::" + std::to_string(c.genNumber) + ":\n";
}

std::string nodeQueryOutput(const SimCluster& c)
{
    std::string out;
    for (const SimNode& n : c.nodes) {
        if (!n.inRepository)
            continue;
        out += "vksdrquery:sdrq_node_info:0:1:::" + percentEncode(n.name) + ":" +
               percentEncode(n.ipAddr) + ":" + percentEncode(n.sdrField2005) + ":" +
               tf(n.manager) + ":" + tf(n.quorum) + ":" + n.sdrField2008 + ":" + n.sdrField2010 +
               ":" + tf(n.snmpCollector) + ":" + tf(n.gateway) + ":\n";
    }
    return out;
}

namespace {

std::string diskQueryLine(const SimDisk& d, const std::string& fsName, const std::string& poolName)
{
    return "vksdrquery:sdrq_nsd_info:0:1:::" + d.name + ":" + fsName + ":" + poolName + ":" +
           d.usage + ":" + d.sdrField3007 + ":" + d.sdrField3008 + ":" +
           percentEncode(join(d.servers, ",")) + ":" + percentEncode(join(d.backupServers, ",")) +
           ":\n";
}

} // namespace

std::string diskQueryOutput(const SimCluster& c)
{
    std::string out;
    for (const SimFilesystem& fs : c.filesystems)
        for (const SimPool& p : fs.pools)
            for (const SimDisk& d : p.disks)
                out += diskQueryLine(d, fs.name, p.name);
    for (const SimDisk& d : c.freeDisks)
        out += diskQueryLine(d, "free_disk", d.freePoolName);
    return out;
}

std::string managerTable(const SimCluster& c, const std::string& fsName)
{
    std::string out = "file system      manager node\n"
                      "---------------- ------------------\n";
    const SimFilesystem* fs = c.filesystem(fsName);
    if (fs != nullptr && !fs->managerIp.empty()) {
        std::string first = fs->name;
        first.resize(std::max<size_t>(first.size(), 16), ' ');
        out += first + " " + fs->managerIp + " (" + nodeNameOf(c, fs->managerIp) + ")\n";
    }
    return out;
}

std::string clusterManagerOutput(const SimCluster& c)
{
    if (c.clusterManagerIp.empty())
        return "";
    return "Cluster manager node: " + c.clusterManagerIp + " (" +
           nodeNameOf(c, c.clusterManagerIp) + ")\n";
}

std::string mountOutput(const SimCluster& c)
{
    std::string out = "vklsmount::HEADER:version:reserved:reserved:deviceName:clusterName:"
                      "mountPoint:nodeNumber:nodeIP:nodeName:mountMode:\n";
    for (const SimFilesystem& fs : c.filesystems)
        for (const std::string& ip : fs.mountedBy) {
            const SimNode* n = c.node(ip);
            std::string mp = fs.defaultMountPoint.empty() ? "-" : fs.defaultMountPoint;
            out += "vklsmount::0:1:::" + percentEncode(fs.name) + ":" +
                   percentEncode(c.clusterName) + ":" + percentEncode(mp) + ":" +
                   std::to_string(n != nullptr ? n->nodeNumber : 0) + ":" + percentEncode(ip) +
                   ":" + percentEncode(n != nullptr ? n->name : std::string("-")) + ":rw:\n";
        }
    return out;
}

std::string attributeOutput(const SimCluster& c, const std::string& fsName)
{
    std::string out = "vklsfs::HEADER:version:reserved:reserved:deviceName:fieldName:data:\n";
    const SimFilesystem* fs = c.filesystem(fsName);
    if (fs == nullptr)
        return out;
    for (const auto& a : fs->attributes)
        out += "vklsfs::0:1:::" + percentEncode(fs->name) + ":" + a.first + ":" +
               percentEncode(a.second) + ":\n";
    return out;
}

std::string mountPointOutput(const SimCluster& c)
{
    std::string out = "vklsfs::HEADER:version:reserved:reserved:deviceName:fieldName:data:\n";
    for (const SimFilesystem& fs : c.filesystems)
        if (!fs.defaultMountPoint.empty())
            out += "vklsfs::0:1:::" + percentEncode(fs.name) + ":defaultMountPoint:" +
                   percentEncode(fs.defaultMountPoint) + ":\n";
    return out;
}

namespace {

std::string pad(std::string s, size_t width)
{
    if (s.size() < width)
        s.resize(width, ' ');
    return s;
}

std::string diskPathRows(const SimDisk& d)
{
    std::string out;
    for (const SimDiskPath& p : d.paths) {
        std::string remark = (!d.servers.empty() && d.servers.front() == p.nodeName)
                                 ? "server node"
                                 : "directly attached";
        out += pad(d.name, 12) + " " + pad(d.nsdId, 18) + " " + pad(p.device, 12) + " " +
               pad(p.nodeName, 12) + " " + remark + "\n";
    }
    return out;
}

} // namespace

std::string diskPathTable(const SimCluster& c)
{
    std::string out = "\n"
                      " Disk name    NSD volume ID      Device       Node name    Remarks\n"
                      "---------------------------------------------------------------------\n";
    for (const SimFilesystem& fs : c.filesystems)
        for (const SimPool& p : fs.pools)
            for (const SimDisk& d : p.disks)
                out += diskPathRows(d);
    for (const SimDisk& d : c.freeDisks)
        out += diskPathRows(d);
    return out;
}

std::string policyOutput(const SimCluster& c, const std::string& fsName)
{
    std::string out = "vklspolicy::HEADER:version:reserved:reserved:vklspolicy:device:userName:"
                      "installTime:fileName:\n";
    const SimFilesystem* fs = c.filesystem(fsName);
    if (fs == nullptr)
        return out;
    for (const SimPolicy& p : fs->policies)
        out += "vklspolicy::0:1:::vklspolicy:" + percentEncode("/dev/" + fs->name) + ":" +
               percentEncode(p.userName) + ":" + percentEncode(p.installTime) + ":" +
               percentEncode(p.fileName) + ":\n";
    return out;
}

std::string policyRuleOutput(const SimCluster& c, const std::string& fsName)
{
    std::string out = "vklspolicy::HEADER:version:reserved:reserved:lineNumber:text:\n";
    const SimFilesystem* fs = c.filesystem(fsName);
    if (fs == nullptr)
        return out;
    int line = 1;
    for (const std::string& t : fs->policyText)
        out += "vklspolicy::0:1:::" + std::to_string(line++) + ":" + t + ":\n";
    return out;
}

std::string stateOutput(const SimCluster& c)
{
    std::string out = "vkgetstate::HEADER:version:reserved:reserved:nodeName:nodeNumber:state:"
                      "quorum:nodesUp:totalNodes:remarks:\n";
    int quorumNodes = 0;
    int up = 0;
    for (const SimNode& n : c.nodes) {
        quorumNodes += n.quorum ? 1 : 0;
        up += n.state == "active" ? 1 : 0;
    }
    for (const SimNode& n : c.nodes)
        out += "vkgetstate::0:1:::" + percentEncode(n.name) + ":" + std::to_string(n.nodeNumber) +
               ":" + n.state + ":" + std::to_string(quorumNodes / 2 + 1) + ":" +
               std::to_string(up) + ":" + std::to_string(c.nodes.size()) + ":" +
               (n.quorum ? "quorum%20node" : "-") + ":\n";
    return out;
}

std::string clusterNodeInfoOutput(const SimCluster& c)
{
    int active = 0;
    int quorumDefined = 0;
    int quorumActive = 0;
    for (const SimNode& n : c.nodes) {
        bool isActive = n.state == "active";
        active += isActive ? 1 : 0;
        quorumDefined += n.quorum ? 1 : 0;
        quorumActive += (n.quorum && isActive) ? 1 : 0;
    }
    int quorum = quorumDefined / 2 + 1;
    std::string out;
    out += "Number of nodes defined in the cluster: " + std::to_string(c.nodes.size()) + "\n";
    out += "Number of local nodes active in the cluster: " + std::to_string(active) + "\n";
    out += "Number of remote nodes joined in this cluster: 0\n";
    out += "Number of quorum nodes defined in the cluster: " + std::to_string(quorumDefined) + "\n";
    out += "Number of quorum nodes active in the cluster: " + std::to_string(quorumActive) + "\n";
    out += "Quorum = " + std::to_string(quorum) + ", Quorum " +
           (quorumActive >= quorum ? "achieved" : "not achieved") + "\n";
    return out;
}

// ---- daemon responses ----

std::vector<std::string> clusterInfoLines(const SimCluster& c)
{
    return {"_cluster_" + pair("_name_", c.clusterName) + pair("_maxblksiz_", c.maxBlockSize) +
            pair("_maxfeature_", c.maxFeature) +
            pair("_distribtokenserver_", tf(c.distribTokenServer)) +
            pair("_failuredetectiontime_", c.failureDetectionTime) +
            pair("_minmissedpingtimeout_", c.minMissedPingTimeout) +
            pair("_maxmissedpingtimeout_", c.maxMissedPingTimeout)};
}

std::vector<std::string> nodeLines(const SimCluster& c)
{
    std::vector<std::string> out;
    for (const SimNode& n : c.nodes)
        if (n.reportedByDaemon)
            out.push_back("_node_" + pair("_addr_", n.ipAddr) + pair("_name_", n.name) +
                          pair("_admin_", n.adminState) + pair("_status_", n.status) +
                          pair("_failures_", n.failures) + pair("_threadwait_", n.threadWait) +
                          pair("_healthy_", n.healthy) + pair("_diagnosis_", n.diagnosis));
    return out;
}

std::vector<std::string> nodeConfigLines(const SimCluster& c)
{
    std::vector<std::string> out;
    for (const SimNode& n : c.nodes)
        if (n.reportedByDaemon)
            out.push_back(
                "_tavrel::nc_" + pair("_n_", n.ipAddr) + pair("_version_", n.version) +
                pair("_pagepool_", n.pagePool) + pair("_pfthreads_", n.pfThreads) +
                pair("_maxmbps_", n.maxMBps) + pair("_maxfilestocache_", n.maxFilesToCache) +
                pair("_maxstatcache_", n.maxStatCache) + pair("_wkr1threads_", n.wkr1Threads) +
                pair("_dmapieventtimeout_", n.dmapiEventTimeout) +
                pair("_dmapimounttimeout_", n.dmapiMountTimeout) +
                pair("_dmapisessfailuretimeout_", n.dmapiSessFailureTimeout) +
                pair("_nsdserverwaittimewindowonmount_", n.nsdServerWaitTimeWindowOnMount) +
                pair("_nsdserverwaittimeformount_", n.nsdServerWaitTimeForMount) +
                pair("_unmountondiskfail_", n.unmountOnDiskFail));
    return out;
}

std::vector<std::string> nodeVersionLines(const SimCluster& c)
{
    std::vector<std::string> out;
    for (const SimNode& n : c.nodes)
        if (n.reportedByDaemon) {
            char flags[32];
            snprintf(flags, sizeof(flags), "0x%x", n.flags);
            out.push_back("_tavrel::v_" + pair("_n_", n.ipAddr) + pair("_nn_", n.name) +
                          pair("_p_", n.platform) + pair("_f_", std::string(flags)));
        }
    return out;
}

std::vector<std::string> fsStateLines(const SimCluster& c, const std::string& fsName)
{
    const SimFilesystem* fs = c.filesystem(fsName);
    if (fs == nullptr || !fs->reportedByDaemon)
        return {};
    return {"_fsstate_" + pair("_fs_", fs->name) + pair("_status_", fs->status) +
            pair("_xstatus_", fs->xstatus) + pair("_readduration_", fs->readDuration) +
            pair("_writeduration_", fs->writeDuration) + pair("_nsysmgt_", fs->nSysMgt) +
            pair("_mgrchangecnt_", fs->mgrChangeCnt) + pair("_totalspace_", fs->totalSpace) +
            pair("_totalinodes_", fs->totalInodes) + pair("_freespace_", fs->freeSpace) +
            pair("_freeinodes_", fs->freeInodes) +
            pair("_fullblockfreespace_", fs->fullBlockFreeSpace) +
            pair("_fragfreespace_", fs->fragFreeSpace) + pair("_threadwait_", fs->threadWait) +
            pair("_diskwait_", fs->diskWait)};
}

std::vector<std::string> fsCounterLines(const SimCluster& c)
{
    std::vector<std::string> out;
    for (const SimFilesystem& fs : c.filesystems)
        for (const SimFsCounters& k : fs.counters) {
            std::string line = "_tavrel::gfis_" + pair("_rc_", k.rc) + pair("_fs_", fs.name) +
                               pair("_n_", k.nodeIp);
            if (k.rc == 0)
                line += pair("_br_", k.br) + pair("_bc_", k.bc) + pair("_bw_", k.bw) +
                        pair("_r_", k.r) + pair("_c_", k.c) + pair("_w_", k.w) +
                        pair("_oc_", k.oc) + pair("_cc_", k.cc) + pair("_rdc_", k.rdc) +
                        pair("_wc_", k.wc) + pair("_dir_", k.dir) + pair("_iu_", k.iu) +
                        pair("_irc_", k.irc) + pair("_idc_", k.idc) + pair("_icc_", k.icc) +
                        pair("_sch_", k.sch) + pair("_scm_", k.scm);
            out.push_back(line);
        }
    return out;
}

std::vector<std::string> poolLines(const SimCluster& c, const std::string& fsName)
{
    std::vector<std::string> out;
    const SimFilesystem* fs = c.filesystem(fsName);
    if (fs == nullptr)
        return out;
    for (const SimPool& p : fs->pools)
        if (p.reportedByDaemon)
            out.push_back("_pool_ " + p.name + pair("_status_", p.status) +
                          pair("_ndisks_", p.nDisks >= 0 ? p.nDisks
                                                         : static_cast<int>(p.disks.size())) +
                          pair("_totalspace_", p.totalSpace) + pair("_freespace_", p.freeSpace));
    return out;
}

std::vector<std::string> diskLines(const SimCluster& c, const std::string& fsName,
                                   const std::string& poolName)
{
    std::vector<std::string> out;
    const SimPool* p = c.pool(fsName, poolName);
    if (p == nullptr)
        return out;
    for (const SimDisk& d : p->disks)
        if (d.reportedByDaemon)
            out.push_back("_disk_ " + d.name + pair("_status_", d.status) +
                          pair("_availability_", d.availability) +
                          pair("_diskwait_", d.diskWait) + pair("_totalspace_", d.totalSpace) +
                          pair("_fullblockfreespace_", d.fullBlockFreeSpace) +
                          pair("_fragfreespace_", d.fragFreeSpace));
    return out;
}

std::vector<std::string> diskIoLines(const SimCluster& c, const std::string& fsName,
                                     const std::string& poolName)
{
    std::vector<std::string> out;
    const SimPool* p = c.pool(fsName, poolName);
    if (p == nullptr)
        return out;
    for (const SimDisk& d : p->disks)
        for (const SimDiskIo& io : d.io) {
            out.push_back("_tavrel::ds_" + pair("_rc_", io.rc) + pair("_d_", d.name) +
                          pair("_nn_", io.nodeName));
            if (io.rc != 0)
                continue;
            out.push_back("_r_" + ioPairs(io.read));
            out.push_back("_w_" + ioPairs(io.write));
        }
    return out;
}

std::vector<std::string> freeDiskLines(const SimCluster& c, const std::vector<std::string>& names)
{
    std::vector<std::string> out;
    for (const std::string& name : names)
        for (const SimDisk& d : c.freeDisks)
            if (d.name == name) {
                out.push_back("_nsddisk_" + pair("_name_", d.name) + pair("_dstatus_", d.dstatus) +
                              pair("_iocnt_", d.iocnt) + pair("_size_", d.sizeKB));
                break;
            }
    return out;
}

std::vector<std::string> nodeCountLines(const SimCluster& c)
{
    int n = 0;
    for (const SimNode& x : c.nodes)
        n += x.reportedByDaemon ? 1 : 0;
    return {"_tavrel::ng_" + pair("_c_", n)};
}

std::string freeDiskRequest(const SimCluster& c)
{
    std::string req = "get nsddisk ";
    for (const SimDisk& d : c.freeDisks)
        req += d.name + " ";
    return req;
}

std::string diskIoRequest(const SimCluster& c, const std::string& fsName,
                          const std::string& poolName)
{
    return "tavrel ds f cl " + c.clusterName + " fs " + fsName + " p " + poolName;
}

bool daemonAnswer(const SimCluster& c, const std::string& request,
                  std::vector<std::string>* lines)
{
    std::vector<std::string> w = words(request);
    if (request == "get clusterinfo")
        *lines = clusterInfoLines(c);
    else if (request == "get nodes")
        *lines = nodeLines(c);
    else if (request == "tavrel nc")
        *lines = nodeConfigLines(c);
    else if (request == "tavrel v")
        *lines = nodeVersionLines(c);
    else if (request == "tavrel gfis")
        *lines = fsCounterLines(c);
    else if (request == "tavrel ng cnt")
        *lines = nodeCountLines(c);
    else if (w.size() == 3 && w[0] == "get" && w[1] == "fs" && c.filesystem(w[2]) != nullptr)
        *lines = fsStateLines(c, w[2]);
    else if (w.size() == 4 && w[0] == "get" && w[1] == "fs" && c.pool(w[2], w[3]) != nullptr)
        *lines = diskLines(c, w[2], w[3]);
    else if (w.size() == 3 && w[0] == "get" && w[1] == "stgpools" && c.filesystem(w[2]) != nullptr)
        *lines = poolLines(c, w[2]);
    else if (w.size() == 9 && w[0] == "tavrel" && w[1] == "ds" && w[2] == "f" && w[3] == "cl" &&
             w[4] == c.clusterName && w[5] == "fs" && w[7] == "p" && c.pool(w[6], w[8]) != nullptr)
        *lines = diskIoLines(c, w[6], w[8]);
    else if (w.size() >= 2 && w[0] == "get" && w[1] == "nsddisk")
        *lines = freeDiskLines(c, std::vector<std::string>(w.begin() + 2, w.end()));
    else
        return false;
    return true;
}

bool toolAnswer(const SimCluster& c, const std::string& tool, const std::string& args,
                ToolAnswer* answer)
{
    *answer = ToolAnswer();
    std::vector<std::string> w = words(args);
    const std::string nr = kNoRefresh;
    if (tool == "vksdrquery") {
        if (args == kClusterQueryArgs || args == kClusterQueryArgs + nr)
            answer->out = clusterQueryOutput(c);
        else if (args == kGenNumberArgs)
            answer->out = genNumberOutput(c);
        else if (args == kNodeQueryArgs || args == kNodeQueryArgs + nr)
            answer->out = nodeQueryOutput(c);
        else if (args == kDiskQueryArgs || args == kDiskQueryArgs + nr)
            answer->out = diskQueryOutput(c);
        else
            return false;
        return true;
    }
    if (tool == "vklsmgr") {
        if (args == "-c")
            answer->out = clusterManagerOutput(c);
        else if (w.size() == 1 && c.filesystem(w[0]) != nullptr)
            answer->out = managerTable(c, w[0]);
        else
            return false;
        return true;
    }
    if (tool == "vklsmount" && args == "all_local -Y") {
        answer->out = mountOutput(c);
        return true;
    }
    if (tool == "vklsfs") {
        if (args == "all -T -Y")
            answer->out = mountPointOutput(c);
        else if (w.size() == 2 && w[1] == "-Y" && c.filesystem(w[0]) != nullptr)
            answer->out = attributeOutput(c, w[0]);
        else
            return false;
        return true;
    }
    if (tool == "vklsnsd" && args == "-M") {
        answer->out = diskPathTable(c);
        return true;
    }
    if (tool == "vklspolicy") {
        if (w.size() == 2 && w[1] == "-Y" && c.filesystem(w[0]) != nullptr)
            answer->out = policyOutput(c, w[0]);
        else if (w.size() == 3 && w[1] == "-L" && w[2] == "-Y" && c.filesystem(w[0]) != nullptr)
            answer->out = policyRuleOutput(c, w[0]);
        else
            return false;
        return true;
    }
    if (tool == "vkgetstate" && args == "-Y") {
        answer->out = stateOutput(c);
        return true;
    }
    if (tool == "kxctl" && args == "clusternodeinfo") {
        answer->out = clusterNodeInfoOutput(c);
        return true;
    }
    return false;
}

std::vector<std::string> daemonRequests(const SimCluster& c)
{
    std::vector<std::string> out = {"get clusterinfo", "get nodes", "tavrel nc", "tavrel v",
                                    "tavrel gfis", "tavrel ng cnt"};
    for (const SimFilesystem& fs : c.filesystems) {
        out.push_back("get fs " + fs.name);
        out.push_back("get stgpools " + fs.name);
        for (const SimPool& p : fs.pools) {
            out.push_back("get fs " + fs.name + " " + p.name);
            out.push_back(diskIoRequest(c, fs.name, p.name));
        }
    }
    out.push_back(freeDiskRequest(c));
    return out;
}

std::vector<std::pair<std::string, std::string>> toolCalls(const SimCluster& c)
{
    const std::string nr = kNoRefresh;
    std::vector<std::pair<std::string, std::string>> out = {
        {"vksdrquery", kClusterQueryArgs},
        {"vksdrquery", kClusterQueryArgs + nr},
        {"vksdrquery", kGenNumberArgs},
        {"vksdrquery", kNodeQueryArgs},
        {"vksdrquery", kNodeQueryArgs + nr},
        {"vksdrquery", kDiskQueryArgs},
        {"vksdrquery", kDiskQueryArgs + nr},
        {"vklsmgr", "-c"},
        {"vklsmount", "all_local -Y"},
        {"vklsfs", "all -T -Y"},
        {"vklsnsd", "-M"},
        {"vkgetstate", "-Y"},
    };
    for (const SimFilesystem& fs : c.filesystems) {
        out.push_back({"vklsmgr", fs.name});
        out.push_back({"vklsfs", fs.name + " -Y"});
        out.push_back({"vklspolicy", fs.name + " -Y"});
        out.push_back({"vklspolicy", fs.name + " -L -Y"});
    }
    return out;
}

} // namespace sim

// ---------------------------------------------------------------------------
// Scripting.

FakeCluster::FakeCluster(FakeDaemon& daemon) : daemon_(daemon)
{
    for (const std::string& name : sim::toolNames())
        tools_[name].reset(new FakeTool(name));
}

FakeTool& FakeCluster::tool(const std::string& name)
{
    return *tools_.at(name);
}

void FakeCluster::clearCalls()
{
    for (auto& t : tools_)
        t.second->clearCalls();
}

void FakeCluster::script()
{
    std::set<std::string> now;
    for (const std::string& req : sim::daemonRequests(model)) {
        std::vector<std::string> lines;
        if (!sim::daemonAnswer(model, req, &lines))
            continue;
        daemon_.respondAlways(req, Response(lines));
        now.insert(req);
    }
    for (const std::string& old : scripted_)
        if (now.count(old) == 0)
            daemon_.respondAlways(old, Response());
    scripted_.insert(now.begin(), now.end());

    for (auto& t : tools_)
        t.second->clearRules().output("", 1, "unscripted call\n");
    for (const auto& call : sim::toolCalls(model)) {
        sim::ToolAnswer a;
        if (tools_.count(call.first) == 0 || !sim::toolAnswer(model, call.first, call.second, &a))
            continue;
        tools_[call.first]->on(call.second, a.out, a.status, a.err);
    }
}

// ---------------------------------------------------------------------------
// The small cluster of the end-to-end tests.

SimCluster smallCluster()
{
    SimCluster c;
    c.clusterName = "cluster1";
    c.sdrField1002 = "id-1002";
    c.sdrField1003 = "uid-1003";
    c.sdrField1008 = "prim-1008";
    c.sdrField1006 = "sec-1006";
    c.sdrField1007 = "rsh-1007";
    c.sdrField1011 = 1011;
    c.sdrField1004 = "rcp-1004";
    c.sdrField1005 = "gen-1005";
    c.genNumber = 42;
    c.maxBlockSize = 16777216;
    c.maxFeature = "2401";
    c.distribTokenServer = true;
    c.failureDetectionTime = 35;
    c.minMissedPingTimeout = 3;
    c.maxMissedPingTimeout = 60;
    c.clusterManagerIp = "10.0.0.1";

    SimNode n1;
    n1.name = "node1";
    n1.ipAddr = "10.0.0.1";
    n1.manager = true;
    n1.quorum = true;
    n1.sdrField2010 = "n1-2010";
    n1.adminState = "up";
    n1.status = "up";
    n1.failures = 0;
    n1.threadWait = 2;
    n1.healthy = "yes";
    n1.diagnosis = "ok";
    n1.version = "5.2.0.1";
    n1.pagePool = 1073741824LL;
    n1.pfThreads = 72;
    n1.maxMBps = 2048;
    n1.maxFilesToCache = 4000;
    n1.maxStatCache = 1000;
    n1.wkr1Threads = 48;
    n1.dmapiEventTimeout = 86400000;
    n1.dmapiMountTimeout = 60;
    n1.dmapiSessFailureTimeout = 0;
    n1.nsdServerWaitTimeWindowOnMount = 20;
    n1.nsdServerWaitTimeForMount = 300;
    n1.unmountOnDiskFail = "no";
    n1.platform = "x86_64-linux";
    n1.flags = 0x80;
    n1.nodeNumber = 1;

    SimNode n2 = n1;
    n2.name = "node2";
    n2.ipAddr = "10.0.0.2";
    n2.manager = false;
    n2.quorum = true;
    n2.gateway = true;
    n2.sdrField2010 = "n2-2010";
    n2.failures = 1;
    n2.threadWait = 5;
    n2.version = "5.2.0.0";
    n2.pagePool = 2147483648LL;
    n2.maxFilesToCache = 1000;
    n2.maxStatCache = -1;   // stands for 4 x maxFilesToCache
    n2.unmountOnDiskFail = "yes";
    n2.platform = "ppc64-linux";
    n2.flags = 0x7f;
    n2.nodeNumber = 2;

    SimNode n3 = n1;
    n3.name = "node3";
    n3.ipAddr = "10.0.0.3";
    n3.manager = false;
    n3.quorum = false;
    n3.snmpCollector = true;
    n3.sdrField2010 = "n3-2010";
    n3.adminState = "down";
    n3.status = "arbitrating";
    n3.failures = 3;
    n3.threadWait = 9;
    n3.healthy = "no";
    n3.diagnosis = "network";
    n3.version = "5.1.9.0";
    n3.pagePool = 536870912LL;
    n3.pfThreads = 32;
    n3.maxMBps = 1024;
    n3.maxFilesToCache = 2000;
    n3.maxStatCache = 500;
    n3.wkr1Threads = 16;
    n3.platform = "x86_64-linux";
    n3.flags = 0x81;
    n3.nodeNumber = 3;
    c.nodes = {n1, n2, n3};

    // Disks.
    SimDisk d1;
    d1.name = "d1";
    d1.usage = "dataAndMetadata";
    d1.sdrField3007 = "d1-3007";
    d1.sdrField3008 = "d1-3008";
    d1.servers = {"node1"};
    d1.backupServers = {"node2"};
    d1.status = "up";
    d1.availability = "up";
    d1.diskWait = "1";
    d1.totalSpace = 549755813888LL;
    d1.fullBlockFreeSpace = 274877906944LL;
    d1.fragFreeSpace = 65536;
    d1.nsdId = "0A00000100000001";
    d1.paths = {{"node1", "/dev/sdb"}, {"node2", "/dev/sdc"}};
    SimDiskIo d1a;
    d1a.nodeName = "node1";
    d1a.read = {1.5, 0.75, 0.25, 4096, 2};
    d1a.write = {2.5, 1.0, 0.5, 8192, 4};
    SimDiskIo d1b;
    d1b.nodeName = "node2";
    d1b.read = {0.5, 1.25, 0.125, 1024, 1};
    d1b.write = {0.5, 0.25, 0.0, 2048, 3};
    d1.io = {d1a, d1b};

    SimDisk d2;
    d2.name = "d2";
    d2.usage = "dataOnly";
    d2.sdrField3007 = "d2-3007";
    d2.sdrField3008 = "d2-3008";
    d2.servers = {"node2"};
    d2.backupServers = {"node1"};
    d2.status = "up";
    d2.availability = "up";
    d2.diskWait = "0";
    d2.totalSpace = 1099511627776LL;
    d2.fullBlockFreeSpace = 824633720832LL;
    d2.fragFreeSpace = 131072;
    d2.nsdId = "0A00000200000002";
    d2.paths = {{"node1", "-"}, {"node2", "/dev/sdd"}};
    SimDiskIo d2a;
    d2a.nodeName = "node2";
    d2a.read = {3.0, 2.0, 1.0, 65536, 16};
    d2a.write = {4.0, 3.0, 0.5, 131072, 32};
    d2.io = {d2a};

    SimDisk d3;
    d3.name = "d3";
    d3.usage = "metadataOnly";
    d3.sdrField3007 = "d3-3007";
    d3.sdrField3008 = "d3-3008";
    d3.servers = {"node2", "node3"};
    d3.backupServers = {};
    d3.status = "down";
    d3.availability = "unavailable";
    d3.diskWait = "7";
    d3.totalSpace = 274877906944LL;
    d3.fullBlockFreeSpace = 137438953472LL;
    d3.fragFreeSpace = 8192;
    d3.nsdId = "0A00000300000003";
    d3.paths = {{"node2", "/dev/sde"}, {"node3", "/dev/sdf"}};
    SimDiskIo d3a;
    d3a.nodeName = "node2";
    d3a.read = {0.75, 0.5, 0.25, 512, 1};
    d3a.write = {1.25, 1.0, 0.25, 1536, 2};
    SimDiskIo d3b;
    d3b.nodeName = "node3";
    d3b.rc = 5;   // the daemon failed to ask node3
    d3.io = {d3a, d3b};

    SimDisk d4;
    d4.name = "d4";
    d4.usage = "dataAndMetadata";
    d4.sdrField3007 = "d4-3007";
    d4.sdrField3008 = "d4-3008";
    d4.servers = {"node1"};
    d4.backupServers = {"node2", "node3"};
    d4.status = "up";
    d4.availability = "up";
    d4.diskWait = "2";
    d4.totalSpace = 214748364800LL;
    d4.fullBlockFreeSpace = 107374182400LL;
    d4.fragFreeSpace = 4096;
    d4.nsdId = "0A00000400000004";
    d4.paths = {{"node1", "/dev/sdg"}};
    SimDiskIo d4a;
    d4a.nodeName = "node1";
    d4a.read = {0.25, 0.25, 0.25, 100, 1};
    d4a.write = {0.5, 0.5, 0.5, 200, 1};
    d4.io = {d4a};

    SimDisk d5;
    d5.name = "d5";
    d5.usage = "dataOnly";
    d5.sdrField3007 = "d5-3007";
    d5.sdrField3008 = "d5-3008";
    d5.servers = {"node1"};
    d5.backupServers = {"node2"};
    d5.freePoolName = "system";
    d5.sizeKB = 104857600;
    d5.dstatus = "ready";
    d5.iocnt = 0;
    d5.nsdId = "0A00000500000005";
    d5.paths = {{"node1", "/dev/sdh"}};
    c.freeDisks = {d5};

    // Filesystems.
    SimFilesystem fs1;
    fs1.name = "fs1";
    fs1.status = "mounted";
    fs1.xstatus = "normal";
    fs1.readDuration = 11;
    fs1.writeDuration = 12;
    fs1.nSysMgt = 1;
    fs1.mgrChangeCnt = 2;
    fs1.totalSpace = 1649267441664LL;
    fs1.totalInodes = 1000000;
    fs1.freeSpace = 824633720832LL;
    fs1.freeInodes = 750000;
    fs1.fullBlockFreeSpace = 800000000000LL;
    fs1.fragFreeSpace = 1234567;
    fs1.threadWait = "3";
    fs1.diskWait = "4";
    SimFsCounters k11;
    k11.nodeIp = "10.0.0.1";
    k11.br = 1000; k11.bc = 100; k11.bw = 2000;
    k11.r = 10; k11.c = 1; k11.w = 20; k11.oc = 5; k11.cc = 4; k11.rdc = 11; k11.wc = 21;
    k11.dir = 3; k11.iu = 7; k11.irc = 8; k11.idc = 9; k11.icc = 10; k11.sch = 2; k11.scm = 1;
    SimFsCounters k12;
    k12.nodeIp = "10.0.0.2";
    k12.br = 3000; k12.bc = 300; k12.bw = 4000;
    k12.r = 30; k12.c = 3; k12.w = 40; k12.oc = 6; k12.cc = 6; k12.rdc = 31; k12.wc = 41;
    k12.dir = 5; k12.iu = 17; k12.irc = 18; k12.idc = 19; k12.icc = 20; k12.sch = 4; k12.scm = 3;
    SimFsCounters k13;
    k13.nodeIp = "10.0.0.3";
    k13.br = 5000; k13.bc = 500; k13.bw = 6000;
    k13.r = 50; k13.c = 5; k13.w = 60; k13.oc = 7; k13.cc = 7; k13.rdc = 51; k13.wc = 61;
    k13.dir = 7; k13.iu = 27; k13.irc = 28; k13.idc = 29; k13.icc = 30; k13.sch = 6; k13.scm = 5;
    fs1.counters = {k11, k12, k13};
    fs1.managerIp = "10.0.0.1";
    fs1.attributes = {
        {"minFragmentSize", "8192"},
        {"inodeSize", "4096"},
        {"indirectBlockSize", "32768"},
        {"defaultMetadataReplicas", "2"},
        {"maxMetadataReplicas", "3"},
        {"defaultDataReplicas", "1"},
        {"maxDataReplicas", "2"},
        {"blockAllocationType", "cluster"},
        {"fileLockingSemantics", "nfs4"},
        {"ACLSemantics", "all"},
        {"estimatedAverageFilesize", "1048576"},
        {"numNodes", "32"},
        {"blockSize", "4194304"},
        {"quotasEnforced", "user;group"},
        {"defaultQuotasEnabled", "none"},
        {"maxNumberOfInodes", "2000000"},
        {"filesystemVersion", "27.00 (5.1.0.0)"},
        {"supportForLargeLUNs", "yes"},
        {"DMAPIEnabled", "no"},
        {"exactMtime", "yes"},
        {"suppressAtime", "relatime"},
        {"automaticMountOption", "yes"},
        {"additionalMountOptions", "nodev:nosuid"},
        {"defaultMountPoint", "/gpfs/fs1"},
        {"disks", "d1;d2;d3"},
    };
    fs1.defaultMountPoint = "/gpfs/fs1";
    fs1.mountedBy = {"10.0.0.1", "10.0.0.2", "10.0.0.3"};
    SimPolicy pol;
    pol.fileName = "policy1";
    pol.userName = "root";
    pol.installTime = "Sat Nov 21 10:00:00 2026";
    fs1.policies = {pol};
    fs1.policyText = {"RULE 'placement' SET POOL 'system'",
                      "/* keep the bulk on data1 */",
                      "RULE 'migrate' MIGRATE FROM POOL 'system' TO POOL 'data1'"};
    SimPool p1;
    p1.name = "system";
    p1.status = "up";
    p1.totalSpace = 549755813888LL;
    p1.freeSpace = 274877906944LL;
    p1.disks = {d1};
    SimPool p2;
    p2.name = "data1";
    p2.status = "degraded";
    p2.totalSpace = 1374389534720LL;
    p2.freeSpace = 962072674304LL;
    p2.disks = {d2, d3};
    fs1.pools = {p1, p2};

    SimFilesystem fs2;
    fs2.name = "fs2";
    fs2.status = "mounted";
    fs2.xstatus = "normal";
    fs2.readDuration = 21;
    fs2.writeDuration = 22;
    fs2.nSysMgt = 0;
    fs2.mgrChangeCnt = 1;
    fs2.totalSpace = 214748364800LL;
    fs2.totalInodes = 200000;
    fs2.freeSpace = 107374182400LL;
    fs2.freeInodes = 150000;
    fs2.fullBlockFreeSpace = 100000000000LL;
    fs2.fragFreeSpace = 7654321;
    fs2.threadWait = "0";
    fs2.diskWait = "1";
    SimFsCounters k21;
    k21.nodeIp = "10.0.0.2";
    k21.br = 70; k21.bc = 7; k21.bw = 80;
    k21.r = 1; k21.c = 2; k21.w = 3; k21.oc = 4; k21.cc = 5; k21.rdc = 6; k21.wc = 7;
    k21.dir = 8; k21.iu = 9; k21.irc = 10; k21.idc = 11; k21.icc = 12; k21.sch = 13; k21.scm = 14;
    fs2.counters = {k21};
    fs2.managerIp = "10.0.0.2";
    fs2.attributes = {
        {"blockSize", "1048576"},
        {"inodeSize", "512"},
        {"defaultDataReplicas", "2"},
        {"filesystemVersion", "26.00"},
        {"defaultMountPoint", "/gpfs/fs2"},
    };
    fs2.defaultMountPoint = "/gpfs/fs2";
    fs2.mountedBy = {"10.0.0.2"};
    SimPool p3;
    p3.name = "system";
    p3.status = "up";
    p3.totalSpace = 214748364800LL;
    p3.freeSpace = 107374182400LL;
    p3.disks = {d4};
    fs2.pools = {p3};

    c.filesystems = {fs1, fs2};
    return c;
}

} // namespace qvtest
