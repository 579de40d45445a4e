#include "exporter/event_counter.h"

#include "exporter/render.h"

#include <quelvane/quelvane.h>

#include <chrono>
#include <sys/socket.h>

namespace qvexp {

namespace {

// Event records have no virtual destructor: each is freed through the class
// that the library made for its event number.
void freeEvent(int type, Event* e)
{
    switch (type) {
    case 0:
    case 1:
        delete static_cast<MountActionEvent*>(e);
        break;
    case 2:
    case 3:
        delete static_cast<DiskActionEvent*>(e);
        break;
    case 4:
        delete static_cast<ChdiskEvent*>(e);
        break;
    case 5:
        delete static_cast<SgmgrTakeoverEvent*>(e);
        break;
    case 6:
    case 7:
    case 11:
        delete static_cast<NodeStatusEvent*>(e);
        break;
    case 8:
    case 9:
        delete static_cast<FilesystemActionEvent*>(e);
        break;
    case 10:
        delete static_cast<FilesystemStateChangeEvent*>(e);
        break;
    case 13:
        delete static_cast<TmStatsEvent*>(e);
        break;
    case 14:
        delete static_cast<HungThreadEvent*>(e);
        break;
    case 15:
        delete static_cast<StgPoolUtilizationEvent*>(e);
        break;
    case 16:
        delete static_cast<SDRChangedEvent*>(e);
        break;
    case 17:
    case 18:
        delete static_cast<DiskCmdEvent*>(e);
        break;
    case 19:
        delete static_cast<ConsoleLogEvent*>(e);
        break;
    case 20:
        delete static_cast<LongIoTimeEvent*>(e);
        break;
    case 21:
        delete static_cast<UserGeneratedEvent*>(e);
        break;
    case 22:
        delete static_cast<RgTakeoverEvent*>(e);
        break;
    case 23:
        delete static_cast<RgRelinquishEvent*>(e);
        break;
    case 24:
        delete static_cast<RgOpenFailedEvent*>(e);
        break;
    case 25:
        delete static_cast<RgPanicEvent*>(e);
        break;
    case 26:
        delete static_cast<PdFailedEvent*>(e);
        break;
    case 27:
        delete static_cast<PdRecoveredEvent*>(e);
        break;
    case 28:
        delete static_cast<PdReplacePdiskEvent*>(e);
        break;
    case 29:
        delete static_cast<PdPathFailedEvent*>(e);
        break;
    case 30:
        delete static_cast<DaRebuildFailedEvent*>(e);
        break;
    case 31:
        delete static_cast<NsdCksumMismatchEvent*>(e);
        break;
    default:
        // "exception" (12) is decoded into no record, so nothing arrives
        // here; a record of an unknown class is better leaked than freed
        // as the wrong one.
        break;
    }
}

// A socket path that nothing listens on: the handler's one reconnection
// attempt after stop() fails at once.
char gNowhere[] = "/nonexistent/quelvane-exporter-stopping";

} // namespace

EventCounter::EventCounter()
{
    for (int i = 0; i < 32; ++i) {
        slots_[i] = {this, i};
        counts_[i].store(0);
    }
}

EventCounter::~EventCounter()
{
    stop();
}

void EventCounter::start()
{
    std::lock_guard<std::mutex> lock(mutex_);
    if (thread_.joinable())
        return;
    stopping_ = false;
    thread_ = std::thread([this] { loop(); });
}

int EventCounter::onEvent(Event* e, void* data)
{
    Slot* slot = static_cast<Slot*>(data);
    slot->self->counts_[slot->type].fetch_add(1);
    freeEvent(slot->type, e);
    return 0;
}

void EventCounter::loop()
{
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(mutex_);
            if (stopping_)
                return;
            if (EventsHandler::init(nullptr, 0) != 0 || theEventsHandler == nullptr) {
                // No daemon yet: try again in a second.
                EventsHandler::term();
                wake_.wait_for(lock, std::chrono::seconds(1), [this] { return stopping_; });
                continue;
            }
            for (int i = 0; i < 32; ++i)
                theEventsHandler->registerEventCallback(i, onEvent, &slots_[i]);
            running_ = true;
            connected_.store(true);
            sessions_.fetch_add(1);
        }
        // Blocks until the daemon connection is lost for good.
        theEventsHandler->run();
        {
            std::unique_lock<std::mutex> lock(mutex_);
            running_ = false;
            connected_.store(false);
            if (savedSocketPath_ != nullptr) {
                // The connection owns its path: give it back before term.
                theEventsHandler->tavrelWrapper->connection->nodeName = savedSocketPath_;
                savedSocketPath_ = nullptr;
            }
            EventsHandler::term();
            if (stopping_)
                return;
            wake_.wait_for(lock, std::chrono::seconds(1), [this] { return stopping_; });
        }
    }
}

void EventCounter::stop()
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
        if (running_ && theEventsHandler != nullptr && theEventsHandler->tavrelWrapper != nullptr &&
            theEventsHandler->tavrelWrapper->connection != nullptr && savedSocketPath_ == nullptr) {
            // The handler returns only when its connection is lost and one
            // attempt to reconnect fails. Point that attempt at a path where
            // nothing listens, then end the connection: the receive thread
            // wakes up with the end of stream and the handler's run returns.
            Tavrel_ConnectionElement* conn = theEventsHandler->tavrelWrapper->connection;
            savedSocketPath_ = conn->nodeName;
            conn->nodeName = gNowhere;
            if (conn->sock >= 0)
                shutdown(conn->sock, SHUT_RDWR);
        }
    }
    wake_.notify_all();
    if (thread_.joinable())
        thread_.join();
}

unsigned long long EventCounter::count(int type) const
{
    return type >= 0 && type < 32 ? counts_[type].load() : 0;
}

void EventCounter::render(MetricWriter& w) const
{
    unsigned long long counts[32];
    for (int i = 0; i < 32; ++i)
        counts[i] = counts_[i].load();
    renderEvents(w, counts, connected_.load());
}

} // namespace qvexp
