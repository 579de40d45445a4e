// The aids for the tools' colon output over an arbitrary line: percentDecode,
// PollingHandler::grabValue, tokenHelper and getTimeStampInMilliseconds.

#include <quelvane/api_poll.h>
#include <quelvane/command_wrapper_utils.h>

#include "fuzz_support.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

// A zeroed handler that was never constructed: these members read no field.
PollingHandler* bareHandler()
{
    alignas(PollingHandler) static unsigned char mem[sizeof(PollingHandler)];
    return reinterpret_cast<PollingHandler*>(mem);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Tool lines are read with fgets into 400 characters.
    if (size > 399)
        size = 399;
    PollingHandler* h = bareHandler();
    volatile size_t sink = 0;

    std::vector<char> decoded = qvfuzz::terminated(data, size);
    percentDecode(decoded.data());
    sink += strlen(decoded.data());

    std::vector<char> line = qvfuzz::terminated(data, size);
    char field[256];
    for (int index = 0; index < 12; index++)
        sink += strlen(h->grabValue(line.data(), index, field)) > 255 ? 1 : 0;
    for (const std::string& f : h->tokenHelper(line.data(), 24))
        sink += f.size();

    // Time stamps are fields of a line: at most 255 characters.
    std::vector<char> stamp = qvfuzz::terminated(data, size < 255 ? size : 255, 256);
    // The result is the year, month, day, the time digits (at most 255) and a
    // fixed tail.
    char out[600];
    char* r = h->getTimeStampInMilliseconds(stamp.data(), out);
    if (r != nullptr)
        sink += strlen(r);
    (void)sink;
    return 0;
}
