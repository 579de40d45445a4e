#include "sim/private_namespace.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace qvsim {

namespace {

std::string gWho = "quelvane";

[[noreturn]] void die(const std::string& what)
{
    int e = errno;
    fprintf(stderr, "%s: %s: %s\n", gWho.c_str(), what.c_str(), strerror(e));
    if (e == EPERM)
        fprintf(stderr,
                "%s places a daemon socket and tools at the library's fixed paths inside a\n"
                "private mount namespace; this needs root (CAP_SYS_ADMIN).\n",
                gWho.c_str());
    exit(2);
}

void mkdirs(const std::string& path)
{
    std::string cur;
    size_t pos = 0;
    while (pos != std::string::npos) {
        pos = path.find('/', pos + 1);
        cur = path.substr(0, pos);
        if (!cur.empty() && mkdir(cur.c_str(), 0755) != 0 && errno != EEXIST)
            die("mkdir " + cur);
    }
}

bool isDir(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

void mountTmpfs(const std::string& where)
{
    if (mount("tmpfs", where.c_str(), "tmpfs", 0, "mode=0755") != 0)
        die("mount tmpfs on " + where);
}

// Gives `dir` (for example /usr/kpx) a tmpfs of its own. Where `dir` does not
// exist, its parent is first covered by an overlay whose upper layer lives in
// `stage`, so that the mount point is made without touching the machine; if
// overlays are unavailable the empty mount point is made on the host.
void privateDir(const std::string& dir, const std::string& stage)
{
    if (!isDir(dir)) {
        std::string parent = dir.substr(0, dir.rfind('/'));
        std::string upper = stage + parent + "/upper";
        std::string work = stage + parent + "/work";
        mkdirs(upper);
        mkdirs(work);
        std::string opts = "lowerdir=" + parent + ",upperdir=" + upper + ",workdir=" + work;
        if (mount("overlay", parent.c_str(), "overlay", 0, opts.c_str()) != 0) {
            // No overlay here: fall back to an empty directory on the host.
        }
        mkdirs(dir);
    }
    mountTmpfs(dir);
}

bool under(const std::string& path, const std::string& top)
{
    return path == top || path.compare(0, top.size() + 1, top + "/") == 0;
}

} // namespace

std::string directoryOf(const std::string& path)
{
    size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string selfExecutable()
{
    char buf[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", buf, sizeof(buf) - 1);
    if (n <= 0)
        return std::string();
    buf[n] = '\0';
    return buf;
}

std::string directoryOfObject(const void* address)
{
    Dl_info info;
    if (dladdr(address, &info) == 0 || info.dli_fname == nullptr)
        return std::string();
    char real[PATH_MAX];
    if (realpath(info.dli_fname, real) == nullptr)
        return std::string();
    return directoryOf(real);
}

void enterPrivateNamespace(const std::vector<std::string>& keep, const std::string& who)
{
    gWho = who;

    if (unshare(CLONE_NEWNS) != 0)
        die("unshare(CLONE_NEWNS)");
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        die("making mounts private");

    const char* hidden[] = {"/tmp", "/var/vesk", "/usr/kpx"};
    std::vector<std::pair<std::string, int>> rebinds;
    for (const std::string& k : keep) {
        if (k.empty() || k[0] != '/')
            continue;
        for (const char* h : hidden) {
            if (under(k, h)) {
                int fd = open(k.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
                if (fd >= 0)
                    rebinds.emplace_back(k, fd);
                break;
            }
        }
    }


    // A first tmpfs on /tmp holds the overlay layers; a second one hides them.
    mountTmpfs("/tmp");
    const std::string stage = "/tmp/.quelvane-stage";
    privateDir("/var/vesk", stage);
    privateDir("/usr/kpx", stage);
    mountTmpfs("/tmp");

    mkdirs("/var/vesk/tavrel");
    mkdirs("/var/vesk/gen");
    mkdirs("/usr/kpx/vesk/bin");

    for (auto& [path, fd] : rebinds) {
        mkdirs(path);
        std::string src = "/proc/self/fd/" + std::to_string(fd);
        if (mount(src.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) != 0)
            die("binding back " + path);
        close(fd);
    }
}

} // namespace qvsim
