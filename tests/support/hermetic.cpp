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
    // The test binary's directory (death tests may run it again) and the
    // library's stay reachable.
    qvsim::enterPrivateNamespace({qvsim::directoryOf(qvsim::selfExecutable()),
                                  qvsim::directoryOfObject(reinterpret_cast<const void*>(&libquelvaneVersion))},
                                 "quelvane test harness");
}

} // namespace qvtest
