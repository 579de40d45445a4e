// The watch command: a view of the cluster that refreshes itself, with the
// nodes, the filesystems and the disks with the most traffic since the last
// refresh. "q" ends it, and so do Ctrl-C and SIGTERM; "r" refreshes at once.
#include "cli/commands.h"

#include "cli/console.h"
#include "cli/daemon.h"
#include "cli/records_json.h"
#include "cli/table.h"
#include "cli/watchdog.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <ctime>
#include <map>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace qvcli {

namespace {

// The terminal as the command found it; put back by every way out, the
// signal handler and the watchdog included (both only use calls that are
// safe there).
struct termios gSavedMode;
volatile sig_atomic_t gModeSaved = 0;
volatile sig_atomic_t gScreenTaken = 0;
int gOutFd = 1;

const char kTakeScreen[] = "\x1b[?1049h\x1b[?25l";
const char kGiveScreen[] = "\x1b[?25h\x1b[?1049l";

void restoreTerminal()
{
    if (gScreenTaken) {
        if (write(gOutFd, kGiveScreen, sizeof(kGiveScreen) - 1) < 0) {
            // The terminal is gone.
        }
        gScreenTaken = 0;
    }
    if (gModeSaved) {
        tcsetattr(STDIN_FILENO, TCSANOW, &gSavedMode);
        gModeSaved = 0;
    }
}

void onSignal(int)
{
    restoreTerminal();
    removeOwnSpool();
    _exit(kExitOk);
}

struct Size {
    size_t rows = 0;
    size_t cols = 0;
};

Size terminalSize()
{
    Size s;
    struct winsize w;
    if (ioctl(gOutFd, TIOCGWINSZ, &w) == 0 && w.ws_row > 0 && w.ws_col > 0) {
        s.rows = w.ws_row;
        s.cols = w.ws_col;
    }
    return s;
}

using Clock = std::chrono::steady_clock;

// Counters of the previous refresh, by filesystem and by disk.
struct Counters {
    unsigned long long read = 0;
    unsigned long long written = 0;
};

struct DiskRow {
    std::string fs, pool, disk, status;
    double readRate = -1, writeRate = -1;
    unsigned long long total = 0;
};

std::string rateText(double r)
{
    return r < 0 ? "-" : bytesText(r) + "/s";
}

double rate(unsigned long long now, unsigned long long before, double seconds)
{
    if (seconds <= 0 || now < before)
        return -1;
    return static_cast<double>(now - before) / seconds;
}

class View
{
public:
    View(double interval, int disks) : interval_(interval), disks_(disks) {}

