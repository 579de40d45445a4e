#include "support/fake_tool.h"

#include "support/files.h"

#include <cstring>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

namespace qvtest {

FakeTool::FakeTool(std::string name, std::string dir)
    : name_(std::move(name)), path_(dir + "/" + name_), dataDir_("/tmp/.fake-tools/" + name_)
{
    makeDirs(dataDir_ + "/default");
    clearRules();
    writeFile(dataDir_ + "/calls", "");
    writeAnswer(dataDir_ + "/default", "", 0, "");
    std::string script =
        "#!/bin/sh\n"
        "d='" + dataDir_ + "'\n"
        "printf '%s\\n' \"$*\" >> \"$d/calls\"\n"
        "for r in \"$d\"/rule*; do\n"
        "  [ -d \"$r\" ] || continue\n"
        "  if [ \"$(cat \"$r/args\")\" = \"$*\" ]; then\n"
        "    cat \"$r/out\"; cat \"$r/err\" >&2; exit \"$(cat \"$r/rc\")\"\n"
        "  fi\n"
        "done\n"
        "cat \"$d/default/out\"; cat \"$d/default/err\" >&2; exit \"$(cat \"$d/default/rc\")\"\n";
    makeDirs(dir);
    writeFile(path_, script);
    chmod(path_.c_str(), 0755);
}

void FakeTool::writeAnswer(const std::string& dir, const std::string& out, int status,
                           const std::string& err)
{
    writeFile(dir + "/out", out);
    writeFile(dir + "/err", err);
    writeFile(dir + "/rc", std::to_string(status));
}

FakeTool& FakeTool::output(const std::string& out, int status, const std::string& err)
{
    writeAnswer(dataDir_ + "/default", out, status, err);
    return *this;
}

FakeTool& FakeTool::on(const std::string& args, const std::string& out, int status,
                       const std::string& err)
{
    char name[32];
    snprintf(name, sizeof(name), "/rule%04d", rules_++);
    std::string dir = dataDir_ + name;
    makeDirs(dir);
    writeFile(dir + "/args", args);
    writeAnswer(dir, out, status, err);
    return *this;
}

FakeTool& FakeTool::clearRules()
{
    // Every rule directory goes, also those that an earlier FakeTool of the
    // same name left behind.
    if (DIR* d = opendir(dataDir_.c_str())) {
        while (dirent* e = readdir(d)) {
            if (strncmp(e->d_name, "rule", 4) != 0)
                continue;
            std::string dir = dataDir_ + "/" + e->d_name;
            for (const char* f : {"/args", "/out", "/err", "/rc"})
                unlink((dir + f).c_str());
            rmdir(dir.c_str());
        }
        closedir(d);
    }
    rules_ = 0;
    return *this;
}

std::vector<std::string> FakeTool::calls() const
{
    return splitLines(readFile(dataDir_ + "/calls"));
}

std::vector<std::string> FakeTool::commandLines() const
{
    std::vector<std::string> out;
    for (const std::string& a : calls())
        out.push_back(a.empty() ? path_ : path_ + " " + a);
    return out;
}

void FakeTool::clearCalls()
{
    writeFile(dataDir_ + "/calls", "");
}

} // namespace qvtest
