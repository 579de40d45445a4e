// Recovery group records: construction, tables, lookups and their dumps.
#include <quelvane/recovery_group.h>

#include "support/files.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

using namespace qvtest;

namespace {

char* s(const char* text)
{
    return const_cast<char*>(text);
}

std::string hex32(const void* p)
{
    char buf[32];
    snprintf(buf, sizeof(buf), "0x%X", static_cast<unsigned int>(reinterpret_cast<uintptr_t>(p)));
    return buf;
}

} // namespace

TEST(RgRecords, ArraysOutsideTheSixteenAreNull)
{
    orluRecoveryGroup rg;
    EXPECT_EQ(rg.getDeclusteredArrayP(16), nullptr);
    EXPECT_EQ(rg.getDeclusteredArrayP(-1), nullptr);
    EXPECT_EQ(rg.getDeclusteredArrayP(0), &rg.declusteredArrays[0]);
    EXPECT_EQ(rg.getDeclusteredArrayP(15), &rg.declusteredArrays[15]);
    // The test is against 16, not against the count of arrays.
    rg.nDeclusteredArrays = 2;
    EXPECT_EQ(rg.getDeclusteredArrayP(5), &rg.declusteredArrays[5]);
}

TEST(RgRecords, DiskLookupsBeforeTablesAreNullEvenWithCounts)
{
    orluRecoveryGroupDeclusteredArray da;
    da.daPdisks = 3;
    da.daVdisks = 2;
    EXPECT_EQ(da.getDeclusteredArrayPdiskP(0), nullptr);
    EXPECT_EQ(da.getDeclusteredArrayVdiskP(0), nullptr);
    da.allocDiskArrays(3, 2);
    EXPECT_NE(da.getDeclusteredArrayPdiskP(2), nullptr);
    EXPECT_EQ(da.getDeclusteredArrayPdiskP(3), nullptr);
    EXPECT_NE(da.getDeclusteredArrayVdiskP(1), nullptr);
    EXPECT_EQ(da.getDeclusteredArrayVdiskP(2), nullptr);
}

TEST(RgRecords, EmptyAllocationGivesTablesOfNoElements)
{
    orluRecoveryGroupDeclusteredArray da;
    da.allocDiskArrays(0, 0);
    EXPECT_NE(da.daPdiskTable, nullptr);
    EXPECT_NE(da.daVdiskTable, nullptr);
    EXPECT_EQ(da.getDeclusteredArrayPdiskP(0), nullptr);
    da.deallocDiskArrays();
    EXPECT_EQ(da.daPdiskTable, nullptr);
    EXPECT_EQ(da.daVdiskTable, nullptr);
}

TEST(RgRecords, RepeatedAllocationReplacesTheTables)
{
    orluRecoveryGroupDeclusteredArray da;
    da.daPdisks = 2;
    da.allocDiskArrays(2, 1);
    da.getDeclusteredArrayPdiskP(1)->update(s("p1"), 1, s("a"), s("b"), 2, s("c"), s("d"));
    da.allocDiskArrays(2, 1);
    // New elements are constructed empty.
    EXPECT_STREQ(da.getDeclusteredArrayPdiskP(1)->pdiskName, "");
}

