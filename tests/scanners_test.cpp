// The free scanners beside the connection element: the spool sink, keyword
// values, white space, the socket and stream line readers with their event
// delivery and assertions, and the line count.
#include <quelvane/api_conn_element.h>

#include "support/files.h"
#include "support/socket_pair.h"
#include "support/printed_text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace qvtest;

namespace {

using Pair = SocketPair;

// A pipe opened as streams, like the event pipe of a session.
struct StreamPipe {
    FILE* in = nullptr;
    FILE* out = nullptr;
    StreamPipe()
    {
        int fds[2];
        if (pipe(fds) == 0) {
            in = fdopen(fds[0], "r");
            out = fdopen(fds[1], "w");
        }
    }
    ~StreamPipe()
    {
        if (in != nullptr)
            fclose(in);
        if (out != nullptr)
            fclose(out);
    }
    void write(const std::string& s)
    {
        fputs(s.c_str(), out);
        fflush(out);
    }
};

struct Collected {
    std::vector<std::string> lines;
};

int collect(char* line, void* data)
{
    static_cast<Collected*>(data)->lines.push_back(line);
    return 0;
}

// An element on the near end of a socket pair (not owning it: the pair closes).
struct Element {
    Tavrel_ConnectionElement e;
    explicit Element(int fd) : e("/peer", -1) { e.sock = fd; }
    ~Element() { e.sock = -1; }
};

// The text that glibc prints for a failed assertion of tavrel_readln.
std::string assertionText(int line, const std::string& expr)
{
    return "api_conn_element\\.cpp:" + std::to_string(line) +
           ": int tavrel_readln\\(FILE\\*, char\\*, Tavrel_ConnectionElement\\*\\): Assertion `" + lit(expr) +
           "' failed";
}

} // namespace

// ------------------------------------------------------ tavrel_blastLineToFile

TEST(BlastLineToFile, WritesTheLineAndSeesOnlyTheExactEndLine)
{
    FILE* f = fopen("/tmp/spool", "w+");
    ASSERT_NE(f, nullptr);
    char a[] = "_node_ x";
    char b[] = "_response_ endx";
    char c[] = "_response_ en";
    char d[] = "_response_ end";
    EXPECT_EQ(tavrel_blastLineToFile(a, f), 0);
    EXPECT_EQ(tavrel_blastLineToFile(b, f), 0);
    EXPECT_EQ(tavrel_blastLineToFile(c, f), 0);
    EXPECT_EQ(tavrel_blastLineToFile(d, f), 1);
    fclose(f);
    EXPECT_EQ(readFile("/tmp/spool"), "_node_ x\n_response_ endx\n_response_ en\n_response_ end\n");
}

// --------------------------------------------------- tavrel_grabKeywordValue

TEST(GrabKeywordValue, PlainValueEndsAtTheNextBlank)
{
    char line[] = "_cluster_ _name_ alpha _id_ 77 _rc_ 0";
    char dst[64] = "untouched";
    EXPECT_EQ(tavrel_grabKeywordValue(line, "_id_", dst, 0), dst);
    EXPECT_STREQ(dst, "77");
}

TEST(GrabKeywordValue, LastPairWithoutBlankGivesTheRestOfTheLine)
{
    char line[] = "_tavrel::v_ _version_ 3504 _rc_ 12";
    char dst[64];
    EXPECT_EQ(tavrel_grabKeywordValue(line, "_rc_", dst, 0), dst);
    EXPECT_STREQ(dst, "12");
}

TEST(GrabKeywordValue, NotFoundGivesNullAndLeavesDstAlone)
{
    char line[] = "_node_ _ip_ 1.2.3.4";
    char dst[64] = "untouched";
    EXPECT_EQ(tavrel_grabKeywordValue(line, "_name_", dst, 0), nullptr);
    EXPECT_STREQ(dst, "untouched");
}

TEST(GrabKeywordValue, KeywordFirstOnTheLineNeedsAtLineStart)
{
    char line[] = "_disk_ d1 _status_ ready";
    char dst[64] = "untouched";
    EXPECT_EQ(tavrel_grabKeywordValue(line, "_disk_", dst, 0), nullptr);
    EXPECT_STREQ(dst, "untouched");
    EXPECT_EQ(tavrel_grabKeywordValue(line, "_disk_", dst, 1), dst);
    EXPECT_STREQ(dst, "d1");
}

TEST(GrabKeywordValue, QuotedValueKeepsItsBlanksAndDropsTheQuotes)
{
    char line[] = "_node_ _name_ 'big node 1' _ip_ 10.0.0.1";
    char dst[64];
    EXPECT_EQ(tavrel_grabKeywordValue(line, "_name_", dst, 0), dst);
    EXPECT_STREQ(dst, "big node 1");
}

