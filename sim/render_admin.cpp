// The administration tools: fileset listings and the fileset changes.
#include "sim/changes.h"
#include "sim/render.h"

#include <algorithm>

namespace qvsim {

namespace {

const char* const kFilesetHeader =
    "vklsfileset::HEADER:version:reserved:reserved:filesystemName:filesetName:id:rootInode:"
    "status:path:parentId:created:inodes:dataInKB:comment:\n";

// A comment is printed as it stands but for its colons and percent signs.
std::string colonsEncoded(const std::string& text)
{
    std::string out;
    for (char ch : text)
        out += ch == ':' ? std::string("%3A") : ch == '%' ? std::string("%25") : std::string(1, ch);
    return out;
}

// An empty column stays empty on the line.
std::string filesetLine(const SimFilesystem& fs, const SimFileset& f)
{
    return "vklsfileset::0:1:::" + fs.name + ":" + f.name + ":" + std::to_string(f.id) + ":" +
           std::to_string(f.rootInode) + ":" + f.status + ":" + percentEncode(f.path) + ":" +
           std::to_string(f.parentId) + ":" + percentEncode(f.created) + ":" +
           std::to_string(f.inodes) + ":" + std::to_string(f.dataInKB) + ":" +
           colonsEncoded(f.comment) + ":\n";
}

SimFileset* filesetOf(SimFilesystem& fs, const std::string& name)
{
    for (auto& f : fs.filesets)
        if (f.name == name)
            return &f;
    return nullptr;
}

SimFileset* filesetAt(SimFilesystem& fs, const std::string& path)
{
    for (auto& f : fs.filesets)
        if (f.status == "Linked" && f.path == path)
            return &f;
    return nullptr;
}

std::string joined(const std::vector<std::string>& w, size_t from, size_t to)
{
    std::string out;
    for (size_t i = from; i < to && i < w.size(); ++i)
        out += (i == from ? "" : " ") + w[i];
    return out;
}

bool fail(ToolAnswer* a, int status, const std::string& tool, const std::string& text)
{
    a->status = status;
    a->out = tool + ": " + text + "\n";
    return true;
}

bool unknownFs(ToolAnswer* a, const std::string& tool, const std::string& fs)
{
    return fail(a, 2, tool, "File system " + fs + " is not known to the cluster.");
}

} // namespace

bool filesetListing(const SimCluster& c, const std::vector<std::string>& w, ToolAnswer* a)
{
    // "vklsfileset FS -LY" and "vklsfileset FS NAME -LidY".
    if (w.size() == 2 && w[1] == "-LY") {
        const SimFilesystem* fs = c.filesystem(w[0]);
        if (fs == nullptr) {
            a->status = 2;
            a->err = "vklsfileset: File system " + w[0] + " is not known to the cluster.\n";
            return true;
        }
        a->out = kFilesetHeader;
        for (const SimFileset& f : fs->filesets)
            a->out += filesetLine(*fs, f);
        return true;
    }
    if (w.size() == 3 && w[2] == "-LidY") {
        const SimFilesystem* fs = c.filesystem(w[0]);
        if (fs == nullptr) {
            a->status = 2;
            a->err = "vklsfileset: File system " + w[0] + " is not known to the cluster.\n";
            return true;
        }
        for (const SimFileset& f : fs->filesets)
            if (f.name == w[1]) {
                a->out = std::string(kFilesetHeader) + filesetLine(*fs, f);
                return true;
            }
        a->status = 2;
        a->err = "vklsfileset: Fileset " + w[1] + " is not found in file system " + w[0] + ".\n";
        return true;
    }
    return false;
}

bool filesetCount(const SimCluster& c, const std::vector<std::string>& w, ToolAnswer* a)
{
    // "kxlsfs FS --fileset-count -Y".
    if (w.size() != 3 || w[1] != "--fileset-count" || w[2] != "-Y")
        return false;
    const SimFilesystem* fs = c.filesystem(w[0]);
    if (fs == nullptr) {
        a->status = 2;
        a->err = "kxlsfs: File system " + w[0] + " is not known to the cluster.\n";
        return true;
    }
    // One line, without a header: the count is read from the first line.
    a->out = "vklsfs::0:1:::" + fs->name + ":filesetCount:" + std::to_string(fs->filesets.size()) + ":\n";
    return true;
}

bool changeFileset(SimCluster& c, const std::string& tool, const std::vector<std::string>& w,
                   ToolAnswer* a)
{
    if (tool == "vkcrfileset") {
        // FS NAME [-t COMMENT...]
        if (w.size() < 2 || (w.size() > 2 && (w[2] != "-t" || w.size() < 4)))
            return fail(a, 1, tool, "usage: vkcrfileset Device FilesetName [-t Comment]");
        SimFilesystem* fs = c.filesystem(w[0]);
        if (fs == nullptr)
            return unknownFs(a, tool, w[0]);
        if (filesetOf(*fs, w[1]) != nullptr)
            return fail(a, 1, tool, "Fileset " + w[1] + " already exists.");
        SimFileset f;
        f.name = w[1];
        for (const auto& x : fs->filesets)
            f.id = std::max(f.id, x.id + 1);
        f.rootInode = 131072LL * f.id + 3;
        f.status = "Unlinked";
        f.path = "--";
        f.created = "Tue Nov 24 12:00:00 2026";
        f.comment = w.size() > 3 ? joined(w, 3, w.size()) : std::string();
        fs->filesets.push_back(f);
        a->out = "Fileset " + f.name + " created with id " + std::to_string(f.id) + " root inode " +
                 std::to_string(f.rootInode) + ".\n";
        return true;
    }
    if (tool == "vklinkfileset") {
        // FS NAME [-J PATH]
        if (w.size() != 2 && !(w.size() == 4 && w[2] == "-J"))
            return fail(a, 1, tool, "usage: vklinkfileset Device FilesetName [-J JunctionPath]");
        SimFilesystem* fs = c.filesystem(w[0]);
        if (fs == nullptr)
            return unknownFs(a, tool, w[0]);
        SimFileset* f = filesetOf(*fs, w[1]);
        if (f == nullptr)
            return fail(a, 2, tool, "Fileset " + w[1] + " is not found.");
        if (f->status == "Linked")
            return fail(a, 1, tool, "Fileset " + w[1] + " is already linked.");
        std::string path = w.size() == 4 ? w[3] : fs->defaultMountPoint + "/" + w[1];
        if (filesetAt(*fs, path) != nullptr)
            return fail(a, 1, tool, "Junction " + path + " is in use.");
        f->status = "Linked";
        f->path = path;
        a->out = "Fileset " + f->name + " linked at " + path + "\n";
        return true;
    }
    if (tool == "vkunlinkfileset") {
        // FS NAME [-f] or FS -J PATH [-f]
        std::vector<std::string> v = w;
        bool force = !v.empty() && v.back() == "-f";
        if (force)
            v.pop_back();
        bool byPath = v.size() == 3 && v[1] == "-J";
        if (v.size() != 2 && !byPath)
            return fail(a, 1, tool, "usage: vkunlinkfileset Device {FilesetName | -J JunctionPath} [-f]");
        SimFilesystem* fs = c.filesystem(v[0]);
        if (fs == nullptr)
            return unknownFs(a, tool, v[0]);
        SimFileset* f = byPath ? filesetAt(*fs, v[2]) : filesetOf(*fs, v[1]);
        if (f == nullptr)
            return fail(a, 2, tool, (byPath ? "No fileset is linked at " : "Fileset ") + (byPath ? v[2] : v[1] + " is not found") + ".");
        if (f->id == 0)
            return fail(a, 1, tool, "The root fileset cannot be unlinked.");
        if (f->status != "Linked")
            return fail(a, 1, tool, "Fileset " + f->name + " is not linked.");
        f->status = "Unlinked";
        f->path = "--";
        a->out = "Fileset " + f->name + " unlinked.\n";
        return true;
    }
    if (tool == "vkdelfileset") {
        // FS NAME [-f]
        if (w.size() != 2 && !(w.size() == 3 && w[2] == "-f"))
            return fail(a, 1, tool, "usage: vkdelfileset Device FilesetName [-f]");
        SimFilesystem* fs = c.filesystem(w[0]);
        if (fs == nullptr)
            return unknownFs(a, tool, w[0]);
        SimFileset* f = filesetOf(*fs, w[1]);
        if (f == nullptr)
            return fail(a, 2, tool, "Fileset " + w[1] + " is not found.");
        if (f->id == 0)
            return fail(a, 1, tool, "The root fileset cannot be deleted.");
        if (f->status == "Linked" && w.size() != 3)
            return fail(a, 1, tool, "Fileset " + w[1] + " is linked; unlink it first or use -f.");
        std::string name = f->name;
        fs->filesets.erase(std::remove_if(fs->filesets.begin(), fs->filesets.end(),
                                          [&](const SimFileset& x) { return x.name == name; }),
                           fs->filesets.end());
        a->out = "Fileset " + name + " deleted.\n";
        return true;
    }
    if (tool == "vkchfileset") {
        // FS {NAME | -J PATH} [-j NEWNAME] [-t COMMENT]
        if (w.size() < 2)
            return fail(a, 1, tool, "usage: vkchfileset Device {FilesetName | -J JunctionPath} [-j NewName] [-t Comment]");
        SimFilesystem* fs = c.filesystem(w[0]);
        if (fs == nullptr)
            return unknownFs(a, tool, w[0]);
        size_t i = 1;
        SimFileset* f = nullptr;
        if (w[1] == "-J" && w.size() > 2) {
            f = filesetAt(*fs, w[2]);
            i = 3;
        } else {
            f = filesetOf(*fs, w[1]);
            i = 2;
        }
        if (f == nullptr)
            return fail(a, 2, tool, "Fileset " + w[i - 1] + " is not found.");
        std::string newName = f->name, comment = f->comment;
        for (; i < w.size(); ++i) {
            if (w[i] == "-j" && i + 1 < w.size())
                newName = w[++i];
            else if (w[i] == "-t" && i + 1 < w.size())
                comment = w[++i];
            else
                return fail(a, 1, tool, "unexpected argument " + w[i]);
        }
        if (newName != f->name && filesetOf(*fs, newName) != nullptr)
            return fail(a, 1, tool, "Fileset " + newName + " already exists.");
        f->name = newName;
        f->comment = comment;
        a->out = "Fileset " + f->name + " changed.\n";
        return true;
    }
    return false;
}

} // namespace qvsim

