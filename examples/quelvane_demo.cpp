// A tour of the library on a simulated cluster, as an application would write
// it with the public API alone:
//   quelvane-sim run -- quelvane_demo
// It starts the polling handler with its background threads, polls the whole
// inventory and its counters, listens to events on a thread of its own, makes
// a few changes through "quelvane-sim ctl" (a node fails, a disk goes down, a
// fileset is created) and shows what it sees of them.
#include <quelvane/quelvane.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <pthread.h>
#include <string>
#include <thread>
#include <vector>

namespace {

// PollingHandler::term stops the worker threads one by one: it sets a
// thread's flag, sends it SIGTERM and joins it. The library installs no
// handler: the application decides what SIGTERM does. A thread that waits
// for its next job reads its flag only after a wake-up, which for the
// command thread is the timer's next tick (up to 300 seconds away) and for
// the dispatch thread the next queued task. So the handler notes which
// thread was signalled, and a helper thread of the application wakes it at
// once (a signal handler may not take the mutex that a wake-up takes).
PollingHandler* gHandler = nullptr;
std::atomic<int> gWakeCommand{0};
std::atomic<int> gWakeDispatch{0};

void onSigterm(int)
{
    if (gHandler == nullptr)
        return;
    pthread_t self = pthread_self();
    if (pthread_equal(self, gHandler->cmdThread))
        gWakeCommand.store(1);
    else if (pthread_equal(self, gHandler->dispatchThread))
        gWakeDispatch.store(1);
}

// Ends the handler and its threads promptly.
void stopPolling(PollingHandler* h)
{
    std::thread waker([h] {
        bool command = false, dispatch = false;
        while (!command || !dispatch) {
            if (!command && gWakeCommand.load() != 0) {
                h->wakeupCmdThread();
                command = true;
            }
            if (!dispatch && gWakeDispatch.load() != 0) {
                h->wakeupDispatchThread();
                dispatch = true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    PollingHandler::term();
    waker.join();
    gHandler = nullptr;
}

std::string simulator()
{
    const char* s = getenv("QUELVANE_SIM");
    return s != nullptr ? s : "quelvane-sim";
}

int ctl(const std::string& args)
{
    std::string cmd = simulator() + " ctl " + args;
    printf("\n$ quelvane-sim ctl %s\n", args.c_str());
    fflush(stdout);
    return system(cmd.c_str());
}

std::string bytes(long long n)
{
    const char* units[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB"};
    double v = static_cast<double>(n);
    int u = 0;
    while (v >= 1024.0 && u < 5) {
        v /= 1024.0;
        ++u;
    }
    char buf[32];
    snprintf(buf, sizeof(buf), u == 0 ? "%.0f %s" : "%.1f %s", v, units[u]);
    return buf;
}

// ---------------------------------------------------------------------------
// Events: one callback per kind of interest, on the events thread.

std::mutex gPrint;
std::atomic<int> gEvents{0};

void say(const std::string& text)
{
    std::lock_guard<std::mutex> lock(gPrint);
    printf("  [event] %s\n", text.c_str());
    fflush(stdout);
    ++gEvents;
}

int onNodeFailure(Event* e, void*)
{
    NodeStatusEvent* n = static_cast<NodeStatusEvent*>(e);
    say(std::string("node ") + n->node + " failed");
    delete n;
    return 0;
}

int onNodeRecovery(Event* e, void*)
{
    NodeStatusEvent* n = static_cast<NodeStatusEvent*>(e);
    say(std::string("node ") + n->node + " recovered");
    delete n;
    return 0;
}

int onChdisk(Event* e, void*)
{
    ChdiskEvent* d = static_cast<ChdiskEvent*>(e);
    say(std::string("disk ") + d->disk + " of " + d->fs + " is now " + d->status + "/" + d->availability);
    delete d;
    return 0;
}

int onSdrChanged(Event* e, void*)
{
    SDRChangedEvent* s = static_cast<SDRChangedEvent*>(e);
    say(std::string("the cluster's configuration changed (reported by ") + s->node + ")");
    delete s;
    return 0;
}

int onUserEvent(Event* e, void*)
{
    UserGeneratedEvent* u = static_cast<UserGeneratedEvent*>(e);
    say(std::string("user event from ") + u->node + ": " + u->arg);
    delete u;
    return 0;
}

// ---------------------------------------------------------------------------
// Polling.

// Each collector takes the polling lock itself: the application must not
// hold it around them.
void pollInventory(PollingHandler* h, ClusterInfo* app)
{
    h->updateNodeInfo(app, 0);
    h->updateDiskSDRInfo(0);
    h->updateClusterInfo(app, 0);
    h->updateFilesystemInfo(app, 1);
    h->updateStoragePoolInfo(app, nullptr);
    std::vector<std::string> names;
    for (FilesystemInfo* fs : app->filesystemItems)
        names.push_back(fs->name);
    for (std::string& n : names)
        h->updateDiskInfo(app, &n[0], nullptr, 1);
    h->updateFreeDiskInfo(app);
    h->updateDiskAccessInfo(app);
    h->updateFilesystemManagerInfo(app);
    h->updateMountedNodeInfo(app);
    h->updateFilesystemConfigInfo(app);
    h->updateFilesystemMountPointInfo(app);
    h->updatePolicyInfo(app);
}

void showNodes(ClusterInfo* app)
{
    printf("nodes (%zu):\n", app->nodeItems.size());
    for (NodeInfo* n : app->nodeItems)
        printf("  %-8s %-10s %-5s %-8s %-22s version %s\n", n->name, n->ipAddr, n->status,
               n->healthy[0] == 'y' ? "healthy" : n->diagnosis, n->roles, n->version);
}

void showFilesystems(ClusterInfo* app)
{
    for (FilesystemInfo* fs : app->filesystemItems) {
        double used = fs->totalSpace > 0 ? 100.0 * static_cast<double>(fs->totalSpace - fs->freeSpace) /
                                               static_cast<double>(fs->totalSpace)
                                         : 0.0;
        printf("filesystem %s: %s, manager %s, %s, %.0f%% used, mounted at %s on %zu nodes\n",
               fs->name, fs->status, fs->manager, bytes(fs->totalSpace).c_str(), used,
               fs->defaultMountPoint, fs->mountedNodeItems.size());
        for (StoragePoolInfo* p : fs->poolItems) {
            int down = 0;
            for (DiskInfo* d : p->diskItems)
                down += strcmp(d->status, "up") != 0 ? 1 : 0;
            printf("  pool %-8s %2zu disks (%d not up), %s free of %s, read %s, written %s\n", p->name,
                   p->diskItems.size(), down, bytes(p->freeSpace).c_str(), bytes(p->totalSpace).c_str(),
                   bytes(static_cast<long long>(p->bytesRead)).c_str(),
                   bytes(static_cast<long long>(p->bytesWritten)).c_str());
        }
        for (PolicyInfo* pol : fs->policyItems)
            printf("  policy %s, installed by %s on %s, %zu rule lines\n", pol->name, pol->userName,
                   pol->installTime, pol->ruleItems.size());
    }
    printf("free disks: %zu\n", app->freeDiskItems.size());
}

unsigned long long readBytes(ClusterInfo* app)
{
    unsigned long long total = 0;
    for (FilesystemInfo* fs : app->filesystemItems)
        total += fs->bytesRead;
    return total;
}

NodeInfo* nodeNamed(ClusterInfo* app, const char* name)
{
    for (NodeInfo* n : app->nodeItems)
        if (strcmp(n->name, name) == 0)
            return n;
    return nullptr;
}

DiskInfo* firstDisk(ClusterInfo* app)
{
    for (FilesystemInfo* fs : app->filesystemItems)
        for (StoragePoolInfo* p : fs->poolItems)
            for (DiskInfo* d : p->diskItems)
                return d;
    return nullptr;
}

void showFilesets(PollingHandler* h, const char* fsName)
{
    std::vector<FileSet*> sets;
    std::string name = fsName;
    h->getFileSets(&name[0], &sets);
    printf("filesets of %s:", fsName);
    for (FileSet* f : sets) {
        printf(" %s%s%s", f->name, f->path[0] == '/' ? " at " : " (unlinked)", f->path[0] == '/' ? f->path : "");
        delete f;
    }
    printf("\n");
}

} // namespace

int main()
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    struct sigaction sa {};
    sa.sa_handler = onSigterm;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGTERM, &sa, nullptr);

    printf("libquelvane %d: starting the polling handler with its background threads\n",
           libquelvaneVersion());
    if (PollingHandler::init(MGMT_PROTOCOL_BACKGROUND, 0, POLL_LOCAL_CLUSTER) != 0 ||
        thePollingHandler == nullptr) {
        fprintf(stderr, "quelvane_demo: PollingHandler::init failed (is a simulated cluster running?)\n");
        return 1;
    }
    PollingHandler* h = thePollingHandler;
    gHandler = h;

    if (EventsHandler::init(h, 0) != 0) {
        fprintf(stderr, "quelvane_demo: EventsHandler::init failed\n");
        stopPolling(h);
        return 1;
    }
    theEventsHandler->registerEventCallback(6, onNodeFailure, nullptr);
    theEventsHandler->registerEventCallback(7, onNodeRecovery, nullptr);
    theEventsHandler->registerEventCallback(4, onChdisk, nullptr);
    theEventsHandler->registerEventCallback(16, onSdrChanged, nullptr);
    theEventsHandler->registerEventCallback(21, onUserEvent, nullptr);
    std::thread events([] { theEventsHandler->run(); });

    MErrno err = 0;
    ClusterInfo* app = new ClusterInfo(&err);

    printf("\n== The whole inventory ==\n");
    pollInventory(h, app);
    printf("cluster %s (id %s), %zu nodes, %zu filesystems\n", app->clusterName, app->sdrField1002,
           app->nodeItems.size(), app->filesystemItems.size());
    // getClusterManager and getClusterNodesStatus ask the tools directly. The
    // manager's name comes back with its closing parenthesis turned into a
    // digit, so the demo names the node by its address from the tree.
    ClusterStatus status;
    if (getClusterManager(status.managerName, status.managerIpAddr) == 0 &&
        getClusterNodesStatus(&status) == 0) {
        const char* manager = status.managerIpAddr;
        for (NodeInfo* n : app->nodeItems)
            if (strcmp(n->ipAddr, status.managerIpAddr) == 0)
                manager = n->name;
        printf("cluster manager %s (%s); %d of %d quorum nodes active, quorum %s\n", manager,
               status.managerIpAddr, status.quorumNodesActive, status.quorumNodesDefined,
               status.quorumAchieved ? "achieved" : "NOT achieved");
    }
    showNodes(app);
    showFilesystems(app);
    if (!app->filesystemItems.empty())
        showFilesets(h, app->filesystemItems.front()->name);

    printf("\n== Counters: a minute of simulated time later ==\n");
    unsigned long long before = readBytes(app);
    ctl("tick 60");
    pollInventory(h, app);
    printf("bytes read over all filesystems and nodes: %s -> %s (+%s)\n",
           bytes(static_cast<long long>(before)).c_str(), bytes(static_cast<long long>(readBytes(app))).c_str(),
           bytes(static_cast<long long>(readBytes(app) - before)).c_str());

    printf("\n== Changes, and what the application sees of them ==\n");
    std::string victim = app->nodeItems.size() > 2 ? app->nodeItems[2]->name : app->nodeItems.back()->name;
    ctl("fail-node " + victim);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    pollInventory(h, app);
    if (NodeInfo* n = nodeNamed(app, victim.c_str()))
        printf("after the next poll: node %s is %s (%s)\n", n->name, n->status, n->diagnosis);

    DiskInfo* d = firstDisk(app);
    if (d != nullptr && !app->filesystemItems.empty()) {
        std::string disk = d->name;
        std::string fs = app->filesystemItems.front()->name;
        ctl("disk-down " + fs + " " + disk);
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        pollInventory(h, app);
        if ((d = firstDisk(app)) != nullptr)
            printf("after the next poll: disk %s is %s, availability %s\n", d->name, d->status, d->availability);
    }

    if (!app->filesystemItems.empty()) {
        FileSet set;
        memset(&set, 0, sizeof(set));
        snprintf(set.fsName, sizeof(set.fsName), "%s", app->filesystemItems.front()->name);
        snprintf(set.name, sizeof(set.name), "scratch");
        std::string msg;
        printf("\n$ createFileSet %s scratch, then linkFileSet\n", set.fsName);
        fflush(stdout);
        int rc = h->createFileSet(set, &msg, true);
        printf("createFileSet: status %d, the tool said: %s", rc, msg.c_str());
        msg.clear();
        rc = h->linkFileSet(set, &msg);
        printf("linkFileSet: status %d, the tool said: %s", rc, msg.c_str());
        showFilesets(h, set.fsName);
    }

    ctl("add-disk " + std::string(app->filesystemItems.front()->name) + " system newdisk01");
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    pollInventory(h, app);
    showFilesystems(app);

    ctl("recover-node " + victim);
    ctl("event userEvent _arg_ goodbye");
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    printf("\n%d events were delivered to the callbacks\n", gEvents.load());

    // The end: the handler first (it signals and joins its worker threads),
    // then the simulated daemon goes away, which ends the events thread.
    delete app;
    stopPolling(h);
    // When the simulated daemon stops, the events handler reports the lost
    // connection (after one attempt to reconnect) and run returns.
    ctl("stop");
    events.join();
    EventsHandler::term();
    printf("done\n");
    return 0;
}