TEST(GrabKeywordValue, UnclosedQuoteGivesTheRestWithoutTheOpeningQuote)
{
    char line[] = "_x_ _name_ 'open ended";
    char dst[64];
    EXPECT_EQ(tavrel_grabKeywordValue(line, "_name_", dst, 0), dst);
    EXPECT_STREQ(dst, "open ended");
}

TEST(GrabKeywordValue, MsgTakesTheWholeRestQuotesIncluded)
{
    char line[] = "_event_ _msg_ 'disk d1 failed' _rc_ 5";
    char dst[64];
    EXPECT_EQ(tavrel_grabKeywordValue(line, "_msg_", dst, 0), dst);
    EXPECT_STREQ(dst, "'disk d1 failed' _rc_ 5");
}

TEST(GrabKeywordValue, KeywordWithLeadingBlankIsTheNeedleAsItStands)
{
    char line[] = "_x_ _rc_5 _rc_ 7";
    char dst[64];
    // Needle " _rc_": first found in " _rc_5", the value runs to the blank.
    EXPECT_EQ(tavrel_grabKeywordValue(line, " _rc_", dst, 0), dst);
    EXPECT_STREQ(dst, "5");
    char line2[] = "_x_ _rc_ 7";
    // Needle " _rc_" then value " 7": it ends at once at its blank.
    EXPECT_EQ(tavrel_grabKeywordValue(line2, " _rc_", dst, 0), dst);
    EXPECT_STREQ(dst, "");
}

TEST(GrabKeywordValue, FirstOccurrenceWinsAlsoInsideAQuotedValue)
{
    char line[] = "_node_ _desc_ 'see _ip_ below' _ip_ 10.0.0.9";
    char dst[64];
    EXPECT_EQ(tavrel_grabKeywordValue(line, "_ip_", dst, 0), dst);
    EXPECT_STREQ(dst, "below'");
}

// ------------------------------------------------------------- white space

TEST(WhiteSpace, FindWhiteAndBlackSpace)
{
    char s[] = "ab \t\ncd";
    EXPECT_EQ(tavrel_findWhiteSpace(s), s + 2);
    EXPECT_EQ(tavrel_findBlackSpace(s + 2), s + 5);
    char none[] = "abc";
    EXPECT_EQ(tavrel_findWhiteSpace(none), none + 3);
    char blank[] = " \t ";
    EXPECT_EQ(tavrel_findBlackSpace(blank), blank + 3);
    EXPECT_EQ(tavrel_findBlackSpace(none), none);
}

// ------------------------------------------------------- tavrel_readlnSocket

TEST(ReadlnSocket, LineGivesTenEndOfStreamGivesMinusOne)
{
    Pair p;
    p.send("first line\nlast");
    p.closePeer();
    char buf[64];
    EXPECT_EQ(tavrel_readlnSocket(p.mine, buf), 10);
    EXPECT_STREQ(buf, "first line");
    EXPECT_EQ(tavrel_readlnSocket(p.mine, buf), -1);
    EXPECT_STREQ(buf, "last");
}

TEST(ReadlnSocket, EventLinesAreNotSpecialHere)
{
    Pair p;
    p.send("_event_ x\n");
    char buf[64];
    EXPECT_EQ(tavrel_readlnSocket(p.mine, buf), 10);
    EXPECT_STREQ(buf, "_event_ x");
}

TEST(ReadlnSocket, TakesOneLineAndLeavesTheLinesWaitingBehindIt)
{
    Pair p;
    p.send("a\nbb\nccc\n");
    char buf[64];
    EXPECT_EQ(tavrel_readlnSocket(p.mine, buf), 10);
    EXPECT_STREQ(buf, "a");
    char rest[64] = {};
    EXPECT_EQ(recv(p.mine, rest, sizeof(rest), MSG_DONTWAIT), 7);
    EXPECT_STREQ(rest, "bb\nccc\n");
}

TEST(ReadlnSocket, LineLongerThanOneLookAheadComesWhole)
{
    Pair p;
    const std::string line(9000, 'q');
    p.send(line + "\nnext\n");
    std::vector<char> buf(10000);
    EXPECT_EQ(tavrel_readlnSocket(p.mine, buf.data()), 10);
    EXPECT_EQ(std::string(buf.data()), line);
    EXPECT_EQ(tavrel_readlnSocket(p.mine, buf.data()), 10);
    EXPECT_STREQ(buf.data(), "next");
}

// ------------------------------------------------------------ tavrel_readln