// ---------------------------------------------------------------------------
// Quotas and access control lists.

namespace qvsim {

namespace {

const char* const kQuotaHeader =
    "vklsquota::HEADER:version:reserved:reserved:filesystemName:quotaType:id:name:blockUsage:"
    "blockQuota:blockLimit:blockInDoubt:blockGrace:filesUsage:filesQuota:filesLimit:filesInDoubt:"
    "filesGrace:remarks:\n";

std::string quotaType(const std::string& option)
{
    return option == "-g" ? "GRP" : (option == "-j" ? "FILESET" : "USR");
}

SimQuota* quotaOf(SimFilesystem& fs, const std::string& type, const std::string& name)
{
    for (auto& q : fs.quotas)
        if (q.type == type && q.name == name)
            return &q;
    return nullptr;
}

// A number of -S, -H ("N") or -s, -h ("NK", thousands of files).
bool limitOf(const std::string& text, bool files, long long* out)
{
    std::string digits = text;
    long long scale = 1;
    if (files && !digits.empty() && (digits.back() == 'K' || digits.back() == 'k')) {
        digits.pop_back();
        scale = 1000;
    }
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos)
        return false;
    *out = std::stoll(digits) * scale;
    return true;
}

} // namespace

std::string quotaLine(const SimFilesystem& fs, const SimQuota& q)
{
    return "vklsquota::0:1:::" + fs.name + ":" + q.type + ":" + std::to_string(q.id) + ":" + q.name + ":" +
           std::to_string(q.blockUsage) + ":" + std::to_string(q.blockQuota) + ":" +
           std::to_string(q.blockLimit) + ":" + std::to_string(q.blockInDoubt) + ":" + q.blockGrace + ":" +
           std::to_string(q.filesUsage) + ":" + std::to_string(q.filesQuota) + ":" +
           std::to_string(q.filesLimit) + ":" + std::to_string(q.filesInDoubt) + ":" + q.filesGrace + ":" +
           q.remarks + ":\n";
}

