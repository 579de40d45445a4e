// The connection element (one stream socket to the daemon) and the free
// scanners of the request session.
#include <quelvane/api_conn_element.h>
#include <quelvane/kx_log.h>

#include "channel/conn_element_internal.h"
#include "foundation/qv_assert_internal.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <memory>
#include <sys/socket.h>
#include <sys/types.h>
#include <unistd.h>

const char* const vesk_named_socket = "/var/vesk/tavrel/tavrelSocket";

namespace {

// Value of the boolean socket options; one constant for every element.
const int kSocketOptionOn = 1;

// Size of the address buffer that connectSocket builds.
const size_t kAddressBufferSize = 128;

// Handshake magic word.
const uint32_t kHandshakeMagic = 0xF3689038u;

// File and function under which the assertions of tavrel_readln report (its
// bounded form included).
const char kAssertFile[] = "api_conn_element.cpp";
const char kReadlnFunction[] = "int tavrel_readln(FILE*, char*, Tavrel_ConnectionElement*)";

void putBigEndian(unsigned char* out, uint32_t v)
{
    out[0] = static_cast<unsigned char>(v >> 24);
    out[1] = static_cast<unsigned char>(v >> 16);
    out[2] = static_cast<unsigned char>(v >> 8);
    out[3] = static_cast<unsigned char>(v);
}

uint32_t getBigEndian(const unsigned char* in)
{
    return (static_cast<uint32_t>(in[0]) << 24) | (static_cast<uint32_t>(in[1]) << 16) |
           (static_cast<uint32_t>(in[2]) << 8) | static_cast<uint32_t>(in[3]);
}

// How much one look-ahead of the line readers may show. A line longer than
// this is read in several steps; bytes shown behind its newline stay where
// they are.
const size_t kLookAhead = 4096;

// How much one block of the response drain may show and take.
const size_t kResponseBlock = 65536;

// How much one block of event lines in tavrel_readln may show and take.
const size_t kEventBlock = 65536;

// Shows up to `cap` of the bytes waiting on `fd` without taking them, blocking
// until there is at least one. Result of recv.
ssize_t peekAhead(int fd, char* dst, size_t cap)
{
    return recv(fd, dst, cap, MSG_PEEK | MSG_NOSIGNAL);
}

// Takes `count` bytes that a look-ahead has shown to be waiting into `dst`.
// 1 when all were taken, otherwise the failing recv's result (errno tells).
// Shown bytes are there to take, so this neither waits nor fails in practice.
ssize_t takeShown(int fd, char* dst, size_t count)
{
    while (count > 0) {
        ssize_t n = recv(fd, dst, count, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return n;
        dst += n;
        count -= static_cast<size_t>(n);
    }
    return 1;
}

// Reads one line from descriptor `fd` into `buf` of `size` bytes. Bytes beyond
// the buffer are consumed but not stored, and then no terminator is written:
// the last byte of the buffer holds a character of the line, which is how a
// caller that planted a 0 there sees that the line did not fit. A failed recv
// is retried at once; the end of the stream ends the string and gives -1; a
// newline ends it and gives 10. The line is found by looking ahead, and only
// its bytes up to and including the newline are taken: the stream is consumed
// exactly as far as a reading of one byte per recv would consume it.
// `moreShown`, when given, tells whether the look-ahead saw bytes behind the
// newline, that is whether more input is known to be waiting.
int readlnSocketBounded(int fd, char* buf, size_t size, bool* moreShown = nullptr)
{
    size_t pos = 0;
    char ahead[kLookAhead];
    for (;;) {
        ssize_t n = peekAhead(fd, ahead, sizeof(ahead));
        if (n == -1)
            continue;
        if (n == 0) {
            if (pos < size)
                buf[pos] = '\0';
            return -1;
        }
        const char* nl = static_cast<const char*>(memchr(ahead, '\n', static_cast<size_t>(n)));
        const size_t take = nl != nullptr ? static_cast<size_t>(nl - ahead) + 1 : static_cast<size_t>(n);
        if (takeShown(fd, ahead, take) != 1)
            continue;
        const size_t text = nl != nullptr ? take - 1 : take;
        if (pos < size)
            memcpy(buf + pos, ahead, text < size - pos ? text : size - pos);
        pos += text;
        if (nl != nullptr) {
            if (pos < size)
                buf[pos] = '\0';
            if (moreShown != nullptr)
                *moreShown = static_cast<size_t>(n) > take;
            return 10;
        }
    }
}

// Reads characters from `f` into `buf` of `size` bytes until a newline or the
// end of the file and terminates the string; characters beyond the buffer are
// consumed and dropped. The result is the last character read: 10 at a
// newline, EOF at the end of the file.
int readlnStreamBounded(FILE* f, char* buf, size_t size)
{
    size_t pos = 0;
    int c;
    // The stream is locked once for the line, not once per character.
    flockfile(f);
    while ((c = getc_unlocked(f)) != EOF && c != '\n') {
        if (pos + 1 < size)
            buf[pos++] = static_cast<char>(c);
    }
    funlockfile(f);
    if (size > 0)
        buf[pos] = '\0';
    return c;
}

// Waits on a set of descriptors for input, as a select on a read set would:
// a descriptor counts as ready also when it has hung up or failed. Uses poll
// so that descriptors above FD_SETSIZE work. Returns the number of ready
// descriptors, 0 at the time-out, -1 on failure (a descriptor that is not
// open fails with EBADF, like select).
int waitReadable(struct pollfd* fds, int count, int timeoutMs)
{
    for (int i = 0; i < count; ++i) {
        fds[i].events = POLLIN;
        fds[i].revents = 0;
    }
    int rc = ::poll(fds, static_cast<nfds_t>(count), timeoutMs);
    if (rc <= 0)
        return rc;
    for (int i = 0; i < count; ++i) {
        if (fds[i].revents & POLLNVAL) {
            errno = EBADF;
            return -1;
        }
    }
    return rc;
}

// Whether the socket has hung up or failed (or the poll itself failed). The
// question is asked without waiting: a hang-up that has happened is already
// flagged on the socket.
bool connectionLost(Tavrel_ConnectionElement* elt)
{
    int rc = elt->poll(POLLERR | POLLHUP | POLLNVAL, 0);
    return rc == 1 || rc == -1;
}

// Prints the failure of a recv of the line reader (reporting on): its result
// `n` and the errno `err` of the moment.
void reportLineFailure(const Tavrel_ConnectionElement* elt, ssize_t n, int err)
{
    char msg[200];
    if (n == -1) {
        snprintf(msg, sizeof(msg), "_error_ Node %s, port %d: Error %d reading from stream socket: %s\n",
                 elt->nodeName, elt->port, err, strerror(err));
    } else if (n == 0) {
        snprintf(msg, sizeof(msg), "_error_ Node %s, port %d: End-of-file encountered!\n", elt->nodeName,
                 elt->port);
    } else {
        snprintf(msg, sizeof(msg), "_error_ Node %s, port %d: Unexpected recv() return value: %d!\n",
                 elt->nodeName, elt->port, static_cast<int>(n));
    }
    kx_print(msg);
}

// The line has reached `size` - 1 bytes without its newline: the next byte
// overruns, whatever it is. It is taken alone, as a reading of one byte per
// recv takes it, and the failure is printed (reporting on). Always -1.
int overrunLine(const Tavrel_ConnectionElement* elt, int size, bool report)
{
    char c;
    ssize_t n = recv(elt->sock, &c, 1, MSG_NOSIGNAL);
    if (n != 1) {
        if (report)
            reportLineFailure(elt, n, errno);
        return -1;
    }
    if (report) {
        char msg[200];
        snprintf(msg, sizeof(msg), "_error_ Node %s, port %d: Read overrun of %d byte buffer!\n", elt->nodeName,
                 elt->port, size);
        kx_print(msg);
    }
    return -1;
}

// Whether a line (of `length` bytes, not terminated) is the end line of a
// response, read as a string: up to its first zero byte.
bool isEndLine(const char* line, size_t length)
{
    static const char kEnd[] = "_response_ end";
    const size_t endLength = sizeof(kEnd) - 1;
    return length >= endLength && memcmp(line, kEnd, endLength) == 0 &&
           (length == endLength || line[endLength] == '\0');
}

void spoolBytes(FILE* spool, const char* bytes, size_t count)
{
    if (spool != nullptr && count > 0)
        fwrite(bytes, 1, count, spool);
}

} // namespace

Tavrel_ConnectionElement::Tavrel_ConnectionElement(const char* name, int portArg)
    : nodeName(strdup(name)),
      callback(nullptr),
      callbackData(nullptr),
      port(name[0] == '/' ? -1 : portArg),
      sock(-1),
      trace(0),
      reportErrors(0),
      namedSocket(0)
{
}

Tavrel_ConnectionElement::~Tavrel_ConnectionElement()
{
    close();
    free(nodeName);
}

short Tavrel_ConnectionElement::set_trace(short level)
{
    short previous = trace;
    trace = level;
    return previous;
}

int Tavrel_ConnectionElement::get_socket()
{
    return sock;
}

int Tavrel_ConnectionElement::connectSocket(int reportErrorsArg)
{
    namedSocket = (port == -1);
    if (reportErrorsArg != 0)
        reportErrors = 1;
    const bool report = trace != 0 || reportErrors;

    if (trace != 0) {
        fprintf(stderr, "_info_ connectSocket: Connecting to %s...\n", nodeName);
        if (namedSocket)
            fprintf(stderr, "_info_ connectSocket: Using named socket %s...\n", nodeName);
        else
            fprintf(stderr, "_info_ connectSocket: Using node/port %s/%d...\n", nodeName, port);
    }

    // The address, in a zeroed buffer of its own.
    alignas(struct sockaddr_storage) unsigned char address[kAddressBufferSize];
    memset(address, 0, sizeof(address));
    socklen_t addressLength;
    int domain;
    char msg[1024];

    if (namedSocket) {
        // Family word, then the path with its terminator; a path too long for
        // the buffer is cut so that the terminator stays.
        sa_family_t family = AF_UNIX;
        memcpy(address, &family, sizeof(family));
        const size_t room = sizeof(address) - sizeof(family) - 1;
        size_t pathLength = strlen(nodeName);
        if (pathLength > room)
            pathLength = room;
        memcpy(address + sizeof(family), nodeName, pathLength);
        addressLength = static_cast<socklen_t>(pathLength + 3);
        domain = AF_UNIX;
    } else {
        char service[11];
        snprintf(service, sizeof(service), "%d", port);
        struct addrinfo hints;
        memset(&hints, 0, sizeof(hints));
        hints.ai_socktype = SOCK_STREAM;
        struct addrinfo* result = nullptr;
        int rc = getaddrinfo(nodeName, service, &hints, &result);
        if (rc != 0 || result == nullptr) {
            int e = errno;
            if (result != nullptr)
                freeaddrinfo(result);
            if (report) {
                char longMsg[604];
                snprintf(longMsg, sizeof(longMsg),
                         "_error_ Node %s, port %d: Error %d Unable to connect to target node: %s\n",
                         nodeName, port, e, strerror(e));
                kx_print(longMsg);
            }
            close();
            return -1;
        }
        size_t length = result->ai_addrlen;
        if (length > sizeof(address))
            length = sizeof(address);
        memcpy(address, result->ai_addr, length);
        domain = result->ai_family;
        addressLength = static_cast<socklen_t>(length);
        freeaddrinfo(result);
    }

    // A descriptor still held from before stays open: reconnecting an open
    // element leaves it to the caller.
    sock = socket(domain, SOCK_STREAM, 0);
    if (trace != 0)
        fprintf(stderr, "_info_ connectSocket: port %d, socket %d\n", port, sock);
    if (sock < 0) {
        int e = errno;
        if (report) {
            snprintf(msg, sizeof(msg), "_error_ Node %s, port %d: Error %d opening stream socket: %s\n",
                     nodeName, port, e, strerror(e));
            kx_print(msg);
        }
        return -1;
    }

    fcntl(sock, F_SETFD, 1);

    if (setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &kSocketOptionOn, sizeof(kSocketOptionOn)) < 0) {
        int e = errno;
        if (report) {
            snprintf(msg, sizeof(msg), "_error_ Node %s, port %d: Error %d setsockopt reuse: %s\n",
                     nodeName, port, e, strerror(e));
            kx_print(msg);
        }
        close();
        return -1;
    }

