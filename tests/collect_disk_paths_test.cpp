// Disk paths: the device table of "vklsnsd -M", the paths over the first
// server, and the merge into the recipe by node name.
#include "support/popen_failure.h"
#include "support/fake_tool.h"
#include "support/files.h"
#include "support/handler_fixture.h"
#include "support/log_capture.h"
#include "support/tree_builder.h"
#include "support/log_entries.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <unistd.h>

#include <algorithm>

#include <string>
#include <thread>
#include <vector>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>

using namespace qvtest;

namespace {

using Lines = std::vector<std::string>;

const char* const kWho = "PollingHandler::updateDiskAccessInfo";
const char* const kWhoIndirect = "PollingHandler::updateIndirectDiskAccessInfo";

// The three header lines of the table.
const std::string kHeader =
    "\n"
    " Disk name    NSD volume ID      Device         Node name                Remarks\n"
    "-------------------------------------------------------------------------------\n";

std::string row(const std::string& disk, const std::string& device, const std::string& node)
{
    return " " + disk + "     0A0000015F000001   " + device + "   " + node + "   server node\n";
}

// The five lines that follow every added path.
Lines accessLines(const std::string& who, const std::string& node, const std::string& disk,
                  int local, const std::string& device, const std::string& server)
{
    return {I(who, "node name = " + node), I(who, "accessP->getDiskName() = " + disk),
            I(who, "accessP->isLocal() = " + std::to_string(local)),
            I(who, "accessP->getDeviceName() = " + device),
            I(who, "accessP->getServerName() = " + server)};
}

void append(Lines& to, const Lines& more)
{
    to.insert(to.end(), more.begin(), more.end());
}

bool contains(const Lines& l, const std::string& s)
{
    for (const std::string& x : l)
        if (x == s)
            return true;
    return false;
}

class DiskPaths : public HandlerFixture
{
protected:
    FakeTool vklsnsd{"vklsnsd"};
    MErrno err = 0;
    ClusterInfo tree{&err};

    // Three nodes n1, n2, n3 in the recipe and in the caller's tree.
    void threeNodes()
    {
        for (ClusterInfo* c : {handler()->recipe, &tree}) {
            addNode(c, "n1", "10.0.0.1");
            addNode(c, "n2", "10.0.0.2");
            addNode(c, "n3", "10.0.0.3");
        }
    }

    // The recipe as copyRecipe gives it, in a fresh tree.
    std::vector<Lines> recipePaths()
    {
        MErrno e = 0;
        ClusterInfo copy(&e);
        EXPECT_EQ(handler()->copyRecipe(&copy), 0);
        std::vector<Lines> out;
        for (NodeInfo* n : copy.nodeItems)
            out.push_back(pathsOf(n));
        return out;
    }

    std::vector<Lines> treePaths()
    {
        std::vector<Lines> out;
        for (NodeInfo* n : tree.nodeItems)
            out.push_back(pathsOf(n));
        return out;
    }
};

} // namespace

