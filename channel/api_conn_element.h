#ifndef QUELVANE_API_CONN_ELEMENT_H
#define QUELVANE_API_CONN_ELEMENT_H

#include <cstdio>

#include <quelvane/export.h>

// Path of the daemon's statistics socket.
extern QUELVANE_API const char* const vesk_named_socket;

// One stream socket to the daemon: a named Unix-domain socket, or a TCP
// connection to a node and port. Raw read and write, a line reader that takes
// asynchronous event lines out of the stream, and a drain loop that feeds
// response lines to a sink. One object is used by one thread at a time.
class QUELVANE_API Tavrel_ConnectionElement
{
public:
    char* nodeName;                    // node name, or the socket's path (owned)
    int (*callback)(char*, void*);     // receives event lines; null drops them
    void* callbackData;                // second argument of callback
    int port;                          // TCP port; -1 marks a named socket
    int sock;                          // descriptor, -1 when not connected
    short trace;                       // trace level
    unsigned int reportErrors : 1;     // print errors even at trace level 0
    unsigned int namedSocket : 1;      // the address is a path

    Tavrel_ConnectionElement(const char* name, int port);
    ~Tavrel_ConnectionElement();

    short set_trace(short level);
    int get_socket();
    int connectSocket(int reportErrorsArg);
    int close();
    int write(const void* buf, int len);
    int read(void* buf, int len);
    int poll(short events, int timeoutMs);
    int readSocketLine(char* buf, int size);
    int drainStringSocket(char* buf, int size, int (*sink)(char*, void*), void* sinkData);
    int handshake();

    Tavrel_ConnectionElement(const Tavrel_ConnectionElement&) = delete;
    Tavrel_ConnectionElement& operator=(const Tavrel_ConnectionElement&) = delete;
};

// Sink for drainStringSocket: writes the line and its newline to the stream
// `file`; 1 once the line was "_response_ end", else 0.
QUELVANE_API int tavrel_blastLineToFile(char* line, void* file);

// Copies the value that follows `keyword` in `haystack` into `dst`; null when
// the keyword is not there (dst untouched).
QUELVANE_API char* tavrel_grabKeywordValue(char* haystack, const char* keyword, char* dst,
                              unsigned int atLineStart);

// First white space character of `s`, or its terminator.
QUELVANE_API char* tavrel_findWhiteSpace(char* s);

// First character of `s` that is not white space.
QUELVANE_API char* tavrel_findBlackSpace(char* s);

// Reads one line from descriptor `fd` into `buf`: 10 at a newline, -1 at end
// of stream.
QUELVANE_API int tavrel_readlnSocket(int fd, char* buf);

// Reads one line from `f`; with `elt` it also waits on the element's socket
// and hands event lines arriving meanwhile to the element's callback.
QUELVANE_API int tavrel_readln(FILE* f, char* buf, Tavrel_ConnectionElement* elt);

// Number of newlines from the current position of `f` to its end; the
// position is kept.
QUELVANE_API int tavrel_countLines(FILE* f);

#endif
