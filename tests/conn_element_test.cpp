// The connection element: construction, connect and its options, raw read and
// write, the line reader with its overrun rule and event lines, the drain
// loop, the handshake, and every error and trace text.
#include <quelvane/api_conn_element.h>

#include "support/fake_daemon.h"
#include "support/files.h"
#include "support/socket_pair.h"
#include "support/printed_text.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <regex>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace qvtest;

namespace {

const std::string kSock = "/var/vesk/tavrel/tavrelSocket";

// The element takes `mine` over and closes it itself.
struct Pair : SocketPair {
    Pair() : SocketPair(SocketPair::PeerOnly) {}
};

bool descriptorOpen(int fd)
{
    return fcntl(fd, F_GETFD) >= 0;
}

struct Collected {
    std::vector<std::string> lines;
    std::vector<void*> data;
};

int collect(char* line, void* data)
{
    Collected* c = static_cast<Collected*>(data);
    c->lines.push_back(line);
    c->data.push_back(data);
    return 99;
}

// Sinks for drainStringSocket that record the lines and give a scripted verdict.
struct SinkScript {
    std::vector<std::string> lines;
    std::vector<int> verdicts;   // verdict for each call; 0 when they run out
};

int scriptedSink(char* line, void* data)
{
    SinkScript* s = static_cast<SinkScript*>(data);
    size_t i = s->lines.size();
    s->lines.push_back(line);
    return i < s->verdicts.size() ? s->verdicts[i] : 0;
}

std::vector<unsigned char> words(std::initializer_list<uint32_t> ws)
{
    std::vector<unsigned char> out;
    for (uint32_t w : ws) {
        out.push_back(static_cast<unsigned char>(w >> 24));
        out.push_back(static_cast<unsigned char>(w >> 16));
        out.push_back(static_cast<unsigned char>(w >> 8));
        out.push_back(static_cast<unsigned char>(w));
    }
    return out;
}

} // namespace

// ---------------------------------------------------------------- construction

TEST(ConnElement, NameWithSlashIgnoresThePortPassed)
{
    Tavrel_ConnectionElement e("/var/vesk/tavrel/tavrelSocket", 1234);
    EXPECT_STREQ(e.nodeName, "/var/vesk/tavrel/tavrelSocket");
    EXPECT_EQ(e.port, -1);
    EXPECT_EQ(e.sock, -1);
    EXPECT_EQ(e.get_socket(), -1);
    EXPECT_EQ(e.trace, 0);
    EXPECT_EQ(e.reportErrors, 0u);
    EXPECT_EQ(e.namedSocket, 0u);
    EXPECT_EQ(e.callback, nullptr);
}

TEST(ConnElement, NodeNameKeepsItsPortAndCopiesTheName)
{
    char name[] = "node7";
    Tavrel_ConnectionElement e(name, 6000);
    name[0] = 'X';
    EXPECT_STREQ(e.nodeName, "node7");
    EXPECT_EQ(e.port, 6000);
    EXPECT_EQ(e.sock, -1);
}

TEST(ConnElement, SetTraceReturnsThePreviousLevel)
{
    Tavrel_ConnectionElement e("/x", -1);
    EXPECT_EQ(e.set_trace(2), 0);
    EXPECT_EQ(e.set_trace(1), 2);
    EXPECT_EQ(e.trace, 1);
}

// ------------------------------------------------------------------- connect

TEST(ConnElement, NamedSocketConnectSetsItsOptions)
{
    FakeDaemon daemon;
    Tavrel_ConnectionElement e(vesk_named_socket, -1);
    int fd = e.connectSocket(0);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(fd, e.get_socket());
    EXPECT_EQ(e.namedSocket, 1u);
    EXPECT_EQ(e.reportErrors, 0u);
    EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    int v = 0;
    socklen_t len = sizeof(v);
    ASSERT_EQ(getsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &v, &len), 0);
    EXPECT_EQ(v, 1);
    struct linger l;
    len = sizeof(l);
    ASSERT_EQ(getsockopt(fd, SOL_SOCKET, SO_LINGER, &l, &len), 0);
    EXPECT_EQ(l.l_onoff, 1);
    EXPECT_EQ(l.l_linger, 0);
    EXPECT_TRUE(daemon.waitForConnections(1));
    EXPECT_STREQ(vesk_named_socket, "/var/vesk/tavrel/tavrelSocket");
}

