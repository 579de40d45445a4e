// Tokenising aids for tool output, the tool wrapper, and the shared tool runner.
#include "support/fake_tool.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/bare_handler.h"

#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <string>
#include <vector>

#include <quelvane/api_poll.h>
#include <quelvane/command_wrapper_utils.h>

#include "../poll/keyword_scan_internal.h"
#include "../poll/sweep_internal.h"
#include "../poll/tools/tool_runner_internal.h"

using namespace qvtest;

namespace {

std::string decoded(const char* in)
{
    char buf[256];
    strcpy(buf, in);
    EXPECT_EQ(percentDecode(buf), 0);
    return buf;
}

} // namespace

TEST(PercentDecode, ColonFromThreeA)
{
    EXPECT_EQ(decoded("a%3Ab"), "a:b");
}

TEST(PercentDecode, UpperAndLowerCaseDigits)
{
    EXPECT_EQ(decoded("%41"), "A");
    EXPECT_EQ(decoded("%4a"), "J");
    EXPECT_EQ(decoded("%4A%3a"), "J:");
}

TEST(PercentDecode, TrailingPercentKept)
{
    EXPECT_EQ(decoded("abc%"), "abc%");
    EXPECT_EQ(decoded("abc%4"), "abc%4");
}

TEST(PercentDecode, NonHexDigitsKept)
{
    EXPECT_EQ(decoded("%zz1"), "%zz1");
    EXPECT_EQ(decoded("%4g"), "%4g");
    EXPECT_EQ(decoded("%g4"), "%g4");
    // The bytes behind a rejected "%" are read as ordinary bytes again.
    EXPECT_EQ(decoded("%%41"), "%A");
}

TEST(PercentDecode, EmptyAndNull)
{
    EXPECT_EQ(decoded(""), "");
    EXPECT_EQ(percentDecode(nullptr), -1);
}

TEST(PercentDecode, PathWithSeveralEscapes)
{
    EXPECT_EQ(decoded("/gpfs/fs1%3Asub%2Fdir%20x"), "/gpfs/fs1:sub/dir x");
}

TEST(ToolHelpers, InitBufEmptiesTheText)
{
    char buf[8] = "abc";
    EXPECT_EQ(bareHandler()->initBuf(buf), 0);
    EXPECT_EQ(buf[0], '\0');
    EXPECT_EQ(buf[1], 'b');
}

TEST(ToolHelpers, Buffer2StringLengths)
{
    PollingHandler* h = bareHandler();
    char buf[] = "hello";
    std::string zero = h->buffer2string(buf, 0);
    EXPECT_EQ(zero, "\"\"");
    EXPECT_EQ(zero.size(), 2u);
    EXPECT_EQ(h->buffer2string(buf, 3), "hel");
    EXPECT_EQ(h->buffer2string(buf, -1), "");
}

TEST(ToolHelpers, TokenHelperEmptyMiddleField)
{
    char line[] = "one::three:";
    std::vector<std::string> t = bareHandler()->tokenHelper(line, 3);
    ASSERT_EQ(t.size(), 3u);
    EXPECT_EQ(t[0], "one");
    EXPECT_EQ(t[1], "\"\"");
    EXPECT_EQ(t[2], "three");
}

TEST(ToolHelpers, TokenHelperTakesOnlyCountFields)
{
    char line[] = "a:b:c:d:\n";
    std::vector<std::string> t = bareHandler()->tokenHelper(line, 2);
    EXPECT_EQ(t, (std::vector<std::string>{"a", "b"}));
    EXPECT_TRUE(bareHandler()->tokenHelper(line, 0).empty());
    EXPECT_TRUE(bareHandler()->tokenHelper(line, -3).empty());
}

TEST(ToolHelpers, TokenHelperStopsSafelyAtTheEnd)
{
    char line[] = "a:b";
    std::vector<std::string> t = bareHandler()->tokenHelper(line, 4);
    EXPECT_EQ(t, (std::vector<std::string>{"a", "b", "\"\"", "\"\""}));
}

TEST(ToolHelpers, GrabValueByIndex)
{
    PollingHandler* h = bareHandler();
    char line[] = "tool:rec:12:abc:\n";
    char dst[256];
    memset(dst, 'x', sizeof(dst));
    EXPECT_EQ(h->grabValue(line, 3, dst), dst);
    EXPECT_STREQ(dst, "abc");
    EXPECT_EQ(dst[200], '\0');
    h->grabValue(line, 2, dst);
    EXPECT_STREQ(dst, "12");
    // Index 0 starts at the second byte of the line.
    h->grabValue(line, 0, dst);
    EXPECT_STREQ(dst, "ool");
}

