#include "stand_in.h"

#include "bench_report.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace qvbench {

StandIn::StandIn(std::string path) : path_(std::move(path))
{
    ::unlink(path_.c_str());
    listenFd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path_.c_str());
    if (listenFd_ < 0 || ::bind(listenFd_, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 ||
        ::listen(listenFd_, 16) != 0 || ::pipe2(wakePipe_, O_CLOEXEC) != 0) {
        fprintf(stderr, "stand-in daemon: cannot listen on %s: %s\n", path_.c_str(), strerror(errno));
        exit(2);
    }
    acceptThread_ = std::thread([this] { acceptLoop(); });
}

StandIn::~StandIn()
{
    stop();
}

void StandIn::acceptLoop()
{
    for (;;) {
        pollfd fds[2] = {{listenFd_, POLLIN, 0}, {wakePipe_[0], POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0 && errno != EINTR)
            return;
        if (fds[1].revents != 0)
            return;
        if (!(fds[0].revents & POLLIN))
            continue;
        int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0)
            continue;
        std::lock_guard<std::mutex> lock(mutex_);
        conns_.push_back(std::make_unique<Conn>());
        Conn* c = conns_.back().get();
        c->fd = fd;
        c->thread = std::thread([this, c] { serve(c); });
        cond_.notify_all();
    }
}

bool StandIn::writeAll(int fd, const char* data, size_t size)
{
    while (size > 0) {
        ssize_t n = ::send(fd, data, size, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        data += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

// Reads request lines and answers each with the prepared response.
void StandIn::serve(Conn* c)
{
    char buf[4096];
    for (;;) {
        ssize_t n = ::recv(c->fd, buf, sizeof(buf), 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return;
        for (ssize_t i = 0; i < n; ++i) {
            if (buf[i] != '\n')
                continue;
            std::shared_ptr<const std::string> answer;
            {
                std::lock_guard<std::mutex> lock(mutex_);
                answer = answer_;
            }
            if (answer && !writeAll(c->fd, answer->data(), answer->size()))
                return;
        }
    }
}

void StandIn::answerRequestsWith(std::string bytes)
{
    auto answer = std::make_shared<const std::string>(std::move(bytes));
    std::lock_guard<std::mutex> lock(mutex_);
    answer_ = answer;
}

bool StandIn::waitConnection(size_t index, int timeoutMs)
{
    std::unique_lock<std::mutex> lock(mutex_);
    return cond_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                          [&] { return conns_.size() > index; });
}

double StandIn::pour(size_t index, const std::string& bytes)
{
    int fd;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (index >= conns_.size())
            return -1;
        fd = conns_[index]->fd;
    }
    double start = nowMs();
    return writeAll(fd, bytes.data(), bytes.size()) ? start : -1;
}

void StandIn::stop()
{
    if (acceptThread_.joinable()) {
        char one = 1;
        if (::write(wakePipe_[1], &one, 1) != 1)
            perror("stand-in daemon: wake");
        acceptThread_.join();
    }
    if (listenFd_ >= 0) {
        ::close(listenFd_);
        listenFd_ = -1;
        ::unlink(path_.c_str());
    }
    for (int& fd : wakePipe_) {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
    }
    std::vector<std::unique_ptr<Conn>> conns;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        conns.swap(conns_);
    }
    for (auto& c : conns) {
        ::shutdown(c->fd, SHUT_RDWR);
        if (c->thread.joinable())
            c->thread.join();
        ::close(c->fd);
    }
}

} // namespace qvbench
