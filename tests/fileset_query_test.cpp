// Fileset queries: listing, single lookup and the counted listing.
#include "support/fake_tool.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/bare_handler.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <quelvane/api_poll.h>

using namespace qvtest;

namespace {

const char* const kHeader =
    "vklsfileset::HEADER:version:reserved:reserved:filesystemName:filesetName:id:rootInode:"
    "status:path:parentId:created:inodes:dataInKB:comment:\n";

std::string line(const std::string& fs, const std::string& name, const std::string& path,
                 const std::string& comment, const std::string& col3 = "1",
                 const std::string& col14 = "1000", const std::string& col15 = "2048")
{
    return "vklsfileset::0:" + col3 + ":::" + fs + ":" + name + ":7:131075:Linked:" + path +
           ":0:Thu Nov 21 13%3A05%3A09 2024:" + col14 + ":" + col15 + ":" + comment + ":\n";
}

void freeAll(std::vector<FileSet*>& v)
{
    for (FileSet* f : v)
        delete f;
    v.clear();
}

} // namespace

TEST(FilesetQuery, ListsTwoFilesetsWithEmptyCommentAndEncodedPath)
{
    FakeTool tool("vklsfileset");
    tool.output(std::string(kHeader) + line("fs1", "root", "%2Fgpfs%2Ffs1", "root fileset") +
                line("fs1", "set%3A1", "%2Fgpfs%2Ffs1%2Fa%3Ab", ""));
    LogCapture log;
    std::vector<FileSet*> out;
    char fs[] = "fs1";
    EXPECT_EQ(bareHandler()->getFileSets(fs, &out), 0);
    EXPECT_EQ(tool.calls(), (std::vector<std::string>{"fs1 -LY"}));
    ASSERT_EQ(out.size(), 2u);

    FileSet* a = out[0];
    EXPECT_EQ(a->column3, 1);
    EXPECT_STREQ(a->name, "root");
    EXPECT_STREQ(a->fsName, "fs1");
    EXPECT_STREQ(a->column8, "7");
    EXPECT_STREQ(a->column9, "131075");
    EXPECT_STREQ(a->column10, "Linked");
    EXPECT_STREQ(a->path, "/gpfs/fs1");
    EXPECT_STREQ(a->column12, "0");
    EXPECT_STREQ(a->created, "20241121130509.000000+360");
    EXPECT_EQ(a->column14, 1000);
    EXPECT_EQ(a->column15, 2048);
    EXPECT_STREQ(a->comment, "root fileset");

    FileSet* b = out[1];
    // Only the path is decoded; the name stays as the tool printed it.
    EXPECT_STREQ(b->name, "set%3A1");
    EXPECT_STREQ(b->path, "/gpfs/fs1/a:b");
    EXPECT_STREQ(b->comment, "\"\"");

    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{
                  "INFO: PollingHandler::getFileSet: cmd = /usr/kpx/vesk/bin/vklsfileset fs1 -LY",
                  "INFO: PollingHandler::getFileSet: path /gpfs/fs1",
                  "INFO: PollingHandler::getFileSet: created 20241121130509.000000+360",
                  "INFO: PollingHandler::getFileSet: path /gpfs/fs1/a:b",
                  "INFO: PollingHandler::getFileSet: created 20241121130509.000000+360",
                  "INFO: PollingHandler::getFileSet: Successfully executed command"}));
    freeAll(out);
}

TEST(FilesetQuery, EmptyPathAndNumbersFromEmptyColumns)
{
    FakeTool tool("vklsfileset");
    tool.output(std::string(kHeader) + line("fs1", "x", "", "c", "", "", "abc"));
    std::vector<FileSet*> out;
    char fs[] = "fs1";
    EXPECT_EQ(bareHandler()->getFileSets(fs, &out), 0);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_STREQ(out[0]->path, "\"\"");
    EXPECT_EQ(out[0]->column3, 0);
    EXPECT_EQ(out[0]->column14, 0);
    EXPECT_EQ(out[0]->column15, 0);
    freeAll(out);
}

TEST(FilesetQuery, SkipsFirstLineHeaderAndForeignLines)
{
    FakeTool tool("vklsfileset");
    // The first line is thrown away whatever it is; a later header and
    // lines of other tools are skipped.
    tool.output(line("fs1", "first", "p", "c") + kHeader + "other::0:1:::fs1:zz:\n" +
                line("fs1", "kept", "p", "c"));
    std::vector<FileSet*> out;
    char fs[] = "fs1";
    EXPECT_EQ(bareHandler()->getFileSets(fs, &out), 0);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_STREQ(out[0]->name, "kept");
    freeAll(out);
}

