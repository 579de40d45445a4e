// bench/channel: responses of 500, 5,000 and 50,000 node lines through the
// library's request road (processCommand, prepBuffer, getNextInstance with
// getBufferedValue, cleanupCommand), against the floor: the same request and
// the same bytes read with 64 KiB reads. Prints the medians of several rounds,
// their ratio, and the same figures as JSON with --json FILE.
#include <quelvane/tavrel_wrapper_utils.h>

#include "bench_report.h"
#include "stand_in.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

using namespace qvbench;

namespace {

const char kUsage[] =
    "usage: channel [--rounds N] [--lines N] [--json FILE]\n"
    "  Times responses of 500, 5000 and 50000 lines (or of N lines) through the\n"
    "  request road of libquelvane against plain 64 KiB reads of the same bytes.\n";

const char kRequest[] = "get nodes";

// A response of `lines` node lines of about 140 bytes and the end line.
std::string makeResponse(long lines)
{
    std::string out;
    char line[256];
    for (long i = 0; i < lines; ++i) {
        snprintf(line, sizeof(line),
                 "_node_ _name_ node%06ld _ip_ 10.%ld.%ld.%ld _status_ up _role_ quorum-manager "
                 "_admin_ 'yes' _state_ active _fs_ gpfs1 _pool_ system _rc_ 0\n",
                 i, (i >> 16) & 255, (i >> 8) & 255, i & 255);
        out += line;
    }
    out += "_response_ end\n";
    return out;
}

[[noreturn]] void fail(const std::string& what)
{
    fprintf(stderr, "bench/channel: %s\n", what.c_str());
    exit(1);
}

// One request through the library's road; milliseconds.
double libraryRound(TavrelWrapperUtils* s, long lines)
{
    double start = nowMs();
    if (s->processCommand(kRequest) != 0)
        fail("processCommand did not give 0");
    s->prepBuffer();
    long seen = 0;
    size_t valueBytes = 0;
    while (s->getNextInstance("_node_")) {
        valueBytes += strlen(s->getBufferedValue("_name_", 0, 256));
        valueBytes += strlen(s->getBufferedValue("_ip_", 0, 256));
        ++seen;
    }
    s->cleanupCommand();
    double elapsed = nowMs() - start;
    if (seen != lines || valueBytes == 0)
        fail("the library saw " + std::to_string(seen) + " node lines of " + std::to_string(lines));
    return elapsed;
}

// The same request on a plain connection, the response read with 64 KiB
// reads until all of its bytes are in; milliseconds.
double floorRound(int fd, size_t responseSize, std::vector<char>& buf)
{
    std::string request = std::string(kRequest) + "\n";
    double start = nowMs();
    if (send(fd, request.data(), request.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(request.size()))
        fail("floor: send failed");
    size_t got = 0;
    while (got < responseSize) {
        ssize_t n = recv(fd, buf.data(), buf.size(), 0);
        if (n <= 0)
            fail("floor: connection lost");
        got += static_cast<size_t>(n);
    }
    double elapsed = nowMs() - start;
    if (got != responseSize)
        fail("floor: more bytes than the response");
    return elapsed;
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

struct Result {
    long lines;
    size_t bytes;
    std::vector<double> library;
    std::vector<double> floor;
};

} // namespace

int main(int argc, char** argv)
{
    Options options = parseOptions(argc, argv, kUsage);
    enterSandbox();
    const int rounds = options.rounds > 0 ? options.rounds : 15;
    std::vector<long> sizes = {500, 5000, 50000};
    if (options.lines > 0)
        sizes = {options.lines};

    StandIn daemon;
    MErrno err = 0;
    TavrelWrapperUtils* session = new TavrelWrapperUtils(&err, 0);
    if (err != 0)
        fail("cannot make a session");
    int floorFd = connectPlain();
    std::vector<char> buf(65536);

    std::vector<Result> results;
    for (long lines : sizes) {
        Result r{lines, 0, {}, {}};
        std::string response = makeResponse(lines);
        r.bytes = response.size();
        daemon.answerRequestsWith(response);
        // One round of each to warm caches and the spool, not counted.
        libraryRound(session, lines);
        floorRound(floorFd, r.bytes, buf);
        for (int i = 0; i < rounds; ++i) {
            r.library.push_back(libraryRound(session, lines));
            r.floor.push_back(floorRound(floorFd, r.bytes, buf));
        }
        results.push_back(r);
    }
    close(floorFd);
    delete session;
    daemon.stop();

    const std::string machine = machineText();
    printf("bench/channel: one response through processCommand, prepBuffer, getNextInstance with two\n"
           "getBufferedValue per line, cleanupCommand; floor: the same request and bytes read with\n"
           "64 KiB reads. Medians of %d rounds. Figures of this machine (%s).\n\n",
           rounds, machine.c_str());
    std::vector<std::vector<std::string>> rows;
    for (const Result& r : results) {
        double lib = median(r.library);
        double flo = median(r.floor);
        rows.push_back({std::to_string(r.lines), std::to_string(r.bytes), fixed(lib, 3), fixed(flo, 3),
                        fixed(lib / flo, 2), fixed(lib * 1000.0 / r.lines, 3)});
    }
    printTable({"lines", "bytes", "library ms", "floor ms", "ratio", "library us/line"}, rows);

    std::string json = "{\n  \"benchmark\": \"channel\",\n  \"machine\": " +
                       jsonString("figures of this machine: " + machine) +
                       ",\n  \"rounds\": " + std::to_string(rounds) + ",\n  \"results\": [\n";
    for (size_t i = 0; i < results.size(); ++i) {
        const Result& r = results[i];
        double lib = median(r.library);
        double flo = median(r.floor);
        json += "    {\"lines\": " + std::to_string(r.lines) + ", \"bytes\": " + std::to_string(r.bytes) +
                ", \"library_ms\": " + fixed(lib, 4) + ", \"floor_ms\": " + fixed(flo, 4) +
                ", \"ratio\": " + fixed(lib / flo, 3) + ",\n     \"library_rounds_ms\": " +
                jsonNumbers(r.library) + ",\n     \"floor_rounds_ms\": " + jsonNumbers(r.floor) + "}" +
                (i + 1 < results.size() ? ",\n" : "\n");
    }
    json += "  ]\n}\n";
    return writeJson(options, json) ? 0 : 1;
}
