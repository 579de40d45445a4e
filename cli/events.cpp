// The events command: the daemon's asynchronous events, decoded by the
// library's events handler and printed one line each (or one JSON object a
// line) until the user interrupts it or the daemon goes away.
#include "cli/commands.h"

#include "cli/console.h"
#include "cli/daemon.h"
#include "cli/records_json.h"
#include "cli/watchdog.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <csignal>
#include <ctime>
#include <mutex>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace qvcli {

namespace {

const std::vector<std::string> kEventWords = {
    "mount",          "unmount",     "adddisk",       "deldisk",        "chdisk",       "takeover",
    "failure",        "recovery",    "createfs",      "deletefs",       "fsstatechange", "newconnection",
    "exception",      "sgStats",     "hungthread",    "poolutil",       "sdrChanged",   "vkadddisk",
    "vkdeldisk",      "consoleLog",  "longIO",        "userEvent",      "rgTakeover",   "rgRelinquish",
    "rgOpenFailed",   "rgPanic",     "pdFailed",      "pdRecovered",    "pdReplacePdisk", "pdPathFailed",
    "daRebuildFailed", "nsdCksumMismatch",
};

// Written by the signal handler and by the thread that runs the events
// handler; read by the main thread.
int gWake[2] = {-1, -1};

void onSignal(int)
{
    char c = 'i';
    if (write(gWake[1], &c, 1) < 0) {
        // The main thread is woken by the first byte; a later one may go.
    }
}

std::mutex gPrint;
bool gJson = false;

// The fields of one event record, in the record's order, with their values.
using Fields = std::vector<std::pair<std::string, json>>;

#define QVCLI_EV(field) f.emplace_back(#field, ::qvcli::value(e->field))

// Decodes the record of event number `type` into its fields and frees it
// through its own class.
Fields takeRecord(int type, Event* ev)
{
    Fields f;
    auto common = [&](Event* e) { f.emplace_back("severity", text(e->severity)); };
    switch (type) {
    case 0:
    case 1: {
        auto* e = static_cast<MountActionEvent*>(ev);
        QVCLI_EV(node);
        QVCLI_EV(fs);
        common(e);
        delete e;
        break;
    }
    case 2:
    case 3: {
        auto* e = static_cast<DiskActionEvent*>(ev);
        QVCLI_EV(node);
        QVCLI_EV(fs);
        QVCLI_EV(disk);
        common(e);
        delete e;
        break;
    }
    case 4: {
        auto* e = static_cast<ChdiskEvent*>(ev);
        QVCLI_EV(node);
        QVCLI_EV(fs);
        QVCLI_EV(disk);
        QVCLI_EV(status);
        QVCLI_EV(availability);
        QVCLI_EV(fg);
        QVCLI_EV(meta);
        QVCLI_EV(data);
        common(e);
        delete e;
        break;
    }
    case 5: {
        auto* e = static_cast<SgmgrTakeoverEvent*>(ev);
        QVCLI_EV(node);
        QVCLI_EV(prevNode);
        QVCLI_EV(fs);
        common(e);
        delete e;
        break;
    }
    case 6:
    case 7:
    case 11: {
        auto* e = static_cast<NodeStatusEvent*>(ev);
        QVCLI_EV(node);
        common(e);
        delete e;
        break;
    }
    case 8:
    case 9: {
        auto* e = static_cast<FilesystemActionEvent*>(ev);
        QVCLI_EV(node);
        QVCLI_EV(fs);
        common(e);
        delete e;
        break;
    }
    case 10: {
        auto* e = static_cast<FilesystemStateChangeEvent*>(ev);
        QVCLI_EV(fs);
        QVCLI_EV(user);
        QVCLI_EV(meta);
        QVCLI_EV(illReplicatedUser);
        QVCLI_EV(illReplicatedMeta);
        QVCLI_EV(exposedUser);
        QVCLI_EV(exposedMeta);
        common(e);
        delete e;
        break;
    }
    case 13: {
        auto* e = static_cast<TmStatsEvent*>(ev);
        QVCLI_EV(node);
        QVCLI_EV(fs);
        QVCLI_EV(tmSpace);
        QVCLI_EV(tmRequest);
        common(e);
        delete e;
        break;
    }
    case 14: {
        auto* e = static_cast<HungThreadEvent*>(ev);
        QVCLI_EV(node);
        QVCLI_EV(wait);
        QVCLI_EV(diagnosis);
        common(e);
        delete e;
        break;
    }
    case 15: {
        auto* e = static_cast<StgPoolUtilizationEvent*>(ev);
        QVCLI_EV(fs);
        QVCLI_EV(pool);
        QVCLI_EV(status);
        QVCLI_EV(util);
        common(e);
        delete e;
        break;
    }
    case 16: {
        auto* e = static_cast<SDRChangedEvent*>(ev);
        QVCLI_EV(node);
        common(e);
        delete e;
        break;
    }
    case 17:
    case 18: {
        auto* e = static_cast<DiskCmdEvent*>(ev);
        QVCLI_EV(node);
        QVCLI_EV(fs);
        QVCLI_EV(disk);
        QVCLI_EV(cmd);
        QVCLI_EV(status);
        QVCLI_EV(rc);
        common(e);
        delete e;
        break;
    }
    case 19: {
        auto* e = static_cast<ConsoleLogEvent*>(ev);
        QVCLI_EV(node);
        QVCLI_EV(msg);
        QVCLI_EV(level);
        common(e);
        delete e;
        break;
    }
    case 20: {
        // The record's time is never stored; it is left out.
        auto* e = static_cast<LongIoTimeEvent*>(ev);
        QVCLI_EV(node);
        QVCLI_EV(fs);
        QVCLI_EV(disk);
        QVCLI_EV(cmd);
        QVCLI_EV(len);
        common(e);
        delete e;
        break;
    }
    case 21: {
        auto* e = static_cast<UserGeneratedEvent*>(ev);
        QVCLI_EV(node);
        QVCLI_EV(arg);
        common(e);
        delete e;
        break;
    }
    case 22: {
        auto* e = static_cast<RgTakeoverEvent*>(ev);
        QVCLI_EV(node);
        QVCLI_EV(rg);
        QVCLI_EV(reason);
        QVCLI_EV(err);
        common(e);
        delete e;
        break;
    }
    case 23: {
        auto* e = static_cast<RgRelinquishEvent*>(ev);
        QVCLI_EV(node);
        QVCLI_EV(rg);
        QVCLI_EV(reason);
        QVCLI_EV(err);
        common(e);
        delete e;
        break;
    }
    case 24: {
        auto* e = static_cast<RgOpenFailedEvent*>(ev);
        QVCLI_EV(node);
        QVCLI_EV(rg);
        QVCLI_EV(reason);
        QVCLI_EV(err);
        common(e);
        delete e;
        break;
    }
    case 25: {
        auto* e = static_cast<RgPanicEvent*>(ev);
        QVCLI_EV(node);
        QVCLI_EV(rg);
        QVCLI_EV(reason);
        QVCLI_EV(err);
        common(e);
        delete e;
        break;
    }
    case 26: {
        auto* e = static_cast<PdFailedEvent*>(ev);
        QVCLI_EV(node);
        QVCLI_EV(location);
        QVCLI_EV(fru);
        QVCLI_EV(wwn);
        QVCLI_EV(rg);
        QVCLI_EV(da);
        QVCLI_EV(pdisk);
        QVCLI_EV(state);
        common(e);
        delete e;
        break;
    }
    case 27: {
        auto* e = static_cast<PdRecoveredEvent*>(ev);
        QVCLI_EV(node);
        QVCLI_EV(location);
        QVCLI_EV(fru);
        QVCLI_EV(wwn);
        QVCLI_EV(rg);
        QVCLI_EV(da);
        QVCLI_EV(pdisk);
        common(e);
        delete e;
        break;
    }
    case 28: {
        auto* e = static_cast<PdReplacePdiskEvent*>(ev);
        QVCLI_EV(node);
        QVCLI_EV(location);
        QVCLI_EV(fru);
        QVCLI_EV(wwn);
        QVCLI_EV(rg);
        QVCLI_EV(da);
        QVCLI_EV(pdisk);
        QVCLI_EV(state);
        QVCLI_EV(priority);
        common(e);
        delete e;
        break;
    }
    case 29: {
        auto* e = static_cast<PdPathFailedEvent*>(ev);
        QVCLI_EV(node);
        QVCLI_EV(location);
        QVCLI_EV(fru);
        QVCLI_EV(wwn);
        QVCLI_EV(rg);
        QVCLI_EV(da);
        QVCLI_EV(pdisk);
        QVCLI_EV(device);
        common(e);
        delete e;
        break;
    }
    case 30: {
        auto* e = static_cast<DaRebuildFailedEvent*>(ev);
        QVCLI_EV(node);
        QVCLI_EV(rg);
        QVCLI_EV(da);
        QVCLI_EV(remainingRedundancy);
        common(e);
        delete e;
        break;
    }
    case 31: {
        auto* e = static_cast<NsdCksumMismatchEvent*>(ev);
        QVCLI_EV(node);
        QVCLI_EV(role);
        QVCLI_EV(otherNode);
        QVCLI_EV(nsd);
        QVCLI_EV(reason);
        QVCLI_EV(sector);
        QVCLI_EV(dlen);
        QVCLI_EV(ecc);
        QVCLI_EV(ecs);
        QVCLI_EV(ecnsd);
        QVCLI_EV(ri);
        common(e);
        delete e;
        break;
    }
    default:
        // Event 12 comes without a record.
        break;
    }
    return f;
}

#undef QVCLI_EV

std::string timeText(const struct timeval& tv)
{
    struct tm t;
    time_t secs = tv.tv_sec;
    gmtime_r(&secs, &t);
    char buf[64];
    snprintf(buf, sizeof(buf), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", t.tm_year + 1900, t.tm_mon + 1, t.tm_mday,
             t.tm_hour, t.tm_min, t.tm_sec, static_cast<int>(tv.tv_usec / 1000));
    return buf;
}

// A value on the text line: bare when it is one word, else quoted.
std::string shownValue(const json& v)
{
    if (!v.is_string())
        return v.dump();
    std::string s = v.get<std::string>();
    if (!s.empty() && s.find_first_of(" \t'\"=") == std::string::npos)
        return s;
    std::string q = "'";
    for (char c : s)
        q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

int onEvent(Event* ev, void* data)
{
    int type = static_cast<int>(reinterpret_cast<intptr_t>(data));
    struct timeval tv = ev->tv;
    Fields fields = takeRecord(type, ev);
    std::string word = kEventWords[static_cast<size_t>(type)];
    std::string line;
    if (gJson) {
        json j;
        j["time"] = timeText(tv);
        j["event"] = word;
        j["number"] = type;
        for (const auto& kv : fields)
            j[kv.first] = kv.second;
        line = j.dump(-1, ' ', false, json::error_handler_t::replace);
    } else {
        line = timeText(tv) + " " + word;
        for (const auto& kv : fields) {
            // An event line without a severity leaves it empty: not shown.
            if (kv.first == "severity" && kv.second == "")
                continue;
            line += " " + kv.first + "=" + shownValue(kv.second);
        }
    }
    line += "\n";
    std::lock_guard<std::mutex> lock(gPrint);
    fwrite(line.data(), 1, line.size(), out());
    fflush(out());
    return 0;
}

} // namespace

const std::vector<std::string>& eventWords()
{
    return kEventWords;
}

int cmdEvents(const std::vector<std::string>& kinds, bool asJson)
{
    std::vector<bool> wanted(kEventWords.size(), kinds.empty());
    for (const std::string& k : kinds) {
        bool known = false;
        for (size_t i = 0; i < kEventWords.size(); ++i)
            if (kEventWords[i] == k) {
                wanted[i] = true;
                known = true;
            }
        if (!known) {
            std::string all;
            for (const std::string& w : kEventWords)
                all += (all.empty() ? "" : ",") + w;
            fail(kExitUsage, "unknown event kind \"" + k + "\" (kinds: " + all + ")");
        }
    }
    gJson = asJson;
    if (pipe2(gWake, O_CLOEXEC) != 0)
        fail(kExitFailure, "cannot make a pipe");

    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGHUP, &sa, nullptr);

