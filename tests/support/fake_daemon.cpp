#include "support/fake_daemon.h"

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace qvtest {

namespace {

std::chrono::steady_clock::time_point deadline(int ms)
{
    return std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
}

} // namespace

FakeDaemon::FakeDaemon(std::string path, bool listenNow) : path_(std::move(path))
{
    if (listenNow)
        start();
}

FakeDaemon::~FakeDaemon()
{
    stop();
}

int FakeDaemon::listenUnix()
{
    ::unlink(path_.c_str());
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        throw std::runtime_error("fake daemon: socket: " + std::string(strerror(errno)));
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path_.c_str());
    if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 || ::listen(fd, 64) != 0) {
        int e = errno;
        ::close(fd);
        throw std::runtime_error("fake daemon: cannot listen on " + path_ + ": " + strerror(e));
    }
    return fd;
}

int FakeDaemon::listenTcp()
{
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        throw std::runtime_error("fake daemon: tcp socket: " + std::string(strerror(errno)));
    int one = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = htons(static_cast<uint16_t>(tcpPort_ > 0 ? tcpPort_ : 0));
    if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 || ::listen(fd, 64) != 0) {
        int e = errno;
        ::close(fd);
        throw std::runtime_error("fake daemon: cannot listen on tcp: " + std::string(strerror(e)));
    }
    socklen_t len = sizeof(addr);
    getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
    tcpPort_ = ntohs(addr.sin_port);
    return fd;
}

void FakeDaemon::start()
{
    if (acceptThread_.joinable())
        return;
    stopping_ = false;
    unixFd_ = listenUnix();
    if (tcpPort_ > 0)
        tcpFd_ = listenTcp();
    acceptThread_ = std::thread([this] { acceptLoop(); });
}

int FakeDaemon::startTcp()
{
    bool running = acceptThread_.joinable();
    if (running) {
        stopping_ = true;
        acceptThread_.join();
        stopping_ = false;
    }
    if (tcpFd_ < 0)
        tcpFd_ = listenTcp();
    if (unixFd_ < 0)
        unixFd_ = listenUnix();
    acceptThread_ = std::thread([this] { acceptLoop(); });
    return tcpPort_;
}

void FakeDaemon::stop()
{
    if (acceptThread_.joinable()) {
        stopping_ = true;
        acceptThread_.join();
    }
    if (unixFd_ >= 0) {
        ::close(unixFd_);
        unixFd_ = -1;
        ::unlink(path_.c_str());
    }
    if (tcpFd_ >= 0) {
        ::close(tcpFd_);
        tcpFd_ = -1;
    }
    dropConnections();
}

void FakeDaemon::acceptLoop()
{
    while (!stopping_) {
        pollfd fds[2];
        int n = 0;
        bool tcpAt[2] = {false, false};
        if (unixFd_ >= 0) {
            fds[n] = {unixFd_, POLLIN, 0};
            tcpAt[n++] = false;
        }
        if (tcpFd_ >= 0) {
            fds[n] = {tcpFd_, POLLIN, 0};
            tcpAt[n++] = true;
        }
        if (::poll(fds, n, 20) <= 0)
            continue;
        for (int i = 0; i < n; ++i) {
            if (!(fds[i].revents & POLLIN))
                continue;
            int fd = ::accept4(fds[i].fd, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0)
                continue;
            std::lock_guard<std::mutex> lock(mutex_);
            auto c = std::make_unique<Conn>();
            c->fd = fd;
            c->tcp = tcpAt[i];
            size_t index = conns_.size();
            conns_.push_back(std::move(c));
            conns_.back()->thread = std::thread([this, index] { serve(index); });
            cond_.notify_all();
        }
    }
}

