// One arbitrary quota listing line cut into its 21 tokens and stored.

#include <quelvane/api_poll.h>

#include "fuzz_support.h"
#include "poll/administration/admin_lines_internal.h"

#include <cstdint>
#include <vector>

namespace {

// A zeroed handler that was never constructed: tokenHelper reads no field.
PollingHandler* bareHandler()
{
    alignas(PollingHandler) static unsigned char mem[sizeof(PollingHandler)];
    return reinterpret_cast<PollingHandler*>(mem);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Quota lines are read in pieces of at most 1023 characters.
    if (size > 1023)
        size = 1023;
    std::vector<char> line = qvfuzz::terminated(data, size);
    Quota q{};
    qv::storeQuotaTokens(bareHandler()->tokenHelper(line.data(), 21), 2, &q);
    return 0;
}
