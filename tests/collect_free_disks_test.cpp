// Free disks: updateFreeDiskInfo, its request batching and last-index loop
// test, the size conversion, and the unknown name that escapes as an
// exception with the polling lock still held.
#include "support/files.h"
#include "support/handler_fixture.h"
#include "support/log_capture.h"
#include "support/tree_builder.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <vector>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>

using namespace qvtest;

namespace {

using Lines = std::vector<std::string>;

const std::string kWho = "INFO: PollingHandler::updateFreeDiskInfo: ";

// A 255-character disk name that ends in the given tag.
std::string longName(char fill, const std::string& tag)
{
    return std::string(255 - tag.size(), fill) + tag;
}

std::string nsd(const std::string& name, const std::string& status, const std::string& size,
                const std::string& iocnt = "1")
{
    return "_nsddisk_ _name_ " + name + " _dstatus_ " + status + " _iocnt_ " + iocnt + " _size_ " +
           size;
}

class FreeDisks : public HandlerFixture
{
protected:
    ClusterInfo* recipe() const { return handler()->recipe; }

    void startWithNode()
    {
        startHandler();
        addNode(recipe(), "n1", "10.0.0.1");
    }
};

} // namespace

TEST_F(FreeDisks, NoFreeDisksSendsOneRequestWithTrailingBlank)
{
    startWithNode();
    MErrno err = 0;
    ClusterInfo mine(&err);
    addFreeDisk(&mine, "stale");
    LogCapture log;

    EXPECT_EQ(handler()->updateFreeDiskInfo(&mine), 0);

    EXPECT_EQ(requestsSinceStart(), (Lines{"get nsddisk "}));
    EXPECT_EQ(log.lines(), (Lines{kWho + "recipe numFreeDisks 0 start 0",
                                  kWho + "recipe free disks (i 0 nDisks 0) ",
                                  kWho + "cmd: get nsddisk ",
                                  kWho + "allRead 1",
                                  kWho + "copyFreeDisks clusterP freeDiskItems 0"}));
    EXPECT_TRUE(mine.freeDiskItems.empty());
}

TEST_F(FreeDisks, OneFreeDiskOneRequestAndTheLoopEnds)
{
    startWithNode();
    DiskInfo* fd1 = addFreeDisk(recipe(), "fd1");
    addServer(fd1->serverItems, "n1");
    addServer(fd1->backupServerItems, "n2");
    daemon.respond("get nsddisk fd1 ", {nsd("fd1", "ready", "1000", "77")});
    MErrno err = 0;
    ClusterInfo mine(&err);
    LogCapture log;

    EXPECT_EQ(handler()->updateFreeDiskInfo(&mine), 0);

    EXPECT_EQ(requestsSinceStart(), (Lines{"get nsddisk fd1 "}));
    EXPECT_EQ(fd1->totalSpace, 1024000);
    EXPECT_STREQ(fd1->status, "ready");
    EXPECT_EQ(log.lines(), (Lines{kWho + "recipe numFreeDisks 1 start 0",
                                  kWho + "recipe free disks (i 1 nDisks 1) fd1 ",
                                  kWho + "cmd: get nsddisk fd1 ",
                                  kWho + "getFreeDiskInfoIndex: fd1 ready 0 1000 1024000 KB",
                                  kWho + "allRead 1",
                                  kWho + "copyFreeDisks clusterP freeDiskItems 1"}));

    // The caller's tree: the disk with its fields and both server vectors.
    ASSERT_EQ(namesOf(mine.freeDiskItems), (Lines{"fd1"}));
    EXPECT_EQ(mine.freeDiskItems[0]->totalSpace, 1024000);
    EXPECT_STREQ(mine.freeDiskItems[0]->status, "ready");
    EXPECT_EQ(mine.freeDiskItems[0]->isFree, 1);
    EXPECT_EQ(namesOf(mine.freeDiskItems[0]->serverItems), (Lines{"n1"}));
    EXPECT_EQ(namesOf(mine.freeDiskItems[0]->backupServerItems), (Lines{"n2"}));

    ClusterInfo copy(&err);
    ASSERT_EQ(handler()->copyRecipe(&copy), 0);
    ASSERT_EQ(namesOf(copy.freeDiskItems), (Lines{"fd1"}));
    EXPECT_EQ(copy.freeDiskItems[0]->totalSpace, 1024000);
    EXPECT_STREQ(copy.freeDiskItems[0]->status, "ready");
}

