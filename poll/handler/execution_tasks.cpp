// Execution tasks: a queue of administration commands that the dispatch
// thread runs one at a time, in order of arrival, calling each task's
// completion callback when its tool has ended.

#include <pthread.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <quelvane/api_poll.h>
#include <quelvane/kx_log.h>

#include "poll/handler_internal.h"
#include "poll/tools/tool_runner_internal.h"

namespace {

const char* const kWhoDispatch = "PollingHandler::dispatchHandlerBody";
const char* const kWhoAdd = "PollingHandler::addExecutionTask";

// The longest command name and argument that a task carries whole: the name
// field and the argument copies of copyArgs hold 256 bytes.
const size_t kLongestTaskText = 255;

// Size of the buffer that copyArgs gives each argument.
const size_t kCopiedArgSize = 256;

// Size of the dispatch thread's line buffer.
const int kLineSize = 400;

}  // namespace

// ---------------------------------------------------------------------------
// ExecutionTask

ExecutionTask::ExecutionTask(MErrno* err) : argItems(), callback(nullptr), callbackData(nullptr)
{
    *err = 0;
    memset(cmd, 0, sizeof(cmd));
    argItems.reserve(1024);
}

ExecutionTask::~ExecutionTask()
{
    for (char* arg : argItems) {
        if (arg != nullptr)
            delete[] arg;
    }
    argItems.clear();
}

char* ExecutionTask::setCmd(const char* newCmd)
{
    // A name longer than the field is cut; the terminator stays.
    if (newCmd != nullptr && newCmd != cmd) {
        size_t len = strnlen(newCmd, sizeof(cmd) - 1);
        memmove(cmd, newCmd, len);
        cmd[len] = '\0';
    }
    return cmd;
}

void ExecutionTask::addArg(char* arg)
{
    if (arg == nullptr) {
        argItems.push_back(nullptr);
        return;
    }
    size_t len = strlen(arg);
    char* copy = new char[len + 1];
    memcpy(copy, arg, len + 1);
    argItems.push_back(copy);
}

void ExecutionTask::copyArgs(ExecutionTask* from)
{
    // Each copy has a buffer of 256 bytes: a longer argument is cut to 255
    // bytes and keeps its terminator.
    for (char* arg : from->argItems) {
        if (arg == nullptr) {
            argItems.push_back(nullptr);
            continue;
        }
        char* copy = new char[kCopiedArgSize];
        size_t len = strnlen(arg, kCopiedArgSize - 1);
        memcpy(copy, arg, len);
        copy[len] = '\0';
        argItems.push_back(copy);
    }
}

ExecutionTask& ExecutionTask::operator=(ExecutionTask& src)
{
    if (&src != this) {
        memcpy(cmd, src.cmd, sizeof(cmd));
        cmd[sizeof(cmd) - 1] = '\0';
    }
    callback = src.callback;
    callbackData = src.callbackData;
    return *this;
}

// ---------------------------------------------------------------------------
// ExecutionResult

ExecutionResult::ExecutionResult(MErrno* err) : status(0)
{
    *err = 0;
}

ExecutionResult::~ExecutionResult() {}

// ---------------------------------------------------------------------------
// The queue

MErrno PollingHandler::addExecutionTask(const char* cmd, char* arg, int (*callback)(void*),
                                        void* callbackData)
{
    // The task runs with the words given or not at all: a text that setCmd or
    // copyArgs would cut, or a missing one, is refused before anything is
    // queued.
    if (cmd == nullptr || cmd[0] == '\0') {
        kx_log(2, kWhoAdd, "Couldn't queue a task without a command\n");
        return EINVAL;
    }
    size_t cmdLen = strlen(cmd);
    if (cmdLen > kLongestTaskText) {
        kx_log(2, kWhoAdd, "Couldn't queue a command name of %zu bytes, at most %zu\n", cmdLen,
               kLongestTaskText);
        return EINVAL;
    }
    if (arg == nullptr) {
        kx_log(2, kWhoAdd, "Couldn't queue %s: no argument\n", cmd);
        return EINVAL;
    }
    size_t argLen = strlen(arg);
    if (argLen > kLongestTaskText) {
        kx_log(2, kWhoAdd, "Couldn't queue %s: argument of %zu bytes, at most %zu\n", cmd, argLen,
               kLongestTaskText);
        return EINVAL;
    }

    MErrno err = 0;
    ExecutionTask* task = new ExecutionTask(&err);
    task->setCmd(cmd);
    task->addArg(arg);
    task->callback = callback;
    task->callbackData = callbackData;

    pthread_mutex_lock(&execTaskMutex);
    execTaskList.push_back(task);
    pthread_mutex_unlock(&execTaskMutex);

    wakeupDispatchThread();
    return err;
}

