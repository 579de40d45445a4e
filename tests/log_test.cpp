// The log: kx_log, kx_print, file_size and the rotation of log_update.
#include <quelvane/kx_log.h>
#include <quelvane/version.h>

#include "support/files.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <regex>
#include <string>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

using namespace qvtest;

namespace {

const char kBase[] = "/var/vesk/gen/quelvanelog";

// Backup suffix for a time: the ctime text with ':' and ' ' made '_'.
std::string stampFor(time_t t)
{
    char buf[64];
    ctime_r(&t, buf);
    std::string s(buf, 24);
    for (char& c : s) {
        if (c == ':' || c == ' ')
            c = '_';
    }
    return s;
}

// Waits until a new second has just begun, so that what follows runs within
// one second.
void alignToSecond()
{
    time_t start = time(nullptr);
    while (time(nullptr) == start)
        usleep(1000);
}

// Resets the log globals to their initial values; each test runs in a
// process of its own, but a test may change them on the way.
void resetLog()
{
    if (QuelvaneLogFileP != nullptr)
        fclose(QuelvaneLogFileP);
    QuelvaneLogFileP = nullptr;
    log_list.clear();
    log_count = 1;
    log_size = 5000;
}

std::string fullMatchText(const std::string& pattern, const std::string& text)
{
    return std::regex_match(text, std::regex(pattern)) ? "matches" : "no match for: " + text;
}

} // namespace

TEST(LogGlobals, InitialValues)
{
    EXPECT_EQ(QuelvaneLogFileP, nullptr);
    EXPECT_STREQ(QuelvaneLogLevelNamesP[0], "INFO");
    EXPECT_STREQ(QuelvaneLogLevelNamesP[1], "WARNING");
    EXPECT_STREQ(QuelvaneLogLevelNamesP[2], "ERROR");
    EXPECT_STREQ(QuelvaneLogLevelNamesP[3], "SEVERE");
    EXPECT_EQ(log_level, 4);
    EXPECT_EQ(log_count, 1);
    EXPECT_EQ(log_size, 5000);
    EXPECT_TRUE(log_list.empty());
    EXPECT_EQ(libquelvaneVersion(), 3504);
}

TEST(KxLog, NoLogOpenLevelThreePrintsNothingAnywhere)
{
    StderrCapture cap;
    kx_log(3, "Test::silent", "severe %d\n", 3);
    kx_log(2, "Test::silent", "error\n");
    kx_log(0, "Test::silent", "info\n");
    EXPECT_EQ(cap.finish(), "");
}

TEST(KxLog, LineFormatTimeLevelAndWho)
{
    QuelvaneLogFileP = fopen("/tmp/log.txt", "w+");
    ASSERT_NE(QuelvaneLogFileP, nullptr);
    kx_log(0, "PollingHandler::init", "started %s with %d\n", "polling", 3);
    std::string text = readFile("/tmp/log.txt");
    EXPECT_EQ(fullMatchText(std::string(kTimeRegex) + ": INFO: PollingHandler::init: started polling with 3\n",
                            text),
              "matches");
    // The time text is exactly 24 characters.
    EXPECT_EQ(text.substr(24, 8), ": INFO: ");
    resetLog();
}

TEST(KxLog, LevelOneOnlyToLogLevelTwoAlsoToStderrWithSamePrefix)
{
    QuelvaneLogFileP = fopen("/tmp/log.txt", "w+");
    ASSERT_NE(QuelvaneLogFileP, nullptr);
    StderrCapture cap;
    kx_log(1, "A::warn", "careful %d\n", 1);
    std::string afterWarning = readFile("/tmp/log.txt");
    EXPECT_EQ(cap.finish(), "");
    EXPECT_EQ(fullMatchText(std::string(kTimeRegex) + ": WARNING: A::warn: careful 1\n", afterWarning),
              "matches");

    StderrCapture cap2;
    kx_log(2, "B::fail", "broken %s\n", "pipe");
    std::string err = cap2.finish();
    std::vector<std::string> logLines = splitLines(readFile("/tmp/log.txt"));
    ASSERT_EQ(logLines.size(), 2u);
    EXPECT_EQ(fullMatchText(std::string(kTimeRegex) + ": ERROR: B::fail: broken pipe\n", err), "matches");
    EXPECT_EQ(logLines[1] + "\n", err);
    resetLog();
}

