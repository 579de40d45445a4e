// Start and end of the polling handler: version and scope tests, the order of
// construction, the node list requests, the log file, the request retry.
#include "support/fake_daemon.h"
#include "support/fake_tool.h"
#include "support/files.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include <quelvane/api_poll.h>
#include <quelvane/command_wrapper_utils.h>
#include <quelvane/kx_log.h>
#include <quelvane/tavrel_wrapper_utils.h>

using namespace qvtest;

namespace {

const std::vector<std::string> kStartStar = {"tavrel n + *", "tavrel ng ~", "tavrel ng + *",
                                             "tavrel ng cnt"};
const std::vector<std::string> kStartAll = {"tavrel n + all", "tavrel ng ~", "tavrel ng + all",
                                            "tavrel ng cnt"};

std::string logPath()
{
    return "/var/vesk/gen/quelvanelog." + std::to_string(getpid());
}

// The version tool answering with `text` and `status` (to any arguments; the
// arguments of each call are checked where it matters).
FakeTool& versionTool(FakeTool& tool, const std::string& text, int status = 0)
{
    tool.output(text, status);
    return tool;
}

} // namespace

TEST(HandlerLifecycle, StartSendsFourNodeListRequestsInOrder)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    versionTool(kx, "3504\n");
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_CLUSTER), 0);
    ASSERT_NE(thePollingHandler, nullptr);
    EXPECT_EQ(kx.calls(), (std::vector<std::string>{"showCfgValue libquelvaneversion"}));
    EXPECT_EQ(daemon.requestLines(), kStartStar);
    EXPECT_EQ(thePollingHandler->tavrelWrapper, theTavrelWrapperUtils);
    EXPECT_EQ(thePollingHandler->commandWrapper, theCommandWrapperUtils);
    EXPECT_NE(theCommandWrapperUtils, nullptr);
    EXPECT_EQ(thePollingHandler->protocol, MGMT_PROTOCOL_DIRECT);
    EXPECT_EQ(thePollingHandler->pollingScope, POLL_LOCAL_CLUSTER);
    EXPECT_EQ(thePollingHandler->debug, 0);
    EXPECT_EQ(thePollingHandler->pid, getpid());
    EXPECT_EQ(thePollingHandler->nNodes, 0);
    EXPECT_TRUE(thePollingHandler->execTaskList.empty());

    PollingHandler::term();
    EXPECT_EQ(thePollingHandler, nullptr);
    EXPECT_EQ(theTavrelWrapperUtils, nullptr);
    EXPECT_EQ(theCommandWrapperUtils, nullptr);
    std::vector<std::string> all = kStartStar;
    all.push_back("tavrel n + *");
    all.push_back("tavrel ng ~");
    EXPECT_EQ(daemon.requestLines(), all);
}

TEST(HandlerLifecycle, AllClustersScopeNamesAll)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    versionTool(kx, "3504\n");
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_CLUSTER | POLL_ALL_CLUSTERS), 0);
    EXPECT_EQ(daemon.requestLines(), kStartAll);
    PollingHandler::term();
    std::vector<std::string> all = kStartAll;
    all.push_back("tavrel n + all");
    all.push_back("tavrel ng ~");
    EXPECT_EQ(daemon.requestLines(), all);
}

TEST(HandlerLifecycle, LocalNodeScopeSendsNothing)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    versionTool(kx, "3504\n");
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_NODE), 0);
    ASSERT_NE(thePollingHandler, nullptr);
    EXPECT_TRUE(daemon.requestLines().empty());
    EXPECT_EQ(thePollingHandler->nNodes, 0);
    PollingHandler::term();
    EXPECT_TRUE(daemon.requestLines().empty());
}

TEST(HandlerLifecycle, NodeCountFromTheCountRequest)
{
    FakeDaemon daemon;
    daemon.respond("tavrel ng cnt", {"_tavrel _n_ 10.0.0.1 _c_ 2 _x_ 9 _c_ 3"});
    FakeTool kx("kxctl");
    versionTool(kx, "3504\n");
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_CLUSTER), 0);
    // A later "_c_" on the line overrides an earlier one.
    EXPECT_EQ(thePollingHandler->nNodes, 3);

    // A count of 0 leaves the earlier value.
    daemon.respond("tavrel ng cnt", {"_tavrel _n_ 10.0.0.1 _c_ 0"});
    thePollingHandler->getPollingLock();
    EXPECT_EQ(thePollingHandler->initNodeList(), 0);
    thePollingHandler->releasePollingLock();
    EXPECT_EQ(thePollingHandler->nNodes, 3);

    // A response without "_c_" leaves it too.
    thePollingHandler->getPollingLock();
    EXPECT_EQ(thePollingHandler->initNodeList(), 0);
    thePollingHandler->releasePollingLock();
    EXPECT_EQ(thePollingHandler->nNodes, 3);
    PollingHandler::term();
}

