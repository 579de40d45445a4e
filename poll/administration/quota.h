#ifndef QUELVANE_QUOTA_H
#define QUELVANE_QUOTA_H

#include <cstdint>
#include <string>

#include <quelvane/export.h>

// One quota record as the quota listing tool prints it (PollingHandler::
// getQuota). Fields are named by the tool's token they come from; their
// meaning is the tool's. Texts are appended to and numbers overwritten, so a
// record used for a second call, or filled from several lines, holds the
// numbers of the last line and the texts of all lines: pass a fresh record
// for a fresh result. An empty column comes as the text "" (two double
// quotes), which a number reads as 0.
struct QUELVANE_API Quota
{
    int column2;
    int column3;
    std::string column6;
    int16_t quotaType;          // the type given to getQuota, not the tool's word
    int column8;
    std::string column9;
    int64_t column10;
    int64_t column11;
    int64_t column12;
    int column13;               // cut to 32 bits
    std::string column14;
    int64_t column15;
    int64_t column16;
    int64_t column17;
    int column18;               // cut to 32 bits
    std::string column19;
    std::string column20;
};

#endif