TEST(ConnElement, TcpConnectSetsNoDelay)
{
    FakeDaemon daemon;
    int port = daemon.startTcp();
    Tavrel_ConnectionElement e("127.0.0.1", port);
    int fd = e.connectSocket(1);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(e.namedSocket, 0u);
    EXPECT_EQ(e.reportErrors, 1u);
    int v = 0;
    socklen_t len = sizeof(v);
    ASSERT_EQ(getsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &v, &len), 0);
    EXPECT_EQ(v, 1);
    ASSERT_EQ(getsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &v, &len), 0);
    EXPECT_EQ(v, 1);
    EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    // Requests on TCP are framed the same way.
    daemon.respond("get nodes", {"_node_ a"});
    ASSERT_EQ(e.write("get nodes\n", 10), 10);
    char buf[64];
    ASSERT_EQ(e.readSocketLine(buf, sizeof(buf)), 8);
    EXPECT_STREQ(buf, "_node_ a");
}

TEST(ConnElement, NameWithoutSlashGivenPortMinusOneIsAPath)
{
    FakeDaemon daemon("/tmp/relsock");
    ASSERT_EQ(chdir("/tmp"), 0);
    Tavrel_ConnectionElement e("relsock", -1);
    EXPECT_EQ(e.port, -1);
    ASSERT_GE(e.connectSocket(0), 0);
    EXPECT_EQ(e.namedSocket, 1u);
    EXPECT_TRUE(daemon.waitForConnections(1));
}

TEST(ConnElement, ConnectFailureIsSilentWithoutReporting)
{
    Tavrel_ConnectionElement e(vesk_named_socket, -1);
    StderrCapture cap;
    EXPECT_EQ(e.connectSocket(0), -1);
    EXPECT_EQ(cap.finish(), "");
    EXPECT_EQ(e.sock, -1);
}

TEST(ConnElement, ConnectFailureReportedAndReportingIsSticky)
{
    Tavrel_ConnectionElement e(vesk_named_socket, -1);
    const std::string msg = printed(
        lit("_error_ Node /var/vesk/tavrel/tavrelSocket, port -1: Error 2 connecting stream socket: "
            "No such file or directory"));
    {
        StderrCapture cap;
        EXPECT_EQ(e.connectSocket(1), -1);
        std::string err = cap.finish();
        EXPECT_TRUE(matches(msg, err)) << err;
    }
    EXPECT_EQ(e.sock, -1);
    {
        StderrCapture cap;
        EXPECT_EQ(e.connectSocket(0), -1);
        std::string err = cap.finish();
        EXPECT_TRUE(matches(msg, err)) << err;
    }
    EXPECT_EQ(e.reportErrors, 1u);
}

TEST(ConnElement, ConnectTraceLevelOneTextsNamed)
{
    FakeDaemon daemon;
    Tavrel_ConnectionElement e(vesk_named_socket, -1);
    e.set_trace(1);
    StderrCapture cap;
    int fd = e.connectSocket(0);
    std::string err = cap.finish();
    ASSERT_GE(fd, 0);
    EXPECT_EQ(err, "_info_ connectSocket: Connecting to /var/vesk/tavrel/tavrelSocket...\n"
                   "_info_ connectSocket: Using named socket /var/vesk/tavrel/tavrelSocket...\n"
                   "_info_ connectSocket: port -1, socket " +
                       std::to_string(fd) + "\n_trace_ done\n");
}

TEST(ConnElement, ConnectTraceLevelOneTextsNodePort)
{
    FakeDaemon daemon;
    int port = daemon.startTcp();
    Tavrel_ConnectionElement e("127.0.0.1", port);
    e.set_trace(1);
    StderrCapture cap;
    int fd = e.connectSocket(0);
    std::string err = cap.finish();
    ASSERT_GE(fd, 0);
    const std::string p = std::to_string(port);
    EXPECT_EQ(err, "_info_ connectSocket: Connecting to 127.0.0.1...\n"
                   "_info_ connectSocket: Using node/port 127.0.0.1/" +
                       p + "...\n_info_ connectSocket: port " + p + ", socket " + std::to_string(fd) +
                       "\n_trace_ done\n");
}

