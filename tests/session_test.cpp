// The request session: start and end, the round trip of a request, the spool
// and its scanners, the reconnection rule of sendCommand and its exits.
#include <quelvane/tavrel_wrapper_utils.h>

#include "support/fake_daemon.h"
#include "support/files.h"
#include "support/printed_text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fcntl.h>
#include <memory>
#include <regex>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace qvtest;

namespace {

const char kSpool[] = "/var/vesk/tavrel/response";

std::vector<std::string> gEvents;

int recordEvent(char* line, void* data)
{
    gEvents.push_back(std::string(line) + (data == nullptr ? "" : " (with data)"));
    return 0;
}

// The spool as it stands on disk once the session's stream is flushed.
std::string spoolOf(TavrelWrapperUtils* s)
{
    fflush(s->responseFile);
    return readFile(kSpool);
}

// A session made directly, as the polling and the events side make theirs.
std::unique_ptr<TavrelWrapperUtils> makeSession(int debug = 0)
{
    MErrno err = -1;
    std::unique_ptr<TavrelWrapperUtils> s(new TavrelWrapperUtils(&err, debug));
    EXPECT_EQ(err, 0);
    return s;
}

// Descriptors that use up the limit in a death test child; released again by
// an exit handler, before the static destructors run (the sanitizers need
// descriptors of their own there).
int gFillers[4096];
int gFillerCount = 0;

void releaseFillers()
{
    for (int i = 0; i < gFillerCount; ++i)
        close(gFillers[i]);
    gFillerCount = 0;
}

const std::vector<std::string> kNodes = {
    "_node_ _name_ 'alpha 1' _ip_ 10.0.0.1 _status_ up _rc_ 0",
    "_node_ _name_ beta _ip_ 10.0.0.2 _status_ down _rc_ 3",
};

} // namespace

// ------------------------------------------------------------ start and end

TEST(SessionInit, WithoutDaemonFailsWithBothTexts)
{
    StderrCapture cap;
    EXPECT_EQ(TavrelWrapperUtils::init(0), 1);
    std::string err = cap.finish();
    EXPECT_EQ(theTavrelWrapperUtils, nullptr);
    EXPECT_TRUE(matches(printed("Error: Failed to connect") + printed("Error: Failed to make connection"), err))
        << err;
}

TEST(SessionInit, WithoutDaemonAtDebugOneAlsoReportsTheConnectError)
{
    StderrCapture cap;
    EXPECT_EQ(TavrelWrapperUtils::init(1), 1);
    std::string err = cap.finish();
    std::vector<std::string> lines = splitLines(err);
    ASSERT_EQ(lines.size(), 6u) << err;
    EXPECT_EQ(lines[0], "_info_ connectSocket: Connecting to /var/vesk/tavrel/tavrelSocket...");
    EXPECT_EQ(lines[1], "_info_ connectSocket: Using named socket /var/vesk/tavrel/tavrelSocket...");
    EXPECT_EQ(lines[2].rfind("_info_ connectSocket: port -1, socket ", 0), 0u);
    EXPECT_TRUE(matches(printed("_error_ Node /var/vesk/tavrel/tavrelSocket, port -1: Error 2 connecting "
                                "stream socket: No such file or directory") +
                            printed("Error: Failed to connect") + printed("Error: Failed to make connection"),
                        lines[3] + "\n" + lines[4] + "\n" + lines[5] + "\n"))
        << err;
}

TEST(SessionInit, MakesOneInstanceAndTermClearsIt)
{
    FakeDaemon daemon;
    ASSERT_EQ(TavrelWrapperUtils::init(0), 0);
    TavrelWrapperUtils* first = theTavrelWrapperUtils;
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(TavrelWrapperUtils::init(0), 0);
    EXPECT_EQ(theTavrelWrapperUtils, first);
    EXPECT_TRUE(daemon.waitForConnections(1));
    EXPECT_EQ(daemon.connectionsAccepted(), 1u);
    TavrelWrapperUtils::term();
    EXPECT_EQ(theTavrelWrapperUtils, nullptr);
    TavrelWrapperUtils::term();
    EXPECT_EQ(theTavrelWrapperUtils, nullptr);
}