    struct linger lingerOption;
    lingerOption.l_onoff = 1;
    lingerOption.l_linger = 0;
    if (setsockopt(sock, SOL_SOCKET, SO_LINGER, &lingerOption, sizeof(lingerOption)) < 0) {
        int e = errno;
        if (report) {
            snprintf(msg, sizeof(msg), "_error_ Node %s, port %d: Error %d setsockopt linger: %s\n",
                     nodeName, port, e, strerror(e));
            kx_print(msg);
        }
        close();
        return -1;
    }

    if (!namedSocket &&
        setsockopt(sock, IPPROTO_TCP, TCP_NODELAY, &kSocketOptionOn, sizeof(kSocketOptionOn)) < 0) {
        int e = errno;
        if (report) {
            snprintf(msg, sizeof(msg), "_error_ Node %s, port %d: Error %d setsockopt nodelay: %s\n",
                     nodeName, port, e, strerror(e));
            kx_print(msg);
        }
        close();
        return -1;
    }

    if (::connect(sock, reinterpret_cast<struct sockaddr*>(address), addressLength) < 0) {
        int e = errno;
        if (report) {
            snprintf(msg, sizeof(msg),
                     "_error_ Node %s, port %d: Error %d connecting stream socket: %s\n",
                     nodeName, port, e, strerror(e));
            kx_print(msg);
        }
        close();
        return -1;
    }