TEST_F(DiskPaths, FirstServerHasTheDeviceOthersGoThroughIt)
{
    startHandler();
    threeNodes();
    StoragePoolInfo* pool = addPool(addFs(&tree, "fs1"), "system");
    addDisk(pool, "d1", {"n1"});
    vklsnsd.output(kHeader + row("d1", "/dev/sdb", "n1") + "\n" + row("d1", "/dev/sdc", "n2"));

    LogCapture log;
    EXPECT_EQ(handler()->updateDiskAccessInfo(&tree), 0);

    EXPECT_EQ(vklsnsd.calls(), (Lines{"-M"}));
    EXPECT_EQ(vklsnsd.commandLines(), (Lines{"/usr/kpx/vesk/bin/vklsnsd -M"}));
    // The row behind the empty line is not read.
    EXPECT_EQ(treePaths(), (std::vector<Lines>{{"d1/1//dev/sdb/"}, {"d1/0//n1"}, {"d1/0//n1"}}));
    EXPECT_EQ(recipePaths(), treePaths());

    Lines expected = {
        I(kWho, "diskName=d1, deviceName=/dev/sdb, nodeName=n1"),
        I(kWho, "node_index = 0"),
        I(kWho, "free disk_index = -1"),
        I(kWho, "nFs = 1"),
        I(kWho, "fs name = fs1"),
        I(kWho, "nPool = 1"),
        I(kWho, "pool name = system"),
        I(kWho, "disk_index = 0"),
    };
    append(expected, accessLines(kWho, "n1", "d1", 1, "/dev/sdb", ""));
    append(expected, {I(kWho, "fs name = fs1"), I(kWho, "nPool = 1"), I(kWho, "pool name = system"),
                      I(kWho, "disk name = d1"), I(kWhoIndirect, "server node index = 0"),
                      I(kWhoIndirect, "node name = n2")});
    append(expected, accessLines(kWhoIndirect, "n2", "d1", 0, "", "n1"));
    append(expected, {I(kWhoIndirect, "node name = n3")});
    append(expected, accessLines(kWhoIndirect, "n3", "d1", 0, "", "n1"));
    append(expected, {I(kWho, "nNode = 3"), I(kWho, "node name = n1"),
                      I(kWho, "number of disk accesses = 1"), I(kWho, "recipe_node_index = 0"),
                      I(kWho, "node name = n2"), I(kWho, "number of disk accesses = 1"),
                      I(kWho, "recipe_node_index = 1"), I(kWho, "node name = n3"),
                      I(kWho, "number of disk accesses = 1"), I(kWho, "recipe_node_index = 2")});
    EXPECT_EQ(logged(log), expected);
    // The lock is free again.
    EXPECT_EQ(pthread_mutex_trylock(&handler()->pollingMutex), 0);
    pthread_mutex_unlock(&handler()->pollingMutex);
}

TEST_F(DiskPaths, DeviceOnTheSecondNodeKeepsTheServerName)
{
    startHandler();
    threeNodes();
    addDisk(addPool(addFs(&tree, "fs1"), "system"), "d1", {"n1"});
    vklsnsd.output(kHeader + row("d1", "/dev/sdb", "n1") + row("d1", "/dev/sdc", "n2"));

    LogCapture log;
    EXPECT_EQ(handler()->updateDiskAccessInfo(&tree), 0);
    EXPECT_EQ(treePaths(),
              (std::vector<Lines>{{"d1/1//dev/sdb/"}, {"d1/1//dev/sdc/n1"}, {"d1/0//n1"}}));
    EXPECT_EQ(recipePaths(), treePaths());

    Lines indirect;
    for (const std::string& l : logged(log))
        if (l.find(kWhoIndirect) != std::string::npos)
            indirect.push_back(l);
    Lines expected = {I(kWhoIndirect, "server node index = 0"), I(kWhoIndirect, "node name = n2"),
                      I(kWhoIndirect,
                        "Skip this node because it already has DIRECT disk access info."),
                      I(kWhoIndirect, "node name = n3")};
    append(expected, accessLines(kWhoIndirect, "n3", "d1", 0, "", "n1"));
    EXPECT_EQ(indirect, expected);
}

TEST_F(DiskPaths, DiskWithoutServersInNoRowGetsNoPath)
{
    startHandler();
    threeNodes();
    StoragePoolInfo* pool = addPool(addFs(&tree, "fs1"), "system");
    addDisk(pool, "d1", {"n1"});
    addDisk(pool, "d2", {});
    vklsnsd.output(kHeader + row("d1", "/dev/sdb", "n1"));

    LogCapture log;
    EXPECT_EQ(handler()->updateDiskAccessInfo(&tree), 0);
    EXPECT_EQ(treePaths(), (std::vector<Lines>{{"d1/1//dev/sdb/"}, {"d1/0//n1"}, {"d1/0//n1"}}));
    EXPECT_EQ(recipePaths(), treePaths());
    Lines l = logged(log);
    auto at = std::find(l.begin(), l.end(), I(kWho, "disk name = d2"));
    ASSERT_NE(at, l.end());
    ASSERT_NE(at + 1, l.end());
    EXPECT_EQ(*(at + 1), I(kWhoIndirect, "This NSD is directly attached"));
}

