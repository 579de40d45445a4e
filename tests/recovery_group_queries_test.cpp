// Recovery group queries against fake recovery group tools: command lines,
// parsing of every template, limits, result codes and log texts.
#include <quelvane/recovery_group.h>

#include "support/fake_tool.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/log_entries.h"
#include "support/popen_failure.h"

#include <gtest/gtest.h>

#include <regex>

#include <string>
#include <vector>

using namespace qvtest;

namespace {

const char kSdrArgs[] = "sdrq_recovery_group_info all";
const char kSdrHeader[] = "vksdrquery:sdrq_recovery_group_info:HEADER:version:::name:servers:id:\n";

std::string sdrLine(const std::string& name, const std::string& servers, const std::string& id,
                    int status = 0)
{
    return "vksdrquery:sdrq_recovery_group_info:" + std::to_string(status) + ":1:::" + name + ":" +
           servers + ":" + id + ":\n";
}

// A recovery group of the fake tools: arrays, each with its disks.
struct FakeDa
{
    std::string name;
    int pdisks;
    int vdisks;
};

std::string rgOutput(const std::string& rg, const std::vector<FakeDa>& das)
{
    int vd = 0;
    int pd = 0;
    for (const FakeDa& d : das) {
        vd += d.vdisks;
        pd += d.pdisks;
    }
    std::string out =
        "vklsrecoverygroup:rgSummary:HEADER:version:reserved:reserved:name:das:vdisks:pdisks:\n"
        "vklsrecoverygroup:rgSummary:0:1:::" + rg + ":" + std::to_string(das.size()) + ":" +
        std::to_string(vd) + ":" + std::to_string(pd) + ":\n"
        "vklsrecoverygroup:daSummary:HEADER:version:reserved:reserved:name:service:vdisks:pdisks:"
        "spares:threshold:free:scrub:task:pct:priority:\n";
    int i = 0;
    for (const FakeDa& d : das) {
        out += "vklsrecoverygroup:daSummary:0:1:::" + d.name + ":no:" + std::to_string(d.vdisks) + ":" +
               std::to_string(d.pdisks) + ":1:2:" + std::to_string(1099511627776LL + i) + ":14:scrub:" +
               std::to_string(30 + i) + ":low:\n";
        i++;
    }
    out += "vklsrecoverygroup:server:HEADER:version:reserved:reserved:active:servers:\n"
           "vklsrecoverygroup:server:0:1:::n1:n1,n2:\n"
           "vklsrecoverygroup:pdiskSummary:0:1:::other line:\n";
    return out;
}

std::string pdiskOutput(const std::string& rg, const FakeDa& d)
{
    std::string out = "vklspdisk:pdisk:HEADER:version:reserved:reserved:value:name:a:b:c:d:n:e:f:\n";
    for (int p = 0; p < d.pdisks; p++) {
        std::string n = std::to_string(p);
        out += "vklspdisk:pdisk:0:1:::" + std::to_string(p) + ".75:" + rg + d.name + "p" + n +
               ":slot" + n + ":dropped10:dropped11:SAS " + n + ":" + std::to_string(9000000000LL + p) +
               ":ok:fru" + n + "::\n";
    }
    return out;
}

std::string vdiskOutput(const std::string& rg, const FakeDa& d)
{
    std::string out = "vklsvdisk:vdisk:HEADER:version:reserved:reserved:name:a:b:c:d:n:e:f:\n";
    for (int v = 0; v < d.vdisks; v++) {
        std::string n = std::to_string(v);
        out += "vklsvdisk:vdisk:0:1:::" + rg + d.name + "v" + n + ":3WayReplication:x9:x10:" +
               std::to_string(16 + v) + ":" + std::to_string(549755813888LL + v) + ":ok:" + d.name + ":\n";
    }
    return out;
}

// Installs the four tools for one group.
struct FakeRgTools
{
    FakeTool sdr{"vksdrquery"};
    FakeTool rg{"vklsrecoverygroup"};
    FakeTool pdisk{"vklspdisk"};
    FakeTool vdisk{"vklsvdisk"};
    FakeTool config{"vklsconfig"};

    void group(const std::string& name, const std::vector<FakeDa>& das)
    {
        sdr.on(kSdrArgs, std::string(kSdrHeader) + sdrLine(name, "n1,n2", "0A0B0C"));
        rg.on(name + " -Y", rgOutput(name, das));
        for (const FakeDa& d : das) {
            pdisk.on(name + " --declustered-array " + d.name + " -Y", pdiskOutput(name, d));
            vdisk.on("--recovery-group " + name + " --declustered-array " + d.name + " -Y",
                     vdiskOutput(name, d));
        }
    }
};

char* s(const std::string& text)
{
    return const_cast<char*>(text.c_str());
}

} // namespace

