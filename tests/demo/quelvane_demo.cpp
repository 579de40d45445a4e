// Demonstration: runs the example program quelvane_request against a scripted
// stand-in for the daemon, inside a private mount namespace, so that nothing
// of the machine is touched and no real daemon is needed.
//   quelvane_demo [PATH_OF_quelvane_request]
#include "support/fake_daemon.h"
#include "support/hermetic.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

std::string requestProgram(int argc, char** argv)
{
    if (argc > 1)
        return argv[1];
#ifdef QUELVANE_REQUEST_PATH
    return QUELVANE_REQUEST_PATH;
#else
    char self[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (n <= 0)
        return "quelvane_request";
    self[n] = '\0';
    std::string dir(self);
    return dir.substr(0, dir.rfind('/')) + "/quelvane_request";
#endif
}

// Runs the example with one request; its output goes straight to ours. The
// program is run from a descriptor opened before the namespace was entered,
// since its directory may lie under a path that the namespace hides.
int runRequest(int programFd, const std::string& program, const std::string& request)
{
    printf("\n$ quelvane_request '%s'\n", request.c_str());
    fflush(stdout);
    fflush(stderr);
    pid_t pid = fork();
    if (pid < 0) {
        perror("fork");
        return -1;
    }
    if (pid == 0) {
        char* const args[] = {const_cast<char*>(program.c_str()), const_cast<char*>(request.c_str()), nullptr};
        fexecve(programFd, args, environ);
        fprintf(stderr, "cannot run %s: %s\n", program.c_str(), strerror(errno));
        _exit(127);
    }
    int status = 0;
    if (waitpid(pid, &status, 0) < 0)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace

int main(int argc, char** argv)
{
    std::string program = requestProgram(argc, argv);
    char resolved[PATH_MAX];
    if (realpath(program.c_str(), resolved) == nullptr) {
        fprintf(stderr, "quelvane_demo: cannot find %s: %s\n", program.c_str(), strerror(errno));
        return 1;
    }
    program = resolved;
    int programFd = open(resolved, O_RDONLY | O_CLOEXEC);
    if (programFd < 0) {
        fprintf(stderr, "quelvane_demo: cannot open %s: %s\n", resolved, strerror(errno));
        return 1;
    }

    // Private /var/vesk, /usr/kpx and /tmp: the stand-in daemon listens at the
    // library's fixed socket path without touching the machine.
    qvtest::keepStandardDescriptorsOpen();
    qvtest::enterHermeticNamespace();

    qvtest::FakeDaemon daemon;
    daemon.respond("get nodes",
                   {"_node_ _name_ 'alpha-01' _ip_ 10.0.0.1 _status_ up _role_ manager",
                    "_event_ nodeDown _node_ 10.0.0.7 _time_ 1763755130",
                    "_node_ _name_ 'alpha-02' _ip_ 10.0.0.2 _status_ up _role_ client"});
    daemon.respond("get clusterinfo",
                   {"_cluster_ _name_ 'demo.cluster' _id_ 1290034456 _type_ local _nodes_ 2"});
    daemon.respond("tavrel v", {"_tavrel::v_ _rc_ 0 _version_ 3504"});

    printf("Stand-in daemon listening on %s\n", daemon.path().c_str());
    printf("Scripted: \"get nodes\" answers two _node_ lines with an _event_ line between them\n");
    printf("(event lines are taken out of the response stream; without a callback they vanish).\n");

    const std::vector<std::string> requests = {"get nodes", "  get clusterinfo", "tavrel v"};
    int failures = 0;
    for (const std::string& r : requests) {
        int rc = runRequest(programFd, program, r);
        if (rc != 0) {
            printf("(quelvane_request exited with %d)\n", rc);
            ++failures;
        }
    }

    printf("\nRequest lines the daemon received:\n");
    for (const std::string& line : daemon.requestLines())
        printf("  \"%s\"\n", line.c_str());
    daemon.stop();
    return failures == 0 ? 0 : 1;
}
