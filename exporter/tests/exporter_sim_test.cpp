// The exporter against a simulated daemon in the test process: every family
// with the model's values, changes seen by the next poll, events counted,
// promtool's check, a Prometheus server scraping it, scrapes that never wait
// on a slow poll, a daemon that goes away and comes back, and the program's
// end on SIGTERM.
#include "exporter/event_counter.h"
#include "exporter/poller.h"
#include "exporter/server.h"
#include "exporter/tests/exposition.h"
#include "sim/render.h"
#include "sim/tests/sim_fixture.h"

#include <httplib.h>
#include <nlohmann/json.hpp>

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace qvsim;
using namespace qvsimtest;
using namespace qvexptest;
using qvexp::EventCounter;
using qvexp::MetricsServer;
using qvexp::Poller;
using qvexp::PollerOptions;

namespace {

uint32_t low32(unsigned long long v)
{
    return static_cast<uint32_t>(v & 0xFFFFFFFFULL);
}

int freePort()
{
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = 0;
    bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof(a));
    socklen_t len = sizeof(a);
    getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
    close(fd);
    return ntohs(a.sin_port);
}

bool haveProgram(const char* name)
{
    std::string cmd = std::string("command -v ") + name + " >/dev/null 2>&1";
    return system(cmd.c_str()) == 0;
}

// A child process with its output in `log`.
pid_t spawn(const std::vector<std::string>& argv, const std::string& log)
{
    pid_t pid = fork();
    if (pid == 0) {
        int fd = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (fd >= 0) {
            dup2(fd, 1);
            dup2(fd, 2);
        }
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        std::vector<char*> args;
        for (const std::string& a : argv)
            args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        execvp(args[0], args.data());
        _exit(127);
    }
    return pid;
}

