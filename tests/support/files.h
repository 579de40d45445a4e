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

// Redirects descriptor 2 (and stderr) into a file until finish() or the
// destructor; finish() returns everything written meanwhile.
class StderrCapture
{
public:
    StderrCapture();
    ~StderrCapture();
    std::string finish();

    StderrCapture(const StderrCapture&) = delete;
    StderrCapture& operator=(const StderrCapture&) = delete;

private:
    int saved_ = -1;
    std::string path_;
    std::string text_;
};

// Matches the 24-character ctime text that starts log and kx_print lines,
// for example "Sat Nov 21 19:58:50 2026".
extern const char* const kTimeRegex;

} // namespace qvtest

#endif
