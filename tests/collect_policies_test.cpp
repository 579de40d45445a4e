// Policies and rules from "vklspolicy": the caller's tree is filled, the
// recipe brought into line by name, rules appended on every run.
#include "support/popen_failure.h"
#include "support/fake_tool.h"
#include "support/files.h"
#include "support/handler_fixture.h"
#include "support/log_capture.h"
#include "support/tree_builder.h"
#include "support/log_entries.h"
#include "support/collector_checks.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <algorithm>
#include <string>
#include <vector>

#include <quelvane/api_poll.h>
#include <quelvane/cluster_info.h>

using namespace qvtest;

namespace {

using Lines = std::vector<std::string>;

const char* const kWhoPol = "PollingHandler::updatePolicyInfo";
const char* const kWhoRule = "PollingHandler::fillRuleInfo";
const char* const kWhoIdx = "FilesystemInfo::getPolicyInfoIndex";

// Only the lines of the given callers.
Lines only(const Lines& l, std::initializer_list<const char*> whos)
{
    Lines out;
    for (const std::string& x : l)
        for (const char* w : whos)
            if (x.find(std::string(": ") + w + ": ") != std::string::npos) {
                out.push_back(x);
                break;
            }
    return out;
}

bool contains(const Lines& l, const std::string& s)
{
    return std::find(l.begin(), l.end(), s) != l.end();
}

const std::string kListHeader =
    "vklspolicy::HEADER:version:reserved:reserved:vklspolicy:deviceName:userName:installTime:"
    "fileName:\n";
const std::string kRuleHeader = "vklspolicy::HEADER:version:reserved:reserved:lineNumber:text:\n";

std::string listLine(const std::string& dev, const std::string& user, const std::string& time,
                     const std::string& file)
{
    return "vklspolicy::0:1:::vklspolicy:" + dev + ":" + user + ":" + time + ":" + file + ":\n";
}

std::string ruleLine(int n, const std::string& text)
{
    return "vklspolicy::0:1:::" + std::to_string(n) + ":" + text + ":\n";
}

std::string policyText(PolicyInfo* p)
{
    return std::string(p->name) + "|" + p->userName + "|" + p->installTime;
}

Lines rulesOf(PolicyInfo* p)
{
    Lines out;
    for (RuleInfo* r : p->ruleItems)
        out.push_back(std::string(r->name) + "|" + r->desc);
    return out;
}

const std::string kTime = "Thu Nov 21 13%3A05%3A09 2024";
const std::string kTimeDecoded = "Thu Nov 21 13:05:09 2024";

class Policies : public HandlerFixture
{
protected:
    FakeTool vklspolicy{"vklspolicy"};
    MErrno err = 0;
    ClusterInfo tree{&err};

    FilesystemInfo* recipeFs(int i) { return handler()->recipe->filesystemItems[static_cast<size_t>(i)]; }

    bool lockIsFree() { return qvtest::lockIsFree(handler()); }
};

} // namespace

