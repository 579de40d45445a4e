// The library's inventory against the simulated cluster: every collector's
// results checked against the simulator's model dump, before and after the
// cluster changes through "quelvane-sim ctl", and at scale.
#include "sim/tests/sim_fixture.h"

#include "sim/dump.h"

using namespace qvsim;
using namespace qvsimtest;

namespace {

class SimInventory : public SimFixture
{
};

TEST_F(SimInventory, EveryCollectorGivesTheModel)
{
    startSim();
    startHandler();
    pollEverything();
    SimCluster m = dump();
    EXPECT_EQ(m.nodes.size(), 8u);
    EXPECT_EQ(m.filesystems.size(), 2u);
    expectTreeMatchesModel(app, m, polls);

    // The recipe's deep copy holds the same inventory (mounts and policies
    // are not copied).
    MErrno err = 1;
    ClusterInfo copy(&err);
    EXPECT_EQ(h->copyRecipe(&copy), 0);   // takes the polling lock itself
    expectTreeMatchesModel(&copy, m, 0, true);
}

TEST_F(SimInventory, ChangesMadeWithCtlReachThePoll)
{
    startSim();
    startHandler();
    pollEverything();
    SimCluster before = dump();

    EXPECT_EQ(ctl("fail-node node03"), 0);
    EXPECT_EQ(ctl("disk-down fs1 nsd0002"), 0);
    EXPECT_EQ(ctl("delete-disk fs2 nsd0016"), 0);
    EXPECT_EQ(ctl("add-disk fs1 data1 nsd0017"), 0);   // the free disk
    EXPECT_EQ(ctl("create-fs fs3"), 0);
    EXPECT_EQ(ctl("tick 120"), 0);
    pollEverything();
    SimCluster m = dump();
    EXPECT_EQ(m.simTime, 120);
    EXPECT_EQ(m.node("node03")->status, "down");
    EXPECT_EQ(m.filesystems.size(), 3u);
    expectTreeMatchesModel(app, m, polls);

    // The counters grew with simulated time.
    EXPECT_GT(app->filesystemItems[0]->bytesRead, before.filesystems[0].counters[0].br);
    EXPECT_EQ(ctl("delete-fs fs3"), 0);
    pollEverything();
    expectTreeMatchesModel(app, dump(), polls);
}

TEST_F(SimInventory, CtlRefusesWhatTheModelDoesNotHold)
{
    startSim();
    EXPECT_EQ(ctl("fail-node nosuchnode"), 1);
    EXPECT_EQ(ctl("disk-down fs1 nosuchdisk"), 1);
    EXPECT_EQ(ctl("create-fs fs1"), 1);
    EXPECT_EQ(ctl("tick soon"), 1);
    EXPECT_EQ(ctl("event nosuchword"), 1);
    EXPECT_EQ(ctl("frobnicate"), 1);
    int status = 0;
    std::string err = shell(std::string(QUELVANE_SIM_PATH) + " ctl fail-node nosuchnode 2>&1", &status);
    EXPECT_EQ(err, "quelvane-sim ctl fail-node: no node nosuchnode\n");
}

TEST_F(SimInventory, ThousandNodesPolledTwice)
{
    ClusterShape shape;
    shape.nodes = 1000;
    shape.filesystems = 8;
    shape.poolsPerFs = 4;
    shape.disksPerPool = 156;
    shape.freeDisks = 8;   // 8 x 4 x 156 + 8 = 5,000 disks
    startSim(shape);
    startHandler();
    // Without the disk paths: they would make 5,000,000 access records.
    pollEverything(false);
    pollEverything(false);
    SimCluster m = dump();
    size_t disks = m.freeDisks.size();
    for (const auto& fs : m.filesystems)
        for (const auto& p : fs.pools)
            disks += p.disks.size();
    EXPECT_EQ(disks, 5000u);
    EXPECT_EQ(m.nodes.size(), 1000u);
    expectTreeMatchesModel(app, m, polls);
}

TEST_F(SimInventory, TheModelIsDeterministic)
{
    ClusterShape shape;
    shape.seed = 7;
    EXPECT_EQ(dumpModel(generateCluster(shape)), dumpModel(generateCluster(shape)));
    ClusterShape other = shape;
    other.seed = 8;
    EXPECT_NE(dumpModel(generateCluster(shape)), dumpModel(generateCluster(other)));
    // The dump reads back into the same model.
    EXPECT_EQ(dumpModel(loadModel(dumpModel(generateCluster(shape)))), dumpModel(generateCluster(shape)));
}

} // namespace
