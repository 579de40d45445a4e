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

// Copies a text that may fill its whole array without a terminator (the
// three limited disk texts): all N bytes of a full array are copied, and a
// shorter text is copied with its terminator.
template <size_t N>
inline void qvCopyLimitedText(char (&dst)[N], const char (&src)[N])
{
    if (&src == &dst)
        return;
    size_t len = strnlen(src, N);
    memmove(dst, src, len);
    if (len < N)
        dst[len] = '\0';
}

// Zero fills a fixed character array.
template <size_t N>
inline void qvClearText(char (&dst)[N])
{
    memset(dst, 0, N);
}

#endif