TEST_F(FreeDisks, SizeGoesThroughASigned32BitNumber)
{
    startWithNode();
    DiskInfo* fd1 = addFreeDisk(recipe(), "fd1");
    daemon.respond("get nsddisk fd1 ", {nsd("fd1", "ready", "2147483648")});
    MErrno err = 0;
    ClusterInfo mine(&err);
    LogCapture log;

    EXPECT_EQ(handler()->updateFreeDiskInfo(&mine), 0);

    EXPECT_EQ(fd1->totalSpace, -2147483648LL * 1024);
    EXPECT_TRUE(log.contains(kWho + "getFreeDiskInfoIndex: fd1 ready 0 -2147483648 -2199023255552 KB"));
    EXPECT_EQ(mine.freeDiskItems[0]->totalSpace, -2199023255552LL);
}

TEST_F(FreeDisks, LineScanStopsAfterFourKeywordsAndOthersAreNotCounted)
{
    startWithNode();
    DiskInfo* fd1 = addFreeDisk(recipe(), "fd1");
    DiskInfo* fd2 = addFreeDisk(recipe(), "fd2");
    setText(fd2->status, "old");
    fd2->totalSpace = 5;
    // fd2's line: _x_ is not counted, and the fifth keyword is not reached.
    daemon.respond("get nsddisk fd1 fd2 ",
                   {"_nsddisk_ _name_ fd1 _x_ 1 _size_ 2", "_other_ _name_ fd2",
                    "_nsddisk_ _name_ fd2 _iocnt_ 1 _iocnt_ 2 _size_ 3 _dstatus_ late"});
    MErrno err = 0;
    ClusterInfo mine(&err);

    EXPECT_EQ(handler()->updateFreeDiskInfo(&mine), 0);

    EXPECT_EQ(fd1->totalSpace, 2048);
    EXPECT_STREQ(fd1->status, "");
    EXPECT_EQ(fd2->totalSpace, 3072);
    EXPECT_STREQ(fd2->status, "");
}

TEST_F(FreeDisks, NamesAreBatchedByTheirLengthWithoutTheBlanks)
{
    startWithNode();
    // Six names of 255 characters: four fit the 1023-character budget
    // (1020), and the list with its blanks is 1024 characters long.
    std::vector<std::string> names;
    for (int i = 0; i < 6; i++) {
        names.push_back(longName('a' + i, std::to_string(i)));
        addFreeDisk(recipe(), names.back());
    }
    std::string first = names[0] + " " + names[1] + " " + names[2] + " " + names[3] + " ";
    std::string second = names[4] + " " + names[5] + " ";
    ASSERT_EQ(first.size(), 1024u);
    daemon.respond("get nsddisk " + first, {nsd(names[0], "s0", "1"), nsd(names[3], "s3", "4")});
    daemon.respond("get nsddisk " + second, {nsd(names[5], "s5", "6")});
    MErrno err = 0;
    ClusterInfo mine(&err);
    LogCapture log;

    EXPECT_EQ(handler()->updateFreeDiskInfo(&mine), 0);

    EXPECT_EQ(requestsSinceStart(), (Lines{"get nsddisk " + first, "get nsddisk " + second}));
    EXPECT_EQ(recipe()->freeDiskItems[3]->totalSpace, 4096);
    EXPECT_STREQ(recipe()->freeDiskItems[5]->status, "s5");
    EXPECT_EQ(log.lines(),
              (Lines{kWho + "recipe numFreeDisks 6 start 0",
                     kWho + "recipe free disks (i 4 nDisks 6) " + first,
                     kWho + "cmd: get nsddisk " + first,
                     kWho + "getFreeDiskInfoIndex: " + names[0] + " s0 0 1 1024 KB",
                     kWho + "getFreeDiskInfoIndex: " + names[3] + " s3 3 4 4096 KB",
                     kWho + "allRead 0",
                     kWho + "recipe numFreeDisks 6 start 4",
                     kWho + "recipe free disks (i 6 nDisks 6) " + second,
                     kWho + "cmd: get nsddisk " + second,
                     kWho + "getFreeDiskInfoIndex: " + names[5] + " s5 5 6 6144 KB",
                     kWho + "allRead 1",
                     kWho + "copyFreeDisks clusterP freeDiskItems 6"}));
    ASSERT_EQ(mine.freeDiskItems.size(), 6u);
    EXPECT_STREQ(mine.freeDiskItems[5]->status, "s5");
}

