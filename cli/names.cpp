#include "cli/names.h"

#include "cli/console.h"

#include <cctype>
#include <cstring>

namespace qvcli {

namespace {

bool alnum(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

std::string shown(const std::string& value)
{
    std::string s;
    for (unsigned char c : value) {
        if (c < 0x20 || c == 0x7f) {
            char buf[8];
            snprintf(buf, sizeof(buf), "\\x%02x", c);
            s += buf;
        } else {
            s += static_cast<char>(c);
        }
    }
    return "\"" + s + "\"";
}

void check(const std::string& what, const std::string& value, const char* extra, const char* allowed)
{
    if (value.empty())
        fail(kExitUsage, "refused " + what + ": it is empty");
    if (value[0] == '-')
        fail(kExitUsage, "refused " + what + " " + shown(value) + ": it must not begin with '-'");
    for (char c : value)
        if (!alnum(c) && (c == '\0' || strchr(extra, c) == nullptr))
            fail(kExitUsage, "refused " + what + " " + shown(value) + ": only " + allowed + " are allowed");
}

} // namespace

void checkName(const std::string& what, const std::string& value)
{
    check(what, value, "._-", "letters, digits and . _ -");
}

void checkPath(const std::string& what, const std::string& value)
{
    check(what, value, "._-/", "letters, digits and . _ - /");
}

void checkComment(const std::string& what, const std::string& value)
{
    check(what, value, " ._-,:/+=@", "letters, digits, blanks and . _ - , : / + = @");
}

} // namespace qvcli