TEST(HandlerLifecycle, NodeListLogTexts)
{
    FakeDaemon daemon;
    daemon.respond("tavrel ng cnt", {"_tavrel _c_ 4"});
    FakeTool kx("kxctl");
    versionTool(kx, "3504\n");
    LogCapture log;
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_CLUSTER), 0);
    std::vector<std::string> l = log.lines();
    std::vector<std::string> expected = {
        "INFO: PollingHandler::PollingHandler: Libquelvane version 3504",
        "INFO: PollingHandler::PollingHandler: TavrelWrapperUtils::init(0)",
        "INFO: PollingHandler::PollingHandler: CommandWrapperUtils::init",
        "INFO: PollingHandler::PollingHandler: new ClusterInfo",
    };
    ASSERT_GE(l.size(), 4u);
    EXPECT_EQ(std::vector<std::string>(l.begin(), l.begin() + 4), expected);
    std::vector<std::string> nodeList;
    for (const std::string& s : l)
        if (s.find("initNodeList") != std::string::npos || s.find("cleanupNodeList") != std::string::npos)
            nodeList.push_back(s);
    EXPECT_EQ(nodeList, (std::vector<std::string>{
                            "INFO: PollingHandler::initNodeList: enter:",
                            "INFO: PollingHandler::cleanupNodeList: enter",
                            "INFO: PollingHandler::cleanupNodeList: tavrel n + *",
                            "INFO: PollingHandler::cleanupNodeList: tavrel ng ~",
                            "INFO: PollingHandler::cleanupNodeList: exit",
                            "INFO: PollingHandler::initNodeList: pollingScope 0x1",
                            "INFO: PollingHandler::initNodeList: nc 4 exit err 0",
                        }));
    // debug 0 and no marker file: the open stream is dropped before the
    // last line of init, which therefore goes nowhere.
    EXPECT_EQ(l.back(), "INFO: PollingHandler::refreshClusterRecipe: exit");
    EXPECT_EQ(QuelvaneLogFileP, nullptr);
    PollingHandler::term();
}

TEST(HandlerLifecycle, ConstructorLogsWithAnOpenLog)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    versionTool(kx, "3504\n");
    LogCapture log;
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 2, POLL_LOCAL_NODE), 0);
    // debug set: the open stream is kept, no file is made.
    EXPECT_EQ(QuelvaneLogFileP, log.file());
    EXPECT_FALSE(fileExists(logPath()));
    std::vector<std::string> l = log.lines();
    ASSERT_EQ(l.size(), 8u);
    EXPECT_EQ(l[0], "INFO: PollingHandler::PollingHandler: Libquelvane version 3504");
    EXPECT_EQ(l[1], "INFO: PollingHandler::PollingHandler: TavrelWrapperUtils::init(2)");
    EXPECT_EQ(l[2], "INFO: PollingHandler::PollingHandler: CommandWrapperUtils::init");
    EXPECT_EQ(l[3], "INFO: PollingHandler::PollingHandler: new ClusterInfo");
    EXPECT_EQ(l[4].rfind("INFO: PollingHandler::PollingHandler: refreshClusterRecipe recipe 0x", 0), 0u);
    EXPECT_EQ(l[5].rfind("INFO: PollingHandler::refreshClusterRecipe: enter, sdrfsGenNumber 0 size ", 0), 0u);
    EXPECT_EQ(l[6], "INFO: PollingHandler::refreshClusterRecipe: exit");
    EXPECT_EQ(l[7], "INFO: PollingHandler::init: debg 2 envDebug 0, lib_version 3504 "
                    "vesk_libversion 3504 scope 0x4");
    PollingHandler::term();
    EXPECT_EQ(QuelvaneLogFileP, nullptr);
    log.closedByLibrary();
}

TEST(HandlerLifecycle, InvalidScopesAreRefused)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    versionTool(kx, "3504\n");
    for (int scope : {0x5, 0x6, 0x7}) {
        StderrCapture cap;
        EXPECT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, scope), 1);
        char expected[64];
        snprintf(expected, sizeof(expected), "Invalid pollingScope argument 0x%x\n", scope);
        EXPECT_EQ(cap.finish(), expected);
        EXPECT_EQ(thePollingHandler, nullptr);
    }
    EXPECT_TRUE(daemon.requestLines().empty());
    EXPECT_EQ(daemon.connectionsAccepted(), 0u);
}

