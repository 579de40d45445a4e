#include "sim/daemon.h"

#include "sim/changes.h"
#include "sim/dump.h"
#include "sim/events.h"
#include "sim/render.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace qvsim {

const char* const kDaemonSocketPath = "/var/vesk/tavrel/tavrelSocket";
const char* const kControlSocketPath = "/var/vesk/tavrel/quelvane-sim.control";

namespace {

const char kSep = '\x1f';

int listenOn(const char* path, std::string* err)
{
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        *err = std::string("socket: ") + strerror(errno);
        return -1;
    }
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    strncpy(addr.sun_path, path, sizeof(addr.sun_path) - 1);
    unlink(path);
    if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 || listen(fd, 128) != 0) {
        *err = std::string("listening on ") + path + ": " + strerror(errno);
        close(fd);
        return -1;
    }
    return fd;
}

// Waits for a connection on `fd` while `stopping` stays false.
int acceptWhile(int fd, const std::atomic<bool>& stopping)
{
    while (!stopping) {
        pollfd p{fd, POLLIN, 0};
        int r = ::poll(&p, 1, 50);
        if (r <= 0)
            continue;
        int c = accept4(fd, nullptr, nullptr, SOCK_CLOEXEC);
        if (c >= 0)
            return c;
    }
    return -1;
}

bool sendAll(int fd, const std::string& bytes)
{
    size_t off = 0;
    while (off < bytes.size()) {
        ssize_t n = ::send(fd, bytes.data() + off, bytes.size() - off, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        off += static_cast<size_t>(n);
    }
    return true;
}

bool recvAll(int fd, std::string* out, size_t n)
{
    out->resize(n);
    size_t off = 0;
    while (off < n) {
        ssize_t r = ::recv(fd, &(*out)[off], n - off, 0);
        if (r < 0 && errno == EINTR)
            continue;
        if (r <= 0)
            return false;
        off += static_cast<size_t>(r);
    }
    return true;
}

std::vector<std::string> splitOn(const std::string& text, char sep)
{
    std::vector<std::string> out;
    size_t start = 0;
    while (true) {
        size_t at = text.find(sep, start);
        out.push_back(text.substr(start, at == std::string::npos ? std::string::npos : at - start));
        if (at == std::string::npos)
            break;
        start = at + 1;
    }
    return out;
}

std::string joinWords(const std::vector<std::string>& w, size_t from, char sep)
{
    std::string out;
    for (size_t i = from; i < w.size(); ++i) {
        if (i != from)
            out += sep;
        out += w[i];
    }
    return out;
}

// Frames a call: a length line, then the words separated by the unit separator.
std::string frameCall(const std::vector<std::string>& words)
{
    std::string body = joinWords(words, 0, kSep);
    return std::to_string(body.size()) + "\n" + body;
}

// Reads a decimal length ended by a newline.
bool readLength(int fd, size_t* n)
{
    std::string digits;
    char ch;
    while (true) {
        ssize_t r = ::recv(fd, &ch, 1, 0);
        if (r < 0 && errno == EINTR)
            continue;
        if (r <= 0)
            return false;
        if (ch == '\n')
            break;
        if (ch < '0' || ch > '9' || digits.size() > 18)
            return false;
        digits += ch;
    }
    if (digits.empty())
        return false;
    *n = std::strtoull(digits.c_str(), nullptr, 10);
    return true;
}

} // namespace

SimDaemon::SimDaemon(SimCluster model) : model_(std::move(model)) {}

SimDaemon::~SimDaemon()
{
    stop();
}

bool SimDaemon::start(std::string* err)
{
    daemonFd_ = listenOn(kDaemonSocketPath, err);
    if (daemonFd_ < 0)
        return false;
    controlFd_ = listenOn(kControlSocketPath, err);
    if (controlFd_ < 0) {
        close(daemonFd_);
        daemonFd_ = -1;
        return false;
    }
    daemonAccept_ = std::thread([this] { acceptDaemon(); });
    controlAccept_ = std::thread([this] { acceptControl(); });
    return true;
}

void SimDaemon::stop()
{
    if (stopping_.exchange(true))
        return;
    if (daemonAccept_.joinable())
        daemonAccept_.join();
    if (controlAccept_.joinable())
        controlAccept_.join();
    {
        std::unique_lock<std::mutex> lock(connMutex_);
        for (auto& c : conns_)
            if (c->fd >= 0)
                ::shutdown(c->fd, SHUT_RDWR);
        controlsDone_.wait(lock, [this] { return activeControls_ == 0; });
    }
    for (auto& c : conns_)
        if (c->thread.joinable())
            c->thread.join();
    for (auto& c : conns_)
        if (c->fd >= 0)
            close(c->fd);
    conns_.clear();
    if (daemonFd_ >= 0) {
        close(daemonFd_);
        unlink(kDaemonSocketPath);
    }
    if (controlFd_ >= 0) {
        close(controlFd_);
        unlink(kControlSocketPath);
    }
    daemonFd_ = controlFd_ = -1;
    {
        std::lock_guard<std::mutex> lock(stopMutex_);
        stopRequested_ = true;
    }
    stopCond_.notify_all();
}