// Waits up to `seconds` for the child; its wait status, or -1 when it is
// still running.
int waitChild(pid_t pid, double seconds)
{
    auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (std::chrono::steady_clock::now() < end) {
        int status = 0;
        if (waitpid(pid, &status, WNOHANG) == pid)
            return status;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return -1;
}

std::string readFile(const std::string& path)
{
    std::ifstream in(path);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

template <typename Pred>
bool waitUntil(double seconds, Pred pred)
{
    auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (std::chrono::steady_clock::now() < end) {
        if (pred())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return pred();
}

class ExporterSim : public SimFixture
{
protected:
    void startExporter(double interval = 60.0, bool loop = false)
    {
        PollerOptions o;
        o.intervalSeconds = interval;
        poller.reset(new Poller(o));
        server.reset(new MetricsServer(*poller, &events));
        std::string err;
        ASSERT_TRUE(server->start("127.0.0.1", 0, &err)) << err;
        if (loop)
            poller->start();
    }

    httplib::Result get(const std::string& path)
    {
        httplib::Client c("127.0.0.1", server->port());
        c.set_connection_timeout(5);
        c.set_read_timeout(5);
        return c.Get(path.c_str());
    }

    Exposition scrape()
    {
        httplib::Result r = get("/metrics");
        EXPECT_TRUE(r);
        if (!r)
            return Exposition();
        EXPECT_EQ(r->status, 200);
        EXPECT_NE(r->get_header_value("Content-Type").find("text/plain; version=0.0.4"), std::string::npos);
        return parseExposition(r->body);
    }

    void TearDown() override
    {
        if (server)
            server->stop();
        if (poller)
            poller->stop();
        events.stop();
        server.reset();
        poller.reset();
        SimFixture::TearDown();
    }

    EventCounter events;
    std::unique_ptr<Poller> poller;
    std::unique_ptr<MetricsServer> server;
};

void expectModel(const Exposition& e, const SimCluster& m)
{
    EXPECT_EQ(e.find("quelvane_cluster_info", {{"cluster", m.clusterName}}).size(), 1u);
    EXPECT_EQ(e.value("quelvane_cluster_nodes"), static_cast<double>(m.nodes.size()));
    std::string managerName;
    for (const SimNode& n : m.nodes) {
        SCOPED_TRACE("node " + n.name);
        EXPECT_EQ(e.value("quelvane_node_up", {{"node", n.name}}), n.status == "up" ? 1 : 0);
        EXPECT_EQ(e.value("quelvane_node_quorum", {{"node", n.name}}), n.quorum ? 1 : 0);
        EXPECT_EQ(e.value("quelvane_node_manager", {{"node", n.name}}), n.manager ? 1 : 0);
        EXPECT_EQ(e.find("quelvane_node_info", {{"node", n.name}, {"ip", n.ipAddr}, {"status", n.status}}).size(), 1u);
        EXPECT_EQ(e.text("quelvane_node_pagepool_bytes", {{"node", n.name}}), std::to_string(n.pagePool));
        if (n.ipAddr == m.clusterManagerIp)
            managerName = n.name;
        EXPECT_EQ(e.value("quelvane_node_cluster_manager", {{"node", n.name}}), n.ipAddr == m.clusterManagerIp);
        if (!nodeAnswersStats(n)) {
            EXPECT_TRUE(e.find("quelvane_cache_hits_total", {{"node", n.name}}).empty());
            continue;
        }
        const std::string& ip = n.ipAddr;
        EXPECT_EQ(e.value("quelvane_cache_hits_total", {{"node", n.name}, {"cache", "directory"}}),
                  low32(statCounter(m, ip, "_dch_")));
        EXPECT_EQ(e.value("quelvane_cache_misses_total", {{"node", n.name}, {"cache", "stat"}}),
                  low32(statCounter(m, ip, "_scm_")));
        for (const char* op : {"read", "write", "getattr", "mmapRead", "vget"})
            EXPECT_EQ(e.value("quelvane_vfs_operations_total", {{"node", n.name}, {"op", op}}),
                      low32(statCounter(m, ip, std::string("_") + op + "_")))
                << op;
        EXPECT_EQ(e.value("quelvane_threads", {{"node", n.name}}), statCounter(m, ip, "_nthreads_") % 1000);
        EXPECT_EQ(e.value("quelvane_thread_pool_threads_limit", {{"node", n.name}, {"pool", "multh"}}),
                  16 + statCounter(m, ip, "_multh_max") % 240);
    }
    EXPECT_EQ(e.find("quelvane_cluster_info", {{"manager", managerName}}).size(), 1u);

    for (const SimFilesystem& f : m.filesystems) {
        SCOPED_TRACE("filesystem " + f.name);
        std::map<std::string, std::string> fs = {{"filesystem", f.name}};
        EXPECT_EQ(e.text("quelvane_filesystem_size_bytes", fs), std::to_string(f.totalSpace));
        EXPECT_EQ(e.text("quelvane_filesystem_free_bytes", fs), std::to_string(f.freeSpace));
        EXPECT_EQ(e.text("quelvane_filesystem_inodes", fs), std::to_string(f.totalInodes));
        EXPECT_EQ(e.text("quelvane_filesystem_inodes_free", fs), std::to_string(f.freeInodes));
        EXPECT_EQ(e.value("quelvane_filesystem_mounted_nodes", fs), f.mountedBy.size());
        EXPECT_EQ(e.find("quelvane_filesystem_info", {{"filesystem", f.name}, {"status", f.status},
                                                      {"mount_point", f.defaultMountPoint}}).size(), 1u);
        unsigned long long br = 0, bw = 0;
        for (const SimFsCounters& k : f.counters)
            if (k.rc == 0) {
                br += k.br;
                bw += k.bw;
                const SimNode* n = m.node(k.nodeIp);
                ASSERT_NE(n, nullptr);
                EXPECT_EQ(e.text("quelvane_filesystem_node_read_bytes_total", {{"filesystem", f.name}, {"node", n->name}}),
                          std::to_string(k.br));
            }
        EXPECT_EQ(e.text("quelvane_filesystem_read_bytes_total", fs), std::to_string(br));
        EXPECT_EQ(e.text("quelvane_filesystem_written_bytes_total", fs), std::to_string(bw));

        size_t linked = 0;
        for (const SimFileset& s : f.filesets)
            linked += s.status == "Linked" ? 1 : 0;
        EXPECT_EQ(e.value("quelvane_filesets", fs), f.filesets.size());
        EXPECT_EQ(e.value("quelvane_filesets_linked", fs), linked);

        for (const SimPool& p : f.pools) {
            std::map<std::string, std::string> pl = {{"filesystem", f.name}, {"pool", p.name}};
            EXPECT_EQ(e.text("quelvane_pool_size_bytes", pl), std::to_string(p.totalSpace));
            EXPECT_EQ(e.text("quelvane_pool_free_bytes", pl), std::to_string(p.freeSpace));
            EXPECT_EQ(e.value("quelvane_pool_disks", pl), p.disks.size());
            for (const SimDisk& d : p.disks) {
                SCOPED_TRACE("disk " + d.name);
                std::map<std::string, std::string> dl = {{"filesystem", f.name}, {"pool", p.name}, {"disk", d.name}};
                EXPECT_EQ(e.value("quelvane_disk_up", {{"disk", d.name}, {"status", d.status},
                                                        {"availability", d.availability}}),
                          d.status == "up" && d.availability == "up" ? 1 : 0);
                EXPECT_EQ(e.text("quelvane_disk_size_bytes", dl), std::to_string(d.totalSpace));
                EXPECT_EQ(e.text("quelvane_disk_free_bytes", dl), std::to_string(d.fullBlockFreeSpace));
                unsigned long long rb = 0, wb = 0, ro = 0, wo = 0;
                for (const SimDiskIo& io : d.io)
                    if (io.rc == 0) {
                        rb += io.read.b;
                        wb += io.write.b;
                        ro += io.read.ops;
                        wo += io.write.ops;
                    }
                EXPECT_EQ(e.text("quelvane_disk_read_bytes_total", dl), std::to_string(rb));
                EXPECT_EQ(e.text("quelvane_disk_written_bytes_total", dl), std::to_string(wb));
                EXPECT_EQ(e.value("quelvane_disk_read_operations_total", dl), ro);
                EXPECT_EQ(e.value("quelvane_disk_write_operations_total", dl), wo);
            }
        }
    }
    EXPECT_EQ(e.value("quelvane_free_disks"), m.freeDisks.size());

    EXPECT_EQ(e.value("quelvane_recovery_groups"), m.recoveryGroups.size());
    for (const SimRecoveryGroup& g : m.recoveryGroups) {
        SCOPED_TRACE("recovery group " + g.name);
        EXPECT_EQ(e.value("quelvane_recovery_group_declustered_arrays", {{"recovery_group", g.name}}), g.arrays.size());
        EXPECT_EQ(e.find("quelvane_recovery_group_info", {{"recovery_group", g.name}, {"active_server", g.servers.front()}})
                      .size(),
                  1u);
        for (const SimDeclusteredArray& a : g.arrays) {
            std::map<std::string, std::string> al = {{"recovery_group", g.name}, {"declustered_array", a.name}};
            EXPECT_EQ(e.value("quelvane_declustered_array_pdisks", al), a.pdisks.size());
            EXPECT_EQ(e.value("quelvane_declustered_array_vdisks", al), a.vdisks.size());
            EXPECT_EQ(e.value("quelvane_declustered_array_spares", al), a.spares);
            EXPECT_EQ(e.value("quelvane_declustered_array_needs_service", al), a.needsService == "yes" ? 1 : 0);
            EXPECT_EQ(e.text("quelvane_declustered_array_free_bytes", al), std::to_string(a.freeSpace * 1073741824LL));
            EXPECT_DOUBLE_EQ(e.value("quelvane_declustered_array_task_progress_ratio", al),
                             a.taskPercentComplete / 100.0);
        }
    }
}

} // namespace

TEST_F(ExporterSim, EveryFamilyCarriesTheModelsValues)
{
    startSim();
    startExporter();
    ASSERT_TRUE(poller->pollOnce());
    Exposition e = scrape();
    const char* const families[] = {
        "quelvane_cluster_info", "quelvane_cluster_nodes", "quelvane_cluster_quorum_achieved",
        "quelvane_node_up", "quelvane_node_info", "quelvane_node_quorum", "quelvane_node_manager",
        "quelvane_filesystem_size_bytes", "quelvane_filesystem_free_bytes", "quelvane_filesystem_node_read_bytes_total",
        "quelvane_filesystem_node_calls_total", "quelvane_pool_size_bytes", "quelvane_pool_free_bytes",
        "quelvane_disk_up", "quelvane_disk_size_bytes", "quelvane_disk_read_bytes_total",
        "quelvane_disk_read_operations_total", "quelvane_filesets", "quelvane_cache_hits_total",
        "quelvane_cache_misses_total", "quelvane_vfs_operations_total", "quelvane_threads",
        "quelvane_thread_pool_threads", "quelvane_recovery_group_info", "quelvane_declustered_array_info",
        "quelvane_scrape_duration_seconds", "quelvane_last_poll_success", "quelvane_last_poll_timestamp_seconds",
        "quelvane_poll_errors_total", "quelvane_events_total"};
    for (const char* f : families) {
        EXPECT_EQ(e.types.count(f), 1u) << f;
        EXPECT_EQ(e.helps.count(f), 1u) << f;
        EXPECT_FALSE(e.find(f).empty()) << f;
    }
    // Counters end in _total, and every sample belongs to a declared family.
    for (const auto& kv : e.types) {
        bool total = kv.first.size() > 6 && kv.first.compare(kv.first.size() - 6, 6, "_total") == 0;
        EXPECT_EQ(kv.second == "counter", total) << kv.first;
    }
    for (const Sample& s : e.samples)
        EXPECT_EQ(e.types.count(s.name), 1u) << s.name;

    EXPECT_EQ(e.value("quelvane_last_poll_success"), 1);
    EXPECT_NEAR(e.value("quelvane_last_poll_timestamp_seconds"), static_cast<double>(time(nullptr)), 30);
    for (const std::string& c : qvexp::allCollectors()) {
        EXPECT_EQ(e.value("quelvane_poll_errors_total", {{"collector", c}}), 0) << c;
        EXPECT_GE(e.value("quelvane_scrape_duration_seconds", {{"collector", c}}), 0) << c;
    }
    expectModel(e, dump());

    httplib::Result page = get("/");
    ASSERT_TRUE(page);
    EXPECT_NE(page->body.find("href=\"/metrics\""), std::string::npos);
    httplib::Result health = get("/healthz");
    ASSERT_TRUE(health);
    EXPECT_EQ(health->status, 200);
}

TEST_F(ExporterSim, ChangesShowInTheNextPoll)
{
    startSim();
    startExporter();
    ASSERT_TRUE(poller->pollOnce());
    EXPECT_EQ(scrape().value("quelvane_node_up", {{"node", "node03"}}), 1);
    ASSERT_EQ(sim->control("fail-node", {"node03"}).status, 0);
    ASSERT_EQ(sim->control("disk-down", {"fs1", "nsd0002"}).status, 0);
    ASSERT_EQ(sim->control("tick", {"600"}).status, 0);
    ASSERT_TRUE(poller->pollOnce());
    Exposition e = scrape();
    EXPECT_EQ(e.value("quelvane_node_up", {{"node", "node03"}}), 0);
    EXPECT_EQ(e.value("quelvane_cluster_nodes_up"), 7);
    EXPECT_EQ(e.value("quelvane_disk_up", {{"disk", "nsd0002"}, {"status", "down"}}), 0);
    EXPECT_EQ(e.value("quelvane_pool_disks_down", {{"filesystem", "fs1"}, {"pool", "system"}}), 1);
    expectModel(e, dump());
}

TEST_F(ExporterSim, EventsAreCountedByKind)
{
    startSim();
    startExporter();
    events.start();
    ASSERT_TRUE(waitUntil(10, [&] { return events.connected() && sim->openConnections() >= 1; }));
    ASSERT_EQ(sim->control("event", {"userEvent", "_arg_", "hello"}).status, 0);
    ASSERT_EQ(sim->control("event", {"userEvent"}).status, 0);
    ASSERT_EQ(sim->control("fail-node", {"node02"}).status, 0);
    ASSERT_EQ(sim->control("disk-down", {"fs2", "nsd0010"}).status, 0);
    ASSERT_TRUE(waitUntil(10, [&] { return events.count(21) == 2 && events.count(6) == 1 && events.count(4) == 1; }));
    ASSERT_TRUE(poller->pollOnce());
    Exposition e = scrape();
    EXPECT_EQ(e.value("quelvane_events_total", {{"kind", "userEvent"}}), 2);
    EXPECT_EQ(e.value("quelvane_events_total", {{"kind", "failure"}}), 1);
    EXPECT_EQ(e.value("quelvane_events_total", {{"kind", "chdisk"}}), 1);
    EXPECT_EQ(e.value("quelvane_events_total", {{"kind", "mount"}}), 0);
    EXPECT_EQ(e.find("quelvane_events_total").size(), 32u);
    EXPECT_EQ(e.value("quelvane_events_connected"), 1);
}

TEST_F(ExporterSim, PromtoolAcceptsTheExposition)
{
    if (!haveProgram("promtool"))
        GTEST_SKIP() << "promtool is not installed (scripts/ensure-deps installs it)";
    startSim();
    startExporter();
    ASSERT_TRUE(poller->pollOnce());
    httplib::Result r = get("/metrics");
    ASSERT_TRUE(r);
    char dir[] = "/tmp/qvexp-promtool-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::string file = std::string(dir) + "/metrics.txt";
    std::ofstream(file) << r->body;
    int status = 0;
    std::string out = shell("promtool check metrics < " + file + " 2>&1", &status);
    EXPECT_EQ(status, 0) << out;
    EXPECT_EQ(out, "") << out;
    std::string rm = std::string("rm -rf ") + dir;
    EXPECT_EQ(system(rm.c_str()), 0);
}

TEST_F(ExporterSim, APrometheusServerScrapesTheExporter)
{
    if (!haveProgram("prometheus"))
        GTEST_SKIP() << "prometheus is not installed (scripts/ensure-deps installs it)";
    startSim();
    ASSERT_EQ(sim->control("fail-node", {"node04"}).status, 0);
    startExporter(0.5, true);
    char dir[] = "/tmp/qvexp-prometheus-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::string config = std::string(dir) + "/prometheus.yml";
    std::ofstream(config) << "global:\n  scrape_interval: 1s\n  evaluation_interval: 1s\n"
                          << "scrape_configs:\n  - job_name: quelvane\n    static_configs:\n"
                          << "      - targets: ['127.0.0.1:" << server->port() << "']\n";
    int port = freePort();
    pid_t prom = spawn({"prometheus", "--config.file=" + config, "--storage.tsdb.path=" + std::string(dir) + "/data",
                        "--web.listen-address=127.0.0.1:" + std::to_string(port)},
                       std::string(dir) + "/prometheus.log");
    ASSERT_GT(prom, 0);

    httplib::Client api("127.0.0.1", port);
    api.set_connection_timeout(2);
    api.set_read_timeout(5);
    auto query = [&](const std::string& q) -> std::string {
        httplib::Params params{{"query", q}};
        httplib::Result r = api.Get("/api/v1/query", params, httplib::Headers());
        if (!r || r->status != 200)
            return std::string();
        nlohmann::json j = nlohmann::json::parse(r->body, nullptr, false);
        if (j.is_discarded() || j["data"]["result"].empty())
            return std::string();
        return j["data"]["result"][0]["value"][1].get<std::string>();
    };
    bool up = waitUntil(40, [&] { return query("up{job=\"quelvane\"}") == "1"; });
    bool polled = waitUntil(10, [&] { return !query("quelvane_node_up{node=\"node04\"}").empty(); });
    SimCluster m = dump();
    std::string node01 = query("quelvane_node_up{node=\"node01\"}");
    std::string node04 = query("quelvane_node_up{node=\"node04\"}");
    std::string size = query("quelvane_filesystem_size_bytes{filesystem=\"fs1\"}");
    std::string success = query("quelvane_last_poll_success");

    // Every query of the Grafana dashboard is good PromQL and names families
    // that the exporter serves.
    nlohmann::json dashboard = nlohmann::json::parse(readFile(QUELVANE_DASHBOARD_PATH), nullptr, false);
    std::vector<std::string> exprs;
    std::function<void(const nlohmann::json&)> collect = [&](const nlohmann::json& j) {
        if (j.is_object()) {
            for (auto it = j.begin(); it != j.end(); ++it) {
                if (it.key() == "expr" && it.value().is_string())
                    exprs.push_back(it.value().get<std::string>());
                else
                    collect(it.value());
            }
        } else if (j.is_array()) {
            for (const auto& v : j)
                collect(v);
        }
    };
    collect(dashboard);
    Exposition served = scrape();
    std::vector<std::string> badQueries, unknownNames;
    for (std::string expr : exprs) {
        for (size_t at = expr.find("$instance"); at != std::string::npos; at = expr.find("$instance"))
            expr.replace(at, 9, ".*");
        httplib::Params params{{"query", expr}};
        httplib::Result r = api.Get("/api/v1/query", params, httplib::Headers());
        if (!r || r->status != 200 || r->body.find("\"status\":\"success\"") == std::string::npos)
            badQueries.push_back(expr + (r ? " -> " + r->body : std::string()));
        for (size_t at = expr.find("quelvane_"); at != std::string::npos; at = expr.find("quelvane_", at + 1)) {
            size_t end = expr.find_first_not_of("abcdefghijklmnopqrstuvwxyz_", at);
            std::string name = expr.substr(at, end - at);
            if (served.types.count(name) == 0)
                unknownNames.push_back(name);
            at = end - 1;
        }
    }
    kill(prom, SIGTERM);
    int status = waitChild(prom, 10);
    if (status == -1) {
        kill(prom, SIGKILL);
        waitpid(prom, &status, 0);
    }
    std::string log = readFile(std::string(dir) + "/prometheus.log");
    ASSERT_TRUE(up) << log;
    ASSERT_TRUE(polled) << log;
    EXPECT_EQ(node01, "1");
    EXPECT_EQ(node04, "0");
    EXPECT_EQ(std::stod(size), static_cast<double>(m.filesystem("fs1")->totalSpace));
    EXPECT_EQ(success, "1");
    EXPECT_FALSE(dashboard.is_discarded());
    EXPECT_GE(exprs.size(), 15u);
    EXPECT_TRUE(badQueries.empty()) << badQueries.front();
    EXPECT_TRUE(unknownNames.empty()) << unknownNames.front();
    std::string rm = std::string("rm -rf ") + dir;
    EXPECT_EQ(system(rm.c_str()), 0);
}

TEST_F(ExporterSim, AScrapeDuringASlowPollAnswersAtOnceWithThePreviousValues)
{
    startSim();
    startExporter();
    ASSERT_TRUE(poller->pollOnce());
    std::string before = *poller->exposition();
    ASSERT_EQ(sim->control("fail-node", {"node05"}).status, 0);

    // The daemon answers nothing while the model is held: the poll waits.
    std::atomic<bool> held{false};
    std::thread holder([&] {
        sim->withModel([&](SimCluster&) {
            held = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        });
    });
    ASSERT_TRUE(waitUntil(5, [&] { return held.load(); }));
    std::atomic<bool> pollDone{false};
    std::thread poll([&] {
        poller->pollOnce();
        pollDone = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_FALSE(pollDone.load());

    auto t0 = std::chrono::steady_clock::now();
    httplib::Result r = get("/metrics");
    double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
    bool stillPolling = !pollDone.load();
    holder.join();
    poll.join();
    ASSERT_TRUE(r);
    EXPECT_TRUE(stillPolling);
    EXPECT_LT(ms, 50.0);
    EXPECT_EQ(r->body.compare(0, before.size(), before), 0);
    Exposition during = parseExposition(r->body);
    EXPECT_EQ(during.value("quelvane_node_up", {{"node", "node05"}}), 1);
    EXPECT_GE(during.value("quelvane_poll_running_seconds"), 0.25);
    // Once the poll has ended, the change shows.
    Exposition after = scrape();
    EXPECT_EQ(after.value("quelvane_node_up", {{"node", "node05"}}), 0);
    EXPECT_EQ(after.value("quelvane_poll_running_seconds"), 0);
}

TEST_F(ExporterSim, ADaemonThatGoesAwayAndComesBackIsFoundAgain)
{
    startSim();
    startExporter();
    ASSERT_TRUE(poller->pollOnce());
    double size = scrape().value("quelvane_filesystem_size_bytes", {{"filesystem", "fs1"}});
    EXPECT_EQ(poller->handlerStarts(), 1u);

    sim->stop();
    EXPECT_FALSE(poller->pollOnce());
    Exposition e = scrape();
    EXPECT_EQ(e.value("quelvane_last_poll_success"), 0);
    EXPECT_EQ(e.value("quelvane_filesystem_size_bytes", {{"filesystem", "fs1"}}), size);
    EXPECT_EQ(e.value("quelvane_node_up", {{"node", "node01"}}), 1);
    EXPECT_GE(e.value("quelvane_poll_errors_total", {{"collector", "cluster"}}), 1);
    httplib::Result health = get("/healthz");
    ASSERT_TRUE(health);
    EXPECT_EQ(health->status, 503);

    // A new daemon with one node fewer.
    qvsim::ClusterShape shape;
    shape.nodes = 7;
    sim.reset(new SimDaemon(generateCluster(shape)));
    std::string err;
    ASSERT_TRUE(sim->start(&err)) << err;
    ASSERT_TRUE(poller->pollOnce());
    e = scrape();
    EXPECT_EQ(e.value("quelvane_last_poll_success"), 1);
    EXPECT_EQ(e.value("quelvane_cluster_nodes"), 7);
    EXPECT_GE(poller->handlerStarts(), 2u);
    expectModel(e, dump());
    health = get("/healthz");
    ASSERT_TRUE(health);
    EXPECT_EQ(health->status, 200);
}

TEST_F(ExporterSim, TheProgramServesAndEndsOnSigterm)
{
    startSim();
    int port = freePort();
    char dir[] = "/tmp/qvexp-program-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::string log = std::string(dir) + "/exporter.log";
    pid_t pid = spawn({QUELVANE_EXPORTER_PATH, "--listen", "127.0.0.1:" + std::to_string(port), "--interval", "0.5"},
                      log);
    ASSERT_GT(pid, 0);
    httplib::Client c("127.0.0.1", port);
    c.set_connection_timeout(1);
    bool healthy = waitUntil(15, [&] {
        httplib::Result r = c.Get("/healthz");
        return r && r->status == 200;
    });
    httplib::Result metrics = c.Get("/metrics");
    ASSERT_EQ(sim->control("event", {"userEvent"}).status, 0);
    bool counted = waitUntil(10, [&] {
        httplib::Result r = c.Get("/metrics");
        return r && r->body.find("quelvane_events_total{kind=\"userEvent\"} 1\n") != std::string::npos;
    });
    auto t0 = std::chrono::steady_clock::now();
    kill(pid, SIGTERM);
    int status = waitChild(pid, 10);
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    if (status == -1) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
    }
    std::string out = readFile(log);
    EXPECT_TRUE(healthy) << out;
    ASSERT_TRUE(metrics) << out;
    EXPECT_NE(metrics->body.find("quelvane_node_up{node=\"node01\""), std::string::npos);
    EXPECT_TRUE(counted) << out;
    ASSERT_NE(status, -1) << "still running 10 s after SIGTERM\n" << out;
    EXPECT_TRUE(WIFEXITED(status)) << out;
    EXPECT_EQ(WEXITSTATUS(status), 0) << out;
    // A running poll ends after its current collector (slow under the
    // sanitizers on a busy machine).
    EXPECT_LT(seconds, 8.0);
    std::string rm = std::string("rm -rf ") + dir;
    EXPECT_EQ(system(rm.c_str()), 0);
}

TEST_F(ExporterSim, OnlyTheChosenCollectorsRun)
{
    startSim();
    PollerOptions o;
    o.collectors = {"filesets", "cluster"};
    poller.reset(new Poller(o));
    server.reset(new MetricsServer(*poller, nullptr));
    std::string err;
    ASSERT_TRUE(server->start("127.0.0.1", 0, &err)) << err;
    ASSERT_TRUE(poller->pollOnce());
    Exposition e = scrape();
    EXPECT_FALSE(e.find("quelvane_node_up").empty());
    EXPECT_FALSE(e.find("quelvane_filesets").empty());
    for (const char* absent : {"quelvane_filesystem_size_bytes", "quelvane_disk_up", "quelvane_cache_hits_total",
                               "quelvane_recovery_groups", "quelvane_events_total"})
        EXPECT_EQ(e.types.count(absent), 0u) << absent;
    // The health families name the collectors that run, in their order.
    std::vector<const Sample*> durations = e.find("quelvane_scrape_duration_seconds");
    ASSERT_EQ(durations.size(), 2u);
    EXPECT_EQ(durations[0]->labels.at("collector"), "cluster");
    EXPECT_EQ(durations[1]->labels.at("collector"), "filesets");
}