TEST(HandlerLifecycle, ScopeFourAloneAndThreePass)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    versionTool(kx, "3504\n");
    EXPECT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, 0x4), 0);
    EXPECT_NE(thePollingHandler, nullptr);
    PollingHandler::term();
    EXPECT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, 0x3), 0);
    EXPECT_NE(thePollingHandler, nullptr);
    PollingHandler::term();
}

TEST(HandlerLifecycle, InvalidScopeClearsAnExistingHandler)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    versionTool(kx, "3504\n");
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, 0x4), 0);
    PollingHandler* first = thePollingHandler;
    StderrCapture cap;
    EXPECT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, 0x5), 1);
    cap.finish();
    EXPECT_EQ(thePollingHandler, nullptr);
    thePollingHandler = first;
    PollingHandler::term();
}

TEST(HandlerLifecycle, VersionEqualOrOlderDaemonPasses)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    versionTool(kx, "3504\n");
    EXPECT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_NODE), 0);
    PollingHandler::term();
    versionTool(kx, "3503\n");
    EXPECT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_NODE), 0);
    EXPECT_NE(thePollingHandler, nullptr);
    PollingHandler::term();
}

TEST(HandlerLifecycle, NewerDaemonIsRefused)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    versionTool(kx, "3505\n");
    StderrCapture cap;
    EXPECT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_NODE), 1);
    EXPECT_EQ(cap.finish(), "Incompatible library version 3504 vesk implementation version 3505\n");
    EXPECT_EQ(thePollingHandler, nullptr);
    EXPECT_EQ(daemon.connectionsAccepted(), 0u);
}

TEST(HandlerLifecycle, VersionFailuresLeaveTheHandlerAlone)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    versionTool(kx, "3504\n");
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_NODE), 0);
    PollingHandler* first = thePollingHandler;
    versionTool(kx, "3505\n");
    StderrCapture cap;
    EXPECT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_NODE), 1);
    versionTool(kx, "3504\n", 1);
    EXPECT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_NODE), 1);
    cap.finish();
    EXPECT_EQ(thePollingHandler, first);
    PollingHandler::term();
}

TEST(HandlerLifecycle, VersionLineNotANumber)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    versionTool(kx, "abc\n", 3);
    LogCapture log;
    StderrCapture cap;
    EXPECT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_NODE), 1);
    cap.finish();
    EXPECT_EQ(thePollingHandler, nullptr);
    // The status is still collected and logged.
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "INFO: PollingHandler::init: sscanf match failure rc 0 buf abc",
                               "",
                               "ERROR: PollingHandler::init: pclose exit status: 3"}));
    EXPECT_EQ(daemon.connectionsAccepted(), 0u);
}

TEST(HandlerLifecycle, VersionLineNotANumberExitZero)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    versionTool(kx, "x3504\n", 0);
    EXPECT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_NODE), 1);
    EXPECT_EQ(thePollingHandler, nullptr);
    EXPECT_EQ(kx.calls().size(), 1u);
}

TEST(HandlerLifecycle, VersionToolFailsWithStatus)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    versionTool(kx, "3504\n", 2);
    LogCapture log;
    StderrCapture cap;
    EXPECT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_NODE), 1);
    cap.finish();
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"ERROR: PollingHandler::init: pclose exit status: 2"}));
}

TEST(HandlerLifecycle, NoDaemonFailsConstruction)
{
    FakeTool kx("kxctl");
    versionTool(kx, "3504\n");
    StderrCapture cap;
    EXPECT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_CLUSTER), 1);
    std::string err = cap.finish();
    EXPECT_FALSE(err.empty());
    EXPECT_EQ(thePollingHandler, nullptr);
    EXPECT_EQ(QuelvaneLogFileP, nullptr);
}

TEST(HandlerLifecycle, NoLogWithoutDebugOrMarkerDropsOpenStream)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    versionTool(kx, "3504\n");
    FILE* before = tmpfile();
    QuelvaneLogFileP = before;
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_NODE), 0);
    EXPECT_EQ(QuelvaneLogFileP, nullptr);
    EXPECT_FALSE(fileExists(logPath()));
    // The dropped stream was not closed: it can still be written.
    EXPECT_GT(fputs("still open\n", before), 0);
    PollingHandler::term();
    fclose(before);
}

TEST(HandlerLifecycle, DebugMakesTheLogFile)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    versionTool(kx, "3504\n");
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 1, POLL_LOCAL_NODE), 0);
    ASSERT_NE(QuelvaneLogFileP, nullptr);
    ASSERT_TRUE(fileExists(logPath()));
    std::vector<std::string> lines = splitLines(readFile(logPath()));
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].substr(26), "INFO: PollingHandler::init: debg 1 envDebug 0, lib_version 3504 "
                                   "vesk_libversion 3504 scope 0x4");
    PollingHandler::term();
    EXPECT_EQ(QuelvaneLogFileP, nullptr);
}

