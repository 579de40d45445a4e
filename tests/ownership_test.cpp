// Ownership and ACLs: chown, id and awk run for real on files and a passwd
// file of the test's own; the ACL tools are fakes.
#include <quelvane/api_poll.h>

#include "support/bare_handler.h"
#include "support/etc_files.h"
#include "support/fake_tool.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/log_entries.h"
#include "support/popen_failure.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

using namespace qvtest;

namespace {

const char kPasswd[] =
    "root:x:0:0:root:/root:/bin/bash\n"
    "bob:x:1001:2002:Bob:/home/bob:/bin/sh\n"
    "carol:x:1002:2003:Carol:/home/carol:/bin/sh\n"
    "bob:x:1001:2002:Bob again:/srv/bob2:/bin/sh\n";
const char kGroup[] = "root:x:0:\nstaff:x:2002:bob\nadmins:x:2003:carol\n";

void usersOfTheTest()
{
    bindOverEtc("passwd", kPasswd);
    bindOverEtc("group", kGroup);
}

FileOrDirOwner owner(const std::string& user, const std::string& group, const std::string& path)
{
    FileOrDirOwner o;
    memset(&o, 0, sizeof(o));
    strncpy(o.owner, user.c_str(), sizeof(o.owner) - 1);
    strncpy(o.group, group.c_str(), sizeof(o.group) - 1);
    strncpy(o.path, path.c_str(), sizeof(o.path) - 1);
    return o;
}

struct stat statOf(const std::string& path)
{
    struct stat st;
    memset(&st, 0, sizeof(st));
    stat(path.c_str(), &st);
    return st;
}

char* s(const char* text)
{
    return const_cast<char*>(text);
}

} // namespace

TEST(Ownership, ChownOwnerAndGroupForReal)
{
    usersOfTheTest();
    writeFile("/tmp/a", "data");
    LogCapture log;
    EXPECT_EQ(bareHandler()->changeOwnerAndOrGroup(owner("bob", "staff", "/tmp/a")), 0);
    EXPECT_EQ(statOf("/tmp/a").st_uid, 1001u);
    EXPECT_EQ(statOf("/tmp/a").st_gid, 2002u);
    const char* who = "PollingHandler::changeOwnerAndOrGroup";
    EXPECT_EQ(logged(log), (std::vector<std::string>{I(who, "cmd = chown bob:staff /tmp/a"), I(who, "exit status 0"),
                                                     I(who, "Successfully executed command")}));
}

TEST(Ownership, ChownCommandShapes)
{
    usersOfTheTest();
    writeFile("/tmp/a", "data");
    LogCapture log;
    PollingHandler* h = bareHandler();
    EXPECT_EQ(h->changeOwnerAndOrGroup(owner("carol", "", "/tmp/a")), 0);
    EXPECT_EQ(statOf("/tmp/a").st_uid, 1002u);
    EXPECT_EQ(h->changeOwnerAndOrGroup(owner("", "staff", "/tmp/a")), 0);
    EXPECT_EQ(statOf("/tmp/a").st_gid, 2002u);
    StderrCapture err;
    int rc = h->changeOwnerAndOrGroup(owner("", "", "/tmp/a"));
    std::string words = err.finish();
    EXPECT_NE(rc, 0);   // chown without an owner refuses, with its words on stderr
    EXPECT_FALSE(words.empty());
    std::vector<std::string> cmds;
    for (const std::string& l : logged(log))
        if (l.find("cmd = ") != std::string::npos)
            cmds.push_back(l);
    const char* who = "PollingHandler::changeOwnerAndOrGroup";
    EXPECT_EQ(cmds, (std::vector<std::string>{I(who, "cmd = chown carol /tmp/a"), I(who, "cmd = chown :staff /tmp/a"),
                                              I(who, "cmd = chown  /tmp/a")}));
    EXPECT_TRUE(log.contains(E(who, "exit status " + std::to_string(rc))));
}