    if (trace != 0)
        fprintf(stderr, "_trace_ done\n");
    return sock;
}

int Tavrel_ConnectionElement::close()
{
    if (sock < 0) {
        sock = -1;
        return 0;
    }
    int rc = ::close(sock);
    sock = -1;
    return rc;
}

int Tavrel_ConnectionElement::write(const void* buf, int len)
{
    if (sock < 0)
        return -1;
    ssize_t n = send(sock, buf, static_cast<size_t>(len < 0 ? 0 : len), MSG_NOSIGNAL);
    if (n < 0) {
        int e = errno;
        // The descriptor goes first; the message follows.
        ::close(sock);
        if (trace != 0 || reportErrors) {
            char msg[1024];
            snprintf(msg, sizeof(msg), "_error_ Node %s, port %d: Error %d in write: %s\n", nodeName,
                     port, e, strerror(e));
            kx_print(msg);
        }
        sock = -1;
        return -1;
    }
    if (trace > 1)
        fprintf(stderr, "_trace_ Node %s, port %d: Wrote %d bytes\n", nodeName, port, static_cast<int>(n));
    return static_cast<int>(n);
}

int Tavrel_ConnectionElement::read(void* buf, int len)
{
    if (sock < 0)
        return -1;
    ssize_t n = recv(sock, buf, static_cast<size_t>(len < 0 ? 0 : len), MSG_NOSIGNAL);
    if (n < 0) {
        int e = errno;
        if (trace != 0 || reportErrors) {
            char msg[1024];
            snprintf(msg, sizeof(msg), "_error_ Node %s, port %d: Error %d in read: %s\n", nodeName,
                     port, e, strerror(e));
            kx_print(msg);
        }
        close();
        return -1;
    }
    if (trace > 1)
        fprintf(stderr, "_trace_ Node %s, port %d: Read %d bytes\n", nodeName, port, static_cast<int>(n));
    return static_cast<int>(n);
}