TEST(KxLog, LevelThreeIsSevereOnBoth)
{
    QuelvaneLogFileP = fopen("/tmp/log.txt", "w+");
    ASSERT_NE(QuelvaneLogFileP, nullptr);
    StderrCapture cap;
    kx_log(3, "C::boom", "gone\n");
    std::string err = cap.finish();
    EXPECT_EQ(fullMatchText(std::string(kTimeRegex) + ": SEVERE: C::boom: gone\n", err), "matches");
    EXPECT_EQ(readFile("/tmp/log.txt"), err);
    resetLog();
}

TEST(KxLog, LevelIsNotFilteredByLogLevel)
{
    log_level = 0;
    QuelvaneLogFileP = fopen("/tmp/log.txt", "w+");
    ASSERT_NE(QuelvaneLogFileP, nullptr);
    kx_log(1, "D::x", "a\n");
    kx_log(0, "D::x", "b\n");
    EXPECT_EQ(splitLines(readFile("/tmp/log.txt")).size(), 2u);
    resetLog();
}

TEST(KxPrint, PrintsOnlyTheFirstLineAndAddsItsOwnNewline)
{
    StderrCapture cap;
    int rc = kx_print("first part\nsecond part\n");
    std::string err = cap.finish();
    EXPECT_EQ(fullMatchText(std::string(kTimeRegex) + ": quelvane_lib: first part\n", err), "matches");
    EXPECT_EQ(rc, static_cast<int>(err.size()));
}

TEST(KxPrint, PrintsAlsoWithoutALog)
{
    ASSERT_EQ(QuelvaneLogFileP, nullptr);
    StderrCapture cap;
    kx_print("no newline at all");
    EXPECT_EQ(fullMatchText(std::string(kTimeRegex) + ": quelvane_lib: no newline at all\n", cap.finish()),
              "matches");
}

TEST(KxPrint, TextOfMoreThan1023BytesIsCutThere)
{
    std::string longText(2000, 'x');
    StderrCapture cap;
    kx_print(longText.c_str());
    std::string err = cap.finish();
    EXPECT_EQ(err.substr(24), ": quelvane_lib: " + std::string(1023, 'x') + "\n");
}

TEST(FileSize, KibRoundedDownAndZeroForMissingFile)
{
    char missing[] = "/tmp/none";
    EXPECT_EQ(file_size(missing), 0);
    writeFile("/tmp/f", std::string(2047, 'a'));
    char path[] = "/tmp/f";
    EXPECT_EQ(file_size(path), 1);
    writeFile("/tmp/f", std::string(2048, 'a'));
    EXPECT_EQ(file_size(path), 2);
}

TEST(LogUpdate, OneKibBelowTheLimitDoesNothing)
{
    log_size = 3;
    writeFile(kBase, std::string(3 * 1024 - 1, 'a'));
    StderrCapture cap;
    log_update();
    EXPECT_EQ(cap.finish(), "");
    EXPECT_TRUE(log_list.empty());
    EXPECT_EQ(readFile(kBase).size(), 3u * 1024 - 1);
    EXPECT_EQ(QuelvaneLogFileP, nullptr);
}

TEST(LogUpdate, MissingBaseLogDoesNothing)
{
    // file_size gives 0 for a missing file, which is below any positive limit.
    log_size = 1;
    StderrCapture cap;
    log_update();
    EXPECT_EQ(cap.finish(), "");
    EXPECT_TRUE(log_list.empty());
}

TEST(LogUpdate, ExactlyLogSizeRotatesWithItsTexts)
{
    log_size = 3;
    writeFile(kBase, std::string(3 * 1024, 'a'));
    // The stream that was open is closed and replaced.
    QuelvaneLogFileP = fopen("/tmp/old-log", "w+");
    ASSERT_NE(QuelvaneLogFileP, nullptr);

    time_t before = time(nullptr);
    StderrCapture cap;
    log_update();
    std::string err = cap.finish();
    time_t after = time(nullptr);

    ASSERT_EQ(log_list.size(), 1u);
    const std::string backup = log_list[0];
    bool stampInRange = false;
    for (time_t t = before; t <= after; ++t)
        stampInRange = stampInRange || backup == std::string(kBase) + "." + stampFor(t);
    EXPECT_TRUE(stampInRange) << backup;
    EXPECT_EQ(err, "cmd=mv /var/vesk/gen/quelvanelog " + backup + "\n" + "log_update: rc=0\n" +
                       "Log backed to " + backup + "\n" + "Last log backed to " + backup + "\n");
    EXPECT_EQ(readFile(backup), std::string(3 * 1024, 'a'));
    ASSERT_NE(QuelvaneLogFileP, nullptr);
    EXPECT_EQ(readFile(kBase), "Last log backed to " + backup + "\n");

    // The new stream is the base log, opened for appending.
    kx_log(0, "E::after", "rotated\n");
    std::vector<std::string> lines = splitLines(readFile(kBase));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(fullMatchText(std::string(kTimeRegex) + ": INFO: E::after: rotated", lines[1]), "matches");
    resetLog();
}

