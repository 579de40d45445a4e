#include "fuzz_support.h"

#include "support/hermetic.h"

namespace qvfuzz {

void enterNamespaceOnce()
{
    static bool entered = false;
    if (entered)
        return;
    qvtest::keepStandardDescriptorsOpen();
    qvtest::enterHermeticNamespace();
    entered = true;
}

std::vector<std::string> lines(const uint8_t* data, size_t size)
{
    std::vector<std::string> out;
    std::string cur;
    for (size_t i = 0; i < size; i++) {
        char c = static_cast<char>(data[i]);
        if (c == '\n' || c == '\0') {
            out.push_back(cur);
            cur.clear();
        } else {
            cur.push_back(c);
        }
    }
    out.push_back(cur);
    return out;
}

} // namespace qvfuzz
