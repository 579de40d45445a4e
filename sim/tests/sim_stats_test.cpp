// The statistics queries and updates against the simulated daemon: every
// value checked against the model (the counters are functions of the node,
// the counter and the simulated time), before and after time goes on, with
// a failed node that answers with an error code.
#include "sim/tests/sim_fixture.h"

#include "sim/render.h"

#include <cmath>
#include <vector>

using namespace qvsim;
using namespace qvsimtest;

namespace {

uint32_t low32(unsigned long long v)
{
    return static_cast<uint32_t>(v & 0xFFFFFFFFULL);
}

class SimStats : public SimFixture
{
protected:
    std::vector<const SimNode*> answering(const SimCluster& m)
    {
        std::vector<const SimNode*> out;
        for (const SimNode& n : m.nodes)
            if (nodeAnswersStats(n))
                out.push_back(&n);
        return out;
    }

    void expectCacheQuery()
    {
        SimCluster m = dump();
        std::vector<CacheStatsInfo> recs(m.nodes.size());
        int nNeeded = 0, err = 0;
        ASSERT_EQ(h->cacheStatsInfo(0, recs.data(), static_cast<int>(recs.size() * sizeof(CacheStatsInfo)),
                                    &nNeeded, &err), 0);
        std::vector<const SimNode*> nodes = answering(m);
        ASSERT_EQ(nNeeded, static_cast<int>(nodes.size()));
        // A node that is down takes no slot; its code stays in the slot that
        // the next node fills, since a success does not reset it.
        std::vector<int> rcs;
        int pending = 0;
        for (const SimNode& n : m.nodes) {
            if (!nodeAnswersStats(n)) {
                pending = kDownNodeStatsRc;
                continue;
            }
            rcs.push_back(pending);
            pending = 0;
        }
        for (size_t i = 0; i < nodes.size(); ++i) {
            SCOPED_TRACE(nodes[i]->ipAddr);
            EXPECT_STREQ(recs[i].nodeAddr, nodes[i]->ipAddr.c_str());
            EXPECT_EQ(recs[i].rc, rcs[i]);
            EXPECT_EQ(recs[i].dcHits, low32(statCounter(m, nodes[i]->ipAddr, "_dch_")));
            EXPECT_EQ(recs[i].dcMisses, low32(statCounter(m, nodes[i]->ipAddr, "_dcm_")));
            EXPECT_EQ(recs[i].scHits, low32(statCounter(m, nodes[i]->ipAddr, "_sch_")));
            EXPECT_EQ(recs[i].scMisses, low32(statCounter(m, nodes[i]->ipAddr, "_scm_")));
        }
    }
};

TEST_F(SimStats, QueriesOfEveryNodeFamilyGiveTheModel)
{
    startSim();
    startHandler();
    pollEverything();
    expectCacheQuery();
    SimCluster m = dump();
    int nNeeded = 0, err = 0;

    std::vector<VfsStatsInfo> vfs(m.nodes.size());
    ASSERT_EQ(h->vfsStatsInfo(0, vfs.data(), static_cast<int>(vfs.size() * sizeof(VfsStatsInfo)), &nNeeded, &err), 0);
    ASSERT_EQ(nNeeded, static_cast<int>(m.nodes.size()));
    for (size_t i = 0; i < m.nodes.size(); ++i) {
        const std::string& ip = m.nodes[i].ipAddr;
        EXPECT_EQ(vfs[i].readCount, low32(statCounter(m, ip, "_read_")));
        EXPECT_EQ(vfs[i].writeCount, low32(statCounter(m, ip, "_write_")));
        EXPECT_NEAR(vfs[i].readTime, statSeconds(m, ip, "_read_time"), 1e-3);
        EXPECT_EQ(vfs[i].getattrCount, low32(statCounter(m, ip, "_getattr_")));
    }

    std::vector<IocStatsInfo> ioc(m.nodes.size());
    ASSERT_EQ(h->iocStatsInfo(0, ioc.data(), static_cast<int>(ioc.size() * sizeof(IocStatsInfo)), &nNeeded, &err), 0);
    ASSERT_EQ(nNeeded, static_cast<int>(m.nodes.size()));
    for (size_t i = 0; i < m.nodes.size(); ++i) {
        const std::string& ip = m.nodes[i].ipAddr;
        EXPECT_EQ(ioc[i].mb[0], low32(statCounter(m, ip, "_mb_0")));
        EXPECT_EQ(ioc[i].mb[1], low32(statCounter(m, ip, "_mb_1")));
        EXPECT_EQ(ioc[i].prefetch[1], low32(statCounter(m, ip, "_prefetch_1")));
    }

    std::vector<ThreadUtilInfo> threads(m.nodes.size());
    ASSERT_EQ(h->threadUtilInfo(0, threads.data(), static_cast<int>(threads.size() * sizeof(ThreadUtilInfo)),
                                &nNeeded, &err), 0);
    ASSERT_EQ(nNeeded, static_cast<int>(m.nodes.size()));
    for (size_t i = 0; i < m.nodes.size(); ++i) {
        const std::string& ip = m.nodes[i].ipAddr;
        EXPECT_EQ(threads[i].nThreads, statCounter(m, ip, "_nthreads_") % 1000);
        unsigned long long mx = 16 + statCounter(m, ip, "_multh_max") % 240;
        EXPECT_EQ(threads[i].multh.count3, static_cast<int32_t>(mx));
        EXPECT_LE(threads[i].multh.count1, threads[i].multh.count2);
    }
}

TEST_F(SimStats, CountersGrowWithSimulatedTimeAndAFailedNodeDropsOut)
{
    startSim();
    startHandler();
    pollEverything();
    expectCacheQuery();
    ASSERT_EQ(ctl("tick 3600"), 0);
    ASSERT_EQ(ctl("fail-node node05"), 0);
    expectCacheQuery();   // seven records now, each at its new value
}

TEST_F(SimStats, UpdatesHangTheRecordsOnTheNodes)
{
    startSim();
    startHandler();
    pollEverything();
    ASSERT_EQ(ctl("tick 60"), 0);
    EXPECT_EQ(h->updateCacheStatsInfo(app), 0);
    EXPECT_EQ(h->updateVfsStatsInfo(app), 0);
    EXPECT_EQ(h->updateIocStatsInfo(app), 0);
    EXPECT_EQ(h->updateThreadUtilInfo(app), 0);
    SimCluster m = dump();
    ASSERT_EQ(app->nodeItems.size(), m.nodes.size());
    for (NodeInfo* n : app->nodeItems) {
        SCOPED_TRACE(n->ipAddr);
        ASSERT_NE(n->cacheStats, nullptr);
        EXPECT_EQ(n->cacheStats->dcHits, low32(statCounter(m, n->ipAddr, "_dch_")));
        ASSERT_NE(n->vfsStats, nullptr);
        EXPECT_EQ(n->vfsStats->openCount, low32(statCounter(m, n->ipAddr, "_open_")));
        ASSERT_NE(n->iocStats, nullptr);
        EXPECT_EQ(n->iocStats->sync[0], low32(statCounter(m, n->ipAddr, "_sync_0")));
        ASSERT_NE(n->threadUtil, nullptr);
        EXPECT_EQ(n->threadUtil->seq, low32(statCounter(m, n->ipAddr, "_seq_")));
    }
}

TEST_F(SimStats, DeviceFamiliesInTheLocalScope)
{
    startSim();
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_NODE), 0);
    h = thePollingHandler;
    SimCluster m = dump();
    std::vector<std::pair<std::string, const SimDisk*>> disks;
    std::vector<std::pair<std::string, const SimPool*>> pools;
    for (const auto& fs : m.filesystems)
        for (const auto& p : fs.pools) {
            pools.emplace_back(fs.name, &p);
            for (const auto& d : p.disks)
                disks.emplace_back(fs.name, &d);
        }
    MErrno e = 0;
    std::vector<DiskStatsInfo> ds(disks.size(), DiskStatsInfo(&e));
    int nNeeded = 0, err = 0;
    ASSERT_EQ(h->diskStatsInfo(0, ds.data(), static_cast<int>(ds.size() * sizeof(DiskStatsInfo)), &nNeeded, &err), 0);
    ASSERT_EQ(nNeeded, static_cast<int>(disks.size()));
    for (size_t i = 0; i < disks.size(); ++i) {
        std::string o = disks[i].first + "/" + disks[i].second->name;
        SCOPED_TRACE(o);
        EXPECT_STREQ(ds[i].fsName, disks[i].first.c_str());
        EXPECT_STREQ(ds[i].diskName, disks[i].second->name.c_str());
        EXPECT_STREQ(ds[i].clusterName, m.clusterName.c_str());
        EXPECT_EQ(ds[i].readOps, low32(statCounter(m, o + "_r_", "ops")));
        EXPECT_EQ(ds[i].writeBytes, statCounter(m, o + "_w_", "b") * 4096);
    }
    std::vector<PoolIoStatsInfo> pl(pools.size(), PoolIoStatsInfo(&e));
    ASSERT_EQ(h->poolIoStatsInfo(0, pl.data(), static_cast<int>(pl.size() * sizeof(PoolIoStatsInfo)), &nNeeded, &err), 0);
    ASSERT_EQ(nNeeded, static_cast<int>(pools.size()));
    for (size_t i = 0; i < pools.size(); ++i) {
        EXPECT_STREQ(pl[i].poolName, pools[i].second->name.c_str());
        EXPECT_EQ(pl[i].nDisks, pools[i].second->disks.size());
        EXPECT_EQ(pl[i].bytesRead, statCounter(m, pools[i].first + "/" + pools[i].second->name, "br") * 4096);
    }
    std::vector<FsIoStatsInfo> fis(m.filesystems.size(), FsIoStatsInfo(&e));
    ASSERT_EQ(h->fsIoStatsInfo(0, fis.data(), static_cast<int>(fis.size() * sizeof(FsIoStatsInfo)), &nNeeded, &err), 0);
    ASSERT_EQ(nNeeded, static_cast<int>(m.filesystems.size()));
    for (size_t i = 0; i < m.filesystems.size(); ++i) {
        EXPECT_STREQ(fis[i].fsName, m.filesystems[i].name.c_str());
        EXPECT_EQ(fis[i].bytesWritten, statCounter(m, m.filesystems[i].name, "bw") * 4096);
        EXPECT_EQ(fis[i].opens, low32(statCounter(m, m.filesystems[i].name, "_oc_")));
    }
}

} // namespace