TEST(ToolHelpers, GrabValueLastFieldWithAndWithoutNewline)
{
    PollingHandler* h = bareHandler();
    char dst[256];
    char withNl[] = "a:b:last\n";
    h->grabValue(withNl, 2, dst);
    EXPECT_STREQ(dst, "last");
    char withoutNl[] = "a:b:last";
    h->grabValue(withoutNl, 2, dst);
    EXPECT_STREQ(dst, "las");
}

TEST(ToolHelpers, TimeStampOfToolTimeString)
{
    char in[] = "Thu Nov 21 13%3A05%3A09 2024";
    char out[256];
    EXPECT_EQ(bareHandler()->getTimeStampInMilliseconds(in, out), out);
    EXPECT_STREQ(out, "20241121130509.000000+360");
}

TEST(ToolHelpers, TimeStampJanuaryAndSingleDigitDay)
{
    char in[] = "Sun Jan 5 07%3A08%3A09 2025";
    char out[256];
    bareHandler()->getTimeStampInMilliseconds(in, out);
    EXPECT_STREQ(out, "20250105070809.000000+360");

    char in2[] = "Sun Jan 15 23%3A59%3A00 2023";
    bareHandler()->getTimeStampInMilliseconds(in2, out);
    EXPECT_STREQ(out, "20230115235900.000000+360");

    char in3[] = "Mon Dec 5 01%3A02%3A03 2022";
    bareHandler()->getTimeStampInMilliseconds(in3, out);
    EXPECT_STREQ(out, "20221205010203.000000+360");

    char in4[] = "Mon Dec 25 01%3A02%3A03 2022";
    bareHandler()->getTimeStampInMilliseconds(in4, out);
    EXPECT_STREQ(out, "20221225010203.000000+360");
}

TEST(ToolHelpers, TimeStampWordOrderAndNoWords)
{
    char in[] = "Fri 7 Mar 10%3A11%3A12 2025 extra";
    char out[256];
    bareHandler()->getTimeStampInMilliseconds(in, out);
    EXPECT_STREQ(out, "20250307101112.000000+360");

    char none[] = "Fri";
    bareHandler()->getTimeStampInMilliseconds(none, out);
    EXPECT_STREQ(out, "-10-10-1.000000+360");
}

TEST(ToolHelpers, TimeStampRestoresColonsInPlace)
{
    char in[] = "Thu Nov 21 13%3A05%3A09 2024";
    char out[256];
    bareHandler()->getTimeStampInMilliseconds(in, out);
    // The input was rewritten (and then cut into words).
    EXPECT_STREQ(in, "Thu");
}

TEST(CommandWrapper, InitTermSingleton)
{
    EXPECT_EQ(theCommandWrapperUtils, nullptr);
    EXPECT_EQ(CommandWrapperUtils::init(3), 0);
    CommandWrapperUtils* first = theCommandWrapperUtils;
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->debug, 3);
    EXPECT_EQ(first->listSave, nullptr);
    EXPECT_EQ(CommandWrapperUtils::init(0), 0);
    EXPECT_EQ(theCommandWrapperUtils, first);
    CommandWrapperUtils::term();
    EXPECT_EQ(theCommandWrapperUtils, nullptr);
}

TEST(CommandWrapper, SkipLinesPastTheEnd)
{
    MErrno err = 1;
    CommandWrapperUtils cw(&err, 0);
    EXPECT_EQ(err, 0);
    FILE* f = tmpfile();
    fputs("one\ntwo\n", f);
    rewind(f);
    EXPECT_EQ(cw.skipLines(f, 5), 0);
    char buf[16];
    EXPECT_EQ(fgets(buf, sizeof(buf), f), nullptr);
    rewind(f);
    EXPECT_EQ(cw.skipLines(f, 0), 0);
    EXPECT_EQ(cw.skipLines(f, -2), 0);
    ASSERT_NE(fgets(buf, sizeof(buf), f), nullptr);
    EXPECT_STREQ(buf, "one\n");
    fclose(f);
}

TEST(CommandWrapper, SkipLinesCountsLongLineTwice)
{
    MErrno err = 1;
    CommandWrapperUtils cw(&err, 0);
    FILE* f = tmpfile();
    fputs((std::string(450, 'x') + "\nnext\n").c_str(), f);
    rewind(f);
    cw.skipLines(f, 2);
    char buf[16];
    ASSERT_NE(fgets(buf, sizeof(buf), f), nullptr);
    EXPECT_STREQ(buf, "next\n");
    fclose(f);
}

TEST(CommandWrapper, TableTokens)
{
    MErrno err = 1;
    CommandWrapperUtils cw(&err, 0);
    char line[] = "disk1   node2 /dev/sdb\n";
    char* save = nullptr;
    EXPECT_STREQ(cw.getTableNextToken(line, &save), "disk1");
    EXPECT_STREQ(cw.getTableNextToken(line, &save), "node2");
    EXPECT_STREQ(cw.getTableNextToken(line, &save), "/dev/sdb\n");
    EXPECT_EQ(cw.getTableNextToken(line, &save), nullptr);
}

