// The disk repository scan (updateDiskSDRInfo) and the server lists of a disk
// (updateDiskServerInfo), against a fake vksdrquery, with the recipe's nodes
// set up directly.
#include "support/fake_tool.h"
#include "support/files.h"
#include "support/handler_fixture.h"
#include "support/log_capture.h"
#include "support/popen_failure.h"
#include "support/tree_builder.h"
#include "support/worker_release.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>

using namespace qvtest;

namespace {

using Lines = std::vector<std::string>;

const char* const kArgs = "30 3001:3004:3005:3006:3007:3008:3002:3003";
const char* const kCommand =
    "/usr/kpx/vesk/bin/vksdrquery 30 3001:3004:3005:3006:3007:3008:3002:3003";

std::string sdr(const std::string& disk, const std::string& fs, const std::string& pool,
                const std::string& usage = "dataAndMetadata", const std::string& f7 = "f7",
                const std::string& f8 = "f8", const std::string& servers = "",
                const std::string& backups = "", int rc = 0)
{
    return "vksdrquery:sdrq_nsd_info:" + std::to_string(rc) + ":1:::" + disk + ":" + fs + ":" +
           pool + ":" + usage + ":" + f7 + ":" + f8 + ":" + servers + ":" + backups + ":\n";
}

const std::string kWho = "INFO: PollingHandler::updateDiskSDRInfo: ";
const std::string kWhoSrv = "INFO: PollingHandler::updateDiskServerInfo: ";

// The log lines of one line of a known kind that reaches a disk of a pool.
Lines diskLog(const std::string& disk, const std::string& fs, const std::string& pool,
              const std::string& servers, const std::string& backups, int nServers)
{
    return {kWho + "diskName=" + disk + ", fsName=" + fs + ", poolName=" + pool,
            kWho + "serverList=" + servers,
            kWho + "backupServerList=" + backups,
            kWho + "fs " + fs + " found",
            kWho + "pool " + pool + " found",
            kWho + "disk " + disk + " found",
            kWhoSrv + "diskName=" + disk,
            kWhoSrv + "num server = " + std::to_string(nServers)};
}

Lines cat(std::initializer_list<Lines> parts)
{
    Lines out;
    for (const Lines& p : parts)
        out.insert(out.end(), p.begin(), p.end());
    return out;
}

class DiskRepository : public HandlerFixture
{
protected:
    FakeTool sdrquery{"vksdrquery"};

    ClusterInfo* recipe() const { return handler()->recipe; }

    void startWithNodes()
    {
        startHandler();
        addNode(recipe(), "n1", "10.0.0.1");
        addNode(recipe(), "n2", "10.0.0.2");
        addNode(recipe(), "n3", "10.0.0.3");
    }

    // Recipe with fs1{p1{a,b}, p2{c}}, fs2{p3{d}} and free disks f1, f2.
    void fillRecipe()
    {
        FilesystemInfo* fs1 = addFs(recipe(), "fs1");
        StoragePoolInfo* p1 = addPool(fs1, "p1");
        addDisk(p1, "a");
        addDisk(p1, "b");
        addDisk(addPool(fs1, "p2"), "c");
        addDisk(addPool(addFs(recipe(), "fs2"), "p3"), "d");
        addFreeDisk(recipe(), "f1");
        addFreeDisk(recipe(), "f2");
    }
};

} // namespace