namespace {

TEST_F(SimStats, ConfigurationAndRpcUpdatesReadTheSimulatedSeries)
{
    startSim();
    startHandler();
    pollEverything();
    EXPECT_EQ(h->updateVerbsClientInfo(app), 0);
    EXPECT_EQ(h->updateVerbsServerInfo(app), 0);
    EXPECT_EQ(h->updateKxcommCfgInfo(app), 0);
    EXPECT_EQ(h->updatePCacheStatsInfo(app), 0);
    EXPECT_EQ(h->updateClusterCfgInfo(app), 0);
    EXPECT_EQ(h->updateRPCUtilInfo(app, 0, 0), 0);
    EXPECT_EQ(h->updateRPCSizeUtilInfo(app, 0, 0), 0);
    EXPECT_EQ(h->updateRPCMsgUtilInfo(app, 0, 0), 0);
    EXPECT_EQ(h->updateRPCUtilInfoPerSec(app), 0);
    EXPECT_EQ(h->updateRPCRawUtilInfo(app), 0);
    SimCluster m = dump();
    ASSERT_EQ(app->nodeItems.size(), m.nodes.size());
    for (size_t i = 0; i < m.nodes.size(); ++i) {
        NodeInfo* n = app->nodeItems[i];
        const SimNode& e = m.nodes[i];
        const SimNode& peer = m.nodes[(i + 1) % m.nodes.size()];
        SCOPED_TRACE(e.ipAddr);
        ASSERT_NE(n->verbsClient, nullptr);
        EXPECT_STREQ(n->verbsClient->dst, peer.ipAddr.c_str());
        EXPECT_EQ(n->verbsClient->c1, statCounter(m, e.ipAddr, "_crw_") & 0xFFFFFFFFULL);
        ASSERT_NE(n->verbsServer, nullptr);
        ASSERT_NE(n->kxcommCfg, nullptr);
        EXPECT_EQ(n->kxcommCfg->port, 1191u);
        EXPECT_EQ(n->kxcommCfg->nodeNumber, static_cast<uint32_t>(e.nodeNumber));
        size_t filesets = 0;
        for (const auto& fs : m.filesystems)
            filesets += fs.filesets.size() - 1;
        // Every line after the first good one hangs on that one's node.
        EXPECT_EQ(n->pCacheItems.size(), i == 0 ? filesets * m.nodes.size() : 0u);
        ASSERT_NE(n->rpcUtil, nullptr);
        EXPECT_EQ(n->rpcUtil->nNodeUtil, 1u);
        ASSERT_NE(n->rpcSizeUtil, nullptr);
        EXPECT_EQ(n->rpcSizeUtil->nSizes, 3);
        EXPECT_EQ(n->rpcSizeUtil->sizes[1], 4096u);
        EXPECT_NE(n->rpcMsgUtil, nullptr);
        EXPECT_NE(n->rpcUtilPerSec, nullptr);
        EXPECT_NE(n->rpcRawUtil, nullptr);
    }
    EXPECT_EQ(app->clusterCfgItems.size(), m.nodes.size());
}

} // namespace

