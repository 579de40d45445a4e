// Ownership and ACLs of files and directories, and two lookups of a user:
// home directory and primary group.

#include <quelvane/api_poll.h>
#include <quelvane/kx_log.h>

#include "poll/administration/admin_runner_internal.h"
#include "poll/tools/tool_runner_internal.h"

#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

namespace {

// Runs a lookup command whose every output line is handed to `onLine` with
// its newline (true) or without (false: the last piece of the output).
// 1 when the shell could not be started or pclose failed, else 0.
int runLookup(const char* who, const std::string& cmd, const std::function<void(char*, bool)>& onLine)
{
    kx_log(0, who, "cmd = %s\n", cmd.c_str());
    qv::ToolRunOptions opts;
    opts.lineSize = 1024;
    opts.logExitStatus = false;
    qv::ToolRunResult r = qv::runTool(who, cmd.c_str(), [&](char* line) {
        char* nl = strchr(line, '\n');
        if (nl != nullptr)
            *nl = '\0';
        onLine(line, nl != nullptr);
        return true;
    }, opts);
    if (!r.started || r.rawStatus == -1)
        return 1;
    kx_log(0, who, "Successfully executed command\n");
    return 0;
}

}  // namespace

int PollingHandler::changeOwnerAndOrGroup(FileOrDirOwner target)
{
    const char* who = "PollingHandler::changeOwnerAndOrGroup";
    std::string cmd = "chown ";
    if (target.owner[0] != '\0')
        cmd += target.owner;
    if (target.group[0] != '\0')
        cmd += std::string(":") + target.group;
    cmd += std::string(" ") + target.path;
    kx_log(0, who, "cmd = %s\n", cmd.c_str());

    // The polling lock is held from after the first output line until the
    // tool has ended.
    bool locked = false;
    qv::ToolRunOptions opts;
    opts.lineSize = 1024;
    opts.skipFirst = 1;
    opts.logExitStatus = false;
    opts.afterSkip = [&] {
        getPollingLock();
        locked = true;
    };
    qv::ToolRunResult r = qv::runTool(who, cmd.c_str(), [&](char* line) {
        kx_log(0, who, "%s\n", line);
        return true;
    }, opts);
    if (!r.started)
        return 1;
    kx_log(0, who, "exit status %d\n", r.exitStatus);
    if (r.exitStatus == 0)
        kx_log(0, who, "Successfully executed command\n");
    else
        kx_log(2, who, "exit status %d\n", r.exitStatus);
    if (locked)
        releasePollingLock();
    return r.exitStatus;
}

int PollingHandler::changeFileOrDirOwnership(FileOrDirOwner source, FileOrDirOwner target,
                                             std::string* msg)
{
    std::string cmd = std::string("chown --reference=") + source.path + "  " + target.path + " 2>&1";
    qv::AdminRun run{"PollingHandler::changeFileOrDirOwnership"};
    run.logPieces = true;
    return qv::runAdminTool(run, cmd, msg);
}

int PollingHandler::changeFileOrDirACL(FileOrDirOwner source, FileOrDirOwner target, int aclType,
                                       std::string* msg)
{
    const char* option = aclType == 0 ? "-k nfs4" : aclType == 1 ? "-k posix" : aclType == 2 ? "-k native" : "";
    std::string cmd = std::string(qv::kToolDir) + "/vkgetacl " + option + " " + source.path + " | vkputacl " +
                      target.path + " 2>&1";
    // The command line is logged under the ownership operation's name.
    qv::AdminRun run{"PollingHandler::changeFileOrDirACL"};
    run.cmdWho = "PollingHandler::changeFileOrDirOwnership";
    run.logPieces = true;
    return qv::runAdminTool(run, cmd, msg);
}

int PollingHandler::getHomePath(char* user, char* path)
{
    std::string cmd = std::string("awk -F: -v v=\"") + user + "\" '{if ($1==v) print $6}' /etc/passwd";
    // The last line wins; a last piece without a newline gives "n/a".
    return runLookup("PollingHandler::getHomePath", cmd, [path](char* line, bool whole) {
        strcpy(path, whole ? line : "n/a");
    });
}

int PollingHandler::getPrimaryId(char* user, unsigned int* id)
{
    std::string cmd = std::string("id --group ") + user;
    return runLookup("PollingHandler::getPrimaryId", cmd, [id](char* line, bool whole) {
        *id = whole ? static_cast<unsigned int>(strtol(line, nullptr, 10)) : 0xFFFFFFFFu;
    });
}
