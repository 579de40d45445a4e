// Fileset changes: exact command lines, the tool's words in the caller's
// message, exit statuses and log texts; and one fileset's whole life against
// fake tools that keep state between calls.
#include <quelvane/api_poll.h>

#include "support/bare_handler.h"
#include "support/fake_tool.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/log_entries.h"
#include "support/popen_failure.h"
#include "support/printed_text.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using namespace qvtest;

namespace {

const std::string kBin = "/usr/kpx/vesk/bin";

// Tools found through the search path stand in the tool directory too.
void toolsOnPath()
{
    std::string path = kBin + ":" + (getenv("PATH") != nullptr ? getenv("PATH") : "/usr/bin:/bin");
    setenv("PATH", path.c_str(), 1);
}

FileSet fileset(const std::string& fs, const std::string& name, const std::string& path = "",
                const std::string& comment = "")
{
    FileSet f;
    memset(&f, 0, sizeof(f));
    strncpy(f.fsName, fs.c_str(), sizeof(f.fsName) - 1);
    strncpy(f.name, name.c_str(), sizeof(f.name) - 1);
    strncpy(f.path, path.c_str(), sizeof(f.path) - 1);
    strncpy(f.comment, comment.c_str(), sizeof(f.comment) - 1);
    return f;
}

char* s(const char* text)
{
    return const_cast<char*>(text);
}

} // namespace

TEST(FilesetChanges, CreateWithAndWithoutComment)
{
    toolsOnPath();
    FakeTool tool("vkcrfileset");
    tool.output("Fileset set1 created.\n");
    LogCapture log;
    std::string msg;
    StderrCapture err;
    EXPECT_EQ(bareHandler()->createFileSet(fileset("fs1", "set1", "", "text"), &msg, true), 0);
    EXPECT_EQ(bareHandler()->createFileSet(fileset("fs1", "set1", "", "two words"), &msg, false), 0);
    EXPECT_EQ(err.finish(), "PollingHandler::createFileSet, Fileset set1 created.\n\n"
                            "PollingHandler::createFileSet, msg=Fileset set1 created.\n\n"
                            "PollingHandler::createFileSet, Fileset set1 created.\n\n"
                            "PollingHandler::createFileSet, msg=Fileset set1 created.\nFileset set1 created.\n\n");
    // The comment is not quoted: two words reach the tool as two arguments.
    EXPECT_EQ(tool.calls(), (std::vector<std::string>{"fs1 set1", "fs1 set1 -t two words"}));
    EXPECT_EQ(msg, "Fileset set1 created.\nFileset set1 created.\n");
    const char* who = "PollingHandler::createFileSet";
    EXPECT_EQ(logged(log), (std::vector<std::string>{
                               I(who, "cmd = vkcrfileset fs1 set1 2>&1"), I(who, "exit status 0"),
                               I(who, "Successfully executed command"),
                               I(who, "cmd = vkcrfileset fs1 set1 -t two words 2>&1"),
                               I(who, "exit status 0"), I(who, "Successfully executed command")}));
}

TEST(FilesetChanges, CreateFailurePrintsAndLogsTheWords)
{
    toolsOnPath();
    FakeTool tool("vkcrfileset");
    tool.output("", 4, "Fileset set1 already exists.\n");
    LogCapture log;
    std::string msg = "before: ";
    StderrCapture err;
    EXPECT_EQ(bareHandler()->createFileSet(fileset("fs1", "set1", "", "c"), &msg, false), 4);
    EXPECT_EQ(msg, "before: Fileset set1 already exists.\n");
    // The level 2 log entry goes to stderr too, behind the printed lines.
    EXPECT_TRUE(matches(lit("PollingHandler::createFileSet, Fileset set1 already exists.\n\n"
                            "PollingHandler::createFileSet, msg=before: Fileset set1 already exists.\n\n"
                            "PollingHandler::createFileSet, exit status 4, msg=before: Fileset set1 already exists.\n\n") +
                            kTimeRegex + lit(": ERROR: PollingHandler::createFileSet: exit status 4, msg=before: Fileset "
                                             "set1 already exists.\n\n"),
                        err.finish()));
    const char* who = "PollingHandler::createFileSet";
    EXPECT_EQ(logged(log), (std::vector<std::string>{
                               I(who, "cmd = vkcrfileset fs1 set1 -t c 2>&1"), I(who, "exit status 4"),
                               E(who, "exit status 4, msg=before: Fileset set1 already exists.")}));
}