namespace {

TEST_F(SimStats, DiskServerAndFilesetCacheQueriesInTheLocalScope)
{
    startSim();
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_NODE), 0);
    h = thePollingHandler;
    SimCluster m = dump();
    std::vector<const SimDisk*> disks;
    std::vector<std::string> diskFs;
    for (const auto& fs : m.filesystems)
        for (const auto& p : fs.pools)
            for (const auto& d : p.disks) {
                disks.push_back(&d);
                diskFs.push_back(fs.name);
            }
    MErrno e = 0;
    std::vector<NsdServerStatsInfo> ns(disks.size(), NsdServerStatsInfo(&e));
    int nNeeded = 0, err = 0;
    ASSERT_EQ(h->nsdServerStatsInfo(0, ns.data(), static_cast<int>(ns.size() * sizeof(NsdServerStatsInfo)), &nNeeded,
                                    &err), 0);
    ASSERT_EQ(nNeeded, static_cast<int>(disks.size()));
    for (size_t i = 0; i < disks.size(); ++i) {
        std::string o = diskFs[i] + "/" + disks[i]->name;
        EXPECT_STREQ(ns[i].diskName, disks[i]->name.c_str());
        EXPECT_STREQ(ns[i].devName, disks[i]->paths.front().device.c_str());
        EXPECT_EQ(ns[i].readOps, low32(statCounter(m, o + "_r_", "ops")));
        EXPECT_EQ(ns[i].writeBytes, statCounter(m, o + "_w_", "b") * 4096);
    }

    // Every node's line for every fileset but the root ones.
    std::vector<std::pair<std::string, std::string>> sets;
    for (const SimNode& n : m.nodes)
        for (const auto& fs : m.filesystems)
            for (const auto& f : fs.filesets)
                if (f.id != 0)
                    sets.emplace_back(n.ipAddr + "/" + fs.name + "/" + f.name, f.name);
    std::vector<PCacheStatsInfo> pc(sets.size(), PCacheStatsInfo(&e));
    ASSERT_EQ(h->pCacheStatsInfo(0, pc.data(), static_cast<int>(pc.size() * sizeof(PCacheStatsInfo)), &nNeeded, &err),
              0);
    ASSERT_EQ(nNeeded, static_cast<int>(sets.size()));
    for (size_t i = 0; i < sets.size(); ++i) {
        EXPECT_STREQ(pc[i].fsetName, sets[i].second.c_str());
        EXPECT_EQ(pc[i].bytesRead, low32(statCounter(m, sets[i].first, "_br_")));
        EXPECT_EQ(pc[i].nf, low32(statCounter(m, sets[i].first, "_nf_")));
    }
}

} // namespace