TEST(Readln, WithoutElementReadsTheStreamOnly)
{
    writeFile("/tmp/lines", "one\ntwo\nlast-no-newline");
    FILE* f = fopen("/tmp/lines", "r");
    ASSERT_NE(f, nullptr);
    Pair p;
    p.send("_event_ untouched\n");
    char buf[64];
    EXPECT_EQ(tavrel_readln(f, buf, nullptr), 10);
    EXPECT_STREQ(buf, "one");
    EXPECT_EQ(tavrel_readln(f, buf, nullptr), 10);
    EXPECT_STREQ(buf, "two");
    // A last line without newline gives EOF, though its text is there.
    EXPECT_EQ(tavrel_readln(f, buf, nullptr), -1);
    EXPECT_STREQ(buf, "last-no-newline");
    EXPECT_EQ(tavrel_readln(f, buf, nullptr), -1);
    EXPECT_STREQ(buf, "");
    fclose(f);
    // No socket was looked at: the pending bytes are all there.
    char rest[64] = {};
    EXPECT_EQ(recv(p.mine, rest, sizeof(rest), MSG_DONTWAIT), 18);
}

TEST(Readln, DeliversPendingEventsThenReadsTheStream)
{
    Pair p;
    StreamPipe sp;
    Element el(p.mine);
    Collected got;
    el.e.callback = collect;
    el.e.callbackData = &got;
    p.send("_event_ a 1\n_event_ b 2\n");
    sp.write("from the pipe\n");
    char buf[64];
    StderrCapture cap;
    EXPECT_EQ(tavrel_readln(sp.in, buf, &el.e), 10);
    EXPECT_EQ(cap.finish(), "");
    EXPECT_STREQ(buf, "from the pipe");
    EXPECT_EQ(got.lines, (std::vector<std::string>{"_event_ a 1", "_event_ b 2"}));
}

TEST(Readln, HangUpOfTheSocketGivesMinusOne)
{
    Pair p;
    StreamPipe sp;
    Element el(p.mine);
    Collected got;
    el.e.callback = collect;
    el.e.callbackData = &got;
    p.closePeer();
    char buf[64];
    EXPECT_EQ(tavrel_readln(sp.in, buf, &el.e), -1);
    EXPECT_TRUE(got.lines.empty());
}

TEST(Readln, TraceNamesTheNodeAndTheTime)
{
    Pair p;
    StreamPipe sp;
    Element el(p.mine);
    el.e.set_trace(1);
    Collected got;
    el.e.callback = collect;
    el.e.callbackData = &got;
    p.send("_event_ t\n");
    sp.write("x\n");
    char buf[64];
    StderrCapture cap;
    EXPECT_EQ(tavrel_readln(sp.in, buf, &el.e), 10);
    std::string err = cap.finish();
    EXPECT_TRUE(std::regex_match(err, std::regex(std::string("_trace_ Found async data from /peer at ") +
                                                 kTimeRegex + "\n")))
        << err;
    EXPECT_EQ(got.lines, (std::vector<std::string>{"_event_ t"}));
}

TEST(Readln, EventLineOf1023BytesIsDelivered)
{
    Pair p;
    StreamPipe sp;
    Element el(p.mine);
    Collected got;
    el.e.callback = collect;
    el.e.callbackData = &got;
    const std::string line = "_event_ " + std::string(1015, 'x');
    ASSERT_EQ(line.size(), 1023u);
    p.send(line + "\n");
    sp.write("x\n");
    char buf[64];
    EXPECT_EQ(tavrel_readln(sp.in, buf, &el.e), 10);
    ASSERT_EQ(got.lines.size(), 1u);
    EXPECT_EQ(got.lines[0], line);
}

TEST(Readln, ManyLinesWaitingAreDeliveredInOrderAcrossLookAheads)
{
    Pair p;
    StreamPipe sp;
    Element el(p.mine);
    Collected got;
    el.e.callback = collect;
    el.e.callbackData = &got;
    // Some 90 KB: more than one look-ahead, with a line cut at its end.
    std::vector<std::string> lines;
    std::string bytes;
    for (int i = 0; i < 2000; ++i) {
        lines.push_back("_event_ mount _node_ n" + std::to_string(i) + " _fs_ gpfs1 _severity_ INFO");
        bytes += lines.back() + "\n";
    }
    // The pipe becomes ready only once every line is in the socket: the
    // socket is drained first, so all of them come before the stream's line.
    std::thread writer([&] {
        p.send(bytes);
        sp.write("from the pipe\n");
    });
    char buf[64];
    EXPECT_EQ(tavrel_readln(sp.in, buf, &el.e), 10);
    writer.join();
    EXPECT_STREQ(buf, "from the pipe");
    EXPECT_EQ(got.lines, lines);
    char rest[16];
    EXPECT_EQ(recv(p.mine, rest, sizeof(rest), MSG_DONTWAIT), -1);
}

