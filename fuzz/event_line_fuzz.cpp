// An arbitrary event line through getEventType and createEventObject.

#include <quelvane/events_handler.h>

#include "fuzz_support.h"

#include <cstdint>
#include <cstring>
#include <vector>

namespace {

// A zeroed handler that was never started: the decoding reads only `debug`
// and `pollingHandler` (null, so sdrChanged refreshes nothing).
EventsHandler* bareEventsHandler()
{
    alignas(EventsHandler) static unsigned char mem[sizeof(EventsHandler)];
    return reinterpret_cast<EventsHandler*>(mem);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static bool quiet = [] {
        qvfuzz::enterNamespaceOnce();
        return true;
    }();
    (void)quiet;
    EventsHandler* h = bareEventsHandler();
    // Event lines reach the decoder cut to the receive buffer: 1023 bytes.
    if (size > 1023)
        size = 1023;
    std::vector<char> line = qvfuzz::terminated(data, size);
    int type = h->getEventType(line.data());
    // Every number is tried, the found one first.
    for (int t = -1; t <= 32; t++) {
        std::vector<char> copy(line);
        Event* e = h->createEventObject(t == -1 ? type : t, copy.data());
        // Records hold only fixed arrays: their storage is given back
        // whatever the concrete class.
        if (e != nullptr)
            ::operator delete(static_cast<void*>(e));
    }
    return 0;
}