TEST(RgRecords, ConfigParmsLookups)
{
    orluNsdRAIDConfigParms empty(0);
    EXPECT_EQ(empty.nAllocated, 0);
    EXPECT_EQ(empty.configVarTable, nullptr);
    EXPECT_EQ(empty.getConfigVarP(0), nullptr);
    empty.updateNsdRAIDConfigParm(0, s("a"), s("b"));   // nothing to update

    orluNsdRAIDConfigParms p(3);
    EXPECT_EQ(p.nAllocated, 3);
    EXPECT_EQ(p.nParms, 0);
    p.updateNsdRAIDConfigParm(0, s("nsdRAIDTracks"), s("128"));
    p.updateNsdRAIDConfigParm(1, s("nsdRAIDBufferPoolSizePct"), nullptr);
    // nParms 0: -1 without looking at the table.
    EXPECT_EQ(p.findNsdRAIDConfigParmIndex(s("nsdRAIDTracks")), -1);
    p.nParms = 2;
    EXPECT_EQ(p.findNsdRAIDConfigParmIndex(s("nsdRAIDTracks")), 0);
    EXPECT_EQ(p.findNsdRAIDConfigParmIndex(s("nsdRAIDBufferPoolSizePct")), 1);
    EXPECT_STREQ(p.getConfigVarP(1)->varValue, "");
    EXPECT_EQ(p.findNsdRAIDConfigParmIndex(s("other")), -1);
    EXPECT_EQ(p.getConfigVarP(3), nullptr);
}

TEST(RgRecords, UpdatesCopyOnlyTheGivenTexts)
{
    orluRecoveryGroup rg;
    rg.updateRgSdrInfo(s("rg1"), s("n1,n2"), s("ID1"));
    rg.updateRgServers(s("n1"), nullptr);
    rg.updateRgSummary(3, 4, 5);
    EXPECT_STREQ(rg.rgName, "rg1");
    EXPECT_STREQ(rg.rgServers, "n1,n2");
    EXPECT_STREQ(rg.rgId, "ID1");
    EXPECT_STREQ(rg.rgActiveServer, "n1");
    EXPECT_EQ(rg.nDeclusteredArrays, 3);
    EXPECT_EQ(rg.nVdisks, 4);
    EXPECT_EQ(rg.nPdisks, 5);
    orluRecoveryGroupSdrInfo info;
    info.update(s("rg2"), nullptr, s("x"));
    EXPECT_STREQ(info.rgName, "rg2");
    EXPECT_STREQ(info.rgServers, "");
    EXPECT_STREQ(info.rgId, "x");
}

TEST(RgRecords, VdiskIoCountersAreEightyClearedBytes)
{
    orluDeclusteredArrayVdisk v;
    EXPECT_EQ(sizeof(v.vdiskIoStats), 80u);
    for (unsigned long long c : v.vdiskIoStats.counters)
        EXPECT_EQ(c, 0u);
}

TEST(RgRecords, UninitialisedDumps)
{
    orluRecoveryGroup rg;
    StdoutCapture out;
    rg.print_orluRecoveryGroup(s("lbl"));
    rg.declusteredArrays[0].print_orluDeclusterArray(1);
    rg.declusteredArrays[0].print_orluDeclusterArray(0);
    orluDeclusteredArrayPdisk p;
    p.print_orluDeclusteredArrayPdisk(1);
    p.print_orluDeclusteredArrayPdisk(0);
    orluDeclusteredArrayVdisk v;
    v.print_orluDeclusteredArrayVdisk(1);
    orluRecoveryGroup unlabelled;
    unlabelled.print_orluRecoveryGroup(nullptr);
    EXPECT_EQ(out.finish(),
              "*** print_orluRecoveryGroup lbl **** \n"
              "RecoveryGroup not initialized"
              "orluRecoveryGroupDeclusteredArray not initialized"
              "        orluDeclusteredArrayPdisk not initialized"
              "        orluDeclusteredArrayVdisk not initialized"
              "RecoveryGroup not initialized");
}

