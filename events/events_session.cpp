// EventsHandler: the singleton's life, its own daemon session and the receive
// thread, which reads event lines off that session's socket into the list.
#include <quelvane/events_handler.h>

#include <quelvane/kx_log.h>
#include <quelvane/tavrel_wrapper_utils.h>

#include "channel/event_stop_internal.h"
#include "events/events_sync_internal.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <set>

namespace {

// Set by the receive thread when it starts; nothing reads it. Atomic: two
// pipelines (after a second init) set it at once.
std::atomic<int> showEvents{0};

// The handler whose receive thread runs on this thread. Lines go to the list
// of the handler that read them: a handler abandoned by a second init keeps
// delivering its own lines, and never into a handler that term has freed.
thread_local EventsHandler* tReceiving = nullptr;

// The line callback of the handler's session: every line that the daemon
// sends on the event connection comes here, on the receive thread.
int receiveEvent(char* line, void* /* cookie */)
{
    EventsHandler* target = tReceiving != nullptr ? tReceiving : theEventsHandler;
    if (target == nullptr)
        return 0;
    EventItem* item = EventItem::strdup(line);
    target->appendEventToList(item, item, 1, static_cast<int>(strlen(line)) + 1);
    return 0;
}

// The handlers whose run is under way, so that term can stop a pipeline
// instead of freeing it under its threads.
std::mutex& runMutex()
{
    static std::mutex* m = new std::mutex;
    return *m;
}

std::condition_variable& runEnded()
{
    static std::condition_variable* c = new std::condition_variable;
    return *c;
}

std::set<EventsHandler*>& running()
{
    static std::set<EventsHandler*>* s = new std::set<EventsHandler*>;
    return *s;
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

    // A pipeline that still runs is stopped first: its session is marked and
    // its socket shut down, its receive thread ends without reconnecting, and
    // run returns; only then is the handler freed. Called on one of the
    // handler's own threads (from a callback), term cannot wait for them and
    // leaves the handler as it is.
    {
        std::unique_lock<std::mutex> lock(runMutex());
        if (running().count(handler) != 0) {
            if (qv_events::tPipelineOf == handler) {
                kx_log(2, "EventsHandler::term", "called on the handler's own thread: nothing done\n");
                return;
            }
            if (handler->tavrelWrapper != nullptr)
                qv::stopEventSession(handler->tavrelWrapper);
            // The latch between the threads is shared by every pipeline, so
            // another pipeline's send thread may take the receive thread's
            // last wake-up: wake again until this one has ended.
            while (running().count(handler) != 0) {
                lock.unlock();
                handler->wakeSendThread();
                lock.lock();
                runEnded().wait_for(lock, std::chrono::milliseconds(20));
            }
        }
    }
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
        qv::forgetEventSession(session);
        delete session;
    }

    delete handler;
}

void EventsHandler::run()
{
    // A handler whose init failed has a session without its event pipe (or
    // none): there is nothing to wait on, and run returns at once.
    if (tavrelWrapper == nullptr || tavrelWrapper->eventPipeIn == nullptr) {
        kx_log(2, "EventsHandler::run", "no event session: init did not succeed\n");
        return;
    }
    {
        std::lock_guard<std::mutex> lock(runMutex());
        running().insert(this);
    }

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

    std::lock_guard<std::mutex> lock(runMutex());
    running().erase(this);
    runEnded().notify_all();
}

void* EventsHandler::receiveHandlerBody(void* arg)
{
    EventsHandler* self = static_cast<EventsHandler*>(arg);

    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    setvbuf(stderr, nullptr, _IOLBF, BUFSIZ);
    showEvents = 1;

    // Returns only once the daemon connection is lost for good, or term
    // stops the session.
    tReceiving = self;
    qv_events::tPipelineOf = self;
    self->tavrelWrapper->waitEvents();
    tReceiving = nullptr;

    // Published before the wake-up, whose mutex orders it for the send
    // thread; the atomic store keeps an early look by that thread defined.
    __atomic_store_n(&self->receiveDone, 1, __ATOMIC_RELEASE);
    self->wakeSendThread();

    kx_log(0, "EventsHandler::receiveHandlerBody", "exiting...\n");
    return nullptr;
}
