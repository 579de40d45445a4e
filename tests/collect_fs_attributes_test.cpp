// Filesystem attributes and mounts: manager, mounted nodes, attributes and
// default mount point, each against its fake tool, with the caller's tree
// and the recipe checked after the run.
#include "support/popen_failure.h"
#include "support/fake_tool.h"
#include "support/files.h"
#include "support/handler_fixture.h"
#include "support/log_capture.h"
#include "support/tree_builder.h"
#include "support/log_entries.h"
#include "support/collector_checks.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>

using namespace qvtest;

namespace {

using Lines = std::vector<std::string>;

const char* const kWhoMgr = "PollingHandler::updateFilesystemManagerInfo";
const char* const kWhoMnt = "PollingHandler::updateMountedNodeInfo";
const char* const kWhoCfg = "PollingHandler::updateFilesystemConfigInfo";
const char* const kWhoMp = "PollingHandler::updateFilesystemMountPointInfo";

bool contains(const Lines& l, const std::string& s)
{
    return std::find(l.begin(), l.end(), s) != l.end();
}

// Manager table: two header lines, then "fs address (name)" rows.
const std::string kMgrHeader =
    "file system      cluster manager node [from 10.0.0.1 (n1)]\n"
    "---------------- ------------------\n";

std::string mgrRow(const std::string& fs, const std::string& ip, const std::string& name)
{
    return fs + "              " + ip + " (" + name + ")\n";
}

const std::string kMountHeader =
    "vklsmount::HEADER:version:reserved:reserved:localDevName:realDevName:owningCluster:"
    "totalNodes:nodeIP:nodeName:clusterName:\n";

std::string mountLine(const std::string& fs, const std::string& ip, const std::string& name)
{
    return "vklsmount::0:1:::" + fs + ":" + fs + ":cl1.example:3:" + ip + ":" + name +
           ":cl1.example:\n";
}

const std::string kFsHeader =
    "vklsfs::HEADER:version:reserved:reserved:deviceName:fieldName:data:remarks:\n";

std::string fsLine(const std::string& dev, const std::string& field, const std::string& data)
{
    return "vklsfs::0:1:::" + dev + ":" + field + ":" + data + "::\n";
}

Lines mountsOf(FilesystemInfo* f)
{
    Lines out;
    for (MountedNodeInfo* m : f->mountedNodeItems)
        out.push_back(std::string(m->nodeName) + "@" + m->nodeIpAddr + "#" +
                      std::to_string(m->found));
    return out;
}

class FsAttributes : public HandlerFixture
{
protected:
    MErrno err = 0;
    ClusterInfo tree{&err};

    void nodes(ClusterInfo* c)
    {
        addNode(c, "n1", "10.0.0.1");
        addNode(c, "n2", "10.0.0.2");
        addNode(c, "n3", "fe80::3");
    }

    // The recipe's filesystems as copyRecipe gives them, in a fresh tree.
    std::unique_ptr<ClusterInfo> recipeCopy()
    {
        MErrno e = 0;
        std::unique_ptr<ClusterInfo> copy(new ClusterInfo(&e));
        EXPECT_EQ(handler()->copyRecipe(copy.get()), 0);
        return copy;
    }

    bool lockIsFree() { return qvtest::lockIsFree(handler()); }
};

} // namespace

// ---------------------------------------------------------------------------
// updateFilesystemManagerInfo

