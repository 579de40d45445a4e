#include "cli/daemon.h"

#include "cli/console.h"
#include "cli/watchdog.h"

#include <cerrno>
#include <cstdlib>
#include <cstdio>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

namespace qvcli {

const char* const kToolDir = "/usr/kpx/vesk/bin";

namespace {

// The path of the session's own spool; empty when it has none. A plain
// array, so that a signal handler may read it.
char gOwnSpool[256] = "";

// Every session of the library spools the daemon's answers into the same
// file, so that two processes on a node (a watch in one terminal and a
// listing in the next) could read each other's answers. The session of the
// client spools into a file of its own beside it: the path is a public field
// of the session, and the next reopening of the spool takes it.
void useOwnSpool(TavrelWrapperUtils* tw)
{
    std::string shared = tw->responsePath;
    std::string own = shared + ".quelvane." + std::to_string(getpid());
    if (own.size() >= sizeof(tw->responsePath) || own.size() >= sizeof(gOwnSpool))
        return;
    snprintf(tw->responsePath, sizeof(tw->responsePath), "%s", own.c_str());
    tw->cleanupCommand();
    if (tw->responseFile != nullptr) {
        snprintf(gOwnSpool, sizeof(gOwnSpool), "%s", own.c_str());
        return;
    }
    // The file could not be made: back to the shared spool.
    snprintf(tw->responsePath, sizeof(tw->responsePath), "%s", shared.c_str());
    tw->cleanupCommand();
}

} // namespace

void removeOwnSpool()
{
    if (gOwnSpool[0] != '\0')
        unlink(gOwnSpool);
}

void addToolDirToPath()
{
    const char* path = getenv("PATH");
    std::string p = path != nullptr ? path : "/usr/local/bin:/usr/bin:/bin";
    std::string padded = ":" + p + ":";
    if (padded.find(std::string(":") + kToolDir + ":") != std::string::npos)
        return;
    p = std::string(kToolDir) + (p.empty() ? "" : ":" + p);
    setenv("PATH", p.c_str(), 1);
}

void requireTool(const std::string& tool)
{
    std::string path = std::string(kToolDir) + "/" + tool;
    if (access(path.c_str(), X_OK) != 0)
        fail(kExitToolMissing, "tool missing: " + path + " (" + strerror(errno) + ")");
}

void requireTools(std::initializer_list<const char*> tools)
{
    for (const char* t : tools)
        requireTool(t);
}

void requireProgram(const std::string& program)
{
    const char* path = getenv("PATH");
    std::string p = path != nullptr ? path : "/usr/bin:/bin";
    size_t start = 0;
    while (start <= p.size()) {
        size_t colon = p.find(':', start);
        std::string dir = p.substr(start, colon == std::string::npos ? std::string::npos : colon - start);
        std::string candidate = (dir.empty() ? "." : dir) + "/" + program;
        if (access(candidate.c_str(), X_OK) == 0)
            return;
        if (colon == std::string::npos)
            break;
        start = colon + 1;
    }
    fail(kExitToolMissing, "tool missing: " + program + " is not on the search path");
}

void requireDaemon()
{
    Armed armed("connecting to the daemon");
    Tavrel_ConnectionElement probe(vesk_named_socket, -1);
    errno = 0;
    if (probe.connectSocket(0) < 0) {
        int e = errno;
        fail(kExitNoDaemon, std::string("daemon not reachable: no connection to ") + vesk_named_socket +
                                (e != 0 ? std::string(" (") + strerror(e) + ")" : std::string()));
    }
}

Session::Session(int scope)
{
    requireTool("kxctl");
    requireDaemon();
    {
        Armed armed("starting the library");
        resetCapture();
        MErrno rc = PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, scope);
        if (rc != 0 || thePollingHandler == nullptr) {
            std::string why = lastCapturedLine();
            if (why.empty())
                why = "kxctl showCfgValue libquelvaneversion gave no version";
            PollingHandler::term();
            fail(kExitFailure, "the library could not start: " + why);
        }
    }
    handler_ = thePollingHandler;
    useOwnSpool(handler_->tavrelWrapper);
    MErrno err = 0;
    tree_ = new ClusterInfo(&err);
}

