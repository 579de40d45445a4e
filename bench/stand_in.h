#ifndef QUELVANE_BENCH_STAND_IN_H
#define QUELVANE_BENCH_STAND_IN_H

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace qvbench {

// The daemon's stand-in for benchmarks: it pours prepared bytes into its
// connections as fast as the socket takes them, so that it is never the
// slower end. It answers every request line with one prepared response,
// written whole, and can pour any bytes into a connection on demand.
class StandIn
{
public:
    static constexpr const char* kSocketPath = "/var/vesk/tavrel/tavrelSocket";

    explicit StandIn(std::string path = kSocketPath);
    ~StandIn();

    StandIn(const StandIn&) = delete;
    StandIn& operator=(const StandIn&) = delete;

    // Every request line from now on is answered with `bytes`.
    void answerRequestsWith(std::string bytes);

    // Waits until connection `index` (in accept order, from 0) is there.
    bool waitConnection(size_t index, int timeoutMs = 5000);

    // Writes all of `bytes` on connection `index`, on the calling thread.
    // Returns the time (nowMs) just before the first byte went out, or a
    // negative value when the connection failed.
    double pour(size_t index, const std::string& bytes);

    // Stops listening, removes the socket file and closes every connection,
    // so that a reconnection fails.
    void stop();

private:
    struct Conn {
        int fd = -1;
        std::thread thread;
    };

    void acceptLoop();
    void serve(Conn* c);
    static bool writeAll(int fd, const char* data, size_t size);

    std::string path_;
    int listenFd_ = -1;
    int wakePipe_[2] = {-1, -1};
    std::thread acceptThread_;

    std::mutex mutex_;
    std::condition_variable cond_;
    std::vector<std::unique_ptr<Conn>> conns_;
    std::shared_ptr<const std::string> answer_;
};

} // namespace qvbench

#endif
