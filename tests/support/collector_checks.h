#ifndef QUELVANE_TEST_COLLECTOR_CHECKS_H
#define QUELVANE_TEST_COLLECTOR_CHECKS_H

// Small checks shared by the collector tests: the polling lock left free,
// update times, and stderr without the time prefixes of mirrored log lines.

#include <pthread.h>
#include <sys/time.h>

#include <regex>
#include <string>

#include <quelvane/api_poll.h>

#include "support/files.h"

namespace qvtest {

// stderr with the time prefixes of mirrored log lines taken off.
inline std::string stripTimes(const std::string& text)
{
    static const std::regex re(std::string("(^|\n)") + kTimeRegex + ": ");
    return std::regex_replace(text, re, "$1");
}

// True when nobody holds the handler's polling mutex.
inline bool lockIsFree(PollingHandler* h)
{
    if (pthread_mutex_trylock(&h->pollingMutex) != 0)
        return false;
    pthread_mutex_unlock(&h->pollingMutex);
    return true;
}

// A time that has been stamped at all (seconds or microseconds not zero).
inline bool isSet(const struct timeval& tv)
{
    return tv.tv_sec != 0 || tv.tv_usec != 0;
}

// A time stamped within the last five seconds.
inline bool isRecent(const struct timeval& tv)
{
    struct timeval now;
    gettimeofday(&now, nullptr);
    return tv.tv_sec <= now.tv_sec && tv.tv_sec >= now.tv_sec - 5;
}

} // namespace qvtest

#endif