TEST(Ownership, ChownHoldsThePollingLock)
{
    // The lock is taken after the first output line; with the lock held by
    // another thread, the operation waits for it.
    usersOfTheTest();
    writeFile("/tmp/a", "data");
    PollingHandler* h = bareHandler();
    pthread_mutex_init(&h->pollingMutex, nullptr);
    h->getPollingLock();
    std::atomic<int> result{-1};
    std::thread t([&] { result = h->changeOwnerAndOrGroup(owner("bob", "", "/tmp/a")); });
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(result.load(), -1);
    h->releasePollingLock();
    t.join();
    EXPECT_EQ(result.load(), 0);
    // Released again at the end.
    EXPECT_EQ(pthread_mutex_trylock(&h->pollingMutex), 0);
    pthread_mutex_unlock(&h->pollingMutex);
}

TEST(Ownership, ReferenceCopiesOwnerAndGroup)
{
    writeFile("/tmp/a", "a");
    writeFile("/tmp/b", "b");
    ASSERT_EQ(chown("/tmp/a", 1234, 5678), 0);
    LogCapture log;
    std::string msg;
    EXPECT_EQ(bareHandler()->changeFileOrDirOwnership(owner("", "", "/tmp/a"), owner("", "", "/tmp/b"), &msg), 0);
    EXPECT_EQ(statOf("/tmp/b").st_uid, 1234u);
    EXPECT_EQ(statOf("/tmp/b").st_gid, 5678u);
    const char* who = "PollingHandler::changeFileOrDirOwnership";
    EXPECT_EQ(logged(log), (std::vector<std::string>{I(who, "cmd = chown --reference=/tmp/a  /tmp/b 2>&1"),
                                                     I(who, "exit status 0"), I(who, "Successfully executed command")}));
    // A missing reference: chown's words come back in the message.
    EXPECT_NE(bareHandler()->changeFileOrDirOwnership(owner("", "", "/tmp/none"), owner("", "", "/tmp/b"), &msg), 0);
    EXPECT_NE(msg.find("/tmp/none"), std::string::npos) << msg;
}

TEST(Ownership, AclPipelineCommandLines)
{
    FakeTool get("vkgetacl");
    get.output("#owner:root\nuser::rwx\n");
    FakeTool put("vkputacl");
    put.output("", 0);
    std::string path = std::string("/usr/kpx/vesk/bin:") + getenv("PATH");
    setenv("PATH", path.c_str(), 1);
    LogCapture log;
    std::string msg;
    PollingHandler* h = bareHandler();
    EXPECT_EQ(h->changeFileOrDirACL(owner("", "", "/a"), owner("", "", "/b"), 1, &msg), 0);
    EXPECT_EQ(h->changeFileOrDirACL(owner("", "", "/a"), owner("", "", "/b"), 9, &msg), 0);
    EXPECT_EQ(h->changeFileOrDirACL(owner("", "", "/a"), owner("", "", "/b"), 0, &msg), 0);
    EXPECT_EQ(h->changeFileOrDirACL(owner("", "", "/a"), owner("", "", "/b"), 2, &msg), 0);
    EXPECT_EQ(get.calls(), (std::vector<std::string>{"-k posix /a", "/a", "-k nfs4 /a", "-k native /a"}));
    EXPECT_EQ(put.calls(), (std::vector<std::string>{"/b", "/b", "/b", "/b"}));
    std::vector<std::string> l = logged(log);
    ASSERT_GE(l.size(), 3u);
    // The command line goes out under the ownership operation's name.
    EXPECT_EQ(l[0], I("PollingHandler::changeFileOrDirOwnership",
                      "cmd = /usr/kpx/vesk/bin/vkgetacl -k posix /a | vkputacl /b 2>&1"));
    EXPECT_EQ(l[1], I("PollingHandler::changeFileOrDirACL", "exit status 0"));
    EXPECT_TRUE(log.contains(I("PollingHandler::changeFileOrDirOwnership",
                               "cmd = /usr/kpx/vesk/bin/vkgetacl  /a | vkputacl /b 2>&1")));
}

