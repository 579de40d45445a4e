#ifndef QUELVANE_KEYWORD_SCAN_INTERNAL_H
#define QUELVANE_KEYWORD_SCAN_INTERNAL_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>

#include <quelvane/tavrel_wrapper_utils.h>

namespace qv {

// How the value word behind a keyword is stored.
enum class KwConv
{
    Text,     // copied into a char array of destSize bytes (bounded, terminated)
    Int32,    // strtol base 10, kept as a 32-bit int
    Int64,    // strtoll base 10
    UInt32,   // strtoul base 10, low 32 bits kept
    UInt64,   // strtoull base 10
    Double,   // strtod
    Custom    // handed to `custom`, which may take further words itself
};

// One row of a keyword table.
struct KwField
{
    const char* keyword;    // compared with strcmp, exactly
    KwConv conv;
    void* dest;             // target of the conversion (unused for Custom)
    size_t destSize;        // size of a Text target in bytes
    bool counted;           // a match adds 1 to the count that ends the scan
    // Custom conversion: the value word (never null: a keyword at the end of
    // the line sees "") and the session, for keywords whose value spans words.
    std::function<void(char* value, TavrelWrapperUtils* tw)> custom;
};

// Table rows, short to write:
//   qv::kwText("_n_", rec->nodeAddr), qv::kwU32("_dch_", &rec->dcHits), ...
template <size_t N>
inline KwField kwText(const char* kw, char (&dst)[N], bool counted = true)
{
    return KwField{kw, KwConv::Text, dst, N, counted, nullptr};
}
inline KwField kwText(const char* kw, char* dst, size_t size, bool counted = true)
{
    return KwField{kw, KwConv::Text, dst, size, counted, nullptr};
}
inline KwField kwI32(const char* kw, int32_t* dst, bool counted = true)
{
    return KwField{kw, KwConv::Int32, dst, 0, counted, nullptr};
}
inline KwField kwI64(const char* kw, int64_t* dst, bool counted = true)
{
    return KwField{kw, KwConv::Int64, dst, 0, counted, nullptr};
}
inline KwField kwI64(const char* kw, long long* dst, bool counted = true)
{
    return KwField{kw, KwConv::Int64, dst, 0, counted, nullptr};
}
inline KwField kwU32(const char* kw, uint32_t* dst, bool counted = true)
{
    return KwField{kw, KwConv::UInt32, dst, 0, counted, nullptr};
}
inline KwField kwU64(const char* kw, uint64_t* dst, bool counted = true)
{
    return KwField{kw, KwConv::UInt64, dst, 0, counted, nullptr};
}
inline KwField kwU64(const char* kw, unsigned long long* dst, bool counted = true)
{
    return KwField{kw, KwConv::UInt64, dst, 0, counted, nullptr};
}
inline KwField kwDouble(const char* kw, double* dst, bool counted = true)
{
    return KwField{kw, KwConv::Double, dst, 0, counted, nullptr};
}
inline KwField kwCustom(const char* kw, std::function<void(char*, TavrelWrapperUtils*)> fn,
                        bool counted = true)
{
    return KwField{kw, KwConv::Custom, nullptr, 0, counted, std::move(fn)};
}

// The next word of the line for a keyword whose value spans several words;
// "" when the line has ended.
inline char* kwNextWord(TavrelWrapperUtils* tw)
{
    static char empty[1] = {'\0'};
    char* w = tw->getNextToken();
    return w != nullptr ? w : empty;
}

// Conversions as the records keep them: base 10, low 32 bits of an unsigned
// value, a double narrowed to float.
inline uint32_t kwLow32(const char* v)
{
    return static_cast<uint32_t>(strtoul(v, nullptr, 10));
}
inline uint64_t kwU64Of(const char* v)
{
    return static_cast<uint64_t>(strtoull(v, nullptr, 10));
}
inline float kwFloat(const char* v)
{
    return static_cast<float>(strtod(v, nullptr));
}

// Stores one value word as the row says.
inline void kwStore(const KwField& f, char* value, TavrelWrapperUtils* tw)
{
    switch (f.conv) {
    case KwConv::Text: {
        char* d = static_cast<char*>(f.dest);
        if (f.destSize > 0) {
            strncpy(d, value, f.destSize - 1);
            d[f.destSize - 1] = '\0';
        }
        break;
    }
    case KwConv::Int32:
        *static_cast<int32_t*>(f.dest) = static_cast<int32_t>(strtol(value, nullptr, 10));
        break;
    case KwConv::Int64:
        *static_cast<int64_t*>(f.dest) = static_cast<int64_t>(strtoll(value, nullptr, 10));
        break;
    case KwConv::UInt32:
        *static_cast<uint32_t*>(f.dest) = static_cast<uint32_t>(strtoul(value, nullptr, 10));
        break;
    case KwConv::UInt64:
        *static_cast<uint64_t*>(f.dest) = static_cast<uint64_t>(strtoull(value, nullptr, 10));
        break;
    case KwConv::Double:
        *static_cast<double*>(f.dest) = strtod(value, nullptr);
        break;
    case KwConv::Custom:
        if (f.custom)
            f.custom(value, tw);
        break;
    }
}

// The keyword scan of a response line. With `begin` true it first calls
// beginParsing (which swallows the line's first word); then it takes words
// with getNextToken until none is left or the count of counted matches has
// reached `stopAt`. A word equal to a keyword of the table (first row wins)
// takes the next word as its value; any other word is passed over and not
// counted. A repeated keyword counts again and overwrites.
//   "until the count reaches N"  -> stopAt N
//   "until the count exceeds N"  -> stopAt N + 1   (see kwExceeds)
// Returns the count of counted matches.
inline int keywordScan(TavrelWrapperUtils* tw, const KwField* table, size_t rows, int stopAt,
                       bool begin = true)
{
    if (begin)
        tw->beginParsing();
    int count = 0;
    char empty[1] = {'\0'};
    while (count < stopAt) {
        char* word = tw->getNextToken();
        if (word == nullptr)
            break;
        for (size_t i = 0; i < rows; i++) {
            if (strcmp(word, table[i].keyword) != 0)
                continue;
            char* value = tw->getNextToken();
            kwStore(table[i], value != nullptr ? value : empty, tw);
            if (table[i].counted)
                count++;
            break;
        }
    }
    return count;
}

template <size_t N>
inline int keywordScan(TavrelWrapperUtils* tw, const KwField (&table)[N], int stopAt,
                       bool begin = true)
{
    return keywordScan(tw, table, N, stopAt, begin);
}

// stopAt for a scan that runs "until the count exceeds n".
constexpr int kwExceeds(int n) { return n + 1; }

}  // namespace qv

#endif