TEST(ConnElement, ConnectTraceOnReportsErrorsWithoutTheFlag)
{
    Tavrel_ConnectionElement e(vesk_named_socket, -1);
    e.set_trace(1);
    StderrCapture cap;
    EXPECT_EQ(e.connectSocket(0), -1);
    std::string err = cap.finish();
    EXPECT_EQ(e.reportErrors, 0u);
    std::vector<std::string> lines = splitLines(err);
    ASSERT_EQ(lines.size(), 4u) << err;
    EXPECT_EQ(lines[2].rfind("_info_ connectSocket: port -1, socket ", 0), 0u);
    EXPECT_TRUE(matches(printed(lit("_error_ Node /var/vesk/tavrel/tavrelSocket, port -1: Error 2 "
                                    "connecting stream socket: No such file or directory")),
                        lines[3] + "\n"))
        << lines[3];
}

TEST(ConnElement, ResolverFailureClosesTheOldDescriptor)
{
    // A port of -5 gives the service "-5", which the resolver refuses.
    Tavrel_ConnectionElement e("127.0.0.1", -5);
    int old = dup(2);
    e.sock = old;
    errno = 0;
    StderrCapture cap;
    EXPECT_EQ(e.connectSocket(1), -1);
    std::string err = cap.finish();
    EXPECT_TRUE(matches(printed(lit("_error_ Node 127.0.0.1, port -5: Error 0 Unable to connect to "
                                    "target node: Success")),
                        err))
        << err;
    EXPECT_EQ(e.sock, -1);
    EXPECT_FALSE(descriptorOpen(old));
}

TEST(ConnElement, SocketFailureLeavesTheNegativeResult)
{
    Tavrel_ConnectionElement e(vesk_named_socket, -1);
    struct rlimit saved;
    getrlimit(RLIMIT_NOFILE, &saved);
    struct rlimit low = saved;
    low.rlim_cur = 64;
    StderrCapture cap;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
    std::vector<int> fillers;
    for (int fd; (fd = dup(0)) >= 0;)
        fillers.push_back(fd);
    int rc = e.connectSocket(1);
    for (int fd : fillers)
        close(fd);
    setrlimit(RLIMIT_NOFILE, &saved);
    std::string err = cap.finish();
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(e.sock, -1);
    EXPECT_TRUE(matches(printed(lit("_error_ Node /var/vesk/tavrel/tavrelSocket, port -1: Error 24 "
                                    "opening stream socket: Too many open files")),
                        err))
        << err;
}

TEST(ConnElement, ReconnectingAnOpenElementLeavesTheOldDescriptorOpen)
{
    FakeDaemon daemon;
    Tavrel_ConnectionElement e(vesk_named_socket, -1);
    int first = e.connectSocket(0);
    ASSERT_GE(first, 0);
    int second = e.connectSocket(0);
    ASSERT_GE(second, 0);
    EXPECT_NE(first, second);
    EXPECT_TRUE(descriptorOpen(first));
    EXPECT_TRUE(daemon.waitForConnections(2));
    close(first);
}

TEST(ConnElement, ConnectAgainAfterClose)
{
    FakeDaemon daemon;
    Tavrel_ConnectionElement e(vesk_named_socket, -1);
    ASSERT_GE(e.connectSocket(0), 0);
    EXPECT_EQ(e.close(), 0);
    EXPECT_EQ(e.sock, -1);
    ASSERT_GE(e.connectSocket(0), 0);
    EXPECT_TRUE(daemon.waitForConnections(2));
}

// ------------------------------------------------------- close, read, write

TEST(ConnElement, CloseTwiceIsHarmless)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    EXPECT_EQ(e.close(), 0);
    e.sock = p.mine;
    EXPECT_EQ(e.close(), 0);
    EXPECT_EQ(e.sock, -1);
    EXPECT_FALSE(descriptorOpen(p.mine));
    EXPECT_EQ(e.close(), 0);
}

TEST(ConnElement, ReadAndWriteOnAClosedElementFailSilently)
{
    Tavrel_ConnectionElement e("/peer", -1);
    e.set_trace(2);
    e.reportErrors = 1;
    char buf[8];
    StderrCapture cap;
    EXPECT_EQ(e.write("abc", 3), -1);
    EXPECT_EQ(e.read(buf, sizeof(buf)), -1);
    EXPECT_EQ(e.readSocketLine(buf, sizeof(buf)), -1);
    EXPECT_EQ(cap.finish(), "");
}