TEST_F(DiskPaths, DashDeviceGivesNoDirectPathSoTheNodeGoesThroughTheServer)
{
    startHandler();
    threeNodes();
    addDisk(addPool(addFs(&tree, "fs1"), "system"), "d1", {"n1"});
    vklsnsd.output(kHeader + row("d1", "/dev/sdb", "n1") + row("d1", "-", "n2"));

    LogCapture log;
    EXPECT_EQ(handler()->updateDiskAccessInfo(&tree), 0);
    EXPECT_EQ(treePaths(), (std::vector<Lines>{{"d1/1//dev/sdb/"}, {"d1/0//n1"}, {"d1/0//n1"}}));
    Lines l = logged(log);
    auto at = std::find(l.begin(), l.end(), I(kWho, "diskName=d1, deviceName=-, nodeName=n2"));
    ASSERT_NE(at, l.end());
    ASSERT_NE(at + 1, l.end());
    EXPECT_EQ(*(at + 1), W(kWho, "Invalid device name"));
    EXPECT_FALSE(contains(l, I(kWhoIndirect,
                               "Skip this node because it already has DIRECT disk access info.")));
}

TEST_F(DiskPaths, DiskBothFreeAndInAPoolUsesTheFreeDisk)
{
    startHandler();
    threeNodes();
    addDisk(addPool(addFs(&tree, "fs1"), "system"), "d1", {"n1"});
    addFreeDisk(&tree, "d1", {"n2"});
    vklsnsd.output(kHeader + row("d1", "/dev/sdc", "n3"));

    LogCapture log;
    EXPECT_EQ(handler()->updateDiskAccessInfo(&tree), 0);
    // The direct path names the free disk's server; then the free disk's
    // indirect paths come first (n1 through n2), then the pool disk's
    // (n2 through n1).
    EXPECT_EQ(treePaths(),
              (std::vector<Lines>{{"d1/0//n2"}, {"d1/0//n1"}, {"d1/1//dev/sdc/n2"}}));
    EXPECT_EQ(recipePaths(), treePaths());
    Lines l = logged(log);
    Lines head(l.begin(), l.begin() + 3);
    EXPECT_EQ(head, (Lines{I(kWho, "diskName=d1, deviceName=/dev/sdc, nodeName=n3"),
                           I(kWho, "node_index = 2"), I(kWho, "free disk_index = 0")}));
    EXPECT_FALSE(contains(l, I(kWho, "nFs = 1")));
    EXPECT_TRUE(contains(l, I(kWho, "free disk name = d1")));
}

TEST_F(DiskPaths, NodeNameAsLastWordKeepsItsNewlineAndIsNotFound)
{
    startHandler();
    threeNodes();
    addDisk(addPool(addFs(&tree, "fs1"), "system"), "d1", {"n1"});
    vklsnsd.output(kHeader + " d1 0A01 /dev/sdb n2\n");

    LogCapture log;
    EXPECT_EQ(handler()->updateDiskAccessInfo(&tree), 0);
    Lines l = logged(log);
    ASSERT_GE(l.size(), 3u);
    EXPECT_EQ(l[0], I(kWho, "diskName=d1, deviceName=/dev/sdb, nodeName=n2"));
    EXPECT_EQ(l[1], "");
    EXPECT_EQ(l[2], W(kWho, "Couldn't find node name"));
    EXPECT_EQ(treePaths(), (std::vector<Lines>{{}, {"d1/0//n1"}, {"d1/0//n1"}}));
}

