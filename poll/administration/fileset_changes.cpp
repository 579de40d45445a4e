// Fileset changes: create, link, unlink, delete and edit, one tool each.

#include <quelvane/api_poll.h>

#include "poll/administration/admin_runner_internal.h"

#include <cstring>
#include <string>

namespace {

const std::string kBin = "/usr/kpx/vesk/bin/";

}  // namespace

int PollingHandler::createFileSet(FileSet fs, std::string* msg, bool noComment)
{
    std::string cmd = std::string("vkcrfileset ") + fs.fsName + " " + fs.name;
    if (!noComment)
        cmd += std::string(" -t ") + fs.comment;
    cmd += " 2>&1";
    qv::AdminRun run{"PollingHandler::createFileSet"};
    run.printToStderr = true;
    return qv::runAdminTool(run, cmd, msg);
}

int PollingHandler::linkFileSet(FileSet fs, std::string* msg)
{
    std::string cmd = kBin + "vklinkfileset " + fs.fsName + " " + fs.name;
    if (fs.path[0] != '\0')
        cmd += std::string(" -J ") + fs.path;
    cmd += " 2>&1";
    return qv::runAdminTool(qv::AdminRun{"PollingHandler::linkFileSet"}, cmd, msg);
}

int PollingHandler::unlinkFileSet(const char* fsName, const char* target, bool byName, bool force,
                                  std::string* msg)
{
    std::string cmd = kBin + "vkunlinkfileset " + fsName + " ";
    cmd += byName ? std::string(target) + " " : std::string("-J ") + target + " ";
    if (force)
        cmd += "-f ";
    cmd += "2>&1";
    qv::AdminRun run{"PollingHandler::unlinkFileSet"};
    run.logPieces = true;
    return qv::runAdminTool(run, cmd, msg);
}

int PollingHandler::deleteFileSet(FileSet fs, bool force, std::string* msg)
{
    std::string cmd = kBin + "vkdelfileset " + fs.fsName + " " + fs.name + (force ? " -f 2>&1" : " 2>&1");
    return qv::runAdminTool(qv::AdminRun{"PollingHandler::deleteFileSet"}, cmd, msg);
}

int PollingHandler::editFileset(char* fsName, char* targetKind, char* target, char* newName,
                                char* comment, std::string* msg)
{
    std::string cmd = kBin + "vkchfileset ";
    if (fsName != nullptr)
        cmd += std::string(fsName) + " ";
    if (target != nullptr && targetKind != nullptr) {
        if (strcmp(targetKind, "junction") == 0)
            cmd += " -J ";
        cmd += std::string(target) + " ";
    }
    if (newName != nullptr)
        cmd += std::string(" -j ") + newName + " ";
    // The comment is the one argument that is quoted.
    if (comment != nullptr)
        cmd += std::string(" -t \"") + comment + "\" ";
    cmd += "2>&1";
    return qv::runAdminTool(qv::AdminRun{"PollingHandler::editFileset"}, cmd, msg);
}
