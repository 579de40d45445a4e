// The log written from several threads at once: every entry stays whole.
#include <quelvane/kx_log.h>

#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <thread>
#include <vector>

using namespace qvtest;

namespace {

void logMany(int thread, int entries)
{
    for (int i = 0; i < entries; i++) {
        // Level 2 also writes the entry to stderr, in several calls too.
        kx_log(i % 3, "LogThreads::writer", "thread %d entry %d of a line long enough to be cut %s\n",
               thread, i, "0123456789abcdefghijklmnopqrstuvwxyz");
    }
}

} // namespace

TEST(LogThreads, EntriesOfConcurrentThreadsNeverInterleave)
{
    LogCapture log;
    const int kThreads = 4;
    const int kEntries = 1500;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; t++)
        threads.emplace_back(logMany, t, kEntries);
    for (std::thread& th : threads)
        th.join();

    const std::regex entry(
        "(INFO|WARNING|ERROR): LogThreads::writer: thread [0-3] entry [0-9]+ of a line long enough "
        "to be cut 0123456789abcdefghijklmnopqrstuvwxyz");
    std::vector<std::string> lines = log.lines();
    ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * kEntries));
    size_t whole = 0;
    for (const std::string& l : lines)
        whole += std::regex_match(l, entry) ? 1 : 0;
    EXPECT_EQ(whole, lines.size());
}
