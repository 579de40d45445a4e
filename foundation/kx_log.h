#ifndef QUELVANE_KX_LOG_H
#define QUELVANE_KX_LOG_H

#include <cstdio>
#include <string>
#include <vector>

#include <quelvane/export.h>

// The open log stream; null means that logging is off.
extern QUELVANE_API FILE* QuelvaneLogFileP;
// Level names, indexed by level: "INFO", "WARNING", "ERROR", "SEVERE".
extern QUELVANE_API const char* QuelvaneLogLevelNamesP[4];
// Stored for the application; no message is filtered by it.
extern QUELVANE_API int log_level;
// Backups that log_update keeps beyond the newest one.
extern QUELVANE_API int log_count;
// Size in KiB at which log_update rotates the log.
extern QUELVANE_API int log_size;
// Path names of the backups made by log_update, oldest first.
extern QUELVANE_API std::vector<std::string> log_list;

// Writes one message to the log stream when one is open; silent otherwise.
// Levels 0 INFO, 1 WARNING, 2 ERROR, 3 SEVERE; levels 2 and up are also
// mirrored to stderr (only while a log is open). `fmt` carries its own newline.
QUELVANE_API void kx_log(int level, const char* who, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));

// Writes the first line of `text` to stderr with a time prefix, always.
QUELVANE_API int kx_print(const char* text);

// Rotates "/var/vesk/gen/quelvanelog" once it has reached log_size KiB.
QUELVANE_API void log_update();

// Size of a file in KiB, rounded down; 0 for a file that cannot be stat'ed.
QUELVANE_API long file_size(char* path);

#endif