TEST_F(DiskRepository, FirstScanCreatesTwoFilesystemsThreePoolsFourDisks)
{
    startWithNodes();
    sdrquery.on(kArgs, sdr("d1", "fs1", "system", "dataAndMetadata", "x7", "x8", "n1,n2", "n3") +
                           sdr("d2", "fs1", "data", "dataOnly", "y7", "y8", "n2", "") +
                           sdr("d3", "fs2", "system", "metadataOnly", "z7", "z8", "n3", "n1") +
                           sdr("d4", "fs1", "system", "dataOnly", "w7", "w8", "", ""));
    LogCapture log;

    EXPECT_EQ(handler()->updateDiskSDRInfo(0), 0);

    EXPECT_EQ(sdrquery.commandLines(), (Lines{kCommand}));
    EXPECT_EQ(requestsSinceStart(), Lines{});
    EXPECT_EQ(log.lines(),
              cat({diskLog("d1", "fs1", "system", "n1,n2", "n3", 2),
                   diskLog("d2", "fs1", "data", "n2", "", 1),
                   diskLog("d3", "fs2", "system", "n3", "n1", 1),
                   diskLog("d4", "fs1", "system", "", "", 0)}));

    ASSERT_EQ(namesOf(recipe()->filesystemItems), (Lines{"fs1", "fs2"}));
    FilesystemInfo* fs1 = recipe()->filesystemItems[0];
    FilesystemInfo* fs2 = recipe()->filesystemItems[1];
    ASSERT_EQ(namesOf(fs1->poolItems), (Lines{"system", "data"}));
    ASSERT_EQ(namesOf(fs2->poolItems), (Lines{"system"}));
    EXPECT_EQ(namesOf(fs1->poolItems[0]->diskItems), (Lines{"d1", "d4"}));
    EXPECT_EQ(namesOf(fs1->poolItems[1]->diskItems), (Lines{"d2"}));
    EXPECT_EQ(namesOf(fs2->poolItems[0]->diskItems), (Lines{"d3"}));

    DiskInfo* d1 = fs1->poolItems[0]->diskItems[0];
    EXPECT_STREQ(d1->holdsMetadata, "y");
    EXPECT_STREQ(d1->holdsData, "y");
    EXPECT_STREQ(d1->sdrField3007, "x7");
    EXPECT_STREQ(d1->sdrField3008, "x8");
    EXPECT_EQ(d1->isFree, 0);
    EXPECT_STREQ(d1->status, "unknown");
    EXPECT_STREQ(d1->poolName, "");
    EXPECT_EQ(namesOf(d1->serverItems), (Lines{"n1", "n2"}));
    EXPECT_EQ(namesOf(d1->backupServerItems), (Lines{"n3"}));
    DiskInfo* d2 = fs1->poolItems[1]->diskItems[0];
    EXPECT_STREQ(d2->holdsMetadata, "n");
    EXPECT_STREQ(d2->holdsData, "y");
    DiskInfo* d3 = fs2->poolItems[0]->diskItems[0];
    EXPECT_STREQ(d3->holdsMetadata, "y");
    EXPECT_STREQ(d3->holdsData, "n");
    EXPECT_EQ(namesOf(d3->backupServerItems), (Lines{"n1"}));
    DiskInfo* d4 = fs1->poolItems[0]->diskItems[1];
    EXPECT_TRUE(d4->serverItems.empty());
    EXPECT_TRUE(d4->backupServerItems.empty());

    // Every mark is back at 0 after the sweep.
    for (FilesystemInfo* fs : recipe()->filesystemItems) {
        EXPECT_EQ(fs->found, 0);
        for (StoragePoolInfo* p : fs->poolItems) {
            EXPECT_EQ(p->found, 0);
            for (DiskInfo* d : p->diskItems)
                EXPECT_EQ(d->found, 0);
        }
    }
    EXPECT_NE(recipe()->diskSdrUpdateTime.tv_sec, 0);
    EXPECT_TRUE(recipe()->freeDiskItems.empty());

    // The same tree through a fresh deep copy of the recipe.
    MErrno err = 0;
    ClusterInfo copy(&err);
    ASSERT_EQ(handler()->copyRecipe(&copy), 0);
    ASSERT_EQ(namesOf(copy.filesystemItems), (Lines{"fs1", "fs2"}));
    EXPECT_EQ(namesOf(copy.filesystemItems[0]->poolItems), (Lines{"system", "data"}));
    EXPECT_EQ(namesOf(copy.filesystemItems[0]->poolItems[0]->diskItems), (Lines{"d1", "d4"}));
    EXPECT_EQ(namesOf(copy.filesystemItems[0]->poolItems[0]->diskItems[0]->serverItems),
              (Lines{"n1", "n2"}));
    EXPECT_STREQ(copy.filesystemItems[1]->poolItems[0]->diskItems[0]->sdrField3007, "z7");
}

TEST_F(DiskRepository, NoRefreshAppendsAllNorefresh)
{
    startWithNodes();
    sdrquery.on(std::string(kArgs) + " all norefresh", sdr("d1", "fs1", "system"));

    EXPECT_EQ(handler()->updateDiskSDRInfo(1), 0);

    EXPECT_EQ(sdrquery.commandLines(), (Lines{std::string(kCommand) + " all norefresh"}));
    ASSERT_EQ(namesOf(recipe()->filesystemItems), (Lines{"fs1"}));
}