int Tavrel_ConnectionElement::poll(short events, int timeoutMs)
{
    struct pollfd p;
    p.fd = sock;
    p.events = events;
    p.revents = 0;
    return ::poll(&p, 1, timeoutMs);
}

// The line is found by looking ahead, and only its bytes up to and including
// the newline are taken, so that nothing behind it is consumed: the descriptor
// can pass to read() or tavrel_readlnSocket at any time. At an overrun, at the
// end of the stream and at a failure the stream is consumed exactly as far as
// a reading of one byte per recv would have consumed it.
int Tavrel_ConnectionElement::readSocketLine(char* buf, int size)
{
    if (sock < 0)
        return -1;
    const bool report = trace != 0 || reportErrors;
    char ahead[kLookAhead];
    int len = 0;
    for (;;) {
        // A byte of text needs a free place before the last one; so does the
        // newline, so that the longest line taken has size - 2 bytes. A
        // newline among the next `room` bytes therefore ends the line in time.
        const long room = static_cast<long>(size) - 1 - len;
        if (room <= 0)
            return overrunLine(this, size, report);
        ssize_t n = peekAhead(sock, ahead, std::min(static_cast<size_t>(room), sizeof(ahead)));
        if (n <= 0) {
            if (report)
                reportLineFailure(this, n, errno);
            return -1;
        }
        const char* nl = static_cast<const char*>(memchr(ahead, '\n', static_cast<size_t>(n)));
        const size_t take = nl != nullptr ? static_cast<size_t>(nl - ahead) + 1 : static_cast<size_t>(n);
        ssize_t taken = takeShown(sock, buf + len, take);
        if (taken != 1) {
            if (report)
                reportLineFailure(this, taken, errno);
            return -1;
        }
        if (nl == nullptr) {
            len += static_cast<int>(take);
            continue;
        }
        len += static_cast<int>(take) - 1;
        buf[len] = '\0';

        if (trace > 1)
            fprintf(stderr, "_trace_ Node %s, port %d: Read %d bytes\n", nodeName, port, len);
        if (len < 1)
            return len;

        if (len >= 8 && memcmp(buf, "_event_ ", 8) == 0) {
            if (trace > 1)
                fprintf(stderr, "_trace_ %s event message: '%s'\n",
                        callback != nullptr ? "Returning" : "Discarding", buf);
            if (callback != nullptr)
                callback(buf, callbackData);
            len = 0;
            continue;
        }
        return len;
    }
}

