#ifndef QUELVANE_TEST_LOG_CAPTURE_H
#define QUELVANE_TEST_LOG_CAPTURE_H

#include <cstdio>
#include <string>
#include <vector>

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
        file_ = tmpfile();
        QuelvaneLogFileP = file_;
    }
    ~LogCapture()
    {
        if (QuelvaneLogFileP == file_)
            QuelvaneLogFileP = saved_;
        if (file_ != nullptr)
            fclose(file_);
    }
    // Everything logged so far, raw.
    std::string text() const
    {
        std::string out;
        if (file_ == nullptr)
            return out;
        fflush(file_);
        long pos = ftell(file_);
        rewind(file_);
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof(buf), file_)) > 0)
            out.append(buf, n);
        fseek(file_, pos, SEEK_SET);
        return out;
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

private:
    FILE* saved_ = nullptr;
    FILE* file_ = nullptr;
};

} // namespace qvtest

#endif
