#ifndef QUELVANE_TOOL_RUNNER_INTERNAL_H
#define QUELVANE_TOOL_RUNNER_INTERNAL_H

#include <cstdio>
#include <functional>
#include <initializer_list>
#include <string>

namespace qv {

// The directory of the administration tools.
extern const char* const kToolDir;   // "/usr/kpx/vesk/bin"

// The one way to run an administration tool: popen(command, "r"), optionally
// throw away leading lines, hand every further line (read with fgets into a
// buffer of lineSize bytes) to a callback, pclose.
struct ToolRunOptions
{
    // Size of the fgets buffer: 400 for most tools, 1024 for fileset lines.
    int lineSize = 400;
    // Caller's own line buffer of lineSize bytes, to keep the last line after
    // the run (or across runs). Null: a buffer of the runner's own.
    char* lineBuffer = nullptr;
    // Lines thrown away before the callback sees any, read as skipLines does
    // (fgets into 400 bytes: a line of 400 or more counts as two).
    int skipFirst = 0;
    // Logged at level 2 under `who`, formatted with the command, when popen
    // gives null. Null: nothing is logged.
    const char* openFailFormat = "Error: Couldn't find %s command\n";
    // Printed to stderr, formatted with the command, when popen gives null
    // (the "popen(%s) failed\n" family). Null: nothing is printed.
    const char* openFailStderrFormat = nullptr;
    // Log "pclose exit status: %d\n" at level 2 under `who` when the exit
    // status is not 0.
    bool logExitStatus = true;
    // Called once the leading lines are thrown away, before the first further
    // line is read (also when there is none).
    std::function<void()> afterSkip;
};

struct ToolRunResult
{
    bool started = false;   // popen gave a stream
    int rawStatus = 0;      // result of pclose (-1 when pclose failed)
    int exitStatus = 0;     // (rawStatus >> 8) & 255
    int lines = 0;          // lines handed to the callback
    bool stopped = false;   // the callback asked to stop reading
    // 0 when started and the exit status is 0, else 1: the common result.
    int commonResult() const { return (started && exitStatus == 0) ? 0 : 1; }
};

// Per-line callback: the line as fgets left it (newline included), writable.
// Return true to read on, false to stop reading (the stream is then closed).
using ToolLineFn = std::function<bool(char* line)>;

// Runs `command` as described by `opts`. `who` names the caller in the log.
// Example:
//   auto r = qv::runTool("PollingHandler::getSdrfsGenNumber", cmd,
//                        [&](char* line) { parse(line); return true; });
//   if (!r.started) return 1;
ToolRunResult runTool(const char* who, const char* command, const ToolLineFn& onLine,
                      const ToolRunOptions& opts = ToolRunOptions());

// Reads and drops `count` lines with fgets into a 400-byte buffer. 0 always.
int skipToolLines(FILE* stream, int count);

// The repository query of one table: "<tool dir>/vksdrquery TABLE C1:C2:...",
// with " all norefresh" behind it when `noRefresh` is not 0.
std::string repositoryQueryCommand(int table, std::initializer_list<int> columns, int noRefresh);

// Exit status of a pclose result: bits 8 to 15.
inline int toolExitStatus(int rawStatus) { return (rawStatus >> 8) & 255; }

}  // namespace qv

#endif