TEST_F(DiskRepository, SecondScanKeepsKnownRecordsAndTheirOtherFields)
{
    startWithNodes();
    sdrquery.output(sdr("d1", "fs1", "system", "dataOnly", "a7", "a8", "n1", ""));
    ASSERT_EQ(handler()->updateDiskSDRInfo(0), 0);
    FilesystemInfo* fs1 = recipe()->filesystemItems[0];
    StoragePoolInfo* pool = fs1->poolItems[0];
    DiskInfo* d1 = pool->diskItems[0];
    setText(fs1->status, "mounted");
    setText(pool->status, "ok");
    setText(d1->status, "up");
    d1->totalSpace = 99;

    sdrquery.output(sdr("d1", "fs1", "system", "metadataOnly", "b7", "b8", "n2", "n3"));
    EXPECT_EQ(handler()->updateDiskSDRInfo(0), 0);

    ASSERT_EQ(recipe()->filesystemItems.size(), 1u);
    EXPECT_EQ(recipe()->filesystemItems[0], fs1);
    EXPECT_EQ(fs1->poolItems[0], pool);
    EXPECT_EQ(pool->diskItems[0], d1);
    EXPECT_STREQ(fs1->status, "mounted");
    EXPECT_STREQ(pool->status, "ok");
    EXPECT_STREQ(d1->status, "up");
    EXPECT_EQ(d1->totalSpace, 99);
    // Usage and the two opaque columns are set for a known disk too, and the
    // server vectors are replaced.
    EXPECT_STREQ(d1->holdsMetadata, "y");
    EXPECT_STREQ(d1->holdsData, "n");
    EXPECT_STREQ(d1->sdrField3007, "b7");
    EXPECT_STREQ(d1->sdrField3008, "b8");
    EXPECT_EQ(namesOf(d1->serverItems), (Lines{"n2"}));
    EXPECT_EQ(namesOf(d1->backupServerItems), (Lines{"n3"}));
}

TEST_F(DiskRepository, EmptyOutputErasesEverythingWithResultZero)
{
    startWithNodes();
    fillRecipe();
    sdrquery.output("");
    LogCapture log;

    EXPECT_EQ(handler()->updateDiskSDRInfo(0), 0);

    EXPECT_TRUE(recipe()->filesystemItems.empty());
    EXPECT_TRUE(recipe()->freeDiskItems.empty());
    // Bottom up, in order; free disks go without a log line.
    EXPECT_EQ(log.lines(), (Lines{kWho + "Erase disk a", kWho + "Erase disk b",
                                  kWho + "Erase pool p1", kWho + "Erase disk c",
                                  kWho + "Erase pool p2", kWho + "Erase fs fs1",
                                  kWho + "Erase disk d", kWho + "Erase pool p3",
                                  kWho + "Erase fs fs2"}));
    EXPECT_NE(recipe()->diskSdrUpdateTime.tv_sec, 0);
}

TEST_F(DiskRepository, EmptyOutputWithBadExitStatusErasesEverythingWithResultOne)
{
    startWithNodes();
    fillRecipe();
    sdrquery.output("", 3);
    LogCapture log;
    StderrCapture err;

    EXPECT_EQ(handler()->updateDiskSDRInfo(0), 1);

    std::string stderrText = err.finish();
    EXPECT_TRUE(recipe()->filesystemItems.empty());
    EXPECT_TRUE(recipe()->freeDiskItems.empty());
    Lines l = log.lines();
    ASSERT_FALSE(l.empty());
    EXPECT_EQ(l[0], "ERROR: PollingHandler::updateDiskSDRInfo: pclose exit status: 3");
    EXPECT_EQ(l.size(), 10u);
    EXPECT_EQ(l.back(), kWho + "Erase fs fs2");
    // Errors are mirrored to stderr.
    EXPECT_NE(stderrText.find("ERROR: PollingHandler::updateDiskSDRInfo: pclose exit status: 3\n"),
              std::string::npos);
    EXPECT_NE(recipe()->diskSdrUpdateTime.tv_sec, 0);
}