int Tavrel_ConnectionElement::drainStringSocket(char* buf, int size, int (*sink)(char*, void*),
                                                void* sinkData)
{
    for (;;) {
        int rc = readSocketLine(buf, size);
        if (rc < 0)
            return rc;
        int verdict = sink(buf, sinkData);
        if (verdict == 0)
            continue;
        if (verdict == 1)
            return 0;
        return verdict;
    }
}

int tavrel_spoolResponse(Tavrel_ConnectionElement* elt, char* buf, int size, FILE* spool)
{
    const int fd = elt->sock;
    if (fd < 0)
        return -1;
    const bool report = elt->trace != 0 || elt->reportErrors;
    size_t len = 0;   // bytes of a line begun in an earlier block, at buf[0]
    for (;;) {
        // As in readSocketLine: a newline among the next `room` bytes ends
        // the line in time; at a room of 0 the next byte overruns.
        const long room = static_cast<long>(size) - 1 - static_cast<long>(len);
        if (room <= 0)
            return overrunLine(elt, size, report);
        ssize_t n = peekAhead(fd, buf + len, std::min(static_cast<size_t>(room), kResponseBlock));
        if (n <= 0) {
            if (report)
                reportLineFailure(elt, n, errno);
            return -1;
        }
        char* const shownEnd = buf + len + n;

        // What this block takes: up to and including the end line, if it is
        // among the bytes shown, else all of them (the bytes of a line begun
        // here are taken, as a reading byte by byte takes them before it
        // waits for the rest).
        char* cut = shownEnd;
        bool ended = false;
        for (char *lineStart = buf, *p = buf + len, *nl;
             (nl = static_cast<char*>(memchr(p, '\n', static_cast<size_t>(shownEnd - p)))) != nullptr;
             lineStart = p = nl + 1) {
            if (isEndLine(lineStart, static_cast<size_t>(nl - lineStart))) {
                cut = nl + 1;
                ended = true;
                break;
            }
        }
        ssize_t taken = takeShown(fd, buf + len, static_cast<size_t>(cut - (buf + len)));
        if (taken != 1) {
            if (report)
                reportLineFailure(elt, taken, errno);
            return -1;
        }

        // Each complete line: runs of plain lines go to the spool as they
        // stand; an event line goes to the callback instead, in its place in
        // the order; a line with a zero byte is spooled as the string it is.
        char* lineStart = buf;
        char* run = buf;
        for (char *p = buf + len, *nl;
             p < cut && (nl = static_cast<char*>(memchr(p, '\n', static_cast<size_t>(cut - p)))) != nullptr;
             lineStart = p = nl + 1) {
            const size_t length = static_cast<size_t>(nl - lineStart);
            if (elt->trace > 1)
                fprintf(stderr, "_trace_ Node %s, port %d: Read %d bytes\n", elt->nodeName, elt->port,
                        static_cast<int>(length));
            const bool event = length >= 8 && memcmp(lineStart, "_event_ ", 8) == 0;
            const char* zero = event ? nullptr : static_cast<const char*>(memchr(lineStart, '\0', length));
            if (!event && zero == nullptr)
                continue;
            spoolBytes(spool, run, static_cast<size_t>(lineStart - run));
            run = nl + 1;
            if (zero != nullptr) {
                spoolBytes(spool, lineStart, static_cast<size_t>(zero - lineStart));
                spoolBytes(spool, "\n", 1);
                continue;
            }
            *nl = '\0';
            if (elt->trace > 1)
                fprintf(stderr, "_trace_ %s event message: '%s'\n",
                        elt->callback != nullptr ? "Returning" : "Discarding", lineStart);
            if (elt->callback != nullptr)
                elt->callback(lineStart, elt->callbackData);
        }
        spoolBytes(spool, run, static_cast<size_t>(lineStart - run));
        if (ended)
            return 0;

        // The line begun in this block moves to the front.
        len = static_cast<size_t>(cut - lineStart);
        if (lineStart != buf)
            memmove(buf, lineStart, len);
    }
}