TEST_F(FsAttributes, ManagerOfEachFilesystemByAddress)
{
    FakeTool vklsmgr("vklsmgr");
    startHandler();
    nodes(&tree);
    addFs(&tree, "fs1");
    addFs(&tree, "fs2");
    addFs(handler()->recipe, "fs1");
    addFs(handler()->recipe, "fs2");
    vklsmgr.on("fs1", kMgrHeader + mgrRow("fs1", "10.0.0.2", "n2"));
    vklsmgr.on("fs2", kMgrHeader + mgrRow("fs2", "10.0.0.1", "n1") + mgrRow("fsX", "10.0.0.2", "n2"));

    LogCapture log;
    EXPECT_EQ(handler()->updateFilesystemManagerInfo(&tree), 0);
    EXPECT_EQ(vklsmgr.commandLines(),
              (Lines{"/usr/kpx/vesk/bin/vklsmgr fs1", "/usr/kpx/vesk/bin/vklsmgr fs2"}));
    EXPECT_STREQ(tree.filesystemItems[0]->manager, "n2");
    EXPECT_STREQ(tree.filesystemItems[1]->manager, "n1");
    auto copy = recipeCopy();
    ASSERT_EQ(copy->filesystemItems.size(), 2u);
    EXPECT_STREQ(copy->filesystemItems[0]->manager, "n2");
    EXPECT_STREQ(copy->filesystemItems[1]->manager, "n1");
    EXPECT_EQ(logged(log),
              (Lines{I(kWhoMgr, "cmd = /usr/kpx/vesk/bin/vklsmgr fs1"),
                     I(kWhoMgr, "extractedFsName=fs1, nodeIP=10.0.0.2"),
                     I(kWhoMgr, "fsP->manager=n2"),
                     I(kWhoMgr, "cmd = /usr/kpx/vesk/bin/vklsmgr fs2"),
                     I(kWhoMgr, "extractedFsName=fs2, nodeIP=10.0.0.1"),
                     I(kWhoMgr, "fsP->manager=n1"),
                     I(kWhoMgr, "extractedFsName=fsX, nodeIP=10.0.0.2"),
                     I(kWhoMgr, "file system name does not match")}));
    EXPECT_TRUE(lockIsFree());
}

TEST_F(FsAttributes, ManagerOfAFilesystemUnknownToTheRecipeStaysInTheCallersTree)
{
    FakeTool vklsmgr("vklsmgr");
    startHandler();
    nodes(&tree);
    addFs(&tree, "fs1");
    addFs(&tree, "fs3");
    setText(addFs(handler()->recipe, "fs1")->manager, "old");
    vklsmgr.on("fs1", kMgrHeader + mgrRow("fs1", "10.0.0.1", "n1"));
    vklsmgr.on("fs3", kMgrHeader + mgrRow("fs3", "10.0.0.2", "n2"));

    EXPECT_EQ(handler()->updateFilesystemManagerInfo(&tree), 0);
    EXPECT_STREQ(tree.filesystemItems[1]->manager, "n2");
    auto copy = recipeCopy();
    ASSERT_EQ(copy->filesystemItems.size(), 1u);
    EXPECT_STREQ(copy->filesystemItems[0]->name, "fs1");
    EXPECT_STREQ(copy->filesystemItems[0]->manager, "n1");
}

TEST_F(FsAttributes, ManagerTableEndsAtABlankLine)
{
    FakeTool vklsmgr("vklsmgr");
    startHandler();
    nodes(&tree);
    addFs(&tree, "fs1");
    addFs(handler()->recipe, "fs1");
    vklsmgr.output(kMgrHeader + "\n" + mgrRow("fs1", "10.0.0.1", "n1"));

    LogCapture log;
    EXPECT_EQ(handler()->updateFilesystemManagerInfo(&tree), 0);
    EXPECT_STREQ(tree.filesystemItems[0]->manager, "");
    EXPECT_STREQ(recipeCopy()->filesystemItems[0]->manager, "");
    EXPECT_EQ(logged(log), (Lines{I(kWhoMgr, "cmd = /usr/kpx/vesk/bin/vklsmgr fs1")}));
}

TEST_F(FsAttributes, ManagerWithUnknownAddressOrAddressAsLastWordIsPassedOn)
{
    FakeTool vklsmgr("vklsmgr");
    startHandler();
    nodes(&tree);
    setText(addFs(&tree, "fs1")->manager, "before");
    vklsmgr.output(kMgrHeader + mgrRow("fs1", "10.0.0.9", "n9") + "fs1 10.0.0.1\n");

    LogCapture log;
    EXPECT_EQ(handler()->updateFilesystemManagerInfo(&tree), 0);
    EXPECT_STREQ(tree.filesystemItems[0]->manager, "before");
    Lines l = logged(log);
    EXPECT_EQ(l, (Lines{I(kWhoMgr, "cmd = /usr/kpx/vesk/bin/vklsmgr fs1"),
                        I(kWhoMgr, "extractedFsName=fs1, nodeIP=10.0.0.9"),
                        // the address keeps its newline: unknown
                        I(kWhoMgr, "extractedFsName=fs1, nodeIP=10.0.0.1")}));
}