    {
        // The events handler's own connection is the only one the command
        // makes; the daemon is looked at separately only when it failed.
        Armed armed("connecting to the daemon for events");
        resetCapture();
        if (EventsHandler::init(nullptr, 0) != 0 || theEventsHandler == nullptr) {
            std::string why = lastCapturedLine();
            EventsHandler::term();
            requireDaemon();
            fail(kExitNoDaemon, "daemon not reachable: the events connection failed" + (why.empty() ? "" : ": " + why));
        }
    }
    for (size_t i = 0; i < kEventWords.size(); ++i)
        if (wanted[i])
            theEventsHandler->registerEventCallback(static_cast<int>(i), onEvent,
                                                    reinterpret_cast<void*>(static_cast<intptr_t>(i)));

    // The handler runs until its connection is lost for good; the process
    // ends from here, without waiting for it, when the user interrupts.
    std::thread([] {
        theEventsHandler->run();
        char c = 'l';
        if (write(gWake[1], &c, 1) < 0) {
            // The main thread then waits for a signal instead.
        }
    }).detach();

    char why = 0;
    while (read(gWake[0], &why, 1) < 0 && errno == EINTR) {
    }
    std::lock_guard<std::mutex> lock(gPrint);
    fflush(out());
    if (why == 'l') {
        printError("daemon not reachable: the connection to the daemon was lost");
        _exit(kExitNoDaemon);
    }
    _exit(kExitOk);
}

} // namespace qvcli