TEST(RgRecords, FullDumpShowsEveryFieldAndAtMostSixteenArrays)
{
    orluRecoveryGroup rg;
    rg.updateRgSdrInfo(s("rgA"), s("n1,n2"), s("ID"));
    rg.updateRgServers(s("n1"), nullptr);
    rg.updateRgSummary(20, 7, 9);
    for (int i = 0; i < 16; i++) {
        std::string name = "DA" + std::to_string(i);
        rg.declusteredArrays[i].update(&name[0], s("no"), i == 0 ? 1 : 0, i == 0 ? 2 : 0, 1, 2,
                                       12345678901LL, 14, s("scrub"), 50, s("low"));
    }
    orluRecoveryGroupDeclusteredArray& da = rg.declusteredArrays[0];
    da.allocDiskArrays(2, 1);
    da.getDeclusteredArrayPdiskP(0)->update(s("p1"), 5, s("t1"), s("t2"), 77, s("t3"), s("t4"));
    da.getDeclusteredArrayVdiskP(0)->update(s("v1"), s("x1"), 3, 88, s("x2"), s("x3"));

    StdoutCapture out;
    rg.print_orluRecoveryGroup(nullptr);
    std::string text = out.finish();

    std::string first =
        "RecoveryGroup rgA\n"
        "  orluRecoveryGroupActiveServer n1\n"
        "  orluRecoveryGroupServers n1,n2\n"
        "  orluRecoveryGroupDeclusterArrays 20\n"
        "  orluRecoveryGroupVdisks 7\n"
        "  orluRecoveryGroupPdisks 9\n"
        "  orluRecoveryGroupDeclusteredArrayTable: (20 DAs)\n"
        "    orluRecoveryGroupDeclusteredArray DA0\n"
        "      orluDeclusteredArrayNeedsService no\n"
        "      orluDeclusteredArrayVdisks 1\n"
        "      orluDeclusteredArrayPdisks 2\n"
        "      orluDeclusteredArraySpares 1\n"
        "      orluDeclusteredArrayReplaceThreshold 2\n"
        "      orluDeclusteredArrayFreeSpace 12345678901\n"
        "      orluDeclusteredArrayScrubDuration 14\n"
        "      orluDeclusteredArrayTaskPercentComplete 50\n"
        "      orluDeclusteredArrayBackgroundTask scrub\n"
        "      orluDeclusteredArrayTaskPrioriy low\n"
        "      orluDeclusteredArrayPdiskTableP " + hex32(da.daPdiskTable) + " ( 2 pDisks)\n"
        "        daPDisk: p1 5 t1 t2 77 t3 t4\n"
        "      orluDeclusteredArrayVdiskTableP " + hex32(da.daVdiskTable) + " ( 1 vDisks)\n"
        "        daVDisk: v1 x1 3 88 x2 x3\n";
    ASSERT_EQ(text.substr(0, first.size()), first);
    // 16 arrays are dumped, although 20 are counted.
    size_t arrays = 0;
    for (size_t pos = text.find("orluRecoveryGroupDeclusteredArray DA"); pos != std::string::npos;
         pos = text.find("orluRecoveryGroupDeclusteredArray DA", pos + 1))
        arrays++;
    EXPECT_EQ(arrays, 16u);
    EXPECT_NE(text.find("    orluRecoveryGroupDeclusteredArray DA15\n"), std::string::npos);
    // An array without tables shows a null address and no disks.
    EXPECT_NE(text.find("    orluRecoveryGroupDeclusteredArray DA1\n"), std::string::npos);
    EXPECT_NE(text.find("      orluDeclusteredArrayPdiskTableP 0x0 ( 0 pDisks)\n"), std::string::npos);
}

TEST(RgRecords, SdrInfoAndConfigDumps)
{
    orluRecoveryGroupSdrInfo info;
    info.update(s("rg1"), s("n1,n2"), s("0A0B"));
    orluNsdRAIDConfigParms p(2);
    p.updateNsdRAIDConfigParm(0, s("a"), s("1"));
    p.updateNsdRAIDConfigParm(1, s("b"), s("2"));
    p.nParms = 2;
    StdoutCapture out;
    info.print_orluRecoveryGroupSdrInfo();
    p.print_orluNsdRAIDConfigParms();
    EXPECT_EQ(out.finish(),
              "orluRecoveryGroupSdrInfo: rg1:n1,n2:0A0B\n"
              "orluNsdRAIDConfigParms: nParms 2, nAllocated 2\n"
              "a 1\n"
              "b 2\n");
}
