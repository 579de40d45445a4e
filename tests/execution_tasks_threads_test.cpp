// Execution tasks: the task records, the queue, and the dispatch thread that
// runs queued tools one at a time and calls their callbacks.
#include "support/popen_failure.h"
#include "support/fake_tool.h"
#include "support/files.h"
#include "support/handler_fixture.h"
#include "support/log_capture.h"
#include "support/worker_release.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <quelvane/api_poll.h>
#include <quelvane/kx_log.h>

using namespace qvtest;

namespace {

using Lines = std::vector<std::string>;

const char* const kWho = "PollingHandler::dispatchHandlerBody";
const char* const kLogPath = "/tmp/dispatch.log";
const char* const kTracePath = "/tmp/trace";

std::string I(const std::string& text)
{
    return std::string("INFO: ") + kWho + ": " + text;
}
std::string E(const std::string& text)
{
    return std::string("ERROR: ") + kWho + ": " + text;
}
// A refusal of addExecutionTask, as LogCapture::lines gives it.
std::string refused(const std::string& text)
{
    return "ERROR: PollingHandler::addExecutionTask: " + text;
}

// Callbacks note their name, in the order in which they are called.
struct Recorder
{
    std::mutex m;
    std::condition_variable cv;
    Lines seen;

    bool waitFor(size_t n, int ms = 10000)
    {
        std::unique_lock<std::mutex> lock(m);
        return cv.wait_for(lock, std::chrono::milliseconds(ms), [&] { return seen.size() >= n; });
    }
    Lines names()
    {
        std::lock_guard<std::mutex> lock(m);
        return seen;
    }
};

struct CallbackData
{
    Recorder* recorder;
    std::string name;
};

int record(void* data)
{
    CallbackData* d = static_cast<CallbackData*>(data);
    {
        std::lock_guard<std::mutex> lock(d->recorder->m);
        d->recorder->seen.push_back(d->name);
    }
    d->recorder->cv.notify_all();
    return 7;   // ignored
}

int ignoreCallback(void*)
{
    return 0;
}

// The whole file through plain descriptor calls: usable while the descriptor
// table is nearly full (one descriptor is enough, and no stream object is made).
std::string rawRead(const std::string& path)
{
    std::string out;
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return out;
    char buf[4096];
    ssize_t n;
    while ((n = read(fd, buf, sizeof(buf))) > 0)
        out.append(buf, static_cast<size_t>(n));
    close(fd);
    return out;
}

bool waitForText(const std::string& path, const std::string& text, int ms = 10000)
{
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (std::chrono::steady_clock::now() < end) {
        if (rawRead(path).find(text) != std::string::npos)
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

// A tool that notes its start and end in the trace file around a pause, so
// that overlapping runs would show.
void writeSlowTool()
{
    const std::string path = "/usr/kpx/vesk/bin/vkslow";
    writeFile(path,
              "#!/bin/sh\n"
              "echo \"start $1\" >> /tmp/trace\n"
              "sleep 0.3\n"
              "echo \"end $1\" >> /tmp/trace\n"
              "echo \"out $1\"\n");
    chmod(path.c_str(), 0755);
}

// The dispatch thread's lines of one task, from "execute" to "done" (or to the
// start failure), with the errno value replaced by N.
Lines taskBlock(const Lines& log, const std::string& command)
{
    Lines out;
    bool in = false;
    static const std::regex errnoLine("INFO: PollingHandler::dispatchHandlerBody: errno=[0-9]+");
    for (const std::string& l : log) {
        if (l == I("execute " + command))
            in = true;
        if (!in)
            continue;
        out.push_back(std::regex_match(l, errnoLine) ? I("errno=N") : l);
        if (l == I("task " + command + " done") ||
            l == E("Error: Couldn't find " + command + " command"))
            break;
    }
    return out;
}

Lines normalBlock(const std::string& command, const std::string& lastLine, int status = 0)
{
    Lines b = {I("execute " + command), I("buf=" + lastLine)};
    if (!lastLine.empty())
        b.push_back("");   // the line's own newline
    b.push_back(I("Use macros described under wait() to inspect status in order to determine "
                  "success/failure of command executed by popen()"));
    b.push_back(I("The child terminated normally with status " + std::to_string(status)));
    if (status != 0) {
        b.push_back(E("Error Desc = " + lastLine));
        if (!lastLine.empty())
            b.push_back("");
    }
    b.push_back(I("errno=N"));
    b.push_back(I("task " + command + " done"));
    return b;
}

// A handler with the dispatch thread, logging into kLogPath.
class Dispatch : public HandlerFixture
{
protected:
    Recorder rec;

    void start()
    {
        // The stream is in place before the threads exist; with the marker
        // file init keeps it.
        writeFile("/tmp/enableQuelvaneLog", "");
        QuelvaneLogFileP = fopen(kLogPath, "w+");
        ASSERT_NE(QuelvaneLogFileP, nullptr);
        startHandler(POLL_LOCAL_CLUSTER, 0, MGMT_PROTOCOL_BACKGROUND);
    }

    // Ends the threads one at a time, each after the last line of the one
    // before, since log lines of threads that run together may interleave.
    // The dispatch thread, the only one that may still be busy, goes first;
    // the other two are idle until they are released. Then the handler ends
    // and the log, closed by term, is read whole. Only the dispatch thread's
    // lines are kept.
    Lines finish()
    {
        if (thePollingHandler != nullptr) {
            keepProcessOnSigterm();
            releaseDispatchThread(thePollingHandler);
            EXPECT_TRUE(waitForText(kLogPath, "PollingHandler::dispatchHandlerBody: Exiting...\n"));
            releaseCmdThread(thePollingHandler);
            EXPECT_TRUE(waitForText(kLogPath, "PollingHandler::cmdHandlerBody: exiting...\n"));
            releaseTimerThread(thePollingHandler);
            EXPECT_TRUE(waitForText(kLogPath, "PollingHandler::timerHandlerBody: exiting...\n"));
            stopHandler();
        }
        Lines out;
        for (const std::string& raw : splitLines(readFile(kLogPath))) {
            std::string l = raw.size() > 26 ? raw.substr(26) : raw;
            if (l.find(kWho) != std::string::npos || l.empty())
                out.push_back(l);
        }
        return out;
    }

    ~Dispatch() override
    {
        if (thePollingHandler != nullptr)
            releaseWorkerThreads(thePollingHandler);
    }
};

} // namespace

// ---------------------------------------------------------------------------
// Records

TEST(ExecutionTaskRecord, ConstructorClearsEverything)
{
    MErrno err = 5;
    ExecutionTask t(&err);
    EXPECT_EQ(err, 0);
    for (char c : t.cmd)
        ASSERT_EQ(c, '\0');
    EXPECT_TRUE(t.argItems.empty());
    EXPECT_GE(t.argItems.capacity(), 1024u);
    EXPECT_EQ(t.callback, nullptr);
    EXPECT_EQ(t.callbackData, nullptr);

    MErrno rerr = 9;
    ExecutionResult r(&rerr);
    EXPECT_EQ(rerr, 0);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(sizeof(r.status), 2u);
}

TEST(ExecutionTaskRecord, SetCmdAddArgAndAssignment)
{
    MErrno err = 0;
    ExecutionTask t(&err);
    EXPECT_EQ(t.setCmd("vkchfileset"), t.cmd);
    EXPECT_STREQ(t.cmd, "vkchfileset");
    char arg[] = "fs1 fset1 -j junction";
    t.addArg(arg);
    arg[0] = 'X';
    ASSERT_EQ(t.argItems.size(), 1u);
    EXPECT_STREQ(t.argItems[0], "fs1 fset1 -j junction");
    int data = 3;
    t.callback = ignoreCallback;
    t.callbackData = &data;

    ExecutionTask u(&err);
    char other[] = "other";
    u.addArg(other);
    u = t;
    EXPECT_STREQ(u.cmd, "vkchfileset");
    EXPECT_EQ(u.callback, ignoreCallback);
    EXPECT_EQ(u.callbackData, &data);
    // The arguments are not part of the assignment.
    ASSERT_EQ(u.argItems.size(), 1u);
    EXPECT_STREQ(u.argItems[0], "other");
}

TEST(ExecutionTaskRecord, CopyArgsAppendsAndCutsAtTwoHundredFiftyFiveBytes)
{
    MErrno err = 0;
    ExecutionTask from(&err);
    std::string longArg(300, 'q');
    std::string exact(255, 'e');
    from.addArg(const_cast<char*>("short"));
    from.addArg(const_cast<char*>(longArg.c_str()));
    from.addArg(const_cast<char*>(exact.c_str()));
    EXPECT_EQ(strlen(from.argItems[1]), 300u);   // addArg keeps the whole text

    ExecutionTask to(&err);
    to.addArg(const_cast<char*>("first"));
    to.copyArgs(&from);
    ASSERT_EQ(to.argItems.size(), 4u);
    EXPECT_STREQ(to.argItems[0], "first");
    EXPECT_STREQ(to.argItems[1], "short");
    EXPECT_EQ(std::string(to.argItems[2]), std::string(255, 'q'));
    EXPECT_EQ(std::string(to.argItems[3]), exact);
}

// ---------------------------------------------------------------------------
// The queue, without the dispatch thread

using ExecutionQueue = HandlerFixture;

TEST_F(ExecutionQueue, TasksComeOutInOrderOfArrivalAsCopies)
{
    startHandler();
    Recorder r;
    CallbackData d1{&r, "one"}, d2{&r, "two"};
    std::string longArg(255, 'z');   // the longest argument taken
    EXPECT_EQ(handler()->addExecutionTask("vkcrfileset", const_cast<char*>("fs1 a"), record, &d1), 0);
    EXPECT_EQ(handler()->addExecutionTask("vkdelfileset", const_cast<char*>(longArg.c_str()), nullptr,
                                          &d2),
              0);
    EXPECT_EQ(handler()->addExecutionTask("vkunlinkfileset", const_cast<char*>("fs1 c"), record, &d2),
              0);
    ASSERT_EQ(handler()->execTaskList.size(), 3u);
    EXPECT_STREQ(handler()->execTaskList[1]->cmd, "vkdelfileset");
    EXPECT_EQ(strlen(handler()->execTaskList[1]->argItems.at(0)), 255u);

    MErrno err = 0;
    ExecutionTask a(&err);
    EXPECT_EQ(handler()->getExecTaskFromList(&a), 0);
    EXPECT_STREQ(a.cmd, "vkcrfileset");
    ASSERT_EQ(a.argItems.size(), 1u);
    EXPECT_STREQ(a.argItems[0], "fs1 a");
    EXPECT_EQ(a.callback, record);
    EXPECT_EQ(a.callbackData, &d1);
    EXPECT_EQ(handler()->execTaskList.size(), 2u);

    // A reused destination collects the arguments of both.
    EXPECT_EQ(handler()->getExecTaskFromList(&a), 0);
    EXPECT_STREQ(a.cmd, "vkdelfileset");
    ASSERT_EQ(a.argItems.size(), 2u);
    EXPECT_EQ(std::string(a.argItems[1]), std::string(255, 'z'));
    EXPECT_EQ(a.callback, nullptr);
    EXPECT_EQ(a.callbackData, &d2);

    ExecutionTask c(&err);
    EXPECT_EQ(handler()->getExecTaskFromList(&c), 0);
    EXPECT_STREQ(c.cmd, "vkunlinkfileset");
    EXPECT_TRUE(handler()->execTaskList.empty());

    ExecutionTask none(&err);
    EXPECT_EQ(handler()->getExecTaskFromList(&none), 1);
    EXPECT_STREQ(none.cmd, "");
    EXPECT_TRUE(none.argItems.empty());
    EXPECT_TRUE(r.names().empty());
}

TEST_F(ExecutionQueue, ArgumentOverTwoHundredFiftyFiveBytesIsRefused)
{
    startHandler();
    LogCapture log;
    Recorder r;
    CallbackData d{&r, "x"};
    std::string tooLong = "fs1 " + std::string(252, 'a');
    ASSERT_EQ(tooLong.size(), 256u);
    EXPECT_EQ(handler()->addExecutionTask("vkquick", const_cast<char*>(tooLong.c_str()), record, &d),
              EINVAL);
    EXPECT_TRUE(handler()->execTaskList.empty());
    EXPECT_EQ(log.lines(),
              (Lines{refused("Couldn't queue vkquick: argument of 256 bytes, at most 255")}));

    // One byte less is taken whole.
    std::string longest = "fs1 " + std::string(251, 'b');
    EXPECT_EQ(handler()->addExecutionTask("vkquick", const_cast<char*>(longest.c_str()), record, &d),
              0);
    ASSERT_EQ(handler()->execTaskList.size(), 1u);
    EXPECT_EQ(std::string(handler()->execTaskList[0]->argItems.at(0)), longest);
    MErrno err = 0;
    ExecutionTask out(&err);
    ASSERT_EQ(handler()->getExecTaskFromList(&out), 0);
    ASSERT_EQ(out.argItems.size(), 1u);
    EXPECT_EQ(std::string(out.argItems[0]), longest);
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_TRUE(r.names().empty());
}

TEST_F(ExecutionQueue, NullArgumentIsRefusedAndAnEmptyOneTaken)
{
    startHandler();
    LogCapture log;
    EXPECT_EQ(handler()->addExecutionTask("vkquick", nullptr, ignoreCallback, nullptr), EINVAL);
    EXPECT_TRUE(handler()->execTaskList.empty());
    EXPECT_EQ(log.lines(), (Lines{refused("Couldn't queue vkquick: no argument")}));

    // An empty argument is what the application gave.
    EXPECT_EQ(handler()->addExecutionTask("vkquick", const_cast<char*>(""), ignoreCallback, nullptr),
              0);
    ASSERT_EQ(handler()->execTaskList.size(), 1u);
    EXPECT_STREQ(handler()->execTaskList[0]->argItems.at(0), "");
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(ExecutionQueue, MissingEmptyOrOverlongCommandIsRefused)
{
    startHandler();
    LogCapture log;
    std::string tooLong(256, 'c');
    std::string longest(255, 'c');
    EXPECT_EQ(handler()->addExecutionTask(nullptr, const_cast<char*>("x"), nullptr, nullptr), EINVAL);
    EXPECT_EQ(handler()->addExecutionTask("", const_cast<char*>("x"), nullptr, nullptr), EINVAL);
    EXPECT_EQ(handler()->addExecutionTask(tooLong.c_str(), const_cast<char*>("x"), nullptr, nullptr),
              EINVAL);
    // A command name is checked before its argument.
    EXPECT_EQ(handler()->addExecutionTask(nullptr, nullptr, nullptr, nullptr), EINVAL);
    EXPECT_TRUE(handler()->execTaskList.empty());
    EXPECT_EQ(log.lines(),
              (Lines{refused("Couldn't queue a task without a command"),
                     refused("Couldn't queue a task without a command"),
                     refused("Couldn't queue a command name of 256 bytes, at most 255"),
                     refused("Couldn't queue a task without a command")}));

    EXPECT_EQ(handler()->addExecutionTask(longest.c_str(), const_cast<char*>("x"), nullptr, nullptr),
              0);
    ASSERT_EQ(handler()->execTaskList.size(), 1u);
    EXPECT_EQ(std::string(handler()->execTaskList[0]->cmd), longest);
}

TEST_F(ExecutionQueue, TasksLeftAtTheEndAreDroppedWithoutRunning)
{
    FakeTool tool("vkquick");
    startHandler();
    Recorder r;
    CallbackData d{&r, "x"};
    handler()->addExecutionTask("vkquick", const_cast<char*>("one"), record, &d);
    handler()->addExecutionTask("vkquick", const_cast<char*>("two"), record, &d);
    stopHandler();
    EXPECT_TRUE(tool.calls().empty());
    EXPECT_TRUE(r.names().empty());
}

// ---------------------------------------------------------------------------
// The dispatch thread

TEST_F(Dispatch, TasksRunOneAtATimeInOrderOfArrival)
{
    writeSlowTool();
    start();
    CallbackData a{&rec, "a"}, b{&rec, "b"}, c{&rec, "c"};
    ASSERT_EQ(handler()->addExecutionTask("vkslow", const_cast<char*>("a"), record, &a), 0);
    // b and c arrive while a runs.
    ASSERT_TRUE(waitForText(kTracePath, "start a\n"));
    ASSERT_EQ(handler()->addExecutionTask("vkslow", const_cast<char*>("b"), record, &b), 0);
    ASSERT_EQ(handler()->addExecutionTask("vkslow", const_cast<char*>("c"), record, &c), 0);
    ASSERT_TRUE(rec.waitFor(3));

    EXPECT_EQ(splitLines(readFile(kTracePath)),
              (Lines{"start a", "end a", "start b", "end b", "start c", "end c"}));
    EXPECT_EQ(rec.names(), (Lines{"a", "b", "c"}));

    Lines log = finish();
    for (const char* name : {"a", "b", "c"}) {
        std::string cmd = std::string("/usr/kpx/vesk/bin/vkslow ") + name + " 2>&1";
        EXPECT_EQ(taskBlock(log, cmd), normalBlock(cmd, std::string("out ") + name));
    }
    ASSERT_GE(log.size(), 4u);
    EXPECT_EQ(Lines(log.begin(), log.begin() + 1), (Lines{I("Wait execution task")}));
    EXPECT_EQ(Lines(log.end() - 3, log.end()),
              (Lines{I("Start exec thread"), I("handlerP->execTerminate = 1"), I("Exiting...")}));
}

TEST_F(Dispatch, NullCallbackIsAllowed)
{
    FakeTool tool("vkquick");
    tool.output("done\n");
    start();
    CallbackData d{&rec, "second"};
    ASSERT_EQ(handler()->addExecutionTask("vkquick", const_cast<char*>("one"), nullptr, nullptr), 0);
    ASSERT_EQ(handler()->addExecutionTask("vkquick", const_cast<char*>("two"), record, &d), 0);
    ASSERT_TRUE(rec.waitFor(1));
    EXPECT_EQ(rec.names(), (Lines{"second"}));
    EXPECT_EQ(tool.calls(), (Lines{"one", "two"}));
    Lines log = finish();
    EXPECT_EQ(taskBlock(log, "/usr/kpx/vesk/bin/vkquick one 2>&1"),
              normalBlock("/usr/kpx/vesk/bin/vkquick one 2>&1", "done"));
    EXPECT_EQ(taskBlock(log, "/usr/kpx/vesk/bin/vkquick two 2>&1"),
              normalBlock("/usr/kpx/vesk/bin/vkquick two 2>&1", "done"));
}

TEST_F(Dispatch, ToolThatPrintsNothingShowsTheLastLineOfTheTaskBefore)
{
    FakeTool tool("vkquiet");
    tool.on("first", "line one\nlast one\n");
    tool.on("second", "");
    start();
    CallbackData d1{&rec, "1"}, d2{&rec, "2"};
    ASSERT_EQ(handler()->addExecutionTask("vkquiet", const_cast<char*>("first"), record, &d1), 0);
    ASSERT_EQ(handler()->addExecutionTask("vkquiet", const_cast<char*>("second"), record, &d2), 0);
    ASSERT_TRUE(rec.waitFor(2));
    Lines log = finish();
    EXPECT_EQ(taskBlock(log, "/usr/kpx/vesk/bin/vkquiet first 2>&1"),
              normalBlock("/usr/kpx/vesk/bin/vkquiet first 2>&1", "last one"));
    EXPECT_EQ(taskBlock(log, "/usr/kpx/vesk/bin/vkquiet second 2>&1"),
              normalBlock("/usr/kpx/vesk/bin/vkquiet second 2>&1", "last one"));
}

TEST_F(Dispatch, FailingToolLogsItsLastLineAsTheErrorDescription)
{
    FakeTool tool("vkquick");
    tool.output("working\n", 3, "vkquick: no such fileset\n");
    start();
    CallbackData d{&rec, "x"};
    ASSERT_EQ(handler()->addExecutionTask("vkquick", const_cast<char*>("fs1 nofset"), record, &d), 0);
    ASSERT_TRUE(rec.waitFor(1));
    Lines log = finish();
    // Standard error comes through the pipe and is the last line.
    EXPECT_EQ(taskBlock(log, "/usr/kpx/vesk/bin/vkquick fs1 nofset 2>&1"),
              normalBlock("/usr/kpx/vesk/bin/vkquick fs1 nofset 2>&1", "vkquick: no such fileset",
                          768));
}

TEST_F(Dispatch, ToolKilledBySignalStillGetsItsCallback)
{
    FakeTool tool("vkquick");
    tool.output("partial\n");
    start();
    CallbackData d{&rec, "killed"};
    // Arguments reach the shell as they stand: the shell kills itself.
    ASSERT_EQ(handler()->addExecutionTask("vkquick", const_cast<char*>("x; kill -9 $$"), record, &d),
              0);
    ASSERT_TRUE(rec.waitFor(1));
    EXPECT_EQ(rec.names(), (Lines{"killed"}));
    EXPECT_EQ(tool.calls(), (Lines{"x"}));
    Lines log = finish();
    std::string cmd = "/usr/kpx/vesk/bin/vkquick x; kill -9 $$ 2>&1";
    EXPECT_EQ(taskBlock(log, cmd),
              (Lines{I("execute " + cmd), I("buf=partial"), "",
                     I("Use macros described under wait() to inspect status in order to determine "
                       "success/failure of command executed by popen()"),
                     E("The child terminated abnormally"), I("errno=N"), I("task " + cmd + " done")}));
}

TEST_F(Dispatch, ToolThatCannotBeStartedSkipsTheCallback)
{
    FakeTool tool("vkquick");
    tool.output("ok\n");
    start();
    CallbackData d1{&rec, "first"}, d2{&rec, "second"};
    std::string cmd = "/usr/kpx/vesk/bin/vkquick first 2>&1";
    StderrCapture cap;
    bool seen = false;
    {
        PopenFailure full(64, 1);   // one left: enough to read the log, not for a pipe
        ASSERT_GT(full.held(), 0u);
        ASSERT_EQ(handler()->addExecutionTask("vkquick", const_cast<char*>("first"), record, &d1), 0);
        seen = waitForText(kLogPath, "Couldn't find " + cmd + " command");
    }
    ASSERT_TRUE(seen);
    std::string err = cap.finish();
    EXPECT_NE(err.find("ERROR: PollingHandler::dispatchHandlerBody: Error: Couldn't find " + cmd +
                       " command\n"),
              std::string::npos)
        << err;
    ASSERT_EQ(handler()->addExecutionTask("vkquick", const_cast<char*>("second"), record, &d2), 0);
    ASSERT_TRUE(rec.waitFor(1));
    EXPECT_EQ(rec.names(), (Lines{"second"}));
    EXPECT_EQ(tool.calls(), (Lines{"second"}));
    Lines log = finish();
    EXPECT_EQ(taskBlock(log, cmd), (Lines{I("execute " + cmd),
                                          E("Error: Couldn't find " + cmd + " command")}));
    EXPECT_EQ(std::find(log.begin(), log.end(), I("task " + cmd + " done")), log.end());
    EXPECT_EQ(taskBlock(log, "/usr/kpx/vesk/bin/vkquick second 2>&1"),
              normalBlock("/usr/kpx/vesk/bin/vkquick second 2>&1", "ok"));
}

TEST_F(Dispatch, PcloseFailureIsReportedAndTheCallbackStillRuns)
{
    FakeTool tool("vkquick");
    tool.output("reaped\n");
    start();
    // Children that nobody waits for: pclose finds none and gives -1.
    signal(SIGCHLD, SIG_IGN);
    CallbackData d{&rec, "x"};
    ASSERT_EQ(handler()->addExecutionTask("vkquick", const_cast<char*>("arg"), record, &d), 0);
    ASSERT_TRUE(rec.waitFor(1));
    Lines log = finish();
    signal(SIGCHLD, SIG_DFL);
    std::string cmd = "/usr/kpx/vesk/bin/vkquick arg 2>&1";
    EXPECT_EQ(taskBlock(log, cmd),
              (Lines{I("execute " + cmd), I("buf=reaped"), "", E("Error reported by pclose()"),
                     I("errno=N"), I("task " + cmd + " done")}));
    EXPECT_NE(std::find(log.begin(), log.end(), I("errno=10")), log.end());
}

TEST_F(Dispatch, RefusedTasksNeverRunAndTheLongestArgumentRunsWhole)
{
    FakeTool tool("vkquick");
    tool.output("ok\n");
    start();
    CallbackData no{&rec, "refused"}, yes{&rec, "ran"};
    std::string tooLong = "fs1 " + std::string(252, 'n');
    std::string longest = "fs1 " + std::string(251, 'n');
    EXPECT_EQ(handler()->addExecutionTask("vkquick", const_cast<char*>(tooLong.c_str()), record, &no),
              EINVAL);
    EXPECT_EQ(handler()->addExecutionTask("vkquick", nullptr, record, &no), EINVAL);
    ASSERT_EQ(handler()->addExecutionTask("vkquick", const_cast<char*>(longest.c_str()), record, &yes),
              0);
    ASSERT_TRUE(rec.waitFor(1));
    EXPECT_EQ(rec.names(), (Lines{"ran"}));
    EXPECT_EQ(tool.calls(), (Lines{longest}));
    Lines log = finish();
    std::string cmd = "/usr/kpx/vesk/bin/vkquick " + longest + " 2>&1";
    EXPECT_EQ(taskBlock(log, cmd), normalBlock(cmd, "ok"));
    std::string all = readFile(kLogPath);
    EXPECT_NE(all.find("ERROR: PollingHandler::addExecutionTask: Couldn't queue vkquick: argument of "
                       "256 bytes, at most 255\n"),
              std::string::npos)
        << all;
    EXPECT_NE(all.find("ERROR: PollingHandler::addExecutionTask: Couldn't queue vkquick: no "
                       "argument\n"),
              std::string::npos)
        << all;
    EXPECT_EQ(all.find("(null)"), std::string::npos) << all;
    EXPECT_EQ(std::count_if(log.begin(), log.end(),
                            [](const std::string& l) { return l.find(I("execute ")) == 0; }),
              1);
}

TEST_F(Dispatch, TaskPutOnTheListWithoutItsArgumentIsNotRun)
{
    FakeTool tool("vkquick");
    tool.output("ok\n");
    start();
    CallbackData bare{&rec, "bare"}, none{&rec, "none"}, after{&rec, "after"};
    // Two tasks placed on the list directly, without a wake-up: one whose
    // argument is null, one with no argument at all.
    MErrno err = 0;
    ExecutionTask* nullArg = new ExecutionTask(&err);
    nullArg->setCmd("vkquick");
    nullArg->addArg(nullptr);
    nullArg->callback = record;
    nullArg->callbackData = &bare;
    ExecutionTask* noArg = new ExecutionTask(&err);
    noArg->setCmd("vkquick");
    noArg->callback = record;
    noArg->callbackData = &none;
    pthread_mutex_lock(&handler()->execTaskMutex);
    handler()->execTaskList.push_back(nullArg);
    handler()->execTaskList.push_back(noArg);
    pthread_mutex_unlock(&handler()->execTaskMutex);
    // The next task wakes the thread, which takes all three in order.
    ASSERT_EQ(handler()->addExecutionTask("vkquick", const_cast<char*>("after"), record, &after), 0);
    ASSERT_TRUE(rec.waitFor(1));
    EXPECT_EQ(rec.names(), (Lines{"after"}));
    EXPECT_EQ(tool.calls(), (Lines{"after"}));
    Lines log = finish();
    EXPECT_EQ(std::count(log.begin(), log.end(), E("Couldn't run vkquick: no argument")), 2);
    EXPECT_EQ(taskBlock(log, "/usr/kpx/vesk/bin/vkquick after 2>&1"),
              normalBlock("/usr/kpx/vesk/bin/vkquick after 2>&1", "ok"));
    EXPECT_EQ(readFile(kLogPath).find("(null)"), std::string::npos);
}

TEST_F(Dispatch, QueuedTasksAreNotRunOnceTheThreadIsToldToEnd)
{
    FakeTool tool("vkquick");
    start();
    // Queued without a wake-up; the next wake-up carries the end flag.
    MErrno err = 0;
    ExecutionTask* t = new ExecutionTask(&err);
    t->setCmd("vkquick");
    t->addArg(const_cast<char*>("never"));
    pthread_mutex_lock(&handler()->execTaskMutex);
    handler()->execTaskList.push_back(t);
    pthread_mutex_unlock(&handler()->execTaskMutex);
    Lines log = finish();
    EXPECT_TRUE(tool.calls().empty());
    EXPECT_EQ(log, (Lines{I("Wait execution task"), I("Start exec thread"),
                          I("handlerP->execTerminate = 1"), I("Exiting...")}));
}
