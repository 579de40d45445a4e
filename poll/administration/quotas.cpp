// Quotas: one quota record read through the quota listing tool, limits set
// through the quota setting tool.

#include <quelvane/api_poll.h>
#include <quelvane/kx_log.h>

#include "poll/administration/admin_lines_internal.h"
#include "poll/administration/admin_runner_internal.h"
#include "poll/tools/tool_runner_internal.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace qv {

// Stores the 21 tokens of one quota line as the record keeps them: numbers
// overwritten, texts appended. Gives the number of fields stored.
int storeQuotaTokens(const std::vector<std::string>& tok, int type, Quota* q)
{
    auto i32 = [&](size_t k) { return static_cast<int>(strtol(tok[k].c_str(), nullptr, 10)); };
    auto i64 = [&](size_t k) { return static_cast<int64_t>(strtoll(tok[k].c_str(), nullptr, 10)); };
    auto cut32 = [&](size_t k) { return static_cast<int>(strtoll(tok[k].c_str(), nullptr, 10)); };
    q->column2 = i32(2);
    q->column3 = i32(3);
    q->column6.append(tok[6]);
    q->quotaType = static_cast<int16_t>(type);
    q->column8 = i32(8);
    q->column9.append(tok[9]);
    q->column10 = i64(10);
    q->column11 = i64(11);
    q->column12 = i64(12);
    q->column13 = cut32(13);
    q->column14.append(tok[14]);
    q->column15 = i64(15);
    q->column16 = i64(16);
    q->column17 = i64(17);
    q->column18 = cut32(18);
    q->column19.append(tok[19]);
    q->column20.append(tok[20]);
    return 17;
}

}  // namespace qv

int PollingHandler::getQuota(int type, const char* fsName, const char* name, Quota* quota)
{
    const char* who = "PollingHandler::getQuota";
    const char* option = type == 1 ? "-g" : type == 3 ? "-j" : "-u";
    std::string cmd = std::string(qv::kToolDir) + "/" + "vklsquota" + " " + option + " " + name + " -Y " +
                      fsName;
    kx_log(0, who, "cmd=%s\n", cmd.c_str());
    int stored = 0;
    qv::ToolRunOptions opts;
    opts.lineSize = 1024;
    opts.skipFirst = 1;
    opts.logExitStatus = false;
    qv::ToolRunResult r = qv::runTool(who, cmd.c_str(), [&](char* line) {
        stored = qv::storeQuotaTokens(tokenHelper(line, 21), type, quota);
        return true;
    }, opts);
    if (!r.started)
        return 1;
    kx_log(0, who, "exit status %d\n", r.exitStatus);
    if (stored == 0)
        return 1;
    if (r.exitStatus != 0) {
        kx_log(2, who, "exit status %d\n", r.exitStatus);
        return r.exitStatus;
    }
    kx_log(0, who, "Successfully executed command\n");
    return 0;
}

int PollingHandler::editQuota(char* fsName, char* type, char* name, unsigned long long* optS,
                              unsigned long long* optH, unsigned long long* optSmallS,
                              unsigned long long* optSmallH, char*, std::string* msg)
{
    std::string cmd = "vksetquota ";
    if (type != nullptr) {
        if (strcmp(type, "group") == 0)
            cmd += " -g ";
        else if (strcmp(type, "user") == 0)
            cmd += " -u ";
        else if (strcmp(type, "fileset") == 0)
            cmd += " -j ";
    }
    if (name != nullptr)
        cmd += std::string(name) + " ";
    // The numbers are printed as signed longs ("%ld").
    auto number = [](unsigned long long* v) { return std::to_string(static_cast<long>(*v)); };
    if (optS != nullptr)
        cmd += " -S " + number(optS) + " ";
    if (optH != nullptr)
        cmd += " -H " + number(optH) + " ";
    if (optSmallS != nullptr)
        cmd += " -s " + number(optSmallS) + "K ";
    if (optSmallH != nullptr)
        cmd += " -h " + number(optSmallH) + "K ";
    if (fsName != nullptr)
        cmd += std::string(fsName) + " ";
    cmd += "2>&1";
    return qv::runAdminTool(qv::AdminRun{"PollingHandler::editQuota"}, cmd, msg);
}