TEST_F(Policies, PolicyAndItsRulesAreListedAndMerged)
{
    startHandler();
    addFs(&tree, "fs1");
    addFs(handler()->recipe, "fs1");
    vklspolicy.on("fs1 -Y", kListHeader + listLine("/dev/fs1", "root", kTime, "policy1"));
    vklspolicy.on("fs1 -L -Y",
                  kRuleHeader + ruleLine(1, "RULE 'placement' SET POOL 'system'") +
                      ruleLine(2, "/* keep old files */") + ruleLine(3, "RULE") +
                      ruleLine(4, "RULE 'mig' MIGRATE FROM POOL 'a' WHERE x %3D 1") +
                      "vklspolicy::0:1:::x:bad:\n");

    LogCapture log;
    EXPECT_EQ(handler()->updatePolicyInfo(&tree), 0);
    EXPECT_EQ(vklspolicy.commandLines(), (Lines{"/usr/kpx/vesk/bin/vklspolicy fs1 -Y",
                                                "/usr/kpx/vesk/bin/vklspolicy fs1 -L -Y"}));
    FilesystemInfo* fs1 = tree.filesystemItems[0];
    ASSERT_EQ(fs1->policyItems.size(), 1u);
    EXPECT_EQ(policyText(fs1->policyItems[0]), "policy1|root|" + kTimeDecoded);
    Lines rules = {"'placement'|RULE 'placement' SET POOL 'system'", "|RULE",
                   "'mig'|RULE 'mig' MIGRATE FROM POOL 'a' WHERE x %3D 1"};
    EXPECT_EQ(rulesOf(fs1->policyItems[0]), rules);
    ASSERT_EQ(recipeFs(0)->policyItems.size(), 1u);
    EXPECT_EQ(policyText(recipeFs(0)->policyItems[0]), "policy1|root|" + kTimeDecoded);
    EXPECT_EQ(rulesOf(recipeFs(0)->policyItems[0]), rules);

    Lines expected = {
        I(kWhoPol, "nFs=1"),
        I(kWhoPol, "fs1 fsP->policyItems.size 0"),
        I(kWhoPol, "vkCmd=/usr/kpx/vesk/bin/vklspolicy fs1 -Y"),
        I(kWhoPol, "device=/dev/fs1, userName=root, installTime=" + kTimeDecoded +
                       ", fileName=policy1"),
        I(kWhoPol, "fsFullName=/dev/fs1"),
        I(kWhoIdx, "index = -1"),
        I(kWhoPol, "Create new policy object fs1 policy1"),
        I(kWhoRule, "vkCmd=/usr/kpx/vesk/bin/vklspolicy fs1 -L -Y"),
        I(kWhoRule, "Create new rule object 1 desc RULE 'placement' SET POOL 'system'"),
        I(kWhoRule, "ruleP->desc=RULE 'placement' SET POOL 'system'"),
        I(kWhoRule, "ruleP->desc=RULE 'placement' SET POOL 'system'"),
        I(kWhoRule, "rule name 'placement'"),
        I(kWhoRule, "Create new rule object 2 desc /* keep old files */"),
        I(kWhoRule, "ruleP->desc=/* keep old files */"),
        I(kWhoRule, "desc /* keep old files */, not a RULE"),
        I(kWhoRule, "Create new rule object 3 desc RULE"),
        I(kWhoRule, "ruleP->desc=RULE"),
        I(kWhoRule, "ruleP->desc=RULE"),
        I(kWhoRule, "Create new rule object 4 desc RULE 'mig' MIGRATE FROM POOL 'a' WHERE x %3D 1"),
        I(kWhoRule, "ruleP->desc=RULE 'mig' MIGRATE FROM POOL 'a' WHERE x %3D 1"),
        I(kWhoRule, "ruleP->desc=RULE 'mig' MIGRATE FROM POOL 'a' WHERE x %3D 1"),
        I(kWhoRule, "rule name 'mig'"),
        I(kWhoRule, "sscanf match failure"),
        I(kWhoPol, "fs1 has 1 policy"),
        I(kWhoPol, "fs1 recipe_fs_index = 0, fsP->policyItems.size 1"),
        I(kWhoIdx, "index = -1"),   // the level copy looks policy1 up in the recipe
        I(kWhoPol, "fs1 copyPolicies, fsP->policyItems.size 1 DONE"),
    };
    EXPECT_EQ(only(logged(log), {kWhoPol, kWhoRule, kWhoIdx}), expected);
    EXPECT_TRUE(lockIsFree());
}

TEST_F(Policies, FilesystemWithoutPolicyKeepsWhatItHad)
{
    startHandler();
    FilesystemInfo* fs1 = addFs(&tree, "fs1");
    FilesystemInfo* fs2 = addFs(&tree, "fs2");
    addRule(addPolicy(fs1, "kept1", "u", "t"), "r", "RULE r");
    addPolicy(fs2, "kept2", "u", "t");
    // fs1: the first line after the header is empty; fs2: no line at all.
    vklspolicy.on("fs1 -Y", kListHeader + "\n" + listLine("/dev/fs1", "root", kTime, "p9"));
    vklspolicy.on("fs2 -Y", kListHeader);

    LogCapture log;
    EXPECT_EQ(handler()->updatePolicyInfo(&tree), 0);
    EXPECT_EQ(vklspolicy.calls(), (Lines{"fs1 -Y", "fs2 -Y"}));
    ASSERT_EQ(fs1->policyItems.size(), 1u);
    EXPECT_EQ(policyText(fs1->policyItems[0]), "kept1|u|t");
    EXPECT_EQ(rulesOf(fs1->policyItems[0]), (Lines{"r|RULE r"}));
    ASSERT_EQ(fs2->policyItems.size(), 1u);
    EXPECT_EQ(policyText(fs2->policyItems[0]), "kept2|u|t");
    EXPECT_EQ(only(logged(log), {kWhoPol}),
              (Lines{I(kWhoPol, "nFs=2"), I(kWhoPol, "fs1 fsP->policyItems.size 1"),
                     I(kWhoPol, "vkCmd=/usr/kpx/vesk/bin/vklspolicy fs1 -Y"),
                     I(kWhoPol, "fs2 fsP->policyItems.size 1"),
                     I(kWhoPol, "vkCmd=/usr/kpx/vesk/bin/vklspolicy fs2 -Y"),
                     I(kWhoPol, "fs1 has 1 policy"), I(kWhoPol, "fs2 has 1 policy")}));
}

