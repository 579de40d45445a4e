// Start and end of the polling handler, the polling lock and the request retry.

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <signal.h>
#include <vector>

#include <quelvane/api_poll.h>
#include <quelvane/command_wrapper_utils.h>
#include <quelvane/kx_log.h>
#include <quelvane/tavrel_wrapper_utils.h>
#include <quelvane/version.h>

#include "poll/handler_internal.h"
#include "poll/tools/tool_runner_internal.h"

namespace {

const char* const kWhoInit = "PollingHandler::init";
const char* const kWhoCtor = "PollingHandler::PollingHandler";
const char* const kWhoDtor = "PollingHandler::~PollingHandler";
const char* const kLogMarker = "/tmp/enableQuelvaneLog";

// A handler whose constructor failed is abandoned by init, not deleted, and a
// log stream that init replaces is dropped, not closed. Both stay listed here
// so that they remain reachable for the life of the process.
std::vector<PollingHandler*>& abandonedHandlers()
{
    static std::vector<PollingHandler*>* list = new std::vector<PollingHandler*>;
    return *list;
}
std::vector<FILE*>& droppedLogStreams()
{
    static std::vector<FILE*>* list = new std::vector<FILE*>;
    return *list;
}

unsigned int addressWord(const void* p)
{
    return static_cast<unsigned int>(reinterpret_cast<uintptr_t>(p));
}

}  // namespace

MErrno PollingHandler::init(MgmtProtocol protocol, int debug, int pollingScope)
{
    MErrno result = 0;
    int libVersion = libquelvaneVersion();
    int veskVersion = 0;

    char cmd[512];
    snprintf(cmd, sizeof(cmd), "%s/kxctl showCfgValue libquelvaneversion", qv::kToolDir);
    bool badLine = false;
    qv::ToolRunResult run = qv::runTool(kWhoInit, cmd, [&](char* line) {
        int n = sscanf(line, "%d", &veskVersion);
        if (n != 1) {
            kx_log(0, kWhoInit, "sscanf match failure rc %d buf %s\n", n, line);
            badLine = true;
        }
        return false;   // one line only
    });
    if (!run.started)
        return 1;
    if (run.lines == 0) {
        // No line at all reads as an empty one.
        kx_log(0, kWhoInit, "sscanf match failure rc %d buf %s\n", -1, "");
        badLine = true;
    }
    if (run.exitStatus != 0 || badLine)
        return 1;

    if (libVersion < veskVersion) {
        fprintf(stderr, "Incompatible library version %d vesk implementation version %d\n",
                libVersion, veskVersion);
        return 1;
    }

    if ((pollingScope & POLL_LOCAL_NODE) != 0 &&
        (pollingScope & (POLL_LOCAL_CLUSTER | POLL_ALL_CLUSTERS)) != 0) {
        fprintf(stderr, "Invalid pollingScope argument 0x%x\n", pollingScope);
        thePollingHandler = nullptr;
        return 1;
    }

    PollingHandler* handler = new PollingHandler(&result, protocol, debug, pollingScope);
    thePollingHandler = handler;
    if (result != 0) {
        abandonedHandlers().push_back(handler);
        thePollingHandler = nullptr;
        return result;
    }

    int envDebug = access(kLogMarker, F_OK) == 0 ? 1 : 0;
    if (envDebug != 0 || debug != 0) {
        char path[256];
        snprintf(path, sizeof(path), "/var/vesk/gen/quelvanelog.%d", handler->pid);
        if (QuelvaneLogFileP == nullptr) {
            FILE* f = fopen(path, "w+");
            if (f == nullptr)
                fprintf(stderr, "Error to create log file %s\n", path);
            // The worker threads may be logging already: one indivisible store.
            __atomic_store_n(&QuelvaneLogFileP, f, __ATOMIC_SEQ_CST);
        }
    } else {
        if (QuelvaneLogFileP != nullptr)
            droppedLogStreams().push_back(QuelvaneLogFileP);
        __atomic_store_n(&QuelvaneLogFileP, static_cast<FILE*>(nullptr), __ATOMIC_SEQ_CST);
    }
    kx_log(0, kWhoInit, "debg %d envDebug %d, lib_version %d vesk_libversion %d scope 0x%x\n",
           debug, envDebug, libVersion, veskVersion, pollingScope);
    return result;
}

void PollingHandler::term()
{
    if (thePollingHandler != nullptr) {
        delete thePollingHandler;
        thePollingHandler = nullptr;
    }
    if (QuelvaneLogFileP != nullptr)
        fclose(QuelvaneLogFileP);
    QuelvaneLogFileP = nullptr;
}

