#ifndef QUELVANE_ADMIN_RUNNER_INTERNAL_H
#define QUELVANE_ADMIN_RUNNER_INTERNAL_H

// The road of every administration change: log the command, run it, append
// everything it prints to the caller's message, take its exit status, and
// log the outcome.

#include <string>

namespace qv {

struct AdminRun
{
    const char* who;                    // names the operation in the log
    const char* cmdWho = nullptr;       // names it in the "cmd = " line (null: who)
    bool logPieces = false;             // also log each piece of output with "%s\n"
    bool printToStderr = false;         // the createFileSet prints on stderr
};

// Runs `command` (which ends in "2>&1"). Output is read in pieces of at most
// 1023 characters and appended to *msg (a null msg drops them). 0 when the
// tool's exit status is 0; 1 when the shell could not be started; otherwise
// the exit status, with "exit status %d, msg=%s\n" at level 2.
int runAdminTool(const AdminRun& run, const std::string& command, std::string* msg);

}  // namespace qv

#endif
