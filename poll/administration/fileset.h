#ifndef QUELVANE_FILESET_H
#define QUELVANE_FILESET_H

#include <cstdint>

#include <quelvane/export.h>

// One fileset as the fileset listing tool prints it. Plain data, passed by
// value to the fileset change operations.
struct QUELVANE_API FileSet
{
    int column3;            // token 3, a number
    char name[256];         // token 7, fileset name, the key
    char fsName[256];       // token 6, filesystem name
    char column8[256];      // token 8
    char column9[256];      // token 9
    char column10[256];     // token 10
    char path[1024];        // token 11, percent-decoded
    char column12[256];     // token 12
    int64_t column14;       // token 14, a number
    char created[32];       // token 13, as getTimeStampInMilliseconds makes it
    int64_t column15;       // token 15, a number
    char comment[256];      // token 16
};

#endif
