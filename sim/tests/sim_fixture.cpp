#include "sim/tests/sim_fixture.h"

#include "sim/dump.h"
#include "sim/render.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <sys/wait.h>
#include <unistd.h>

using namespace qvsim;

namespace qvsimtest {

SimFixture::~SimFixture()
{
    TearDown();
}

void SimFixture::startSim(const ClusterShape& shape)
{
    for (const std::string& tool : allToolNames()) {
        std::string link = std::string(kToolDir) + "/" + tool;
        unlink(link.c_str());
        ASSERT_EQ(symlink(QUELVANE_SIM_PATH, link.c_str()), 0) << link;
    }
    sim.reset(new SimDaemon(generateCluster(shape)));
    std::string err;
    ASSERT_TRUE(sim->start(&err)) << err;
    setenv("PATH", (std::string(kToolDir) + ":/usr/bin:/bin").c_str(), 1);
}

void SimFixture::startHandler()
{
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_CLUSTER), 0);
    h = thePollingHandler;
    ASSERT_NE(h, nullptr);
    MErrno err = 1;
    app = new ClusterInfo(&err);
    ASSERT_EQ(err, 0);
}

void SimFixture::TearDown()
{
    delete app;
    app = nullptr;
    if (h != nullptr) {
        PollingHandler::term();
        h = nullptr;
    }
    if (sim)
        sim->stop();
}

SimCluster SimFixture::dump()
{
    ControlReply r = sim->control("dump", {});
    EXPECT_EQ(r.status, 0);
    return loadModel(r.out);
}

std::string SimFixture::shell(const std::string& cmd, int* status)
{
    std::string out;
    FILE* p = popen(cmd.c_str(), "r");
    if (p == nullptr)
        return out;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), p)) > 0)
        out.append(buf, n);
    int rc = pclose(p);
    if (status != nullptr)
        *status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
    return out;
}

int SimFixture::ctl(const std::string& args)
{
    int status = -1;
    shell(std::string(QUELVANE_SIM_PATH) + " ctl " + args + " >/dev/null", &status);
    return status;
}

void SimFixture::pollEverything(bool withDiskAccess)
{
    ASSERT_NE(h, nullptr);
    auto t0 = std::chrono::steady_clock::now();
    auto lap = [&](const char* what) {
        auto t1 = std::chrono::steady_clock::now();
        if (getenv("QV_TIMING") != nullptr)
            fprintf(stderr, "%-32s %8.3f s\n", what, std::chrono::duration<double>(t1 - t0).count());
        t0 = t1;
    };
    EXPECT_EQ(h->updateNodeInfo(app, 0), 0);
    lap("updateNodeInfo");
    EXPECT_EQ(h->updateDiskSDRInfo(0), 0);
    lap("updateDiskSDRInfo");
    EXPECT_EQ(h->updateClusterInfo(app, 0), 0);
    lap("updateClusterInfo");
    EXPECT_EQ(h->updateFilesystemInfo(app, 1), 0);
    lap("updateFilesystemInfo");
    EXPECT_EQ(h->updateStoragePoolInfo(app, nullptr), 0);
    lap("updateStoragePoolInfo");
    std::vector<std::string> names;
    for (FilesystemInfo* f : app->filesystemItems)
        names.push_back(f->name);
    for (std::string& n : names)
        EXPECT_EQ(h->updateDiskInfo(app, &n[0], nullptr, 1), 0) << n;
    lap("updateDiskInfo");
    EXPECT_EQ(h->updateFreeDiskInfo(app), 0);
    lap("updateFreeDiskInfo");
    if (withDiskAccess) {
        EXPECT_EQ(h->updateDiskAccessInfo(app), 0);
        lap("updateDiskAccessInfo");
    }
    EXPECT_EQ(h->updateFilesystemManagerInfo(app), 0);
    lap("updateFilesystemManagerInfo");
    EXPECT_EQ(h->updateMountedNodeInfo(app), 0);
    lap("updateMountedNodeInfo");
    EXPECT_EQ(h->updateFilesystemConfigInfo(app), 0);
    lap("updateFilesystemConfigInfo");
    EXPECT_EQ(h->updateFilesystemMountPointInfo(app), 0);
    lap("updateFilesystemMountPointInfo");
    EXPECT_EQ(h->updatePolicyInfo(app), 0);
    lap("updatePolicyInfo");
    ++polls;
}

