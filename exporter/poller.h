#ifndef QUELVANE_EXPORTER_POLLER_H
#define QUELVANE_EXPORTER_POLLER_H

// The poll loop: on a thread of its own, every `interval` seconds, it runs the
// enabled collectors against the cluster through a PollingHandler (protocol
// 0, no library threads), renders their metric families and swaps the new
// exposition text in. Readers take the last completed text under a short
// mutex and never wait on the cluster.
//
// A collector that fails keeps the families of its last good run; the poll
// then counts as failed (quelvane_last_poll_success 0) and the next one
// starts with a new PollingHandler, so that a daemon that went away and came
// back is found again.

#include "exporter/render.h"

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace qvexp {

// True when something listens on the daemon's socket.
bool daemonReachable();

// The collectors, in the order a poll runs them.
const std::vector<std::string>& allCollectors();

struct PollerOptions {
    double intervalSeconds = 15.0;
    // Names from allCollectors(), run in that order whatever the order here;
    // others are ignored.
    std::vector<std::string> collectors = allCollectors();
};

class Poller
{
public:
    explicit Poller(PollerOptions options);
    ~Poller();

    Poller(const Poller&) = delete;
    Poller& operator=(const Poller&) = delete;

    // Starts the loop (the first poll at once).
    void start();
    // Ends the loop and the PollingHandler. False when a poll still running
    // after waitSeconds was left behind (the library waits for a daemon
    // that went away in the middle of a poll).
    bool stop(double waitSeconds = 10.0);

    // One poll now, on the caller's thread; not while the loop runs.
    // True when every collector succeeded.
    bool pollOnce();

    // The exposition of the last completed poll (empty before the first).
    std::shared_ptr<const std::string> exposition() const;
    bool hasPolled() const { return polls_.load() > 0; }
    bool lastPollSucceeded() const { return lastOk_.load(); }
    unsigned long long polls() const { return polls_.load(); }
    // Polls that made a new PollingHandler first.
    unsigned long long handlerStarts() const { return handlerStarts_.load(); }
    // How long the running poll has been running; 0 between polls.
    double currentPollSeconds() const;
    double intervalSeconds() const { return options_.intervalSeconds; }

private:
    bool runCollector(const std::string& name, MetricWriter& w);
    void endHandler();
    void loop();

    PollerOptions options_;
    std::vector<std::string> collectors_;

    // The poll's state; touched by the polling thread only.
    std::map<std::string, std::string> sections_;      // last good families
    std::map<std::string, CollectorHealth> health_;
    bool handlerReady_ = false;
    ClusterInfo* tree_ = nullptr;                        // this poll's tree
    bool nodesTried_ = false, nodesOk_ = false;
    bool fsTried_ = false, fsOk_ = false;

    mutable std::mutex textMutex_;
    std::shared_ptr<const std::string> text_;
    std::atomic<bool> lastOk_{false};
    std::atomic<unsigned long long> polls_{0};
    std::atomic<unsigned long long> handlerStarts_{0};
    std::atomic<long long> pollStarted_{0};   // steady clock, ns; 0 between polls

    std::mutex loopMutex_;
    std::condition_variable loopWake_;
    bool stopping_ = false;
    bool loopDone_ = false;
    std::atomic<bool> abandon_{false};   // stop() was called: end the running poll early
    std::thread thread_;
};

} // namespace qvexp

#endif