TEST(DiskRepositoryNoTool, ShellThatCannotFindTheToolGivesOneAndSweeps)
{
    // No fake vksdrquery here: popen succeeds, the shell does not find the
    // tool, and only the exit status tells.
    FakeDaemon daemon;
    FakeTool kxctl("kxctl");
    kxctl.output("3504\n");
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_CLUSTER), 0);
    addNode(thePollingHandler->recipe, "n1", "10.0.0.1");
    addDisk(addPool(addFs(thePollingHandler->recipe, "fs1"), "p1"), "a");
    addFreeDisk(thePollingHandler->recipe, "f1");
    {
        LogCapture log;
        StderrCapture err;

        EXPECT_EQ(thePollingHandler->updateDiskSDRInfo(0), 1);

        err.finish();
        EXPECT_TRUE(thePollingHandler->recipe->filesystemItems.empty());
        EXPECT_TRUE(thePollingHandler->recipe->freeDiskItems.empty());
        EXPECT_EQ(log.lines(),
                  (Lines{"ERROR: PollingHandler::updateDiskSDRInfo: pclose exit status: 127",
                         kWho + "Erase disk a", kWho + "Erase pool p1", kWho + "Erase fs fs1"}));
    }
    PollingHandler::term();
}

TEST_F(DiskRepository, ToolThatCannotBeStartedChangesNothing)
{
    startWithNodes();
    fillRecipe();
    sdrquery.output(sdr("zz", "fs9", "p9"));
    LogCapture log;
    StderrCapture errOut;

    int rc;
    {
        // popen cannot make its pipe while this lives.
        PopenFailure noPipe;
        ASSERT_GT(noPipe.held(), 0u);
        rc = handler()->updateDiskSDRInfo(0);
    }
    std::string stderrText = errOut.finish();

    EXPECT_EQ(rc, 1);
    EXPECT_EQ(sdrquery.calls(), Lines{});
    EXPECT_EQ(log.lines(), (Lines{"ERROR: PollingHandler::updateDiskSDRInfo: Error: Couldn't find " +
                                  std::string(kCommand) + " command"}));
    EXPECT_NE(stderrText.find("Error: Couldn't find " + std::string(kCommand) + " command\n"),
              std::string::npos);
    // No sweep, no time stamp.
    EXPECT_EQ(namesOf(recipe()->filesystemItems), (Lines{"fs1", "fs2"}));
    EXPECT_EQ(namesOf(recipe()->freeDiskItems), (Lines{"f1", "f2"}));
    EXPECT_EQ(recipe()->diskSdrUpdateTime.tv_sec, 0);
}

TEST_F(DiskRepository, ReturnCode19StopsReadingAndTheSweepRunsOnWhatWasSeen)
{
    startWithNodes();
    fillRecipe();
    sdrquery.output(sdr("b", "fs1", "p1") + sdr("c", "fs1", "p2", "dataOnly", "", "", "", "", 19) +
                    sdr("d", "fs2", "p3"));
    LogCapture log;

    EXPECT_EQ(handler()->updateDiskSDRInfo(0), 0);

    EXPECT_EQ(log.lines(), cat({diskLog("b", "fs1", "p1", "", "", 0),
                                {kWho + "rc 19", kWho + "Erase disk a", kWho + "Erase disk c",
                                 kWho + "Erase pool p2", kWho + "Erase disk d",
                                 kWho + "Erase pool p3", kWho + "Erase fs fs2"}}));
    ASSERT_EQ(namesOf(recipe()->filesystemItems), (Lines{"fs1"}));
    ASSERT_EQ(namesOf(recipe()->filesystemItems[0]->poolItems), (Lines{"p1"}));
    EXPECT_EQ(namesOf(recipe()->filesystemItems[0]->poolItems[0]->diskItems), (Lines{"b"}));
    EXPECT_TRUE(recipe()->freeDiskItems.empty());
}

