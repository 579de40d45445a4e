// Recovery groups, filesets, quotas and ACLs against the simulated tools: the
// library's results checked against the model's dump, and the changing tools
// seen in the model at once.
#include "sim/tests/sim_fixture.h"

#include <cstring>
#include <memory>

using namespace qvsim;
using namespace qvsimtest;

namespace {

class SimAdmin : public SimFixture
{
};

std::string joined(const std::vector<std::string>& v)
{
    std::string out;
    for (size_t i = 0; i < v.size(); ++i)
        out += (i == 0 ? "" : ",") + v[i];
    return out;
}

TEST_F(SimAdmin, RecoveryGroupsGiveTheModel)
{
    ClusterShape shape;
    shape.recoveryGroups = 2;
    startSim(shape);
    SimCluster m = dump();
    ASSERT_EQ(m.recoveryGroups.size(), 2u);
    nRGDefined = -1;
    EXPECT_EQ(orluRGDefined(), 2);

    orluRecoveryGroupSdrInfo sdr[4];
    int len = 4;
    EXPECT_EQ(getNsdRAIDSdrInfo(sdr, &len), 0);
    ASSERT_EQ(len, 2);
    for (int i = 0; i < 2; ++i) {
        EXPECT_STREQ(sdr[i].rgName, m.recoveryGroups[i].name.c_str());
        EXPECT_STREQ(sdr[i].rgServers, joined(m.recoveryGroups[i].servers).c_str());
        EXPECT_STREQ(sdr[i].rgId, m.recoveryGroups[i].id.c_str());
    }

    orluNsdRAIDConfigParms parms(16);
    len = 16;
    EXPECT_EQ(getNsdRAIDParameters(&parms, &len), 0);
    ASSERT_EQ(parms.nParms, static_cast<int>(m.nsdRaidConfig.size()));
    for (size_t i = 0; i < m.nsdRaidConfig.size(); ++i) {
        EXPECT_STREQ(parms.configVarTable[i].varName, m.nsdRaidConfig[i].first.c_str());
        EXPECT_STREQ(parms.configVarTable[i].varValue, m.nsdRaidConfig[i].second.c_str());
    }

    for (const SimRecoveryGroup& e : m.recoveryGroups) {
        SCOPED_TRACE(e.name);
        std::unique_ptr<orluRecoveryGroup> rg(new orluRecoveryGroup());
        snprintf(rg->rgName, sizeof(rg->rgName), "%s", e.name.c_str());
        ASSERT_EQ(getRecoveryGroupSummary(rg.get()), 0);
        EXPECT_STREQ(rg->rgActiveServer, e.servers.front().c_str());
        EXPECT_STREQ(rg->rgServers, joined(e.servers).c_str());
        ASSERT_EQ(rg->nDeclusteredArrays, static_cast<int>(e.arrays.size()));
        ASSERT_EQ(getRecoveryGroupDeclusteredArrays(rg.get()), 0);
        for (size_t a = 0; a < e.arrays.size(); ++a) {
            const SimDeclusteredArray& ea = e.arrays[a];
            orluRecoveryGroupDeclusteredArray* da = rg->getDeclusteredArrayP(static_cast<int>(a));
            SCOPED_TRACE(ea.name);
            EXPECT_STREQ(da->daName, ea.name.c_str());
            EXPECT_STREQ(da->daNeedsService, ea.needsService.c_str());
            EXPECT_EQ(da->daSpares, ea.spares);
            EXPECT_EQ(da->daFreeSpace, static_cast<unsigned long long>(ea.freeSpace));
            EXPECT_EQ(da->daTaskPercentComplete, ea.taskPercentComplete);
            ASSERT_EQ(da->daPdisks, static_cast<int>(ea.pdisks.size()));
            ASSERT_EQ(da->daVdisks, static_cast<int>(ea.vdisks.size()));
            for (size_t p = 0; p < ea.pdisks.size(); ++p) {
                orluDeclusteredArrayPdisk* pd = da->getDeclusteredArrayPdiskP(static_cast<int>(p));
                EXPECT_STREQ(pd->pdiskName, ea.pdisks[p].name.c_str());
                EXPECT_EQ(pd->pdiskValue, static_cast<int>(ea.pdisks[p].replacementPriority));
                EXPECT_STREQ(pd->pdiskText2, ea.pdisks[p].state.c_str());
                EXPECT_EQ(pd->pdiskNumber, ea.pdisks[p].sizeBytes);
                EXPECT_STREQ(pd->pdiskText4, ea.pdisks[p].location.c_str());
            }
            for (size_t v = 0; v < ea.vdisks.size(); ++v) {
                orluDeclusteredArrayVdisk* vd = da->getDeclusteredArrayVdiskP(static_cast<int>(v));
                EXPECT_STREQ(vd->vdiskName, ea.vdisks[v].name.c_str());
                EXPECT_STREQ(vd->vdiskText1, ea.vdisks[v].raidCode.c_str());
                EXPECT_EQ(vd->vdiskValue, ea.vdisks[v].blockSizeKiB);
                EXPECT_EQ(vd->vdiskNumber, ea.vdisks[v].sizeBytes);
                EXPECT_STREQ(vd->vdiskText2, ea.vdisks[v].state.c_str());
            }
        }
    }
}

TEST_F(SimAdmin, NoRecoveryGroupsDefined)
{
    ClusterShape shape;
    shape.recoveryGroups = 0;
    startSim(shape);
    nRGDefined = -1;
    EXPECT_EQ(orluRGDefined(), 0);
    orluRecoveryGroupSdrInfo sdr[2];
    int len = 2;
    EXPECT_EQ(getNsdRAIDSdrInfo(sdr, &len), 19);
}

FileSet filesetOf(const char* fs, const char* name)
{
    FileSet f;
    memset(&f, 0, sizeof(f));
    snprintf(f.fsName, sizeof(f.fsName), "%s", fs);
    snprintf(f.name, sizeof(f.name), "%s", name);
    return f;
}

void expectFilesets(PollingHandler* h, const SimFilesystem& e)
{
    std::vector<FileSet*> sets;
    std::string name = e.name;
    ASSERT_EQ(h->getFileSets(&name[0], &sets), 0);
    ASSERT_EQ(sets.size(), e.filesets.size());
    for (size_t i = 0; i < sets.size(); ++i) {
        SCOPED_TRACE(e.filesets[i].name);
        EXPECT_STREQ(sets[i]->name, e.filesets[i].name.c_str());
        EXPECT_STREQ(sets[i]->fsName, e.name.c_str());
        EXPECT_STREQ(sets[i]->path, e.filesets[i].path.c_str());
        EXPECT_STREQ(sets[i]->column10, e.filesets[i].status.c_str());
        EXPECT_EQ(sets[i]->column14, e.filesets[i].inodes);
        EXPECT_EQ(sets[i]->column15, e.filesets[i].dataInKB);
        EXPECT_STREQ(sets[i]->comment, e.filesets[i].comment.empty() ? "\"\"" : e.filesets[i].comment.c_str());
        delete sets[i];
    }
    FileSet all[16];
    int len = 16;
    ASSERT_EQ(h->getFileSets1(&name[0], all, &len), 0);
    EXPECT_EQ(len, static_cast<int>(e.filesets.size()));
}

TEST_F(SimAdmin, FilesetLifecycleChangesTheModel)
{
    startSim();
    startHandler();
    expectFilesets(h, *dump().filesystem("fs1"));

    std::string msg;
    EXPECT_EQ(h->createFileSet(filesetOf("fs1", "scratch"), &msg, true), 0);
    EXPECT_EQ(msg, "Fileset scratch created with id 4 root inode 524291.\n");
    SimCluster m = dump();
    ASSERT_EQ(m.filesystem("fs1")->filesets.back().name, "scratch");
    EXPECT_EQ(m.filesystem("fs1")->filesets.back().status, "Unlinked");
    expectFilesets(h, *m.filesystem("fs1"));

    msg.clear();
    FileSet s = filesetOf("fs1", "scratch");
    snprintf(s.path, sizeof(s.path), "/vesk/fs1/tmp");
    EXPECT_EQ(h->linkFileSet(s, &msg), 0);
    EXPECT_EQ(msg, "Fileset scratch linked at /vesk/fs1/tmp\n");
    expectFilesets(h, *dump().filesystem("fs1"));

    msg.clear();
    char fs[] = "fs1", kind[] = "name", target[] = "scratch", newName[] = "work", comment[] = "work area";
    EXPECT_EQ(h->editFileset(fs, kind, target, newName, comment, &msg), 0);
    m = dump();
    EXPECT_EQ(m.filesystem("fs1")->filesets.back().name, "work");
    EXPECT_EQ(m.filesystem("fs1")->filesets.back().comment, "work area");

    // Deleting a linked fileset needs force; unlinking by junction first.
    msg.clear();
    EXPECT_EQ(h->deleteFileSet(filesetOf("fs1", "work"), false, &msg), 1);
    EXPECT_EQ(msg, "vkdelfileset: Fileset work is linked; unlink it first or use -f.\n");
    msg.clear();
    EXPECT_EQ(h->unlinkFileSet("fs1", "/vesk/fs1/tmp", false, false, &msg), 0);
    EXPECT_EQ(dump().filesystem("fs1")->filesets.back().status, "Unlinked");
    msg.clear();
    EXPECT_EQ(h->deleteFileSet(filesetOf("fs1", "work"), false, &msg), 0);
    expectFilesets(h, *dump().filesystem("fs1"));
    EXPECT_EQ(dump().filesystem("fs1")->filesets.size(), 4u);

    // A tool's refusal reaches the caller with its words and status.
    msg.clear();
    EXPECT_EQ(h->createFileSet(filesetOf("fs9", "x"), &msg, true), 2);
    EXPECT_EQ(msg, "vkcrfileset: File system fs9 is not known to the cluster.\n");
}

TEST_F(SimAdmin, QuotasReadAndSet)
{
    startSim();
    startHandler();
    SimCluster m = dump();
    const SimQuota& alice = m.filesystem("fs1")->quotas.front();
    Quota q;
    EXPECT_EQ(h->getQuota(2, "fs1", "alice", &q), 0);
    EXPECT_EQ(q.quotaType, 2);
    EXPECT_EQ(q.column6, "fs1");
    EXPECT_EQ(q.column8, alice.id);
    EXPECT_EQ(q.column9, "alice");
    EXPECT_EQ(q.column10, alice.blockUsage);
    EXPECT_EQ(q.column11, alice.blockQuota);
    EXPECT_EQ(q.column12, alice.blockLimit);
    EXPECT_EQ(q.column15, alice.filesUsage);

    char fs[] = "fs1", type[] = "user", name[] = "bob";
    unsigned long long S = 1000, H = 2000, s = 10, hh = 20;
    std::string msg;
    EXPECT_EQ(h->editQuota(fs, type, name, &S, &H, &s, &hh, nullptr, &msg), 0);
    m = dump();
    const SimQuota* bob = nullptr;
    for (const SimQuota& x : m.filesystem("fs1")->quotas)
        if (x.name == "bob")
            bob = &x;
    ASSERT_NE(bob, nullptr);
    EXPECT_EQ(bob->blockQuota, 1000);
    EXPECT_EQ(bob->blockLimit, 2000);
    EXPECT_EQ(bob->filesQuota, 10000);
    EXPECT_EQ(bob->filesLimit, 20000);
    Quota q2;
    EXPECT_EQ(h->getQuota(2, "fs1", "bob", &q2), 0);
    EXPECT_EQ(q2.column11, 1000);
    EXPECT_EQ(q2.column17, 20000);

    Quota q3;
    EXPECT_EQ(h->getQuota(3, "fs1", "home", &q3), 0);
    EXPECT_EQ(q3.column9, "home");
}

TEST_F(SimAdmin, AclCopyGoesThroughBothTools)
{
    startSim();
    startHandler();
    std::string acl = "#owner:alice\n#group:staff\nuser::rwxc\ngroup::r-x-\nother::----\n";
    int status = 0;
    shell("printf '" + acl.substr(0, acl.size() - 1) + "\\n' | vkputacl /vesk/fs1/a", &status);
    ASSERT_EQ(status, 0);
    EXPECT_EQ(dump().acls["/vesk/fs1/a"], acl);

    FileOrDirOwner src, dst;
    memset(&src, 0, sizeof(src));
    memset(&dst, 0, sizeof(dst));
    snprintf(src.path, sizeof(src.path), "/vesk/fs1/a");
    snprintf(dst.path, sizeof(dst.path), "/vesk/fs1/b");
    std::string msg;
    EXPECT_EQ(h->changeFileOrDirACL(src, dst, 1, &msg), 0);
    EXPECT_EQ(dump().acls["/vesk/fs1/b"], acl);
}

} // namespace
