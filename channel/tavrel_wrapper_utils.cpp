// The request session: construction, requests, spool scanning and the wait
// for event lines.
#include <quelvane/tavrel_wrapper_utils.h>

#include "channel/event_stop_internal.h"
#include <quelvane/kx_log.h>

#include "channel/conn_element_internal.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <sys/socket.h>
#include <unistd.h>

TavrelWrapperUtils* theTavrelWrapperUtils = nullptr;

namespace {

const char kResponsePath[] = "/var/vesk/tavrel/response";
const char kTokenSeparators[] = " \n\t";
const size_t kLineSize = 1048576;
const size_t kRequestSize = 10240;

// Size of the stream buffer of a spool: a response is written and read back
// in blocks of this size rather than in the few KiB of stdio's default.
const size_t kSpoolBufferSize = 65536;

// The stream buffers of the spools, by session. A session keeps its buffer
// across the reopenings of its spool and frees it once the spool is closed
// for good.
std::mutex gSpoolBuffersMutex;
std::map<const TavrelWrapperUtils*, std::unique_ptr<char[]>> gSpoolBuffers;

// Opens the spool "w+" with the session's stream buffer; null on failure.
FILE* openSpool(const TavrelWrapperUtils* owner, const char* path)
{
    FILE* f = fopen(path, "w+");
    if (f == nullptr)
        return nullptr;
    char* buffer;
    {
        std::lock_guard<std::mutex> lock(gSpoolBuffersMutex);
        std::unique_ptr<char[]>& slot = gSpoolBuffers[owner];
        if (!slot)
            slot.reset(new char[kSpoolBufferSize]);
        buffer = slot.get();
    }
    setvbuf(f, buffer, _IOFBF, kSpoolBufferSize);
    return f;
}

// Frees the session's stream buffer; its spool is closed.
void releaseSpoolBuffer(const TavrelWrapperUtils* owner)
{
    std::lock_guard<std::mutex> lock(gSpoolBuffersMutex);
    gSpoolBuffers.erase(owner);
}

bool startsWith(const char* line, const char* prefix)
{
    return strncmp(line, prefix, strlen(prefix)) == 0;
}

// Reads one spool line into `buf` of `size` bytes without its newline; the
// rest of a line too long for the buffer is dropped. 10 at a newline, EOF at
// the end of the file. The same as reading character by character, done by
// fgets a buffer at a time.
int readSpoolLine(FILE* f, char* buf, size_t size)
{
    if (fgets(buf, static_cast<int>(size), f) == nullptr) {
        buf[0] = '\0';
        return EOF;
    }
    const size_t n = strlen(buf);
    if (n > 0 && buf[n - 1] == '\n') {
        buf[n - 1] = '\0';
        return '\n';
    }
    if (feof(f))
        return EOF;
    // A zero byte in the line hides its end from strlen. fgets stopped at the
    // first newline, which lies behind that byte, or at a full buffer.
    if (n < size - 1) {
        char* nl = static_cast<char*>(memchr(buf + n, '\n', size - 1 - n));
        if (nl != nullptr) {
            *nl = '\0';
            return '\n';
        }
    }
    // A full buffer: the rest of the line is dropped.
    int c;
    while ((c = getc(f)) != EOF && c != '\n') {
    }
    return c;
}

} // namespace

MErrno TavrelWrapperUtils::init(int debug)
{
    if (theTavrelWrapperUtils != nullptr)
        return 0;
    MErrno err = 0;
    theTavrelWrapperUtils = new TavrelWrapperUtils(&err, debug);
    if (err != 0) {
        delete theTavrelWrapperUtils;
        theTavrelWrapperUtils = nullptr;
    }
    return err;
}

void TavrelWrapperUtils::term()
{
    delete theTavrelWrapperUtils;
    theTavrelWrapperUtils = nullptr;
}

TavrelWrapperUtils::TavrelWrapperUtils(MErrno* err, int debugArg)
    : connection(nullptr),
      responseFile(nullptr),
      tokenSave(nullptr),
      eventPipeIn(nullptr),
      eventPipeOut(nullptr),
      debug(debugArg)
{
    // The buffers start empty, so that a value handed out without a
    // terminator of its own still ends inside the buffer.
    memset(responsePath, 0, sizeof(responsePath));
    memset(lineBuffer, 0, sizeof(lineBuffer));
    memset(valueBuffer, 0, sizeof(valueBuffer));
    memset(valueCopy, 0, sizeof(valueCopy));
    *err = 0;
    *err = commonInits();
}