TEST_F(DiskRepository, OtherReturnCodesAndForeignLinesAreNotLookedAt)
{
    startWithNodes();
    sdrquery.output("vksdrquery:sdrq_nsd_info:HEADER:x:::a:b:c:\n" +
                    sdr("d1", "fs1", "p1", "dataOnly", "a", "b", "", "", 5) + "garbage\n");
    LogCapture log;

    EXPECT_EQ(handler()->updateDiskSDRInfo(0), 0);

    EXPECT_EQ(log.lines(), cat({{kWho + "diskName=, fsName=, poolName="},
                                diskLog("d1", "fs1", "p1", "", "", 0),
                                {kWho + "diskName=, fsName=, poolName="}}));
    ASSERT_EQ(namesOf(recipe()->filesystemItems), (Lines{"fs1"}));
}

TEST_F(DiskRepository, LineWithEmptyFilesystemColumnIsPassedOver)
{
    startWithNodes();
    sdrquery.output("vksdrquery:sdrq_nsd_info:0:0:::d9::system:dataOnly:a:b:n1:n2:\n" +
                    sdr("", "fs1", "p1", "dataOnly", "a", "b", "n1", "n2"));
    LogCapture log;

    EXPECT_EQ(handler()->updateDiskSDRInfo(0), 0);

    // The empty field stops the scan, so the pool column stays empty too; an
    // empty disk column likewise stops the line.
    EXPECT_EQ(log.lines(), (Lines{kWho + "diskName=d9, fsName=, poolName=",
                                  kWho + "diskName=, fsName=, poolName="}));
    EXPECT_TRUE(recipe()->filesystemItems.empty());
    EXPECT_TRUE(recipe()->freeDiskItems.empty());
}

TEST_F(DiskRepository, FreeDiskNeverCreatesAFilesystemOfThatName)
{
    startWithNodes();
    sdrquery.output(sdr("fd1", "free_disk", "fpool", "metadataOnly", "g7", "g8", "n1,n9", "n2") +
                    sdr("fd2", "free_disk", "fpool2", "bogus", "h7", "h8", "", ""));
    LogCapture log;

    EXPECT_EQ(handler()->updateDiskSDRInfo(0), 0);

    EXPECT_TRUE(recipe()->filesystemItems.empty());
    ASSERT_EQ(namesOf(recipe()->freeDiskItems), (Lines{"fd1", "fd2"}));
    DiskInfo* fd1 = recipe()->freeDiskItems[0];
    EXPECT_EQ(fd1->isFree, 1);
    EXPECT_STREQ(fd1->poolName, "fpool");
    EXPECT_STREQ(fd1->sdrField3007, "g7");
    EXPECT_STREQ(fd1->sdrField3008, "g8");
    EXPECT_STREQ(fd1->holdsMetadata, "y");
    EXPECT_STREQ(fd1->holdsData, "n");
    EXPECT_EQ(fd1->found, 0);
    EXPECT_EQ(namesOf(fd1->serverItems), (Lines{"n1"}));
    EXPECT_EQ(namesOf(fd1->backupServerItems), (Lines{"n2"}));
    DiskInfo* fd2 = recipe()->freeDiskItems[1];
    EXPECT_STREQ(fd2->holdsMetadata, "");
    EXPECT_STREQ(fd2->holdsData, "");
    EXPECT_EQ(log.lines(),
              (Lines{kWho + "diskName=fd1, fsName=free_disk, poolName=fpool",
                     kWho + "serverList=n1,n9", kWho + "backupServerList=n2",
                     kWho + "diskName=fd1, freeDiskIndex -1", kWho + "freeDiskItems 1",
                     kWhoSrv + "diskName=fd1", kWhoSrv + "num server = 1",
                     kWho + "diskName=fd2, fsName=free_disk, poolName=fpool2",
                     kWho + "serverList=", kWho + "backupServerList=",
                     kWho + "diskName=fd2, freeDiskIndex -1", kWho + "freeDiskItems 2",
                     kWhoSrv + "diskName=fd2", kWhoSrv + "num server = 0"}));
}