TEST_F(FreeDisks, ListThatBreaksOffWithOneDiskLeftEndsTheLoop)
{
    startWithNode();
    // Five long names: the first request takes four, and the last index (4)
    // is reached, so the fifth disk is never asked about.
    std::vector<std::string> names;
    for (int i = 0; i < 5; i++) {
        names.push_back(longName('k' + i, std::to_string(i)));
        DiskInfo* d = addFreeDisk(recipe(), names.back());
        setText(d->status, "old");
        d->totalSpace = 11;
    }
    std::string first = names[0] + " " + names[1] + " " + names[2] + " " + names[3] + " ";
    daemon.respond("get nsddisk " + first, {nsd(names[0], "new", "1")});
    daemon.respondAlways("get nsddisk " + names[4] + " ", Response{nsd(names[4], "new", "9")});
    MErrno err = 0;
    ClusterInfo mine(&err);
    LogCapture log;

    EXPECT_EQ(handler()->updateFreeDiskInfo(&mine), 0);

    EXPECT_EQ(requestsSinceStart(), (Lines{"get nsddisk " + first}));
    EXPECT_STREQ(recipe()->freeDiskItems[0]->status, "new");
    EXPECT_STREQ(recipe()->freeDiskItems[4]->status, "old");
    EXPECT_EQ(recipe()->freeDiskItems[4]->totalSpace, 11);
    EXPECT_STREQ(mine.freeDiskItems[4]->status, "old");
    Lines l = log.lines();
    ASSERT_EQ(l.size(), 6u);
    EXPECT_EQ(l[1], kWho + "recipe free disks (i 4 nDisks 5) " + first);
    EXPECT_EQ(l[4], kWho + "allRead 1");
}

TEST_F(FreeDisks, AllReadZeroIsLoggedOnceForEachFurtherPass)
{
    startWithNode();
    // Ten long names: passes of four, four and two.
    for (int i = 0; i < 10; i++)
        addFreeDisk(recipe(), longName('a' + i, std::to_string(i)));
    MErrno err = 0;
    ClusterInfo mine(&err);
    LogCapture log;

    EXPECT_EQ(handler()->updateFreeDiskInfo(&mine), 0);

    EXPECT_EQ(requestsSinceStart().size(), 3u);
    int zeros = 0, ones = 0;
    Lines starts;
    for (const std::string& l : log.lines()) {
        if (l == kWho + "allRead 0")
            zeros++;
        if (l == kWho + "allRead 1")
            ones++;
        if (l.rfind(kWho + "recipe numFreeDisks", 0) == 0)
            starts.push_back(l.substr(kWho.size()));
    }
    EXPECT_EQ(zeros, 2);
    EXPECT_EQ(ones, 1);
    EXPECT_EQ(starts, (Lines{"recipe numFreeDisks 10 start 0", "recipe numFreeDisks 10 start 4",
                             "recipe numFreeDisks 10 start 8"}));
    EXPECT_EQ(log.lines().back(), kWho + "copyFreeDisks clusterP freeDiskItems 10");
}

TEST_F(FreeDisks, UnknownNameThrowsOutOfRangeAndKeepsTheLock)
{
    startWithNode();
    DiskInfo* fd1 = addFreeDisk(recipe(), "fd1");
    addFreeDisk(recipe(), "fd2");
    daemon.respond("get nsddisk fd1 fd2 ", {nsd("fd1", "ready", "8"), nsd("ghost", "ready", "9")});
    MErrno err = 0;
    ClusterInfo mine(&err);
    LogCapture log;

    std::string what;
    try {
        handler()->updateFreeDiskInfo(&mine);
        ADD_FAILURE() << "no exception";
    } catch (const std::out_of_range& e) {
        what = e.what();
    }

    EXPECT_EQ(what.rfind("vector::_M_range_check", 0), 0u) << what;
    // What came before the unknown name is in the recipe; the caller's tree
    // was never reached; the polling lock is still held.
    EXPECT_EQ(fd1->totalSpace, 8192);
    EXPECT_TRUE(mine.freeDiskItems.empty());
    EXPECT_EQ(pthread_mutex_trylock(&handler()->pollingMutex), EBUSY);
    EXPECT_EQ(log.lines().back(), kWho + "getFreeDiskInfoIndex: fd1 ready 0 8 8192 KB");
    handler()->releasePollingLock();
}