namespace {

TEST_F(SimStats, ClusterConfigurationQueryInTheLocalScope)
{
    startSim();
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_NODE), 0);
    h = thePollingHandler;
    SimCluster m = dump();
    MErrno e = 0;
    std::vector<ClusterCfgInfo> cfg(m.nodes.size(), ClusterCfgInfo(&e));
    int nNeeded = 0, err = 0;
    ASSERT_EQ(h->clusterCfgInfo(0, cfg.data(), static_cast<int>(cfg.size() * sizeof(ClusterCfgInfo)), &nNeeded, &err),
              0);
    ASSERT_EQ(nNeeded, static_cast<int>(m.nodes.size()));
    for (size_t i = 0; i < m.nodes.size(); ++i) {
        SCOPED_TRACE(m.nodes[i].name);
        EXPECT_STREQ(cfg[i].nodeAddr, m.nodes[i].ipAddr.c_str());
        EXPECT_STREQ(cfg[i].hostName, m.nodes[i].name.c_str());
        EXPECT_STREQ(cfg[i].clusterName, m.clusterName.c_str());
        EXPECT_STREQ(cfg[i].ipAddr, m.nodes[i].ipAddr.c_str());
        EXPECT_STREQ(cfg[i].adminName, m.nodes[i].name.c_str());
        EXPECT_STREQ(cfg[i].nodeStatus, "up");
        EXPECT_EQ(cfg[i].nodeNumber, static_cast<uint32_t>(m.nodes[i].nodeNumber));
        EXPECT_EQ(cfg[i].joinSeq, static_cast<uint32_t>(i + 1));
    }
}

} // namespace