TEST(ConnElement, WriteAndReadTraceAtLevelTwoOnly)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = p.mine;
    e.set_trace(1);
    char buf[16];
    {
        StderrCapture cap;
        EXPECT_EQ(e.write("hello", 5), 5);
        p.send("abc");
        EXPECT_EQ(e.read(buf, sizeof(buf)), 3);
        EXPECT_EQ(cap.finish(), "");
    }
    e.set_trace(2);
    {
        StderrCapture cap;
        EXPECT_EQ(e.write("hello!", 6), 6);
        p.send("wxyz");
        EXPECT_EQ(e.read(buf, sizeof(buf)), 4);
        EXPECT_EQ(cap.finish(), "_trace_ Node /peer, port -1: Wrote 6 bytes\n"
                                "_trace_ Node /peer, port -1: Read 4 bytes\n");
    }
    char got[32] = {};
    EXPECT_EQ(recv(p.peer, got, sizeof(got), 0), 11);
    EXPECT_STREQ(got, "hellohello!");
}

TEST(ConnElement, WriteToALostPeerClosesAndReports)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = p.mine;
    e.reportErrors = 1;
    p.closePeer();
    StderrCapture cap;
    EXPECT_EQ(e.write("x\n", 2), -1);
    std::string err = cap.finish();
    EXPECT_EQ(e.sock, -1);
    EXPECT_FALSE(descriptorOpen(p.mine));
    EXPECT_TRUE(matches(printed(lit("_error_ Node /peer, port -1: Error 32 in write: Broken pipe")), err))
        << err;
}

TEST(ConnElement, WriteFailureSilentWithoutReporting)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = p.mine;
    p.closePeer();
    StderrCapture cap;
    EXPECT_EQ(e.write("x\n", 2), -1);
    EXPECT_EQ(cap.finish(), "");
    EXPECT_EQ(e.sock, -1);
}

TEST(ConnElement, ReadFailureReportsThenCloses)
{
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = fds[0];   // not a socket: recv fails
    e.reportErrors = 1;
    char buf[8];
    StderrCapture cap;
    EXPECT_EQ(e.read(buf, sizeof(buf)), -1);
    std::string err = cap.finish();
    EXPECT_EQ(e.sock, -1);
    EXPECT_FALSE(descriptorOpen(fds[0]));
    EXPECT_TRUE(matches(printed(lit("_error_ Node /peer, port -1: Error 88 in read: Socket operation on "
                                    "non-socket")),
                        err))
        << err;
    close(fds[1]);
}

TEST(ConnElement, ReadOfZeroAtEndOfStreamIsNoFailure)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = p.mine;
    e.reportErrors = 1;
    p.closePeer();
    char buf[8];
    StderrCapture cap;
    EXPECT_EQ(e.read(buf, sizeof(buf)), 0);
    EXPECT_EQ(cap.finish(), "");
    EXPECT_EQ(e.sock, p.mine);
    EXPECT_TRUE(descriptorOpen(p.mine));
}

TEST(ConnElement, PollReportsPendingInput)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = p.mine;
    EXPECT_EQ(e.poll(POLLIN, 0), 0);
    p.send("x");
    EXPECT_EQ(e.poll(POLLIN, 0), 1);
}

// ------------------------------------------------------------ readSocketLine

TEST(ReadSocketLine, ReturnsOneLineAndLeavesTheRestUnread)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = p.mine;
    p.send("hello\nworld\n");
    char buf[32];
    EXPECT_EQ(e.readSocketLine(buf, sizeof(buf)), 5);
    EXPECT_STREQ(buf, "hello");
    char rest[32] = {};
    EXPECT_EQ(recv(p.mine, rest, sizeof(rest), MSG_DONTWAIT), 6);
    EXPECT_STREQ(rest, "world\n");
}

TEST(ReadSocketLine, LineOfSizeMinusTwoPassesSizeMinusOneOverruns)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = p.mine;
    e.reportErrors = 1;
    char buf[8];
    p.send("123456\n");
    EXPECT_EQ(e.readSocketLine(buf, 8), 6);
    EXPECT_STREQ(buf, "123456");

    p.send("1234567\nnext\n");
    StderrCapture cap;
    EXPECT_EQ(e.readSocketLine(buf, 8), -1);
    std::string err = cap.finish();
    EXPECT_TRUE(matches(printed(lit("_error_ Node /peer, port -1: Read overrun of 8 byte buffer!")), err))
        << err;
    // The overrun line's newline was the byte that overran; the element stays
    // open and the next line reads normally.
    EXPECT_EQ(e.sock, p.mine);
    EXPECT_EQ(e.readSocketLine(buf, 8), 4);
    EXPECT_STREQ(buf, "next");
}

