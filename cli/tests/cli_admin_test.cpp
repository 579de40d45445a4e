// The administration commands change the simulated cluster through its
// tools; the model shows the change and the listings follow it.
#include "cli/tests/cli_fixture.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace qvclitest;
using nlohmann::json;

namespace {

const qvsim::SimFileset* filesetOf(const qvsim::SimCluster& m, const std::string& fs, const std::string& name)
{
    const qvsim::SimFilesystem* f = m.filesystem(fs);
    if (f == nullptr)
        return nullptr;
    for (const auto& s : f->filesets)
        if (s.name == name)
            return &s;
    return nullptr;
}

json listed(const json& doc, const std::string& name)
{
    for (const json& f : doc["filesets"])
        if (f["name"] == name)
            return f;
    return json();
}

} // namespace

TEST_F(CliTest, FilesetCreateLinkEditUnlinkDelete)
{
    startSim();
    Result r = run("fileset create fs1 scratch --comment 'for the night runs'");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "Fileset scratch created with id 4 root inode 524291.\n");
    EXPECT_EQ(r.err, "");
    qvsim::SimCluster m = dump();
    const qvsim::SimFileset* f = filesetOf(m, "fs1", "scratch");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->status, "Unlinked");
    EXPECT_EQ(f->comment, "for the night runs");
    EXPECT_EQ(listed(runJson("filesets fs1"), "scratch")["column10"], "Unlinked");

    r = run("fileset link fs1 scratch");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "Fileset scratch linked at /vesk/fs1/scratch\n");
    m = dump();
    EXPECT_EQ(filesetOf(m, "fs1", "scratch")->status, "Linked");
    json j = listed(runJson("filesets fs1"), "scratch");
    EXPECT_EQ(j["column10"], "Linked");
    EXPECT_EQ(j["path"], "/vesk/fs1/scratch");

    r = run("fileset edit fs1 scratch --new-name nightly --comment 'renamed twice'");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "Fileset nightly changed.\n");
    m = dump();
    EXPECT_EQ(filesetOf(m, "fs1", "scratch"), nullptr);
    ASSERT_NE(filesetOf(m, "fs1", "nightly"), nullptr);
    EXPECT_EQ(filesetOf(m, "fs1", "nightly")->comment, "renamed twice");

    // Unlinked by its junction, then linked elsewhere and unlinked by name.
    r = run("fileset unlink fs1 --junction /vesk/fs1/scratch");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "Fileset nightly unlinked.\n");
    r = run("fileset link fs1 nightly --junction /vesk/fs1/night");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(filesetOf(dump(), "fs1", "nightly")->path, "/vesk/fs1/night");
    r = run("fileset unlink fs1 nightly --force");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(filesetOf(dump(), "fs1", "nightly")->status, "Unlinked");

    r = run("fileset delete fs1 nightly");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "Fileset nightly deleted.\n");
    EXPECT_EQ(filesetOf(dump(), "fs1", "nightly"), nullptr);
    EXPECT_TRUE(listed(runJson("filesets fs1"), "nightly").is_null());

}

TEST_F(CliTest, FilesetRefusalsOfTheToolComeBackWithItsStatus)
{
    startSim();
    Result r = run("fileset delete fs1 root");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "quelvane: vkdelfileset failed with status 1: vkdelfileset: The root fileset cannot be deleted.\n");
    r = run("fileset delete fs1 home");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "quelvane: vkdelfileset failed with status 1: vkdelfileset: Fileset home is linked; unlink it "
                     "first or use -f.\n");
    r = run("fileset delete fs1 home --force");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(filesetOf(dump(), "fs1", "home"), nullptr);
    r = run("fileset link nofs home");
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "quelvane: vklinkfileset failed with status 2: vklinkfileset: File system nofs is not known to "
                     "the cluster.\n");
}