TEST(FilesetQuery, SecondCallReplacesByNameInFirstSeenOrder)
{
    FakeTool tool("vklsfileset");
    tool.output(std::string(kHeader) + line("fs1", "a", "p1", "c1") + line("fs1", "b", "p2", "c2"));
    std::vector<FileSet*> out;
    char fs[] = "fs1";
    ASSERT_EQ(bareHandler()->getFileSets(fs, &out), 0);
    ASSERT_EQ(out.size(), 2u);
    FileSet* oldA = out[0];
    FileSet* oldB = out[1];

    tool.output(std::string(kHeader) + line("fs1", "c", "p3", "c3") + line("fs1", "b", "p2new", "x") +
                line("fs1", "a", "p1new", "y") + line("fs1", "a", "p1newer", "z"));
    ASSERT_EQ(bareHandler()->getFileSets(fs, &out), 0);
    ASSERT_EQ(out.size(), 3u);
    EXPECT_STREQ(out[0]->name, "a");
    EXPECT_STREQ(out[0]->path, "p1newer");
    EXPECT_STREQ(out[1]->name, "b");
    EXPECT_STREQ(out[1]->path, "p2new");
    EXPECT_STREQ(out[2]->name, "c");
    // The replaced records were freed (the sanitizer runs see a leak or a
    // double free otherwise); the vector holds only the new ones.
    (void)oldA;
    (void)oldB;
    freeAll(out);
}

TEST(FilesetQuery, NoFilesetsAndUnknownFilesystem)
{
    FakeTool tool("vklsfileset");
    tool.output(kHeader, 0);
    tool.on("nofs -LY", "", 2, "no such filesystem\n");
    FakeTool count("kxlsfs");
    count.output("vklsfs::0:1:::fs1:filesetCount:0:\n");
    std::vector<FileSet*> out;
    char fs[] = "fs1";
    EXPECT_EQ(bareHandler()->getFileSets(fs, &out), 0);
    EXPECT_TRUE(out.empty());
    char nofs[] = "nofs";
    StderrCapture cap;
    EXPECT_EQ(bareHandler()->getFileSets(nofs, &out), 0);
    cap.finish();
    EXPECT_TRUE(out.empty());

    FileSet arr[2];
    int len = 2;
    EXPECT_EQ(bareHandler()->getFileSets1(fs, arr, &len), 1);
    EXPECT_EQ(len, 0);
    EXPECT_EQ(count.calls(), (std::vector<std::string>{"fs1 --fileset-count -Y"}));
}

TEST(FilesetQuery, CountedListingTooSmallLeavesArrayUntouched)
{
    FakeTool tool("vklsfileset");
    tool.output(std::string(kHeader) + line("fs1", "a", "p", "c"));
    FakeTool count("kxlsfs");
    count.output("vklsfs::0:1:::fs1:filesetCount:5:\n");
    FileSet arr[2];
    memset(arr, 0x5a, sizeof(arr));
    int len = 2;
    char fs[] = "fs1";
    EXPECT_EQ(bareHandler()->getFileSets1(fs, arr, &len), 1);
    EXPECT_EQ(len, 5);
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(arr);
    for (size_t i = 0; i < sizeof(arr); i++)
        ASSERT_EQ(bytes[i], 0x5a);
    EXPECT_TRUE(tool.calls().empty());
}

TEST(FilesetQuery, CountedListingSizingProtocol)
{
    FakeTool tool("vklsfileset");
    tool.output(std::string(kHeader) + line("fs1", "a", "%2Fa", "c1") + line("fs1", "b", "%2Fb", "") +
                line("fs1", "c", "%2Fc", "c3"));
    FakeTool count("kxlsfs");
    count.output("vklsfs::0:1:::fs1:filesetCount:3:\n");
    char fs[] = "fs1";
    int len = 0;
    EXPECT_EQ(bareHandler()->getFileSets1(fs, nullptr, &len), 1);
    EXPECT_EQ(len, 3);
    EXPECT_TRUE(tool.calls().empty());

    std::vector<FileSet> arr(static_cast<size_t>(len));
    LogCapture log;
    EXPECT_EQ(bareHandler()->getFileSets1(fs, arr.data(), &len), 0);
    EXPECT_EQ(len, 3);
    EXPECT_STREQ(arr[0].name, "a");
    EXPECT_STREQ(arr[0].path, "/a");
    EXPECT_STREQ(arr[1].name, "b");
    EXPECT_STREQ(arr[1].comment, "\"\"");
    EXPECT_STREQ(arr[2].name, "c");
    EXPECT_STREQ(arr[2].created, "20241121130509.000000+360");
    EXPECT_EQ(tool.calls(), (std::vector<std::string>{"fs1 -LY"}));
    std::vector<std::string> l = log.lines();
    ASSERT_EQ(l.size(), 9u);
    EXPECT_EQ(l[0], "INFO: PollingHandler::getFileSets: cmd = /usr/kpx/vesk/bin/kxlsfs fs1 --fileset-count -Y");
    EXPECT_EQ(l[1], "INFO: PollingHandler::getFileSets: cmd = /usr/kpx/vesk/bin/vklsfileset fs1 -LY");
    EXPECT_EQ(l[2], "INFO: PollingHandler::getFileSet: path /a");
    EXPECT_EQ(l[3], "INFO: PollingHandler::getFileSet: created 20241121130509.000000+360");
    EXPECT_EQ(l[8], "INFO: PollingHandler::getFileSet: Successfully executed command");
}