// ---------------------------------------------------------------- counting

TEST(RgCount, RepositoryRowsAreCountedAndCached)
{
    FakeTool sdr("vksdrquery");
    sdr.on(kSdrArgs, std::string(kSdrHeader) + sdrLine("rg1", "a,b", "1") + sdrLine("rg2", "c,d", "2") +
                         "a line that matches nothing\n");
    EXPECT_EQ(nRGDefined, -1);
    EXPECT_EQ(orluRGDefined(), 2);
    EXPECT_EQ(nRGDefined, 2);
    EXPECT_EQ(orluRGDefined(), 2);
    EXPECT_EQ(sdr.calls(), (std::vector<std::string>{kSdrArgs}));
}

TEST(RgCount, StatusNineteenMeansNoGroup)
{
    FakeTool sdr("vksdrquery");
    sdr.on(kSdrArgs, std::string(kSdrHeader) + sdrLine("none", "x", "y", 19) + sdrLine("rgX", "a", "b"));
    EXPECT_EQ(getRGDefinedSDR(), 0);
    EXPECT_EQ(nRGDefined, 0);
    EXPECT_EQ(orluRGDefined(), 0);
    EXPECT_EQ(orluRGDefined(), 0);
    // Once known, the count is not asked again.
    EXPECT_EQ(sdr.calls().size(), 1u);
}

TEST(RgCount, APositiveCountIsNotLoweredOnlyZeroed)
{
    FakeTool sdr("vksdrquery");
    nRGDefined = 4;
    sdr.on(kSdrArgs, std::string(kSdrHeader) + sdrLine("rg1", "a", "1"));
    EXPECT_EQ(getRGDefinedSDR(), 1);
    EXPECT_EQ(nRGDefined, 4);
    sdr.clearRules().on(kSdrArgs, std::string(kSdrHeader) + sdrLine("none", "x", "y", 19));
    EXPECT_EQ(getRGDefinedSDR(), 0);
    EXPECT_EQ(nRGDefined, 0);
}

TEST(RgCount, ToolFailureGivesMinusOneAndAsksAgainLater)
{
    LogCapture log;
    FakeTool sdr("vksdrquery");
    sdr.on(kSdrArgs, std::string(kSdrHeader) + sdrLine("rg1", "a", "1"), 3, "words on stderr\n");
    EXPECT_EQ(orluRGDefined(), -1);
    EXPECT_EQ(nRGDefined, -1);
    EXPECT_EQ(logged(log), (std::vector<std::string>{E("getRGDefinedSDR", "pclose exit status: 3")}));
    sdr.clearRules().on(kSdrArgs, std::string(kSdrHeader) + sdrLine("rg1", "a", "1"));
    EXPECT_EQ(orluRGDefined(), 1);
}

TEST(RgCount, MissingToolIsTheShellsStatus)
{
    LogCapture log;
    EXPECT_EQ(getRGDefinedSDR(), -1);
    EXPECT_EQ(nRGDefined, -1);
    EXPECT_EQ(logged(log), (std::vector<std::string>{E("getRGDefinedSDR", "pclose exit status: 127")}));
}

TEST(RgCount, ShellThatCannotStart)
{
    StderrCapture err;
    int rc;
    {
        PopenFailure fail;
        rc = getRGDefinedSDR();
    }
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(err.finish(), "popen(/usr/kpx/vesk/bin/vksdrquery sdrq_recovery_group_info all 2>/dev/null) failed\n");
    EXPECT_EQ(nRGDefined, -1);
}

// ---------------------------------------------------------------- repository rows