TEST(CommandWrapper, ListTokensAndDebugPrint)
{
    MErrno err = 1;
    CommandWrapperUtils cw(&err, 1);
    EXPECT_EQ(cw.getListNextToken(), nullptr);
    char list[] = "n1,n2,,n3";
    StderrCapture cap;
    EXPECT_STREQ(cw.beginListParsing(list), "n1");
    EXPECT_EQ(cap.finish(), "First tok = n1\n");
    EXPECT_STREQ(cw.getListNextToken(), "n2");
    EXPECT_STREQ(cw.getListNextToken(), "n3");
    EXPECT_EQ(cw.getListNextToken(), nullptr);
}

TEST(ToolRunner, LinesStatusAndSkip)
{
    FakeTool tool("vkdemo");
    tool.output("header\nl1\nl2\n", 3);
    LogCapture log;
    std::vector<std::string> seen;
    qv::ToolRunOptions opts;
    opts.skipFirst = 1;
    std::string cmd = std::string(qv::kToolDir) + "/vkdemo -Y";
    qv::ToolRunResult r = qv::runTool("Who::am", cmd.c_str(), [&](char* line) {
        seen.push_back(line);
        return true;
    }, opts);
    EXPECT_TRUE(r.started);
    EXPECT_EQ(r.exitStatus, 3);
    EXPECT_EQ(r.rawStatus, 3 << 8);
    EXPECT_EQ(r.lines, 2);
    EXPECT_EQ(r.commonResult(), 1);
    EXPECT_EQ(seen, (std::vector<std::string>{"l1\n", "l2\n"}));
    EXPECT_EQ(tool.calls(), (std::vector<std::string>{"-Y"}));
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"ERROR: Who::am: pclose exit status: 3"}));
}

TEST(ToolRunner, StopsAtALineAndKeepsTheCallersBuffer)
{
    FakeTool tool("vkdemo");
    tool.output("a\nb\nc\n", 0);
    LogCapture log;
    char buf[400] = "";
    qv::ToolRunOptions opts;
    opts.lineBuffer = buf;
    opts.logExitStatus = false;
    int n = 0;
    std::string cmd = std::string(qv::kToolDir) + "/vkdemo";
    qv::ToolRunResult r = qv::runTool("W", cmd.c_str(), [&](char*) { return ++n < 2; }, opts);
    EXPECT_TRUE(r.stopped);
    EXPECT_EQ(r.lines, 2);
    EXPECT_STREQ(buf, "b\n");
    EXPECT_TRUE(log.lines().empty());
}

TEST(ToolRunner, MissingToolThroughTheShell)
{
    // popen starts a shell, which cannot find the tool: status 127.
    LogCapture log;
    StderrCapture cap;
    std::string cmd = std::string(qv::kToolDir) + "/vknothere 2>/dev/null";
    qv::ToolRunResult r = qv::runTool("W", cmd.c_str(), nullptr);
    cap.finish();
    EXPECT_TRUE(r.started);
    EXPECT_EQ(r.exitStatus, 127);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"ERROR: W: pclose exit status: 127"}));
}

TEST(ToolRunner, LongLineArrivesInPieces)
{
    FakeTool tool("vkdemo");
    tool.output(std::string(500, 'y') + "\n", 0);
    std::vector<size_t> sizes;
    std::string cmd = std::string(qv::kToolDir) + "/vkdemo";
    qv::runTool("W", cmd.c_str(), [&](char* line) {
        sizes.push_back(strlen(line));
        return true;
    });
    EXPECT_EQ(sizes, (std::vector<size_t>{399, 102}));
}

namespace {
struct Marked {
    int found;
    int id;
    static int deleted;
    ~Marked() { deleted++; }
};
int Marked::deleted = 0;
} // namespace

TEST(Sweep, DeletesUnmarkedKeepsOrder)
{
    std::vector<Marked*> v{new Marked{1, 1}, new Marked{1, 2}, new Marked{1, 3}, new Marked{1, 4}};
    qv::clearFound(v);
    for (Marked* m : v)
        EXPECT_EQ(m->found, 0);
    v[1]->found = 1;
    v[3]->found = 1;
    std::vector<int> removedIds;
    Marked::deleted = 0;
    EXPECT_EQ(qv::sweepUnfound(v, [&](Marked* m) { removedIds.push_back(m->id); }), 2u);
    EXPECT_EQ(Marked::deleted, 2);
    EXPECT_EQ(removedIds, (std::vector<int>{1, 3}));
    ASSERT_EQ(v.size(), 2u);
    EXPECT_EQ(v[0]->id, 2);
    EXPECT_EQ(v[1]->id, 4);
    EXPECT_EQ(qv::sweepUnfound(v), 0u);
    for (Marked* m : v)
        delete m;
}
