#ifndef QUELVANE_TEST_FAKE_DAEMON_H
#define QUELVANE_TEST_FAKE_DAEMON_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace qvtest {

// What the fake daemon sends back for one request line.
struct Response {
    std::vector<std::string> lines;   // sent in order, each with a newline
    bool appendEnd = true;            // add "_response_ end" after the lines
    bool dropAfter = false;           // shut the connection down after sending
    bool silent = false;              // send nothing at all
    int delayMs = 0;                  // wait before answering

    Response() = default;
    Response(std::initializer_list<std::string> l) : lines(l) {}
    explicit Response(std::vector<std::string> l) : lines(std::move(l)) {}
};

// A request line as the fake daemon received it.
struct Request {
    size_t connection;   // index of the connection, in accept order from 0
    std::string line;    // without its newline
};

// A scripted peer on the daemon's socket path (and, on demand, on a TCP port
// of 127.0.0.1). It records every request line, answers each with the response
// scripted for its exact text, can push event lines at any time, drop its
// connections, stay down and come back. All waits are bounded.
class FakeDaemon
{
public:
    static constexpr const char* kSocketPath = "/var/vesk/tavrel/tavrelSocket";
    static constexpr const char* kEndLine = "_response_ end";

    explicit FakeDaemon(std::string path = kSocketPath, bool listenNow = true);
    ~FakeDaemon();

    FakeDaemon(const FakeDaemon&) = delete;
    FakeDaemon& operator=(const FakeDaemon&) = delete;

    // Listens on the named socket (again, after stop()).
    void start();
    // Also listens on 127.0.0.1; returns the port.
    int startTcp();
    // Stops listening, removes the socket file and drops every connection.
    void stop();
    // Shuts down and closes every open connection; keeps listening.
    void dropConnections();

    // Answers the next request whose text is exactly `request` with `r`.
    // Several answers for the same text are used in the order given.
    void respond(const std::string& request, Response r);
    // Answers every request whose text is exactly `request` with `r`, once no
    // one-shot answer is left for it.
    void respondAlways(const std::string& request, Response r);
    // Answer for requests that nothing else matches (initially the end line alone).
    void setDefault(Response r);

    // Sends `line` and a newline on connection `connection`, or on every open
    // connection when it is -1. Returns the number of connections written.
    int pushEvent(const std::string& line, int connection = -1);
    // Sends raw bytes on a connection (or all with -1).
    int pushRaw(const std::string& bytes, int connection = -1);

    // TCP connections first read a 40-byte handshake request and answer with
    // these bytes (when set).
    void setHandshakeReply(std::vector<unsigned char> reply);
    std::vector<std::vector<unsigned char>> handshakes() const;

    std::vector<Request> requests() const;
    std::vector<std::string> requestLines() const;
    // Every byte received on the request streams, in arrival order.
    std::string received() const;
    size_t connectionsAccepted() const;
    size_t openConnections() const;

    bool waitForRequests(size_t count, int timeoutMs = 5000) const;
    bool waitForConnections(size_t count, int timeoutMs = 5000) const;
    bool waitForHandshakes(size_t count, int timeoutMs = 5000) const;

    const std::string& path() const { return path_; }

private:
    struct Conn {
        int fd = -1;
        bool tcp = false;
        std::mutex writeMutex;
        std::atomic<bool> open{true};
        std::thread thread;
    };

    void acceptLoop();
    void serve(size_t index);
    Response answerFor(const std::string& line);
    void sendResponse(Conn& c, const Response& r);
    bool writeAll(Conn& c, const std::string& bytes);
    void closeConn(Conn& c);
    int listenUnix();
    int listenTcp();

    std::string path_;
    int unixFd_ = -1;
    int tcpFd_ = -1;
    int tcpPort_ = -1;
    std::atomic<bool> stopping_{false};
    std::thread acceptThread_;

    mutable std::mutex mutex_;
    mutable std::condition_variable cond_;
    std::vector<std::unique_ptr<Conn>> conns_;
    std::vector<Request> requests_;
    std::string received_;
    std::map<std::string, std::vector<Response>> oneShot_;
    std::map<std::string, Response> always_;
    Response default_;
    std::vector<unsigned char> handshakeReply_;
    bool handshakeSet_ = false;
    std::vector<std::vector<unsigned char>> handshakes_;
};

} // namespace qvtest

#endif