void SimDaemon::waitForStopRequest()
{
    std::unique_lock<std::mutex> lock(stopMutex_);
    stopCond_.wait(lock, [this] { return stopRequested_.load(); });
}

void SimDaemon::withModel(const std::function<void(SimCluster&)>& f)
{
    std::lock_guard<std::mutex> lock(modelMutex_);
    f(model_);
}

std::vector<std::string> SimDaemon::requests() const
{
    std::lock_guard<std::mutex> lock(connMutex_);
    return requests_;
}

size_t SimDaemon::openConnections() const
{
    std::lock_guard<std::mutex> lock(connMutex_);
    size_t n = 0;
    for (auto& c : conns_)
        n += c->open ? 1 : 0;
    return n;
}

// ---------------------------------------------------------------------------
// The daemon socket.

void SimDaemon::acceptDaemon()
{
    while (true) {
        int fd = acceptWhile(daemonFd_, stopping_);
        if (fd < 0)
            return;
        std::lock_guard<std::mutex> lock(connMutex_);
        conns_.emplace_back(new Conn);
        Conn* c = conns_.back().get();
        c->fd = fd;
        c->thread = std::thread([this, c] { serveDaemon(c); });
    }
}

bool SimDaemon::writeAll(Conn& c, const std::string& bytes)
{
    std::lock_guard<std::mutex> lock(c.writeMutex);
    if (!c.open)
        return false;
    if (!sendAll(c.fd, bytes)) {
        c.open = false;
        return false;
    }
    return true;
}

std::vector<std::string> SimDaemon::answer(const std::string& request)
{
    std::lock_guard<std::mutex> lock(modelMutex_);
    std::vector<std::string> lines;
    if (daemonAnswer(model_, request, &lines))
        return lines;
    if (daemonKnowsEmpty(request))
        return {};
    return {"_error_ unknown request '" + request + "'"};
}

