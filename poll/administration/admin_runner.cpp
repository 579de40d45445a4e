// The common road of the administration changes.

#include "poll/administration/admin_runner_internal.h"

#include "poll/tools/tool_runner_internal.h"

#include <quelvane/kx_log.h>

#include <cstdio>
#include <vector>

namespace qv {

namespace {

// "exit status %d, msg=%s\n", formatted to its full length.
std::string exitStatusText(int status, const std::string& words)
{
    int n = snprintf(nullptr, 0, "exit status %d, msg=%s\n", status, words.c_str());
    std::vector<char> buf(static_cast<size_t>(n) + 1, '\0');
    snprintf(buf.data(), buf.size(), "exit status %d, msg=%s\n", status, words.c_str());
    return std::string(buf.data());
}

}  // namespace

int runAdminTool(const AdminRun& run, const std::string& command, std::string* msg)
{
    kx_log(0, run.cmdWho != nullptr ? run.cmdWho : run.who, "cmd = %s\n", command.c_str());
    ToolRunOptions opts;
    opts.lineSize = 1024;
    opts.logExitStatus = false;
    ToolRunResult r = runTool(run.who, command.c_str(), [&](char* piece) {
        if (run.printToStderr)
            fprintf(stderr, "PollingHandler::createFileSet, %s\n", piece);
        if (run.logPieces)
            kx_log(0, run.who, "%s\n", piece);
        if (msg != nullptr)
            msg->append(piece);
        return true;
    }, opts);
    if (!r.started)
        return 1;
    if (run.printToStderr)
        fprintf(stderr, "PollingHandler::createFileSet, msg=%s\n", msg != nullptr ? msg->c_str() : "");
    kx_log(0, run.who, "exit status %d\n", r.exitStatus);
    if (r.exitStatus == 0) {
        kx_log(0, run.who, "Successfully executed command\n");
        return 0;
    }
    if (run.printToStderr)
        fprintf(stderr, "PollingHandler::createFileSet, exit status %d, msg=%s\n", r.exitStatus,
                msg == nullptr || msg->empty() ? "n/a" : msg->c_str());
    kx_log(2, run.who, "%s", exitStatusText(r.exitStatus, msg != nullptr ? *msg : std::string()).c_str());
    return r.exitStatus;
}

}  // namespace qv