TEST_F(FsAttributes, ManagerToolFailureEndsTheRunAtOnce)
{
    FakeTool vklsmgr("vklsmgr");
    startHandler();
    nodes(&tree);
    addFs(&tree, "fs1");
    addFs(&tree, "fs2");
    setText(addFs(handler()->recipe, "fs1")->manager, "kept");
    vklsmgr.on("fs1", kMgrHeader + mgrRow("fs1", "10.0.0.1", "n1"), 1);
    vklsmgr.on("fs2", kMgrHeader + mgrRow("fs2", "10.0.0.1", "n1"));

    LogCapture log;
    EXPECT_EQ(handler()->updateFilesystemManagerInfo(&tree), 1);
    EXPECT_EQ(vklsmgr.calls(), (Lines{"fs1"}));
    // What the caller's tree got so far stays; the recipe is untouched.
    EXPECT_STREQ(tree.filesystemItems[0]->manager, "n1");
    EXPECT_STREQ(tree.filesystemItems[1]->manager, "");
    EXPECT_STREQ(recipeCopy()->filesystemItems[0]->manager, "kept");
    EXPECT_EQ(logged(log).back(), E(kWhoMgr, "pclose exit status: 1"));
}

TEST_F(FsAttributes, ManagerToolThatCannotBeStarted)
{
    startHandler();
    addFs(&tree, "fs1");
    addFs(&tree, "fs2");
    LogCapture log;
    StderrCapture cap;
    int rc;
    {
        PopenFailure full;
        rc = handler()->updateFilesystemManagerInfo(&tree);
    }
    cap.finish();
    EXPECT_EQ(rc, 1);
    EXPECT_EQ(logged(log),
              (Lines{I(kWhoMgr, "cmd = /usr/kpx/vesk/bin/vklsmgr fs1"),
                     E(kWhoMgr, "Error: Couldn't find /usr/kpx/vesk/bin/vklsmgr fs1 command")}));
    EXPECT_TRUE(lockIsFree());
}

// ---------------------------------------------------------------------------
// updateMountedNodeInfo

TEST_F(FsAttributes, MountedNodesAreAddedMarkedAndMerged)
{
    FakeTool vklsmount("vklsmount");
    startHandler();
    nodes(&tree);
    FilesystemInfo* fs1 = addFs(&tree, "fs1");
    FilesystemInfo* fs2 = addFs(&tree, "fs2");
    addFs(handler()->recipe, "fs1");
    addFs(handler()->recipe, "fs2");
    addMount(fs1, "n2", "10.0.0.2");   // known already: kept, not doubled
    vklsmount.output(kMountHeader + mountLine("fs1", "10.0.0.1", "n1") +
                     mountLine("fs1", "10.0.0.2", "n2") + mountLine("fs2", "fe80%3A%3A3", "n3") +
                     mountLine("fsZ", "10.0.0.1", "n1") + "vklsmount::0:1:::fs1::x:3:10.0.0.2:\n");

    LogCapture log;
    EXPECT_EQ(handler()->updateMountedNodeInfo(&tree), 0);
    EXPECT_EQ(vklsmount.commandLines(), (Lines{"/usr/kpx/vesk/bin/vklsmount all_local -Y"}));
    EXPECT_EQ(mountsOf(fs1), (Lines{"n2@10.0.0.2#0", "n1@10.0.0.1#0"}));
    EXPECT_EQ(mountsOf(fs2), (Lines{"n3@fe80::3#0"}));
    EXPECT_EQ(mountsOf(handler()->recipe->filesystemItems[0]), (Lines{"n2@10.0.0.2#0", "n1@10.0.0.1#0"}));
    EXPECT_EQ(mountsOf(handler()->recipe->filesystemItems[1]), (Lines{"n3@fe80::3#0"}));
    EXPECT_EQ(logged(log), (Lines{I(kWhoMnt, "fsName=fs1"), I(kWhoMnt, "fsName=fs1"),
                                  I(kWhoMnt, "fsName=fs2"), I(kWhoMnt, "sscanf match failure"),
                                  I(kWhoMnt, "fsName=fs1"), I(kWhoMnt, "nodeName=n2"),
                                  I(kWhoMnt, "nodeName=n1"), I(kWhoMnt, "fsName=fs2"),
                                  I(kWhoMnt, "nodeName=n3")}));
    EXPECT_TRUE(lockIsFree());
}