int Tavrel_ConnectionElement::handshake()
{
    if (sock < 0 || namedSocket)
        return 0;

    unsigned char request[40];
    memset(request, 0, sizeof(request));
    putBigEndian(request + 0, kHandshakeMagic);
    putBigEndian(request + 20, 12);
    putBigEndian(request + 28, 7);
    putBigEndian(request + 36, 2);

    bool ok = write(request, sizeof(request)) == static_cast<int>(sizeof(request));
    if (ok) {
        unsigned char reply[20];
        ok = read(reply, sizeof(reply)) == static_cast<int>(sizeof(reply));
        if (ok) {
            ok = getBigEndian(reply + 0) == kHandshakeMagic && getBigEndian(reply + 4) == 0 &&
                 getBigEndian(reply + 12) == 0 && getBigEndian(reply + 16) == 0;
        }
    }
    if (ok)
        return 0;

    char msg[1024];
    snprintf(msg, sizeof(msg), "Warning: Failed to handshake with %s\n", nodeName);
    kx_print(msg);
    close();
    return 1;
}

int tavrel_blastLineToFile(char* line, void* file)
{
    fprintf(static_cast<FILE*>(file), "%s\n", line);
    return strcmp(line, "_response_ end") == 0 ? 1 : 0;
}

// `dst` must have room for the rest of `haystack` behind the keyword (at most
// strlen(haystack) + 1 bytes): the value is a piece of the haystack.
char* tavrel_grabKeywordValue(char* haystack, const char* keyword, char* dst, unsigned int atLineStart)
{
    // The needle: with atLineStart the keyword and a blank; otherwise a blank,
    // the keyword and a blank, unless the keyword begins with a blank, which
    // is then the needle as it stands. It is built on the stack when it fits
    // (as the library's own keywords do): this runs for every value read.
    const size_t keywordLength = strlen(keyword);
    char shortNeedle[64];
    std::unique_ptr<char[]> longNeedle;
    char* needle = shortNeedle;
    if (keywordLength + 3 > sizeof(shortNeedle)) {
        longNeedle.reset(new char[keywordLength + 3]);
        needle = longNeedle.get();
    }
    char* q = needle;
    if (atLineStart == 0 && keyword[0] != ' ')
        *q++ = ' ';
    memcpy(q, keyword, keywordLength);
    q += keywordLength;
    if (atLineStart != 0 || keyword[0] != ' ')
        *q++ = ' ';
    *q = '\0';
    const size_t needleLength = static_cast<size_t>(q - needle);

    char* found = strstr(haystack, needle);
    if (found == nullptr)
        return nullptr;
    char* value = found + needleLength;

    if (strcmp(keyword, "_msg_") == 0) {
        memmove(dst, value, strlen(value) + 1);
        return dst;
    }

    char* end;
    if (*value == '\'') {
        ++value;
        end = strchr(value, '\'');
    } else {
        end = strchr(value, ' ');
    }
    size_t length = end != nullptr ? static_cast<size_t>(end - value) : strlen(value);
    memmove(dst, value, length);
    dst[length] = '\0';
    return dst;
}

