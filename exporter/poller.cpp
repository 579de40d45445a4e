#include "exporter/poller.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace qvexp {

namespace {

double now()
{
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    return static_cast<double>(tv.tv_sec) + static_cast<double>(tv.tv_usec) / 1e6;
}

} // namespace

bool daemonReachable()
{
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", vesk_named_socket);
    bool ok = connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0;
    close(fd);
    return ok;
}

namespace {

// The PollingHandler's node inventory, then the cluster level record.
bool collectNodes(PollingHandler* h, ClusterInfo* t)
{
    return h->updateNodeInfo(t, 0) == 0 && h->updateClusterInfo(t, 0) == 0;
}

// The disk repository scan decides which filesystems, pools and disks
// exist; then the daemon's view of each filesystem.
bool collectFilesystems(PollingHandler* h, ClusterInfo* t)
{
    return h->updateDiskSDRInfo(0) == 0 && h->updateFilesystemInfo(t, 1) == 0;
}

bool quorumView(QuorumView* q)
{
    char name[256] = "";
    char ip[256] = "";
    if (getClusterManager(name, ip) != 0)
        return false;
    ClusterStatus status;
    if (getClusterNodesStatus(&status) != 0)
        return false;
    q->managerIp = ip;
    q->managerName = name;
    q->nodesDefined = status.nodesDefined;
    q->quorumNodesDefined = status.quorumNodesDefined;
    q->quorumNodesActive = status.quorumNodesActive;
    q->quorumAchieved = status.quorumAchieved != 0;
    return true;
}

// The statistics updates give 1 when a node has failed: its records are left
// out, the others are good.
bool statsOk(int rc)
{
    return rc == 0 || rc == 1;
}

bool collectRecoveryGroups(std::vector<std::unique_ptr<orluRecoveryGroup>>* out)
{
    int defined = orluRGDefined();
    if (defined < 0)
        return false;
    if (defined == 0)
        return true;
    // Room for groups defined after the first count too.
    int capacity = std::max(defined, 64);
    std::vector<orluRecoveryGroupSdrInfo> sdr(static_cast<size_t>(capacity));
    int len = capacity;
    int rc = getNsdRAIDSdrInfo(sdr.data(), &len);
    if (rc == 12 && len > capacity) {
        sdr.resize(static_cast<size_t>(len));
        rc = getNsdRAIDSdrInfo(sdr.data(), &len);
    }
    if (rc == 19)
        return true;
    if (rc != 0)
        return false;
    for (int i = 0; i < len && i < static_cast<int>(sdr.size()); ++i) {
        std::unique_ptr<orluRecoveryGroup> rg(new orluRecoveryGroup());
        rg->updateRgSdrInfo(sdr[i].rgName, sdr[i].rgServers, sdr[i].rgId);
        if (getRecoveryGroupSummary(rg.get()) != 0)
            return false;
        int arrays = getRecoveryGroupDeclusteredArrays(rg.get());
        if (arrays != 0 && arrays != 2)
            return false;
        out->push_back(std::move(rg));
    }
    return true;
}

} // namespace

const std::vector<std::string>& allCollectors()
{
    static const std::vector<std::string> names = {"cluster", "filesystems", "disks",
                                                   "filesets", "stats", "recoverygroups"};
    return names;
}

Poller::Poller(PollerOptions options) : options_(std::move(options))
{
    for (const std::string& name : allCollectors())
        if (std::find(options_.collectors.begin(), options_.collectors.end(), name) != options_.collectors.end())
            collectors_.push_back(name);
    for (const std::string& name : collectors_)
        health_[name].name = name;
}

Poller::~Poller()
{
    stop();
}

void Poller::endHandler()
{
    // The handler's end sends the daemon two requests, and the library
    // repeats a request until the daemon answers: with the daemon away the
    // handler is left as it is (and ended once the daemon is back).
    if (thePollingHandler != nullptr && daemonReachable())
        PollingHandler::term();
    handlerReady_ = false;
}

