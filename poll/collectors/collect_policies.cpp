// Policies of each filesystem and the rules in them, from "vklspolicy". The
// caller's tree is filled without the lock; the recipe is brought into line
// at the end, policies by name and rules by position of their policy.

#include <cstdio>
#include <cstring>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>
#include <quelvane/command_wrapper_utils.h>
#include <quelvane/kx_log.h>

#include "poll/records/records_text_internal.h"
#include "poll/tools/tool_runner_internal.h"

namespace {

const char* const kWhoPolicy = "PollingHandler::updatePolicyInfo";
const char* const kWhoRule = "PollingHandler::fillRuleInfo";

// Text targets of the colon formats; a tool line is at most 399 characters.
const size_t kFieldSize = 400;

void logFormatted(int level, const char* who, const char* format, const char* cmd)
{
    char msg[1024];
    snprintf(msg, sizeof(msg), format, cmd);
    kx_log(level, who, "%s", msg);
}

}  // namespace

MErrno PollingHandler::updatePolicyInfo(ClusterInfo* clusterP)
{
    kx_log(0, kWhoPolicy, "nFs=%d\n", static_cast<int>(clusterP->filesystemItems.size()));
    for (FilesystemInfo* fsP : clusterP->filesystemItems) {
        kx_log(0, kWhoPolicy, "%s fsP->policyItems.size %d\n", fsP->name,
               static_cast<int>(fsP->policyItems.size()));
        char vkCmd[512];
        snprintf(vkCmd, sizeof(vkCmd), "%s/%s %s -Y", qv::kToolDir, "vklspolicy", fsP->name);
        kx_log(0, kWhoPolicy, "vkCmd=%s\n", vkCmd);

        qv::ToolRunOptions opts;
        opts.skipFirst = 1;
        opts.openFailFormat = "Error: popen failed while executing %s\n";
        opts.logExitStatus = false;
        qv::ToolRunResult run = qv::runTool(kWhoPolicy, vkCmd, [&](char* line) {
            char device[kFieldSize];
            char userName[kFieldSize];
            char installTime[kFieldSize];
            char fileName[kFieldSize];
            int status = 0;
            int version = 0;
            initBuf(device);
            initBuf(userName);
            initBuf(installTime);
            initBuf(fileName);
            if (line[0] == '\n')
                return false;
            int n = sscanf(line, "vklspolicy::%d:%d:::vklspolicy:%[^:]:%[^:]:%[^:]:%[^:]:", &status,
                           &version, device, userName, installTime, fileName);
            percentDecode(device);
            percentDecode(userName);
            percentDecode(installTime);
            percentDecode(fileName);
            if (n != 6) {
                kx_log(0, kWhoPolicy, "sscanf match failure\n");
                return true;
            }
            kx_log(0, kWhoPolicy, "device=%s, userName=%s, installTime=%s, fileName=%s\n", device,
                   userName, installTime, fileName);
            char fsFullName[300];
            snprintf(fsFullName, sizeof(fsFullName), "/dev/%s", fsP->name);
            kx_log(0, kWhoPolicy, "fsFullName=%s\n", fsFullName);
            if (strcmp(device, fsFullName) != 0)
                return true;

            int index = fsP->getPolicyInfoIndex(fileName);
            if (index < 0) {
                kx_log(0, kWhoPolicy, "Create new policy object %s %s\n", fsP->name, fileName);
                MErrno err = 0;
                PolicyInfo* policyP = new PolicyInfo(&err);
                qvCopyText(policyP->userName, userName);
                qvCopyText(policyP->installTime, installTime);
                qvCopyText(policyP->name, fileName);
                fillRuleInfo(fsP, policyP);
                fsP->policyItems.push_back(policyP);
            } else {
                kx_log(0, kWhoPolicy, "found %s in policyItems[%d]\n", fileName, index);
                PolicyInfo* policyP = fsP->policyItems[static_cast<size_t>(index)];
                qvCopyText(policyP->userName, userName);
                qvCopyText(policyP->installTime, installTime);
                qvCopyText(policyP->name, fileName);
                fillRuleInfo(fsP, policyP);
            }
            return true;
        }, opts);
        if (!run.started)
            return 1;
        if (run.rawStatus != 0)
            logFormatted(2, kWhoPolicy, "Error: child process failed while executing %s\n", vkCmd);
    }

    getPollingLock();
    for (FilesystemInfo* fsP : clusterP->filesystemItems) {
        int nPolicies = static_cast<int>(fsP->policyItems.size());
        kx_log(0, kWhoPolicy, "%s has %d policy\n", fsP->name, nPolicies);
        int recipeIndex = recipe->getFilesystemInfoIndex(fsP->name);
        if (recipeIndex < 0)
            continue;
        kx_log(0, kWhoPolicy, "%s recipe_fs_index = %d, fsP->policyItems.size %d\n", fsP->name,
               recipeIndex, nPolicies);
        FilesystemInfo* recipeFs = recipe->filesystemItems[static_cast<size_t>(recipeIndex)];
        recipeFs->copyPolicies(fsP);
        // After copyPolicies both sides hold the same number of policies; the
        // rules are paired by position.
        for (size_t k = 0; k < fsP->policyItems.size() && k < recipeFs->policyItems.size(); k++)
            recipeFs->policyItems[k]->copyRules(fsP->policyItems[k]);
        kx_log(0, kWhoPolicy, "%s copyPolicies, fsP->policyItems.size %d DONE\n", fsP->name,
               nPolicies);
    }
    releasePollingLock();
    return 0;
}

