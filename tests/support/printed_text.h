#ifndef QUELVANE_TEST_PRINTED_TEXT_H
#define QUELVANE_TEST_PRINTED_TEXT_H

// Patterns for what the library prints on stderr: a kx_print line with its
// time text, a whole-text regex match, and regex escaping of literal text.

#include <regex>
#include <string>

#include "support/files.h"

namespace qvtest {

// A kx_print line as a pattern: time text, then ": quelvane_lib: " and the text.
inline std::string printed(const std::string& text)
{
    return std::string(kTimeRegex) + ": quelvane_lib: " + text + "\n";
}

// True when the pattern matches the whole text.
inline bool matches(const std::string& pattern, const std::string& text)
{
    return std::regex_match(text, std::regex(pattern));
}

// Escapes the regex characters of a literal text.
inline std::string lit(const std::string& s)
{
    static const std::regex special(R"([.^$|()\[\]{}*+?\\])");
    return std::regex_replace(s, special, R"(\$&)");
}

} // namespace qvtest

#endif
