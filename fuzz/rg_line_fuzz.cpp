// One arbitrary line through every recovery group line template.

#include "fuzz_support.h"
#include "recoverygroups/rg_lines_internal.h"

#include <cstdint>
#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::vector<char> line = qvfuzz::terminated(data, size);
    volatile size_t sink = 0;
    for (int k = 0; k < qv_rg::kRgTemplateCount; k++) {
        qv_rg::RgLineFields f;
        f.clear();
        int n = qv_rg::parseRgLine(static_cast<qv_rg::RgTemplate>(k), line.data(), &f);
        sink += static_cast<size_t>(n + 1);
        for (const char* t : f.t)
            sink += strnlen(t, sizeof(f.t[0]));
        sink += static_cast<size_t>(qv_rg::pdiskValueOf(f.f) & 1);
    }
    (void)sink;
    return 0;
}