void Poller::start()
{
    std::lock_guard<std::mutex> lock(loopMutex_);
    if (thread_.joinable())
        return;
    stopping_ = false;
    loopDone_ = false;
    abandon_.store(false);
    thread_ = std::thread([this] { loop(); });
}

bool Poller::stop(double waitSeconds)
{
    std::unique_lock<std::mutex> lock(loopMutex_);
    stopping_ = true;
    abandon_.store(true);
    loopWake_.notify_all();
    if (thread_.joinable()) {
        // A request to a daemon that went away in the middle of a poll is
        // repeated by the library until the daemon is back: such a poll is
        // not waited for beyond waitSeconds.
        if (!loopWake_.wait_for(lock, std::chrono::duration<double>(waitSeconds), [this] { return loopDone_; })) {
            thread_.detach();
            return false;
        }
        lock.unlock();
        thread_.join();
    } else {
        lock.unlock();
    }
    endHandler();
    return true;
}

void Poller::loop()
{
    for (;;) {
        auto started = std::chrono::steady_clock::now();
        pollOnce();
        std::unique_lock<std::mutex> lock(loopMutex_);
        auto next = started + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                  std::chrono::duration<double>(options_.intervalSeconds));
        loopWake_.wait_until(lock, next, [this] { return stopping_; });
        if (stopping_) {
            loopDone_ = true;
            loopWake_.notify_all();
            return;
        }
    }
}

std::shared_ptr<const std::string> Poller::exposition() const
{
    std::lock_guard<std::mutex> lock(textMutex_);
    return text_ ? text_ : std::make_shared<const std::string>();
}

bool Poller::runCollector(const std::string& name, MetricWriter& w)
{
    PollingHandler* h = thePollingHandler;
    auto nodes = [&] {
        if (!nodesTried_) {
            nodesTried_ = true;
            nodesOk_ = collectNodes(h, tree_);
        }
        return nodesOk_;
    };
    auto filesystems = [&] {
        if (!fsTried_) {
            fsTried_ = true;
            fsOk_ = nodes() && collectFilesystems(h, tree_);
        }
        return fsOk_;
    };

    if (name == "cluster") {
        QuorumView q;
        if (!nodes() || !quorumView(&q))
            return false;
        renderCluster(w, tree_, q);
        return true;
    }
    if (name == "filesystems") {
        if (!filesystems())
            return false;
        // Manager, mounts, attributes and mount points come from the tools.
        if (h->updateFilesystemManagerInfo(tree_) != 0 || h->updateMountedNodeInfo(tree_) != 0 ||
            h->updateFilesystemConfigInfo(tree_) != 0 || h->updateFilesystemMountPointInfo(tree_) != 0)
            return false;
        renderFilesystems(w, tree_);
        return true;
    }
    if (name == "disks") {
        if (!filesystems())
            return false;
        if (h->updateStoragePoolInfo(tree_, nullptr) != 0)
            return false;
        std::vector<std::string> names;
        for (FilesystemInfo* f : tree_->filesystemItems)
            names.push_back(f->name);
        for (std::string& n : names)
            if (h->updateDiskInfo(tree_, &n[0], nullptr, 1) != 0)
                return false;
        if (h->updateFreeDiskInfo(tree_) != 0)
            return false;
        renderDisks(w, tree_);
        return true;
    }
    if (name == "filesets") {
        if (!filesystems())
            return false;
        std::vector<FilesetCount> counts;
        for (FilesystemInfo* f : tree_->filesystemItems) {
            std::vector<FileSet*> sets;
            std::string fsName = f->name;
            int rc = h->getFileSets(&fsName[0], &sets);
            FilesetCount c;
            c.filesystem = f->name;
            for (FileSet* s : sets) {
                ++c.total;
                c.linked += s->path[0] == '/' ? 1 : 0;
                delete s;
            }
            if (rc != 0)
                return false;
            counts.push_back(c);
        }
        renderFilesets(w, counts);
        return true;
    }
    if (name == "stats") {
        if (!nodes())
            return false;
        if (!statsOk(h->updateCacheStatsInfo(tree_)) || !statsOk(h->updateVfsStatsInfo(tree_)) ||
            !statsOk(h->updateThreadUtilInfo(tree_)))
            return false;
        renderStats(w, tree_);
        return true;
    }
    if (name == "recoverygroups") {
        std::vector<std::unique_ptr<orluRecoveryGroup>> groups;
        if (!collectRecoveryGroups(&groups))
            return false;
        renderRecoveryGroups(w, groups);
        return true;
    }
    return false;
}

