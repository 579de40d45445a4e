// The statistics command: one family of the daemon's statistics, per node.
//
// The families that hang on the inventory (cache, vfs, ioc, threads, pcache,
// cluster-config, rpc) are read with the library's updates onto the tree;
// the device families (disk, pool-io, fs-io, nsd-server), which the daemon
// answers for the local node only, with the queries into an array. A daemon
// that does not answer a family says so with an "_error_" line; the command
// then fails with the daemon's words.
#include "cli/commands.h"

#include "cli/console.h"
#include "cli/daemon.h"
#include "cli/names.h"
#include "cli/records_json.h"
#include "cli/table.h"
#include "cli/watchdog.h"

#include <cerrno>
#include <functional>
#include <new>

namespace qvcli {

namespace {

struct Family {
    const char* name;
    const char* request;
    const char* label;          // in messages: "cache statistics"
};

const Family kFamilies[] = {
    {"cache", "tavrel chms", "cache statistics"},
    {"vfs", "tavrel vfss", "file operation statistics"},
    {"ioc", "tavrel iocs", "I/O completion statistics"},
    {"threads", "tavrel threads", "thread pool statistics"},
    {"disk", "tavrel ds", "disk statistics"},
    {"pool-io", "tavrel plios", "storage pool I/O statistics"},
    {"fs-io", "tavrel fis", "filesystem I/O statistics"},
    {"nsd-server", "tavrel nsd_dst", "disk server statistics"},
    {"pcache", "tavrel pncs", "fileset cache statistics"},
    {"cluster-config", "tavrel cfgmgr", "cluster configuration"},
    {"rpc", "tavrel rpcs", "RPC statistics"},
};

const Family& familyNamed(const std::string& name)
{
    for (const Family& f : kFamilies)
        if (name == f.name)
            return f;
    std::string all;
    for (const Family& f : kFamilies)
        all += (all.empty() ? "" : ", ") + std::string(f.name);
    fail(kExitUsage, "unknown statistics family \"" + name + "\" (families: " + all + ")");
}

void emit(const json& doc)
{
    std::string t = documentText(doc);
    fwrite(t.data(), 1, t.size(), out());
}

// Nothing came back of the family: that is an answer of its own (no
// records) unless the daemon refuses the request, which ends the command
// with the daemon's words.
void requireAnswered(Session& s, const Family& f)
{
    std::string why = s.daemonError(f.request);
    if (!why.empty())
        fail(kExitFailure, std::string("the daemon does not answer ") + f.label + " (\"" + f.request + "\"): " + why);
}

// An update's result other than 0.
[[noreturn]] void updateFailed(Session& s, const Family& f, int rc)
{
    std::string why = s.daemonError(f.request);
    if (!why.empty())
        fail(kExitFailure, std::string("the daemon does not answer ") + f.label + " (\"" + f.request + "\"): " + why);
    fail(kExitFailure, std::string("reading ") + f.label + " failed (status " + std::to_string(rc) + ")" +
                           (rc == 1 ? ": a node has failed, or memory ran out" : ""));
}

// ---- the records as JSON and table rows ----

json cacheJson(const CacheStatsInfo* r)
{
    json j;
    QVCLI_FIELD(j, r, rc);
    QVCLI_FIELD(j, r, nodeAddr);
    QVCLI_FIELD(j, r, dcHits);
    QVCLI_FIELD(j, r, dcMisses);
    QVCLI_FIELD(j, r, scHits);
    QVCLI_FIELD(j, r, scMisses);
    return j;
}

struct VfsOp {
    const char* name;
    uint32_t VfsStatsInfo::*count;
    float VfsStatsInfo::*time;
};

#define QVCLI_VFS_OP(op) {#op, &VfsStatsInfo::op##Count, &VfsStatsInfo::op##Time}
const VfsOp kVfsOps[] = {
    QVCLI_VFS_OP(access),     QVCLI_VFS_OP(close),       QVCLI_VFS_OP(create),     QVCLI_VFS_OP(fclear),
    QVCLI_VFS_OP(fsync),      QVCLI_VFS_OP(fsyncRange),  QVCLI_VFS_OP(ftrunc),     QVCLI_VFS_OP(getattr),
    QVCLI_VFS_OP(link),       QVCLI_VFS_OP(lockctl),     QVCLI_VFS_OP(lookup),     QVCLI_VFS_OP(mapLloff),
    QVCLI_VFS_OP(mkdir),      QVCLI_VFS_OP(mknod),       QVCLI_VFS_OP(open),       QVCLI_VFS_OP(read),
    QVCLI_VFS_OP(write),      QVCLI_VFS_OP(mmapRead),    QVCLI_VFS_OP(mmapWrite),  QVCLI_VFS_OP(readdir),
    QVCLI_VFS_OP(readlink),   QVCLI_VFS_OP(readpage),    QVCLI_VFS_OP(remove),     QVCLI_VFS_OP(rename),
    QVCLI_VFS_OP(rmdir),      QVCLI_VFS_OP(setacl),      QVCLI_VFS_OP(setattr),    QVCLI_VFS_OP(symlink),
    QVCLI_VFS_OP(unmap),      QVCLI_VFS_OP(writepage),   QVCLI_VFS_OP(kxfattr),    QVCLI_VFS_OP(kxfsattr),
    QVCLI_VFS_OP(flock),      QVCLI_VFS_OP(setxattr),    QVCLI_VFS_OP(getxattr),   QVCLI_VFS_OP(listxattr),
    QVCLI_VFS_OP(removexattr), QVCLI_VFS_OP(encodeFh),   QVCLI_VFS_OP(decodeFh),   QVCLI_VFS_OP(getDentry),
    QVCLI_VFS_OP(getParent),  QVCLI_VFS_OP(mount),       QVCLI_VFS_OP(statfs),     QVCLI_VFS_OP(sync),
    QVCLI_VFS_OP(vget),
};
#undef QVCLI_VFS_OP

json vfsJson(const VfsStatsInfo* r)
{
    json j;
    QVCLI_FIELD(j, r, rc);
    QVCLI_FIELD(j, r, nodeAddr);
    for (const VfsOp& op : kVfsOps) {
        j[std::string(op.name) + "Count"] = r->*op.count;
        j[std::string(op.name) + "Time"] = r->*op.time;
    }
    return j;
}

struct IocCategory {
    const char* name;
    uint32_t (IocStatsInfo::*values)[2];
};
const IocCategory kIocCategories[] = {
    {"other", &IocStatsInfo::other},     {"mb", &IocStatsInfo::mb},         {"steal", &IocStatsInfo::steal},
    {"cleaner", &IocStatsInfo::cleaner}, {"sync", &IocStatsInfo::sync},     {"logwrap", &IocStatsInfo::logwrap},
    {"revoke", &IocStatsInfo::revoke},   {"prefetch", &IocStatsInfo::prefetch},
};

json iocJson(const IocStatsInfo* r)
{
    json j;
    QVCLI_FIELD(j, r, rc);
    QVCLI_FIELD(j, r, nodeAddr);
    for (const IocCategory& c : kIocCategories)
        j[c.name] = {(r->*c.values)[0], (r->*c.values)[1]};
    return j;
}

struct ThreadPool {
    const char* name;
    threadUtil ThreadUtilInfo::*pool;
};
const ThreadPool kThreadPools[] = {
    {"noncri", &ThreadUtilInfo::noncri}, {"daestr", &ThreadUtilInfo::daestr}, {"mbhan", &ThreadUtilInfo::mbhan},
    {"rcvwor", &ThreadUtilInfo::rcvwor}, {"revwor", &ThreadUtilInfo::revwor}, {"rngrev", &ThreadUtilInfo::rngrev},
    {"recrvk", &ThreadUtilInfo::recrvk}, {"prefth", &ThreadUtilInfo::prefth}, {"sgexpn", &ThreadUtilInfo::sgexpn},
    {"recv", &ThreadUtilInfo::recv},     {"pcache", &ThreadUtilInfo::pcache}, {"multh", &ThreadUtilInfo::multh},
};

json threadsJson(const ThreadUtilInfo* r)
{
    json j;
    QVCLI_FIELD(j, r, rc);
    QVCLI_FIELD(j, r, nodeAddr);
    QVCLI_FIELD(j, r, nThreads);
    QVCLI_FIELD(j, r, seq);
    for (const ThreadPool& p : kThreadPools) {
        const threadUtil& u = r->*p.pool;
        j[p.name] = {{"count1", u.count1}, {"count2", u.count2}, {"count3", u.count3}};
    }
    return j;
}

json diskStatsJson(const DiskStatsInfo* r)
{
    json j;
    QVCLI_FIELD(j, r, rc);
    QVCLI_FIELD(j, r, nodeAddr);
    QVCLI_FIELD(j, r, fsName);
    QVCLI_FIELD(j, r, diskName);
    QVCLI_FIELD(j, r, clusterName);
    QVCLI_FIELD(j, r, readOps);
    QVCLI_FIELD(j, r, writeOps);
    QVCLI_FIELD(j, r, readBytes);
    QVCLI_FIELD(j, r, writeBytes);
    QVCLI_FIELD(j, r, readTw);
    QVCLI_FIELD(j, r, writeTw);
    QVCLI_FIELD(j, r, readQt);
    QVCLI_FIELD(j, r, writeQt);
    QVCLI_FIELD(j, r, readStw);
    QVCLI_FIELD(j, r, writeStw);
    QVCLI_FIELD(j, r, readSqt);
    QVCLI_FIELD(j, r, writeSqt);
    QVCLI_FIELD(j, r, readLtw);
    QVCLI_FIELD(j, r, writeLtw);
    QVCLI_FIELD(j, r, readLqt);
    QVCLI_FIELD(j, r, writeLqt);
    return j;
}

json poolIoJson(const PoolIoStatsInfo* r)
{
    json j;
    QVCLI_FIELD(j, r, rc);
    QVCLI_FIELD(j, r, nodeAddr);
    QVCLI_FIELD(j, r, fsName);
    QVCLI_FIELD(j, r, poolName);
    QVCLI_FIELD(j, r, nDisks);
    QVCLI_FIELD(j, r, bytesRead);
    QVCLI_FIELD(j, r, bytesWritten);
    return j;
}

json fsIoJson(const FsIoStatsInfo* r)
{
    json j;
    QVCLI_FIELD(j, r, rc);
    QVCLI_FIELD(j, r, nDisks);
    QVCLI_FIELD(j, r, nodeAddr);
    QVCLI_FIELD(j, r, fsName);
    QVCLI_FIELD(j, r, bytesRead);
    QVCLI_FIELD(j, r, bytesWritten);
    QVCLI_FIELD(j, r, opens);
    QVCLI_FIELD(j, r, closes);
    QVCLI_FIELD(j, r, reads);
    QVCLI_FIELD(j, r, writes);
    QVCLI_FIELD(j, r, dirs);
    QVCLI_FIELD(j, r, inodeUpdates);
    return j;
}

json nsdServerJson(const NsdServerStatsInfo* r)
{
    json j;
    QVCLI_FIELD(j, r, rc);
    QVCLI_FIELD(j, r, nodeAddr);
    QVCLI_FIELD(j, r, devName);
    QVCLI_FIELD(j, r, diskName);
    QVCLI_FIELD(j, r, readOps);
    QVCLI_FIELD(j, r, writeOps);
    QVCLI_FIELD(j, r, readBytes);
    QVCLI_FIELD(j, r, writeBytes);
    QVCLI_FIELD(j, r, readTw);
    QVCLI_FIELD(j, r, writeTw);
    return j;
}

json pcacheJson(PCacheStatsInfo* r)
{
    json j;
    QVCLI_FIELD(j, r, rc);
    QVCLI_FIELD(j, r, nodeAddr);
    QVCLI_FIELD(j, r, fsName);
    QVCLI_FIELD(j, r, fsetName);
    QVCLI_FIELD(j, r, bytesRead);
    QVCLI_FIELD(j, r, bytesWritten);
    QVCLI_FIELD(j, r, ne);
    QVCLI_FIELD(j, r, nf);
    QVCLI_FIELD(j, r, ns);
    QVCLI_FIELD(j, r, nr);
    QVCLI_FIELD(j, r, ws);
    QVCLI_FIELD(j, r, wl);
    QVCLI_FIELD(j, r, wa);
    QVCLI_FIELD(j, r, nCmds);
    QVCLI_FIELD(j, r, nme);
    QVCLI_FIELD(j, r, hcn);
    QVCLI_FIELD(j, r, hdi);
    QVCLI_FIELD(j, r, fex);
    json cmds = json::array();
    for (uint32_t i = 0; i < r->nCmds && i < 39; ++i) {
        const pCacheCmdInfo* c = r->getPCacheCmdInfoP(static_cast<int>(i));
        if (c == nullptr)
            break;
        cmds.push_back({{"q", c->q}, {"i", c->i}, {"c", c->c}, {"e", c->e}, {"f", c->f}, {"n", c->n}});
    }
    j["cmds"] = cmds;
    return j;
}

json clusterCfgJson(const ClusterCfgInfo* r)
{
    json j;
    QVCLI_FIELD(j, r, rc);
    QVCLI_FIELD(j, r, clusterName);
    QVCLI_FIELD(j, r, nodeNumber);
    QVCLI_FIELD(j, r, nodeAddr);
    QVCLI_FIELD(j, r, hostName);
    QVCLI_FIELD(j, r, ipAddr);
    QVCLI_FIELD(j, r, adminName);
    QVCLI_FIELD(j, r, gpnTrans);
    QVCLI_FIELD(j, r, gpnStatus);
    QVCLI_FIELD(j, r, nodeStatus);
    QVCLI_FIELD(j, r, joinSeq);
    QVCLI_FIELD(j, r, failCount);
    QVCLI_FIELD(j, r, fsManaged);
    QVCLI_FIELD(j, r, cnfsGroup);
    QVCLI_FIELD(j, r, readChecksum);
    QVCLI_FIELD(j, r, writeChecksum);
    QVCLI_FIELD(j, r, lastFail);
    return j;
}

// The samples of one series in the chosen unit; the tree's copy holds the
// first sample of each.
struct Unit {
    const char* name;
    short number;
    int maxCount;
    uint32_t AggregatedRPCPerfStat::*fill;
    PerfSample* (AggregatedRPCPerfStat::*sample)(int);
};
const Unit kUnits[] = {
    {"seconds", 1, 60, &AggregatedRPCPerfStat::numSecs, &AggregatedRPCPerfStat::getSecs},
    {"minutes", 2, 60, &AggregatedRPCPerfStat::numMins, &AggregatedRPCPerfStat::getMins},
    {"hours", 3, 24, &AggregatedRPCPerfStat::numHours, &AggregatedRPCPerfStat::getHours},
    {"days", 4, 30, &AggregatedRPCPerfStat::numDays, &AggregatedRPCPerfStat::getDays},
};

const Unit& unitNamed(const std::string& name)
{
    for (const Unit& u : kUnits)
        if (name == u.name)
            return u;
    fail(kExitUsage, "stats rpc: --unit takes seconds, minutes, hours or days, not \"" + name + "\"");
}

json sampleJson(PerfSample* s)
{
    return {{"min", s->min}, {"max", s->max}, {"av", s->av}, {"cnt", s->cnt}};
}

json rpcJson(RPCUtilInfo* r, const Unit& unit)
{
    json peers = json::array();
    for (uint32_t i = 0; i < r->nNodeUtil && i < 1024; ++i) {
        NodeUtilInfo* n = r->nodeUtilP[i];
        if (n == nullptr)
            continue;
        json p;
        QVCLI_FIELD(p, n, remoteName);
        QVCLI_FIELD(p, n, remoteAddr);
        json stats = json::array();
        for (int k = 0; k < n->nStats && k < 7; ++k) {
            AggregatedRPCPerfStat* st = n->statP[k];
            if (st == nullptr)
                continue;
            json sj;
            QVCLI_FIELD(sj, st, objName);
            json samples = json::array();
            if (st->*unit.fill > 0)
                samples.push_back(sampleJson((st->*unit.sample)(0)));
            sj[unit.name] = samples;
            stats.push_back(sj);
        }
        p["stats"] = stats;
        peers.push_back(p);
    }
    return peers;
}

// A caller's array of records made with their MErrno* constructor, for the
// queries.
template <class Rec>
class RecordArray
{
public:
    explicit RecordArray(size_t n) : raw_(n * sizeof(Rec) + 1), n_(n)
    {
        for (size_t i = 0; i < n_; ++i) {
            MErrno e = 0;
            new (raw_.data() + i * sizeof(Rec)) Rec(&e);
        }
    }
    ~RecordArray()
    {
        for (size_t i = 0; i < n_; ++i)
            data()[i].~Rec();
    }
    RecordArray(const RecordArray&) = delete;
    RecordArray& operator=(const RecordArray&) = delete;
    Rec* data() { return reinterpret_cast<Rec*>(raw_.data()); }
    size_t size() const { return n_; }

private:
    std::vector<unsigned char> raw_;
    size_t n_;
};

using Query = int (PollingHandler::*)(int, void*, int, int*, int*);

// Runs a query of the device families: once to learn the number of records,
// then into an array of that size (again while the number grows).
template <class Rec>
std::unique_ptr<RecordArray<Rec>> runQuery(Session& s, const Family& f, Query q, int* count)
{
    PollingHandler* h = s.handler();
    std::unique_ptr<RecordArray<Rec>> records(new RecordArray<Rec>(0));
    for (int attempt = 0; attempt < 4; ++attempt) {
        int needed = 0;
        int errP = 0;
        Armed armed(std::string("reading ") + f.label);
        resetCapture();
        int rc = (h->*q)(0, records->size() > 0 ? records->data() : nullptr,
                         static_cast<int>(records->size() * Rec::kRecordSize), &needed, &errP);
        if (rc == 0 || (errP == ENOSPC && static_cast<size_t>(needed) <= records->size())) {
            *count = std::min(needed, static_cast<int>(records->size()));
            return records;
        }
        if (errP != ENOSPC)
            updateFailed(s, f, rc);
        records.reset(new RecordArray<Rec>(static_cast<size_t>(needed)));
    }
    fail(kExitFailure, std::string("reading ") + f.label + " failed: the number of records kept changing");
}

void sizeCheck()
{
    static_assert(DiskStatsInfo::kRecordSize == sizeof(DiskStatsInfo), "record sizes");
    static_assert(PoolIoStatsInfo::kRecordSize == sizeof(PoolIoStatsInfo), "record sizes");
    static_assert(FsIoStatsInfo::kRecordSize == sizeof(FsIoStatsInfo), "record sizes");
    static_assert(NsdServerStatsInfo::kRecordSize == sizeof(NsdServerStatsInfo), "record sizes");
}

// ---- the device families ----

template <class Rec>
int deviceFamily(const Family& f, const StatsOptions& o, Query q, json (*toJson)(const Rec*),
                 const std::vector<Table::Column>& columns,
                 const std::function<std::vector<std::string>(const Rec*)>& row)
{
    sizeCheck();
    Session s(POLL_LOCAL_NODE);
    int count = 0;
    std::unique_ptr<RecordArray<Rec>> records = runQuery<Rec>(s, f, q, &count);
    std::vector<const Rec*> chosen;
    for (int i = 0; i < count; ++i) {
        const Rec* r = &records->data()[i];
        if (o.node.empty() || text(r->nodeAddr) == o.node)
            chosen.push_back(r);
    }
    if (count == 0)
        requireAnswered(s, f);
    if (chosen.empty() && !o.node.empty())
        fail(kExitFailure, "unknown node " + o.node + " (no " + f.label + " from it)");
    if (o.json) {
        json doc;
        doc["family"] = f.name;
        doc["records"] = json::array();
        for (const Rec* r : chosen)
            doc["records"].push_back(toJson(r));
        emit(doc);
        return kExitOk;
    }
    std::vector<Table::Column> cols = {{"NODE"}};
    cols.insert(cols.end(), columns.begin(), columns.end());
    Table table(cols);
    for (const Rec* r : chosen) {
        std::vector<std::string> cells = {text(r->nodeAddr)};
        if (r->rc != 0) {
            cells.push_back("(failed: " + std::to_string(r->rc) + ")");
        } else {
            std::vector<std::string> more = row(r);
            cells.insert(cells.end(), more.begin(), more.end());
        }
        table.add(cells);
    }
    table.print(out());
    return kExitOk;
}

// ---- the families on the tree ----

// The nodes of the tree that the options choose.
std::vector<NodeInfo*> chosenNodes(Session& s, const StatsOptions& o)
{
    if (!o.node.empty())
        return {s.node(o.node)};
    return s.tree()->nodeItems;
}

template <class Rec>
int nodeRecordFamily(const Family& f, const StatsOptions& o, int (PollingHandler::*update)(ClusterInfo*),
                     Rec* NodeInfo::*field, json (*toJson)(const Rec*), const std::vector<Table::Column>& columns,
                     const std::function<std::vector<std::vector<std::string>>(const Rec*)>& rows)
{
    Session s;
    s.poll(0);
    std::vector<NodeInfo*> nodes = chosenNodes(s, o);
    int rc = 0;
    {
        Armed armed(std::string("reading ") + f.label);
        resetCapture();
        rc = (s.handler()->*update)(s.tree());
    }
    if (rc != 0)
        updateFailed(s, f, rc);
    // Records that the update left as it made them carry nothing: when no
    // node has more, the daemon may have refused the request.
    MErrno e = 0;
    Rec blank(&e);
    blank.clearStats();
    const json empty = toJson(&blank);
    bool any = false;
    for (NodeInfo* n : s.tree()->nodeItems) {
        Rec* r = n->*field;
        if (r != nullptr && toJson(r) != empty)
            any = true;
    }
    if (!any)
        requireAnswered(s, f);
    if (o.json) {
        json doc;
        doc["family"] = f.name;
        doc["nodes"] = json::array();
        for (NodeInfo* n : nodes) {
            json j;
            j["name"] = text(n->name);
            j["ipAddr"] = text(n->ipAddr);
            Rec* r = n->*field;
            j["record"] = r != nullptr ? toJson(r) : json(nullptr);
            doc["nodes"].push_back(j);
        }
        emit(doc);
        return kExitOk;
    }
    std::vector<Table::Column> cols = {{"NODE"}};
    cols.insert(cols.end(), columns.begin(), columns.end());
    Table table(cols);
    for (NodeInfo* n : nodes) {
        Rec* r = n->*field;
        if (r == nullptr) {
            table.add({text(n->name), "(no answer)"});
            continue;
        }
        if (r->rc != 0) {
            table.add({text(n->name), "(failed: " + std::to_string(r->rc) + ")"});
            continue;
        }
        for (std::vector<std::string>& cells : rows(r)) {
            cells.insert(cells.begin(), text(n->name));
            table.add(cells);
        }
    }
    table.print(out());
    return kExitOk;
}

std::string u(unsigned long long v)
{
    return std::to_string(v);
}

int pcacheFamily(const Family& f, const StatsOptions& o)
{
    Session s;
    s.poll(0);
    std::vector<NodeInfo*> nodes = chosenNodes(s, o);
    int rc = 0;
    {
        Armed armed(std::string("reading ") + f.label);
        resetCapture();
        rc = s.handler()->updatePCacheStatsInfo(s.tree());
    }
    if (rc != 0)
        updateFailed(s, f, rc);
    size_t records = 0;
    for (NodeInfo* n : s.tree()->nodeItems)
        records += n->pCacheItems.size();
    if (records == 0)
        requireAnswered(s, f);
    if (o.json) {
        json doc;
        doc["family"] = f.name;
        doc["nodes"] = json::array();
        for (NodeInfo* n : nodes) {
            json j;
            j["name"] = text(n->name);
            j["ipAddr"] = text(n->ipAddr);
            j["records"] = json::array();
            for (PCacheStatsInfo* r : n->pCacheItems)
                j["records"].push_back(pcacheJson(r));
            doc["nodes"].push_back(j);
        }
        emit(doc);
        return kExitOk;
    }
    Table table({{"NODE"}, {"FILESYSTEM"}, {"FILESET"}, {"READ", true}, {"WRITTEN", true}, {"COMMANDS", true},
                 {"NE", true}, {"NF", true}, {"NS", true}, {"NR", true}});
    for (NodeInfo* n : nodes)
        for (PCacheStatsInfo* r : n->pCacheItems)
            table.add({text(n->name), text(r->fsName), text(r->fsetName), bytesText(static_cast<double>(r->bytesRead)),
                       bytesText(static_cast<double>(r->bytesWritten)), u(r->nCmds), u(r->ne), u(r->nf), u(r->ns),
                       u(r->nr)});
    table.print(out());
    return kExitOk;
}

int clusterConfigFamily(const Family& f, const StatsOptions& o)
{
    Session s;
    s.poll(0);
    if (!o.node.empty())
        s.node(o.node);
    int rc = 0;
    {
        Armed armed(std::string("reading ") + f.label);
        resetCapture();
        rc = s.handler()->updateClusterCfgInfo(s.tree());
    }
    if (rc != 0)
        updateFailed(s, f, rc);
    std::vector<ClusterCfgInfo*> chosen;
    for (ClusterCfgInfo* r : s.tree()->clusterCfgItems)
        if (o.node.empty() || text(r->nodeAddr) == o.node || text(r->ipAddr) == o.node ||
            text(r->hostName) == o.node || text(r->adminName) == o.node)
            chosen.push_back(r);
    if (s.tree()->clusterCfgItems.empty())
        requireAnswered(s, f);
    if (o.json) {
        json doc;
        doc["family"] = f.name;
        doc["records"] = json::array();
        for (ClusterCfgInfo* r : chosen)
            doc["records"].push_back(clusterCfgJson(r));
        emit(doc);
        return kExitOk;
    }
    Table table({{"NUMBER", true}, {"NODE"}, {"HOST"}, {"ADDRESS"}, {"ADMIN NAME"}, {"STATUS"}, {"JOINS", true},
                 {"FAILURES", true}, {"FS MANAGED", true}, {"LAST FAILURE"}});
    for (ClusterCfgInfo* r : chosen)
        table.add({u(r->nodeNumber), orDash(text(r->nodeAddr)), orDash(text(r->hostName)), orDash(text(r->ipAddr)),
                   orDash(text(r->adminName)), orDash(text(r->nodeStatus)), u(r->joinSeq), u(r->failCount),
                   u(r->fsManaged), orDash(text(r->lastFail))});
    table.print(out());
    return kExitOk;
}

int rpcFamily(const Family& f, const StatsOptions& o)
{
    const Unit& unit = unitNamed(o.unit);
    if (o.count < 1 || o.count > unit.maxCount)
        fail(kExitUsage, "stats rpc: --count takes 1 to " + std::to_string(unit.maxCount) + " for " + unit.name);
    Session s;
    s.poll(0);
    std::vector<NodeInfo*> nodes = chosenNodes(s, o);
    int rc = 0;
    {
        Armed armed(std::string("reading ") + f.label);
        resetCapture();
        rc = s.handler()->updateRPCUtilInfo(s.tree(), unit.number, static_cast<short>(o.count));
    }
    if (rc != 0)
        updateFailed(s, f, rc);
    size_t peers = 0;
    for (NodeInfo* n : s.tree()->nodeItems)
        if (n->rpcUtil != nullptr)
            peers += n->rpcUtil->nNodeUtil;
    if (peers == 0)
        requireAnswered(s, f);
    if (o.json) {
        json doc;
        doc["family"] = f.name;
        doc["unit"] = unit.name;
        doc["nodes"] = json::array();
        for (NodeInfo* n : nodes) {
            json j;
            j["name"] = text(n->name);
            j["ipAddr"] = text(n->ipAddr);
            j["peers"] = n->rpcUtil != nullptr ? rpcJson(n->rpcUtil, unit) : json::array();
            doc["nodes"].push_back(j);
        }
        emit(doc);
        return kExitOk;
    }
    Table table({{"NODE"}, {"PEER"}, {"OBJECT"}, {"AVERAGE", true}, {"MIN", true}, {"MAX", true}, {"COUNT", true}});
    for (NodeInfo* n : nodes) {
        if (n->rpcUtil == nullptr)
            continue;
        RPCUtilInfo* r = n->rpcUtil;
        for (uint32_t i = 0; i < r->nNodeUtil && i < 1024; ++i) {
            NodeUtilInfo* peer = r->nodeUtilP[i];
            if (peer == nullptr)
                continue;
            std::string peerName = text(peer->remoteName).empty() ? text(peer->remoteAddr) : text(peer->remoteName);
            for (int k = 0; k < peer->nStats && k < 7; ++k) {
                AggregatedRPCPerfStat* st = peer->statP[k];
                if (st == nullptr || st->*unit.fill == 0)
                    continue;
                PerfSample* p = (st->*unit.sample)(0);
                table.add({text(n->name), peerName, text(st->objName), numberText(p->av, 3), numberText(p->min, 3),
                           numberText(p->max, 3), u(p->cnt)});
            }
        }
    }
    table.print(out());
    return kExitOk;
}

} // namespace

const std::vector<std::string>& statsFamilies()
{
    static const std::vector<std::string> names = [] {
        std::vector<std::string> v;
        for (const Family& f : kFamilies)
            v.push_back(f.name);
        return v;
    }();
    return names;
}

int cmdStats(const StatsOptions& o)
{
    const Family& f = familyNamed(o.family);
    if (!o.node.empty())
        checkName("node", o.node);
    std::string name = f.name;
    if (name == "cache")
        return nodeRecordFamily<CacheStatsInfo>(
            f, o, &PollingHandler::updateCacheStatsInfo, &NodeInfo::cacheStats, cacheJson,
            {{"DIR HITS", true}, {"DIR MISSES", true}, {"STAT HITS", true}, {"STAT MISSES", true}},
            [](const CacheStatsInfo* r) {
                return std::vector<std::vector<std::string>>{{u(r->dcHits), u(r->dcMisses), u(r->scHits), u(r->scMisses)}};
            });
    if (name == "vfs")
        return nodeRecordFamily<VfsStatsInfo>(
            f, o, &PollingHandler::updateVfsStatsInfo, &NodeInfo::vfsStats, vfsJson,
            {{"OPERATION"}, {"COUNT", true}, {"TIME", true}}, [](const VfsStatsInfo* r) {
                std::vector<std::vector<std::string>> rows;
                for (const VfsOp& op : kVfsOps)
                    if (r->*op.count != 0)
                        rows.push_back({op.name, u(r->*op.count), numberText(static_cast<double>(r->*op.time), 3)});
                if (rows.empty())
                    rows.push_back({"(none)", "0", "0"});
                return rows;
            });
    if (name == "ioc")
        return nodeRecordFamily<IocStatsInfo>(
            f, o, &PollingHandler::updateIocStatsInfo, &NodeInfo::iocStats, iocJson,
            {{"CATEGORY"}, {"FIRST", true}, {"SECOND", true}}, [](const IocStatsInfo* r) {
                std::vector<std::vector<std::string>> rows;
                for (const IocCategory& c : kIocCategories)
                    rows.push_back({c.name, u((r->*c.values)[0]), u((r->*c.values)[1])});
                return rows;
            });
    if (name == "threads")
        return nodeRecordFamily<ThreadUtilInfo>(
            f, o, &PollingHandler::updateThreadUtilInfo, &NodeInfo::threadUtil, threadsJson,
            {{"POOL"}, {"FIRST", true}, {"SECOND", true}, {"THIRD", true}}, [](const ThreadUtilInfo* r) {
                std::vector<std::vector<std::string>> rows;
                rows.push_back({"(threads)", u(r->nThreads), "", ""});
                for (const ThreadPool& p : kThreadPools) {
                    const threadUtil& t = r->*p.pool;
                    rows.push_back({p.name, std::to_string(t.count1), std::to_string(t.count2), std::to_string(t.count3)});
                }
                return rows;
            });
    if (name == "pcache")
        return pcacheFamily(f, o);
    if (name == "cluster-config")
        return clusterConfigFamily(f, o);
    if (name == "rpc")
        return rpcFamily(f, o);
    if (name == "disk")
        return deviceFamily<DiskStatsInfo>(
            f, o, &PollingHandler::diskStatsInfo, diskStatsJson,
            {{"FILESYSTEM"}, {"DISK"}, {"READS", true}, {"WRITES", true}, {"READ", true}, {"WRITTEN", true}},
            [](const DiskStatsInfo* r) {
                return std::vector<std::string>{text(r->fsName), text(r->diskName), u(r->readOps), u(r->writeOps),
                                                bytesText(static_cast<double>(r->readBytes)),
                                                bytesText(static_cast<double>(r->writeBytes))};
            });
    if (name == "pool-io")
        return deviceFamily<PoolIoStatsInfo>(
            f, o, &PollingHandler::poolIoStatsInfo, poolIoJson,
            {{"FILESYSTEM"}, {"POOL"}, {"DISKS", true}, {"READ", true}, {"WRITTEN", true}},
            [](const PoolIoStatsInfo* r) {
                return std::vector<std::string>{text(r->fsName), text(r->poolName), u(r->nDisks),
                                                bytesText(static_cast<double>(r->bytesRead)),
                                                bytesText(static_cast<double>(r->bytesWritten))};
            });
    if (name == "fs-io")
        return deviceFamily<FsIoStatsInfo>(
            f, o, &PollingHandler::fsIoStatsInfo, fsIoJson,
            {{"FILESYSTEM"}, {"DISKS", true}, {"READ", true}, {"WRITTEN", true}, {"OPENS", true}, {"CLOSES", true},
             {"READS", true}, {"WRITES", true}, {"DIRS", true}},
            [](const FsIoStatsInfo* r) {
                return std::vector<std::string>{text(r->fsName), u(r->nDisks), bytesText(static_cast<double>(r->bytesRead)),
                                                bytesText(static_cast<double>(r->bytesWritten)), u(r->opens),
                                                u(r->closes), u(r->reads), u(r->writes), u(r->dirs)};
            });
    // nsd-server
    return deviceFamily<NsdServerStatsInfo>(
        f, o, &PollingHandler::nsdServerStatsInfo, nsdServerJson,
        {{"DEVICE"}, {"DISK"}, {"READS", true}, {"WRITES", true}, {"READ", true}, {"WRITTEN", true}},
        [](const NsdServerStatsInfo* r) {
            return std::vector<std::string>{text(r->devName), text(r->diskName), u(r->readOps), u(r->writeOps),
                                            bytesText(static_cast<double>(r->readBytes)),
                                            bytesText(static_cast<double>(r->writeBytes))};
        });
}

} // namespace qvcli