TEST(FilesetQuery, CountedListingStopsAtTheCount)
{
    FakeTool tool("vklsfileset");
    tool.output(std::string(kHeader) + line("fs1", "a", "p", "c") + line("fs1", "b", "p", "c") +
                line("fs1", "c", "p", "c"));
    FakeTool count("kxlsfs");
    count.output("vklsfs::0:1:::fs1:filesetCount:2:\n");
    FileSet arr[3];
    memset(arr, 0, sizeof(arr));
    int len = 3;
    char fs[] = "fs1";
    EXPECT_EQ(bareHandler()->getFileSets1(fs, arr, &len), 0);
    EXPECT_EQ(len, 2);
    EXPECT_STREQ(arr[0].name, "a");
    EXPECT_STREQ(arr[1].name, "b");
    EXPECT_STREQ(arr[2].name, "");
}

TEST(FilesetQuery, CountedListingBadCountLines)
{
    FakeTool count("kxlsfs");
    count.output("", 0);
    LogCapture log;
    StderrCapture cap;
    char fs[] = "fs1";
    int len = 4;
    EXPECT_EQ(bareHandler()->getFileSets1(fs, nullptr, &len), 1);
    EXPECT_EQ(len, 4);
    count.output("garbage line\n", 0);
    EXPECT_EQ(bareHandler()->getFileSets1(fs, nullptr, &len), 1);
    EXPECT_EQ(len, 4);
    std::string err = cap.finish();
    std::vector<std::string> l = log.lines();
    ASSERT_EQ(l.size(), 5u);
    EXPECT_EQ(l[1], "ERROR: PollingHandler::getFilesets: error occurred in /usr/kpx/vesk/bin/kxlsfs "
                    "fs1 --fileset-count -Y");
    EXPECT_EQ(l[3], "ERROR: PollingHandler::getFilesets: buf garbage line");
    EXPECT_EQ(l[4], " rc 1");
    EXPECT_NE(log.text().find("buf garbage line\n rc 1\n"), std::string::npos);
    EXPECT_NE(err.find("error occurred in"), std::string::npos);
}

TEST(FilesetQuery, SingleFilesetThroughTheSearchPath)
{
    std::string path = std::string("/usr/kpx/vesk/bin:") + getenv("PATH");
    setenv("PATH", path.c_str(), 1);
    FakeTool tool("vklsfileset");
    tool.on("fs1 set1 -LidY",
            std::string(kHeader) + line("fs1", "set1", "%2Fold", "c1") + line("fs1", "set1", "%2Fnew", ""));
    tool.on("nofs set1 -LidY", "", 2, "unknown\n");
    FileSet fs;
    memset(&fs, 0, sizeof(fs));
    strcpy(fs.column8, "keep");
    LogCapture log;
    char fsName[] = "fs1";
    char setName[] = "set1";
    EXPECT_EQ(bareHandler()->getFileSet(fsName, setName, &fs), 0);
    EXPECT_STREQ(fs.path, "/new");
    EXPECT_STREQ(fs.comment, "\"\"");
    EXPECT_STREQ(fs.column8, "7");
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "INFO: PollingHandler::getFileSet: cmd = vklsfileset fs1 set1 -LidY",
                               "INFO: PollingHandler::getFileSet: Successfully executed command"}));

    FileSet other;
    memset(&other, 0, sizeof(other));
    strcpy(other.name, "untouched");
    char nofs[] = "nofs";
    StderrCapture cap;
    EXPECT_EQ(bareHandler()->getFileSet(nofs, setName, &other), 2);
    cap.finish();
    EXPECT_STREQ(other.name, "untouched");
    EXPECT_EQ(tool.commandLines().size(), 2u);
}