TEST(ReadSocketLine, RestOfAnOverlongLineIsStillUnread)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = p.mine;
    char buf[8];
    p.send("abcdefghijkl\n");
    StderrCapture cap;
    EXPECT_EQ(e.readSocketLine(buf, 8), -1);
    EXPECT_EQ(cap.finish(), "");   // reporting is off
    // Seven bytes were stored, the eighth overran; the rest waits.
    EXPECT_EQ(std::string(buf, 7), "abcdefg");
    char rest[32] = {};
    EXPECT_EQ(recv(p.mine, rest, sizeof(rest), MSG_DONTWAIT), 5);
    EXPECT_STREQ(rest, "ijkl\n");
}

TEST(ReadSocketLine, EmptyLineReturnsZero)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = p.mine;
    e.set_trace(2);
    p.send("\nx\n");
    char buf[8];
    StderrCapture cap;
    EXPECT_EQ(e.readSocketLine(buf, 8), 0);
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(cap.finish(), "_trace_ Node /peer, port -1: Read 0 bytes\n");
}

TEST(ReadSocketLine, EventWordWithoutBlankIsAResponseLine)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = p.mine;
    Collected got;
    e.callback = collect;
    e.callbackData = &got;
    p.send("_event_\n_event_x 1\n");
    char buf[32];
    EXPECT_EQ(e.readSocketLine(buf, sizeof(buf)), 7);
    EXPECT_STREQ(buf, "_event_");
    EXPECT_EQ(e.readSocketLine(buf, sizeof(buf)), 10);
    EXPECT_STREQ(buf, "_event_x 1");
    EXPECT_TRUE(got.lines.empty());
}

TEST(ReadSocketLine, EventLinesGoToTheCallbackInPassingWithTraceTexts)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = p.mine;
    e.set_trace(2);
    Collected got;
    e.callback = collect;
    e.callbackData = &got;
    p.send("_event_ nodeDown 1\n_event_ fsUp 2\n_node_ a\n");
    char buf[64];
    StderrCapture cap;
    EXPECT_EQ(e.readSocketLine(buf, sizeof(buf)), 8);
    std::string err = cap.finish();
    EXPECT_STREQ(buf, "_node_ a");
    ASSERT_EQ(got.lines.size(), 2u);
    EXPECT_EQ(got.lines[0], "_event_ nodeDown 1");
    EXPECT_EQ(got.lines[1], "_event_ fsUp 2");
    EXPECT_EQ(got.data[0], &got);
    EXPECT_EQ(err, "_trace_ Node /peer, port -1: Read 18 bytes\n"
                   "_trace_ Returning event message: '_event_ nodeDown 1'\n"
                   "_trace_ Node /peer, port -1: Read 14 bytes\n"
                   "_trace_ Returning event message: '_event_ fsUp 2'\n"
                   "_trace_ Node /peer, port -1: Read 8 bytes\n");
}

TEST(ReadSocketLine, WithoutCallbackEventLinesVanishWithATraceOnly)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = p.mine;
    e.set_trace(2);
    p.send("_event_ gone\nkept\n");
    char buf[64];
    StderrCapture cap;
    EXPECT_EQ(e.readSocketLine(buf, sizeof(buf)), 4);
    EXPECT_STREQ(buf, "kept");
    EXPECT_EQ(cap.finish(), "_trace_ Node /peer, port -1: Read 12 bytes\n"
                            "_trace_ Discarding event message: '_event_ gone'\n"
                            "_trace_ Node /peer, port -1: Read 4 bytes\n");
}

TEST(ReadSocketLine, TraceLevelOnePrintsNoLineTexts)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = p.mine;
    e.set_trace(1);
    p.send("_event_ gone\nkept\n");
    char buf[64];
    StderrCapture cap;
    EXPECT_EQ(e.readSocketLine(buf, sizeof(buf)), 4);
    EXPECT_EQ(cap.finish(), "");
}