TEST(FilesetChanges, CreateFailureWithoutWordsSaysNotAvailable)
{
    toolsOnPath();
    FakeTool tool("vkcrfileset");
    tool.output("", 2);
    std::string msg;
    StderrCapture err;
    EXPECT_EQ(bareHandler()->createFileSet(fileset("fs1", "set1"), &msg, true), 2);
    std::string text = err.finish();
    EXPECT_EQ(text.substr(0, text.find('\n', text.find('\n') + 1) + 1),
              "PollingHandler::createFileSet, msg=\n"
              "PollingHandler::createFileSet, exit status 2, msg=n/a\n");
}

TEST(FilesetChanges, MissingToolIsTheShellsStatusWithItsWords)
{
    // No vkcrfileset anywhere on the search path.
    LogCapture log;
    std::string msg;
    StderrCapture err;
    EXPECT_EQ(bareHandler()->createFileSet(fileset("fs1", "set1"), &msg, true), 127);
    err.finish();
    EXPECT_NE(msg.find("vkcrfileset"), std::string::npos) << msg;
    EXPECT_NE(msg.find("not found"), std::string::npos) << msg;
    std::vector<std::string> l = logged(log);
    ASSERT_GE(l.size(), 3u);
    EXPECT_EQ(l[1], I("PollingHandler::createFileSet", "exit status 127"));
    EXPECT_EQ(l[2].rfind("ERROR: PollingHandler::createFileSet: exit status 127, msg=", 0), 0u);
}

TEST(FilesetChanges, ShellThatCannotStartGivesOne)
{
    LogCapture log;
    std::string msg;
    int rc;
    {
        PopenFailure fail;
        rc = bareHandler()->deleteFileSet(fileset("fs1", "set1"), true, &msg);
    }
    EXPECT_EQ(rc, 1);
    const char* who = "PollingHandler::deleteFileSet";
    EXPECT_EQ(logged(log),
              (std::vector<std::string>{
                  I(who, "cmd = /usr/kpx/vesk/bin/vkdelfileset fs1 set1 -f 2>&1"),
                  E(who, "Error: Couldn't find /usr/kpx/vesk/bin/vkdelfileset fs1 set1 -f 2>&1 command")}));
}

TEST(FilesetChanges, LinkAtAPathOrByDefault)
{
    FakeTool tool("vklinkfileset");
    LogCapture log;
    std::string msg;
    EXPECT_EQ(bareHandler()->linkFileSet(fileset("fs1", "set1", "/a"), &msg), 0);
    EXPECT_EQ(bareHandler()->linkFileSet(fileset("fs1", "set1"), &msg), 0);
    EXPECT_EQ(tool.commandLines(), (std::vector<std::string>{"/usr/kpx/vesk/bin/vklinkfileset fs1 set1 -J /a",
                                                             "/usr/kpx/vesk/bin/vklinkfileset fs1 set1"}));
    EXPECT_TRUE(log.contains(I("PollingHandler::linkFileSet",
                               "cmd = /usr/kpx/vesk/bin/vklinkfileset fs1 set1 -J /a 2>&1")));
    EXPECT_TRUE(log.contains(I("PollingHandler::linkFileSet",
                               "cmd = /usr/kpx/vesk/bin/vklinkfileset fs1 set1 2>&1")));
}