TEST(SessionInit, ConstructorSetsItsFields)
{
    FakeDaemon daemon;
    auto s = makeSession(2);
    EXPECT_STREQ(s->responsePath, kSpool);
    EXPECT_EQ(s->debug, 2);
    ASSERT_NE(s->connection, nullptr);
    EXPECT_STREQ(s->connection->nodeName, "/var/vesk/tavrel/tavrelSocket");
    EXPECT_EQ(s->connection->port, -1);
    EXPECT_EQ(s->connection->trace, 2);
    EXPECT_EQ(s->connection->reportErrors, 1u);
    EXPECT_GE(s->connection->get_socket(), 0);
    ASSERT_NE(s->responseFile, nullptr);
    EXPECT_TRUE(fileExists(kSpool));
    EXPECT_EQ(s->eventPipeIn, nullptr);
    EXPECT_EQ(s->eventPipeOut, nullptr);
    EXPECT_EQ(s->tokenSave, nullptr);

    auto quiet = makeSession(0);
    EXPECT_EQ(quiet->connection->trace, 0);
    EXPECT_EQ(quiet->connection->reportErrors, 0u);
}

TEST(SessionInit, SpoolThatCannotBeMadeFailsBeforeConnecting)
{
    ASSERT_EQ(rmdir("/var/vesk/tavrel"), 0);
    StderrCapture cap;
    EXPECT_EQ(TavrelWrapperUtils::init(0), 1);
    std::string err = cap.finish();
    EXPECT_EQ(theTavrelWrapperUtils, nullptr);
    EXPECT_TRUE(matches(printed("Error: Failed to make response file"), err)) << err;
}

TEST(SessionInit, SecondInstanceEmptiesTheSharedSpool)
{
    FakeDaemon daemon;
    daemon.respond("get nodes", Response(kNodes));
    auto s = makeSession();
    ASSERT_EQ(s->processCommand("get nodes"), 0);
    EXPECT_EQ(splitLines(spoolOf(s.get())).size(), 3u);
    auto other = makeSession();
    EXPECT_EQ(spoolOf(s.get()), "");
    EXPECT_TRUE(daemon.waitForConnections(2));
}

TEST(SessionInit, DestructorLeavesTheEventPipeOpen)
{
    FakeDaemon daemon;
    auto s = makeSession();
    s->registerEvents(recordEvent);
    int in = fileno(s->eventPipeIn);
    int out = fileno(s->eventPipeOut);
    FILE* inStream = s->eventPipeIn;
    FILE* outStream = s->eventPipeOut;
    s.reset();
    EXPECT_GE(fcntl(in, F_GETFD), 0);
    EXPECT_GE(fcntl(out, F_GETFD), 0);
    fclose(inStream);
    fclose(outStream);
}

// ------------------------------------------------------------- round trip

TEST(SessionRequest, RoundTripBytesSpoolAndScanners)
{
    FakeDaemon daemon;
    daemon.respond("get nodes", Response(kNodes));
    auto s = makeSession();

    EXPECT_EQ(s->processCommand(" \t  get nodes"), 0);
    EXPECT_EQ(daemon.received(), "get nodes\n");
    EXPECT_EQ(daemon.requestLines(), (std::vector<std::string>{"get nodes"}));
    EXPECT_EQ(spoolOf(s.get()), kNodes[0] + "\n" + kNodes[1] + "\n_response_ end\n");

    EXPECT_EQ(s->prepBuffer(), 0);
    EXPECT_EQ(s->getInstanceCount("_node_"), 2);
    EXPECT_EQ(s->getInstanceCount("_response_"), 1);
    EXPECT_EQ(s->getInstanceCount(""), 3);

    s->prepBuffer();
    EXPECT_EQ(s->getNextResponse("_node_"), 1);
    EXPECT_EQ(s->getNextResponse("_response_"), 0);
    ASSERT_TRUE(s->getNextInstance("_node_"));
    EXPECT_STREQ(s->lineBuffer, kNodes[0].c_str());
    EXPECT_STREQ(s->getBufferedValue("_name_", 0, 256), "alpha 1");
    EXPECT_STREQ(s->getBufferedValue("_ip_", 0, 256), "10.0.0.1");
    EXPECT_STREQ(s->getBufferedValue("_rc_", 0, 256), "0");
    EXPECT_STREQ(s->getBufferedValue("_node_", 1, 256), "_name_");
    EXPECT_STREQ(s->getBufferedValue("_missing_", 0, 256), "");

    EXPECT_STREQ(s->beginParsing(), "_node_");
    std::vector<std::string> tokens;
    for (char* t; (t = s->getNextToken()) != nullptr;)
        tokens.push_back(t);
    EXPECT_EQ(tokens, (std::vector<std::string>{"_name_", "alpha", "1", "_ip_", "10.0.0.1", "_status_", "up",
                                                "_rc_", "0"}));

    // The peek leaves the position where it was.
    EXPECT_EQ(s->getNextResponse("_node_"), 1);
    EXPECT_EQ(s->getNextResponse("_node_"), 1);
    ASSERT_TRUE(s->getNextInstance("_node_"));
    EXPECT_STREQ(s->getBufferedValue("_name_", 0, 256), "beta");
    EXPECT_STREQ(s->getBufferedValue("_rc_", 0, 256), "3");
    EXPECT_EQ(s->getNextResponse("_response_ end"), 1);
    EXPECT_FALSE(s->getNextInstance("_node_"));

    EXPECT_EQ(s->cleanupCommand(), 0);
    EXPECT_EQ(spoolOf(s.get()), "");
    EXPECT_EQ(s->getInstanceCount("_node_"), 0);
}