TEST(RgSdrInfo, RowsOverTheCapacityAreCountedAndWarned)
{
    LogCapture log;
    FakeTool sdr("vksdrquery");
    std::string out = kSdrHeader;
    for (int i = 1; i <= 5; i++)
        out += sdrLine("rg" + std::to_string(i), "s" + std::to_string(i), "id" + std::to_string(i));
    sdr.on(kSdrArgs, out);
    orluRecoveryGroupSdrInfo rows[2];
    int len = 2;
    StdoutCapture printed;
    EXPECT_EQ(getNsdRAIDSdrInfo(rows, &len), 12);
    EXPECT_EQ(printed.finish(), "orluRecoveryGroupSdrInfo: rg1:s1:id1\norluRecoveryGroupSdrInfo: rg2:s2:id2\n");
    EXPECT_EQ(len, 5);
    EXPECT_EQ(nRGDefined, 5);
    EXPECT_STREQ(rows[1].rgName, "rg2");
    EXPECT_STREQ(rows[1].rgServers, "s2");
    EXPECT_STREQ(rows[1].rgId, "id2");
    EXPECT_EQ(logged(log),
              (std::vector<std::string>{
                  I("getRgSdrInfo", "Warning: not enough memory, curLen 2, nRgSdrAllocated 2!!!"),
                  I("getRgSdrInfo", "Warning: not enough memory, curLen 3, nRgSdrAllocated 2!!!"),
                  I("getRgSdrInfo", "Warning: not enough memory, curLen 4, nRgSdrAllocated 2!!!"),
                  I("getRgSdrInfo", "read 5 lines rc 12")}));
}

TEST(RgSdrInfo, AnUnmatchedLineCountsAsARowWithThePreviousTexts)
{
    FakeTool sdr("vksdrquery");
    sdr.on(kSdrArgs, std::string(kSdrHeader) + sdrLine("rg1", "s1", "i1") + "garbage\n");
    orluRecoveryGroupSdrInfo rows[3];
    int len = 3;
    StdoutCapture printed;
    EXPECT_EQ(getNsdRAIDSdrInfo(rows, &len), 0);
    printed.finish();
    EXPECT_EQ(len, 2);
    EXPECT_STREQ(rows[1].rgName, "rg1");
    EXPECT_STREQ(rows[1].rgId, "i1");
}

TEST(RgSdrInfo, StatusNineteenSetsTheCountToOne)
{
    LogCapture log;
    FakeTool sdr("vksdrquery");
    sdr.on(kSdrArgs, std::string(kSdrHeader) + sdrLine("", "", "", 19) + sdrLine("rgX", "a", "b"));
    orluRecoveryGroupSdrInfo rows[2];
    int len = 2;
    EXPECT_EQ(getNsdRAIDSdrInfo(rows, &len), 19);
    EXPECT_EQ(len, 1);
    EXPECT_EQ(nRGDefined, 1);
    EXPECT_STREQ(rows[0].rgName, "");
    EXPECT_EQ(logged(log), (std::vector<std::string>{I("getRgSdrInfo", "read 1 lines rc 19")}));
}

TEST(RgSdrInfo, RefusedArguments)
{
    orluRecoveryGroupSdrInfo rows[1];
    int len = 0;
    EXPECT_EQ(getNsdRAIDSdrInfo(rows, &len), -1);
    len = 1;
    EXPECT_EQ(getNsdRAIDSdrInfo(nullptr, &len), -1);
}

TEST(RgSdrInfo, ToolFailureLogsThePreviousResult)
{
    LogCapture log;
    FakeTool sdr("vksdrquery");
    sdr.on(kSdrArgs, std::string(kSdrHeader) + sdrLine("rg1", "s", "i"), 5);
    orluRecoveryGroupSdrInfo rows[1];
    int len = 1;
    StdoutCapture printed;
    EXPECT_EQ(getNsdRAIDSdrInfo(rows, &len), 5);
    printed.finish();
    EXPECT_EQ(len, 1);
    EXPECT_EQ(logged(log), (std::vector<std::string>{I("getRgSdrInfo", "read 1 lines rc 0"),
                                                     E("getNsdRAIDSdrInfo", "pclose exit status: 0")}));
}

TEST(RgSdrInfo, ShellThatCannotStart)
{
    orluRecoveryGroupSdrInfo rows[1];
    int len = 1;
    StderrCapture err;
    int rc;
    {
        PopenFailure fail;
        rc = getNsdRAIDSdrInfo(rows, &len);
    }
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(err.finish(), "popen(/usr/kpx/vesk/bin/vksdrquery sdrq_recovery_group_info all 2>/dev/null) failed\n");
}

// ---------------------------------------------------------------- NSD RAID parameters