TEST(FilesetChanges, UnlinkByPathOrByNameLogsEachPiece)
{
    FakeTool tool("vkunlinkfileset");
    tool.output("unlinked\n");
    LogCapture log;
    std::string msg;
    EXPECT_EQ(bareHandler()->unlinkFileSet("fs1", "/a", false, true, &msg), 0);
    EXPECT_EQ(bareHandler()->unlinkFileSet("fs1", "set1", true, false, &msg), 0);
    const char* who = "PollingHandler::unlinkFileSet";
    EXPECT_EQ(logged(log),
              (std::vector<std::string>{
                  I(who, "cmd = /usr/kpx/vesk/bin/vkunlinkfileset fs1 -J /a -f 2>&1"), I(who, "unlinked"), "",
                  I(who, "exit status 0"), I(who, "Successfully executed command"),
                  I(who, "cmd = /usr/kpx/vesk/bin/vkunlinkfileset fs1 set1 2>&1"), I(who, "unlinked"), "",
                  I(who, "exit status 0"), I(who, "Successfully executed command")}));
    EXPECT_EQ(tool.calls(), (std::vector<std::string>{"fs1 -J /a -f", "fs1 set1"}));
    EXPECT_EQ(msg, "unlinked\nunlinked\n");
}

TEST(FilesetChanges, DeleteWithAndWithoutForce)
{
    FakeTool tool("vkdelfileset");
    LogCapture log;
    std::string msg;
    EXPECT_EQ(bareHandler()->deleteFileSet(fileset("fs1", "set1"), false, &msg), 0);
    EXPECT_EQ(bareHandler()->deleteFileSet(fileset("fs1", "set1"), true, &msg), 0);
    EXPECT_EQ(tool.calls(), (std::vector<std::string>{"fs1 set1", "fs1 set1 -f"}));
    EXPECT_TRUE(log.contains(I("PollingHandler::deleteFileSet", "cmd = /usr/kpx/vesk/bin/vkdelfileset fs1 set1 2>&1")));
}

TEST(FilesetChanges, EditCommandLines)
{
    FakeTool tool("vkchfileset");
    LogCapture log;
    std::string msg;
    PollingHandler* h = bareHandler();
    EXPECT_EQ(h->editFileset(s("fs1"), s("junction"), s("/a"), s("new"), s("c d"), &msg), 0);
    EXPECT_EQ(h->editFileset(s("fs1"), s("name"), s("set1"), nullptr, nullptr, &msg), 0);
    EXPECT_EQ(h->editFileset(s("fs1"), nullptr, s("set1"), s("n2"), nullptr, &msg), 0);
    EXPECT_EQ(h->editFileset(nullptr, nullptr, nullptr, nullptr, nullptr, &msg), 0);
    const char* who = "PollingHandler::editFileset";
    std::vector<std::string> cmds;
    for (const std::string& l : logged(log))
        if (l.find("cmd = ") != std::string::npos)
            cmds.push_back(l);
    EXPECT_EQ(cmds, (std::vector<std::string>{
                        I(who, "cmd = /usr/kpx/vesk/bin/vkchfileset fs1  -J /a  -j new  -t \"c d\" 2>&1"),
                        I(who, "cmd = /usr/kpx/vesk/bin/vkchfileset fs1 set1 2>&1"),
                        I(who, "cmd = /usr/kpx/vesk/bin/vkchfileset fs1  -j n2 2>&1"),
                        I(who, "cmd = /usr/kpx/vesk/bin/vkchfileset 2>&1")}));
    // The quoted comment reaches the tool as one argument.
    EXPECT_EQ(tool.calls(), (std::vector<std::string>{"fs1 -J /a -j new -t c d", "fs1 set1", "fs1 -j n2", ""}));
}