TEST(SessionRequest, DebugOnePrintsTheCommandAndTheLinesRead)
{
    FakeDaemon daemon;
    daemon.respond("get nodes", Response(kNodes));
    auto s = makeSession(1);
    StderrCapture cap;
    EXPECT_EQ(s->processCommand("  get nodes"), 0);
    s->prepBuffer();
    EXPECT_TRUE(s->getNextInstance("_node_ _name_ beta"));
    std::string err = cap.finish();
    EXPECT_EQ(err, "Processing command   get nodes\n" + kNodes[0] + "\n" + kNodes[1] + "\n");

    StderrCapture cap2;
    EXPECT_EQ(s->getInstanceCount("_node_"), 2);
    EXPECT_EQ(cap2.finish(), kNodes[0] + "\n" + kNodes[1] + "\n_response_ end\n");
}

TEST(SessionRequest, DebugTwoTracesTheWriteAndEveryLineRead)
{
    FakeDaemon daemon;
    daemon.respond("tavrel v", {"_tavrel::v_ _rc_ 0", "_event_ x"});
    auto s = makeSession(2);
    StderrCapture cap;
    EXPECT_EQ(s->processCommand("tavrel v"), 0);
    EXPECT_EQ(cap.finish(), "Processing command tavrel v\n"
                            "_trace_ Node /var/vesk/tavrel/tavrelSocket, port -1: Wrote 9 bytes\n"
                            "_trace_ Node /var/vesk/tavrel/tavrelSocket, port -1: Read 18 bytes\n"
                            "_trace_ Node /var/vesk/tavrel/tavrelSocket, port -1: Read 9 bytes\n"
                            "_trace_ Discarding event message: '_event_ x'\n"
                            "_trace_ Node /var/vesk/tavrel/tavrelSocket, port -1: Read 14 bytes\n");
}

TEST(SessionRequest, InterleavedEventsReachTheCallbackAndNeverTheSpool)
{
    FakeDaemon daemon;
    daemon.respond("get nodes", {kNodes[0], "_event_ nodeDown _node_ 10.0.0.7", kNodes[1],
                                 "_event_ fsMounted _fs_ gpfs1"});
    auto s = makeSession();
    gEvents.clear();
    s->registerEvents(recordEvent);
    ASSERT_NE(s->eventPipeIn, nullptr);
    ASSERT_NE(s->eventPipeOut, nullptr);
    EXPECT_EQ(s->connection->callbackData, nullptr);
    EXPECT_EQ(s->processCommand("get nodes"), 0);
    EXPECT_EQ(gEvents, (std::vector<std::string>{"_event_ nodeDown _node_ 10.0.0.7", "_event_ fsMounted _fs_ gpfs1"}));
    EXPECT_EQ(spoolOf(s.get()), kNodes[0] + "\n" + kNodes[1] + "\n_response_ end\n");
}

TEST(SessionRequest, WithoutCallbackInterleavedEventsVanish)
{
    FakeDaemon daemon;
    daemon.respond("get nodes", {"_event_ lost", kNodes[0]});
    auto s = makeSession();
    EXPECT_EQ(s->processCommand("get nodes"), 0);
    EXPECT_EQ(spoolOf(s.get()), kNodes[0] + "\n_response_ end\n");
}

TEST(SessionRequest, EmptyResponseLeavesOnlyTheEndLine)
{
    FakeDaemon daemon;
    auto s = makeSession();
    EXPECT_EQ(s->processCommand("get clusterinfo"), 0);
    EXPECT_EQ(spoolOf(s.get()), "_response_ end\n");
    s->prepBuffer();
    EXPECT_EQ(s->getInstanceCount("_cluster_"), 0);
    s->prepBuffer();
    EXPECT_FALSE(s->getNextInstance("_cluster_"));
    // The read at the end of the file left an empty line behind.
    EXPECT_STREQ(s->lineBuffer, "");
    s->prepBuffer();
    ASSERT_TRUE(s->getNextInstance(""));
    EXPECT_STREQ(s->lineBuffer, "_response_ end");
    s->cleanupCommand();
}

