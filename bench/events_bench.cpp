// bench/events: events per second through the event pipeline (the receive
// thread reading the connection, the list, the send thread decoding and
// calling back), from the first byte written to the last callback, for
// 100,000 lines of mixed event kinds; against the floor, the same lines read
// with 64 KiB reads and split. Also counts the events delivered: all of them,
// since the connection stays up. Medians of several rounds; JSON with --json.
#include <quelvane/events_handler.h>

#include "bench_report.h"
#include "stand_in.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace qvbench;

namespace {

const char kUsage[] =
    "usage: events [--rounds N] [--lines N] [--json FILE]\n"
    "  Events per second delivered to callbacks for 100000 (or N) event lines of\n"
    "  mixed kinds, against reading and splitting the same lines.\n";

[[noreturn]] void fail(const std::string& what)
{
    fprintf(stderr, "bench/events: %s\n", what.c_str());
    exit(1);
}

// The kinds poured, in turn; each line decodes into a record.
const int kKinds[] = {0, 1, 4, 6, 7, 11, 15, 19, 21, 31};
const size_t kKindCount = sizeof(kKinds) / sizeof(kKinds[0]);

std::string lineFor(long i)
{
    std::string s = std::to_string(i);
    switch (kKinds[i % kKindCount]) {
    case 0: return "_event_ mount _node_ node" + s + " _fs_ gpfs1 _severity_ INFO";
    case 1: return "_event_ unmount _fs_ 'fs one' _node_ node" + s;
    case 4:
        return "_event_ chdisk _node_ node" + s +
               " _fs_ gpfs1 _disk_ d17 _status_ ready _availability_ up _fg_ 3 _meta_ yes _data_ yes";
    case 6: return "_event_ failure _node_ node" + s + " _severity_ ERROR";
    case 7: return "_event_ recovery _node_ node" + s;
    case 11: return "_event_ newconnection _n_ node" + s;
    case 15: return "_event_ poolutil _fs_ gpfs1 _pool_ data" + s + " _util_ 91 _status_ high";
    case 19: return "_event_ consoleLog _n_ node" + s + " _level_ 2 _msg_ disk 'd17' is slow";
    case 21: return "_event_ userEvent _n_ node" + s + " _arg_ 'rebalance started'";
    default:
        return "_event_ nsdCksumMismatch _n_ node" + s +
               " _role_ client _othernode_ n2 _nsd_ d17 _reason_ crc _sector_ 81920 _dlen_ 4096 "
               "_ecc_ 1 _ecs_ 2 _ecnsd_ 3 _ri_ 4";
    }
}

// Frees a record through its class.
void freeRecord(int type, Event* e)
{
    switch (type) {
    case 0: case 1: delete static_cast<MountActionEvent*>(e); break;
    case 4: delete static_cast<ChdiskEvent*>(e); break;
    case 6: case 7: case 11: delete static_cast<NodeStatusEvent*>(e); break;
    case 15: delete static_cast<StgPoolUtilizationEvent*>(e); break;
    case 19: delete static_cast<ConsoleLogEvent*>(e); break;
    case 21: delete static_cast<UserGeneratedEvent*>(e); break;
    case 31: delete static_cast<NsdCksumMismatchEvent*>(e); break;
    default: fail("unexpected event number " + std::to_string(type));
    }
}

// What the callbacks count; the last one of a round stamps the time.
struct Tally {
    std::mutex m;
    std::condition_variable cv;
    std::atomic<long> delivered{0};
    long target = 0;
    double lastMs = 0;
};
Tally gTally;
int gSlot[EVENTS_MAX_TYPES];

int onEvent(Event* e, void* data)
{
    freeRecord(*static_cast<int*>(data), e);
    long n = gTally.delivered.fetch_add(1) + 1;
    if (n == gTally.target) {
        double now = nowMs();
        std::lock_guard<std::mutex> lock(gTally.m);
        gTally.lastMs = now;
        gTally.cv.notify_all();
    }
    return 0;
}

int connectPlain()
{
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", StandIn::kSocketPath);
    if (fd < 0 || connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0)
        fail("floor: cannot connect");
    return fd;
}

// The floor: the same bytes read with 64 KiB reads and split into lines;
// milliseconds from the first byte written to the last line split.
double floorRound(StandIn& daemon, int fd, const std::string& bytes, long lines)
{
    double start = -1;
    std::thread writer([&] { start = daemon.pour(0, bytes); });
    std::vector<char> buf(65536);
    long seen = 0;
    size_t lineBytes = 0;
    while (seen < lines) {
        ssize_t n = recv(fd, buf.data(), buf.size(), 0);
        if (n <= 0)
            fail("floor: connection lost");
        const char* p = buf.data();
        const char* end = p + n;
        while (const char* nl = static_cast<const char*>(memchr(p, '\n', end - p))) {
            lineBytes += static_cast<size_t>(nl - p);
            ++seen;
            p = nl + 1;
        }
    }
    double done = nowMs();
    writer.join();
    if (start < 0 || lineBytes == 0)
        fail("floor: the stand-in could not write");
    return done - start;
}

// The library: milliseconds from the first byte written to the last callback,
// and the number of events delivered.
double libraryRound(StandIn& daemon, const std::string& bytes, long lines, long* delivered)
{
    gTally.delivered = 0;
    {
        std::lock_guard<std::mutex> lock(gTally.m);
        gTally.target = lines;
        gTally.lastMs = 0;
    }
    double start = -1;
    std::thread writer([&] { start = daemon.pour(1, bytes); });
    {
        std::unique_lock<std::mutex> lock(gTally.m);
        gTally.cv.wait_for(lock, std::chrono::seconds(600), [] { return gTally.lastMs > 0; });
    }
    writer.join();
    // Anything beyond the lines poured would be counted here too.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    *delivered = gTally.delivered;
    if (start < 0)
        fail("the stand-in could not write");
    if (gTally.lastMs <= 0)
        fail("only " + std::to_string(*delivered) + " of " + std::to_string(lines) +
             " events delivered within 600 s");
    return gTally.lastMs - start;
}

} // namespace