TEST_F(FsAttributes, MountOfANodeThatLeftGivesAWarningAndItsEntryIsSwept)
{
    FakeTool vklsmount("vklsmount");
    startHandler();
    nodes(handler()->recipe);
    FilesystemInfo* rfs = addFs(handler()->recipe, "fs1");
    addMount(rfs, "n9", "10.0.0.9");
    addMount(rfs, "n1", "10.0.0.1");
    // The background poll works on a copy of the recipe, which has no mounts.
    ASSERT_EQ(handler()->copyRecipe(&tree), 0);
    ASSERT_TRUE(tree.filesystemItems[0]->mountedNodeItems.empty());
    vklsmount.output(kMountHeader + mountLine("fs1", "10.0.0.9", "n9") +
                     mountLine("fs1", "10.0.0.1", "n1"));

    LogCapture log;
    EXPECT_EQ(handler()->updateMountedNodeInfo(&tree), 0);
    EXPECT_EQ(mountsOf(tree.filesystemItems[0]), (Lines{"n1@10.0.0.1#0"}));
    EXPECT_EQ(mountsOf(rfs), (Lines{"n1@10.0.0.1#0"}));
    EXPECT_EQ(logged(log), (Lines{W(kWhoMnt, "Error: Couldn't find node"), I(kWhoMnt, "fsName=fs1"),
                                  I(kWhoMnt, "fsName=fs1"), I(kWhoMnt, "nodeName=n1")}));
}

TEST_F(FsAttributes, NodeThatLeftLosesItsEntryInTheCallersTreeToo)
{
    FakeTool vklsmount("vklsmount");
    startHandler();
    nodes(&tree);
    FilesystemInfo* fs1 = addFs(&tree, "fs1");
    addMount(fs1, "n9", "10.0.0.9");
    vklsmount.output(kMountHeader + mountLine("fs1", "10.0.0.8", "n8"));
    LogCapture log;
    EXPECT_EQ(handler()->updateMountedNodeInfo(&tree), 0);
    EXPECT_TRUE(fs1->mountedNodeItems.empty());
    EXPECT_EQ(logged(log), (Lines{W(kWhoMnt, "Error: Couldn't find node"), I(kWhoMnt, "fsName=fs1"),
                                  I(kWhoMnt, "nodeName=n9")}));
}

TEST_F(FsAttributes, EmptyMountListRemovesEveryEntry)
{
    FakeTool vklsmount("vklsmount");
    startHandler();
    nodes(&tree);
    FilesystemInfo* fs1 = addFs(&tree, "fs1");
    FilesystemInfo* fs2 = addFs(&tree, "fs2");
    addMount(fs1, "n1", "10.0.0.1");
    addMount(fs1, "n2", "10.0.0.2");
    addMount(fs2, "n2", "10.0.0.2");
    FilesystemInfo* r1 = addFs(handler()->recipe, "fs1");
    addMount(r1, "n1", "10.0.0.1");
    vklsmount.output("");

    EXPECT_EQ(handler()->updateMountedNodeInfo(&tree), 0);
    EXPECT_TRUE(fs1->mountedNodeItems.empty());
    EXPECT_TRUE(fs2->mountedNodeItems.empty());
    EXPECT_TRUE(r1->mountedNodeItems.empty());
}

TEST_F(FsAttributes, MountToolFailureSkipsTheSweepAndTheMerge)
{
    FakeTool vklsmount("vklsmount");
    startHandler();
    nodes(&tree);
    FilesystemInfo* fs1 = addFs(&tree, "fs1");
    addMount(fs1, "n2", "10.0.0.2");
    FilesystemInfo* r1 = addFs(handler()->recipe, "fs1");
    addMount(r1, "n2", "10.0.0.2");
    vklsmount.output(kMountHeader + mountLine("fs1", "10.0.0.1", "n1"), 4);

    LogCapture log;
    EXPECT_EQ(handler()->updateMountedNodeInfo(&tree), 1);
    // The new entry keeps its mark, the unmarked one is not swept.
    EXPECT_EQ(mountsOf(fs1), (Lines{"n2@10.0.0.2#0", "n1@10.0.0.1#1"}));
    EXPECT_EQ(mountsOf(r1), (Lines{"n2@10.0.0.2#0"}));
    EXPECT_EQ(logged(log), (Lines{I(kWhoMnt, "fsName=fs1"), E(kWhoMnt, "pclose exit status: 4")}));
}

