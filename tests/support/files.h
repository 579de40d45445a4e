#ifndef QUELVANE_TEST_FILES_H
#define QUELVANE_TEST_FILES_H

#include <string>
#include <vector>

namespace qvtest {

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& content);
bool fileExists(const std::string& path);
void makeDirs(const std::string& path);
// Lines of `text` without their newlines; a last line without newline counts.
std::vector<std::string> splitLines(const std::string& text);

// Redirects descriptor 1 (and stdout) or 2 (and stderr) into a file until
// finish() or the destructor; finish() returns everything written meanwhile.
class OutputCapture
{
public:
    explicit OutputCapture(int fd);
    ~OutputCapture();
    std::string finish();

    OutputCapture(const OutputCapture&) = delete;
    OutputCapture& operator=(const OutputCapture&) = delete;

private:
    void flush();

    int fd_;
    int saved_ = -1;
    std::string path_;
    std::string text_;
};

class StderrCapture : public OutputCapture
{
public:
    StderrCapture() : OutputCapture(2) {}
};

class StdoutCapture : public OutputCapture
{
public:
    StdoutCapture() : OutputCapture(1) {}
};

// Matches the 24-character ctime text that starts log and kx_print lines,
// for example "Sat Nov 21 19:58:50 2026".
extern const char* const kTimeRegex;

} // namespace qvtest

#endif