TEST(RgParameters, VariablesOverTheCapacityGiveTwelve)
{
    LogCapture log;
    FakeTool config("vklsconfig");
    std::string out = "vklsconfig::HEADER:version:reserved:reserved:name:value::\n";
    for (int i = 1; i <= 5; i++)
        out += "vklsconfig::0:1:::var" + std::to_string(i) + ":" + std::to_string(i * 10) + "::\n";
    out += "vklsconfig::0:1:::novalue:::\n";
    config.on("nsdraid -Y", out);
    orluNsdRAIDConfigParms parms(2);
    int len = parms.nAllocated;
    EXPECT_EQ(getNsdRAIDParameters(&parms, &len), 12);
    EXPECT_EQ(parms.nParms, 2);
    EXPECT_EQ(len, 6);   // every line, also the one that did not match
    EXPECT_STREQ(parms.getConfigVarP(0)->varName, "var1");
    EXPECT_STREQ(parms.getConfigVarP(1)->varValue, "20");
    EXPECT_EQ(parms.findNsdRAIDConfigParmIndex(s("var2")), 1);
    EXPECT_EQ(logged(log), (std::vector<std::string>{I("getNsdRAIDParameters", "read 6 lines rc 12")}));
}

TEST(RgParameters, AllFitAndTheToolFails)
{
    LogCapture log;
    FakeTool config("vklsconfig");
    config.on("nsdraid -Y", "header\nvklsconfig::0:1:::a:1::\n", 4);
    orluNsdRAIDConfigParms parms(4);
    int len = 4;
    EXPECT_EQ(getNsdRAIDParameters(&parms, &len), 4);
    // On failure neither the count nor nParms is set.
    EXPECT_EQ(len, 4);
    EXPECT_EQ(parms.nParms, 0);
    EXPECT_STREQ(parms.getConfigVarP(0)->varName, "a");
    EXPECT_EQ(logged(log), (std::vector<std::string>{I("getNsdRAIDParameters", "read 1 lines rc 0"),
                                                     E("getNsdRAIDParameters", "pclose exit status: 0")}));
}

TEST(RgParameters, RefusedArgumentsAndShellFailure)
{
    orluNsdRAIDConfigParms parms(1);
    int len = 0;
    EXPECT_EQ(getNsdRAIDParameters(&parms, &len), -1);
    len = 1;
    EXPECT_EQ(getNsdRAIDParameters(nullptr, &len), -1);
    StderrCapture err;
    int rc;
    {
        PopenFailure fail;
        rc = getNsdRAIDParameters(&parms, &len);
    }
    EXPECT_EQ(rc, 1);
    EXPECT_EQ(err.finish(), "popen(/usr/kpx/vesk/bin/vklsconfig nsdraid -Y 2>/dev/null) failed\n");
}

// ---------------------------------------------------------------- one group's lines

TEST(RgGroup, LinesAreOnlyLogged)
{
    LogCapture log;
    FakeTool rg("vklsrecoverygroup");
    rg.on("rgA -Y", "line one\nline two\n", 2);
    EXPECT_EQ(getRecoveryGroup(s("rgA")), 2);
    EXPECT_EQ(logged(log), (std::vector<std::string>{I("getRecoveryGroup", "line one"),
                                                     I("getRecoveryGroup", "line two"),
                                                     I("getRecoveryGroup", "rgA read 2 lines err 0"),
                                                     E("getRecoveryGroup", "pclose exit status: 2")}));
    EXPECT_EQ(rg.calls(), (std::vector<std::string>{"rgA -Y"}));
}

// ---------------------------------------------------------------- summary and arrays

TEST(RgSummary, BeforeAnyCountNoToolRuns)
{
    LogCapture log;
    FakeTool rg("vklsrecoverygroup");
    orluRecoveryGroup group;
    group.updateRgSdrInfo(s("rgA"), nullptr, nullptr);
    EXPECT_EQ(getRecoveryGroupSummary(&group), 19);
    EXPECT_TRUE(rg.calls().empty());
    EXPECT_EQ(logged(log),
              (std::vector<std::string>{I("getRecoveryGroupSummary",
                                          "rgA rgFound 0, daFound 0, serverFound 0, read 0 lines, err 19")}));
    EXPECT_EQ(getRecoveryGroupDeclusteredArrays(&group), 19);
}

TEST(RgSummary, UnknownGroupGivesTheLastGrepsStatus)
{
    LogCapture log;
    FakeRgTools tools;
    tools.group("rgA", {{"DA1", 1, 1}});
    ASSERT_EQ(orluRGDefined(), 1);
    orluRecoveryGroup group;
    group.updateRgSdrInfo(s("nosuch"), nullptr, nullptr);
    // The tool prints nothing for an unknown group; "grep -v" then finds no
    // line and ends with 1.
    EXPECT_EQ(getRecoveryGroupSummary(&group), 1);
    std::vector<std::string> l = logged(log);
    ASSERT_GE(l.size(), 2u);
    EXPECT_EQ(l[l.size() - 2], E("getRecoveryGroupSummary", "pclose exit status: 1"));
    EXPECT_EQ(l.back(), I("getRecoveryGroupSummary",
                          "nosuch rgFound 0, daFound 0, serverFound 0, read 0 lines, err 1"));
    EXPECT_EQ(tools.rg.calls(), (std::vector<std::string>{"nosuch -Y"}));
}

