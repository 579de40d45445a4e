// Fileset queries: the fileset listing tool's lines decoded into FileSet records.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <quelvane/api_poll.h>
#include <quelvane/command_wrapper_utils.h>
#include <quelvane/kx_log.h>

#include "poll/tools/tool_runner_internal.h"

namespace {

const char* const kWhoOne = "PollingHandler::getFileSet";
const char* const kWhoAll = "PollingHandler::getFileSets";
const char* const kWhoCount = "PollingHandler::getFilesets";

// Field values are copied into their arrays bounded, with the terminator kept.
template <size_t N>
void copyField(char (&dst)[N], const std::string& src)
{
    size_t n = src.size() < N - 1 ? src.size() : N - 1;
    memcpy(dst, src.data(), n);
    dst[n] = '\0';
}

// A fileset line begins with the tool's word and is not its header.
bool isFilesetLine(const char* line)
{
    return strncmp(line, "vklsfileset", 11) == 0 && strncmp(line, "vklsfileset::HEADER", 19) != 0;
}

// Decodes the 17 columns of one fileset line into `fs`. With `who` set, logs
// the stored path and creation time.
void decodeFilesetLine(PollingHandler* h, char* line, FileSet* fs, const char* who)
{
    std::vector<std::string> tok = h->tokenHelper(line, 17);

    fs->column3 = static_cast<int>(strtol(tok[3].c_str(), nullptr, 10));
    copyField(fs->fsName, tok[6]);
    copyField(fs->name, tok[7]);
    copyField(fs->column8, tok[8]);
    copyField(fs->column9, tok[9]);
    copyField(fs->column10, tok[10]);

    std::vector<char> path(tok[11].begin(), tok[11].end());
    path.push_back('\0');
    percentDecode(path.data());
    copyField(fs->path, std::string(path.data()));
    if (who != nullptr)
        kx_log(0, who, "path %s\n", fs->path);

    copyField(fs->column12, tok[12]);

    char scratch[256];
    char stamp[512];
    std::vector<char> created(tok[13].begin(), tok[13].end());
    created.push_back('\0');
    percentDecode(created.data());
    strncpy(scratch, created.data(), sizeof(scratch) - 1);
    scratch[sizeof(scratch) - 1] = '\0';
    h->getTimeStampInMilliseconds(scratch, stamp);
    copyField(fs->created, std::string(stamp));
    if (who != nullptr)
        kx_log(0, who, "created %s\n", fs->created);

    fs->column14 = strtoll(tok[14].c_str(), nullptr, 10);
    fs->column15 = strtoll(tok[15].c_str(), nullptr, 10);
    copyField(fs->comment, tok[16]);
}

std::string listCommand(const char* fsName)
{
    return std::string(qv::kToolDir) + "/" + "vklsfileset" + " " + fsName + " -LY";
}

}  // namespace

int PollingHandler::getFileSets(char* fsName, std::vector<FileSet*>* out)
{
    std::string cmd = listCommand(fsName);
    kx_log(0, kWhoOne, "cmd = %s\n", cmd.c_str());

    qv::ToolRunOptions opts;
    opts.lineSize = 1024;
    opts.skipFirst = 1;
    opts.logExitStatus = false;
    qv::ToolRunResult r = qv::runTool(kWhoOne, cmd.c_str(), [&](char* line) {
        if (!isFilesetLine(line))
            return true;
        FileSet* fs = new FileSet;
        memset(fs, 0, sizeof(*fs));
        decodeFilesetLine(this, line, fs, kWhoOne);
        for (FileSet*& slot : *out) {
            if (strcmp(slot->name, fs->name) == 0) {
                delete slot;
                slot = fs;
                return true;
            }
        }
        out->push_back(fs);
        return true;
    }, opts);
    if (!r.started || r.rawStatus == -1)
        return 1;
    kx_log(0, kWhoOne, "Successfully executed command\n");
    return 0;
}

int PollingHandler::getFileSet(char* fsName, char* filesetName, FileSet* out)
{
    std::string cmd = std::string("vklsfileset") + " " + fsName + " " + filesetName + " -LidY";
    kx_log(0, kWhoOne, "cmd = %s\n", cmd.c_str());

    qv::ToolRunOptions opts;
    opts.lineSize = 1024;
    opts.skipFirst = 1;
    opts.logExitStatus = false;
    qv::ToolRunResult r = qv::runTool(kWhoOne, cmd.c_str(), [&](char* line) {
        if (isFilesetLine(line))
            decodeFilesetLine(this, line, out, nullptr);
        return true;
    }, opts);
    if (!r.started)
        return 1;
    if (r.exitStatus == 0)
        kx_log(0, kWhoOne, "Successfully executed command\n");
    return r.exitStatus;
}

int PollingHandler::getFileSets1(char* fsName, FileSet* array, int* len)
{
    std::string countCmd =
        std::string(qv::kToolDir) + "/" + "kxlsfs" + " " + fsName + " --fileset-count -Y";
    kx_log(0, kWhoAll, "cmd = %s\n", countCmd.c_str());

    // The count line: only its last number is used.
    bool gotLine = false;
    bool parsed = false;
    int count = 0;
    qv::ToolRunOptions countOpts;
    countOpts.lineSize = 1024;
    countOpts.logExitStatus = false;
    qv::ToolRunResult cr = qv::runTool(kWhoOne, countCmd.c_str(), [&](char* line) {
        gotLine = true;
        int status = 0;
        int version = 0;
        char device[1024];
        device[0] = '\0';
        int n = sscanf(line, "vklsfs::%d:%d:::%1023[^:]:filesetCount:%d:", &status, &version,
                       device, &count);
        if (n < 4)
            kx_log(2, kWhoCount, "buf %s rc %d\n", line, 1);
        else
            parsed = true;
        return false;
    }, countOpts);
    if (!cr.started)
        return 1;
    if (!gotLine) {
        kx_log(2, kWhoCount, "error occurred in %s\n", countCmd.c_str());
        return 1;
    }
    if (!parsed)
        return 1;
    if (count <= 0 || count > *len) {
        *len = count;
        return 1;
    }
    *len = count;

    std::string cmd = listCommand(fsName);
    kx_log(0, kWhoAll, "cmd = %s\n", cmd.c_str());
    int stored = 0;
    qv::ToolRunOptions opts;
    opts.lineSize = 1024;
    opts.skipFirst = 1;
    opts.logExitStatus = false;
    qv::ToolRunResult r = qv::runTool(kWhoOne, cmd.c_str(), [&](char* line) {
        if (isFilesetLine(line)) {
            decodeFilesetLine(this, line, &array[stored], kWhoOne);
            stored++;
        }
        return stored < *len;
    }, opts);
    if (!r.started || r.rawStatus == -1)
        return 1;
    kx_log(0, kWhoOne, "Successfully executed command\n");
    return 0;
}
