#ifndef QUELVANE_TEST_LOG_ENTRIES_H
#define QUELVANE_TEST_LOG_ENTRIES_H

// Expected log entries in the form LogCapture::lines() gives them
// ("LEVEL: who: text"), and the captured lines without trailing empty ones.

#include <string>
#include <vector>

#include "support/log_capture.h"

namespace qvtest {

inline std::string I(const std::string& who, const std::string& text)
{
    return "INFO: " + who + ": " + text;
}
inline std::string W(const std::string& who, const std::string& text)
{
    return "WARNING: " + who + ": " + text;
}
inline std::string E(const std::string& who, const std::string& text)
{
    return "ERROR: " + who + ": " + text;
}

inline std::vector<std::string> logged(const LogCapture& log)
{
    std::vector<std::string> l = log.lines();
    while (!l.empty() && l.back().empty())
        l.pop_back();
    return l;
}

} // namespace qvtest

#endif