TEST_F(FreeDisks, UnknownNameEndsTheProcessWhenNotCaught)
{
    startWithNode();
    addFreeDisk(recipe(), "fd1");
    daemon.respond("get nsddisk fd1 ", {nsd("ghost", "ready", "9")});
    MErrno err = 0;
    ClusterInfo mine(&err);
    // An application that does not catch it: the exception leaves a function
    // that lets none through, and the process ends.
    EXPECT_DEATH([&]() noexcept { handler()->updateFreeDiskInfo(&mine); }(),
                 "terminate called after throwing an instance of 'std::out_of_range'");
}

TEST_F(FreeDisks, CutShortResponseKeepsOldFieldsAndStillCopies)
{
    startWithNode();
    DiskInfo* fd1 = addFreeDisk(recipe(), "fd1");
    setText(fd1->status, "old");
    fd1->totalSpace = 77;
    Response cut;
    cut.appendEnd = false;
    cut.dropAfter = true;
    daemon.respond("get nsddisk fd1 ", cut);
    MErrno err = 0;
    ClusterInfo mine(&err);

    EXPECT_EQ(handler()->updateFreeDiskInfo(&mine), 0);

    EXPECT_STREQ(fd1->status, "old");
    EXPECT_EQ(fd1->totalSpace, 77);
    ASSERT_EQ(namesOf(mine.freeDiskItems), (Lines{"fd1"}));
    EXPECT_STREQ(mine.freeDiskItems[0]->status, "old");
    EXPECT_EQ(mine.freeDiskItems[0]->totalSpace, 77);

    // The next poll goes out on a new connection.
    daemon.respond("get nsddisk fd1 ", {nsd("fd1", "back", "1")});
    EXPECT_EQ(handler()->updateFreeDiskInfo(&mine), 0);
    EXPECT_STREQ(fd1->status, "back");
    EXPECT_EQ(requestsSinceStart(), (Lines{"get nsddisk fd1 ", "get nsddisk fd1 "}));
}

TEST_F(FreeDisks, FreeDisksOfTheRepositoryScanAreAskedAbout)
{
    startWithNode();
    FakeTool sdrquery("vksdrquery");
    sdrquery.output(
        "vksdrquery:sdrq_nsd_info:0:1:::fa:free_disk:pa:dataOnly:a7:a8:n1:n1:\n"
        "vksdrquery:sdrq_nsd_info:0:1:::fb:free_disk:pb:metadataOnly:b7:b8:n1,n2:x:\n");
    ASSERT_EQ(handler()->updateDiskSDRInfo(0), 0);
    daemon.respond("get nsddisk fa fb ", {nsd("fb", "down", "3"), nsd("fa", "up", "2")});
    MErrno err = 0;
    ClusterInfo mine(&err);

    EXPECT_EQ(handler()->updateFreeDiskInfo(&mine), 0);

    ASSERT_EQ(namesOf(mine.freeDiskItems), (Lines{"fa", "fb"}));
    DiskInfo* fa = mine.freeDiskItems[0];
    DiskInfo* fb = mine.freeDiskItems[1];
    EXPECT_STREQ(fa->status, "up");
    EXPECT_EQ(fa->totalSpace, 2048);
    EXPECT_STREQ(fa->poolName, "pa");
    EXPECT_STREQ(fa->sdrField3008, "a8");
    EXPECT_STREQ(fa->holdsData, "y");
    EXPECT_EQ(fa->isFree, 1);
    EXPECT_STREQ(fb->status, "down");
    EXPECT_EQ(fb->totalSpace, 3072);
    EXPECT_EQ(namesOf(fb->serverItems), (Lines{"n1"}));
    EXPECT_EQ(namesOf(fa->backupServerItems), (Lines{"n1"}));
}