TEST_F(FsAttributes, MountToolThatCannotBeStarted)
{
    startHandler();
    addFs(&tree, "fs1");
    LogCapture log;
    StderrCapture cap;
    int rc;
    {
        PopenFailure full;
        rc = handler()->updateMountedNodeInfo(&tree);
    }
    cap.finish();
    EXPECT_EQ(rc, 1);
    EXPECT_EQ(logged(log),
              (Lines{E(kWhoMnt, "Error: Couldn't find /usr/kpx/vesk/bin/vklsmount all_local -Y command")}));
}

// ---------------------------------------------------------------------------
// updateFilesystemConfigInfo

TEST_F(FsAttributes, AttributesAreStoredByTheTable)
{
    FakeTool vklsfs("vklsfs");
    startHandler();
    FilesystemInfo* fs1 = addFs(&tree, "fs1");
    setText(fs1->status, "up");
    fs1->totalSpace = 77;
    FilesystemInfo* r1 = addFs(handler()->recipe, "fs1");
    setText(r1->status, "changed meanwhile");
    vklsfs.on("fs1 -Y",
              kFsHeader + fsLine("fs1", "minFragmentSize", "8192") +
                  fsLine("fs1", "inodeSize", "4096") + fsLine("fs1", "indirectBlockSize", "32768") +
                  fsLine("fs1", "defaultMetadataReplicas", "2") +
                  fsLine("fs1", "maxMetadataReplicas", "3") +
                  fsLine("fs1", "defaultDataReplicas", "1") + fsLine("fs1", "maxDataReplicas", "2") +
                  fsLine("fs1", "blockAllocationType", "cluster") +
                  fsLine("fs1", "fileLockingSemantics", "nfs4") +
                  fsLine("fs1", "ACLSemantics", "all") +
                  fsLine("fs1", "estimatedAverageFilesize", "1048576") +
                  fsLine("fs1", "numNodes", "32") + fsLine("fs1", "blockSize", "4194304") +
                  fsLine("fs1", "quotasEnforced", "user;group") +
                  fsLine("fs1", "defaultQuotasEnabled", "none") +
                  fsLine("fs1", "maxNumberOfInodes", "8589934592") +
                  fsLine("fs1", "filesystemVersion", "19.01 (5.0.2.0)") +
                  fsLine("fs1", "supportForLargeLUNs", "yes") + fsLine("fs1", "DMAPIEnabled", "no") +
                  fsLine("fs1", "exactMtime", "yes") + fsLine("fs1", "suppressAtime", "relatime") +
                  fsLine("fs1", "automaticMountOption", "yes") +
                  fsLine("fs1", "additionalMountOptions", "opt%3Dx%3A1") +
                  fsLine("fs1", "defaultMountPoint", "%2Fvesk%2Ffs1") +
                  fsLine("fs1", "unknownField", "99") + fsLine("fs2", "inodeSize", "512") +
                  fsLine("fs1", "numNodes", "12abc") + "vklsfs::0:1:::fs1:inodeSize::\n");

    LogCapture log;
    EXPECT_EQ(handler()->updateFilesystemConfigInfo(&tree), 0);
    EXPECT_EQ(vklsfs.commandLines(), (Lines{"/usr/kpx/vesk/bin/vklsfs fs1 -Y"}));
    for (FilesystemInfo* f : {fs1, r1}) {
        SCOPED_TRACE(f == fs1 ? "caller's tree" : "recipe");
        EXPECT_EQ(f->minFragmentSize, 8192);
        EXPECT_EQ(f->inodeSize, 4096);   // the fs2 line is passed over
        EXPECT_EQ(f->indirectBlockSize, 32768);
        EXPECT_EQ(f->defaultMetadataReplicas, 2);
        EXPECT_EQ(f->maxMetadataReplicas, 3);
        EXPECT_EQ(f->defaultDataReplicas, 1);
        EXPECT_EQ(f->maxDataReplicas, 2);
        EXPECT_STREQ(f->blockAllocationType, "cluster");
        EXPECT_STREQ(f->fileLockingSemantics, "nfs4");
        EXPECT_STREQ(f->ACLSemantics, "all");
        EXPECT_EQ(f->estimatedAverageFilesize, 1048576);
        EXPECT_EQ(f->numNodes, 12);
        EXPECT_EQ(f->blockSize, 4194304);
        EXPECT_STREQ(f->quotasEnforced, "user;group");
        EXPECT_STREQ(f->defaultQuotasEnabled, "none");
        EXPECT_EQ(f->maxNumberOfInodes, 8589934592LL);
        EXPECT_STREQ(f->filesystemVersion, "19.01 (5.0.2.0)");
        EXPECT_STREQ(f->supportForLargeLUNs, "yes");
        EXPECT_STREQ(f->DMAPIEnabled, "no");
        EXPECT_STREQ(f->exactMtime, "yes");
        EXPECT_STREQ(f->suppressAtime, "relatime");
        EXPECT_STREQ(f->automaticMountOption, "yes");
        EXPECT_STREQ(f->additionalMountOptions, "opt=x:1");
        EXPECT_STREQ(f->defaultMountPoint, "/vesk/fs1");
        // The merge assigns every own field of the scratch record.
        EXPECT_STREQ(f->status, "up");
        EXPECT_EQ(f->totalSpace, 77);
    }
    auto copy = recipeCopy();
    EXPECT_STREQ(copy->filesystemItems[0]->additionalMountOptions, "opt=x:1");
    Lines l = logged(log);
    ASSERT_EQ(l.size(), 29u);
    EXPECT_EQ(l[0], I(kWhoCfg, "cmd = /usr/kpx/vesk/bin/vklsfs fs1 -Y"));
    EXPECT_EQ(l[1], I(kWhoCfg, "deviceName=fs1, fieldName=minFragmentSize, data=8192"));
    EXPECT_EQ(l[23], I(kWhoCfg, "deviceName=fs1, fieldName=additionalMountOptions, data=opt=x:1"));
    EXPECT_EQ(l[25], I(kWhoCfg, "deviceName=fs1, fieldName=unknownField, data=99"));
    EXPECT_EQ(l[26], I(kWhoCfg, "deviceName=fs2, fieldName=inodeSize, data=512"));
    EXPECT_EQ(l[27], I(kWhoCfg, "deviceName=fs1, fieldName=numNodes, data=12abc"));
    EXPECT_EQ(l[28], I(kWhoCfg, "sscanf match failure"));
}

