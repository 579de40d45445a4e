// quelvane-exporter: the cluster's inventory and statistics as Prometheus
// metrics.
//   quelvane-exporter [--listen ADDR:PORT] [--interval S] [--collectors LIST]
// It polls the cluster in a loop of its own and serves the last completed
// poll on /metrics, so that a scrape never waits on the cluster.
#include "exporter/event_counter.h"
#include "exporter/poller.h"
#include "exporter/server.h"

#include <quelvane/quelvane.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <cstdio>
#include <pthread.h>
#include <sstream>
#include <unistd.h>

int main(int argc, char** argv)
{
    std::string listen = "127.0.0.1:9877";
    double interval = 15.0;
    std::string collectorList;

    std::string known;
    for (const std::string& c : qvexp::allCollectors())
        known += c + ",";
    known += "events";

    CLI::App cli{"quelvane-exporter: the cluster's inventory and statistics as Prometheus metrics"};
    cli.add_option("--listen", listen, "Address and port to serve on")->capture_default_str();
    cli.add_option("--interval", interval, "Seconds between two polls of the cluster")
        ->capture_default_str()
        ->check(CLI::Range(0.1, 86400.0));
    cli.add_option("--collectors", collectorList, "Comma-separated collectors to run (default all: " + known + ")");
    CLI11_PARSE(cli, argc, argv);

    std::string host;
    int port = 0;
    if (!qvexp::parseListenAddress(listen, &host, &port)) {
        fprintf(stderr, "quelvane-exporter: --listen wants ADDR:PORT, not %s\n", listen.c_str());
        return 2;
    }

    qvexp::PollerOptions options;
    options.intervalSeconds = interval;
    bool events = true;
    if (!collectorList.empty()) {
        options.collectors.clear();
        events = false;
        std::istringstream in(collectorList);
        std::string name;
        while (std::getline(in, name, ',')) {
            if (name.empty())
                continue;
            const auto& all = qvexp::allCollectors();
            if (name == "events")
                events = true;
            else if (std::find(all.begin(), all.end(), name) != all.end())
                options.collectors.push_back(name);
            else {
                fprintf(stderr, "quelvane-exporter: unknown collector %s (known: %s)\n", name.c_str(), known.c_str());
                return 2;
            }
        }
        if (options.collectors.empty() && !events) {
            fprintf(stderr, "quelvane-exporter: --collectors names none\n");
            return 2;
        }
    }

    // Descriptors 0 to 2 must be open: the library takes a daemon socket
    // that comes out as descriptor 0 for a fatal error. Standard output goes
    // nowhere (the recovery group queries print every group on it); the
    // exporter speaks on standard error.
    for (int fd = 0; fd < 3; ++fd)
        if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0)
            return 1;
    int devnull = open("/dev/null", O_WRONLY);
    if (devnull >= 0) {
        dup2(devnull, 1);
        close(devnull);
    }

    // SIGINT and SIGTERM are taken by sigwait on this thread: blocked here,
    // before any thread starts, so that every thread inherits the mask.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    signal(SIGPIPE, SIG_IGN);

    qvexp::EventCounter counter;
    qvexp::Poller poller(options);
    qvexp::MetricsServer server(poller, events ? &counter : nullptr);
    std::string err;
    if (!server.start(host, port, &err)) {
        fprintf(stderr, "quelvane-exporter: %s\n", err.c_str());
        return 1;
    }
    fprintf(stderr, "quelvane-exporter: serving http://%s/metrics, polling every %g s\n", listen.c_str(), interval);
    if (events)
        counter.start();
    poller.start();

    int sig = 0;
    sigwait(&stopSignals, &sig);
    fprintf(stderr, "quelvane-exporter: signal %d, stopping\n", sig);
    server.stop();
    counter.stop();
    if (!poller.stop(5.0)) {
        // The daemon went away in the middle of a poll, and the library
        // waits for it: the process ends without that thread.
        fprintf(stderr, "quelvane-exporter: a poll waits for the daemon; ending without it\n");
        fflush(stderr);
        _exit(0);
    }
    return 0;
}