namespace {

std::string nodeNameOf(const SimCluster& m, const std::string& ip)
{
    for (const SimNode& n : m.nodes)
        if (n.ipAddr == ip)
            return n.name;
    return std::string();
}

std::string attribute(const SimFilesystem& fs, const char* name)
{
    for (const auto& kv : fs.attributes)
        if (kv.first == name)
            return kv.second;
    return std::string();
}

void expectDisk(DiskInfo* d, const SimDisk& e, const std::string& poolName, bool free)
{
    SCOPED_TRACE("disk " + e.name);
    EXPECT_STREQ(d->name, e.name.c_str());
    EXPECT_EQ(d->isFree, free ? 1 : 0);
    ASSERT_EQ(d->serverItems.size(), e.servers.size());
    for (size_t i = 0; i < e.servers.size(); ++i)
        EXPECT_STREQ(d->serverItems[i]->name, e.servers[i].c_str());
    ASSERT_EQ(d->backupServerItems.size(), e.backupServers.size());
    for (size_t i = 0; i < e.backupServers.size(); ++i)
        EXPECT_STREQ(d->backupServerItems[i]->name, e.backupServers[i].c_str());
    if (free) {
        // The size in KB passes through a signed 32-bit number.
        EXPECT_EQ(d->totalSpace, static_cast<long long>(static_cast<int32_t>(e.sizeKB)) * 1024);
        return;
    }
    EXPECT_STREQ(d->poolName, poolName.c_str());
    EXPECT_STREQ(d->status, e.status.c_str());
    EXPECT_STREQ(d->availability, e.availability.c_str());
    EXPECT_STREQ(d->diskWait, e.diskWait.c_str());
    EXPECT_EQ(d->totalSpace, e.totalSpace);
    EXPECT_EQ(d->fullBlockFreeSpace, e.fullBlockFreeSpace);
    EXPECT_EQ(d->fragFreeSpace, e.fragFreeSpace);
    unsigned long long br = 0, bw = 0;
    unsigned int ro = 0, wo = 0;
    for (const SimDiskIo& io : e.io)
        if (io.rc == 0) {
            br += io.read.b;
            bw += io.write.b;
            ro += static_cast<unsigned int>(io.read.ops);
            wo += static_cast<unsigned int>(io.write.ops);
        }
    EXPECT_EQ(d->bytesRead, br);
    EXPECT_EQ(d->bytesWritten, bw);
    EXPECT_EQ(d->readOps, ro);
    EXPECT_EQ(d->writeOps, wo);
}

} // namespace

