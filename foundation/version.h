#ifndef QUELVANE_VERSION_H
#define QUELVANE_VERSION_H

#include <quelvane/export.h>

// The library's own version number. The daemon states its version through the
// configuration tool; the library refuses to start against a newer daemon.
QUELVANE_API int libquelvaneVersion();

#endif