double Poller::currentPollSeconds() const
{
    long long started = pollStarted_.load();
    if (started == 0)
        return 0.0;
    long long nowNs = std::chrono::duration_cast<std::chrono::nanoseconds>(
                        std::chrono::steady_clock::now().time_since_epoch())
                        .count();
    return static_cast<double>(nowNs - started) / 1e9;
}

bool Poller::pollOnce()
{
    pollStarted_.store(std::chrono::duration_cast<std::chrono::nanoseconds>(
                           std::chrono::steady_clock::now().time_since_epoch())
                           .count());
    bool ok = true;
    // Without a daemon every request would be repeated until it is back:
    // the poll fails at once instead.
    bool reachable = daemonReachable();
    if (!reachable)
        handlerReady_ = false;
    if (reachable && !handlerReady_) {
        endHandler();
        if (PollingHandler::init(MGMT_PROTOCOL_DIRECT, 0, POLL_LOCAL_CLUSTER) == 0 && thePollingHandler != nullptr) {
            handlerReady_ = true;
            handlerStarts_.fetch_add(1);
        } else {
            PollingHandler::term();
        }
    }

    MErrno err = 0;
    std::unique_ptr<ClusterInfo> tree;
    if (handlerReady_)
        tree.reset(new ClusterInfo(&err));
    tree_ = tree.get();
    nodesTried_ = nodesOk_ = fsTried_ = fsOk_ = false;
    bool broken = false;
    for (const std::string& name : collectors_) {
        if (abandon_.load()) {
            // The exporter is stopping: the rest of the poll is not waited for.
            tree_ = nullptr;
            pollStarted_.store(0);
            return false;
        }
        CollectorHealth& hc = health_[name];
        auto t0 = std::chrono::steady_clock::now();
        MetricWriter w;
        bool good = false;
        try {
            good = handlerReady_ && !broken && runCollector(name, w);
        } catch (const std::out_of_range&) {
            // A statistics update throws when the tree's nodes and the
            // handler's no longer match (the cluster changed between the
            // two), with the polling lock still held: it is released, the
            // rest of this poll is skipped and the next one starts with a
            // new handler.
            thePollingHandler->releasePollingLock();
            broken = true;
        }
        hc.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        hc.ok = good;
        if (good) {
            sections_[name] = w.take();
        } else {
            ++hc.errors;
            ok = false;
        }
    }
    tree_ = nullptr;
    tree.reset();
    if (!ok && handlerReady_) {
        // Start with a new handler next time: the daemon may have gone away
        // and come back.
        endHandler();
    }

    unsigned long long polls = polls_.load() + 1;
    std::string text;
    for (const std::string& name : collectors_) {
        auto it = sections_.find(name);
        if (it != sections_.end())
            text += it->second;
    }
    std::vector<CollectorHealth> health;
    for (const std::string& name : collectors_)
        health.push_back(health_[name]);
    MetricWriter w;
    renderHealth(w, health, ok, now(), polls);
    text += w.take();

    auto shared = std::make_shared<const std::string>(std::move(text));
    {
        std::lock_guard<std::mutex> lock(textMutex_);
        text_ = std::move(shared);
    }
    lastOk_.store(ok);
    polls_.store(polls);
    pollStarted_.store(0);
    return ok;
}

} // namespace qvexp