TEST_F(FsAttributes, AttributesOfAFilesystemUnknownToTheRecipeStayInTheCallersTree)
{
    FakeTool vklsfs("vklsfs");
    startHandler();
    addFs(&tree, "fs1");
    addFs(&tree, "fs2");
    addFs(handler()->recipe, "fs2");
    vklsfs.on("fs1 -Y", kFsHeader + fsLine("fs1", "blockSize", "1024"));
    vklsfs.on("fs2 -Y", kFsHeader + fsLine("fs2", "blockSize", "2048"));

    EXPECT_EQ(handler()->updateFilesystemConfigInfo(&tree), 0);
    EXPECT_EQ(vklsfs.calls(), (Lines{"fs1 -Y", "fs2 -Y"}));
    EXPECT_EQ(tree.filesystemItems[0]->blockSize, 1024);
    EXPECT_EQ(tree.filesystemItems[1]->blockSize, 2048);
    auto copy = recipeCopy();
    ASSERT_EQ(copy->filesystemItems.size(), 1u);
    EXPECT_EQ(copy->filesystemItems[0]->blockSize, 2048);
}

TEST_F(FsAttributes, AttributeToolFailureLeavesTheRestUntouched)
{
    FakeTool vklsfs("vklsfs");
    startHandler();
    addFs(&tree, "fs1");
    addFs(&tree, "fs2");
    addFs(handler()->recipe, "fs1");
    vklsfs.on("fs1 -Y", kFsHeader + fsLine("fs1", "blockSize", "1024"), 2);
    vklsfs.on("fs2 -Y", kFsHeader + fsLine("fs2", "blockSize", "2048"));

    LogCapture log;
    EXPECT_EQ(handler()->updateFilesystemConfigInfo(&tree), 1);
    EXPECT_EQ(vklsfs.calls(), (Lines{"fs1 -Y"}));
    EXPECT_EQ(tree.filesystemItems[0]->blockSize, 1024);
    EXPECT_EQ(tree.filesystemItems[1]->blockSize, 0);
    EXPECT_EQ(recipeCopy()->filesystemItems[0]->blockSize, 0);
    EXPECT_EQ(logged(log).back(), E(kWhoCfg, "pclose exit status: 2"));
}

