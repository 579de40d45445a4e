#include <quelvane/kx_log.h>

#include <cstdarg>
#include <cstring>
#include <ctime>
#include <sys/stat.h>

FILE* QuelvaneLogFileP = nullptr;
const char* QuelvaneLogLevelNamesP[4] = {"INFO", "WARNING", "ERROR", "SEVERE"};
int log_level = 4;
int log_count = 1;
int log_size = 5000;
std::vector<std::string> log_list;

namespace {

const char kBaseLogPath[] = "/var/vesk/gen/quelvanelog";

// ctime_r text of the current time, cut at its first newline (24 characters).
void currentTimeText(char* out, size_t outSize)
{
    time_t now = time(nullptr);
    char buf[64];
    if (ctime_r(&now, buf) == nullptr)
        buf[0] = '\0';
    char* nl = strchr(buf, '\n');
    if (nl != nullptr)
        *nl = '\0';
    snprintf(out, outSize, "%s", buf);
}

// The level is not range-checked by the callers; a level outside the table
// prints as "UNKNOWN" instead of reading past it.
const char* levelName(int level)
{
    if (level < 0 || level > 3)
        return "UNKNOWN";
    return QuelvaneLogLevelNamesP[level];
}

// Runs a shell command for the rotation and reports its exit status on stderr.
void runRotationCommand(const char* cmd)
{
    fprintf(stderr, "cmd=%s\n", cmd);
    FILE* p = popen(cmd, "r");
    if (p == nullptr) {
        fprintf(stderr, "Error: Couldn't execute %s command\n", cmd);
        return;
    }
    int status = pclose(p);
    fprintf(stderr, "log_update: rc=%d\n", (status >> 8) & 255);
}

} // namespace

void kx_log(int level, const char* who, const char* fmt, ...)
{
    // The handler may open the log while its worker threads already log:
    // take the stream pointer in one indivisible load.
    FILE* log = __atomic_load_n(&QuelvaneLogFileP, __ATOMIC_ACQUIRE);
    if (log == nullptr)
        return;

    char timeText[64];
    currentTimeText(timeText, sizeof(timeText));
    const char* name = levelName(level);

    // An entry is written in several calls (header, then message); hold the
    // stream for all of them so that entries of other threads never land in
    // the middle of it. The log is always taken before stderr.
    flockfile(log);
    fprintf(log, "%s: %s: %s: ", timeText, name, who);
    va_list args;
    va_start(args, fmt);
    if (level < 2) {
        vfprintf(log, fmt, args);
    } else {
        flockfile(stderr);
        fprintf(stderr, "%s: %s: %s: ", timeText, name, who);
        va_list copy;
        va_copy(copy, args);
        vfprintf(log, fmt, args);
        vfprintf(stderr, fmt, copy);
        va_end(copy);
        funlockfile(stderr);
    }
    va_end(args);
    fflush(log);
    funlockfile(log);
}

int kx_print(const char* text)
{
    char timeText[64];
    currentTimeText(timeText, sizeof(timeText));

    // Only the first line of the text is printed; texts are at most 1023
    // bytes, and a longer one is cut there.
    char line[1024];
    snprintf(line, sizeof(line), "%s", text);
    char* nl = strchr(line, '\n');
    if (nl != nullptr)
        *nl = '\0';
    return fprintf(stderr, "%s: quelvane_lib: %s\n", timeText, line);
}

long file_size(char* path)
{
    struct stat st;
    if (stat(path, &st) != 0)
        return 0;
    return static_cast<long>(st.st_size / 1024);
}

void log_update()
{
    char basePath[sizeof(kBaseLogPath)];
    memcpy(basePath, kBaseLogPath, sizeof(kBaseLogPath));

    time_t now = time(nullptr);
    if (file_size(basePath) < log_size)
        return;

    // Backup suffix: the ctime text with every ':' and ' ' made '_'.
    char stamp[64];
    if (ctime_r(&now, stamp) == nullptr)
        stamp[0] = '\0';
    char* nl = strchr(stamp, '\n');
    if (nl != nullptr)
        *nl = '\0';
    for (char* c = stamp; *c != '\0'; ++c) {
        if (*c == ':' || *c == ' ')
            *c = '_';
    }

    char cmd[1024];
    if (log_count < static_cast<int>(log_list.size())) {
        fprintf(stderr, "Deleting %s\n", log_list.front().c_str());
        snprintf(cmd, sizeof(cmd), "rm -f %s", log_list.front().c_str());
        runRotationCommand(cmd);
        log_list.erase(log_list.begin());
    }

    if (QuelvaneLogFileP != nullptr)
        fclose(QuelvaneLogFileP);
    QuelvaneLogFileP = nullptr;

    char backup[512];
    snprintf(backup, sizeof(backup), "%s.%s", kBaseLogPath, stamp);
    snprintf(cmd, sizeof(cmd), "mv %s %s", kBaseLogPath, backup);
    runRotationCommand(cmd);

    log_list.push_back(backup);
    fprintf(stderr, "Log backed to %s\n", backup);

    FILE* f = fopen(kBaseLogPath, "a");
    if (f == nullptr) {
        fprintf(stderr, "Error to create a log file\n");
        return;
    }
    QuelvaneLogFileP = f;
    fprintf(QuelvaneLogFileP, "Last log backed to %s\n", backup);
    fprintf(stderr, "Last log backed to %s\n", backup);
    fflush(QuelvaneLogFileP);
}
