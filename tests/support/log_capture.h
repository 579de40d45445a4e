#ifndef QUELVANE_TEST_LOG_CAPTURE_H
#define QUELVANE_TEST_LOG_CAPTURE_H

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

#include <quelvane/kx_log.h>

namespace qvtest {

// Points the library's log stream at a scratch file for the life of the
// object and hands back what was logged, one entry per log call, with the
// time prefix taken off: "LEVEL: who: text" (text keeps its newline).
class LogCapture
{
public:
    LogCapture()
    {
        saved_ = QuelvaneLogFileP;
        char name[] = "/tmp/qvtest_log_XXXXXX";
        int fd = mkstemp(name);
        if (fd >= 0) {
            path_ = name;
            file_ = fdopen(fd, "w+");
        }
        QuelvaneLogFileP = file_;
    }
    ~LogCapture()
    {
        if (QuelvaneLogFileP == file_)
            QuelvaneLogFileP = saved_;
        if (file_ != nullptr)
            fclose(file_);
        if (!path_.empty())
            unlink(path_.c_str());
    }
    // Everything logged so far, raw. Read through a stream of its own, so
    // that library threads may go on writing meanwhile (the log flushes
    // after every line).
    std::string text() const
    {
        std::ifstream in(path_);
        std::stringstream ss;
        ss << in.rdbuf();
        return ss.str();
    }
    // The log lines without the 24-character time and its ": ".
    std::vector<std::string> lines() const
    {
        std::vector<std::string> out;
        std::string all = text();
        size_t start = 0;
        while (start < all.size()) {
            size_t nl = all.find('\n', start);
            std::string line = all.substr(start, nl == std::string::npos ? std::string::npos
                                                                         : nl - start);
            out.push_back(line.size() > 26 ? line.substr(26) : line);
            if (nl == std::string::npos)
                break;
            start = nl + 1;
        }
        return out;
    }
    bool contains(const std::string& entry) const
    {
        for (const std::string& l : lines())
            if (l == entry)
                return true;
        return false;
    }
    FILE* file() const { return file_; }
    // The library closed the stream (PollingHandler::term does): forget it.
    void closedByLibrary()
    {
        file_ = nullptr;
        saved_ = nullptr;
    }

private:
    FILE* saved_ = nullptr;
    FILE* file_ = nullptr;
    std::string path_;
};

} // namespace qvtest

#endif
