#ifndef QUELVANE_EXPORTER_SERVER_H
#define QUELVANE_EXPORTER_SERVER_H

// The exporter's HTTP side: GET /metrics (the poller's last exposition and
// the event counts), GET / (a small page) and GET /healthz (200 when the last
// poll succeeded, else 503).

#include <memory>
#include <string>
#include <thread>

namespace httplib {
class Server;
}

namespace qvexp {

class Poller;
class EventCounter;

// "ADDR:PORT" ("[::1]:PORT" for IPv6) into its parts; false when malformed.
bool parseListenAddress(const std::string& text, std::string* host, int* port);

class MetricsServer
{
public:
    // `events` may be null (events not counted).
    MetricsServer(Poller& poller, EventCounter* events);
    ~MetricsServer();

    MetricsServer(const MetricsServer&) = delete;
    MetricsServer& operator=(const MetricsServer&) = delete;

    // Binds (port 0: any free port) and serves on a thread of its own.
    bool start(const std::string& host, int port, std::string* err);
    void stop();
    int port() const { return port_; }

    // The body of /metrics.
    std::string metricsText() const;

private:
    Poller& poller_;
    EventCounter* events_;
    std::unique_ptr<httplib::Server> server_;
    std::thread thread_;
    int port_ = 0;
};

} // namespace qvexp

#endif