TEST_F(DiskRepository, KnownFreeDiskKeepsItsFieldsButGetsNewServers)
{
    startWithNodes();
    sdrquery.output(sdr("fd1", "free_disk", "fpool", "dataOnly", "g7", "g8", "n1", ""));
    ASSERT_EQ(handler()->updateDiskSDRInfo(0), 0);
    DiskInfo* fd1 = recipe()->freeDiskItems[0];
    fd1->totalSpace = 4096;
    sdrquery.output(sdr("fd1", "free_disk", "other", "metadataOnly", "k7", "k8", "n2,n3", "n1"));
    LogCapture log;

    EXPECT_EQ(handler()->updateDiskSDRInfo(0), 0);

    ASSERT_EQ(recipe()->freeDiskItems.size(), 1u);
    EXPECT_EQ(recipe()->freeDiskItems[0], fd1);
    EXPECT_STREQ(fd1->poolName, "fpool");
    EXPECT_STREQ(fd1->sdrField3007, "g7");
    EXPECT_STREQ(fd1->holdsMetadata, "n");
    EXPECT_STREQ(fd1->holdsData, "y");
    EXPECT_EQ(fd1->totalSpace, 4096);
    EXPECT_EQ(namesOf(fd1->serverItems), (Lines{"n2", "n3"}));
    EXPECT_EQ(namesOf(fd1->backupServerItems), (Lines{"n1"}));
    EXPECT_EQ(log.lines(), (Lines{kWho + "diskName=fd1, fsName=free_disk, poolName=other",
                                  kWho + "serverList=n2,n3", kWho + "backupServerList=n1",
                                  kWhoSrv + "diskName=fd1", kWhoSrv + "num server = 2"}));
}

TEST_F(DiskRepository, UnknownUsageLeavesNewDiskMarksEmptyAndKnownDiskMarksAlone)
{
    startWithNodes();
    sdrquery.output(sdr("d1", "fs1", "p1", "dataOnly") + sdr("d2", "fs1", "p1", "descOnly"));
    ASSERT_EQ(handler()->updateDiskSDRInfo(0), 0);
    DiskInfo* d1 = recipe()->filesystemItems[0]->poolItems[0]->diskItems[0];
    DiskInfo* d2 = recipe()->filesystemItems[0]->poolItems[0]->diskItems[1];
    EXPECT_STREQ(d2->holdsMetadata, "");
    EXPECT_STREQ(d2->holdsData, "");

    sdrquery.output(sdr("d1", "fs1", "p1", "descOnly") + sdr("d2", "fs1", "p1", "descOnly"));
    EXPECT_EQ(handler()->updateDiskSDRInfo(0), 0);
    EXPECT_STREQ(d1->holdsMetadata, "n");
    EXPECT_STREQ(d1->holdsData, "y");
}

TEST_F(DiskRepository, ShortLineKeepsUsageAnd3008OfTheLineBefore)
{
    startWithNodes();
    sdrquery.output(sdr("d1", "fs1", "p1", "dataOnly", "a7", "a8", "n1", "n2") +
                    "vksdrquery:sdrq_nsd_info:0:0:::d2:fs1:p1::z7:z8:\n");

    EXPECT_EQ(handler()->updateDiskSDRInfo(0), 0);

    DiskInfo* d2 = recipe()->filesystemItems[0]->poolItems[0]->diskItems[1];
    EXPECT_STREQ(d2->name, "d2");
    EXPECT_STREQ(d2->holdsMetadata, "n");
    EXPECT_STREQ(d2->holdsData, "y");
    EXPECT_STREQ(d2->sdrField3008, "a8");
    // 3007 and the server lists are emptied before every line.
    EXPECT_STREQ(d2->sdrField3007, "");
    EXPECT_TRUE(d2->serverItems.empty());
    EXPECT_TRUE(d2->backupServerItems.empty());
}

TEST_F(DiskRepository, DiskThatMovesIsErasedInTheOldPlaceAndCreatedInTheNew)
{
    startWithNodes();
    sdrquery.output(sdr("d1", "fs1", "p1") + sdr("d2", "fs1", "p1") + sdr("d3", "free_disk", "x"));
    ASSERT_EQ(handler()->updateDiskSDRInfo(0), 0);
    sdrquery.output(sdr("d2", "fs1", "p1") + sdr("d1", "fs1", "p2") + sdr("d3", "fs2", "p1") +
                    sdr("d4", "free_disk", "x"));
    LogCapture log;

    EXPECT_EQ(handler()->updateDiskSDRInfo(0), 0);

    ASSERT_EQ(namesOf(recipe()->filesystemItems), (Lines{"fs1", "fs2"}));
    FilesystemInfo* fs1 = recipe()->filesystemItems[0];
    ASSERT_EQ(namesOf(fs1->poolItems), (Lines{"p1", "p2"}));
    EXPECT_EQ(namesOf(fs1->poolItems[0]->diskItems), (Lines{"d2"}));
    EXPECT_EQ(namesOf(fs1->poolItems[1]->diskItems), (Lines{"d1"}));
    EXPECT_EQ(namesOf(recipe()->filesystemItems[1]->poolItems[0]->diskItems), (Lines{"d3"}));
    EXPECT_EQ(namesOf(recipe()->freeDiskItems), (Lines{"d4"}));
    Lines l = log.lines();
    ASSERT_FALSE(l.empty());
    EXPECT_EQ(l.back(), kWho + "Erase disk d1");
}

