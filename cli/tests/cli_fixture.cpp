#include "cli/tests/cli_fixture.h"

#include "sim/dump.h"
#include "sim/render.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace qvsim;

namespace qvclitest {

namespace {

std::string readAll(const std::string& path)
{
    std::string text;
    FILE* f = fopen(path.c_str(), "r");
    if (f == nullptr)
        return text;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), f)) > 0)
        text.append(buf, n);
    fclose(f);
    return text;
}

// Moves what is waiting on `fd` into `into`; false at the end of the stream.
bool drain(int fd, std::string* into)
{
    char buf[4096];
    while (true) {
        ssize_t n = read(fd, buf, sizeof(buf));
        if (n > 0) {
            into->append(buf, static_cast<size_t>(n));
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        return n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
    }
}

} // namespace

std::vector<std::string> lines(const std::string& text)
{
    std::vector<std::string> out;
    size_t start = 0;
    while (start < text.size()) {
        size_t nl = text.find('\n', start);
        if (nl == std::string::npos) {
            out.push_back(text.substr(start));
            break;
        }
        out.push_back(text.substr(start, nl - start));
        start = nl + 1;
    }
    return out;
}

bool eventually(double seconds, const std::function<bool()>& pred)
{
    auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (true) {
        if (pred())
            return true;
        if (std::chrono::steady_clock::now() >= until)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

CliTest::~CliTest()
{
    TearDown();
}

void CliTest::TearDown()
{
    for (Child& c : children) {
        if (c.pid > 0) {
            kill(c.pid, SIGKILL);
            waitpid(c.pid, nullptr, 0);
            c.pid = -1;
        }
        if (c.outFd >= 0)
            close(c.outFd);
        if (c.errFd >= 0)
            close(c.errFd);
        c.outFd = c.errFd = -1;
    }
    children.clear();
    if (sim)
        sim->stop();
    sim.reset();
}

void CliTest::installTools()
{
    for (const std::string& tool : allToolNames()) {
        std::string link = std::string(kToolDir) + "/" + tool;
        unlink(link.c_str());
        ASSERT_EQ(symlink(QUELVANE_SIM_PATH, link.c_str()), 0) << link;
    }
    setenv("PATH", (std::string(kToolDir) + ":/usr/bin:/bin").c_str(), 1);
}

void CliTest::startSim(const ClusterShape& shape)
{
    installTools();
    sim.reset(new SimDaemon(generateCluster(shape)));
    std::string err;
    ASSERT_TRUE(sim->start(&err)) << err;
}

SimCluster CliTest::dump()
{
    ControlReply r = sim->control("dump", {});
    EXPECT_EQ(r.status, 0) << r.err;
    return loadModel(r.out);
}

void CliTest::ctl(const std::string& verb, const std::vector<std::string>& args)
{
    ControlReply r = sim->control(verb, args);
    ASSERT_EQ(r.status, 0) << r.err;
}

Result CliTest::run(const std::string& args)
{
    static int calls = 0;
    std::string errPath = "/tmp/quelvane-test-stderr." + std::to_string(getpid()) + "." + std::to_string(++calls);
    std::string cmd = "timeout -k 2 20 " + std::string(QUELVANE_CLI_PATH) + " " + args + " 2>" + errPath;
    Result r;
    FILE* p = popen(cmd.c_str(), "r");
    if (p == nullptr) {
        ADD_FAILURE() << "popen failed: " << cmd;
        return r;
    }
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), p)) > 0)
        r.out.append(buf, n);
    int rc = pclose(p);
    r.status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
    r.err = readAll(errPath);
    unlink(errPath.c_str());
    return r;
}

nlohmann::json CliTest::runJson(const std::string& args)
{
    Result r = run(args + " --json");
    EXPECT_EQ(r.status, 0) << "quelvane " << args << " --json: " << r.err;
    EXPECT_EQ(r.err, "");
    try {
        return nlohmann::json::parse(r.out);
    } catch (const std::exception& e) {
        ADD_FAILURE() << "not JSON (" << e.what() << "): " << r.out;
        return nlohmann::json();
    }
}

Child CliTest::spawn(const std::vector<std::string>& args)
{
    Child c;
    int out[2];
    int err[2];
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) {
        ADD_FAILURE() << "pipe";
        return c;
    }
    pid_t pid = fork();
    if (pid == 0) {
        dup2(out[1], 1);
        dup2(err[1], 2);
        int devnull = open("/dev/null", O_RDONLY);
        if (devnull >= 0)
            dup2(devnull, 0);
        std::vector<char*> argv;
        std::string self = QUELVANE_CLI_PATH;
        argv.push_back(&self[0]);
        std::vector<std::string> copy = args;
        for (std::string& a : copy)
            argv.push_back(&a[0]);
        argv.push_back(nullptr);
        execv(self.c_str(), argv.data());
        _exit(127);
    }
    close(out[1]);
    close(err[1]);
    fcntl(out[0], F_SETFL, O_NONBLOCK);
    fcntl(err[0], F_SETFL, O_NONBLOCK);
    c.pid = pid;
    c.outFd = out[0];
    c.errFd = err[0];
    children.push_back(c);
    return c;
}

bool CliTest::readLines(Child& c, size_t count, double seconds)
{
    auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (true) {
        drain(c.outFd, &c.out);
        drain(c.errFd, &c.err);
        size_t have = 0;
        for (char ch : c.out)
            have += ch == '\n' ? 1 : 0;
        if (have >= count)
            return true;
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return false;
        struct pollfd p[2] = {{c.outFd, POLLIN, 0}, {c.errFd, POLLIN, 0}};
        poll(p, 2, static_cast<int>(std::min<long long>(left.count(), 50)));
    }
}

int CliTest::finish(Child& c, int sig, double seconds)
{
    if (c.pid <= 0)
        return -1;
    if (sig != 0)
        kill(c.pid, sig);
    int status = 0;
    bool ended = eventually(seconds, [&] { return waitpid(c.pid, &status, WNOHANG) == c.pid; });
    if (!ended) {
        kill(c.pid, SIGKILL);
        waitpid(c.pid, &status, 0);
    }
    drain(c.outFd, &c.out);
    drain(c.errFd, &c.err);
    for (Child& k : children)
        if (k.pid == c.pid) {
            k.pid = -1;
        }
    c.pid = -1;
    if (!ended)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void CliTest::scriptTool(const std::string& tool, const std::string& body)
{
    std::string path = std::string(kToolDir) + "/" + tool;
    unlink(path.c_str());
    FILE* f = fopen(path.c_str(), "w");
    ASSERT_NE(f, nullptr) << path;
    fprintf(f, "#!/bin/sh\n%s\n", body.c_str());
    fclose(f);
    chmod(path.c_str(), 0755);
}

} // namespace qvclitest