TEST(SessionRequest, SecondRequestWithoutCleanupAppends)
{
    FakeDaemon daemon;
    daemon.respond("tavrel nc", {"_tavrel::nc_ _n_ 1"});
    daemon.respond("tavrel v", {"_tavrel::v_ _rc_ 0"});
    auto s = makeSession();
    EXPECT_EQ(s->processCommand("tavrel nc"), 0);
    EXPECT_EQ(s->processCommand("tavrel v"), 0);
    EXPECT_EQ(spoolOf(s.get()), "_tavrel::nc_ _n_ 1\n_response_ end\n_tavrel::v_ _rc_ 0\n_response_ end\n");
    s->prepBuffer();
    EXPECT_EQ(s->getInstanceCount("_response_ end"), 2);
}

TEST(SessionRequest, OverlongRequestIsCutToTheBuffer)
{
    FakeDaemon daemon;
    auto s = makeSession();
    std::string request(20000, 'r');
    EXPECT_EQ(s->sendCommand(request.c_str()), 0);
    ASSERT_TRUE(daemon.waitForRequests(1));
    EXPECT_EQ(daemon.received(), std::string(10238, 'r') + "\n");
}

// The response is taken a block at a time, never beyond its end line, with
// the results of a reading line by line.

TEST(SessionRequest, ResponseTakesNothingBehindItsEndLine)
{
    FakeDaemon daemon;
    // About 100 KB of response (more than one block), and behind its end
    // line, in the same write, bytes that belong to no response yet.
    std::vector<std::string> lines;
    std::string expected;
    for (int i = 0; i < 1500; ++i) {
        lines.push_back("_node_ _name_ n" + std::to_string(i) + " _ip_ 10.0." + std::to_string(i / 256) + "." +
                        std::to_string(i % 256) + " _status_ up _rc_ 0");
        expected += lines.back() + "\n";
    }
    lines.push_back("_response_ end");
    lines.push_back("_event_ later");
    lines.push_back("tail");
    Response r(lines);
    r.appendEnd = false;
    daemon.respond("get nodes", r);
    auto s = makeSession();
    gEvents.clear();
    s->registerEvents(recordEvent);
    ASSERT_EQ(s->processCommand("get nodes"), 0);
    EXPECT_EQ(spoolOf(s.get()), expected + "_response_ end\n");
    EXPECT_TRUE(gEvents.empty());
    // What follows the end line is all still in the socket.
    const std::string behind = "_event_ later\ntail\n";
    std::string rest;
    char buf[256];
    while (rest.size() < behind.size()) {
        int n = s->connection->read(buf, sizeof(buf));
        ASSERT_GT(n, 0);
        rest.append(buf, static_cast<size_t>(n));
    }
    EXPECT_EQ(rest, behind);
}

TEST(SessionRequest, EventsAmidALongResponseReachTheCallbackInOrder)
{
    FakeDaemon daemon;
    std::vector<std::string> lines;
    std::vector<std::string> events;
    std::string expected;
    for (int i = 0; i < 3000; ++i) {
        if (i % 97 == 0) {
            events.push_back("_event_ mount _node_ n" + std::to_string(i) + " _fs_ f");
            lines.push_back(events.back());
        }
        lines.push_back("_node_ _name_ n" + std::to_string(i) + " _status_ up");
        expected += lines.back() + "\n";
    }
    daemon.respond("get nodes", Response(lines));
    auto s = makeSession();
    gEvents.clear();
    s->registerEvents(recordEvent);
    ASSERT_EQ(s->processCommand("get nodes"), 0);
    EXPECT_EQ(gEvents, events);
    EXPECT_EQ(spoolOf(s.get()), expected + "_response_ end\n");
    s->prepBuffer();
    EXPECT_EQ(s->getInstanceCount("_node_"), 3000);
}

TEST(SessionRequest, LineWithAZeroByteIsSpooledAsTheStringItHolds)
{
    FakeDaemon daemon;
    Response r({std::string("_node_ a\0hidden", 15), "_node_ b", std::string("_response_ end\0x", 16), "behind"});
    r.appendEnd = false;
    daemon.respond("get nodes", r);
    auto s = makeSession();
    ASSERT_EQ(s->processCommand("get nodes"), 0);
    // The end line, read as a string, ends the response.
    EXPECT_EQ(spoolOf(s.get()), "_node_ a\n_node_ b\n_response_ end\n");
    char buf[16];
    EXPECT_EQ(s->connection->read(buf, sizeof(buf)), 7);
    EXPECT_EQ(std::string(buf, 7), "behind\n");
}