TEST_F(DiskRepository, ServerListsDropUnknownNamesAndDoubleCommas)
{
    startWithNodes();
    // "%2C" decodes to a comma and so separates names as well.
    sdrquery.output(sdr("d1", "fs1", "p1", "dataOnly", "a", "b", "n1,,n9,n2,", "n3%2Cn1,,"));

    EXPECT_EQ(handler()->updateDiskSDRInfo(0), 0);

    DiskInfo* d1 = recipe()->filesystemItems[0]->poolItems[0]->diskItems[0];
    EXPECT_EQ(namesOf(d1->serverItems), (Lines{"n1", "n2"}));
    EXPECT_EQ(namesOf(d1->backupServerItems), (Lines{"n3", "n1"}));
}

TEST_F(DiskRepository, ScanBeforeAnyNodeGivesEmptyServerLists)
{
    startHandler();
    sdrquery.output(sdr("d1", "fs1", "p1", "dataOnly", "a", "b", "n1,n2", "n3"));
    LogCapture log;

    EXPECT_EQ(handler()->updateDiskSDRInfo(0), 0);

    DiskInfo* d1 = recipe()->filesystemItems[0]->poolItems[0]->diskItems[0];
    EXPECT_TRUE(d1->serverItems.empty());
    EXPECT_TRUE(d1->backupServerItems.empty());
    EXPECT_EQ(log.lines(), diskLog("d1", "fs1", "p1", "n1,n2", "n3", 0));
}

TEST_F(DiskRepository, UpdateDiskServerInfoReplacesBothVectors)
{
    startWithNodes();
    MErrno err = 0;
    DiskInfo disk(&err);
    setText(disk.name, "dd");
    addServer(disk.serverItems, "old1");
    addServer(disk.serverItems, "old2");
    addServer(disk.backupServerItems, "old3");
    char servers[] = "n2,,n1,x";
    char backups[] = "";
    LogCapture log;

    EXPECT_EQ(handler()->updateDiskServerInfo(&disk, servers, backups), 0);

    EXPECT_EQ(namesOf(disk.serverItems), (Lines{"n2", "n1"}));
    EXPECT_TRUE(disk.backupServerItems.empty());
    EXPECT_EQ(log.lines(), (Lines{kWhoSrv + "diskName=dd", kWhoSrv + "num server = 2"}));

    char none[] = "";
    char one[] = "n3";
    EXPECT_EQ(handler()->updateDiskServerInfo(&disk, none, one), 0);
    EXPECT_TRUE(disk.serverItems.empty());
    EXPECT_EQ(namesOf(disk.backupServerItems), (Lines{"n3"}));
}

TEST_F(DiskRepository, WakeupReleasesTheTimerOnlyAfterANodeUpdate)
{
    startWithNodes();
    sdrquery.output(sdr("d1", "fs1", "p1"));
    ASSERT_EQ(timerLatch(), 0);

    // No node update yet: the wake-up finds nodeUpdateTime 0.
    EXPECT_EQ(handler()->updateDiskSDRInfo(0), 0);
    EXPECT_NE(recipe()->diskSdrUpdateTime.tv_sec, 0);
    EXPECT_EQ(timerLatch(), 0);

    // After it, the next scan releases the timer; the lock is free again.
    recipe()->nodeUpdateTime.tv_sec = 1000;
    EXPECT_EQ(handler()->updateDiskSDRInfo(0), 0);
    EXPECT_EQ(timerLatch(), 1);
    EXPECT_EQ(handler()->getPollingLock(), 0);
    EXPECT_EQ(handler()->releasePollingLock(), 0);
}
