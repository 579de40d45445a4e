#include "exporter/server.h"

#include "exporter/event_counter.h"
#include "exporter/poller.h"

#include <httplib.h>

#include <algorithm>
#include <cstdlib>

namespace qvexp {

namespace {

const char kIndexPage[] =
    "<!DOCTYPE html>\n<html><head><title>quelvane-exporter</title></head>\n"
    "<body><h1>quelvane-exporter</h1>\n"
    "<p>The cluster's inventory and statistics as Prometheus metrics.</p>\n"
    "<ul><li><a href=\"/metrics\">/metrics</a></li>\n"
    "<li><a href=\"/healthz\">/healthz</a></li></ul>\n"
    "</body></html>\n";

} // namespace

bool parseListenAddress(const std::string& text, std::string* host, int* port)
{
    size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 >= text.size())
        return false;
    std::string h = text.substr(0, colon);
    if (h.front() == '[') {
        if (h.back() != ']' || h.size() < 3)
            return false;
        h = h.substr(1, h.size() - 2);
    }
    std::string p = text.substr(colon + 1);
    char* end = nullptr;
    long n = std::strtol(p.c_str(), &end, 10);
    if (*end != '\0' || n < 0 || n > 65535)
        return false;
    *host = h;
    *port = static_cast<int>(n);
    return true;
}

MetricsServer::MetricsServer(Poller& poller, EventCounter* events) : poller_(poller), events_(events) {}

MetricsServer::~MetricsServer()
{
    stop();
}

std::string MetricsServer::metricsText() const
{
    std::shared_ptr<const std::string> polled = poller_.exposition();
    std::string text = *polled;
    // What changes between polls is added here, from counters that need no
    // lock: the events and the age of a poll still running.
    MetricWriter w;
    w.family("quelvane_poll_running_seconds", "How long the running poll has been running; 0 between polls.",
             "gauge");
    w.sample({}, poller_.currentPollSeconds());
    if (events_ != nullptr)
        events_->render(w);
    text += w.text();
    return text;
}

bool MetricsServer::start(const std::string& host, int port, std::string* err)
{
    server_.reset(new httplib::Server());
    server_->Get("/metrics", [this](const httplib::Request&, httplib::Response& res) {
        res.set_content(metricsText(), "text/plain; version=0.0.4; charset=utf-8");
    });
    server_->Get("/", [](const httplib::Request&, httplib::Response& res) {
        res.set_content(kIndexPage, "text/html; charset=utf-8");
    });
    server_->Get("/healthz", [this](const httplib::Request&, httplib::Response& res) {
        double running = poller_.currentPollSeconds();
        if (running > std::max(60.0, 3 * poller_.intervalSeconds())) {
            res.status = 503;
            res.set_content("a poll has been running for " + std::to_string(static_cast<long>(running)) + " s\n",
                            "text/plain");
        } else if (!poller_.hasPolled()) {
            res.status = 503;
            res.set_content("no poll has ended yet\n", "text/plain");
        } else if (poller_.lastPollSucceeded()) {
            res.status = 200;
            res.set_content("ok\n", "text/plain");
        } else {
            res.status = 503;
            res.set_content("the last poll failed\n", "text/plain");
        }
    });
    if (port == 0) {
        port_ = server_->bind_to_any_port(host.c_str());
        if (port_ < 0) {
            *err = "cannot listen on " + host;
            return false;
        }
    } else {
        if (!server_->bind_to_port(host.c_str(), port)) {
            *err = "cannot listen on " + host + ":" + std::to_string(port);
            return false;
        }
        port_ = port;
    }
    thread_ = std::thread([this] { server_->listen_after_bind(); });
    return true;
}

void MetricsServer::stop()
{
    if (server_)
        server_->stop();
    if (thread_.joinable())
        thread_.join();
    server_.reset();
}

} // namespace qvexp