TEST(SessionRequest, LineLongerThanABlockIsSpooledWhole)
{
    FakeDaemon daemon;
    const std::string longLine = "_tavrel::x_ _v_ " + std::string(200000, 'v');
    daemon.respond("tavrel x", {"_a_ 1", longLine, "_b_ 2"});
    auto s = makeSession();
    ASSERT_EQ(s->processCommand("tavrel x"), 0);
    EXPECT_EQ(spoolOf(s.get()), "_a_ 1\n" + longLine + "\n_b_ 2\n_response_ end\n");
    s->prepBuffer();
    ASSERT_TRUE(s->getNextInstance("_tavrel::x_"));
    EXPECT_EQ(strlen(s->lineBuffer), longLine.size());
}

TEST(SessionRequest, OverrunInAResponseTakesExactlyTheLineBuffer)
{
    FakeDaemon daemon;
    // The line buffer holds 1048576 bytes: the 1048576th byte of this line
    // overruns, and all behind it stays in the socket.
    const std::string huge(1048576 + 100, 'h');
    daemon.respond("tavrel big", {"_before_ 1", huge});
    auto s = makeSession(1);
    StderrCapture cap;
    ASSERT_EQ(s->processCommand("tavrel big"), 0);
    std::string err = cap.finish();
    EXPECT_TRUE(matches("Processing command tavrel big\n" +
                            printed(lit("_error_ Node /var/vesk/tavrel/tavrelSocket, port -1: Read overrun of "
                                        "1048576 byte buffer!")),
                        err))
        << err;
    EXPECT_EQ(spoolOf(s.get()), "_before_ 1\n");
    const std::string behind = std::string(100, 'h') + "\n_response_ end\n";
    std::string rest;
    std::vector<char> buf(4096);
    while (rest.size() < behind.size()) {
        int n = s->connection->read(buf.data(), static_cast<int>(buf.size()));
        ASSERT_GT(n, 0);
        rest.append(buf.data(), static_cast<size_t>(n));
    }
    EXPECT_EQ(rest, behind);
}

TEST(SessionRequest, EndOfStreamMidLineSpoolsTheWholeLinesAndTakesThePart)
{
    FakeDaemon daemon;
    Response silent;
    silent.silent = true;
    daemon.respond("get nodes", silent);
    auto s = makeSession(1);
    std::thread peer([&] {
        ASSERT_TRUE(daemon.waitForRequests(1));
        daemon.pushRaw("_node_ a\n_node_ pa");
        daemon.dropConnections();
    });
    StderrCapture cap;
    EXPECT_EQ(s->processCommand("get nodes"), 0);
    std::string err = cap.finish();
    peer.join();
    EXPECT_TRUE(matches("Processing command get nodes\n" +
                            printed(lit("_error_ Node /var/vesk/tavrel/tavrelSocket, port -1: End-of-file "
                                        "encountered!")),
                        err))
        << err;
    EXPECT_EQ(spoolOf(s.get()), "_node_ a\n");
    // The part of a line was taken: nothing is left but the end of the stream.
    char buf[16];
    EXPECT_EQ(s->connection->read(buf, sizeof(buf)), 0);
}

TEST(SessionRequest, CleanupWhoseReopeningFailsLeavesAnEmptySpoolUntilOneSucceeds)
{
    FakeDaemon daemon;
    daemon.respond("get nodes", Response(kNodes));
    daemon.respond("get nodes", {"_node_ lost"});
    daemon.respond("get nodes", {"_node_ _name_ again"});
    auto s = makeSession();
    ASSERT_EQ(s->processCommand("get nodes"), 0);
    // The spool's path is taken by a directory: the reopening fails.
    ASSERT_EQ(unlink(kSpool), 0);
    ASSERT_EQ(mkdir(kSpool, 0755), 0);
    EXPECT_EQ(s->cleanupCommand(), 0);
    EXPECT_EQ(s->responseFile, nullptr);

    // The spool counts as empty, and the response is read and dropped.
    EXPECT_EQ(s->processCommand("get nodes"), 0);
    EXPECT_EQ(s->prepBuffer(), 0);
    strcpy(s->lineBuffer, "stale");
    EXPECT_FALSE(s->getNextInstance("_node_"));
    EXPECT_STREQ(s->lineBuffer, "");
    EXPECT_EQ(s->getNextResponse(""), 0);
    EXPECT_EQ(s->getInstanceCount(""), 0);
    EXPECT_EQ(s->cleanupCommand(), 0);
    EXPECT_EQ(s->responseFile, nullptr);

    // Once the path is free again the next cleanup reopens the spool, and the
    // next response is the next one on the wire.
    ASSERT_EQ(rmdir(kSpool), 0);
    EXPECT_EQ(s->cleanupCommand(), 0);
    ASSERT_NE(s->responseFile, nullptr);
    ASSERT_EQ(s->processCommand("get nodes"), 0);
    EXPECT_EQ(spoolOf(s.get()), "_node_ _name_ again\n_response_ end\n");
    s->prepBuffer();
    ASSERT_TRUE(s->getNextInstance("_node_"));
    EXPECT_STREQ(s->getBufferedValue("_name_", 0, 256), "again");
    EXPECT_EQ(daemon.requestLines(), (std::vector<std::string>{"get nodes", "get nodes", "get nodes"}));
}

