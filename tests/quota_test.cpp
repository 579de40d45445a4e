// Quotas: the listing tool's line into a Quota, and the setting tool's
// command line.
#include <quelvane/api_poll.h>

#include "support/bare_handler.h"
#include "support/fake_tool.h"
#include "support/log_capture.h"
#include "support/log_entries.h"
#include "support/popen_failure.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

using namespace qvtest;

namespace {

const char kHeader[] =
    "vklsquota::HEADER:version:reserved:reserved:filesystemName:quotaType:id:name:blockUsage:"
    "blockQuota:blockLimit:blockInDoubt:blockGrace:filesUsage:filesQuota:filesLimit:filesInDoubt:"
    "filesGrace:remarks:\n";

std::string quotaLine(const std::string& name, const std::string& usage)
{
    return "vklsquota::0:1:::fs1:FILESET:7:" + name + ":" + usage +
           ":1048576:2097152:0:none:12:1000:2000:1:7 days:note:\n";
}

void toolsOnPath()
{
    std::string path = std::string("/usr/kpx/vesk/bin:") + (getenv("PATH") != nullptr ? getenv("PATH") : "/usr/bin:/bin");
    setenv("PATH", path.c_str(), 1);
}

char* s(const char* text)
{
    return const_cast<char*>(text);
}

} // namespace

TEST(Quotas, OneLineFillsEveryField)
{
    FakeTool tool("vklsquota");
    tool.on("-j set1 -Y fs1", std::string(kHeader) + quotaLine("set1", "4096"));
    LogCapture log;
    Quota q{};
    EXPECT_EQ(bareHandler()->getQuota(3, "fs1", "set1", &q), 0);
    EXPECT_EQ(q.column2, 0);
    EXPECT_EQ(q.column3, 1);
    EXPECT_EQ(q.column6, "fs1");
    EXPECT_EQ(q.quotaType, 3);   // the type given, not the tool's "FILESET"
    EXPECT_EQ(q.column8, 7);
    EXPECT_EQ(q.column9, "set1");
    EXPECT_EQ(q.column10, 4096);
    EXPECT_EQ(q.column11, 1048576);
    EXPECT_EQ(q.column12, 2097152);
    EXPECT_EQ(q.column13, 0);
    EXPECT_EQ(q.column14, "none");
    EXPECT_EQ(q.column15, 12);
    EXPECT_EQ(q.column16, 1000);
    EXPECT_EQ(q.column17, 2000);
    EXPECT_EQ(q.column18, 1);
    EXPECT_EQ(q.column19, "7 days");
    EXPECT_EQ(q.column20, "note");
    const char* who = "PollingHandler::getQuota";
    EXPECT_EQ(logged(log), (std::vector<std::string>{I(who, "cmd=/usr/kpx/vesk/bin/vklsquota -j set1 -Y fs1"),
                                                     I(who, "exit status 0"),
                                                     I(who, "Successfully executed command")}));
}

TEST(Quotas, TypeSelectsTheOption)
{
    FakeTool tool("vklsquota");
    tool.output(std::string(kHeader) + quotaLine("x", "1"));
    Quota q1{}, q2{}, q7{};
    bareHandler()->getQuota(1, "fs1", "staff", &q1);
    bareHandler()->getQuota(2, "fs1", "bob", &q2);
    bareHandler()->getQuota(7, "fs1", "bob", &q7);
    EXPECT_EQ(tool.calls(), (std::vector<std::string>{"-g staff -Y fs1", "-u bob -Y fs1", "-u bob -Y fs1"}));
    EXPECT_EQ(q7.quotaType, 7);
}

TEST(Quotas, SeveralLinesKeepTheLastNumbersAndEveryText)
{
    FakeTool tool("vklsquota");
    tool.output(std::string(kHeader) + quotaLine("a", "10") + quotaLine("b", "20"));
    Quota q{};
    q.column9 = "old:";
    EXPECT_EQ(bareHandler()->getQuota(2, "fs1", "a", &q), 0);
    EXPECT_EQ(q.column10, 20);
    EXPECT_EQ(q.column9, "old:ab");
    EXPECT_EQ(q.column20, "notenote");
}

TEST(Quotas, EmptyColumnsAreTwoQuotesAndZero)
{
    FakeTool tool("vklsquota");
    tool.output(std::string(kHeader) + "vklsquota::0:1:::fs1:USR:::::::::::::::\n");
    Quota q{};
    EXPECT_EQ(bareHandler()->getQuota(2, "fs1", "a", &q), 0);
    EXPECT_EQ(q.column9, "\"\"");
    EXPECT_EQ(q.column10, 0);
    EXPECT_EQ(q.column8, 0);
}