TEST_F(FsAttributes, AttributeToolThatCannotBeStarted)
{
    startHandler();
    addFs(&tree, "fs1");
    LogCapture log;
    StderrCapture cap;
    int rc;
    {
        PopenFailure full;
        rc = handler()->updateFilesystemConfigInfo(&tree);
    }
    cap.finish();
    EXPECT_EQ(rc, 1);
    EXPECT_EQ(logged(log),
              (Lines{I(kWhoCfg, "cmd = /usr/kpx/vesk/bin/vklsfs fs1 -Y"),
                     E(kWhoCfg, "Error: Couldn't find /usr/kpx/vesk/bin/vklsfs fs1 -Y command")}));
}

// ---------------------------------------------------------------------------
// updateFilesystemMountPointInfo

TEST_F(FsAttributes, MountPointMarksEveryFilesystemTheWalkReaches)
{
    FakeTool vklsfs("vklsfs");
    startHandler();
    FilesystemInfo* fs1 = addFs(&tree, "fs1");
    FilesystemInfo* fs2 = addFs(&tree, "fs2");
    FilesystemInfo* fs3 = addFs(&tree, "fs3");
    FilesystemInfo* r1 = addFs(handler()->recipe, "fs1");
    FilesystemInfo* r2 = addFs(handler()->recipe, "fs2");
    vklsfs.output(kFsHeader + fsLine("fs2", "defaultMountPoint", "%2Fvesk%2Ffs2") + "garbage\n",
                  0, "stderr line\n");

    LogCapture log;
    EXPECT_EQ(handler()->updateFilesystemMountPointInfo(&tree), 0);
    EXPECT_EQ(vklsfs.calls(), (Lines{"all -T -Y"}));
    EXPECT_EQ(fs1->mountPointValid, 1);
    EXPECT_EQ(fs2->mountPointValid, 1);
    EXPECT_EQ(fs3->mountPointValid, 0);
    EXPECT_STREQ(fs1->defaultMountPoint, "");
    EXPECT_STREQ(fs2->defaultMountPoint, "/vesk/fs2");
    EXPECT_EQ(r1->mountPointValid, 0);
    EXPECT_EQ(r2->mountPointValid, 1);
    EXPECT_STREQ(r2->defaultMountPoint, "/vesk/fs2");
    auto copy = recipeCopy();
    EXPECT_STREQ(copy->filesystemItems[1]->defaultMountPoint, "/vesk/fs2");
    EXPECT_EQ(copy->filesystemItems[1]->mountPointValid, 1);
    // Standard error comes through the pipe ("2>&1").
    EXPECT_EQ(logged(log),
              (Lines{I(kWhoMp, "cmd = /usr/kpx/vesk/bin/vklsfs all -T -Y 2>&1"),
                     I(kWhoMp, "buf vklsfs::0:1:::fs2:defaultMountPoint:%2Fvesk%2Ffs2::"), "",
                     I(kWhoMp, "buf garbage"), "", I(kWhoMp, "sscanf match failure"),
                     I(kWhoMp, "buf stderr line"), "", I(kWhoMp, "sscanf match failure")}));
    EXPECT_TRUE(lockIsFree());
}

TEST_F(FsAttributes, MountPointExitStatusKeepsWhatWasRead)
{
    FakeTool vklsfs("vklsfs");
    startHandler();
    FilesystemInfo* fs1 = addFs(&tree, "fs1");
    vklsfs.output(kFsHeader + fsLine("fs1", "defaultMountPoint", "/m1"), 3);
    LogCapture log;
    EXPECT_EQ(handler()->updateFilesystemMountPointInfo(&tree), 1);
    EXPECT_STREQ(fs1->defaultMountPoint, "/m1");
    EXPECT_EQ(logged(log).back(), E(kWhoMp, "exit status: 3"));
    EXPECT_FALSE(contains(logged(log), E(kWhoMp, "pclose exit status: 3")));
    EXPECT_TRUE(lockIsFree());
}

TEST_F(FsAttributes, MountPointToolThatCannotBeStartedReleasesTheLock)
{
    startHandler();
    addFs(&tree, "fs1");
    LogCapture log;
    StderrCapture cap;
    int rc;
    {
        PopenFailure full;
        rc = handler()->updateFilesystemMountPointInfo(&tree);
    }
    cap.finish();
    EXPECT_EQ(rc, 1);
    EXPECT_EQ(logged(log),
              (Lines{I(kWhoMp, "cmd = /usr/kpx/vesk/bin/vklsfs all -T -Y 2>&1"),
                     E(kWhoMp, "Couldn't find /usr/kpx/vesk/bin/vklsfs all -T -Y 2>&1 command")}));
    EXPECT_TRUE(lockIsFree());
}
