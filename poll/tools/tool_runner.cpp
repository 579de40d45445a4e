#include "poll/tools/tool_runner_internal.h"

#include <cstdio>
#include <vector>

#include <quelvane/kx_log.h>

namespace qv {

const char* const kToolDir = "/usr/kpx/vesk/bin";

std::string repositoryQueryCommand(int table, std::initializer_list<int> columns, int noRefresh)
{
    std::string cmd = std::string(kToolDir) + "/vksdrquery " + std::to_string(table) + " ";
    const char* sep = "";
    for (int column : columns) {
        cmd += sep + std::to_string(column);
        sep = ":";
    }
    if (noRefresh != 0)
        cmd += " all norefresh";
    return cmd;
}

int skipToolLines(FILE* stream, int count)
{
    char buf[400];
    for (int i = 0; i < count; i++) {
        if (fgets(buf, sizeof(buf), stream) == nullptr)
            break;
    }
    return 0;
}

ToolRunResult runTool(const char* who, const char* command, const ToolLineFn& onLine,
                      const ToolRunOptions& opts)
{
    ToolRunResult result;
    FILE* stream = popen(command, "r");
    if (stream == nullptr) {
        if (opts.openFailFormat != nullptr) {
            // Formatted to its full length, however long the command.
            int n = snprintf(nullptr, 0, opts.openFailFormat, command);
            std::vector<char> msg(static_cast<size_t>(n > 0 ? n : 0) + 1, '\0');
            snprintf(msg.data(), msg.size(), opts.openFailFormat, command);
            kx_log(2, who, "%s", msg.data());
        }
        if (opts.openFailStderrFormat != nullptr) {
            fprintf(stderr, opts.openFailStderrFormat, command);
            fflush(stderr);
        }
        return result;
    }
    result.started = true;
    if (opts.skipFirst > 0)
        skipToolLines(stream, opts.skipFirst);
    if (opts.afterSkip)
        opts.afterSkip();

    int size = opts.lineSize > 1 ? opts.lineSize : 400;
    std::vector<char> own;
    char* buf = opts.lineBuffer;
    if (buf == nullptr) {
        own.assign(static_cast<size_t>(size), '\0');
        buf = own.data();
    }
    while (fgets(buf, size, stream) != nullptr) {
        result.lines++;
        if (onLine && !onLine(buf)) {
            result.stopped = true;
            break;
        }
    }
    result.rawStatus = pclose(stream);
    result.exitStatus = toolExitStatus(result.rawStatus);
    if (result.exitStatus != 0 && opts.logExitStatus)
        kx_log(2, who, "pclose exit status: %d\n", result.exitStatus);
    return result;
}

}  // namespace qv