TEST(ReadSocketLine, AfterAnEventLineItBlocksOnForTheNextLine)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = p.mine;
    e.reportErrors = 1;
    Collected got;
    e.callback = collect;
    e.callbackData = &got;
    // A receive time-out turns "blocks on" into a visible recv failure.
    struct timeval tv = {0, 200000};
    ASSERT_EQ(setsockopt(p.mine, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv)), 0);
    p.send("_event_ only\n");
    char buf[64];
    StderrCapture cap;
    EXPECT_EQ(e.readSocketLine(buf, sizeof(buf)), -1);
    std::string err = cap.finish();
    ASSERT_EQ(got.lines.size(), 1u);
    EXPECT_EQ(got.lines[0], "_event_ only");
    EXPECT_TRUE(matches(printed(lit("_error_ Node /peer, port -1: Error 11 reading from stream socket: "
                                    "Resource temporarily unavailable")),
                        err))
        << err;
    EXPECT_EQ(e.sock, p.mine);
}

TEST(ReadSocketLine, EndOfStreamIsAFailureThatLeavesTheSocketOpen)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = p.mine;
    char buf[16];
    p.send("partial");
    p.closePeer();
    {
        StderrCapture cap;
        EXPECT_EQ(e.readSocketLine(buf, sizeof(buf)), -1);
        EXPECT_EQ(cap.finish(), "");
    }
    e.reportErrors = 1;
    StderrCapture cap;
    EXPECT_EQ(e.readSocketLine(buf, sizeof(buf)), -1);
    std::string err = cap.finish();
    EXPECT_TRUE(matches(printed(lit("_error_ Node /peer, port -1: End-of-file encountered!")), err)) << err;
    EXPECT_EQ(e.sock, p.mine);
    EXPECT_TRUE(descriptorOpen(p.mine));
}

TEST(ReadSocketLine, ErrorTextIsCutAt200Bytes)
{
    Pair p;
    const std::string longName = "/" + std::string(300, 'n');
    Tavrel_ConnectionElement e(longName.c_str(), -1);
    e.sock = p.mine;
    e.reportErrors = 1;
    p.closePeer();
    char buf[16];
    StderrCapture cap;
    EXPECT_EQ(e.readSocketLine(buf, sizeof(buf)), -1);
    std::string err = cap.finish();
    const std::string full = "_error_ Node " + longName + ", port -1: End-of-file encountered!";
    EXPECT_TRUE(matches(printed(lit(full.substr(0, 199))), err)) << err;
}

// The reader looks ahead and takes exactly what a reading of one byte per recv
// would take: the tests below pin the bytes left in the socket.

namespace {

// Everything still waiting in the socket, without blocking.
std::string waiting(int fd)
{
    std::string out;
    char buf[65536];
    for (ssize_t n; (n = recv(fd, buf, sizeof(buf), MSG_DONTWAIT)) > 0;)
        out.append(buf, static_cast<size_t>(n));
    return out;
}

} // namespace

TEST(ReadSocketLine, OverrunTakesExactlySizeBytesWithLinesWaitingBehind)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = p.mine;
    p.send("abcdefghij\nnext\nlast\n");
    char buf[8];
    EXPECT_EQ(e.readSocketLine(buf, 8), -1);
    EXPECT_EQ(std::string(buf, 7), "abcdefg");
    // "h" overran and was taken; the rest of the line and the lines behind it wait.
    EXPECT_EQ(waiting(p.mine), "ij\nnext\nlast\n");
}

TEST(ReadSocketLine, SizeOneOverrunsAtTheFirstByteAndTakesOnlyIt)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = p.mine;
    p.send("x\ny\n");
    char buf[1] = {'#'};
    EXPECT_EQ(e.readSocketLine(buf, 1), -1);
    EXPECT_EQ(buf[0], '#');
    EXPECT_EQ(waiting(p.mine), "\ny\n");
}

TEST(ReadSocketLine, LineLongerThanOneLookAheadIsReadWholeAndItsOverrunIsExact)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = p.mine;
    const std::string longLine(10000, 'L');
    p.send(longLine + "\nafter\n" + longLine + "\ntail\n");
    std::vector<char> buf(20000);
    EXPECT_EQ(e.readSocketLine(buf.data(), 20000), 10000);
    EXPECT_EQ(std::string(buf.data()), longLine);
    // With a buffer of 5000 bytes the 5000th byte of the line overruns.
    EXPECT_EQ(e.readSocketLine(buf.data(), 20000), 5);
    EXPECT_STREQ(buf.data(), "after");
    EXPECT_EQ(e.readSocketLine(buf.data(), 5000), -1);
    EXPECT_EQ(std::string(buf.data(), 4999), longLine.substr(0, 4999));
    EXPECT_EQ(waiting(p.mine), std::string(5000, 'L') + "\ntail\n");
}