int main(int argc, char** argv)
{
    Options options = parseOptions(argc, argv, kUsage);
    enterSandbox();
    const int rounds = options.rounds > 0 ? options.rounds : 5;
    const long lines = options.lines > 0 ? options.lines : 100000;

    std::string bytes;
    for (long i = 0; i < lines; ++i)
        bytes += lineFor(i) + "\n";

    StandIn daemon;
    // Connection 0: the floor's plain reader; connection 1: the pipeline's.
    int floorFd = connectPlain();
    if (!daemon.waitConnection(0))
        fail("the floor's connection did not arrive");
    if (EventsHandler::init(nullptr, 0) != 0)
        fail("EventsHandler::init failed");
    if (!daemon.waitConnection(1))
        fail("the pipeline's connection did not arrive");
    for (int type : kKinds) {
        gSlot[type] = type;
        theEventsHandler->registerEventCallback(type, onEvent, &gSlot[type]);
    }
    std::thread runner([] { theEventsHandler->run(); });

    std::vector<double> libraryMs, floorMs, delivered;
    // A warm-up round of each, not counted.
    long got = 0;
    libraryRound(daemon, bytes, lines, &got);
    floorRound(daemon, floorFd, bytes, lines);
    for (int i = 0; i < rounds; ++i) {
        libraryMs.push_back(libraryRound(daemon, bytes, lines, &got));
        delivered.push_back(static_cast<double>(got));
        floorMs.push_back(floorRound(daemon, floorFd, bytes, lines));
    }

    // The end of the pipeline: the daemon goes away for good, the receive
    // thread's one reconnection fails (its error line is not shown), run returns.
    fflush(stderr);
    int savedErr = dup(2);
    int devNull = open("/dev/null", O_WRONLY);
    dup2(devNull, 2);
    daemon.stop();
    runner.join();
    dup2(savedErr, 2);
    close(savedErr);
    close(devNull);
    EventsHandler::term();
    close(floorFd);

    std::vector<double> libraryRate, floorRate;
    for (double ms : libraryMs)
        libraryRate.push_back(lines * 1000.0 / ms);
    for (double ms : floorMs)
        floorRate.push_back(lines * 1000.0 / ms);
    const double lib = median(libraryRate);
    const double flo = median(floorRate);
    const double minDelivered = *std::min_element(delivered.begin(), delivered.end());
    const double maxDelivered = *std::max_element(delivered.begin(), delivered.end());

    const std::string machine = machineText();
    printf("bench/events: %ld event lines of %zu kinds (%zu bytes) poured on the event connection;\n"
           "library: first byte written to last callback; floor: the same lines read with 64 KiB\n"
           "reads and split. Medians of %d rounds. Figures of this machine (%s).\n\n",
           lines, kKindCount, bytes.size(), rounds, machine.c_str());
    printTable({"road", "events/s", "ms per round", "delivered"},
               {{"library", fixed(lib, 0), fixed(median(libraryMs), 2),
                 fixed(minDelivered, 0) + (minDelivered == maxDelivered ? "" : "-" + fixed(maxDelivered, 0)) +
                     " of " + std::to_string(lines)},
                {"floor", fixed(flo, 0), fixed(median(floorMs), 2), "-"},
                {"floor / library", fixed(flo / lib, 2), "", ""}});

    std::string json = "{\n  \"benchmark\": \"events\",\n  \"machine\": " +
                       jsonString("figures of this machine: " + machine) +
                       ",\n  \"rounds\": " + std::to_string(rounds) + ",\n  \"lines\": " + std::to_string(lines) +
                       ",\n  \"bytes\": " + std::to_string(bytes.size()) +
                       ",\n  \"library_events_per_s\": " + fixed(lib, 1) +
                       ",\n  \"floor_events_per_s\": " + fixed(flo, 1) +
                       ",\n  \"floor_over_library\": " + fixed(flo / lib, 3) +
                       ",\n  \"delivered_min\": " + fixed(minDelivered, 0) +
                       ",\n  \"library_rounds_ms\": " + jsonNumbers(libraryMs) +
                       ",\n  \"floor_rounds_ms\": " + jsonNumbers(floorMs) +
                       ",\n  \"delivered_rounds\": " + jsonNumbers(delivered) + "\n}\n";
    bool ok = writeJson(options, json);
    return ok && minDelivered == lines && maxDelivered == lines ? 0 : 1;
}
