#ifndef QUELVANE_TEST_BARE_HANDLER_H
#define QUELVANE_TEST_BARE_HANDLER_H

// A zeroed PollingHandler that was never constructed nor started, for
// calling members that touch no field of the handler (tokenisers, fileset
// queries). The same storage is zeroed again on every call.

#include <cstring>

#include <quelvane/api_poll.h>

namespace qvtest {

inline PollingHandler* bareHandler()
{
    alignas(PollingHandler) static unsigned char mem[sizeof(PollingHandler)];
    memset(mem, 0, sizeof(mem));
    return reinterpret_cast<PollingHandler*>(mem);
}

} // namespace qvtest

#endif