TEST_F(Policies, LineOfAnotherDeviceIsPassedOverQuietly)
{
    startHandler();
    FilesystemInfo* fs1 = addFs(&tree, "fs1");
    vklspolicy.on("fs1 -Y", kListHeader + listLine("fs1", "root", kTime, "pA") +
                                listLine("/dev/fs2", "root", kTime, "pB"));

    LogCapture log;
    EXPECT_EQ(handler()->updatePolicyInfo(&tree), 0);
    EXPECT_TRUE(fs1->policyItems.empty());
    EXPECT_EQ(vklspolicy.calls(), (Lines{"fs1 -Y"}));
    Lines l = logged(log);
    EXPECT_EQ(l, (Lines{I(kWhoPol, "nFs=1"), I(kWhoPol, "fs1 fsP->policyItems.size 0"),
                        I(kWhoPol, "vkCmd=/usr/kpx/vesk/bin/vklspolicy fs1 -Y"),
                        I(kWhoPol, "device=fs1, userName=root, installTime=" + kTimeDecoded +
                                       ", fileName=pA"),
                        I(kWhoPol, "fsFullName=/dev/fs1"),
                        I(kWhoPol, "device=/dev/fs2, userName=root, installTime=" + kTimeDecoded +
                                       ", fileName=pB"),
                        I(kWhoPol, "fsFullName=/dev/fs1"), I(kWhoPol, "fs1 has 0 policy")}));
}

TEST_F(Policies, FilesystemUnknownToTheRecipeKeepsItsPoliciesInTheCallersTreeOnly)
{
    startHandler();
    addFs(&tree, "fs1");
    addFs(&tree, "fs2");
    addFs(handler()->recipe, "fs2");
    vklspolicy.on("fs1 -Y", kListHeader + listLine("/dev/fs1", "root", kTime, "p1"));
    vklspolicy.on("fs2 -Y", kListHeader + listLine("/dev/fs2", "adm", kTime, "p2"));
    vklspolicy.on("fs1 -L -Y", kRuleHeader + ruleLine(1, "RULE one"));
    vklspolicy.on("fs2 -L -Y", kRuleHeader + ruleLine(1, "RULE two"));

    LogCapture log;
    EXPECT_EQ(handler()->updatePolicyInfo(&tree), 0);
    EXPECT_EQ(vklspolicy.calls(), (Lines{"fs1 -Y", "fs1 -L -Y", "fs2 -Y", "fs2 -L -Y"}));
    EXPECT_EQ(rulesOf(tree.filesystemItems[0]->policyItems.at(0)), (Lines{"one|RULE one"}));
    ASSERT_EQ(handler()->recipe->filesystemItems.size(), 1u);
    ASSERT_EQ(recipeFs(0)->policyItems.size(), 1u);
    EXPECT_EQ(policyText(recipeFs(0)->policyItems[0]), "p2|adm|" + kTimeDecoded);
    EXPECT_EQ(rulesOf(recipeFs(0)->policyItems[0]), (Lines{"two|RULE two"}));
    Lines tail = only(logged(log), {kWhoPol});
    tail.erase(tail.begin(), tail.end() - 4);
    EXPECT_EQ(tail, (Lines{I(kWhoPol, "fs1 has 1 policy"), I(kWhoPol, "fs2 has 1 policy"),
                           I(kWhoPol, "fs2 recipe_fs_index = 0, fsP->policyItems.size 1"),
                           I(kWhoPol, "fs2 copyPolicies, fsP->policyItems.size 1 DONE")}));
}