TEST_F(CliTest, QuotaSetThenGet)
{
    startSim();
    Result r = run("quota set fs1 --user alice --block-soft 1000 --block-hard 2000 --files-soft 4 --files-hard 5");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    const qvsim::SimQuota* q = nullptr;
    qvsim::SimCluster m = dump();
    for (const auto& x : m.filesystem("fs1")->quotas)
        if (x.type == "USR" && x.name == "alice")
            q = &x;
    ASSERT_NE(q, nullptr);
    EXPECT_EQ(q->blockQuota, 1000);
    EXPECT_EQ(q->blockLimit, 2000);
    EXPECT_EQ(q->filesQuota, 4000);
    EXPECT_EQ(q->filesLimit, 5000);

    json doc = runJson("quota get fs1 --user alice");
    EXPECT_EQ(doc["filesystem"], "fs1");
    EXPECT_EQ(doc["type"], "user");
    EXPECT_EQ(doc["name"], "alice");
    const json& j = doc["quota"];
    EXPECT_EQ(j["column6"], "fs1");
    EXPECT_EQ(j["column9"], "alice");
    EXPECT_EQ(j["column8"], q->id);
    EXPECT_EQ(j["column10"], q->blockUsage);
    EXPECT_EQ(j["column11"], 1000);
    EXPECT_EQ(j["column12"], 2000);
    EXPECT_EQ(j["column16"], 4000);
    EXPECT_EQ(j["column17"], 5000);
    EXPECT_EQ(j["quotaType"], 2);

    // A group and a fileset, and the table.
    r = run("quota set fs1 --group staff --block-hard 300");
    ASSERT_EQ(r.status, 0) << r.err;
    r = run("quota get fs1 --group staff");
    ASSERT_EQ(r.status, 0) << r.err;
    std::vector<std::string> rows = lines(r.out);
    ASSERT_EQ(rows.size(), 2u) << r.out;
    EXPECT_NE(rows[1].find("GRP"), std::string::npos) << rows[1];
    EXPECT_NE(rows[1].find("staff"), std::string::npos) << rows[1];
    EXPECT_NE(rows[1].find(" 300 "), std::string::npos) << rows[1];
    doc = runJson("quota get fs1 --fileset home");
    EXPECT_EQ(doc["quota"]["column9"], "home");
    EXPECT_EQ(doc["quota"]["quotaType"], 3);
}

TEST_F(CliTest, AclCopy)
{
    startSim();
    ASSERT_EQ(sim->runTool("vkputacl", {"/vesk/fs1/src"}, "#owner:alice\nuser::rwx-\n").status, 0);
    Result r = run("acl copy /vesk/fs1/src /vesk/fs1/dst --type nfs4");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    qvsim::SimCluster m = dump();
    ASSERT_EQ(m.acls.count("/vesk/fs1/dst"), 1u);
    EXPECT_EQ(m.acls["/vesk/fs1/dst"], "#owner:alice\nuser::rwx-\n");

    r = run("acl copy /vesk/fs1/src /vesk/fs1/other");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(dump().acls["/vesk/fs1/other"], "#owner:alice\nuser::rwx-\n");
}

TEST_F(CliTest, OwnerSet)
{
    startSim();
    const char* path = "/tmp/owned-by-the-test";
    int fd = open(path, O_CREAT | O_WRONLY, 0644);
    ASSERT_GE(fd, 0);
    close(fd);
    struct passwd* nobody = getpwnam("nobody");
    ASSERT_NE(nobody, nullptr);
    Result r = run(std::string("owner set ") + path + " --owner nobody");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    struct stat st;
    ASSERT_EQ(stat(path, &st), 0);
    EXPECT_EQ(st.st_uid, nobody->pw_uid);

    struct group* g = getgrgid(0);
    ASSERT_NE(g, nullptr);
    std::string rootGroup = g->gr_name;
    r = run(std::string("owner set ") + path + " --owner root --group " + rootGroup);
    ASSERT_EQ(r.status, 0) << r.err;
    ASSERT_EQ(stat(path, &st), 0);
    EXPECT_EQ(st.st_uid, 0u);
    EXPECT_EQ(st.st_gid, 0u);

    r = run(std::string("owner set ") + path + " --owner no-such-user-here");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err.find("quelvane: chown failed with status 1: chown: invalid user"), 0u) << r.err;
}
