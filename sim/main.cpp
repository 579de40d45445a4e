// quelvane-sim: a simulated cluster at the library's real socket and tool
// paths. One executable plays three parts:
//   quelvane-sim run [OPTIONS] -- COMMAND [ARG...]   the cluster, around COMMAND
//   quelvane-sim ctl VERB [ARG...]                   changes it from inside
//   <tool name> ARG...                               a tool (installed as links)

#include "sim/config.h"
#include "sim/daemon.h"
#include "sim/generate.h"
#include "sim/private_namespace.h"
#include "sim/render.h"

#include <quelvane/version.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace qvsim;

namespace {

const char* const kUsage =
    "usage:\n"
    "  quelvane-sim run [--config FILE] [--nodes N] [--filesystems F] [--pools-per-fs P]\n"
    "                   [--disks-per-pool D] [--free-disks K] [--filesets-per-fs S]\n"
    "                   [--recovery-groups R] [--seed X] [--cluster NAME] -- COMMAND [ARG...]\n"
    "  quelvane-sim ctl VERB [ARG...]\n"
    "\n"
    "run   makes a simulated cluster in a private mount namespace (needs root): the daemon\n"
    "      on /var/vesk/tavrel/tavrelSocket, the tools under /usr/kpx/vesk/bin; runs\n"
    "      COMMAND inside it and exits with COMMAND's status.\n"
    "ctl   changes the running simulation: fail-node NAME, recover-node NAME,\n"
    "      disk-down FS DISK, disk-up FS DISK, add-disk FS POOL DISK, delete-disk FS DISK,\n"
    "      create-fs NAME, delete-fs NAME, event WORD [KEYWORD VALUE]..., tick SECONDS,\n"
    "      dump, stop.\n";

std::string baseName(const std::string& path)
{
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool isTool(const std::string& name)
{
    for (const std::string& t : allToolNames())
        if (t == name)
            return true;
    return false;
}

int emit(const ControlReply& r)
{
    fwrite(r.out.data(), 1, r.out.size(), stdout);
    fflush(stdout);
    fwrite(r.err.data(), 1, r.err.size(), stderr);
    return r.status;
}

// The absolute path of COMMAND, searched in PATH when it has no slash.
std::string resolveCommand(const std::string& cmd)
{
    char real[PATH_MAX];
    if (cmd.find('/') != std::string::npos)
        return realpath(cmd.c_str(), real) != nullptr && access(real, X_OK) == 0 ? real : std::string();
    const char* path = getenv("PATH");
    std::string p = path != nullptr ? path : "/usr/local/bin:/usr/bin:/bin";
    size_t start = 0;
    while (start <= p.size()) {
        size_t colon = p.find(':', start);
        std::string dir = p.substr(start, colon == std::string::npos ? std::string::npos : colon - start);
        std::string candidate = (dir.empty() ? "." : dir) + "/" + cmd;
        if (access(candidate.c_str(), X_OK) == 0 && realpath(candidate.c_str(), real) != nullptr)
            return real;
        if (colon == std::string::npos)
            break;
        start = colon + 1;
    }
    return std::string();
}

bool parseInt(const char* text, int* out)
{
    char* end = nullptr;
    errno = 0;
    long v = strtol(text, &end, 10);
    if (errno != 0 || *end != '\0' || end == text || v < 0 || v > 1000000)
        return false;
    *out = static_cast<int>(v);
    return true;
}

volatile sig_atomic_t gChild = 0;

void forward(int sig)
{
    if (gChild > 0)
        kill(gChild, sig);
}

int run(int argc, char** argv)
{
    ClusterShape shape;
    std::string config;
    int i = 2;
    // The configuration file is read first, so that options given beside it win.
    for (int k = 2; k < argc && strcmp(argv[k], "--") != 0; ++k)
        if (strcmp(argv[k], "--config") == 0 && k + 1 < argc)
            config = argv[k + 1];
    std::string error;
    if (!config.empty() && !readShape(config, &shape, &error)) {
        fprintf(stderr, "quelvane-sim: %s\n", error.c_str());
        return 2;
    }
    struct IntOption {
        const char* name;
        int* field;
    } ints[] = {{"--nodes", &shape.nodes},
                {"--filesystems", &shape.filesystems},
                {"--pools-per-fs", &shape.poolsPerFs},
                {"--disks-per-pool", &shape.disksPerPool},
                {"--free-disks", &shape.freeDisks},
                {"--filesets-per-fs", &shape.filesetsPerFs},
                {"--recovery-groups", &shape.recoveryGroups}};
    for (; i < argc && strcmp(argv[i], "--") != 0; ++i) {
        std::string opt = argv[i];
        if (opt == "-h" || opt == "--help") {
            fputs(kUsage, stdout);
            return 0;
        }
        if (i + 1 >= argc) {
            fprintf(stderr, "quelvane-sim: %s needs a value\n%s", opt.c_str(), kUsage);
            return 2;
        }
        const char* value = argv[++i];
        bool known = false;
        for (const IntOption& o : ints)
            if (opt == o.name) {
                known = true;
                if (!parseInt(value, o.field)) {
                    fprintf(stderr, "quelvane-sim: %s takes a whole number, not \"%s\"\n", o.name, value);
                    return 2;
                }
            }
        if (known)
            continue;
        if (opt == "--config")
            continue;
        if (opt == "--seed") {
            char* end = nullptr;
            shape.seed = strtoull(value, &end, 10);
            if (*end != '\0' || end == value) {
                fprintf(stderr, "quelvane-sim: --seed takes a whole number, not \"%s\"\n", value);
                return 2;
            }
        } else if (opt == "--cluster") {
            if (*value == '\0' || strchr(value, ' ') != nullptr) {
                fprintf(stderr, "quelvane-sim: --cluster takes one word\n");
                return 2;
            }
            shape.clusterName = value;
        } else {
            fprintf(stderr, "quelvane-sim: unknown option %s\n%s", opt.c_str(), kUsage);
            return 2;
        }
    }
    if (i >= argc - 1) {
        fprintf(stderr, "quelvane-sim run: no COMMAND given after \"--\"\n%s", kUsage);
        return 2;
    }
    if (shape.nodes < 1) {
        fprintf(stderr, "quelvane-sim: a cluster needs at least one node\n");
        return 2;
    }
    if (geteuid() != 0) {
        fprintf(stderr,
                "quelvane-sim run: needs root: it makes a private mount namespace with tmpfs over\n"
                "/var/vesk, /usr/kpx and /tmp so that the daemon's socket and the tools stand at\n"
                "their real paths without touching this machine. Run it as root (or with sudo).\n");
        return 2;
    }

    SimCluster model = generateCluster(shape);
    if (!config.empty() && !applyOverrides(config, &model, &error)) {
        fprintf(stderr, "quelvane-sim: %s\n", error.c_str());
        return 2;
    }

    std::vector<std::string> command(argv + i + 1, argv + argc);
    std::string exe = resolveCommand(command[0]);
    if (exe.empty()) {
        fprintf(stderr, "quelvane-sim run: %s: command not found\n", command[0].c_str());
        return 127;
    }
    char cwd[PATH_MAX];
    std::string here = getcwd(cwd, sizeof(cwd)) != nullptr ? cwd : "/";
    std::string self = selfExecutable();
    std::vector<std::string> keep = {directoryOf(self), directoryOfObject(reinterpret_cast<const void*>(&libquelvaneVersion)), directoryOf(exe), here};
    // Arguments naming existing files or directories stay reachable too.
    for (size_t k = 1; k < command.size(); ++k) {
        char real[PATH_MAX];
        struct stat st;
        if (command[k].find('/') != std::string::npos && realpath(command[k].c_str(), real) != nullptr &&
            stat(real, &st) == 0)
            keep.push_back(S_ISDIR(st.st_mode) ? std::string(real) : directoryOf(real));
    }
    enterPrivateNamespace(keep, "quelvane-sim");
    if (chdir(here.c_str()) != 0) {
        // The working directory is kept; a failure leaves the command in "/".
    }

    for (const std::string& tool : allToolNames()) {
        std::string link = std::string(kToolDir) + "/" + tool;
        if (symlink(self.c_str(), link.c_str()) != 0) {
            fprintf(stderr, "quelvane-sim: installing %s: %s\n", link.c_str(), strerror(errno));
            return 2;
        }
    }

    SimDaemon daemon(std::move(model));
    if (!daemon.start(&error)) {
        fprintf(stderr, "quelvane-sim: %s\n", error.c_str());
        return 2;
    }
    std::thread watcher([&daemon] {
        daemon.waitForStopRequest();
        daemon.stop();
    });

    pid_t pid = fork();
    if (pid < 0) {
        fprintf(stderr, "quelvane-sim: fork: %s\n", strerror(errno));
        daemon.stop();
        watcher.join();
        return 2;
    }
    if (pid == 0) {
        std::vector<char*> args;
        for (std::string& a : command)
            args.push_back(&a[0]);
        args.push_back(nullptr);
        // The tools are found through the search path too, and the command can
        // reach the simulator for "ctl".
        std::string path = std::string(kToolDir) + ":" + (getenv("PATH") != nullptr ? getenv("PATH") : "/usr/bin:/bin");
        setenv("PATH", path.c_str(), 1);
        setenv("QUELVANE_SIM", self.c_str(), 1);
        execv(exe.c_str(), args.data());
        fprintf(stderr, "quelvane-sim run: %s: %s\n", exe.c_str(), strerror(errno));
        _exit(127);
    }
    gChild = pid;
    struct sigaction sa {};
    sa.sa_handler = forward;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGHUP, &sa, nullptr);

    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    daemon.stop();
    watcher.join();
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        return 128 + WTERMSIG(status);
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    std::string name = baseName(argc > 0 ? argv[0] : "quelvane-sim");
    if (isTool(name)) {
        std::vector<std::string> args(argv + 1, argv + argc);
        std::vector<std::string> words = {name};
        words.insert(words.end(), args.begin(), args.end());
        if (name == "vkputacl") {
            // The ACL comes on the standard input.
            std::string input;
            char buf[4096];
            size_t n;
            while ((n = fread(buf, 1, sizeof(buf), stdin)) > 0)
                input.append(buf, n);
            words.push_back(input);
            return emit(controlCall("tool-stdin", words));
        }
        return emit(controlCall("tool", words));
    }
    if (argc < 2 || strcmp(argv[1], "-h") == 0 || strcmp(argv[1], "--help") == 0) {
        fputs(kUsage, argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    if (strcmp(argv[1], "--version") == 0) {
        printf("quelvane-sim %s (libquelvane %d)\n", QUELVANE_VERSION_TEXT, libquelvaneVersion());
        return 0;
    }
    if (strcmp(argv[1], "run") == 0)
        return run(argc, argv);
    if (strcmp(argv[1], "ctl") == 0) {
        if (argc < 3) {
            fputs(kUsage, stderr);
            return 2;
        }
        return emit(controlCall("ctl", std::vector<std::string>(argv + 2, argv + argc)));
    }
    if (isTool(argv[1])) {
        // "quelvane-sim TOOL ARG..." behaves as the tool itself.
        std::vector<std::string> words(argv + 1, argv + argc);
        return emit(controlCall("tool", words));
    }
    fprintf(stderr, "quelvane-sim: unknown command \"%s\"\n%s", argv[1], kUsage);
    return 2;
}