TEST_F(DiskPaths, UnknownNodeAndUnknownDiskDropTheirRows)
{
    startHandler();
    threeNodes();
    addDisk(addPool(addFs(&tree, "fs1"), "system"), "d1", {"n1"});
    vklsnsd.output(kHeader + row("d1", "/dev/sdb", "n9") + row("d7", "/dev/sdb", "n2") +
                   row("d1", "/dev/sdd", "n3"));

    LogCapture log;
    EXPECT_EQ(handler()->updateDiskAccessInfo(&tree), 0);
    Lines l = logged(log);
    Lines expected = {
        I(kWho, "diskName=d1, deviceName=/dev/sdb, nodeName=n9"),
        W(kWho, "Couldn't find node name"),
        I(kWho, "diskName=d7, deviceName=/dev/sdb, nodeName=n2"),
        I(kWho, "node_index = 1"),
        I(kWho, "free disk_index = -1"),
        I(kWho, "nFs = 1"),
        I(kWho, "fs name = fs1"),
        I(kWho, "nPool = 1"),
        I(kWho, "pool name = system"),
        W(kWho, "Couldn't find disk name"),
        I(kWho, "diskName=d1, deviceName=/dev/sdd, nodeName=n3"),
    };
    ASSERT_GE(l.size(), expected.size());
    EXPECT_EQ(Lines(l.begin(), l.begin() + static_cast<long>(expected.size())), expected);
    EXPECT_EQ(treePaths(), (std::vector<Lines>{{}, {"d1/0//n1"}, {"d1/1//dev/sdd/n1"}}));
}

TEST_F(DiskPaths, OnlyTheFirstServerCounts)
{
    startHandler();
    threeNodes();
    addNode(handler()->recipe, "n4", "10.0.0.4");
    addNode(&tree, "n4", "10.0.0.4");
    addDisk(addPool(addFs(&tree, "fs1"), "system"), "d1", {"n2", "n3"}, {"n4"});
    vklsnsd.output(kHeader);

    EXPECT_EQ(handler()->updateDiskAccessInfo(&tree), 0);
    EXPECT_EQ(treePaths(), (std::vector<Lines>{{"d1/0//n2"}, {}, {"d1/0//n2"}, {"d1/0//n2"}}));
    EXPECT_EQ(recipePaths(), treePaths());
}

TEST_F(DiskPaths, PathsAreRebuiltAndTheRecipeLosesWhatTheToolNoLongerReports)
{
    startHandler();
    threeNodes();
    addDisk(addPool(addFs(&tree, "fs1"), "system"), "d1", {"n1"});
    addAccess(tree.nodeItems[0], "dOld", 1, "/dev/old", "");
    addAccess(tree.nodeItems[1], "d1", 1, "/dev/stale", "n1");
    addAccess(handler()->recipe->nodeItems[0], "dOld", 1, "/dev/old", "");
    addAccess(handler()->recipe->nodeItems[2], "d1", 1, "/dev/stale", "n1");
    vklsnsd.output(kHeader + row("d1", "/dev/sdb", "n1"));

    EXPECT_EQ(handler()->updateDiskAccessInfo(&tree), 0);
    EXPECT_EQ(treePaths(), (std::vector<Lines>{{"d1/1//dev/sdb/"}, {"d1/0//n1"}, {"d1/0//n1"}}));
    EXPECT_EQ(recipePaths(), treePaths());
}

TEST_F(DiskPaths, NodeMissingFromTheRecipeIsPassedOver)
{
    startHandler();
    addNode(handler()->recipe, "n1", "10.0.0.1");
    addNode(handler()->recipe, "n3", "10.0.0.3");
    addNode(&tree, "n1", "10.0.0.1");
    addNode(&tree, "n2", "10.0.0.2");
    addDisk(addPool(addFs(&tree, "fs1"), "system"), "d1", {"n1"});
    vklsnsd.output(kHeader + row("d1", "/dev/sdb", "n1"));

    LogCapture log;
    EXPECT_EQ(handler()->updateDiskAccessInfo(&tree), 0);
    EXPECT_EQ(treePaths(), (std::vector<Lines>{{"d1/1//dev/sdb/"}, {"d1/0//n1"}}));
    EXPECT_EQ(recipePaths(), (std::vector<Lines>{{"d1/1//dev/sdb/"}, {}}));
    Lines l = logged(log);
    Lines tail(l.end() - 6, l.end());
    EXPECT_EQ(tail, (Lines{I(kWho, "nNode = 2"), I(kWho, "node name = n1"),
                           I(kWho, "number of disk accesses = 1"), I(kWho, "recipe_node_index = 0"),
                           I(kWho, "node name = n2"), I(kWho, "recipe_node_index = -1")}));
}