TEST(LogUpdate, StampReplacesColonsAndBlanksIncludingDoubleBlank)
{
    // A day of the month below 10 has two blanks in the ctime text.
    struct tm tmv;
    memset(&tmv, 0, sizeof(tmv));
    tmv.tm_year = 126;
    tmv.tm_mon = 10;
    tmv.tm_mday = 3;
    tmv.tm_hour = 9;
    tmv.tm_min = 5;
    tmv.tm_sec = 7;
    tmv.tm_isdst = -1;
    EXPECT_EQ(stampFor(mktime(&tmv)), "Tue_Nov__3_09_05_07_2026");

    log_size = 0;
    writeFile(kBase, "x");
    alignToSecond();
    time_t now = time(nullptr);
    StderrCapture cap;
    log_update();
    cap.finish();
    ASSERT_EQ(log_list.size(), 1u);
    std::string stamp = log_list[0].substr(strlen(kBase) + 1);
    EXPECT_EQ(stamp, stampFor(now));
    EXPECT_EQ(stamp.find(' '), std::string::npos);
    EXPECT_EQ(stamp.find(':'), std::string::npos);
    resetLog();
}

TEST(LogUpdate, FirstAndSecondRotationDeleteNothingThirdDeletesTheOldest)
{
    log_size = 0;
    writeFile(kBase, "one");
    StderrCapture cap1;
    log_update();
    std::string err1 = cap1.finish();
    EXPECT_EQ(err1.find("Deleting"), std::string::npos);
    EXPECT_EQ(err1.find("rm -f"), std::string::npos);
    ASSERT_EQ(log_list.size(), 1u);

    StderrCapture cap2;
    log_update();
    std::string err2 = cap2.finish();
    EXPECT_EQ(err2.find("Deleting"), std::string::npos);
    ASSERT_EQ(log_list.size(), 2u);

    const std::vector<std::string> beforeThird = log_list;
    StderrCapture cap3;
    log_update();
    std::string err3 = cap3.finish();
    ASSERT_EQ(log_list.size(), 2u);
    const std::string newest = log_list[1];
    EXPECT_EQ(log_list[0], beforeThird[1]);
    EXPECT_EQ(err3, "Deleting " + beforeThird[0] + "\n" + "cmd=rm -f " + beforeThird[0] + "\n" +
                        "log_update: rc=0\n" + "cmd=mv /var/vesk/gen/quelvanelog " + newest + "\n" +
                        "log_update: rc=0\n" + "Log backed to " + newest + "\n" + "Last log backed to " +
                        newest + "\n");

    // Settled at log_count + 1 entries.
    StderrCapture cap4;
    log_update();
    std::string err4 = cap4.finish();
    EXPECT_EQ(err4.rfind("Deleting ", 0), 0u);
    EXPECT_EQ(log_list.size(), 2u);
    resetLog();
}

TEST(LogUpdate, DeletesTheOldestBackupFileAndItsListEntry)
{
    log_size = 0;
    const std::string b1 = "/var/vesk/gen/quelvanelog.b1";
    const std::string b2 = "/var/vesk/gen/quelvanelog.b2";
    writeFile(b1, "old1");
    writeFile(b2, "old2");
    log_list = {b1, b2};
    writeFile(kBase, "current");
    StderrCapture cap;
    log_update();
    std::string err = cap.finish();
    EXPECT_EQ(err.rfind("Deleting " + b1 + "\ncmd=rm -f " + b1 + "\nlog_update: rc=0\ncmd=mv ", 0), 0u)
        << err;
    EXPECT_FALSE(fileExists(b1));
    EXPECT_TRUE(fileExists(b2));
    ASSERT_EQ(log_list.size(), 2u);
    EXPECT_EQ(log_list[0], b2);
    EXPECT_EQ(readFile(log_list[1]), "current");
    resetLog();
}

TEST(LogUpdate, LogCountTwoKeepsThreeBackups)
{
    log_size = 0;
    log_count = 2;
    log_list = {"/var/vesk/gen/quelvanelog.a", "/var/vesk/gen/quelvanelog.b"};
    writeFile(kBase, "x");
    StderrCapture cap;
    log_update();
    EXPECT_EQ(cap.finish().find("Deleting"), std::string::npos);
    EXPECT_EQ(log_list.size(), 3u);
    StderrCapture cap2;
    log_update();
    EXPECT_EQ(cap2.finish().rfind("Deleting /var/vesk/gen/quelvanelog.a\n", 0), 0u);
    EXPECT_EQ(log_list.size(), 3u);
    resetLog();
}

