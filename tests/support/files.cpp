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

OutputCapture::OutputCapture(int fd) : fd_(fd)
{
    static std::atomic<int> counter{0};
    path_ = "/tmp/.output-capture." + std::to_string(getpid()) + "." + std::to_string(counter++);
    flush();
    saved_ = dup(fd_);
    int file = open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (saved_ < 0 || file < 0)
        throw std::runtime_error("cannot capture descriptor " + std::to_string(fd_));
    dup2(file, fd_);
    close(file);
}

void OutputCapture::flush()
{
    fflush(fd_ == 1 ? stdout : stderr);
}

std::string OutputCapture::finish()
{
    if (saved_ >= 0) {
        flush();
        dup2(saved_, fd_);
        close(saved_);
        saved_ = -1;
        text_ = readFile(path_);
        unlink(path_.c_str());
    }
    return text_;
}

OutputCapture::~OutputCapture()
{
    finish();
}

} // namespace qvtest