TEST(RgSummary, FoundLinesAreLoggedAndStored)
{
    FakeRgTools tools;
    tools.group("rgA", {{"DA1", 2, 1}});
    ASSERT_EQ(orluRGDefined(), 1);
    orluRecoveryGroup group;
    group.updateRgSdrInfo(s("rgA"), nullptr, nullptr);
    LogCapture after;
    EXPECT_EQ(getRecoveryGroupSummary(&group), 0);
    EXPECT_EQ(logged(after),
              (std::vector<std::string>{
                  I("getRecoveryGroupSummary", "vklsrecoverygroup:rgSummary:0:1:::rgA:1:1:2:"), "",
                  I("getRecoveryGroupSummary", "FOUND rgSummary: rgA, nDas 1, nVdisks 1 nPdisks 2"),
                  I("getRecoveryGroupSummary",
                    "vklsrecoverygroup:daSummary:0:1:::DA1:no:1:2:1:2:1099511627776:14:scrub:30:low:"),
                  "",
                  I("getRecoveryGroupSummary",
                    "FOUND daSummary: DA1 nDaVdisks 1 nDaPdisks 2 nDaSpares 1replaceThr 2 freeSpace 0 "
                    "scrubDuration 14 bgTaskType scrub bgTaskPct 30 priority low"),
                  I("getRecoveryGroupSummary", "vklsrecoverygroup:server:0:1:::n1:n1,n2:"), "",
                  I("getRecoveryGroupSummary", "FOUND server: activeServer n1 serverList n1,n2"),
                  I("getRecoveryGroupSummary", "vklsrecoverygroup:pdiskSummary:0:1:::other line:"), "",
                  I("getRecoveryGroupSummary",
                    "rgA rgFound 1, daFound 1, serverFound 1, read 4 lines, err 0")}));
    EXPECT_STREQ(group.rgActiveServer, "n1");
    EXPECT_STREQ(group.rgServers, "n1,n2");
    EXPECT_EQ(group.nDeclusteredArrays, 1);
    EXPECT_EQ(group.nVdisks, 1);
    EXPECT_EQ(group.nPdisks, 2);
    orluRecoveryGroupDeclusteredArray* da = group.getDeclusteredArrayP(0);
    EXPECT_STREQ(da->daName, "DA1");
    EXPECT_STREQ(da->daNeedsService, "no");
    EXPECT_EQ(da->daVdisks, 1);
    EXPECT_EQ(da->daPdisks, 2);
    EXPECT_EQ(da->daSpares, 1);
    EXPECT_EQ(da->daReplaceThreshold, 2);
    EXPECT_EQ(da->daFreeSpace, 1099511627776ULL);
    EXPECT_EQ(da->daScrubDuration, 14);
    EXPECT_STREQ(da->daBackgroundTask, "scrub");
    EXPECT_EQ(da->daTaskPercentComplete, 30);
    EXPECT_STREQ(da->daTaskPriority, "low");
    EXPECT_NE(da->daPdiskTable, nullptr);
    EXPECT_NE(da->daVdiskTable, nullptr);
    EXPECT_EQ(tools.rg.commandLines(), (std::vector<std::string>{"/usr/kpx/vesk/bin/vklsrecoverygroup rgA -Y"}));
}

TEST(RgSummary, AnArrayWithAnEmptyTaskColumnIsSkipped)
{
    FakeTool sdr("vksdrquery");
    sdr.on(kSdrArgs, std::string(kSdrHeader) + sdrLine("rgA", "n1", "i"));
    FakeTool rg("vklsrecoverygroup");
    rg.on("rgA -Y", "vklsrecoverygroup:rgSummary:0:1:::rgA:2:0:0:\n"
                    "vklsrecoverygroup:daSummary:0:1:::DA1:no:0:0:1:2:100:14::30:low:\n"
                    "vklsrecoverygroup:daSummary:0:1:::DA2:yes:0:0:1:2:100:14:rebuild:30:high:\n");
    ASSERT_EQ(orluRGDefined(), 1);
    orluRecoveryGroup group;
    group.updateRgSdrInfo(s("rgA"), nullptr, nullptr);
    EXPECT_EQ(getRecoveryGroupSummary(&group), 0);
    // DA1 did not advance the count: DA2 is the first array.
    EXPECT_STREQ(group.getDeclusteredArrayP(0)->daName, "DA2");
    EXPECT_STREQ(group.getDeclusteredArrayP(1)->daName, "");
}