TEST_F(Policies, SecondRunAppendsEveryRuleAgain)
{
    startHandler();
    addFs(&tree, "fs1");
    addFs(handler()->recipe, "fs1");
    vklspolicy.on("fs1 -Y", kListHeader + listLine("/dev/fs1", "root", kTime, "policy1"));
    vklspolicy.on("fs1 -L -Y", kRuleHeader + ruleLine(1, "RULE a SET POOL x") +
                                   ruleLine(2, "RULE b SET POOL y"));

    EXPECT_EQ(handler()->updatePolicyInfo(&tree), 0);
    LogCapture log;
    EXPECT_EQ(handler()->updatePolicyInfo(&tree), 0);

    PolicyInfo* p = tree.filesystemItems[0]->policyItems.at(0);
    EXPECT_EQ(tree.filesystemItems[0]->policyItems.size(), 1u);
    EXPECT_EQ(policyText(p), "policy1|root|" + kTimeDecoded);
    EXPECT_EQ(rulesOf(p), (Lines{"a|RULE a SET POOL x", "b|RULE b SET POOL y",
                                 "a|RULE a SET POOL x", "b|RULE b SET POOL y"}));
    // The recipe's copy goes by rule name: each name once.
    EXPECT_EQ(rulesOf(recipeFs(0)->policyItems.at(0)),
              (Lines{"a|RULE a SET POOL x", "b|RULE b SET POOL y"}));
    Lines l = only(logged(log), {kWhoPol, kWhoIdx});
    EXPECT_TRUE(contains(l, I(kWhoIdx, "index = 0")));
    EXPECT_TRUE(contains(l, I(kWhoPol, "found policy1 in policyItems[0]")));
    EXPECT_FALSE(contains(l, I(kWhoPol, "Create new policy object fs1 policy1")));
}

TEST_F(Policies, FoundPolicyTakesTheNewFields)
{
    startHandler();
    FilesystemInfo* fs1 = addFs(&tree, "fs1");
    addPolicy(fs1, "p0", "u0", "t0");
    addPolicy(fs1, "policy1", "old", "old");
    vklspolicy.on("fs1 -Y", kListHeader + listLine("/dev/fs1", "root", "t%3A1", "policy1"));
    vklspolicy.on("fs1 -L -Y", kRuleHeader);

    LogCapture log;
    EXPECT_EQ(handler()->updatePolicyInfo(&tree), 0);
    ASSERT_EQ(fs1->policyItems.size(), 2u);
    EXPECT_EQ(policyText(fs1->policyItems[1]), "policy1|root|t:1");
    EXPECT_TRUE(fs1->policyItems[1]->ruleItems.empty());
    EXPECT_TRUE(contains(logged(log), I(kWhoPol, "found policy1 in policyItems[1]")));
}

TEST_F(Policies, ListingToolFailureCostsOnlyThatFilesystem)
{
    startHandler();
    addFs(&tree, "fs1");
    addFs(&tree, "fs2");
    addFs(handler()->recipe, "fs2");
    vklspolicy.on("fs1 -Y", kListHeader + listLine("/dev/fs1", "root", kTime, "p1"), 1);
    vklspolicy.on("fs2 -Y", kListHeader + listLine("/dev/fs2", "root", kTime, "p2"));
    vklspolicy.on("fs1 -L -Y", kRuleHeader);
    vklspolicy.on("fs2 -L -Y", kRuleHeader + ruleLine(1, "RULE r2"));

    LogCapture log;
    EXPECT_EQ(handler()->updatePolicyInfo(&tree), 0);
    EXPECT_EQ(vklspolicy.calls(), (Lines{"fs1 -Y", "fs1 -L -Y", "fs2 -Y", "fs2 -L -Y"}));
    EXPECT_EQ(tree.filesystemItems[0]->policyItems.size(), 1u);
    EXPECT_EQ(rulesOf(recipeFs(0)->policyItems.at(0)), (Lines{"r2|RULE r2"}));
    Lines l = logged(log);
    EXPECT_TRUE(contains(
        l, E(kWhoPol, "Error: child process failed while executing /usr/kpx/vesk/bin/vklspolicy fs1 -Y")));
    EXPECT_FALSE(contains(l, E(kWhoPol, "pclose exit status: 1")));
}

