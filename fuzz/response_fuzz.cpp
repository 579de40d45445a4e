// A daemon response of arbitrary bytes, read the library's whole road: spooled
// off a socket by getResponse, then walked with getInstanceCount,
// getNextInstance, getNextResponse, getBufferedValue, beginParsing,
// getNextToken and the keyword scan of the statistics and collectors.

#include <quelvane/tavrel_wrapper_utils.h>

#include "fuzz_support.h"
#include "poll/keyword_scan_internal.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

TavrelWrapperUtils* session()
{
    static TavrelWrapperUtils* s = nullptr;
    if (s == nullptr) {
        qvfuzz::enterNamespaceOnce();
        MErrno err = 0;
        // No daemon listens: the constructor says so on stderr once, and the
        // session keeps its spool; the target gives it a socket of its own.
        s = new TavrelWrapperUtils(&err, 0);
    }
    return s;
}

void walk(TavrelWrapperUtils* tw)
{
    volatile size_t sink = 0;
    sink += static_cast<size_t>(tw->getInstanceCount("_"));
    tw->prepBuffer();
    while (tw->getNextInstance("_")) {
        sink += strlen(tw->getBufferedValue("_n_", 0, 256));
        sink += strlen(tw->getBufferedValue("_disk_", 1, 256));
        sink += static_cast<size_t>(tw->getNextResponse("_rpc_"));
        char text[256] = "";
        int32_t i32 = 0;
        int64_t i64 = 0;
        uint32_t u32 = 0;
        uint64_t u64 = 0;
        double d = 0;
        int custom = 0;
        const qv::KwField table[] = {
            qv::kwText("_n_", text),
            qv::kwI32("_rc_", &i32),
            qv::kwI64("_t_", &i64),
            qv::kwU32("_c_", &u32),
            qv::kwU64("_b_", &u64),
            qv::kwDouble("_f_", &d),
            qv::kwCustom("_x_", [&custom](char* v, TavrelWrapperUtils* t) {
                custom += static_cast<int>(strlen(v));
                char* next = t->getNextToken();
                if (next != nullptr)
                    custom += static_cast<int>(strlen(next));
            }),
        };
        sink += static_cast<size_t>(qv::keywordScan(tw, table, 5));
        sink += strlen(text) + static_cast<size_t>(custom);
        for (char* w = tw->getNextToken(); w != nullptr; w = tw->getNextToken())
            sink += strlen(w);
    }
    (void)sink;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // The whole input must sit in the socket before it is read.
    if (size > 100000)
        return 0;
    TavrelWrapperUtils* tw = session();
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0)
        return 0;
    int big = 1 << 20;
    setsockopt(fds[1], SOL_SOCKET, SO_SNDBUF, &big, sizeof(big));
    std::string bytes(reinterpret_cast<const char*>(data), size);
    bytes += "\n_response_ end\n";
    size_t off = 0;
    while (off < bytes.size()) {
        ssize_t n = send(fds[1], bytes.data() + off, bytes.size() - off, MSG_NOSIGNAL);
        if (n <= 0)
            break;
        off += static_cast<size_t>(n);
    }
    shutdown(fds[1], SHUT_WR);

    tw->connection->sock = fds[0];
    tw->getResponse("fuzz");
    tw->prepBuffer();
    walk(tw);
    tw->cleanupCommand();
    tw->connection->sock = -1;
    close(fds[0]);
    close(fds[1]);
    return 0;
}