TEST(FilesetChanges, MessagesAccumulateAcrossCalls)
{
    FakeTool tool("vkdelfileset");
    tool.output("", 3, "busy\n");
    LogCapture log;
    std::string msg;
    EXPECT_EQ(bareHandler()->deleteFileSet(fileset("fs1", "a"), false, &msg), 3);
    EXPECT_EQ(bareHandler()->deleteFileSet(fileset("fs1", "b"), false, &msg), 3);
    EXPECT_EQ(msg, "busy\nbusy\n");
    EXPECT_TRUE(log.contains(E("PollingHandler::deleteFileSet", "exit status 3, msg=busy")));
}

TEST(FilesetChanges, LongMessageIsLoggedWhole)
{
    FakeTool tool("vkdelfileset");
    std::string words(5000, 'w');
    tool.output(words + "\n", 9);
    LogCapture log;
    std::string msg;
    EXPECT_EQ(bareHandler()->deleteFileSet(fileset("fs1", "a"), false, &msg), 9);
    EXPECT_EQ(msg, words + "\n");
    EXPECT_TRUE(log.contains(E("PollingHandler::deleteFileSet", "exit status 9, msg=" + words)));
}

// ---------------------------------------------------------------- a whole life

namespace {

// Fake fileset tools sharing their state under /tmp/fsets/FS/NAME.
void installStatefulFilesetTools()
{
    const std::string state = "/tmp/fsets";
    makeDirs(state);
    auto install = [](const std::string& name, const std::string& body) {
        std::string path = kBin + "/" + name;
        makeDirs(kBin);
        writeFile(path, "#!/bin/sh\nS=/tmp/fsets\necho \"$*\" >> $S/calls\n" + body);
        chmod(path.c_str(), 0755);
    };
    install("vkcrfileset",
            "fs=$1; n=$2; shift 2\n"
            "if [ -d $S/$fs/$n ]; then echo \"Fileset $n already exists.\" >&2; exit 1; fi\n"
            "mkdir -p $S/$fs/$n; echo Unlinked > $S/$fs/$n/status; echo -- > $S/$fs/$n/path\n"
            "c=''; if [ \"$1\" = -t ]; then shift; c=\"$*\"; fi; echo \"$c\" > $S/$fs/$n/comment\n"
            "echo \"Fileset $n created.\"\n");
    install("vklinkfileset",
            "fs=$1; n=$2\n"
            "[ -d $S/$fs/$n ] || { echo \"No fileset $n.\" >&2; exit 2; }\n"
            "p=/gpfs/$fs/$n; [ \"$3\" = -J ] && p=$4\n"
            "echo Linked > $S/$fs/$n/status; echo $p > $S/$fs/$n/path; echo \"Fileset $n linked at $p\"\n");
    install("vkchfileset",
            "fs=$1; n=$2; shift 2\n"
            "[ -d $S/$fs/$n ] || { echo \"No fileset $n.\" >&2; exit 2; }\n"
            "while [ $# -gt 0 ]; do case $1 in\n"
            "  -j) mv $S/$fs/$n $S/$fs/$2; n=$2; shift 2;;\n"
            "  -t) echo \"$2\" > $S/$fs/$n/comment; shift 2;;\n"
            "  *) shift;;\n"
            "esac; done\necho \"Fileset $n changed.\"\n");
    install("vkunlinkfileset",
            "fs=$1; n=$2\n"
            "[ -d $S/$fs/$n ] || { echo \"No fileset $n.\" >&2; exit 2; }\n"
            "echo Unlinked > $S/$fs/$n/status; echo -- > $S/$fs/$n/path; echo \"Fileset $n unlinked.\"\n");
    install("vkdelfileset",
            "fs=$1; n=$2\n"
            "[ -d $S/$fs/$n ] || { echo \"No fileset $n.\" >&2; exit 2; }\n"
            "if [ \"$(cat $S/$fs/$n/status)\" = Linked ] && [ \"$3\" != -f ]; then\n"
            "  echo \"Fileset $n is linked.\" >&2; exit 3; fi\n"
            "rm -r $S/$fs/$n; echo \"Fileset $n deleted.\"\n");
    install("vklsfileset",
            "fs=$1\n"
            "echo 'vklsfileset::HEADER:version:reserved:reserved:filesystemName:filesetName:id:rootInode:"
            "status:path:parentId:created:inodes:dataInKB:comment:'\n"
            "for d in $S/$fs/*; do [ -d \"$d\" ] || continue; n=$(basename $d)\n"
            "  echo \"vklsfileset::0:1:::$fs:$n:7:131075:$(cat $d/status):$(sed 's#/#%2F#g' $d/path):0:"
            "Thu Nov 21 13%3A05%3A09 2024:1000:2048:$(cat $d/comment):\"\n"
            "done\n");
}

struct Listed
{
    std::string name, status, path, comment;
    bool operator==(const Listed& o) const
    {
        return name == o.name && status == o.status && path == o.path && comment == o.comment;
    }
};

std::vector<Listed> list(const char* fs)
{
    std::vector<FileSet*> sets;
    EXPECT_EQ(bareHandler()->getFileSets(s(fs), &sets), 0);
    std::vector<Listed> out;
    for (FileSet* f : sets) {
        out.push_back({f->name, f->column10, f->path, f->comment});
        delete f;
    }
    return out;
}

} // namespace