TEST(LogUpdate, SameSecondTwiceGivesTheSameNameTwiceAndOverwrites)
{
    log_size = 0;
    writeFile(kBase, "first log");
    alignToSecond();
    StderrCapture cap;
    log_update();
    // The rotated stream is the base log again; write to it, then rotate.
    fprintf(QuelvaneLogFileP, "second log\n");
    fflush(QuelvaneLogFileP);
    log_update();
    std::string err = cap.finish();
    ASSERT_EQ(log_list.size(), 2u);
    EXPECT_EQ(log_list[0], log_list[1]);
    // The mv overwrote the first backup: it now holds the second log.
    EXPECT_EQ(readFile(log_list[0]), "Last log backed to " + log_list[0] + "\nsecond log\n");
    EXPECT_EQ(err.find("Deleting"), std::string::npos);
    resetLog();
}

TEST(LogUpdate, ReopenFailureTurnsLoggingOff)
{
    // A read-only filesystem over the log directory: the mv fails (its own
    // message follows its command) and the base log cannot be reopened.
    ASSERT_EQ(mount("tmpfs", "/var/vesk/gen", "tmpfs", 0, "size=1m"), 0) << strerror(errno);
    writeFile(kBase, "content");
    ASSERT_EQ(mount("tmpfs", "/var/vesk/gen", "tmpfs", MS_REMOUNT | MS_RDONLY, "size=1m"), 0)
        << strerror(errno);
    log_size = 0;
    QuelvaneLogFileP = fopen("/tmp/old-log", "w+");
    StderrCapture cap;
    log_update();
    std::vector<std::string> lines = splitLines(cap.finish());
    ASSERT_EQ(log_list.size(), 1u);
    const std::string backup = log_list[0];
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0], "cmd=mv /var/vesk/gen/quelvanelog " + backup);
    EXPECT_EQ(lines[1].rfind("mv: ", 0), 0u);
    EXPECT_EQ(lines[2], "log_update: rc=1");
    EXPECT_EQ(lines[3], "Log backed to " + backup);
    EXPECT_EQ(lines[4], "Error to create a log file");
    EXPECT_EQ(QuelvaneLogFileP, nullptr);
    EXPECT_EQ(readFile(kBase), "content");
    resetLog();
}

TEST(LogUpdate, PopenFailureIsReportedAndTheRotationGoesOn)
{
    log_size = 0;
    const std::string oldest = "/var/vesk/gen/quelvanelog.o1";
    log_list = {oldest, "/var/vesk/gen/quelvanelog.o2"};
    writeFile(kBase, "log");
    QuelvaneLogFileP = fopen("/tmp/old-log", "w+");
    ASSERT_NE(QuelvaneLogFileP, nullptr);

    // Use up every descriptor: no pipe can be made for popen. Closing the log
    // stream frees exactly one, which is enough to reopen the base log but
    // not for a pipe.
    struct rlimit saved;
    getrlimit(RLIMIT_NOFILE, &saved);
    struct rlimit low = saved;
    low.rlim_cur = 64;
    StderrCapture cap;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
    std::vector<int> fillers;
    for (;;) {
        int fd = dup(0);
        if (fd < 0)
            break;
        fillers.push_back(fd);
    }
    log_update();
    for (int fd : fillers)
        close(fd);
    setrlimit(RLIMIT_NOFILE, &saved);
    std::string err = cap.finish();

    ASSERT_EQ(log_list.size(), 2u);
    const std::string backup = log_list[1];
    EXPECT_EQ(err, "Deleting " + oldest + "\n" + "cmd=rm -f " + oldest + "\n" +
                       "Error: Couldn't execute rm -f " + oldest + " command\n" +
                       "cmd=mv /var/vesk/gen/quelvanelog " + backup + "\n" +
                       "Error: Couldn't execute mv /var/vesk/gen/quelvanelog " + backup + " command\n" +
                       "Log backed to " + backup + "\n" + "Last log backed to " + backup + "\n");
    EXPECT_EQ(log_list[0], "/var/vesk/gen/quelvanelog.o2");
    ASSERT_NE(QuelvaneLogFileP, nullptr);
    // Nothing was moved: the base log got the line appended.
    EXPECT_EQ(readFile(kBase), "logLast log backed to " + backup + "\n");
    resetLog();
}