char* tavrel_findWhiteSpace(char* s)
{
    while (*s != '\0' && !isspace(static_cast<unsigned char>(*s)))
        ++s;
    return s;
}

char* tavrel_findBlackSpace(char* s)
{
    while (*s != '\0' && isspace(static_cast<unsigned char>(*s)))
        ++s;
    return s;
}

// `buf` must hold the longest line that can arrive, terminator included: the
// line is read up to its newline without a bound.
int tavrel_readlnSocket(int fd, char* buf)
{
    return readlnSocketBounded(fd, buf, SIZE_MAX);
}

// `buf` must hold the longest line of `f`, terminator included: the line is
// read up to its newline without a bound.
int tavrel_readln(FILE* f, char* buf, Tavrel_ConnectionElement* elt)
{
    return tavrel_readlnBounded(f, buf, SIZE_MAX, elt);
}

int tavrel_readlnBounded(FILE* f, char* buf, size_t size, Tavrel_ConnectionElement* elt)
{
    if (elt != nullptr) {
        const int fileFd = fileno(f);
        std::unique_ptr<char[]> block;   // look-ahead of the event lines
        for (;;) {
            const int sockFd = elt->get_socket();
            int nfds = sockFd + 1;
            QV_ASSERT_IN(nfds > 0, "nfds > 0", kAssertFile, 761, kReadlnFunction);
            if (fileFd > nfds - 1)
                nfds = fileFd + 1;

            // The read set: the socket and the file.
            struct pollfd set[2];
            set[0].fd = sockFd;
            set[1].fd = fileFd;
            int rc = waitReadable(set, 2, -1);
            if (rc == -1) {
                perror("select()");
                return -1;
            }
            if (rc == 0) {
                fputs(".", stderr);
                fflush(stderr);
                continue;
            }
            const bool fileReady = set[1].revents != 0;

            for (int fd = 0; fd < nfds; ++fd) {
                if (fd == fileFd)
                    continue;
                if (!(fd == set[0].fd && set[0].revents != 0))
                    continue;
                QV_ASSERT_IN(fd == elt->get_socket(), "fd == elt->get_socket()", kAssertFile, 784,
                             kReadlnFunction);

                if (connectionLost(elt))
                    return -1;
                if (elt->trace != 0) {
                    time_t now = time(nullptr);
                    char timeBuf[64];
                    char* timeString = ctime_r(&now, timeBuf);
                    QV_ASSERT_IN(timeString != 0, "timeString != 0", kAssertFile, 802, kReadlnFunction);
                    char* nl = strchr(timeString, '\n');
                    if (nl != nullptr)
                        *nl = '\0';
                    fprintf(stderr, "_trace_ Found async data from %s at %s\n", elt->nodeName, timeString);
                }
                int (*callback)(char*, void*) = elt->callback;
                void* callbackData = elt->callbackData;
                QV_ASSERT_IN(callback, "callback", kAssertFile, 809, kReadlnFunction);

                // The waiting lines are taken a block at a time: a look-ahead
                // shows what is there, every whole line in it is taken at
                // once and delivered in order, and a line begun at the end of
                // the block stays in the socket for the next one. Each line is
                // handed over in a buffer of 1024 bytes, which one of 1024
                // bytes or more overruns: the process ends here then. The
                // hang-up test follows each block, so that a loss is noticed
                // within a block of lines.
                if (block == nullptr)
                    block.reset(new char[kEventBlock]);
                for (;;) {
                    char eventLine[1024];
                    bool moreShown = false;
                    ssize_t n = peekAhead(fd, block.get(), kEventBlock);
                    if (n == -1)
                        continue;
                    const char* last =
                        n > 0 ? static_cast<const char*>(memrchr(block.get(), '\n', static_cast<size_t>(n)))
                              : nullptr;
                    if (last == nullptr) {
                        // No whole line shown, or the end of the stream: the
                        // line reader takes this line as it comes.
                        eventLine[sizeof(eventLine) - 1] = 0;
                        int got = readlnSocketBounded(fd, eventLine, sizeof(eventLine), &moreShown);
                        QV_ASSERT_IN(eventLine[sizeof(eventLine) - 1] == 0, "buf[sizeof(buf)-1] == 0",
                                     kAssertFile, 816, kReadlnFunction);
                        if (got != -1)
                            callback(eventLine, callbackData);
                    } else {
                        const size_t take = static_cast<size_t>(last - block.get()) + 1;
                        if (takeShown(fd, block.get(), take) != 1)
                            continue;
                        moreShown = static_cast<size_t>(n) > take;
                        for (const char *line = block.get(), *end = block.get() + take, *nl; line < end;
                             line = nl + 1) {
                            nl = static_cast<const char*>(memchr(line, '\n', static_cast<size_t>(end - line)));
                            const size_t length = static_cast<size_t>(nl - line);
                            eventLine[sizeof(eventLine) - 1] = 0;
                            memcpy(eventLine, line, std::min(length, sizeof(eventLine)));
                            if (length < sizeof(eventLine))
                                eventLine[length] = '\0';
                            QV_ASSERT_IN(eventLine[sizeof(eventLine) - 1] == 0, "buf[sizeof(buf)-1] == 0",
                                         kAssertFile, 816, kReadlnFunction);
                            callback(eventLine, callbackData);
                        }
                    }
                    if (connectionLost(elt))
                        return -1;
                    // Bytes seen waiting behind the lines: the wait for more
                    // input would end at once.
                    if (moreShown)
                        continue;
                    struct pollfd alone[1];
                    alone[0].fd = fd;
                    if (waitReadable(alone, 1, 100) <= 0)
                        break;
                }
            }
            if (fileReady)
                break;
        }
    }
    return readlnStreamBounded(f, buf, size);
}

int tavrel_countLines(FILE* f)
{
    fpos_t position;
    fgetpos(f, &position);
    int count = 0;
    char block[8192];
    size_t n;
    while ((n = fread(block, 1, sizeof(block), f)) > 0) {
        for (const char *p = block, *end = block + n;
             (p = static_cast<const char*>(memchr(p, '\n', static_cast<size_t>(end - p)))) != nullptr; ++p)
            ++count;
    }
    fsetpos(f, &position);
    return count;
}