TEST(Quotas, NoLineGivesOneWhateverTheStatus)
{
    FakeTool tool("vklsquota");
    tool.output(kHeader, 0);
    LogCapture log;
    Quota q{};
    EXPECT_EQ(bareHandler()->getQuota(2, "fs1", "a", &q), 1);
    const char* who = "PollingHandler::getQuota";
    EXPECT_EQ(logged(log), (std::vector<std::string>{I(who, "cmd=/usr/kpx/vesk/bin/vklsquota -u a -Y fs1"),
                                                     I(who, "exit status 0")}));
}

TEST(Quotas, FailureAfterLinesIsTheStatus)
{
    FakeTool tool("vklsquota");
    tool.output(std::string(kHeader) + quotaLine("a", "1"), 5, "partial\n");
    LogCapture log;
    Quota q{};
    EXPECT_EQ(bareHandler()->getQuota(2, "fs1", "a", &q), 5);
    EXPECT_TRUE(log.contains(E("PollingHandler::getQuota", "exit status 5")));
}

TEST(Quotas, ShellThatCannotStart)
{
    LogCapture log;
    Quota q{};
    int rc;
    {
        PopenFailure fail;
        rc = bareHandler()->getQuota(2, "fs1", "a", &q);
    }
    EXPECT_EQ(rc, 1);
    EXPECT_TRUE(log.contains(E("PollingHandler::getQuota",
                               "Error: Couldn't find /usr/kpx/vesk/bin/vklsquota -u a -Y fs1 command")));
}

TEST(Quotas, EditCommandLines)
{
    toolsOnPath();
    FakeTool tool("vksetquota");
    LogCapture log;
    std::string msg;
    unsigned long long sSmall = 10, hSmall = 20, sBig = 3000000000ULL, hBig = 4;
    PollingHandler* h = bareHandler();
    EXPECT_EQ(h->editQuota(s("fs1"), s("user"), s("bob"), nullptr, nullptr, &sSmall, &hSmall, nullptr, &msg), 0);
    EXPECT_EQ(h->editQuota(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &msg), 0);
    EXPECT_EQ(h->editQuota(s("fs1"), s("group2"), s("staff"), &sBig, &hBig, nullptr, nullptr, s("r"), &msg), 0);
    EXPECT_EQ(h->editQuota(s("fs1"), s("fileset"), s("set1"), nullptr, &hBig, nullptr, nullptr, nullptr, &msg), 0);
    EXPECT_EQ(h->editQuota(s("fs1"), s("group"), s("staff"), nullptr, nullptr, nullptr, nullptr, nullptr, &msg), 0);
    std::vector<std::string> cmds;
    for (const std::string& l : logged(log))
        if (l.find("cmd = ") != std::string::npos)
            cmds.push_back(l);
    const char* who = "PollingHandler::editQuota";
    EXPECT_EQ(cmds, (std::vector<std::string>{I(who, "cmd = vksetquota  -u bob  -s 10K  -h 20K fs1 2>&1"),
                                              I(who, "cmd = vksetquota 2>&1"),
                                              I(who, "cmd = vksetquota staff  -S 3000000000  -H 4 fs1 2>&1"),
                                              I(who, "cmd = vksetquota  -j set1  -H 4 fs1 2>&1"),
                                              I(who, "cmd = vksetquota  -g staff fs1 2>&1")}));
    EXPECT_EQ(tool.calls()[0], "-u bob -s 10K -h 20K fs1");
}

TEST(Quotas, EditFailureHandsTheWordsBack)
{
    toolsOnPath();
    FakeTool tool("vksetquota");
    tool.output("", 22, "Invalid limit.\n");
    LogCapture log;
    std::string msg;
    unsigned long long h = 1;
    EXPECT_EQ(bareHandler()->editQuota(s("fs1"), s("user"), s("bob"), nullptr, &h, nullptr, nullptr, nullptr, &msg),
              22);
    EXPECT_EQ(msg, "Invalid limit.\n");
    EXPECT_TRUE(log.contains(E("PollingHandler::editQuota", "exit status 22, msg=Invalid limit.")));
}

TEST(Quotas, OutputCutShortLeavesTheMissingColumnsEmpty)
{
    FakeTool tool("vklsquota");
    tool.output(std::string(kHeader) + "vklsquota::0:1:::fs1:USR:7:bob:10");   // no newline, no more columns
    Quota q{};
    EXPECT_EQ(bareHandler()->getQuota(2, "fs1", "bob", &q), 0);
    EXPECT_EQ(q.column9, "bob");
    EXPECT_EQ(q.column10, 10);
    EXPECT_EQ(q.column11, 0);
    EXPECT_EQ(q.column14, "\"\"");
    EXPECT_EQ(q.column20, "\"\"");
}