TEST_F(Policies, RuleToolFailureIsReportedByFillRuleInfo)
{
    startHandler();
    FilesystemInfo* fs1 = addFs(&tree, "fs1");
    MErrno e = 0;
    PolicyInfo policy(&e);
    vklspolicy.on("fs1 -L -Y", kRuleHeader + ruleLine(1, "RULE x") + "\n" + ruleLine(2, "RULE y"),
                  5);
    LogCapture log;
    EXPECT_EQ(handler()->fillRuleInfo(fs1, &policy), 1);
    // Reading stopped at the empty line.
    EXPECT_EQ(rulesOf(&policy), (Lines{"x|RULE x"}));
    EXPECT_EQ(logged(log).back(),
              E(kWhoRule,
                "Error: child process failed while executing /usr/kpx/vesk/bin/vklspolicy fs1 -L -Y"));

    // Inside updatePolicyInfo the failure is dropped and the policy kept.
    vklspolicy.on("fs1 -Y", kListHeader + listLine("/dev/fs1", "root", kTime, "p1"));
    EXPECT_EQ(handler()->updatePolicyInfo(&tree), 0);
    ASSERT_EQ(fs1->policyItems.size(), 1u);
    EXPECT_EQ(rulesOf(fs1->policyItems[0]), (Lines{"x|RULE x"}));
}

TEST_F(Policies, MalformedListingLineCostsThatLine)
{
    startHandler();
    FilesystemInfo* fs1 = addFs(&tree, "fs1");
    vklspolicy.on("fs1 -Y", kListHeader + "vklspolicy::0:1:::vklspolicy:/dev/fs1::" + kTime + ":p0:\n" +
                                listLine("/dev/fs1", "root", kTime, "p1"));
    vklspolicy.on("fs1 -L -Y", kRuleHeader);
    LogCapture log;
    EXPECT_EQ(handler()->updatePolicyInfo(&tree), 0);
    ASSERT_EQ(fs1->policyItems.size(), 1u);
    EXPECT_STREQ(fs1->policyItems[0]->name, "p1");
    Lines l = only(logged(log), {kWhoPol});
    ASSERT_GE(l.size(), 4u);
    EXPECT_EQ(l[3], I(kWhoPol, "sscanf match failure"));
}

TEST_F(Policies, ListingToolThatCannotBeStartedLeavesTheRecipeAlone)
{
    startHandler();
    addFs(&tree, "fs1");
    FilesystemInfo* r1 = addFs(handler()->recipe, "fs1");
    addPolicy(r1, "kept", "u", "t");
    LogCapture log;
    StderrCapture cap;
    int rc;
    {
        PopenFailure full;
        rc = handler()->updatePolicyInfo(&tree);
    }
    cap.finish();
    EXPECT_EQ(rc, 1);
    EXPECT_EQ(logged(log),
              (Lines{I(kWhoPol, "nFs=1"), I(kWhoPol, "fs1 fsP->policyItems.size 0"),
                     I(kWhoPol, "vkCmd=/usr/kpx/vesk/bin/vklspolicy fs1 -Y"),
                     E(kWhoPol, "Error: popen failed while executing /usr/kpx/vesk/bin/vklspolicy fs1 -Y")}));
    ASSERT_EQ(r1->policyItems.size(), 1u);
    EXPECT_STREQ(r1->policyItems[0]->name, "kept");
    EXPECT_TRUE(lockIsFree());
}

TEST_F(Policies, RuleToolThatCannotBeStarted)
{
    startHandler();
    FilesystemInfo* fs1 = addFs(&tree, "fs1");
    MErrno e = 0;
    PolicyInfo policy(&e);
    LogCapture log;
    StderrCapture cap;
    int rc;
    {
        PopenFailure full;
        rc = handler()->fillRuleInfo(fs1, &policy);
    }
    cap.finish();
    EXPECT_EQ(rc, 1);
    EXPECT_EQ(logged(log),
              (Lines{I(kWhoRule, "vkCmd=/usr/kpx/vesk/bin/vklspolicy fs1 -L -Y"),
                     E(kWhoRule,
                       "Error: popen failed while executing /usr/kpx/vesk/bin/vklspolicy fs1 -L -Y")}));
    EXPECT_TRUE(policy.ruleItems.empty());
}