// ----------------------------------------------------------------- scanners

TEST(SessionScan, PrefixMatchTakesAnyLineBeginningSo)
{
    FakeDaemon daemon;
    daemon.respond("tavrel pncs", {"_tavrel::pncs_ _n_ 4", "_other_ x", "_tavrel_ y"});
    auto s = makeSession();
    ASSERT_EQ(s->processCommand("tavrel pncs"), 0);
    s->prepBuffer();
    EXPECT_EQ(s->getInstanceCount("_tavrel"), 2);
    s->prepBuffer();
    ASSERT_TRUE(s->getNextInstance("_tavrel"));
    EXPECT_STREQ(s->lineBuffer, "_tavrel::pncs_ _n_ 4");
    ASSERT_TRUE(s->getNextInstance("_tavrel"));
    EXPECT_STREQ(s->lineBuffer, "_tavrel_ y");
    EXPECT_FALSE(s->getNextInstance("_tavrel"));
}

TEST(SessionScan, GetNextResponseAtEndOfFileGivesZeroAndKeepsThePosition)
{
    FakeDaemon daemon;
    auto s = makeSession();
    ASSERT_EQ(s->processCommand("get nodes"), 0);
    s->prepBuffer();
    EXPECT_FALSE(s->getNextInstance("_x_"));
    long pos = ftell(s->responseFile);
    EXPECT_EQ(s->getNextResponse(""), 0);
    EXPECT_EQ(s->getNextResponse("_response_"), 0);
    EXPECT_EQ(ftell(s->responseFile), pos);
}

TEST(SessionScan, GetInstanceCountOnAnEmptySpoolIsZero)
{
    FakeDaemon daemon;
    auto s = makeSession();
    EXPECT_EQ(s->getInstanceCount(""), 0);
    EXPECT_EQ(s->getInstanceCount("_node_"), 0);
}

TEST(SessionScan, GetInstanceCountLeavesThePositionAtTheEnd)
{
    FakeDaemon daemon;
    daemon.respond("get nodes", Response(kNodes));
    auto s = makeSession();
    ASSERT_EQ(s->processCommand("get nodes"), 0);
    s->prepBuffer();
    EXPECT_EQ(s->getInstanceCount("_node_"), 2);
    EXPECT_FALSE(s->getNextInstance(""));
}

TEST(SessionScan, BeginParsingGivesTheFirstWordGetNextTokenTheRest)
{
    FakeDaemon daemon;
    auto s = makeSession();
    EXPECT_EQ(s->getNextToken(), nullptr);   // nothing begun yet
    strcpy(s->lineBuffer, "_fs_ _name_ 'gpfs 1' _q_ ' _e_ '' _t_ \tlast");
    EXPECT_STREQ(s->beginParsing(), "_fs_");
    std::vector<std::string> tokens;
    for (char* t; (t = s->getNextToken()) != nullptr;)
        tokens.push_back(t);
    EXPECT_EQ(tokens, (std::vector<std::string>{"_name_", "gpfs", "1", "_q_", "", "_e_", "", "_t_", "last"}));
    EXPECT_EQ(s->getNextToken(), nullptr);
    // beginParsing starts over on what is now in lineBuffer.
    strcpy(s->lineBuffer, "again now");
    EXPECT_STREQ(s->beginParsing(), "again");
    EXPECT_STREQ(s->getNextToken(), "now");
}

TEST(SessionScan, BufferedValueOfTheLastPairIsTheRestOfTheLine)
{
    FakeDaemon daemon;
    auto s = makeSession();
    strcpy(s->lineBuffer, "_tavrel::fis_ _fs_ gpfs1 _rc_ 17");
    EXPECT_STREQ(s->getBufferedValue("_rc_", 0, 256), "17");
    EXPECT_STREQ(s->getBufferedValue("_fs_", 0, 256), "gpfs1");
}

