// Bytes waiting in a socket, read by readSocketLine, Tavrel_ConnectionElement::
// read and tavrel_readlnSocket in turn, as a descriptor handed between them
// is: the first byte of the input picks the order and the buffer size.

#include <quelvane/api_conn_element.h>

#include "fuzz_support.h"

#include <cstdint>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static bool entered = [] {
        qvfuzz::enterNamespaceOnce();
        return true;
    }();
    (void)entered;
    if (size < 1 || size > 100000)
        return 0;
    const unsigned int choice = data[0];
    data++;
    size--;

    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0)
        return 0;
    int big = 1 << 20;
    setsockopt(fds[1], SOL_SOCKET, SO_SNDBUF, &big, sizeof(big));
    size_t off = 0;
    while (off < size) {
        ssize_t n = send(fds[1], data + off, size - off, MSG_NOSIGNAL);
        if (n <= 0)
            break;
        off += static_cast<size_t>(n);
    }
    shutdown(fds[1], SHUT_WR);

    Tavrel_ConnectionElement elt("/var/vesk/tavrel/tavrelSocket", -1);
    elt.sock = fds[0];
    // A line buffer of 1 to 64 bytes makes overruns common.
    const int lineSize = 1 + static_cast<int>(choice % 64);
    std::vector<char> line(static_cast<size_t>(lineSize));
    // tavrel_readlnSocket has no bound: its buffer holds the whole input.
    std::vector<char> whole(size + 2);
    char block[7];
    for (unsigned int step = 0; step < size + 2 && elt.sock >= 0; step++) {
        int r;
        switch ((choice >> 6) + step % 3) {
        case 0:
        case 3:
            r = elt.readSocketLine(line.data(), lineSize);
            break;
        case 1:
        case 4:
            r = elt.read(block, static_cast<int>(sizeof(block)));
            break;
        default:
            r = tavrel_readlnSocket(elt.sock, whole.data());
            break;
        }
        if (r < 0 || (r == 0 && (step % 3) == 1))
            break;
    }
    // The element closes its descriptor itself on a failed read.
    if (elt.sock == fds[0]) {
        elt.sock = -1;
        close(fds[0]);
    }
    close(fds[1]);
    return 0;
}
