#ifndef QUELVANE_FILE_OWNER_H
#define QUELVANE_FILE_OWNER_H

#include <quelvane/export.h>

// The owner, group and path of a file or directory, for the ownership and
// ACL operations of PollingHandler. Passed by value.
struct QUELVANE_API FileOrDirOwner
{
    char owner[256];    // user name, or empty
    char group[256];    // group name, or empty
    char path[256];     // the file or directory
};

#endif
