#ifndef QUELVANE_FUZZ_SUPPORT_H
#define QUELVANE_FUZZ_SUPPORT_H

// Shared pieces of the fuzz targets.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace qvfuzz {

// Enters a private mount namespace with tmpfs over /var/vesk, /usr/kpx and
// /tmp (as the tests do), once per process, so that the library's fixed
// paths (the response spool, the log) are the target's own.
void enterNamespaceOnce();

// The input as a terminated text of at least `minSize` bytes (zero-filled),
// for parsers that take a char* line and may write into it.
inline std::vector<char> terminated(const uint8_t* data, size_t size, size_t minSize = 0)
{
    std::vector<char> text(size + 1 > minSize ? size + 1 : minSize, '\0');
    if (size > 0)
        memcpy(text.data(), data, size);
    return text;
}

// Splits the input at NUL bytes and newlines into lines (without them).
std::vector<std::string> lines(const uint8_t* data, size_t size);

} // namespace qvfuzz

#endif
