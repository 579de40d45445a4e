#ifndef QUELVANE_CLI_CONSOLE_H
#define QUELVANE_CLI_CONSOLE_H

// The client's own output streams, and the capture of everything else.
//
// The library and the tools it starts write notes of their own to the
// process's standard output and error (connection errors, tool complaints,
// table dumps). A command prints its results and at most one line of error,
// so those descriptors are pointed at a capture file once the arguments are
// read: the client writes through out() and err(), which keep the original
// streams, and reads the capture when it needs the words of a failure.

#include <cstdio>
#include <stdexcept>
#include <string>

namespace qvcli {

// Exit statuses of the client (a tool's own status is passed on as it is).
enum ExitStatus {
    kExitOk = 0,
    kExitFailure = 1,        // a query or a change failed; unknown names
    kExitUsage = 2,          // bad arguments, refused names
    kExitNoDaemon = 3,       // the daemon is not reachable, or went away
    kExitTimeout = 4,        // no answer within --timeout seconds
    kExitToolMissing = 127,  // an administration tool is not installed
};

// A failure with its exit status and the one line that names its cause.
class CliError : public std::runtime_error
{
public:
    CliError(int status, const std::string& message) : std::runtime_error(message), status_(status) {}
    int status() const { return status_; }

private:
    int status_;
};

[[noreturn]] inline void fail(int status, const std::string& message)
{
    throw CliError(status, message);
}

// Points descriptors 1 and 2 at the capture; out() and err() keep the
// original streams. Called once, after the arguments are parsed.
void captureLibraryOutput();

FILE* out();
FILE* err();

// Empties the capture.
void resetCapture();
// What the library and its tools wrote since the last reset.
std::string captured();
// The last line of the capture that says something, without the time
// stamp that the library puts before its own notes; empty when none.
std::string lastCapturedLine();

// Writes "quelvane: MESSAGE" as one line on the original standard error.
void printError(const std::string& message);

} // namespace qvcli

#endif