int PollingHandler::getExecTaskFromList(ExecutionTask* dst)
{
    pthread_mutex_lock(&execTaskMutex);
    if (execTaskList.empty()) {
        pthread_mutex_unlock(&execTaskMutex);
        return 1;
    }
    ExecutionTask* front = execTaskList.front();
    *dst = *front;
    dst->copyArgs(front);
    // Order of arrival is kept: the others move up.
    execTaskList.erase(execTaskList.begin());
    pthread_mutex_unlock(&execTaskMutex);
    // Only the copy lives on.
    delete front;
    return 0;
}

// ---------------------------------------------------------------------------
// The dispatch thread

namespace {

// Runs one task's tool to its end and calls the task's callback. `lineBuf`
// is the thread's line buffer: it keeps the last line read, also across
// tasks whose tool prints nothing.
void runTask(ExecutionTask* task, char* lineBuf)
{
    // addExecutionTask queues no task without its argument; one placed on
    // the list by other hands without it is not run either.
    const char* arg = task->argItems.empty() ? nullptr : task->argItems[0];
    if (arg == nullptr) {
        kx_log(2, kWhoDispatch, "Couldn't run %s: no argument\n", task->cmd);
        delete task;
        return;
    }
    char command[1024];
    snprintf(command, sizeof(command), "%s/%s %s 2>&1", qv::kToolDir, task->cmd, arg);
    kx_log(0, kWhoDispatch, "execute %s\n", command);

    qv::ToolRunOptions opts;
    opts.lineSize = kLineSize;
    opts.lineBuffer = lineBuf;
    opts.logExitStatus = false;
    qv::ToolRunResult run = qv::runTool(kWhoDispatch, command, nullptr, opts);
    int savedErrno = errno;
    if (!run.started) {
        // No callback for a tool that could not be started.
        delete task;
        return;
    }
    kx_log(0, kWhoDispatch, "buf=%s\n", lineBuf);

    int status = run.rawStatus;
    if (status == -1) {
        kx_log(2, kWhoDispatch, "Error reported by pclose()\n");
    } else {
        kx_log(0, kWhoDispatch,
               "Use macros described under wait() to inspect status in order to determine "
               "success/failure of command executed by popen()\n");
        if ((status & 0x7f) == 0) {
            kx_log(0, kWhoDispatch, "The child terminated normally with status %d\n", status);
            if (status != 0)
                kx_log(2, kWhoDispatch, "Error Desc = %s\n", lineBuf);
        } else {
            kx_log(2, kWhoDispatch, "The child terminated abnormally\n");
        }
    }
    kx_log(0, kWhoDispatch, "errno=%d\n", savedErrno);

    // The callback runs whether the tool succeeded or not.
    if (task->callback != nullptr)
        task->callback(task->callbackData);

    delete task;
    kx_log(0, kWhoDispatch, "task %s done\n", command);
}

}  // namespace

void* PollingHandler::dispatchHandlerBody(void* handler)
{
    PollingHandler* handlerP = static_cast<PollingHandler*>(handler);
    char lineBuf[kLineSize];
    lineBuf[0] = '\0';

    for (;;) {
        kx_log(0, kWhoDispatch, "Wait execution task\n");
        handlerP->waitExecutionTask();
        kx_log(0, kWhoDispatch, "Start exec thread\n");
        int flag = qv::readFlag(handlerP->execTerminate);
        kx_log(0, kWhoDispatch, "handlerP->execTerminate = %d\n", flag);
        if (flag != 0) {
            // Tasks still queued are left to the handler's destructor.
            kx_log(0, kWhoDispatch, "Exiting...\n");
            pthread_exit(nullptr);
        }
        for (;;) {
            MErrno err = 0;
            ExecutionTask* task = new ExecutionTask(&err);
            if (handlerP->getExecTaskFromList(task) == 1) {
                delete task;
                break;
            }
            runTask(task, lineBuf);
        }
    }
    return nullptr;
}