TEST(HandlerLifecycle, MarkerFileMakesTheLogFile)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    versionTool(kx, "3504\n");
    writeFile("/tmp/enableQuelvaneLog", "");
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_CLUSTER), 0);
    ASSERT_TRUE(fileExists(logPath()));
    std::vector<std::string> lines = splitLines(readFile(logPath()));
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].substr(26), "INFO: PollingHandler::init: debg 0 envDebug 1, lib_version 3504 "
                                   "vesk_libversion 3504 scope 0x1");
    PollingHandler::term();
    // The teardown was logged before the log was closed.
    std::string text = readFile(logPath());
    EXPECT_NE(text.find("INFO: PollingHandler::cleanupNodeList: tavrel ng ~\n"), std::string::npos);
}

TEST(HandlerLifecycle, LogFileCannotBeMade)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    versionTool(kx, "3504\n");
    // A directory in the way of the log file.
    makeDirs(logPath());
    StderrCapture cap;
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 1, POLL_LOCAL_NODE), 0);
    std::string err = cap.finish();
    std::string expected = "Error to create log file " + logPath() + "\n";
    ASSERT_GE(err.size(), expected.size());
    EXPECT_EQ(err.substr(err.size() - expected.size()), expected);
    EXPECT_NE(thePollingHandler, nullptr);
    EXPECT_EQ(QuelvaneLogFileP, nullptr);
    PollingHandler::term();
}

TEST(HandlerLifecycle, TermWithoutHandlerClosesTheLog)
{
    FILE* f = fopen("/tmp/somelog", "w+");
    ASSERT_NE(f, nullptr);
    QuelvaneLogFileP = f;
    EXPECT_EQ(thePollingHandler, nullptr);
    PollingHandler::term();
    EXPECT_EQ(QuelvaneLogFileP, nullptr);
    PollingHandler::term();
    EXPECT_EQ(QuelvaneLogFileP, nullptr);
}

TEST(HandlerLifecycle, ProtocolZeroStartsAndJoinsNothing)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    versionTool(kx, "3504\n");
    LogCapture log;
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 1, POLL_LOCAL_NODE), 0);
    EXPECT_EQ(thePollingHandler->execTaskList.capacity(), 0u);
    PollingHandler* h = thePollingHandler;
    delete h;
    thePollingHandler = nullptr;
    for (const std::string& l : log.lines()) {
        EXPECT_EQ(l.find("create "), std::string::npos) << l;
        EXPECT_EQ(l.find("Joined"), std::string::npos) << l;
        EXPECT_EQ(l.find("Couldn't"), std::string::npos) << l;
    }
}

TEST(HandlerLifecycle, PollingLockLocksAndUnlocks)
{
    FakeDaemon daemon;
    FakeTool kx("kxctl");
    versionTool(kx, "3504\n");
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_NODE), 0);
    EXPECT_EQ(thePollingHandler->getPollingLock(), 0);
    EXPECT_EQ(pthread_mutex_trylock(&thePollingHandler->pollingMutex), EBUSY);
    EXPECT_EQ(thePollingHandler->releasePollingLock(), 0);
    EXPECT_EQ(pthread_mutex_trylock(&thePollingHandler->pollingMutex), 0);
    EXPECT_EQ(thePollingHandler->releasePollingLock(), 0);
    PollingHandler::term();
}

TEST(HandlerLifecycle, ProcessCommandWaitsForTheDaemonToComeBack)
{
    FakeDaemon daemon;
    daemon.respondAlways("get thing", {"_thing_ 1"});
    FakeTool kx("kxctl");
    versionTool(kx, "3504\n");
    ASSERT_EQ(PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_NODE), 0);
    EXPECT_EQ(thePollingHandler->processCommand("get thing"), 0);
    thePollingHandler->tavrelWrapper->cleanupCommand();

    daemon.stop();
    std::atomic<bool> done{false};
    std::atomic<int> rc{-1};
    StderrCapture cap;
    std::thread t([&] {
        rc = thePollingHandler->processCommand("get thing");
        done = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_FALSE(done.load());
    daemon.start();
    for (int i = 0; i < 400 && !done; i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    t.join();
    cap.finish();
    EXPECT_TRUE(done.load());
    EXPECT_EQ(rc.load(), 0);
    std::vector<std::string> reqs = daemon.requestLines();
    ASSERT_FALSE(reqs.empty());
    EXPECT_EQ(reqs.back(), "get thing");
    PollingHandler::term();
}