TEST(RgSummary, ThreeArraysWithFivePdisksAndTwoVdisksEndToEnd)
{
    FakeRgTools tools;
    std::vector<FakeDa> das = {{"DA1", 5, 2}, {"DA2", 5, 2}, {"DA3", 5, 2}};
    tools.group("rgA", das);
    ASSERT_EQ(orluRGDefined(), 1);
    orluRecoveryGroupSdrInfo rows[1];
    int len = 1;
    StdoutCapture printed;
    ASSERT_EQ(getNsdRAIDSdrInfo(rows, &len), 0);
    printed.finish();
    orluRecoveryGroup group;
    group.updateRgSdrInfo(rows[0].rgName, rows[0].rgServers, rows[0].rgId);
    ASSERT_EQ(getRecoveryGroupSummary(&group), 0);
    ASSERT_EQ(getRecoveryGroupDeclusteredArrays(&group), 0);

    EXPECT_STREQ(group.rgName, "rgA");
    EXPECT_STREQ(group.rgId, "0A0B0C");
    EXPECT_EQ(group.nDeclusteredArrays, 3);
    EXPECT_EQ(group.nVdisks, 6);
    EXPECT_EQ(group.nPdisks, 15);
    for (int a = 0; a < 3; a++) {
        orluRecoveryGroupDeclusteredArray* da = group.getDeclusteredArrayP(a);
        ASSERT_NE(da, nullptr);
        EXPECT_EQ(da->daName, das[a].name);
        EXPECT_EQ(da->daFreeSpace, 1099511627776ULL + a);
        for (int p = 0; p < 5; p++) {
            orluDeclusteredArrayPdisk* pd = da->getDeclusteredArrayPdiskP(p);
            ASSERT_NE(pd, nullptr);
            std::string n = std::to_string(p);
            EXPECT_EQ(pd->pdiskName, "rgA" + das[a].name + "p" + n);
            EXPECT_EQ(pd->pdiskValue, p);   // p.75 cut toward zero
            EXPECT_EQ(pd->pdiskText1, "slot" + n);
            EXPECT_EQ(pd->pdiskText2, "SAS " + n);
            EXPECT_EQ(pd->pdiskNumber, 9000000000ULL + p);
            EXPECT_STREQ(pd->pdiskText3, "ok");
            EXPECT_EQ(pd->pdiskText4, "fru" + n);
        }
        for (int v = 0; v < 2; v++) {
            orluDeclusteredArrayVdisk* vd = da->getDeclusteredArrayVdiskP(v);
            ASSERT_NE(vd, nullptr);
            EXPECT_EQ(vd->vdiskName, "rgA" + das[a].name + "v" + std::to_string(v));
            EXPECT_STREQ(vd->vdiskText1, "3WayReplication");
            EXPECT_EQ(vd->vdiskValue, 16 + v);
            EXPECT_EQ(vd->vdiskNumber, 549755813888ULL + v);
            EXPECT_STREQ(vd->vdiskText2, "ok");
            EXPECT_EQ(vd->vdiskText3, das[a].name);
        }
    }
    EXPECT_EQ(tools.pdisk.calls(), (std::vector<std::string>{"rgA --declustered-array DA1 -Y",
                                                             "rgA --declustered-array DA2 -Y",
                                                             "rgA --declustered-array DA3 -Y"}));
    EXPECT_EQ(tools.vdisk.commandLines(),
              (std::vector<std::string>{
                  "/usr/kpx/vesk/bin/vklsvdisk --recovery-group rgA --declustered-array DA1 -Y",
                  "/usr/kpx/vesk/bin/vklsvdisk --recovery-group rgA --declustered-array DA2 -Y",
                  "/usr/kpx/vesk/bin/vklsvdisk --recovery-group rgA --declustered-array DA3 -Y"}));
}

