#include "support/etc_files.h"

#include "support/files.h"

#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace qvtest {

void bindOverEtc(const std::string& name, const std::string& content)
{
    std::string copy = "/tmp/.etc/" + name;
    makeDirs("/tmp/.etc");
    writeFile(copy, content);
    std::string target = "/etc/" + name;
    if (mount(copy.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) != 0)
        throw std::runtime_error("cannot bind " + copy + " over " + target + ": " + strerror(errno));
}

} // namespace qvtest