TEST(FilesetLife, CreateLinkEditUnlinkDelete)
{
    toolsOnPath();
    installStatefulFilesetTools();
    PollingHandler* h = bareHandler();
    std::string msg;
    StderrCapture err;

    ASSERT_EQ(h->createFileSet(fileset("fs1", "proj", "", "first"), &msg, false), 0);
    EXPECT_EQ(list("fs1"), (std::vector<Listed>{{"proj", "Unlinked", "--", "first"}}));
    EXPECT_EQ(h->createFileSet(fileset("fs1", "proj"), &msg, true), 1);   // exists already

    ASSERT_EQ(h->linkFileSet(fileset("fs1", "proj", "/gpfs/fs1/p"), &msg), 0);
    EXPECT_EQ(list("fs1"), (std::vector<Listed>{{"proj", "Linked", "/gpfs/fs1/p", "first"}}));

    ASSERT_EQ(h->editFileset(s("fs1"), s("name"), s("proj"), s("proj2"), s("second"), &msg), 0);
    EXPECT_EQ(list("fs1"), (std::vector<Listed>{{"proj2", "Linked", "/gpfs/fs1/p", "second"}}));

    EXPECT_EQ(h->deleteFileSet(fileset("fs1", "proj2"), false, &msg), 3);   // still linked
    ASSERT_EQ(h->unlinkFileSet("fs1", "proj2", true, false, &msg), 0);
    EXPECT_EQ(list("fs1"), (std::vector<Listed>{{"proj2", "Unlinked", "--", "second"}}));

    ASSERT_EQ(h->deleteFileSet(fileset("fs1", "proj2"), false, &msg), 0);
    EXPECT_TRUE(list("fs1").empty());
    err.finish();

    EXPECT_EQ(msg, "Fileset proj created.\n"
                   "Fileset proj already exists.\n"
                   "Fileset proj linked at /gpfs/fs1/p\n"
                   "Fileset proj2 changed.\n"
                   "Fileset proj2 is linked.\n"
                   "Fileset proj2 unlinked.\n"
                   "Fileset proj2 deleted.\n");
    EXPECT_EQ(splitLines(readFile("/tmp/fsets/calls")),
              (std::vector<std::string>{"fs1 proj -t first", "fs1 -LY", "fs1 proj", "fs1 proj -J /gpfs/fs1/p",
                                        "fs1 -LY", "fs1 proj -j proj2 -t second", "fs1 -LY", "fs1 proj2",
                                        "fs1 proj2", "fs1 -LY", "fs1 proj2", "fs1 -LY"}));
}