TEST(RgSummary, SeventeenArraysStopAtSixteen)
{
    FakeRgTools tools;
    std::vector<FakeDa> das;
    for (int i = 1; i <= 17; i++)
        das.push_back({"D" + std::to_string(i), 1, 1});
    tools.group("rgB", das);
    ASSERT_EQ(orluRGDefined(), 1);
    orluRecoveryGroup group;
    group.updateRgSdrInfo(s("rgB"), nullptr, nullptr);
    LogCapture log;
    ASSERT_EQ(getRecoveryGroupSummary(&group), 0);
    EXPECT_EQ(group.nDeclusteredArrays, 17);
    EXPECT_STREQ(group.getDeclusteredArrayP(15)->daName, "D16");
    EXPECT_TRUE(log.contains(I("getRecoveryGroupSummary",
                               "rgB rgFound 1, daFound 16, serverFound 1, read 20 lines, err 0")));
    LogCapture arrays;
    EXPECT_EQ(getRecoveryGroupDeclusteredArrays(&group), 0);
    EXPECT_EQ(tools.pdisk.calls().size(), 16u);
    EXPECT_EQ(tools.vdisk.calls().size(), 16u);
    // The first of the two closing entries has no newline of its own.
    std::string tail = std::string("INFO: getRecoveryGroupDeclusteredArrays: getDeclusteredArrayP 16 nDas 17 ") +
                       "rgDAP NULL" + kTimeRegex + ": INFO: getRecoveryGroupDeclusteredArrays: rgB err 0\n$";
    EXPECT_TRUE(std::regex_search(arrays.text(), std::regex(tail))) << arrays.text();
}

TEST(RgSummary, ASecondSummaryRebuildsTheTables)
{
    FakeRgTools tools;
    tools.group("rgA", {{"DA1", 2, 1}});
    ASSERT_EQ(orluRGDefined(), 1);
    orluRecoveryGroup group;
    group.updateRgSdrInfo(s("rgA"), nullptr, nullptr);
    ASSERT_EQ(getRecoveryGroupSummary(&group), 0);
    ASSERT_EQ(getRecoveryGroupDeclusteredArrays(&group), 0);
    EXPECT_STREQ(group.getDeclusteredArrayP(0)->getDeclusteredArrayPdiskP(1)->pdiskName, "rgADA1p1");
    ASSERT_EQ(getRecoveryGroupSummary(&group), 0);
    // New, empty tables (the old ones were freed: the sanitizers see a leak
    // or a double free otherwise).
    EXPECT_STREQ(group.getDeclusteredArrayP(0)->getDeclusteredArrayPdiskP(1)->pdiskName, "");
}

TEST(RgArrays, ShortPdiskLinesAndRowsPastTheTable)
{
    FakeTool sdr("vksdrquery");
    sdr.on(kSdrArgs, std::string(kSdrHeader) + sdrLine("rgA", "n1", "i"));
    ASSERT_EQ(orluRGDefined(), 1);
    FakeTool pdisk("vklspdisk");
    FakeTool vdisk("vklsvdisk");
    pdisk.on("rgA --declustered-array DA1 -Y",
             "header\n"
             "vklspdisk:pdisk:0:1:::-3.9:p0:slot:c10:c11:text two:42\n"    // ends before column 14
             "vklspdisk:pdisk:0:1:::1e12:p1:slot:c10:c11:t:43:a:b::\n"      // no int holds 1e12
             "vklspdisk:pdisk:0:1:::1:p2:slot:c10:c11:t:44:a:b::\n");       // past the table of 2
    vdisk.on("--recovery-group rgA --declustered-array DA1 -Y",
             "header\nvklsvdisk:vdisk:0:1:::v0:t1:c9:c10:7:99:last:");   // no column 14
    orluRecoveryGroup group;
    group.updateRgSdrInfo(s("rgA"), nullptr, nullptr);
    group.updateRgSummary(1, 1, 2);
    orluRecoveryGroupDeclusteredArray* da = group.getDeclusteredArrayP(0);
    da->update(s("DA1"), s("no"), 1, 2, 0, 0, 0, 0, s("x"), 0, s("y"));
    da->allocDiskArrays(2, 1);
    LogCapture log;
    EXPECT_EQ(getRecoveryGroupDeclusteredArrays(&group), 0);
    orluDeclusteredArrayPdisk* p0 = da->getDeclusteredArrayPdiskP(0);
    EXPECT_STREQ(p0->pdiskName, "p0");
    EXPECT_EQ(p0->pdiskValue, -3);
    EXPECT_STREQ(p0->pdiskText2, "text two");
    EXPECT_EQ(p0->pdiskNumber, 42u);
    EXPECT_STREQ(p0->pdiskText3, "");
    EXPECT_STREQ(p0->pdiskText4, "");
    EXPECT_EQ(da->getDeclusteredArrayPdiskP(1)->pdiskValue, -2147483647 - 1);
    // The vdisk line lacks its last column: 8 fields still update the row.
    orluDeclusteredArrayVdisk* v0 = da->getDeclusteredArrayVdiskP(0);
    EXPECT_STREQ(v0->vdiskName, "v0");
    EXPECT_EQ(v0->vdiskValue, 7);
    EXPECT_EQ(v0->vdiskNumber, 99u);
    EXPECT_STREQ(v0->vdiskText2, "last");
    EXPECT_STREQ(v0->vdiskText3, "");
    EXPECT_TRUE(log.contains(I("getRecoveryGroupDeclusteredArrays", "rgA DA1 pdisks 3")));
    EXPECT_TRUE(log.contains(I("getRecoveryGroupDeclusteredArrays", "RG rgA DA DA1:")));
    // The vdisk line without a newline runs into the closing entry.
    std::vector<std::string> l = logged(log);
    EXPECT_EQ(l.back().substr(0, 73),
              "INFO: getRecoveryGroupDeclusteredArrays: vklsvdisk:vdisk:0:1:::v0:t1:c9:c");
    EXPECT_TRUE(std::regex_search(l.back(), std::regex(std::string("last:") + kTimeRegex +
                                                      ": INFO: getRecoveryGroupDeclusteredArrays: rgA err 0$")));
}