TEST_F(DiskPaths, NonZeroExitLeavesTheRecipeAsItWas)
{
    startHandler();
    threeNodes();
    addDisk(addPool(addFs(&tree, "fs1"), "system"), "d1", {"n1"});
    addAccess(handler()->recipe->nodeItems[1], "dOld", 1, "/dev/old", "");
    addAccess(tree.nodeItems[2], "dOld", 1, "/dev/old", "");
    vklsnsd.output(kHeader + row("d1", "/dev/sdb", "n1"), 2);

    LogCapture log;
    EXPECT_EQ(handler()->updateDiskAccessInfo(&tree), 1);
    // The rows read before the end stand in the caller's tree; no paths over
    // the server were added and nothing was merged.
    EXPECT_EQ(treePaths(), (std::vector<Lines>{{"d1/1//dev/sdb/"}, {}, {}}));
    EXPECT_EQ(recipePaths(), (std::vector<Lines>{{}, {"dOld/1//dev/old/"}, {}}));
    Lines l = logged(log);
    ASSERT_FALSE(l.empty());
    EXPECT_EQ(l.back(), E(kWho, "pclose exit status: 2"));
    EXPECT_FALSE(contains(l, I(kWho, "nNode = 3")));
}

TEST_F(DiskPaths, MissingToolIsAnExitStatusOf127)
{
    startHandler();
    threeNodes();
    unlink("/usr/kpx/vesk/bin/vklsnsd");
    LogCapture log;
    EXPECT_EQ(handler()->updateDiskAccessInfo(&tree), 1);
    EXPECT_EQ(logged(log), (Lines{E(kWho, "pclose exit status: 127")}));
}

TEST_F(DiskPaths, ToolThatCannotBeStartedLogsTheCommand)
{
    startHandler();
    threeNodes();
    addAccess(handler()->recipe->nodeItems[0], "dOld", 1, "/dev/old", "");
    LogCapture log;
    StderrCapture err;
    int rc;
    {
        PopenFailure full;
        rc = handler()->updateDiskAccessInfo(&tree);
    }
    std::string stderrText = err.finish();
    EXPECT_EQ(rc, 1);
    EXPECT_EQ(logged(log), (Lines{E(kWho, "Error: Couldn't find /usr/kpx/vesk/bin/vklsnsd -M command")}));
    EXPECT_NE(stderrText.find("ERROR: PollingHandler::updateDiskAccessInfo: Error: Couldn't find "
                              "/usr/kpx/vesk/bin/vklsnsd -M command\n"),
              std::string::npos)
        << stderrText;
    EXPECT_TRUE(vklsnsd.calls().empty());
    EXPECT_EQ(recipePaths(), (std::vector<Lines>{{"dOld/1//dev/old/"}, {}, {}}));
}

TEST_F(DiskPaths, IndirectPathsNeedTheFirstServerToBeANode)
{
    startHandler();
    threeNodes();
    DiskInfo* d = makeDisk("d1", {"n8"});
    LogCapture log;
    EXPECT_EQ(handler()->updateIndirectDiskAccessInfo(&tree, d), 1);
    EXPECT_EQ(treePaths(), (std::vector<Lines>{{}, {}, {}}));
    EXPECT_TRUE(logged(log).empty());
    delete d;

    DiskInfo* free = makeDisk("d2", {});
    EXPECT_EQ(handler()->updateIndirectDiskAccessInfo(&tree, free), 0);
    EXPECT_EQ(logged(log), (Lines{I(kWhoIndirect, "This NSD is directly attached")}));
    delete free;
}

TEST_F(DiskPaths, RowForADiskWithoutServersEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    startHandler();
    threeNodes();
    addDisk(addPool(addFs(&tree, "fs1"), "system"), "d1", {});
    vklsnsd.output(kHeader + row("d1", "/dev/sdb", "n1"));
    // Run as the command thread runs it: nothing catches the range error.
    EXPECT_DEATH(
        {
            std::thread worker([&] { handler()->updateDiskAccessInfo(&tree); });
            worker.join();
        },
        "std::out_of_range");
}