TEST(ReadSocketLine, EndOfStreamMidLineTakesThePartialLine)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = p.mine;
    e.reportErrors = 1;
    p.send("done\npart");
    p.closePeer();
    char buf[16];
    EXPECT_EQ(e.readSocketLine(buf, sizeof(buf)), 4);
    EXPECT_STREQ(buf, "done");
    memset(buf, '#', sizeof(buf));
    StderrCapture cap;
    EXPECT_EQ(e.readSocketLine(buf, sizeof(buf)), -1);
    std::string err = cap.finish();
    EXPECT_TRUE(matches(printed(lit("_error_ Node /peer, port -1: End-of-file encountered!")), err)) << err;
    // The partial line was taken (and stored, without a terminator).
    EXPECT_EQ(std::string(buf, 5), "part#");
    EXPECT_EQ(e.read(buf, sizeof(buf)), 0);
}

TEST(ReadSocketLine, LineArrivingInPiecesIsWaitedFor)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = p.mine;
    p.send("ab");
    std::thread later([&] {
        usleep(50000);
        p.send("c");
        usleep(20000);
        p.send("d\nnext\n");
    });
    char buf[16];
    EXPECT_EQ(e.readSocketLine(buf, sizeof(buf)), 4);
    later.join();
    EXPECT_STREQ(buf, "abcd");
    EXPECT_EQ(waiting(p.mine), "next\n");
}

TEST(ReadSocketLine, DescriptorHandedBetweenTheReadersLosesNothing)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = p.mine;
    Collected got;
    e.callback = collect;
    e.callbackData = &got;
    // Every line is in the socket before the first one is read.
    p.send("one\ntwo\nthree\n_event_ e1\nfour\nfive\nsix\n_event_ e2\nseven\n");
    char buf[64];
    EXPECT_EQ(e.readSocketLine(buf, sizeof(buf)), 3);
    EXPECT_STREQ(buf, "one");
    EXPECT_EQ(e.read(buf, 4), 4);
    EXPECT_EQ(std::string(buf, 4), "two\n");
    EXPECT_EQ(tavrel_readlnSocket(p.mine, buf), 10);
    EXPECT_STREQ(buf, "three");
    EXPECT_EQ(e.readSocketLine(buf, sizeof(buf)), 4);
    EXPECT_STREQ(buf, "four");
    EXPECT_EQ(got.lines, (std::vector<std::string>{"_event_ e1"}));
    EXPECT_EQ(tavrel_readlnSocket(p.mine, buf), 10);
    EXPECT_STREQ(buf, "five");
    EXPECT_EQ(e.read(buf, 2), 2);
    EXPECT_EQ(std::string(buf, 2), "si");
    EXPECT_EQ(e.readSocketLine(buf, sizeof(buf)), 1);
    EXPECT_STREQ(buf, "x");
    EXPECT_EQ(e.readSocketLine(buf, sizeof(buf)), 5);
    EXPECT_STREQ(buf, "seven");
    EXPECT_EQ(got.lines, (std::vector<std::string>{"_event_ e1", "_event_ e2"}));
    EXPECT_EQ(waiting(p.mine), "");
}

// ---------------------------------------------------------- drainStringSocket

TEST(DrainStringSocket, SinkVerdictsZeroGoesOnOneEndsOtherIsReturned)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = p.mine;
    char buf[64];

    p.send("a\n\nc\nd\n");
    SinkScript s1;
    s1.verdicts = {0, 0, 1};
    EXPECT_EQ(e.drainStringSocket(buf, sizeof(buf), scriptedSink, &s1), 0);
    EXPECT_EQ(s1.lines, (std::vector<std::string>{"a", "", "c"}));

    SinkScript s2;
    s2.verdicts = {7};
    EXPECT_EQ(e.drainStringSocket(buf, sizeof(buf), scriptedSink, &s2), 7);
    EXPECT_EQ(s2.lines, (std::vector<std::string>{"d"}));

    p.send("x\n");
    p.closePeer();
    SinkScript s3;
    EXPECT_EQ(e.drainStringSocket(buf, sizeof(buf), scriptedSink, &s3), -1);
    EXPECT_EQ(s3.lines, (std::vector<std::string>{"x"}));
}

