// Aids of PollingHandler for the colon-separated output of the tools.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <quelvane/api_poll.h>

int PollingHandler::initBuf(char* buf)
{
    buf[0] = '\0';
    return 0;
}

char* PollingHandler::grabValue(char* line, int index, char* dst)
{
    const char* start = line + 1;
    if (index > 0) {
        const char* p = line;
        for (int i = 0; i < index && p != nullptr; i++) {
            p = strchr(p, ':');
            if (p != nullptr)
                p++;
        }
        // A line with fewer colons than asked for has no such field.
        start = p != nullptr ? p : line + strlen(line);
    } else if (line[0] == '\0') {
        start = line;
    }
    long len;
    const char* end = strchr(start, ':');
    if (end != nullptr)
        len = end - start;
    else
        len = static_cast<long>(strlen(start)) - 1;   // drops the trailing newline
    if (len < 0)
        len = 0;
    if (len > 255)
        len = 255;
    memset(dst, 0, 256);
    memcpy(dst, start, static_cast<size_t>(len));
    return dst;
}

std::string PollingHandler::buffer2string(char* buf, int len)
{
    if (len == 0)
        return std::string("\"\"");
    if (len < 0)
        return std::string();
    return std::string(buf, static_cast<size_t>(len));
}

std::vector<std::string> PollingHandler::tokenHelper(char* line, int count)
{
    std::vector<std::string> fields;
    const char* p = line;
    char buf[1024];
    for (int n = 0; n < count; n++) {
        int len = 0;
        // Gather up to the closing colon; a field that the line's end cuts
        // short is taken as it stands and the fields behind it are empty.
        while (*p != '\0' && *p != ':') {
            if (len < static_cast<int>(sizeof(buf)) - 1)
                buf[len++] = *p;
            p++;
        }
        if (*p == ':')
            p++;
        buf[len] = '\0';
        fields.push_back(buffer2string(buf, len));
    }
    return fields;
}

char* PollingHandler::getTimeStampInMilliseconds(char* in, char* out)
{
    // Restore the encoded colons: "%" becomes ":", and the "3" and "A" of the
    // escape fall away. The first byte is its own predecessor.
    char restored[256];
    size_t w = 0;
    char prev = in[0];
    for (size_t r = 0; in[r] != '\0'; r++) {
        char c = in[r];
        bool keep = true;
        if (c == '%')
            c = ':';
        else if (c == '3' && prev == ':')
            keep = false;
        else if (c == 'A' && prev == '3')
            keep = false;
        if (keep && w < sizeof(restored) - 1)
            restored[w++] = c;
        prev = c;
    }
    restored[w] = '\0';
    memcpy(in, restored, w + 1);

    static const char* const months[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                           "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    long year = -1;
    int month = -1;
    long day = -1;
    char timeText[256] = "";
    int others = 0;
    char* save = nullptr;
    char* word = strtok_r(in, " ", &save);   // the weekday is dropped
    if (word != nullptr) {
        while ((word = strtok_r(nullptr, " ", &save)) != nullptr) {
            int m = -1;
            for (int i = 0; i < 12; i++) {
                if (strcmp(word, months[i]) == 0) {
                    m = i + 1;
                    break;
                }
            }
            if (m > 0) {
                month = m;
                continue;
            }
            if (others == 0) {
                day = strtol(word, nullptr, 10);
            } else if (others == 1) {
                strncpy(timeText, word, sizeof(timeText) - 1);
                timeText[sizeof(timeText) - 1] = '\0';
            } else if (others == 2) {
                year = strtol(word, nullptr, 10);
            }
            others++;
        }
    }

    // "hh:mm:ss" becomes "hhmmss".
    char digits[256] = "";
    size_t d = 0;
    char* tsave = nullptr;
    for (char* part = strtok_r(timeText, ":", &tsave); part != nullptr;
         part = strtok_r(nullptr, ":", &tsave)) {
        size_t n = strlen(part);
        if (d + n >= sizeof(digits))
            n = sizeof(digits) - 1 - d;
        memcpy(digits + d, part, n);
        d += n;
        digits[d] = '\0';
    }

    if (month < 10 && day < 10)
        sprintf(out, "%d0%d0%d%s.000000+360", static_cast<int>(year), month,
                static_cast<int>(day), digits);
    else if (month < 10)
        sprintf(out, "%d0%d%d%s.000000+360", static_cast<int>(year), month,
                static_cast<int>(day), digits);
    else if (day < 10)
        sprintf(out, "%d%d0%d%s.000000+360", static_cast<int>(year), month,
                static_cast<int>(day), digits);
    else
        sprintf(out, "%d%d%d%s.000000+360", static_cast<int>(year), month,
                static_cast<int>(day), digits);
    return out;
}