MErrno PollingHandler::fillRuleInfo(FilesystemInfo* fsP, PolicyInfo* policyP)
{
    char vkCmd[512];
    snprintf(vkCmd, sizeof(vkCmd), "%s/%s %s -L -Y", qv::kToolDir, "vklspolicy", fsP->name);
    kx_log(0, kWhoRule, "vkCmd=%s\n", vkCmd);

    qv::ToolRunOptions opts;
    opts.skipFirst = 1;
    opts.openFailFormat = "Error: popen failed while executing %s\n";
    opts.logExitStatus = false;
    qv::ToolRunResult run = qv::runTool(kWhoRule, vkCmd, [&](char* line) {
        char text[kFieldSize];
        int status = 0;
        int version = 0;
        int lineNumber = 0;
        initBuf(text);
        if (line[0] == '\n')
            return false;
        int n = sscanf(line, "vklspolicy::%d:%d:::%d:%[^:]:", &status, &version, &lineNumber, text);
        if (n != 4) {
            kx_log(0, kWhoRule, "sscanf match failure\n");
            return true;
        }
        kx_log(0, kWhoRule, "Create new rule object %d desc %s\n", lineNumber, text);
        MErrno err = 0;
        RuleInfo* ruleP = new RuleInfo(&err);
        qvCopyText(ruleP->desc, text);
        kx_log(0, kWhoRule, "ruleP->desc=%s\n", ruleP->desc);

        char* save = nullptr;
        char* token = commandWrapper->getTableNextToken(text, &save);
        if (token == nullptr) {
            delete ruleP;   // nothing to keep
            return true;
        }
        if (strcmp(token, "RULE") != 0) {
            kx_log(0, kWhoRule, "desc %s, not a RULE\n", ruleP->desc);
            delete ruleP;
            return true;
        }
        kx_log(0, kWhoRule, "ruleP->desc=%s\n", ruleP->desc);
        token = commandWrapper->getTableNextToken(text, &save);
        if (token != nullptr) {
            kx_log(0, kWhoRule, "rule name %s\n", token);
            qvCopyText(ruleP->name, token);
        }
        // Rules are only ever appended: a rule that is there already comes
        // again at each run.
        policyP->ruleItems.push_back(ruleP);
        return true;
    }, opts);
    if (!run.started)
        return 1;
    if (run.rawStatus != 0) {
        logFormatted(2, kWhoRule, "Error: child process failed while executing %s\n", vkCmd);
        return 1;
    }
    return 0;
}