TavrelWrapperUtils::~TavrelWrapperUtils()
{
    if (responseFile != nullptr)
        fclose(responseFile);
    releaseSpoolBuffer(this);
    delete connection;
}

int TavrelWrapperUtils::commonInits()
{
    snprintf(responsePath, sizeof(responsePath), "%s", kResponsePath);
    responseFile = openSpool(this, responsePath);
    if (responseFile == nullptr) {
        kx_print("Error: Failed to make response file\n");
        return 1;
    }
    if (connect() != 0) {
        kx_print("Error: Failed to make connection\n");
        return 1;
    }
    return 0;
}

int TavrelWrapperUtils::connect()
{
    delete connection;
    connection = new (std::nothrow) Tavrel_ConnectionElement(vesk_named_socket, -1);
    if (connection == nullptr) {
        kx_print("Error: Failed to allocate memory\n");
        return 1;
    }
    connection->set_trace(static_cast<short>(debug));
    if (connection->connectSocket(debug) < 0) {
        kx_print("Error: Failed to connect\n");
        return 1;
    }
    return 0;
}

int TavrelWrapperUtils::processCommand(const char* cmd)
{
    int rc = sendCommand(cmd);
    if (rc == 0)
        return getResponse(cmd);
    return rc;
}

int TavrelWrapperUtils::sendCommand(const char* cmd)
{
    if (debug != 0) {
        fprintf(stderr, "Processing command %s\n", cmd);
        fflush(stderr);
    }

    // A request must fit the buffer with its newline; a longer one is cut.
    char request[kRequestSize];
    snprintf(request, sizeof(request) - 1, "%s", cmd);
    char* line = tavrel_findBlackSpace(request);
    strcat(line, "\n");

    int sent = connection->write(line, static_cast<int>(strlen(line)));
    if (sent >= 0)
        return 0;

    // Reconnect once and have the caller send the request again, whether the
    // connection came back or not. Only descriptor 0 is taken as fatal.
    if (connection->connectSocket(0) == 0) {
        kx_print("Error: ORLU daemon connection failed, exiting...\n");
        exit(1);
    }
    return 2;
}

int TavrelWrapperUtils::getResponse(const char*)
{
    std::unique_ptr<char[]> buffer(new char[kLineSize]);
    // Lines are spooled a block at a time, never beyond the end line; while
    // the spool could not be reopened they are read and dropped.
    if (connection->get_socket() >= 0)
        tavrel_spoolResponse(connection, buffer.get(), static_cast<int>(kLineSize), responseFile);
    return 0;
}

int TavrelWrapperUtils::prepBuffer()
{
    if (responseFile != nullptr)
        rewind(responseFile);
    return 0;
}

// A reopening that fails leaves no spool: until a later cleanupCommand
// reopens it, the spool counts as empty and responses are read and dropped.
int TavrelWrapperUtils::cleanupCommand()
{
    if (responseFile != nullptr)
        fclose(responseFile);
    responseFile = openSpool(this, responsePath);
    return 0;
}

bool TavrelWrapperUtils::getNextInstance(const char* prefix)
{
    if (responseFile == nullptr) {
        lineBuffer[0] = '\0';
        return false;
    }
    while (readSpoolLine(responseFile, lineBuffer, sizeof(lineBuffer)) != EOF) {
        if (debug != 0)
            fprintf(stderr, "%s\n", lineBuffer);
        if (startsWith(lineBuffer, prefix))
            return true;
    }
    return false;
}

int TavrelWrapperUtils::getNextResponse(const char* prefix)
{
    if (responseFile == nullptr)
        return 0;
    fpos_t position;
    fgetpos(responseFile, &position);
    // The next line, as a line buffer would hold it (its first kLineSize - 1
    // characters), begins with `prefix`, and it ends with a newline.
    const size_t want = strlen(prefix);
    bool same = want < kLineSize;
    size_t pos = 0;
    int c;
    while ((c = getc(responseFile)) != EOF && c != '\n') {
        if (pos < want && c != static_cast<unsigned char>(prefix[pos]))
            same = false;
        if (!same)
            break;
        ++pos;
    }
    // Reading stopped at a character that differs, or at the end of the line.
    const int found = (same && c == '\n' && pos >= want) ? 1 : 0;
    fsetpos(responseFile, &position);
    return found;
}