TEST(RgArrays, NoArraysGivesTwo)
{
    LogCapture log;
    nRGDefined = 1;
    orluRecoveryGroup group;
    group.updateRgSdrInfo(s("rgA"), nullptr, nullptr);
    EXPECT_EQ(getRecoveryGroupDeclusteredArrays(&group), 2);
    EXPECT_EQ(logged(log), (std::vector<std::string>{I("getRecoveryGroupDeclusteredArrays", "rgA err 2")}));
}

TEST(RgArrays, AFailingToolEndsWithItsStatus)
{
    nRGDefined = 1;
    FakeTool pdisk("vklspdisk");
    FakeTool vdisk("vklsvdisk");
    pdisk.output("header\n");
    vdisk.output("header\n", 6, "vdisk tool failed\n");
    orluRecoveryGroup group;
    group.updateRgSdrInfo(s("rgA"), nullptr, nullptr);
    group.updateRgSummary(2, 0, 0);
    group.getDeclusteredArrayP(0)->update(s("DA1"), s("no"), 0, 0, 0, 0, 0, 0, s("x"), 0, s("y"));
    group.getDeclusteredArrayP(1)->update(s("DA2"), s("no"), 0, 0, 0, 0, 0, 0, s("x"), 0, s("y"));
    LogCapture log;
    EXPECT_EQ(getRecoveryGroupDeclusteredArrays(&group), 6);
    std::vector<std::string> l = logged(log);
    ASSERT_GE(l.size(), 2u);
    EXPECT_EQ(l[l.size() - 2], E("getRecoveryGroupDeclusteredArrays:vklsvdisk", "pclose exit status: 6"));
    EXPECT_EQ(l.back(), I("getRecoveryGroupDeclusteredArrays", "rgA err 6"));
    // The second array was not asked for.
    EXPECT_EQ(pdisk.calls().size(), 1u);
}

TEST(RgArrays, ShellThatCannotStartGivesOne)
{
    nRGDefined = 1;
    orluRecoveryGroup group;
    group.updateRgSdrInfo(s("rgA"), nullptr, nullptr);
    group.updateRgSummary(1, 0, 0);
    group.getDeclusteredArrayP(0)->update(s("DA1"), s("no"), 0, 0, 0, 0, 0, 0, s("x"), 0, s("y"));
    StderrCapture err;
    int rc;
    {
        PopenFailure fail;
        rc = getRecoveryGroupDeclusteredArrays(&group);
    }
    EXPECT_EQ(rc, 1);
    EXPECT_EQ(err.finish(), "popen(/usr/kpx/vesk/bin/vklspdisk rgA --declustered-array DA1 -Y 2>/dev/null) failed\n");
}

TEST(RgSummary, PipelineCommandKeepsItsTwelveBlanks)
{
    FakeTool sdr("vksdrquery");
    sdr.on(kSdrArgs, std::string(kSdrHeader) + sdrLine("rgA", "n1", "i"));
    ASSERT_EQ(orluRGDefined(), 1);
    orluRecoveryGroup group;
    group.updateRgSdrInfo(s("rgA"), nullptr, nullptr);
    StderrCapture err;
    int rc;
    {
        PopenFailure fail;
        rc = getRecoveryGroupSummary(&group);
    }
    EXPECT_EQ(rc, 1);
    EXPECT_EQ(err.finish(), "popen(/usr/kpx/vesk/bin/vklsrecoverygroup rgA -Y 2>/dev/null |            "
                            "grep -e Summary -e server | grep -v HEADER) failed\n");
}
