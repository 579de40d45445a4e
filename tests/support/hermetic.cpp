#include "support/hermetic.h"

#include "sim/private_namespace.h"

#include <quelvane/version.h>

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

namespace qvtest {

void keepStandardDescriptorsOpen()
{
    for (int fd = 0; fd <= 2; ++fd) {
        if (fcntl(fd, F_GETFD) == -1) {
            int n = open("/dev/null", O_RDWR);
            if (n >= 0 && n != fd) {
                dup2(n, fd);
                close(n);
            }
        }
    }
}

void enterHermeticNamespace()
{
    // The test binary's directory (death tests may run it again), the
    // library's, and the whole build tree (the simulator, the shared library
    // and the programs that tests run) stay reachable, also when the tree
    // lies under /tmp; so does the source tree.
    std::vector<std::string> keep = {qvsim::directoryOf(qvsim::selfExecutable()),
                                     qvsim::directoryOfObject(reinterpret_cast<const void*>(&libquelvaneVersion))};
#ifdef QUELVANE_BUILD_ROOT
    keep.push_back(QUELVANE_BUILD_ROOT);
#endif
#ifdef QUELVANE_SOURCE_ROOT
    keep.push_back(QUELVANE_SOURCE_ROOT);   // files the tests read from the sources
#endif
    qvsim::enterPrivateNamespace(keep, "quelvane test harness");
}

} // namespace qvtest