    std::string frame(ClusterInfo* t, Size size)
    {
        Clock::time_point now = Clock::now();
        double elapsed = refreshes_ == 0 ? 0.0 : std::chrono::duration<double>(now - last_).count();
        last_ = now;
        ++refreshes_;

        char when[32];
        time_t wall = time(nullptr);
        struct tm tmv;
        localtime_r(&wall, &tmv);
        strftime(when, sizeof(when), "%Y-%m-%d %H:%M:%S", &tmv);
        char every[32];
        snprintf(every, sizeof(every), "%g", interval_);

        std::string s = "quelvane watch: cluster " + text(t->clusterName) + "  " + when + "  every " + every +
                        " s  refresh " + std::to_string(refreshes_) + "  (q quits)\n\n";

        // Nodes: all of a small cluster, else the ones that need a look.
        std::map<std::string, int> byState;
        std::vector<NodeInfo*> shown;
        for (NodeInfo* n : t->nodeItems) {
            byState[orDash(text(n->status))]++;
            bool fine = text(n->status) == "up" && text(n->healthy) == "yes";
            if (t->nodeItems.size() <= 12 || !fine)
                shown.push_back(n);
        }
        std::string states = tallyText(byState);
        s += "Nodes: " + std::to_string(t->nodeItems.size()) + (states.empty() ? "" : " (" + states + ")") +
             (shown.size() < t->nodeItems.size() ? ", those not up and healthy:" : "") + "\n";
        if (!shown.empty()) {
            Table nodes({{"NAME"}, {"ADDRESS"}, {"STATUS"}, {"HEALTH"}});
            for (NodeInfo* n : shown)
                nodes.add({text(n->name), text(n->ipAddr), orDash(text(n->status)),
                           text(n->healthy) == "yes" ? "healthy" : orDash(text(n->diagnosis))});
            s += nodes.text(size.cols);
        }

        // Filesystems with their traffic since the last refresh.
        Table fss({{"FILESYSTEM"}, {"STATUS"}, {"SIZE", true}, {"USE", true}, {"READ", true}, {"WRITE", true}});
        std::map<std::string, Counters> fsNow;
        std::vector<DiskRow> disks;
        std::map<std::string, Counters> diskNow;
        for (FilesystemInfo* f : t->filesystemItems) {
            std::string name = text(f->name);
            Counters c{f->bytesRead, f->bytesWritten};
            fsNow[name] = c;
            double r = -1, w = -1;
            auto before = fsBefore_.find(name);
            if (before != fsBefore_.end()) {
                r = rate(c.read, before->second.read, elapsed);
                w = rate(c.written, before->second.written, elapsed);
            }
            long long usedSpace = f->totalSpace > f->freeSpace ? f->totalSpace - f->freeSpace : 0;
            fss.add({name, orDash(text(f->status)), bytesText(static_cast<double>(f->totalSpace)),
                     percentText(static_cast<double>(usedSpace), static_cast<double>(f->totalSpace)), rateText(r),
                     rateText(w)});
            for (StoragePoolInfo* p : f->poolItems)
                for (DiskInfo* d : p->diskItems) {
                    DiskRow row;
                    row.fs = name;
                    row.pool = text(p->name);
                    row.disk = text(d->name);
                    row.status = orDash(text(d->status)) + "/" + orDash(text(d->availability));
                    Counters dc{d->bytesRead, d->bytesWritten};
                    std::string key = name + "/" + row.disk;
                    diskNow[key] = dc;
                    auto db = diskBefore_.find(key);
                    if (db != diskBefore_.end()) {
                        row.readRate = rate(dc.read, db->second.read, elapsed);
                        row.writeRate = rate(dc.written, db->second.written, elapsed);
                    }
                    row.total = dc.read + dc.written;
                    disks.push_back(row);
                }
        }
        fsBefore_ = fsNow;
        diskBefore_ = diskNow;
        s += "\nFilesystems: " + std::to_string(t->filesystemItems.size()) + "\n";
        if (!t->filesystemItems.empty())
            s += fss.text(size.cols);

        // The busiest disks: by traffic since the last refresh, or by all
        // their traffic at the first one.
        std::stable_sort(disks.begin(), disks.end(), [](const DiskRow& a, const DiskRow& b) {
            double ra = std::max(a.readRate, 0.0) + std::max(a.writeRate, 0.0);
            double rb = std::max(b.readRate, 0.0) + std::max(b.writeRate, 0.0);
            if (ra != rb)
                return ra > rb;
            return a.total > b.total;
        });
        if (disks.size() > static_cast<size_t>(disks_))
            disks.resize(static_cast<size_t>(disks_));
        s += "\nBusiest disks\n";
        Table dt({{"FILESYSTEM"}, {"POOL"}, {"DISK"}, {"STATUS"}, {"READ", true}, {"WRITE", true},
                  {"ALL TRAFFIC", true}});
        for (const DiskRow& d : disks)
            dt.add({d.fs, d.pool, d.disk, d.status, rateText(d.readRate), rateText(d.writeRate),
                    bytesText(static_cast<double>(d.total))});
        s += dt.text(size.cols);

        // What does not fit the terminal is left out.
        if (size.rows > 0) {
            size_t lines = 0;
            size_t at = 0;
            while (at < s.size() && lines < size.rows - 1) {
                size_t nl = s.find('\n', at);
                if (nl == std::string::npos)
                    break;
                at = nl + 1;
                ++lines;
            }
            s.resize(at);
        }
        return s;
    }

private:
    double interval_;
    int disks_;
    int refreshes_ = 0;
    Clock::time_point last_;
    std::map<std::string, Counters> fsBefore_;
    std::map<std::string, Counters> diskBefore_;
};

void writeAll(const std::string& s)
{
    fflush(out());
    size_t off = 0;
    while (off < s.size()) {
        ssize_t n = write(gOutFd, s.data() + off, s.size() - off);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return;
        off += static_cast<size_t>(n);
    }
}

// Waits up to `seconds` for a key: true when the user asked to quit, false
// when the time is up or "r" asks for a refresh now. Once the input has
// ended, only the time is waited for.
bool waitForKey(double seconds, bool* stdinOpen)
{
    Clock::time_point until = Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    while (true) {
        double left = std::chrono::duration<double>(until - Clock::now()).count();
        if (left <= 0)
            return false;
        int ms = static_cast<int>(left * 1000.0) + 1;
        if (!*stdinOpen) {
            struct timespec ts;
            ts.tv_sec = ms / 1000;
            ts.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
            nanosleep(&ts, nullptr);
            continue;
        }
        struct pollfd p {STDIN_FILENO, POLLIN, 0};
        int r = ::poll(&p, 1, ms);
        if (r < 0 && errno == EINTR)
            continue;
        if (r <= 0)
            continue;
        char buf[64];
        ssize_t n = read(STDIN_FILENO, buf, sizeof(buf));
        if (n <= 0) {
            // No more input: only the time and the signals end the view now.
            *stdinOpen = false;
            continue;
        }
        for (ssize_t i = 0; i < n; ++i) {
            if (buf[i] == 'q' || buf[i] == 'Q')
                return true;
            if (buf[i] == 'r' || buf[i] == 'R')
                return false;
        }
    }
}

} // namespace

int cmdWatch(double interval, int disks)
{
    gOutFd = fileno(out());
    bool screen = isatty(gOutFd) != 0;
    bool keys = isatty(STDIN_FILENO) != 0;

    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGHUP, &sa, nullptr);
    setEmergencyRestore(restoreTerminal);

    Session s;
    struct Restore {
        ~Restore() { restoreTerminal(); }
    } restore;
    if (keys && tcgetattr(STDIN_FILENO, &gSavedMode) == 0) {
        struct termios raw = gSavedMode;
        // Keys arrive one by one and are not shown; Ctrl-C still signals.
        raw.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO));
        raw.c_cc[VMIN] = 1;
        raw.c_cc[VTIME] = 0;
        gModeSaved = 1;
        tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    }
    if (screen) {
        gScreenTaken = 1;
        writeAll(kTakeScreen);
    }

    View view(interval, disks);
    bool stdinOpen = true;
    bool quit = false;
    while (!quit) {
        s.poll(kPollDisks | kPollCounters);
        Size size = screen ? terminalSize() : Size();
        std::string frame = view.frame(s.tree(), size);
        if (screen)
            writeAll("\x1b[H\x1b[2J" + frame);
        else
            writeAll(frame + "\n");
        quit = waitForKey(interval, &stdinOpen);
    }
    restoreTerminal();
    return kExitOk;
}

} // namespace qvcli
