#include "cli/console.h"

#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qvcli {

namespace {

FILE* gOut = nullptr;
FILE* gErr = nullptr;
int gCapture = -1;

FILE* reopenCopy(int fd, const char* mode)
{
    int copy = fcntl(fd, F_DUPFD_CLOEXEC, 3);
    if (copy < 0)
        return nullptr;
    FILE* f = fdopen(copy, mode);
    if (f == nullptr)
        close(copy);
    return f;
}

std::string trim(const std::string& s)
{
    size_t b = s.find_first_not_of(" \t\r\n");
    if (b == std::string::npos)
        return std::string();
    size_t e = s.find_last_not_of(" \t\r\n");
    return s.substr(b, e - b + 1);
}

} // namespace

void captureLibraryOutput()
{
    if (gCapture >= 0)
        return;
    fflush(stdout);
    fflush(stderr);
    gOut = reopenCopy(1, "w");
    gErr = reopenCopy(2, "w");
    if (gErr != nullptr)
        setvbuf(gErr, nullptr, _IONBF, 0);
    gCapture = memfd_create("quelvane-captured-output", MFD_CLOEXEC);
    if (gCapture < 0) {
        // No memory file: the notes are thrown away instead.
        gCapture = open("/dev/null", O_WRONLY | O_CLOEXEC);
    } else {
        fcntl(gCapture, F_SETFL, fcntl(gCapture, F_GETFL) | O_APPEND);
    }
    if (gCapture >= 0) {
        dup2(gCapture, 1);
        dup2(gCapture, 2);
    }
}

FILE* out()
{
    return gOut != nullptr ? gOut : stdout;
}

FILE* err()
{
    return gErr != nullptr ? gErr : stderr;
}

void resetCapture()
{
    fflush(stdout);
    fflush(stderr);
    if (gCapture >= 0 && ftruncate(gCapture, 0) != 0) {
        // /dev/null: nothing to empty.
    }
}

std::string captured()
{
    fflush(stdout);
    fflush(stderr);
    std::string text;
    struct stat st;
    if (gCapture < 0 || fstat(gCapture, &st) != 0 || !S_ISREG(st.st_mode))
        return text;
    text.resize(static_cast<size_t>(st.st_size));
    ssize_t n = pread(gCapture, &text[0], text.size(), 0);
    text.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return text;
}

std::string lastCapturedLine()
{
    std::string text = captured();
    size_t end = text.size();
    while (end > 0) {
        size_t start = text.rfind('\n', end - 1);
        start = start == std::string::npos ? 0 : start + 1;
        std::string line = trim(text.substr(start, end - start));
        end = start > 0 ? start - 1 : 0;
        // The library's own notes read "TIME: quelvane_lib: TEXT".
        const char* const mark = ": quelvane_lib: ";
        size_t at = line.find(mark);
        if (at != std::string::npos)
            line = trim(line.substr(at + strlen(mark)));
        if (!line.empty())
            return line;
        if (start == 0)
            break;
    }
    return std::string();
}

void printError(const std::string& message)
{
    std::string line = "quelvane: " + message;
    // One line, whatever the message carried.
    for (char& c : line)
        if (c == '\n' || c == '\r')
            c = ' ';
    while (!line.empty() && line.back() == ' ')
        line.pop_back();
    line += '\n';
    fputs(line.c_str(), err());
    fflush(err());
}

} // namespace qvcli