bool quotaTool(SimCluster& c, const std::string& tool, const std::vector<std::string>& w, ToolAnswer* a)
{
    if (tool == "vklsquota") {
        // {-u|-g|-j} NAME -Y FS
        if (w.size() != 4 || w[2] != "-Y")
            return fail(a, 1, tool, "usage: vklsquota {-u User | -g Group | -j Fileset} -Y Device");
        SimFilesystem* fs = c.filesystem(w[3]);
        if (fs == nullptr) {
            a->status = 2;
            a->err = "vklsquota: File system " + w[3] + " is not known to the cluster.\n";
            return true;
        }
        a->out = kQuotaHeader;
        if (SimQuota* q = quotaOf(*fs, quotaType(w[0]), w[1])) {
            a->out += quotaLine(*fs, *q);
        } else {
            SimQuota none;
            none.type = quotaType(w[0]);
            none.name = w[1];
            none.remarks = "default";
            a->out += quotaLine(*fs, none);
        }
        return true;
    }
    if (tool == "vksetquota") {
        // [-u|-g|-j NAME] [-S N] [-H N] [-s NK] [-h NK] FS
        std::string type = "USR", name, fsName;
        long long S = -1, H = -1, s = -1, h = -1;
        for (size_t i = 0; i < w.size(); ++i) {
            const std::string& o = w[i];
            bool hasValue = i + 1 < w.size();
            if ((o == "-u" || o == "-g" || o == "-j") && hasValue) {
                type = quotaType(o);
                name = w[++i];
            } else if ((o == "-S" || o == "-H" || o == "-s" || o == "-h") && hasValue) {
                long long v = 0;
                if (!limitOf(w[i + 1], o == "-s" || o == "-h", &v))
                    return fail(a, 1, tool, "Invalid limit " + w[i + 1] + " for " + o + ".");
                ++i;
                (o == "-S" ? S : o == "-H" ? H : o == "-s" ? s : h) = v;
            } else if (fsName.empty() && o[0] != '-') {
                fsName = o;
            } else {
                return fail(a, 1, tool, "Incorrect option " + o + ".");
            }
        }
        if (name.empty() || fsName.empty())
            return fail(a, 1, tool, "usage: vksetquota {-u User | -g Group | -j Fileset} [-S N] [-H N] [-s NK] [-h NK] Device");
        SimFilesystem* fs = c.filesystem(fsName);
        if (fs == nullptr)
            return unknownFs(a, tool, fsName);
        SimQuota* q = quotaOf(*fs, type, name);
        if (q == nullptr) {
            fs->quotas.push_back(SimQuota());
            q = &fs->quotas.back();
            q->type = type;
            q->name = name;
            q->id = static_cast<int>(fs->quotas.size()) + 2000;
        }
        if (S >= 0)
            q->blockQuota = S;
        if (H >= 0)
            q->blockLimit = H;
        if (s >= 0)
            q->filesQuota = s;
        if (h >= 0)
            q->filesLimit = h;
        return true;
    }
    if (tool == "vkgetacl") {
        // [-k TYPE] PATH
        std::string path = w.empty() ? std::string() : w.back();
        if (w.empty() || (w.size() != 1 && !(w.size() == 3 && w[0] == "-k")))
            return fail(a, 1, tool, "usage: vkgetacl [-k {nfs4|posix|native}] Path");
        auto it = c.acls.find(path);
        a->out = it != c.acls.end() ? it->second
                                    : "#owner:root\n#group:root\nuser::rwxc\ngroup::r-x-\nother::r-x-\n";
        return true;
    }
    return false;
}

bool putAcl(SimCluster& c, const std::vector<std::string>& w, const std::string& input, ToolAnswer* a)
{
    if (w.size() != 1)
        return fail(a, 1, "vkputacl", "usage: vkputacl Path < ACL");
    if (input.empty())
        return fail(a, 1, "vkputacl", "No ACL was given on the standard input.");
    c.acls[w[0]] = input;
    return true;
}

} // namespace qvsim