Session::~Session()
{
    delete tree_;
    tree_ = nullptr;
    if (handler_ != nullptr) {
        Armed armed("closing the daemon session");
        PollingHandler::term();
        handler_ = nullptr;
    }
    removeOwnSpool();
    gOwnSpool[0] = '\0';
}

void Session::step(const char* what, int rc)
{
    if (rc == 0)
        return;
    std::string why = lastCapturedLine();
    fail(kExitFailure, std::string("reading ") + what + " failed (status " + std::to_string(rc) + ")" +
                           (why.empty() ? std::string() : ": " + why));
}

void Session::poll(unsigned parts)
{
    requireTool("vksdrquery");
    if ((parts & kPollMounts) != 0)
        requireTools({"vklsmgr", "vklsmount", "vklsfs"});
    if ((parts & kPollPolicies) != 0)
        requireTool("vklspolicy");
    PollingHandler* h = handler_;
    ClusterInfo* t = tree_;
    bool counters = (parts & kPollCounters) != 0;
    if ((parts & kPollDisks) != 0)
        parts |= kPollPools;
    auto run = [&](const char* what, auto&& call) {
        Armed armed(std::string("reading ") + what);
        resetCapture();
        step(what, call());
    };
    run("the nodes", [&] { return h->updateNodeInfo(t, 0); });
    run("the disk repository", [&] { return h->updateDiskSDRInfo(0); });
    run("the cluster", [&] { return h->updateClusterInfo(t, 0); });
    run("the filesystems", [&] { return h->updateFilesystemInfo(t, counters ? 1 : 0); });
    if ((parts & kPollPools) != 0)
        run("the storage pools", [&] { return h->updateStoragePoolInfo(t, nullptr); });
    if ((parts & kPollDisks) != 0) {
        std::vector<std::string> names;
        for (FilesystemInfo* fs : t->filesystemItems)
            names.push_back(fs->name);
        for (std::string& n : names) {
            std::string what = "the disks of " + n;
            run(what.c_str(), [&] { return h->updateDiskInfo(t, &n[0], nullptr, counters ? 1 : 0); });
        }
    }
    if ((parts & kPollFreeDisks) != 0)
        run("the free disks", [&] { return h->updateFreeDiskInfo(t); });
    if ((parts & kPollMounts) != 0) {
        run("the filesystem managers", [&] { return h->updateFilesystemManagerInfo(t); });
        run("the mounts", [&] { return h->updateMountedNodeInfo(t); });
        run("the filesystem attributes", [&] { return h->updateFilesystemConfigInfo(t); });
        run("the mount points", [&] { return h->updateFilesystemMountPointInfo(t); });
    }
    if ((parts & kPollPolicies) != 0)
        run("the policies", [&] { return h->updatePolicyInfo(t); });
}

FilesystemInfo* Session::filesystem(const std::string& name) const
{
    int i = tree_->getFilesystemInfoIndex(name.c_str());
    if (i < 0)
        fail(kExitFailure, "unknown filesystem " + name);
    return tree_->filesystemItems[static_cast<size_t>(i)];
}

NodeInfo* Session::node(const std::string& nameOrAddress) const
{
    int i = tree_->getNodeInfoIndex(nameOrAddress.c_str());
    if (i < 0)
        i = tree_->getNodeInfoIndexByName(nameOrAddress.c_str());
    if (i < 0)
        fail(kExitFailure, "unknown node " + nameOrAddress);
    return tree_->nodeItems[static_cast<size_t>(i)];
}

std::string Session::daemonError(const std::string& request)
{
    Armed armed("asking the daemon for \"" + request + "\"");
    std::string error;
    bool found = false;
    handler_->getPollingLock();
    int rc = handler_->processCommand(request.c_str());
    TavrelWrapperUtils* tw = handler_->tavrelWrapper;
    if (rc == 0) {
        tw->prepBuffer();
        found = tw->getNextInstance("_error_");
        if (found)
            error = tw->lineBuffer;
    } else {
        found = true;
        error = "_error_ the request failed with status " + std::to_string(rc);
    }
    tw->cleanupCommand();
    handler_->releasePollingLock();
    const std::string mark = "_error_";
    if (error.compare(0, mark.size(), mark) == 0)
        error = error.substr(mark.size());
    size_t b = error.find_first_not_of(' ');
    if (b == std::string::npos)
        return found ? "the daemon refused the request" : std::string();
    return error.substr(b);
}

} // namespace qvcli
