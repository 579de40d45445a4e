// The recovery group tools' line templates and their parsers.

#include "recoverygroups/rg_lines_internal.h"

#include <climits>
#include <cstdio>
#include <cstring>

namespace qv_rg {

const char* const kRgTemplates[kRgTemplateCount] = {
    "vklsconfig::%d:%d:::%[^:]:%[^:]::",
    "vksdrquery:sdrq_recovery_group_info:%d:%d:::%[^:]:%[^:]:%[^:]:",
    "vklsrecoverygroup:rgSummary:0:%d:::%[^:]:%d:%d:%d:",
    "vklsrecoverygroup:daSummary:0:%d:::%[^:]:%[^:]:%d:%d:%d:%d:%lld:%d:%[^:]:%d:%[^:]:",
    "vklsrecoverygroup:server:0:%d:::%[^:]:%[^:]:",
    "vklspdisk:pdisk:0:%d:::%f:%[^:]:%[^:]:%[^:]:%[^:]:%[^:]:%lld:%[^:]:%[^:]::",
    "vklsvdisk:vdisk:0:%d:::%[^:]:%[^:]:%[^:]:%[^:]:%d:%lld:%[^:]:%[^:]:",
};

void RgLineFields::clear()
{
    memset(this, 0, sizeof(*this));
}

void RgLineFields::clearNumbers()
{
    n1 = 0;
    n2 = 0;
}

int parseRgLine(RgTemplate kind, const char* text, RgLineFields* f)
{
    const char* fmt = kRgTemplates[kind];
    // The tools' lines are read into 400 bytes, so no column is longer than
    // the 400-byte field buffers. A longer text handed in directly is cut
    // the same way first.
    char cut[400];
    const char* line = text;
    if (strnlen(text, sizeof(cut)) >= sizeof(cut)) {
        memcpy(cut, text, sizeof(cut) - 1);
        cut[sizeof(cut) - 1] = '\0';
        line = cut;
    }
    switch (kind) {
    case kConfigLine:
        return sscanf(line, fmt, &f->n1, &f->n2, f->t[0], f->t[1]);
    case kSdrLine:
        return sscanf(line, fmt, &f->n1, &f->n2, f->t[0], f->t[1], f->t[2]);
    case kRgSummaryLine:
        return sscanf(line, fmt, &f->n1, f->t[0], &f->i[0], &f->i[1], &f->i[2]);
    case kDaSummaryLine:
        return sscanf(line, fmt, &f->n1, f->t[0], f->t[1], &f->i[0], &f->i[1], &f->i[2], &f->i[3],
                      &f->ll, &f->i[4], f->t[2], &f->i[5], f->t[3]);
    case kServerLine:
        return sscanf(line, fmt, &f->n1, f->t[0], f->t[1]);
    case kPdiskLine:
        return sscanf(line, fmt, &f->n1, &f->f, f->t[0], f->t[1], f->t[2], f->t[3], f->t[4], &f->ll,
                      f->t[5], f->t[6]);
    case kVdiskLine:
        return sscanf(line, fmt, &f->n1, f->t[0], f->t[1], f->t[2], f->t[3], &f->i[0], &f->ll,
                      f->t[4], f->t[5]);
    case kRgTemplateCount:
        break;
    }
    return 0;
}

int pdiskValueOf(float value)
{
    if (!(value > -2147483649.0f && value < 2147483648.0f))
        return INT_MIN;
    return static_cast<int>(value);
}

} // namespace qv_rg
