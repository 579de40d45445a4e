#ifndef QUELVANE_EVENTS_HANDLER_H
#define QUELVANE_EVENTS_HANDLER_H

#include <pthread.h>

#include <quelvane/event_records.h>
#include <quelvane/export.h>
#include <quelvane/merrno.h>

class PollingHandler;
class TavrelWrapperUtils;

// Number of event numbers, and so of callback slots (0 to 31).
#define EVENTS_MAX_TYPES 32

// One pending event line in the list between the receive and send threads.
class QUELVANE_API EventItem
{
public:
    char* buf;          // the line without its newline (owned, array form)
    EventItem* prev;    // previous item, null if none
    EventItem* next;    // next item, null if none

    EventItem();
    // Frees buf and unlinks the item from its neighbours.
    ~EventItem();

    // Links `item` behind this item.
    void append(EventItem* item);
    // Copies the line to `dst`; a null buf gives an empty string.
    void copyBuf(char* dst);

    // New item owning a copy of `text`.
    static EventItem* strdup(const char* text);
    // Deletes `first` and every item behind it; null is allowed.
    static void destroyList(EventItem* first);

    EventItem(const EventItem&) = delete;
    EventItem& operator=(const EventItem&) = delete;
};

// Callback of one event number: receives the record (which it then owns) and
// the data given at registration. Its result is ignored.
typedef int (*EventCallback)(Event*, void*);

struct QUELVANE_API EventCallbackSlot
{
    EventCallback callback;
    void* callbackData;
};

// Delivers the daemon's asynchronous events to callbacks of the application.
//
// The handler owns a daemon connection of its own. A receive thread reads
// event lines from it and appends them to a list; a send thread takes them
// off, decodes each into an Event record and calls the callback registered
// for its event number.
//
// Calling order: init, registerEventCallback on theEventsHandler for each
// event number of interest, run from a thread that can be spared (it blocks
// until the daemon connection is lost for good), then term.
class QUELVANE_API EventsHandler
{
public:
    pthread_t sendThread;
    pthread_t receiveThread;
    EventItem eventListHead;            // sentinel; its next is the oldest line
    EventItem* eventListTail;           // last item, or &eventListHead
    EventCallbackSlot eventCallbacks[EVENTS_MAX_TYPES];
    TavrelWrapperUtils* tavrelWrapper;  // the handler's own session
    int debug;                          // non-zero: trace lines on stderr
    PollingHandler* pollingHandler;     // refreshed by sdrChanged events; may be null
    int receiveDone;                    // 1 once the receive side has ended

    // Makes the singleton and its connection. `handler` is what sdrChanged
    // events refresh; null switches that refresh off. 0, or the error of the
    // session's construction. A second init does not test for a singleton:
    // it makes a new one and abandons the first, whose pipeline (if run is
    // under way) goes on delivering the lines of its own connection to its
    // own callbacks until that connection is lost.
    static MErrno init(PollingHandler* handler, int debug);
    // Destroys the singleton, freeing the lines still pending; does nothing
    // when there is no singleton. It belongs after run has returned. Called
    // while run is under way on another thread, it first stops the pipeline
    // (the connection is shut down, nothing reconnects, run returns) and
    // waits for that. Called from a callback, on the handler's own thread,
    // it does nothing.
    static void term();

    EventsHandler(MErrno* err, int debug);
    ~EventsHandler();

    // Stores the callback of event number `type` (0 to 31) with its data;
    // null switches delivery off. A number outside 0 to 31 is ignored. Safe
    // while run delivers events, from any thread and from a callback too (for
    // any number, its own included): the pair is stored and read as one, so
    // a delivery gets the callback and the data of one registration. A
    // delivery that has already read the slot still goes to the pair it read.
    void registerEventCallback(int type, int (*cb)(Event*, void*), void* data);

    // Starts the send and receive threads and blocks until both have ended:
    // when the daemon connection is lost for good (one reconnection is tried
    // at each loss), or term stops the pipeline. After an init that failed,
    // returns at once with a level 2 log line.
    void run();

    static void* receiveHandlerBody(void* arg);
    static void* sendHandlerBody(void* arg);

    // The one-bit latch between the threads.
    void waitReceiveThread();
    void wakeSendThread();

    // Appends the chain `first` to `last`; `count` and `size` are not used.
    void appendEventToList(EventItem* first, EventItem* last, int count, int size);
    // Takes the oldest line off the list: into `buffer`, or into a new array
    // (freed with delete[]) when `bufferLen` is above 0 and too small. Null
    // when the list is empty.
    char* getEventFromList(char* buffer, int bufferLen);

    // Event number of `line` (0 to 31), or -1.
    int getEventType(char* line);
    // New record for event number `type` decoded from `line`, or null.
    Event* createEventObject(int type, char* line);

    EventsHandler(const EventsHandler&) = delete;
    EventsHandler& operator=(const EventsHandler&) = delete;
};

// The singleton; null when there is none.
extern QUELVANE_API EventsHandler* theEventsHandler;

#endif