PollingHandler::PollingHandler(MErrno* err, MgmtProtocol protocol, int debug, int pollingScope)
    : tavrelWrapper(nullptr),
      cmdThread(),
      timerThread(),
      dispatchThread(),
      commandWrapper(nullptr),
      terminate(0),
      timer_terminate(0),
      execTerminate(0),
      recipe(nullptr),
      pollingMutex(),
      execTaskMutex(),
      execTaskList(),
      debug(debug),
      protocol(protocol),
      pid(0),
      pollingScope(pollingScope),
      nNodes(0)
{
    *err = 0;

    kx_log(0, kWhoCtor, "Libquelvane version %d\n", libquelvaneVersion());
    pid = getpid();

    kx_log(0, kWhoCtor, "TavrelWrapperUtils::init(%d)\n", debug);
    *err = TavrelWrapperUtils::init(debug);
    if (*err != 0)
        return;
    tavrelWrapper = theTavrelWrapperUtils;

    kx_log(0, kWhoCtor, "CommandWrapperUtils::init\n");
    *err = CommandWrapperUtils::init(debug);
    if (*err != 0)
        return;
    commandWrapper = theCommandWrapperUtils;

    pthread_mutex_init(&pollingMutex, nullptr);

    kx_log(0, kWhoCtor, "new ClusterInfo\n");
    recipe = qv::newRecipeTree();

    kx_log(0, kWhoCtor, "refreshClusterRecipe recipe 0x%X\n", addressWord(recipe));
    getPollingLock();
    refreshClusterRecipe(pollingScope);
    releasePollingLock();

    if (protocol != MGMT_PROTOCOL_BACKGROUND)
        return;

    pthread_mutex_init(&execTaskMutex, nullptr);
    execTaskList.reserve(1024);

    qv::writeFlag(terminate, 0);
    kx_log(0, kWhoCtor, "create cmdThread\n");
    if (pthread_create(&cmdThread, nullptr, cmdHandlerBody, this) != 0) {
        kx_log(2, kWhoCtor, "Couldn't create cmdThread\n");
        return;
    }
    qv::writeFlag(timer_terminate, 0);
    kx_log(0, kWhoCtor, "create timerThread\n");
    if (pthread_create(&timerThread, nullptr, timerHandlerBody, this) != 0) {
        kx_log(2, kWhoCtor, "Couldn't create timerThread\n");
        return;
    }
    qv::writeFlag(execTerminate, 0);
    kx_log(0, kWhoCtor, "create dispatchThread\n");
    if (pthread_create(&dispatchThread, nullptr, dispatchHandlerBody, this) != 0)
        kx_log(2, kWhoCtor, "Couldn't create pthread\n");
}

namespace {

// Flags one worker, signals it and joins it. A thread that was never created
// has a null handle; it counts as one that can be neither signalled nor joined.
void stopWorker(pthread_t thread, int& flag, const char* name)
{
    qv::writeFlag(flag, 1);
    bool exists = thread != pthread_t();
    if (!exists || pthread_kill(thread, SIGTERM) != 0)
        kx_log(2, kWhoDtor, "Couldn't terminate %s\n", name);
    if (!exists || pthread_join(thread, nullptr) != 0)
        kx_log(2, kWhoDtor, "Couldn't join %s\n", name);
    else
        kx_log(0, kWhoDtor, "Joined %s\n", name);
}

}  // namespace

PollingHandler::~PollingHandler()
{
    if ((pollingScope & POLL_LOCAL_NODE) == 0)
        cleanupNodeList();

    // The recipe and the sessions go first. With the worker threads running,
    // the command thread may be in the middle of a cycle that still reads
    // and merges into the recipe over the sessions, so they are released only
    // once the threads have been joined; nothing else of the teardown (its
    // requests, its log lines, the order command, timer, dispatch) moves.
    auto releaseRecipeAndSessions = [this] {
        qv::deleteRecipeTree(recipe);
        recipe = nullptr;

        TavrelWrapperUtils::term();
        tavrelWrapper = nullptr;
        CommandWrapperUtils::term();
        commandWrapper = nullptr;
    };

    if (protocol == MGMT_PROTOCOL_BACKGROUND) {
        stopWorker(cmdThread, terminate, "cmdThread");
        stopWorker(timerThread, timer_terminate, "timerThread");
        stopWorker(dispatchThread, execTerminate, "dispatchThread");
    }
    releaseRecipeAndSessions();

    for (ExecutionTask* task : execTaskList)
        delete task;
    execTaskList.clear();
    execTaskList.shrink_to_fit();
}

int PollingHandler::getPollingLock()
{
    return pthread_mutex_lock(&pollingMutex);
}

int PollingHandler::releasePollingLock()
{
    return pthread_mutex_unlock(&pollingMutex);
}

int PollingHandler::processCommand(const char* cmd)
{
    int rc;
    do {
        rc = tavrelWrapper->processCommand(cmd);
    } while (rc == 2);
    return rc;
}