TEST(DrainStringSocket, SpoolsUpToTheEndLineWithBlastLineToFile)
{
    Pair p;
    Tavrel_ConnectionElement e("/peer", -1);
    e.sock = p.mine;
    p.send("_node_ a\n_event_ x\n\n_response_ end\nafter\n");
    FILE* f = fopen("/tmp/spool", "w+");
    ASSERT_NE(f, nullptr);
    char buf[64];
    EXPECT_EQ(e.drainStringSocket(buf, sizeof(buf), tavrel_blastLineToFile, f), 0);
    fclose(f);
    EXPECT_EQ(readFile("/tmp/spool"), "_node_ a\n\n_response_ end\n");
    char rest[16] = {};
    EXPECT_EQ(recv(p.mine, rest, sizeof(rest), MSG_DONTWAIT), 6);
}

// ----------------------------------------------------------------- handshake

TEST(Handshake, NamedSocketSucceedsWithoutSendingAByte)
{
    FakeDaemon daemon;
    Tavrel_ConnectionElement e(vesk_named_socket, -1);
    ASSERT_GE(e.connectSocket(0), 0);
    EXPECT_EQ(e.handshake(), 0);
    EXPECT_TRUE(daemon.waitForConnections(1));
    usleep(50000);
    EXPECT_EQ(daemon.received(), "");
    EXPECT_GE(e.sock, 0);
}

TEST(Handshake, ClosedElementHasNothingToDo)
{
    Tavrel_ConnectionElement e("127.0.0.1", 1);
    StderrCapture cap;
    EXPECT_EQ(e.handshake(), 0);
    EXPECT_EQ(cap.finish(), "");
}

TEST(Handshake, GoodReplyOverTcp)
{
    FakeDaemon daemon;
    daemon.setHandshakeReply(words({0xF3689038u, 0, 0x12345678u, 0, 0}));
    int port = daemon.startTcp();
    Tavrel_ConnectionElement e("127.0.0.1", port);
    ASSERT_GE(e.connectSocket(1), 0);
    StderrCapture cap;
    EXPECT_EQ(e.handshake(), 0);
    EXPECT_EQ(cap.finish(), "");
    ASSERT_TRUE(daemon.waitForHandshakes(1));
    const std::vector<unsigned char> expected = {0xF3, 0x68, 0x90, 0x38, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                                 0,    0,    0,    0,    0, 0, 0, 0, 0, 12, 0, 0, 0, 0,
                                                 0,    0,    0,    7,    0, 0, 0, 0, 0, 0, 0, 2};
    EXPECT_EQ(daemon.handshakes()[0], expected);
    EXPECT_GE(e.sock, 0);
}

TEST(Handshake, BadMagicFailsWithTheWarning)
{
    FakeDaemon daemon;
    daemon.setHandshakeReply(words({0xF3689039u, 0, 0, 0, 0}));
    int port = daemon.startTcp();
    Tavrel_ConnectionElement e("127.0.0.1", port);
    ASSERT_GE(e.connectSocket(0), 0);
    StderrCapture cap;
    EXPECT_EQ(e.handshake(), 1);
    std::string err = cap.finish();
    EXPECT_TRUE(matches(printed("Warning: Failed to handshake with 127\\.0\\.0\\.1"), err)) << err;
    EXPECT_EQ(e.sock, -1);
}

TEST(Handshake, NonZeroSecondWordFails)
{
    FakeDaemon daemon;
    daemon.setHandshakeReply(words({0xF3689038u, 1, 0, 0, 0}));
    int port = daemon.startTcp();
    Tavrel_ConnectionElement e("127.0.0.1", port);
    ASSERT_GE(e.connectSocket(0), 0);
    StderrCapture cap;
    EXPECT_EQ(e.handshake(), 1);
    cap.finish();
    EXPECT_EQ(e.sock, -1);
}

TEST(Handshake, ShortReplyFails)
{
    FakeDaemon daemon;
    daemon.setHandshakeReply(words({0xF3689038u, 0, 0}));
    int port = daemon.startTcp();
    Tavrel_ConnectionElement e("127.0.0.1", port);
    ASSERT_GE(e.connectSocket(0), 0);
    StderrCapture cap;
    EXPECT_EQ(e.handshake(), 1);
    std::string err = cap.finish();
    EXPECT_TRUE(matches(printed("Warning: Failed to handshake with 127\\.0\\.0\\.1"), err)) << err;
    EXPECT_EQ(e.sock, -1);
    ASSERT_TRUE(daemon.waitForHandshakes(1));
    EXPECT_EQ(daemon.handshakes()[0].size(), 40u);
}
