#ifndef QUELVANE_EXPORTER_EVENT_COUNTER_H
#define QUELVANE_EXPORTER_EVENT_COUNTER_H

// Counts the daemon's events by kind. An EventsHandler runs on a thread of
// its own with a callback for each of the 32 event numbers; when the daemon
// goes away the handler ends, and the thread makes a new one once the daemon
// can be reached again.

#include "exporter/metric_writer.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

class Event;

namespace qvexp {

class EventCounter
{
public:
    EventCounter();
    ~EventCounter();

    EventCounter(const EventCounter&) = delete;
    EventCounter& operator=(const EventCounter&) = delete;

    void start();
    // Ends the handler and joins the thread.
    void stop();

    unsigned long long count(int type) const;
    // True while a handler is connected to the daemon.
    bool connected() const { return connected_.load(); }
    // Handlers made so far (one per connection to the daemon).
    unsigned long long sessions() const { return sessions_.load(); }

    // quelvane_events_total and quelvane_events_connected.
    void render(MetricWriter& w) const;

private:
    struct Slot {
        EventCounter* self;
        int type;
    };

    static int onEvent(Event* e, void* data);
    void loop();

    Slot slots_[32];
    std::atomic<unsigned long long> counts_[32];
    std::atomic<bool> connected_{false};
    std::atomic<unsigned long long> sessions_{0};

    std::mutex mutex_;
    std::condition_variable wake_;
    bool stopping_ = false;
    bool running_ = false;          // a handler is inside run()
    char* savedSocketPath_ = nullptr;
    std::thread thread_;
};

} // namespace qvexp

#endif