TEST(SessionScan, BufferedValueNeedsABlankBeforeTheKeyword)
{
    FakeDaemon daemon;
    auto s = makeSession();
    strcpy(s->lineBuffer, "_disk_ d1 _pool_ system");
    EXPECT_STREQ(s->getBufferedValue("_disk_", 0, 256), "");
    EXPECT_STREQ(s->getBufferedValue("_disk_", 1, 256), "d1");
    EXPECT_STREQ(s->getBufferedValue("_pool_", 0, 256), "system");
    EXPECT_STREQ(s->getBufferedValue("_pool_", 1, 256), "system");
}

TEST(SessionScan, BufferedValueIsCopiedUpToLenAndReusedByTheNextCall)
{
    FakeDaemon daemon;
    auto s = makeSession();
    const std::string longValue(300, 'v');
    strcpy(s->lineBuffer, ("_x_ _long_ " + longValue + " _short_ ab").c_str());
    char* first = s->getBufferedValue("_long_", 0, 256);
    EXPECT_EQ(first, s->valueCopy);
    EXPECT_EQ(std::string(first, 256), std::string(256, 'v'));
    EXPECT_STREQ(s->valueBuffer, longValue.c_str());
    char* second = s->getBufferedValue("_short_", 0, 256);
    EXPECT_EQ(second, first);
    EXPECT_STREQ(first, "ab");
}

namespace {

// The spool as the scanners find it, written here directly.
void writeSpool(TavrelWrapperUtils* s, const std::string& bytes)
{
    rewind(s->responseFile);
    ASSERT_EQ(fwrite(bytes.data(), 1, bytes.size(), s->responseFile), bytes.size());
    rewind(s->responseFile);
}

} // namespace

TEST(SessionScan, GetNextResponseNeedsTheWholePrefixAndTheLinesNewline)
{
    FakeDaemon daemon;
    auto s = makeSession();
    writeSpool(s.get(), "_no\n_node_ x\n_node_ last");
    EXPECT_EQ(s->getNextResponse("_node_"), 0);   // shorter than the prefix
    EXPECT_EQ(s->getNextResponse("_no"), 1);
    EXPECT_EQ(s->getNextResponse(""), 1);
    ASSERT_TRUE(s->getNextInstance(""));
    EXPECT_EQ(s->getNextResponse("_node_ x"), 1);
    EXPECT_EQ(s->getNextResponse("_node_ y"), 0);
    ASSERT_TRUE(s->getNextInstance(""));
    // A last line without its newline is not found, though it begins so.
    EXPECT_EQ(s->getNextResponse("_node_"), 0);
    EXPECT_EQ(s->getNextResponse(""), 0);
    EXPECT_FALSE(s->getNextInstance(""));
    EXPECT_STREQ(s->lineBuffer, "_node_ last");
}

TEST(SessionScan, LineWithAZeroByteIsReadAsByCharacters)
{
    FakeDaemon daemon;
    auto s = makeSession();
    memset(s->lineBuffer, '#', 32);
    writeSpool(s.get(), std::string("ab\0cd\nef\n", 9));
    ASSERT_TRUE(s->getNextInstance(""));
    EXPECT_EQ(std::string(s->lineBuffer, 6), std::string("ab\0cd\0", 6));
    ASSERT_TRUE(s->getNextInstance("ef"));
    EXPECT_FALSE(s->getNextInstance(""));
    s->prepBuffer();
    EXPECT_EQ(s->getInstanceCount("ab"), 1);
}

TEST(SessionScan, LineLongerThanTheLineBufferIsCutAndTheNextLineReadWhole)
{
    FakeDaemon daemon;
    auto s = makeSession();
    const std::string huge(1048576 + 10, 'k');
    writeSpool(s.get(), huge + "\n_next_ 1\n");
    ASSERT_TRUE(s->getNextInstance("kk"));
    EXPECT_EQ(strlen(s->lineBuffer), 1048575u);
    ASSERT_TRUE(s->getNextInstance(""));
    EXPECT_STREQ(s->lineBuffer, "_next_ 1");
    s->prepBuffer();
    EXPECT_EQ(s->getInstanceCount("k"), 1);
    EXPECT_EQ(s->getInstanceCount("_next_"), 1);
}

// ------------------------------------------------ lost connection and retry

