#include "sim/render.h"

#include <cstdio>
#include <sstream>

namespace qvsim {

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

const std::vector<std::string>& allToolNames()
{
    static const std::vector<std::string> names = {
        "kxctl",        "vksdrquery",        "vkgetstate",    "vklsmgr",         "vklsnsd",
        "vklsfs",       "vklsmount",         "vklspolicy",    "vklsconfig",      "vklsrecoverygroup",
        "vklspdisk",    "vklsvdisk",         "vklsfileset",   "kxlsfs",          "vkcrfileset",
        "vklinkfileset", "vkunlinkfileset",  "vkdelfileset",  "vkchfileset",     "vklsquota",
        "vksetquota",   "vkgetacl",          "vkputacl"};
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
    if (isStatsRequest(request))
        *lines = statsLines(c, request);
    else if (request == "get clusterinfo")
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

bool daemonKnowsEmpty(const std::string& request)
{
    return request.compare(0, 9, "tavrel ng") == 0 || request.compare(0, 9, "tavrel n ") == 0;
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
    if (tool == "kxctl" && args == "showCfgValue libquelvaneversion") {
        answer->out = std::to_string(c.daemonLibVersion) + "\n";
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

} // namespace qvsim