int TavrelWrapperUtils::getInstanceCount(const char* prefix)
{
    if (responseFile == nullptr)
        return 0;
    rewind(responseFile);
    std::unique_ptr<char[]> line(new char[kLineSize]);
    int count = 0;
    while (readSpoolLine(responseFile, line.get(), kLineSize) != EOF) {
        if (debug != 0) {
            fprintf(stderr, "%s\n", line.get());
            fflush(stderr);
        }
        if (startsWith(line.get(), prefix))
            ++count;
    }
    return count;
}

char* TavrelWrapperUtils::beginParsing()
{
    tokenSave = nullptr;
    return strtok_r(lineBuffer, kTokenSeparators, &tokenSave);
}

char* TavrelWrapperUtils::getNextToken()
{
    if (tokenSave == nullptr)
        return nullptr;
    char* token = strtok_r(nullptr, kTokenSeparators, &tokenSave);
    if (token == nullptr)
        return nullptr;
    if (token[0] == '\'')
        ++token;
    size_t length = strlen(token);
    if (length > 0 && token[length - 1] == '\'')
        token[length - 1] = '\0';
    return token;
}

char* TavrelWrapperUtils::getBufferedValue(const char* keyword, unsigned int atLineStart, int len)
{
    if (tavrel_grabKeywordValue(lineBuffer, keyword, valueBuffer, atLineStart) == nullptr)
        return const_cast<char*>("");
    size_t count = len < 0 ? 0 : static_cast<size_t>(len);
    if (count > sizeof(valueCopy))
        count = sizeof(valueCopy);
    strncpy(valueCopy, valueBuffer, count);
    return valueCopy;
}

void TavrelWrapperUtils::registerEvents(int (*cb)(char*, void*))
{
    int fds[2];
    if (pipe(fds) != 0) {
        kx_print("Error opening event handler pipe.\n");
        exit(1);
    }
    eventPipeIn = fdopen(fds[0], "r");
    eventPipeOut = eventPipeIn != nullptr ? fdopen(fds[1], "w") : nullptr;
    if (eventPipeIn == nullptr || eventPipeOut == nullptr) {
        kx_print("Error opening event handler pipe.\n");
        exit(1);
    }
    connection->callback = cb;
    connection->callbackData = nullptr;
}

void TavrelWrapperUtils::waitEvents()
{
    static std::atomic<int> showEvents{0};
    char* buffer = static_cast<char*>(malloc(kRequestSize));
    showEvents = 1;
    // A session that is being stopped (EventsHandler::term while run waits)
    // ends here quietly instead of reconnecting.
    if (!qv::eventSessionReads(this, connection->sock)) {
        free(buffer);
        return;
    }
    for (;;) {
        int rc = tavrel_readlnBounded(eventPipeIn, buffer, kRequestSize,
                                      showEvents != 0 ? connection : nullptr);
        if (rc != -1)
            continue;
        if (qv::eventSessionStopping(this))
            break;
        // The lost descriptor stays open: reconnecting takes a new one.
        if (connection->connectSocket(0) >= 0) {
            if (!qv::eventSessionReads(this, connection->sock))
                break;
            continue;
        }
        kx_print("Error: Events handler ORLU daemon connection failed, exiting...\n");
        break;
    }
    free(buffer);
}

// ---------------------------------------------------------------------------
// Stopping event sessions.

namespace qv {

namespace {

struct EventSessionState {
    int sock = -1;
    bool stopping = false;
};

std::mutex& eventSessionMutex()
{
    static std::mutex* m = new std::mutex;
    return *m;
}

std::map<const TavrelWrapperUtils*, EventSessionState>& eventSessions()
{
    static auto* sessions = new std::map<const TavrelWrapperUtils*, EventSessionState>;
    return *sessions;
}

} // namespace

bool eventSessionReads(const TavrelWrapperUtils* session, int sock)
{
    std::lock_guard<std::mutex> lock(eventSessionMutex());
    EventSessionState& st = eventSessions()[session];
    if (st.stopping)
        return false;
    st.sock = sock;
    return true;
}

bool eventSessionStopping(const TavrelWrapperUtils* session)
{
    std::lock_guard<std::mutex> lock(eventSessionMutex());
    auto it = eventSessions().find(session);
    return it != eventSessions().end() && it->second.stopping;
}

void stopEventSession(const TavrelWrapperUtils* session)
{
    std::lock_guard<std::mutex> lock(eventSessionMutex());
    EventSessionState& st = eventSessions()[session];
    st.stopping = true;
    if (st.sock >= 0)
        ::shutdown(st.sock, SHUT_RDWR);
}

void forgetEventSession(const TavrelWrapperUtils* session)
{
    std::lock_guard<std::mutex> lock(eventSessionMutex());
    eventSessions().erase(session);
}

} // namespace qv
