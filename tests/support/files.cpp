#include "support/files.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace qvtest {

const char* const kTimeRegex =
    "(Mon|Tue|Wed|Thu|Fri|Sat|Sun) (Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) "
    "[ 0-9][0-9] [0-9][0-9]:[0-9][0-9]:[0-9][0-9] [0-9]{4}";

std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

void writeFile(const std::string& path, const std::string& content)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out)
        throw std::runtime_error("cannot write " + path);
    out << content;
}

bool fileExists(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

void makeDirs(const std::string& path)
{
    size_t pos = 0;
    while (pos != std::string::npos) {
        pos = path.find('/', pos + 1);
        std::string cur = path.substr(0, pos);
        if (!cur.empty() && mkdir(cur.c_str(), 0755) != 0 && errno != EEXIST)
            throw std::runtime_error("cannot make " + cur);
    }
}

std::vector<std::string> splitLines(const std::string& text)
{
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t nl = text.find('\n', start);
        if (nl == std::string::npos) {
            lines.push_back(text.substr(start));
            break;
        }
        lines.push_back(text.substr(start, nl - start));
        start = nl + 1;
    }
    return lines;
}

StderrCapture::StderrCapture()
{
    static std::atomic<int> counter{0};
    path_ = "/tmp/.stderr-capture." + std::to_string(getpid()) + "." + std::to_string(counter++);
    fflush(stderr);
    saved_ = dup(2);
    int fd = open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (saved_ < 0 || fd < 0)
        throw std::runtime_error("cannot capture stderr");
    dup2(fd, 2);
    close(fd);
}

std::string StderrCapture::finish()
{
    if (saved_ >= 0) {
        fflush(stderr);
        dup2(saved_, 2);
        close(saved_);
        saved_ = -1;
        text_ = readFile(path_);
        unlink(path_.c_str());
    }
    return text_;
}

StderrCapture::~StderrCapture()
{
    finish();
}

} // namespace qvtest