TEST(SessionReconnect, ResponseCutShortIsSpooledAndTheNextSendGivesTwo)
{
    FakeDaemon daemon;
    Response cut({kNodes[0], kNodes[1]});
    cut.appendEnd = false;
    cut.dropAfter = true;
    daemon.respond("get nodes", cut);
    daemon.respond("get nodes", Response(kNodes));
    auto s = makeSession();

    StderrCapture cap;
    EXPECT_EQ(s->processCommand("get nodes"), 0);
    EXPECT_EQ(cap.finish(), "");   // not reported
    EXPECT_EQ(spoolOf(s.get()), kNodes[0] + "\n" + kNodes[1] + "\n");
    s->prepBuffer();
    EXPECT_EQ(s->getInstanceCount("_node_"), 2);
    s->prepBuffer();
    ASSERT_TRUE(s->getNextInstance("_node_"));
    EXPECT_STREQ(s->getBufferedValue("_name_", 0, 256), "alpha 1");
    s->cleanupCommand();

    // The descriptor is still open after the cut; the send finds out.
    EXPECT_GE(s->connection->get_socket(), 0);
    ASSERT_TRUE(daemon.waitForConnections(1));
    for (int i = 0; i < 200 && daemon.openConnections() != 0; ++i)
        usleep(10000);
    EXPECT_EQ(s->sendCommand("get nodes"), 2);
    EXPECT_TRUE(daemon.waitForConnections(2));
    // The reconnection worked: the request goes out again.
    EXPECT_EQ(s->processCommand("get nodes"), 0);
    EXPECT_EQ(spoolOf(s.get()), kNodes[0] + "\n" + kNodes[1] + "\n_response_ end\n");
    EXPECT_EQ(daemon.requestLines(), (std::vector<std::string>{"get nodes", "get nodes"}));
}

TEST(SessionReconnect, SendOnAClosedConnectionReconnectsAndGivesTwo)
{
    FakeDaemon daemon;
    auto s = makeSession();
    s->connection->close();
    StderrCapture cap;
    EXPECT_EQ(s->sendCommand("tavrel v"), 2);
    EXPECT_EQ(cap.finish(), "");
    EXPECT_GE(s->connection->get_socket(), 0);
    EXPECT_TRUE(daemon.waitForConnections(2));
    EXPECT_EQ(s->processCommand("tavrel v"), 0);
    EXPECT_EQ(daemon.requestLines(), (std::vector<std::string>{"tavrel v"}));
}

TEST(SessionReconnect, DaemonDownGivesTwoEachTimeWithoutExiting)
{
    FakeDaemon daemon;
    auto s = makeSession();
    daemon.stop();
    s->connection->close();
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(s->sendCommand("get nodes"), 2);
    EXPECT_EQ(s->connection->get_socket(), -1);
    EXPECT_EQ(s->processCommand("get nodes"), 2);
}

TEST(SessionReconnect, GetResponseOnAClosedDescriptorReadsNothing)
{
    FakeDaemon daemon;
    auto s = makeSession();
    s->connection->close();
    EXPECT_EQ(s->getResponse("get nodes"), 0);
    EXPECT_EQ(spoolOf(s.get()), "");
}

TEST(SessionReconnectDeathTest, ReconnectionOnDescriptorZeroExits)
{
    EXPECT_EXIT(
        {
            FakeDaemon daemon;
            MErrno err = 0;
            TavrelWrapperUtils* s = new TavrelWrapperUtils(&err, 0);
            // Once the daemon has accepted, nothing else takes a descriptor.
            daemon.waitForConnections(1);
            s->connection->close();
            close(0);
            s->sendCommand("get nodes");
            fprintf(stderr, "still running\n");
            _exit(0);
        },
        ::testing::ExitedWithCode(1),
        printed("Error: ORLU daemon connection failed, exiting\\.\\.\\.") + "$");
}

TEST(SessionEventsDeathTest, PipeFailureInRegisterEventsExits)
{
    EXPECT_EXIT(
        {
            FakeDaemon daemon;
            MErrno err = 0;
            TavrelWrapperUtils* s = new TavrelWrapperUtils(&err, 0);
            daemon.waitForConnections(1);
            // No descriptor left for a pipe.
            struct rlimit low;
            getrlimit(RLIMIT_NOFILE, &low);
            low.rlim_cur = 64;
            setrlimit(RLIMIT_NOFILE, &low);
            for (int fd; gFillerCount < 4096 && (fd = dup(2)) >= 0;)
                gFillers[gFillerCount++] = fd;
            atexit(releaseFillers);
            s->registerEvents(recordEvent);
            fprintf(stderr, "still running\n");
            _exit(0);
        },
        ::testing::ExitedWithCode(1), printed("Error opening event handler pipe\\.") + "$");
}
