// tavrel_grabKeywordValue and the white space finders over an arbitrary line:
// the first line of the input is the keyword, the rest the haystack.

#include <quelvane/api_conn_element.h>

#include "fuzz_support.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const uint8_t* nl = static_cast<const uint8_t*>(memchr(data, '\n', size));
    std::string keyword = nl != nullptr ? std::string(reinterpret_cast<const char*>(data),
                                                      static_cast<size_t>(nl - data))
                                        : std::string("_n_");
    size_t skip = nl != nullptr ? static_cast<size_t>(nl - data) + 1 : 0;
    std::vector<char> haystack = qvfuzz::terminated(data + skip, size - skip);
    keyword = keyword.c_str();   // the keyword ends at its first NUL byte
    volatile size_t sink = 0;
    for (unsigned int atLineStart = 0; atLineStart < 2; atLineStart++) {
        // The value is copied without a bound: a destination as large as the
        // haystack always holds it.
        std::vector<char> dst(haystack.size() + 1, '\0');
        std::vector<char> copy(haystack);
        if (tavrel_grabKeywordValue(copy.data(), keyword.c_str(), dst.data(), atLineStart) != nullptr)
            sink += strlen(dst.data());
    }
    std::vector<char> copy(haystack);
    sink += static_cast<size_t>(tavrel_findWhiteSpace(copy.data()) - copy.data());
    sink += static_cast<size_t>(tavrel_findBlackSpace(copy.data()) - copy.data());
    (void)sink;
    return 0;
}
