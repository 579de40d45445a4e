// The administration commands: fileset changes, quotas, ACLs and ownership.
// Each checks every word it hands to a tool, makes sure the tool is there,
// runs it through the library and passes on what the tool said and its exit
// status.
#include "cli/commands.h"

#include "cli/console.h"
#include "cli/daemon.h"
#include "cli/names.h"
#include "cli/records_json.h"
#include "cli/table.h"
#include "cli/watchdog.h"

#include <cstring>

namespace qvcli {

namespace {

template <size_t N>
void copyInto(char (&dst)[N], const std::string& src, const char* what)
{
    if (src.size() >= N)
        fail(kExitUsage, std::string("refused ") + what + ": longer than " + std::to_string(N - 1) + " characters");
    memcpy(dst, src.data(), src.size());
    dst[src.size()] = '\0';
}

std::string oneLine(const std::string& words)
{
    std::string s;
    for (char c : words)
        s += (c == '\n' || c == '\r') ? ' ' : c;
    while (!s.empty() && s.back() == ' ')
        s.pop_back();
    size_t b = s.find_first_not_of(' ');
    return b == std::string::npos ? std::string() : s.substr(b);
}

// Passes on the outcome of a tool: its words on standard output when it
// succeeded, else one error line with its status and words, and the status
// as the client's.
int outcome(const std::string& tool, int status, const std::string& words)
{
    if (status == 0) {
        if (!words.empty()) {
            fputs(words.c_str(), out());
            if (words.back() != '\n')
                fputc('\n', out());
        }
        return kExitOk;
    }
    std::string said = oneLine(words);
    if (said.empty())
        said = lastCapturedLine();
    fail(status, tool + " failed with status " + std::to_string(status) + (said.empty() ? "" : ": " + said));
}

FileSet filesetOf(const std::string& fs, const std::string& name)
{
    FileSet f;
    memset(&f, 0, sizeof(f));
    copyInto(f.fsName, fs, "filesystem name");
    copyInto(f.name, name, "fileset name");
    return f;
}

} // namespace

int cmdFilesetCreate(const std::string& fs, const std::string& name, const std::string& comment)
{
    checkName("filesystem name", fs);
    checkName("fileset name", name);
    if (!comment.empty())
        checkComment("comment", comment);
    requireTool("vkcrfileset");
    FileSet f = filesetOf(fs, name);
    copyInto(f.comment, comment, "comment");
    Session s;
    Armed armed("running vkcrfileset");
    resetCapture();
    std::string msg;
    int rc = s.handler()->createFileSet(f, &msg, comment.empty());
    return outcome("vkcrfileset", rc, msg);
}

int cmdFilesetLink(const std::string& fs, const std::string& name, const std::string& junction)
{
    checkName("filesystem name", fs);
    checkName("fileset name", name);
    if (!junction.empty())
        checkPath("junction path", junction);
    requireTool("vklinkfileset");
    FileSet f = filesetOf(fs, name);
    copyInto(f.path, junction, "junction path");
    Session s;
    Armed armed("running vklinkfileset");
    resetCapture();
    std::string msg;
    int rc = s.handler()->linkFileSet(f, &msg);
    return outcome("vklinkfileset", rc, msg);
}

int cmdFilesetUnlink(const std::string& fs, const std::string& name, const std::string& junction, bool force)
{
    checkName("filesystem name", fs);
    if (name.empty() == junction.empty())
        fail(kExitUsage, "fileset unlink: give either a fileset NAME or --junction PATH");
    if (!name.empty())
        checkName("fileset name", name);
    else
        checkPath("junction path", junction);
    requireTool("vkunlinkfileset");
    Session s;
    Armed armed("running vkunlinkfileset");
    resetCapture();
    std::string msg;
    bool byName = !name.empty();
    int rc = s.handler()->unlinkFileSet(fs.c_str(), byName ? name.c_str() : junction.c_str(), byName, force, &msg);
    return outcome("vkunlinkfileset", rc, msg);
}

int cmdFilesetDelete(const std::string& fs, const std::string& name, bool force)
{
    checkName("filesystem name", fs);
    checkName("fileset name", name);
    requireTool("vkdelfileset");
    FileSet f = filesetOf(fs, name);
    Session s;
    Armed armed("running vkdelfileset");
    resetCapture();
    std::string msg;
    int rc = s.handler()->deleteFileSet(f, force, &msg);
    return outcome("vkdelfileset", rc, msg);
}

int cmdFilesetEdit(const std::string& fs, const std::string& name, const std::string& junction,
                   const std::string& newName, const std::string& comment, bool commentGiven)
{
    checkName("filesystem name", fs);
    if (name.empty() == junction.empty())
        fail(kExitUsage, "fileset edit: give either a fileset NAME or --junction PATH");
    if (!name.empty())
        checkName("fileset name", name);
    else
        checkPath("junction path", junction);
    if (!newName.empty())
        checkName("new fileset name", newName);
    if (commentGiven && !comment.empty())
        checkComment("comment", comment);
    if (newName.empty() && !commentGiven)
        fail(kExitUsage, "fileset edit: nothing to change (give --new-name or --comment)");
    requireTool("vkchfileset");
    Session s;
    Armed armed("running vkchfileset");
    resetCapture();
    std::string msg;
    std::string fsWord = fs;
    std::string kind = name.empty() ? "junction" : "name";
    std::string target = name.empty() ? junction : name;
    std::string newWord = newName;
    std::string commentWord = comment;
    int rc = s.handler()->editFileset(&fsWord[0], &kind[0], &target[0], newName.empty() ? nullptr : &newWord[0],
                                      commentGiven ? &commentWord[0] : nullptr, &msg);
    return outcome("vkchfileset", rc, msg);
}

// ---------------------------------------------------------------------------

namespace {

struct Target {
    int type;                 // getQuota's number: 1 group, 2 user, 3 fileset
    const char* word;         // editQuota's word
    const char* label;        // the tool's word for the type
    std::string name;
};

Target targetOf(const QuotaTarget& t)
{
    int given = (t.user.empty() ? 0 : 1) + (t.group.empty() ? 0 : 1) + (t.fileset.empty() ? 0 : 1);
    if (given != 1)
        fail(kExitUsage, "quota: give exactly one of --user, --group and --fileset");
    if (!t.user.empty()) {
        checkName("user name", t.user);
        return {2, "user", "USR", t.user};
    }
    if (!t.group.empty()) {
        checkName("group name", t.group);
        return {1, "group", "GRP", t.group};
    }
    checkName("fileset name", t.fileset);
    return {3, "fileset", "FILESET", t.fileset};
}

} // namespace

int cmdQuotaGet(const std::string& fs, const QuotaTarget& t, bool asJson)
{
    checkName("filesystem name", fs);
    Target target = targetOf(t);
    requireTool("vklsquota");
    Quota q{};
    {
        Session s;
        Armed armed("running vklsquota");
        resetCapture();
        int rc = s.handler()->getQuota(target.type, fs.c_str(), target.name.c_str(), &q);
        if (rc != 0)
            return outcome("vklsquota", rc, std::string());
    }
    if (asJson) {
        json doc;
        doc["filesystem"] = fs;
        doc["type"] = target.word;
        doc["name"] = target.name;
        doc["quota"] = quotaJson(q);
        std::string text = documentText(doc);
        fwrite(text.data(), 1, text.size(), out());
        return kExitOk;
    }
    Table table({{"FILESYSTEM"}, {"TYPE"}, {"NAME"}, {"ID", true}, {"BLOCKS KB", true}, {"SOFT", true},
                 {"HARD", true}, {"IN DOUBT", true}, {"GRACE"}, {"FILES", true}, {"SOFT", true}, {"HARD", true},
                 {"IN DOUBT", true}, {"GRACE"}, {"REMARKS"}});
    table.add({orDash(q.column6), target.label, orDash(q.column9), std::to_string(q.column8), std::to_string(q.column10),
               std::to_string(q.column11), std::to_string(q.column12), std::to_string(q.column13), orDash(q.column14),
               std::to_string(q.column15), std::to_string(q.column16), std::to_string(q.column17),
               std::to_string(q.column18), orDash(q.column19), orDash(q.column20)});
    table.print(out());
    return kExitOk;
}

int cmdQuotaSet(const std::string& fs, const QuotaTarget& t, const QuotaLimits& l)
{
    checkName("filesystem name", fs);
    Target target = targetOf(t);
    if (l.blockSoft < 0 && l.blockHard < 0 && l.filesSoft < 0 && l.filesHard < 0)
        fail(kExitUsage, "quota set: nothing to change (give --block-soft, --block-hard, --files-soft or --files-hard)");
    requireTool("vksetquota");
    unsigned long long S = static_cast<unsigned long long>(l.blockSoft);
    unsigned long long H = static_cast<unsigned long long>(l.blockHard);
    unsigned long long s = static_cast<unsigned long long>(l.filesSoft);
    unsigned long long h = static_cast<unsigned long long>(l.filesHard);
    std::string fsWord = fs;
    std::string typeWord = target.word;
    std::string nameWord = target.name;
    Session session;
    Armed armed("running vksetquota");
    resetCapture();
    std::string msg;
    int rc = session.handler()->editQuota(&fsWord[0], &typeWord[0], &nameWord[0], l.blockSoft >= 0 ? &S : nullptr,
                                          l.blockHard >= 0 ? &H : nullptr, l.filesSoft >= 0 ? &s : nullptr,
                                          l.filesHard >= 0 ? &h : nullptr, nullptr, &msg);
    return outcome("vksetquota", rc, msg);
}

// ---------------------------------------------------------------------------

int cmdAclCopy(const std::string& source, const std::string& target, const std::string& type)
{
    checkPath("source path", source);
    checkPath("target path", target);
    int aclType = -1;
    if (type == "nfs4")
        aclType = 0;
    else if (type == "posix")
        aclType = 1;
    else if (type == "native")
        aclType = 2;
    else if (!type.empty())
        fail(kExitUsage, "acl copy: --type takes nfs4, posix or native, not \"" + type + "\"");
    requireTools({"vkgetacl", "vkputacl"});
    FileOrDirOwner from;
    FileOrDirOwner to;
    memset(&from, 0, sizeof(from));
    memset(&to, 0, sizeof(to));
    copyInto(from.path, source, "source path");
    copyInto(to.path, target, "target path");
    Session s;
    Armed armed("copying the ACL (vkgetacl | vkputacl)");
    resetCapture();
    std::string msg;
    int rc = s.handler()->changeFileOrDirACL(from, to, aclType, &msg);
    return outcome("vkputacl", rc, msg);
}

int cmdOwnerSet(const std::string& path, const std::string& owner, const std::string& group)
{
    checkPath("path", path);
    if (owner.empty() && group.empty())
        fail(kExitUsage, "owner set: give --owner, --group or both");
    if (!owner.empty())
        checkName("owner", owner);
    if (!group.empty())
        checkName("group", group);
    requireProgram("chown");
    FileOrDirOwner target;
    memset(&target, 0, sizeof(target));
    copyInto(target.owner, owner, "owner");
    copyInto(target.group, group, "group");
    copyInto(target.path, path, "path");
    Session s;
    Armed armed("running chown");
    resetCapture();
    int rc = s.handler()->changeOwnerAndOrGroup(target);
    return outcome("chown", rc, std::string());
}

} // namespace qvcli
