#ifndef QUELVANE_RG_LINES_INTERNAL_H
#define QUELVANE_RG_LINES_INTERNAL_H

// The line templates of the recovery group tools and one parser per
// template: each takes one tool line and gives the number of fields that its
// template matched (the sscanf count), so that it can be called on its own.

#include <cstddef>

namespace qv_rg {

// Field buffers of one line. The texts are 400 bytes, as the lines are.
struct RgLineFields
{
    int n1;                     // column 3 of vksdrquery, column 4 elsewhere
    int n2;                     // column 4 of vksdrquery
    char t[10][400];            // the text columns, in template order
    int i[6];                   // the int columns, in template order
    long long ll;               // the 64-bit column
    float f;                    // the floating-point column (pdisk value)

    // Clears every field (the scans clear them before each line).
    void clear();
    // Clears the two numbers only (the repository readers keep the texts).
    void clearNumbers();
};

enum RgTemplate
{
    kConfigLine,        // vklsconfig: n1, t0 name, t1 value                       (4 fields)
    kSdrLine,           // vksdrquery: n1 status, n2, t0 name, t1 servers, t2 id  (5)
    kRgSummaryLine,     // n1, t0 name, i0 arrays, i1 vdisks, i2 pdisks            (5)
    kDaSummaryLine,     // n1, t0 name, t1 needsService, i0 vdisks, i1 pdisks,
                        // i2 spares, i3 replaceThreshold, ll freeSpace,
                        // i4 scrubDuration, t2 task, i5 percent, t3 priority      (12)
    kServerLine,        // n1, t0 active server, t1 server list                    (3)
    kPdiskLine,         // n1, f value, t0 name, t1 text1, t2, t3 dropped,
                        // t4 text2, ll number, t5 text3, t6 text4                 (10)
    kVdiskLine,         // n1, t0 name, t1 text1, t2, t3 dropped, i0 value,
                        // ll number, t4 text2, t5 text3                           (9)
    kRgTemplateCount
};

// The literal template of each kind, as sscanf reads it.
extern const char* const kRgTemplates[kRgTemplateCount];

// Scans `line` with the template of `kind` into `f` (which is not cleared
// here); the result is the number of fields matched, or -1 at once at the
// line's end.
int parseRgLine(RgTemplate kind, const char* line, RgLineFields* f);

// The pdisk value as the library keeps it: the number cut toward zero, and
// the lowest int for a number that no int holds.
int pdiskValueOf(float value);

} // namespace qv_rg

#endif