bool FakeDaemon::writeAll(Conn& c, const std::string& bytes)
{
    std::lock_guard<std::mutex> lock(c.writeMutex);
    if (c.fd < 0)
        return false;
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t n = ::send(c.fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

void FakeDaemon::closeConn(Conn& c)
{
    std::lock_guard<std::mutex> lock(c.writeMutex);
    if (c.fd >= 0) {
        ::shutdown(c.fd, SHUT_RDWR);
        ::close(c.fd);
        c.fd = -1;
    }
    c.open = false;
}

Response FakeDaemon::answerFor(const std::string& line)
{
    std::lock_guard<std::mutex> lock(mutex_);
    auto once = oneShot_.find(line);
    if (once != oneShot_.end() && !once->second.empty()) {
        Response r = once->second.front();
        once->second.erase(once->second.begin());
        return r;
    }
    auto always = always_.find(line);
    if (always != always_.end())
        return always->second;
    return default_;
}

void FakeDaemon::sendResponse(Conn& c, const Response& r)
{
    if (r.silent)
        return;
    if (r.delayMs > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(r.delayMs));
    std::string out;
    for (const std::string& l : r.lines)
        out += l + "\n";
    if (r.appendEnd)
        out += std::string(kEndLine) + "\n";
    writeAll(c, out);
}

void FakeDaemon::serve(size_t index)
{
    Conn* c;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        c = conns_[index].get();
    }
    int fd = c->fd;

    bool handshake;
    std::vector<unsigned char> reply;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        handshake = c->tcp && handshakeSet_;
        reply = handshakeReply_;
    }
    if (handshake) {
        std::vector<unsigned char> req;
        unsigned char b[40];
        while (req.size() < 40 && !stopping_) {
            pollfd p{fd, POLLIN, 0};
            if (::poll(&p, 1, 20) <= 0)
                continue;
            ssize_t n = ::recv(fd, b, 40 - req.size(), 0);
            if (n <= 0)
                break;
            req.insert(req.end(), b, b + n);
        }
        {
            std::lock_guard<std::mutex> lock(mutex_);
            handshakes_.push_back(req);
            cond_.notify_all();
        }
        writeAll(*c, std::string(reply.begin(), reply.end()));
    }

    std::string pending;
    char buf[4096];
    bool drop = false;
    while (!drop) {
        pollfd p{fd, POLLIN, 0};
        int pr = ::poll(&p, 1, 20);
        if (pr < 0 && errno != EINTR)
            break;
        if (pr <= 0)
            continue;
        ssize_t n = ::recv(fd, buf, sizeof(buf), 0);
        if (n <= 0)
            break;
        pending.append(buf, static_cast<size_t>(n));
        {
            std::lock_guard<std::mutex> lock(mutex_);
            received_.append(buf, static_cast<size_t>(n));
        }
        size_t nl;
        while (!drop && (nl = pending.find('\n')) != std::string::npos) {
            std::string line = pending.substr(0, nl);
            pending.erase(0, nl + 1);
            Response r = answerFor(line);
            {
                std::lock_guard<std::mutex> lock(mutex_);
                requests_.push_back({index, line});
                cond_.notify_all();
            }
            sendResponse(*c, r);
            drop = r.dropAfter;
        }
    }
    closeConn(*c);
    std::lock_guard<std::mutex> lock(mutex_);
    cond_.notify_all();
}

void FakeDaemon::dropConnections()
{
    std::vector<Conn*> all;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (auto& c : conns_)
            all.push_back(c.get());
    }
    for (Conn* c : all) {
        {
            std::lock_guard<std::mutex> lock(c->writeMutex);
            if (c->fd >= 0)
                ::shutdown(c->fd, SHUT_RDWR);
        }
        if (c->thread.joinable())
            c->thread.join();
    }
}

void FakeDaemon::respond(const std::string& request, Response r)
{
    std::lock_guard<std::mutex> lock(mutex_);
    oneShot_[request].push_back(std::move(r));
}

void FakeDaemon::respondAlways(const std::string& request, Response r)
{
    std::lock_guard<std::mutex> lock(mutex_);
    always_[request] = std::move(r);
}

void FakeDaemon::setDefault(Response r)
{
    std::lock_guard<std::mutex> lock(mutex_);
    default_ = std::move(r);
}

int FakeDaemon::pushRaw(const std::string& bytes, int connection)
{
    std::vector<Conn*> targets;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (size_t i = 0; i < conns_.size(); ++i) {
            if ((connection < 0 || static_cast<size_t>(connection) == i) && conns_[i]->open)
                targets.push_back(conns_[i].get());
        }
    }
    int written = 0;
    for (Conn* c : targets) {
        if (writeAll(*c, bytes))
            ++written;
    }
    return written;
}

int FakeDaemon::pushEvent(const std::string& line, int connection)
{
    return pushRaw(line + "\n", connection);
}

void FakeDaemon::setHandshakeReply(std::vector<unsigned char> reply)
{
    std::lock_guard<std::mutex> lock(mutex_);
    handshakeReply_ = std::move(reply);
    handshakeSet_ = true;
}

std::vector<std::vector<unsigned char>> FakeDaemon::handshakes() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return handshakes_;
}

std::vector<Request> FakeDaemon::requests() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

std::vector<std::string> FakeDaemon::requestLines() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> out;
    for (const Request& r : requests_)
        out.push_back(r.line);
    return out;
}

std::string FakeDaemon::received() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return received_;
}

size_t FakeDaemon::connectionsAccepted() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return conns_.size();
}

size_t FakeDaemon::openConnections() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    size_t n = 0;
    for (auto& c : conns_)
        n += c->open ? 1 : 0;
    return n;
}

bool FakeDaemon::waitForRequests(size_t count, int timeoutMs) const
{
    std::unique_lock<std::mutex> lock(mutex_);
    return cond_.wait_until(lock, deadline(timeoutMs), [&] { return requests_.size() >= count; });
}

bool FakeDaemon::waitForConnections(size_t count, int timeoutMs) const
{
    std::unique_lock<std::mutex> lock(mutex_);
    return cond_.wait_until(lock, deadline(timeoutMs), [&] { return conns_.size() >= count; });
}

bool FakeDaemon::waitForHandshakes(size_t count, int timeoutMs) const
{
    std::unique_lock<std::mutex> lock(mutex_);
    return cond_.wait_until(lock, deadline(timeoutMs), [&] { return handshakes_.size() >= count; });
}

} // namespace qvtest
