#ifndef QUELVANE_RECORDS_TEXT_INTERNAL_H
#define QUELVANE_RECORDS_TEXT_INTERNAL_H

#include <cstddef>
#include <cstring>

// Copies a zero-terminated text into a fixed character array. The copy is
// bounded by the array: a longer text is cut and the terminator kept. Copying
// an array onto itself leaves it as it is.
template <size_t N>
inline void qvCopyText(char (&dst)[N], const char* src)
{
    if (src == nullptr || src == dst)
        return;
    size_t len = strnlen(src, N - 1);
    memmove(dst, src, len);
    dst[len] = '\0';
}

// Zero fills a fixed character array.
template <size_t N>
inline void qvClearText(char (&dst)[N])
{
    memset(dst, 0, N);
}

#endif