void SimDaemon::serveDaemon(Conn* c)
{
    std::string pending;
    char buf[65536];
    while (!stopping_ && c->open) {
        pollfd p{c->fd, POLLIN, 0};
        int r = ::poll(&p, 1, 50);
        if (r < 0 && errno != EINTR)
            break;
        if (r <= 0)
            continue;
        ssize_t n = ::recv(c->fd, buf, sizeof(buf), 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        pending.append(buf, static_cast<size_t>(n));
        size_t nl;
        while ((nl = pending.find('\n')) != std::string::npos) {
            std::string line = pending.substr(0, nl);
            pending.erase(0, nl + 1);
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            {
                std::lock_guard<std::mutex> lock(connMutex_);
                requests_.push_back(line);
            }
            std::string out;
            for (const std::string& l : answer(line))
                out += l + "\n";
            out += "_response_ end\n";
            if (!writeAll(*c, out))
                break;
        }
    }
    std::lock_guard<std::mutex> lock(c->writeMutex);
    c->open = false;
}

int SimDaemon::broadcast(const std::string& line)
{
    std::vector<Conn*> targets;
    {
        std::lock_guard<std::mutex> lock(connMutex_);
        for (auto& c : conns_)
            if (c->open)
                targets.push_back(c.get());
    }
    int n = 0;
    for (Conn* c : targets)
        n += writeAll(*c, line + "\n") ? 1 : 0;
    return n;
}

// ---------------------------------------------------------------------------
// The control socket.

void SimDaemon::acceptControl()
{
    while (true) {
        int fd = acceptWhile(controlFd_, stopping_);
        if (fd < 0)
            return;
        {
            std::lock_guard<std::mutex> lock(connMutex_);
            ++activeControls_;
        }
        std::thread([this, fd] {
            serveControl(fd);
            std::lock_guard<std::mutex> lock(connMutex_);
            --activeControls_;
            controlsDone_.notify_all();
        }).detach();
    }
}

void SimDaemon::serveControl(int fd)
{
    size_t n = 0;
    std::string body;
    ControlReply reply;
    if (!readLength(fd, &n) || n > (64u << 20) || !recvAll(fd, &body, n)) {
        close(fd);
        return;
    }
    std::vector<std::string> words = splitOn(body, kSep);
    std::string kind = words.empty() ? std::string() : words[0];
    if (kind == "tool" && words.size() >= 2)
        reply = runTool(words[1], std::vector<std::string>(words.begin() + 2, words.end()));
    else if (kind == "tool-stdin" && words.size() >= 3)
        reply = runTool(words[1], std::vector<std::string>(words.begin() + 2, words.end() - 1), words.back());
    else if (kind == "ctl" && words.size() >= 2)
        reply = control(words[1], std::vector<std::string>(words.begin() + 2, words.end()));
    else
        reply = {2, "", "quelvane-sim: malformed control call\n"};
    std::string head = std::to_string(reply.status) + " " + std::to_string(reply.out.size()) + " " +
                       std::to_string(reply.err.size()) + "\n";
    sendAll(fd, head + reply.out + reply.err);
    close(fd);
    if (kind == "ctl" && words.size() >= 2 && words[1] == "stop") {
        std::lock_guard<std::mutex> lock(stopMutex_);
        stopRequested_ = true;
        stopCond_.notify_all();
    }
}

ControlReply SimDaemon::runTool(const std::string& tool, const std::vector<std::string>& args,
                                const std::string& input)
{
    std::vector<std::string> events;
    ControlReply r;
    {
        std::lock_guard<std::mutex> lock(modelMutex_);
        r = toolLocked(tool, args, input, &events);
    }
    for (const std::string& e : events)
        broadcast(e);
    return r;
}

ControlReply SimDaemon::control(const std::string& verb, const std::vector<std::string>& args)
{
    std::vector<std::string> events;
    ControlReply r;
    {
        std::lock_guard<std::mutex> lock(modelMutex_);
        r = controlLocked(verb, args, &events);
    }
    for (const std::string& e : events)
        broadcast(e);
    return r;
}

ControlReply SimDaemon::toolLocked(const std::string& tool, const std::vector<std::string>& args,
                                   const std::string& input, std::vector<std::string>* events)
{
    ControlReply r;
    ToolAnswer a;
    std::string text = joinWords(args, 0, ' ');
    bool handled = tool == "vkputacl" ? putAcl(model_, args, input, &a)
                                      : changeByTool(model_, tool, args, &a, events) ||
                                            toolAnswer(model_, tool, text, &a);
    if (handled) {
        r.status = a.status;
        r.out = a.out;
        r.err = a.err;
        return r;
    }
    r.status = 1;
    r.err = tool + ": unsupported call: " + text + "\n";
    return r;
}

ControlReply SimDaemon::controlLocked(const std::string& verb, const std::vector<std::string>& args,
                                      std::vector<std::string>* events)
{
    ControlReply r;
    if (verb == "dump") {
        r.out = dumpModel(model_) + "\n";
        return r;
    }
    if (verb == "stop") {
        r.out = "stopping\n";
        return r;
    }
    std::string error;
    if (!applyControl(model_, verb, args, events, &error)) {
        r.status = 1;
        r.err = "quelvane-sim ctl " + verb + ": " + error + "\n";
    }
    return r;
}

// ---------------------------------------------------------------------------
// Client.

ControlReply controlCall(const std::string& kind, const std::vector<std::string>& words)
{
    ControlReply r;
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    strncpy(addr.sun_path, kControlSocketPath, sizeof(addr.sun_path) - 1);
    if (fd < 0 || connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
        r.status = 127;
        r.err = std::string("no simulated cluster answers at ") + kControlSocketPath +
                " (run this inside \"quelvane-sim run\")\n";
        if (fd >= 0)
            close(fd);
        return r;
    }
    std::vector<std::string> all = {kind};
    all.insert(all.end(), words.begin(), words.end());
    std::string head;
    size_t outLen = 0, errLen = 0;
    bool ok = sendAll(fd, frameCall(all));
    if (ok) {
        char ch;
        while (true) {
            ssize_t n = ::recv(fd, &ch, 1, 0);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0) {
                ok = false;
                break;
            }
            if (ch == '\n')
                break;
            head += ch;
        }
    }
    if (ok) {
        std::vector<std::string> h = splitOn(head, ' ');
        ok = h.size() == 3;
        if (ok) {
            r.status = std::atoi(h[0].c_str());
            outLen = std::strtoull(h[1].c_str(), nullptr, 10);
            errLen = std::strtoull(h[2].c_str(), nullptr, 10);
            ok = recvAll(fd, &r.out, outLen) && recvAll(fd, &r.err, errLen);
        }
    }
    close(fd);
    if (!ok) {
        r = ControlReply();
        r.status = 127;
        r.err = "the simulated cluster closed the control connection\n";
    }
    return r;
}

} // namespace qvsim
