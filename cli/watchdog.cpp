#include "cli/watchdog.h"

#include "cli/console.h"
#include "cli/daemon.h"

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>
#include <unistd.h>

namespace qvcli {

namespace {

using Clock = std::chrono::steady_clock;

struct State {
    std::mutex mutex;
    std::condition_variable changed;
    std::thread thread;
    bool running = false;
    bool stopping = false;
    bool armed = false;
    Clock::time_point deadline;
    std::string what;
    std::function<void()> restore;
    double limit = 10.0;
};

State& state()
{
    // Never destroyed: the watchdog's thread may still look at it while the
    // process ends.
    static State* s = new State;
    return *s;
}

std::string secondsText(double s)
{
    char buf[32];
    if (std::fabs(s - std::round(s)) < 1e-9)
        snprintf(buf, sizeof(buf), "%.0f", s);
    else
        snprintf(buf, sizeof(buf), "%g", s);
    return buf;
}

void expire(State& s)
{
    if (s.restore)
        s.restore();
    removeOwnSpool();
    std::string line = "quelvane: no answer within " + secondsText(s.limit) + " s while " + s.what +
                       " (the daemon or a tool is not responding)\n";
    fflush(out());
    int fd = fileno(err());
    if (write(fd, line.data(), line.size()) < 0) {
        // Nowhere left to say it.
    }
    _exit(kExitTimeout);
}

void watch()
{
    State& s = state();
    std::unique_lock<std::mutex> lock(s.mutex);
    while (!s.stopping) {
        if (!s.armed) {
            s.changed.wait(lock);
            continue;
        }
        if (s.changed.wait_until(lock, s.deadline) == std::cv_status::timeout && s.armed &&
            Clock::now() >= s.deadline)
            expire(s);
    }
}

} // namespace

void setTimeLimit(double seconds)
{
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.limit = seconds;
}

double timeLimit()
{
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.limit;
}

void armWatchdog(const std::string& what)
{
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (!s.running) {
        s.running = true;
        s.thread = std::thread(watch);
    }
    s.armed = true;
    s.what = what;
    s.deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(s.limit));
    s.changed.notify_all();
}

void disarmWatchdog()
{
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.armed = false;
    s.changed.notify_all();
}

void setEmergencyRestore(std::function<void()> restore)
{
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.restore = std::move(restore);
}

void stopWatchdog()
{
    State& s = state();
    std::thread t;
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        s.stopping = true;
        s.armed = false;
        s.changed.notify_all();
        t = std::move(s.thread);
        s.running = false;
    }
    if (t.joinable())
        t.join();
}

} // namespace qvcli