TEST(Readln, LineBegunAtTheEndOfWhatIsWaitingIsCompleted)
{
    Pair p;
    StreamPipe sp;
    Element el(p.mine);
    Collected got;
    el.e.callback = collect;
    el.e.callbackData = &got;
    p.send("_event_ first\n_event_ par");
    std::thread later([&] {
        usleep(50000);
        p.send("tial\n_event_ last\n");
        usleep(150000);
        sp.write("x\n");
    });
    char buf[64];
    EXPECT_EQ(tavrel_readln(sp.in, buf, &el.e), 10);
    later.join();
    EXPECT_EQ(got.lines, (std::vector<std::string>{"_event_ first", "_event_ partial", "_event_ last"}));
}

TEST(Readln, HangUpWithLinesStillWaitingDeliversNone)
{
    Pair p;
    StreamPipe sp;
    Element el(p.mine);
    Collected got;
    el.e.callback = collect;
    el.e.callbackData = &got;
    p.send("_event_ a\n_event_ b\n");
    p.closePeer();
    char buf[64];
    // The hang-up is seen before the first line is read.
    EXPECT_EQ(tavrel_readln(sp.in, buf, &el.e), -1);
    EXPECT_TRUE(got.lines.empty());
}

TEST(ReadlnDeathTest, ClosedSocketFailsTheNfdsAssertion)
{
    StreamPipe sp;
    Tavrel_ConnectionElement e("/peer", -1);
    char buf[64];
    EXPECT_DEATH(tavrel_readln(sp.in, buf, &e), assertionText(761, "nfds > 0"));
}

TEST(ReadlnDeathTest, EventLineOf1024BytesFailsTheBufferAssertion)
{
    Pair p;
    StreamPipe sp;
    Element el(p.mine);
    Collected got;
    el.e.callback = collect;
    el.e.callbackData = &got;
    p.send("_event_ " + std::string(1016, 'y') + "\n");
    char buf[64];
    EXPECT_DEATH(tavrel_readln(sp.in, buf, &el.e), assertionText(816, "buf[sizeof(buf)-1] == 0"));
}

namespace {

int printLine(char* line, void*)
{
    fprintf(stderr, "delivered: %s\n", line);
    return 0;
}

} // namespace

TEST(ReadlnDeathTest, OverlongLineAmidOthersEndsTheProcessAfterTheLinesBeforeIt)
{
    Pair p;
    StreamPipe sp;
    Element el(p.mine);
    el.e.callback = printLine;
    p.send("_event_ before\n_event_ " + std::string(1016, 'y') + "\n_event_ after\n");
    char buf[64];
    EXPECT_DEATH(tavrel_readln(sp.in, buf, &el.e),
                 "delivered: _event_ before\n(.|\n)*" + assertionText(816, "buf[sizeof(buf)-1] == 0"));
}

TEST(Readln, LineOf1023BytesAmidOthersIsDelivered)
{
    Pair p;
    StreamPipe sp;
    Element el(p.mine);
    Collected got;
    el.e.callback = collect;
    el.e.callbackData = &got;
    const std::string longLine = "_event_ " + std::string(1015, 'z');
    p.send("_event_ a\n" + longLine + "\n_event_ b\n");
    sp.write("x\n");
    char buf[64];
    EXPECT_EQ(tavrel_readln(sp.in, buf, &el.e), 10);
    EXPECT_EQ(got.lines, (std::vector<std::string>{"_event_ a", longLine, "_event_ b"}));
}

TEST(ReadlnDeathTest, AsyncDataWithoutCallbackFailsTheCallbackAssertion)
{
    Pair p;
    StreamPipe sp;
    Element el(p.mine);
    p.send("_event_ z\n");
    char buf[64];
    EXPECT_DEATH(tavrel_readln(sp.in, buf, &el.e), assertionText(809, "callback"));
}

// --------------------------------------------------------- tavrel_countLines

TEST(CountLines, CountsNewlinesFromThePositionAndKeepsIt)
{
    writeFile("/tmp/lines", "a\nb\nc\nno newline");
    FILE* f = fopen("/tmp/lines", "r");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(tavrel_countLines(f), 3);
    EXPECT_EQ(ftell(f), 0);
    char buf[16];
    ASSERT_NE(fgets(buf, sizeof(buf), f), nullptr);
    long pos = ftell(f);
    EXPECT_EQ(tavrel_countLines(f), 2);
    EXPECT_EQ(ftell(f), pos);
    fclose(f);
}
