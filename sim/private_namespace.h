#ifndef QUELVANE_SIM_PRIVATE_NAMESPACE_H
#define QUELVANE_SIM_PRIVATE_NAMESPACE_H

// A private mount namespace in which the daemon's socket and the tools stand
// at their real paths without touching the machine: fresh tmpfs over
// /var/vesk, /usr/kpx and /tmp, with /var/vesk/tavrel, /var/vesk/gen and
// /usr/kpx/vesk/bin made in them.

#include <string>
#include <vector>

namespace qvsim {

// Enters the namespace. The directories in `keep` stay reachable at their
// paths even where they lie under one of the covered trees (a program under
// /tmp, say). On failure prints "WHO: WHAT: REASON" (and, without the right
// to make mounts, that root is needed) and ends the process with status 2.
void enterPrivateNamespace(const std::vector<std::string>& keep, const std::string& who);

// The directory part of a path ("/" for "/x", "." for "x").
std::string directoryOf(const std::string& path);

// The absolute path of the running executable, empty if unknown.
std::string selfExecutable();

// The directory of the executable or shared library that holds `address`
// (a function of it), empty if unknown.
std::string directoryOfObject(const void* address);

} // namespace qvsim

#endif