void expectTreeMatchesModel(ClusterInfo* t, const SimCluster& m, int polls, bool recipeCopy)
{
    EXPECT_STREQ(t->clusterName, m.clusterName.c_str());
    EXPECT_STREQ(t->sdrField1002, m.sdrField1002.c_str());
    EXPECT_EQ(t->maxBlockSize, m.maxBlockSize);
    if (!recipeCopy) {
        EXPECT_EQ(t->failureDetectionTime, m.failureDetectionTime);
    }

    ASSERT_EQ(t->nodeItems.size(), m.nodes.size());
    std::map<std::string, NodeInfo*> nodes;
    for (NodeInfo* n : t->nodeItems)
        nodes[n->ipAddr] = n;
    for (const SimNode& e : m.nodes) {
        SCOPED_TRACE("node " + e.name);
        ASSERT_EQ(nodes.count(e.ipAddr), 1u);
        NodeInfo* n = nodes[e.ipAddr];
        EXPECT_STREQ(n->name, e.name.c_str());
        EXPECT_STREQ(n->adminState, e.adminState.c_str());
        EXPECT_STREQ(n->status, e.status.c_str());
        EXPECT_EQ(n->failures, e.failures);
        EXPECT_EQ(n->threadWait, e.threadWait);
        EXPECT_STREQ(n->healthy, e.healthy.c_str());
        EXPECT_STREQ(n->diagnosis, e.diagnosis.c_str());
        EXPECT_STREQ(n->version, e.version.c_str());
        EXPECT_EQ(n->pagePool, e.pagePool);
        EXPECT_EQ(n->maxFilesToCache, static_cast<unsigned>(e.maxFilesToCache));
        EXPECT_STREQ(n->platform, e.platform.c_str());
        EXPECT_EQ(std::string(n->roles).find("quorum") != std::string::npos, e.quorum);
        EXPECT_EQ(std::string(n->roles).find("manager") != std::string::npos, e.manager);
    }

    ASSERT_EQ(t->filesystemItems.size(), m.filesystems.size());
    for (size_t i = 0; i < m.filesystems.size(); ++i) {
        const SimFilesystem& e = m.filesystems[i];
        FilesystemInfo* f = t->filesystemItems[i];
        SCOPED_TRACE("filesystem " + e.name);
        EXPECT_STREQ(f->name, e.name.c_str());
        EXPECT_STREQ(f->status, e.status.c_str());
        EXPECT_STREQ(f->xstatus, e.xstatus.c_str());
        EXPECT_EQ(f->totalSpace, e.totalSpace);
        EXPECT_EQ(f->freeSpace, e.freeSpace);
        EXPECT_EQ(f->totalInodes, e.totalInodes);
        EXPECT_EQ(f->freeInodes, e.freeInodes);
        EXPECT_EQ(f->fullBlockFreeSpace, e.fullBlockFreeSpace);
        EXPECT_EQ(f->fragFreeSpace, e.fragFreeSpace);
        EXPECT_STREQ(f->manager, nodeNameOf(m, e.managerIp).c_str());
        EXPECT_STREQ(f->defaultMountPoint, e.defaultMountPoint.c_str());
        EXPECT_EQ(f->blockSize, std::stoll(attribute(e, "blockSize")));
        unsigned long long br = 0, bw = 0;
        for (const SimFsCounters& k : e.counters)
            if (k.rc == 0) {
                br += k.br;
                bw += k.bw;
            }
        EXPECT_EQ(f->bytesRead, br);
        EXPECT_EQ(f->bytesWritten, bw);
        if (!recipeCopy) {
            // The copy of the recipe carries no mounts, policies or per-node
            // counters.
            EXPECT_EQ(f->perNodePerfItems.size(), e.counters.size());
            EXPECT_EQ(f->mountedNodeItems.size(), e.mountedBy.size());
            ASSERT_EQ(f->policyItems.size(), e.policies.size());
            for (size_t k = 0; k < e.policies.size(); ++k) {
                EXPECT_STREQ(f->policyItems[k]->name, e.policies[k].fileName.c_str());
                // Every poll appends the rules again.
                size_t rules = 0;
                for (const std::string& line : e.policyText)
                    rules += line.compare(0, 5, "RULE ") == 0 ? 1 : 0;
                EXPECT_EQ(f->policyItems[k]->ruleItems.size(), rules * static_cast<size_t>(polls));
            }
        }
        ASSERT_EQ(f->poolItems.size(), e.pools.size());
        for (size_t p = 0; p < e.pools.size(); ++p) {
            const SimPool& ep = e.pools[p];
            StoragePoolInfo* sp = f->poolItems[p];
            SCOPED_TRACE("pool " + ep.name);
            EXPECT_STREQ(sp->name, ep.name.c_str());
            EXPECT_STREQ(sp->status, ep.status.c_str());
            EXPECT_EQ(sp->totalSpace, ep.totalSpace);
            EXPECT_EQ(sp->freeSpace, ep.freeSpace);
            ASSERT_EQ(sp->diskItems.size(), ep.disks.size());
            for (size_t d = 0; d < ep.disks.size(); ++d)
                expectDisk(sp->diskItems[d], ep.disks[d], ep.name, false);
        }
    }
    ASSERT_EQ(t->freeDiskItems.size(), m.freeDisks.size());
    for (size_t i = 0; i < m.freeDisks.size(); ++i)
        expectDisk(t->freeDiskItems[i], m.freeDisks[i], "", true);
}

} // namespace qvsimtest