TEST(Ownership, AclStatusIsTheLastStages)
{
    FakeTool get("vkgetacl");
    get.output("", 7);
    FakeTool put("vkputacl");
    put.output("", 0, "cannot apply\n");
    std::string path = std::string("/usr/kpx/vesk/bin:") + getenv("PATH");
    setenv("PATH", path.c_str(), 1);
    std::string msg;
    EXPECT_EQ(bareHandler()->changeFileOrDirACL(owner("", "", "/a"), owner("", "", "/b"), 1, &msg), 0);
    EXPECT_EQ(msg, "cannot apply\n");
    put.output("", 3, "bad acl\n");
    LogCapture log;
    EXPECT_EQ(bareHandler()->changeFileOrDirACL(owner("", "", "/a"), owner("", "", "/b"), 1, &msg), 3);
    EXPECT_TRUE(log.contains(E("PollingHandler::changeFileOrDirACL", "exit status 3, msg=cannot apply")));
}

TEST(Ownership, HomePathTakesTheLastEntry)
{
    usersOfTheTest();
    LogCapture log;
    char path[1024] = "unchanged";
    EXPECT_EQ(bareHandler()->getHomePath(s("bob"), path), 0);
    EXPECT_STREQ(path, "/srv/bob2");
    EXPECT_EQ(bareHandler()->getHomePath(s("carol"), path), 0);
    EXPECT_STREQ(path, "/home/carol");
    strcpy(path, "unchanged");
    EXPECT_EQ(bareHandler()->getHomePath(s("nobody"), path), 0);
    EXPECT_STREQ(path, "unchanged");
    const char* who = "PollingHandler::getHomePath";
    EXPECT_EQ(logged(log)[0], I(who, "cmd = awk -F: -v v=\"bob\" '{if ($1==v) print $6}' /etc/passwd"));
    EXPECT_EQ(logged(log)[1], I(who, "Successfully executed command"));
}

TEST(Ownership, AHomePathLongerThanAPieceEndsWithItsLastPiece)
{
    // Lines are read in pieces of 1023 characters: the first piece has no
    // newline and gives "n/a", the last piece wins.
    std::string home = "/" + std::string(1100, 'h');
    bindOverEtc("passwd", "dave:x:1:1::" + home + ":/bin/sh\n");
    std::vector<char> path(2048, '\0');
    EXPECT_EQ(bareHandler()->getHomePath(s("dave"), path.data()), 0);
    EXPECT_EQ(std::string(path.data()), home.substr(1023));
}

TEST(Ownership, ALastPieceWithoutNewlineIsNotAvailable)
{
    // An id that prints no newline at all.
    FakeTool id("id");
    id.output("2002");
    std::string p = std::string("/usr/kpx/vesk/bin:") + getenv("PATH");
    setenv("PATH", p.c_str(), 1);
    unsigned int gid = 5;
    EXPECT_EQ(bareHandler()->getPrimaryId(s("bob"), &gid), 0);
    EXPECT_EQ(gid, 0xFFFFFFFFu);
    EXPECT_EQ(id.calls(), (std::vector<std::string>{"--group bob"}));
}

TEST(Ownership, PrimaryGroupFromId)
{
    usersOfTheTest();
    LogCapture log;
    unsigned int id = 77;
    EXPECT_EQ(bareHandler()->getPrimaryId(s("carol"), &id), 0);
    EXPECT_EQ(id, 2003u);
    id = 77;
    StderrCapture err;
    EXPECT_EQ(bareHandler()->getPrimaryId(s("nosuchuser"), &id), 0);
    std::string words = err.finish();
    EXPECT_EQ(id, 77u);
    EXPECT_NE(words.find("nosuchuser"), std::string::npos);
    EXPECT_EQ(logged(log)[0], I("PollingHandler::getPrimaryId", "cmd = id --group carol"));
}

TEST(Ownership, LookupsWhenTheShellCannotStart)
{
    LogCapture log;
    char path[1024] = "x";
    unsigned int id = 5;
    int a, b;
    {
        PopenFailure fail;
        a = bareHandler()->getHomePath(s("bob"), path);
        b = bareHandler()->getPrimaryId(s("bob"), &id);
    }
    EXPECT_EQ(a, 1);
    EXPECT_EQ(b, 1);
    EXPECT_TRUE(log.contains(E("PollingHandler::getPrimaryId", "Error: Couldn't find id --group bob command")));
}
