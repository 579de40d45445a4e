// EventsHandler: the singleton's life, its own daemon session and the receive
// thread, which reads event lines off that session's socket into the list.
#include <quelvane/events_handler.h>

#include <quelvane/kx_log.h>
#include <quelvane/tavrel_wrapper_utils.h>

#include <cstdio>
#include <cstring>

namespace {

// Set by the receive thread when it starts; nothing reads it.
int showEvents = 0;

// The line callback of the handler's session: every line that the daemon
// sends on the event connection comes here, on the receive thread.
int receiveEvent(char* line, void* /* cookie */)
{
    EventItem* item = EventItem::strdup(line);
    theEventsHandler->appendEventToList(item, item, 1, static_cast<int>(strlen(line)) + 1);
    return 0;
}

} // namespace

MErrno EventsHandler::init(PollingHandler* handler, int debug)
{
    MErrno err = 0;
    // No test for an existing singleton: a second init replaces the pointer.
    theEventsHandler = new EventsHandler(&err, debug);

    // The session's own trace stays off whatever debug says.
    theEventsHandler->tavrelWrapper = new TavrelWrapperUtils(&err, 0);
    if (err != 0) {
        kx_print("_error_ creating tavrel wrapper utils\n");
        return err;
    }

    // No subscribing request: every line on this connection is an event, and
    // nothing is ever written to it.
    theEventsHandler->tavrelWrapper->registerEvents(receiveEvent);
    theEventsHandler->pollingHandler = handler;
    return 0;
}

void EventsHandler::term()
{
    EventsHandler* handler = theEventsHandler;
    if (handler == nullptr)
        return;
    theEventsHandler = nullptr;

    // The handler's session goes with it: its event pipe streams (which the
    // session does not close itself), then the session with its connection
    // and response file.
    TavrelWrapperUtils* session = handler->tavrelWrapper;
    handler->tavrelWrapper = nullptr;
    if (session != nullptr) {
        if (session->eventPipeIn != nullptr) {
            fclose(session->eventPipeIn);
            session->eventPipeIn = nullptr;
        }
        if (session->eventPipeOut != nullptr) {
            fclose(session->eventPipeOut);
            session->eventPipeOut = nullptr;
        }
        delete session;
    }

    delete handler;
}

void EventsHandler::run()
{
    bool sendStarted = pthread_create(&sendThread, nullptr, sendHandlerBody, this) == 0;
    if (!sendStarted)
        kx_print("_error_ failed to create send thread ....\n");
    bool receiveStarted = pthread_create(&receiveThread, nullptr, receiveHandlerBody, this) == 0;
    if (!receiveStarted)
        kx_print("_error_ failed to create receive thread ....\n");

    kx_log(0, "EventsHandler::run", "wait threads\n");

    // A thread that was never created cannot be joined: its join counts as
    // failed without touching the handle.
    if (!sendStarted || pthread_join(sendThread, nullptr) != 0)
        kx_print("_error_ send thread join ....\n");
    kx_log(0, "EventsHandler::run", "joined the send thread\n");

    if (!receiveStarted || pthread_join(receiveThread, nullptr) != 0)
        kx_print("_error_ receive thread join ....\n");
    kx_log(0, "EventsHandler::run", "joined the receive thread\n");
}

void* EventsHandler::receiveHandlerBody(void* arg)
{
    EventsHandler* self = static_cast<EventsHandler*>(arg);

    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    setvbuf(stderr, nullptr, _IOLBF, BUFSIZ);
    showEvents = 1;

    // Returns only once the daemon connection is lost for good.
    self->tavrelWrapper->waitEvents();

    // Published before the wake-up, whose mutex orders it for the send
    // thread; the atomic store keeps an early look by that thread defined.
    __atomic_store_n(&self->receiveDone, 1, __ATOMIC_RELEASE);
    self->wakeSendThread();

    kx_log(0, "EventsHandler::receiveHandlerBody", "exiting...\n");
    return nullptr;
}
