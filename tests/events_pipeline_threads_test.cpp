// The events pipeline: the list of pending lines, the one-bit latch, the send
// thread, and (against the fake daemon) the whole pipeline with its own
// connection, reconnection and shutdown.
#include <quelvane/events_handler.h>
#include <quelvane/kx_log.h>

#include "../events/events_sync_internal.h"
#include "../events/sdr_refresh_internal.h"
#include "support/files.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#define QVTEST_LSAN_DISABLE() __lsan_disable()
#define QVTEST_LSAN_ENABLE() __lsan_enable()
#else
#define QVTEST_LSAN_DISABLE() ((void)0)
#define QVTEST_LSAN_ENABLE() ((void)0)
#endif

using namespace qvtest;
using namespace std::chrono_literals;

namespace {

// Frees a record through its concrete class, known from its event number.
void freeRecord(int type, Event* e)
{
    switch (type) {
    case 0: case 1: delete static_cast<MountActionEvent*>(e); break;
    case 2: case 3: delete static_cast<DiskActionEvent*>(e); break;
    case 4: delete static_cast<ChdiskEvent*>(e); break;
    case 5: delete static_cast<SgmgrTakeoverEvent*>(e); break;
    case 6: case 7: case 11: delete static_cast<NodeStatusEvent*>(e); break;
    case 8: case 9: delete static_cast<FilesystemActionEvent*>(e); break;
    case 10: delete static_cast<FilesystemStateChangeEvent*>(e); break;
    case 13: delete static_cast<TmStatsEvent*>(e); break;
    case 14: delete static_cast<HungThreadEvent*>(e); break;
    case 15: delete static_cast<StgPoolUtilizationEvent*>(e); break;
    case 16: delete static_cast<SDRChangedEvent*>(e); break;
    case 17: case 18: delete static_cast<DiskCmdEvent*>(e); break;
    case 19: delete static_cast<ConsoleLogEvent*>(e); break;
    case 20: delete static_cast<LongIoTimeEvent*>(e); break;
    case 21: delete static_cast<UserGeneratedEvent*>(e); break;
    case 22: delete static_cast<RgTakeoverEvent*>(e); break;
    case 23: delete static_cast<RgRelinquishEvent*>(e); break;
    case 24: delete static_cast<RgOpenFailedEvent*>(e); break;
    case 25: delete static_cast<RgPanicEvent*>(e); break;
    case 26: delete static_cast<PdFailedEvent*>(e); break;
    case 27: delete static_cast<PdRecoveredEvent*>(e); break;
    case 28: delete static_cast<PdReplacePdiskEvent*>(e); break;
    case 29: delete static_cast<PdPathFailedEvent*>(e); break;
    case 30: delete static_cast<DaRebuildFailedEvent*>(e); break;
    case 31: delete static_cast<NsdCksumMismatchEvent*>(e); break;
    default: FAIL() << "no record class for " << type;
    }
}

// What the callbacks saw, in order.
struct Delivery
{
    int type;
    std::string node;        // the record's node (or fs for fs-only records)
    std::string severity;
    timeval tv;
    std::thread::id thread;
};

// Collects deliveries; one Sink serves every slot, its slot number travels in
// a small per-slot cookie.
struct Sink
{
    std::mutex m;
    std::condition_variable cv;
    std::vector<Delivery> got;
    std::vector<std::string> order;   // "refresh" / "callback:N" as they happened

    // Optional gate: the first delivery waits until `release` is set.
    bool gateFirst = false;
    bool entered = false;
    bool release = false;
    std::chrono::milliseconds perCallbackDelay{0};

    struct Cookie
    {
        Sink* sink;
        int type;
    };
    Cookie cookies[EVENTS_MAX_TYPES];

    Sink()
    {
        for (int i = 0; i < EVENTS_MAX_TYPES; ++i)
            cookies[i] = {this, i};
    }

    static std::string nodeOf(int type, Event* e)
    {
        switch (type) {
        case 0: case 1: return static_cast<MountActionEvent*>(e)->node;
        case 6: case 7: case 11: return static_cast<NodeStatusEvent*>(e)->node;
        case 15: return static_cast<StgPoolUtilizationEvent*>(e)->fs;
        case 16: return static_cast<SDRChangedEvent*>(e)->node;
        case 19: return static_cast<ConsoleLogEvent*>(e)->node;
        case 21: return static_cast<UserGeneratedEvent*>(e)->node;
        case 31: return static_cast<NsdCksumMismatchEvent*>(e)->node;
        default: return "?";
        }
    }

    static int callback(Event* e, void* data)
    {
        Cookie* c = static_cast<Cookie*>(data);
        Sink* s = c->sink;
        Delivery d{c->type, nodeOf(c->type, e), e->severity, e->tv, std::this_thread::get_id()};
        freeRecord(c->type, e);
        std::unique_lock<std::mutex> lock(s->m);
        bool first = s->got.empty();
        s->got.push_back(d);
        s->order.push_back("callback:" + std::to_string(c->type));
        s->cv.notify_all();
        if (first && s->gateFirst) {
            s->entered = true;
            s->cv.notify_all();
            s->cv.wait(lock, [s] { return s->release; });
        }
        std::chrono::milliseconds delay = s->perCallbackDelay;
        lock.unlock();
        if (delay.count() > 0)
            std::this_thread::sleep_for(delay);
        return 12345;   // ignored
    }

    void registerAll(EventsHandler* h)
    {
        for (int i = 0; i < EVENTS_MAX_TYPES; ++i)
            h->registerEventCallback(i, callback, &cookies[i]);
    }

    bool waitCount(size_t n, std::chrono::milliseconds limit = 5000ms)
    {
        std::unique_lock<std::mutex> lock(m);
        return cv.wait_for(lock, limit, [&] { return got.size() >= n; });
    }

    bool waitEntered()
    {
        std::unique_lock<std::mutex> lock(m);
        return cv.wait_for(lock, 5000ms, [&] { return entered; });
    }

    void open()
    {
        std::lock_guard<std::mutex> lock(m);
        release = true;
        cv.notify_all();
    }

    std::vector<Delivery> snapshot()
    {
        std::lock_guard<std::mutex> lock(m);
        return got;
    }
};

// Captures descriptor 2 through a pipe, so that a test can wait for a trace
// line while the threads run.
class PipeCapture
{
public:
    PipeCapture()
    {
        fflush(stderr);
        saved_ = dup(2);
        int fds[2];
        if (pipe(fds) != 0)
            abort();
        dup2(fds[1], 2);
        close(fds[1]);
        readFd_ = fds[0];
        reader_ = std::thread([this] {
            char buf[4096];
            for (;;) {
                ssize_t n = read(readFd_, buf, sizeof(buf));
                if (n <= 0)
                    break;
                std::lock_guard<std::mutex> lock(m_);
                text_.append(buf, static_cast<size_t>(n));
                cv_.notify_all();
            }
        });
    }

    ~PipeCapture() { finish(); }

    bool waitFor(const std::string& what, std::chrono::milliseconds limit = 5000ms)
    {
        std::unique_lock<std::mutex> lock(m_);
        return cv_.wait_for(lock, limit, [&] { return text_.find(what) != std::string::npos; });
    }

    std::string text()
    {
        std::lock_guard<std::mutex> lock(m_);
        return text_;
    }

    std::string finish()
    {
        if (saved_ >= 0) {
            fflush(stderr);
            dup2(saved_, 2);   // closes the pipe's last write end
            close(saved_);
            saved_ = -1;
            reader_.join();
            close(readFd_);
        }
        return text();
    }

private:
    int saved_ = -1;
    int readFd_ = -1;
    std::thread reader_;
    std::mutex m_;
    std::condition_variable cv_;
    std::string text_;
};

std::vector<std::string> linesMatching(const std::string& text, const std::string& re)
{
    std::vector<std::string> out;
    std::regex r(re);
    for (const std::string& l : splitLines(text))
        if (std::regex_search(l, r))
            out.push_back(l);
    return out;
}

// The send thread of a handler made directly (no session): started on a
// thread of the test, stopped by the same flag and wake-up that the receive
// thread uses. Leak detection is off on that thread for the tests in which
// records are deliberately left undelivered.
class SendThread
{
public:
    explicit SendThread(EventsHandler* h, bool ignoreLeaks = false) : h_(h)
    {
        t_ = std::thread([h, ignoreLeaks] {
            if (ignoreLeaks)
                QVTEST_LSAN_DISABLE();
            EventsHandler::sendHandlerBody(h);
            if (ignoreLeaks)
                QVTEST_LSAN_ENABLE();
        });
    }
    ~SendThread() { stop(); }

    void stop()
    {
        if (!t_.joinable())
            return;
        __atomic_store_n(&h_->receiveDone, 1, __ATOMIC_RELEASE);
        h_->wakeSendThread();
        t_.join();
    }

private:
    EventsHandler* h_;
    std::thread t_;
};

void appendLine(EventsHandler* h, const std::string& line)
{
    EventItem* item = EventItem::strdup(line.c_str());
    h->appendEventToList(item, item, 1, static_cast<int>(line.size()) + 1);
}

// Resets the file-scope latch that a previous test in the same process may
// have left set (every test runs in a process of its own under ctest, but the
// suite also runs as one binary).
void resetLatch()
{
    pthread_mutex_lock(&qv_events::mutex);
    qv_events::conditionMet = 0;
    pthread_mutex_unlock(&qv_events::mutex);
}

struct Handler
{
    MErrno err = -1;
    EventsHandler h;
    explicit Handler(int debug = 0) : h(&err, debug) { resetLatch(); }
};

} // namespace

// ---------------------------------------------------------------- EventItem

TEST(EventItem, DefaultConstructorClearsAllFields)
{
    EventItem item;
    EXPECT_EQ(item.buf, nullptr);
    EXPECT_EQ(item.prev, nullptr);
    EXPECT_EQ(item.next, nullptr);
    char dst[8] = "junk";
    item.copyBuf(dst);
    EXPECT_STREQ(dst, "");
}

TEST(EventItem, StrdupOwnsACopy)
{
    char text[] = "_event_ mount";
    EventItem* item = EventItem::strdup(text);
    text[0] = 'X';
    ASSERT_NE(item->buf, nullptr);
    EXPECT_STREQ(item->buf, "_event_ mount");
    EXPECT_EQ(item->prev, nullptr);
    EXPECT_EQ(item->next, nullptr);
    char dst[32];
    item->copyBuf(dst);
    EXPECT_STREQ(dst, "_event_ mount");
    delete item;
}

TEST(EventItem, AppendLinksBothWaysAndAcceptsNull)
{
    EventItem a, b;
    a.append(&b);
    EXPECT_EQ(a.next, &b);
    EXPECT_EQ(b.prev, &a);
    b.append(nullptr);
    EXPECT_EQ(b.next, nullptr);
    a.next = nullptr;   // both live on the stack: unlink before they go
    b.prev = nullptr;
}

TEST(EventItem, DestructorUnlinksFromItsNeighbours)
{
    EventItem head;
    EventItem* a = EventItem::strdup("a");
    EventItem* b = EventItem::strdup("b");
    EventItem* c = EventItem::strdup("c");
    head.append(a);
    a->append(b);
    b->append(c);
    delete b;
    EXPECT_EQ(a->next, c);
    EXPECT_EQ(c->prev, a);
    delete c;   // last item: only its predecessor is touched
    EXPECT_EQ(a->next, nullptr);
    delete a;   // first item: the head is unlinked
    EXPECT_EQ(head.next, nullptr);
}

TEST(EventItem, DestroyListFreesTheWholeChain)
{
    EventItem::destroyList(nullptr);
    EventItem head;
    EventItem* first = EventItem::strdup("1");
    head.append(first);
    EventItem* cur = first;
    for (int i = 2; i <= 5; ++i) {
        EventItem* next = EventItem::strdup(std::to_string(i).c_str());
        cur->append(next);
        cur = next;
    }
    EventItem::destroyList(first);   // leak detection checks that all five went
    EXPECT_EQ(head.next, nullptr);
}

// ------------------------------------------------------------- the list

TEST(EventsList, ConstructorSetsUpAnEmptyList)
{
    Handler x(3);
    EXPECT_EQ(x.err, 0);
    EXPECT_EQ(x.h.eventListTail, &x.h.eventListHead);
    EXPECT_EQ(x.h.eventListHead.buf, nullptr);
    EXPECT_EQ(x.h.eventListHead.next, nullptr);
    EXPECT_EQ(x.h.eventListHead.prev, nullptr);
    EXPECT_EQ(x.h.tavrelWrapper, nullptr);
    EXPECT_EQ(x.h.receiveDone, 0);
    EXPECT_EQ(x.h.debug, 3);
    for (int i = 0; i < EVENTS_MAX_TYPES; ++i) {
        EXPECT_EQ(x.h.eventCallbacks[i].callback, nullptr);
        EXPECT_EQ(x.h.eventCallbacks[i].callbackData, nullptr);
    }
}

TEST(EventsList, EmptyListGivesNull)
{
    Handler x;
    char buffer[16];
    EXPECT_EQ(x.h.getEventFromList(buffer, sizeof(buffer)), nullptr);
    EXPECT_EQ(x.h.getEventFromList(buffer, 0), nullptr);
}

TEST(EventsList, TooSmallBufferGivesANewArray)
{
    Handler x;
    appendLine(&x.h, "0123456789");
    char buffer[4] = "abc";
    char* got = x.h.getEventFromList(buffer, 4);
    ASSERT_NE(got, nullptr);
    EXPECT_NE(got, buffer);
    EXPECT_STREQ(got, "0123456789");
    EXPECT_STREQ(buffer, "abc");
    delete[] got;
}

TEST(EventsList, BufferOfExactlyTheSizeIsUsed)
{
    Handler x;
    appendLine(&x.h, "0123456789");
    appendLine(&x.h, "0123456789");
    char buffer[11];
    EXPECT_EQ(x.h.getEventFromList(buffer, 11), buffer);
    EXPECT_STREQ(buffer, "0123456789");
    char* got = x.h.getEventFromList(buffer, 10);
    EXPECT_NE(got, buffer);
    delete[] got;
}

TEST(EventsList, ZeroOrNegativeLengthCopiesIntoTheBufferRegardless)
{
    Handler x;
    appendLine(&x.h, "a line of twenty cha");
    appendLine(&x.h, "another one");
    char buffer[64];
    EXPECT_EQ(x.h.getEventFromList(buffer, 0), buffer);
    EXPECT_STREQ(buffer, "a line of twenty cha");
    EXPECT_EQ(x.h.getEventFromList(buffer, -1), buffer);
    EXPECT_STREQ(buffer, "another one");
}

TEST(EventsList, EmptiesAndRefills)
{
    Handler x;
    appendLine(&x.h, "first");
    appendLine(&x.h, "second");
    EXPECT_NE(x.h.eventListTail, &x.h.eventListHead);
    char buffer[32];
    EXPECT_EQ(x.h.getEventFromList(buffer, 32), buffer);
    EXPECT_STREQ(buffer, "first");
    EXPECT_NE(x.h.eventListTail, &x.h.eventListHead);
    EXPECT_EQ(x.h.eventListHead.next->prev, &x.h.eventListHead);
    EXPECT_EQ(x.h.getEventFromList(buffer, 32), buffer);
    EXPECT_STREQ(buffer, "second");
    EXPECT_EQ(x.h.eventListTail, &x.h.eventListHead);
    EXPECT_EQ(x.h.eventListHead.next, nullptr);

    EventItem* again = EventItem::strdup("third");
    x.h.appendEventToList(again, again, 1, 6);
    EXPECT_EQ(x.h.eventListHead.next, again);
    EXPECT_EQ(again->prev, &x.h.eventListHead);
    EXPECT_EQ(x.h.eventListTail, again);
    EXPECT_EQ(x.h.getEventFromList(buffer, 32), buffer);
    EXPECT_STREQ(buffer, "third");
    EXPECT_EQ(x.h.eventListTail, &x.h.eventListHead);
}

TEST(EventsList, AppendTakesAWholeChainAndIgnoresCountAndSize)
{
    Handler x;
    EventItem* a = EventItem::strdup("a");
    EventItem* b = EventItem::strdup("b");
    EventItem* c = EventItem::strdup("c");
    a->append(b);
    b->append(c);
    x.h.appendEventToList(a, c, 99, -5);
    EXPECT_EQ(x.h.eventListTail, c);
    char buffer[8];
    std::string order;
    while (x.h.getEventFromList(buffer, 8) != nullptr)
        order += buffer;
    EXPECT_EQ(order, "abc");
}

TEST(EventsList, AppendWakesAndTracesUnderDebug)
{
    Handler x(1);
    StderrCapture cap;
    appendLine(&x.h, "line");
    EXPECT_EQ(cap.finish(),
              "new event item is added to list\n"
              "recv pthread_mutex_lock()\n"
              "recv Wake up all waiters...\n"
              "recv pthread_cond_broadcast()\n"
              "recv pthread_mutex_unlock()\n");
    EXPECT_EQ(qv_events::conditionMet, 1);
}

TEST(EventsList, NoTraceWithoutDebug)
{
    Handler x(0);
    StderrCapture cap;
    appendLine(&x.h, "line");
    char buffer[8];
    x.h.getEventFromList(buffer, 8);
    x.h.waitReceiveThread();
    EXPECT_EQ(cap.finish(), "");
}

TEST(EventsList, DestructorFreesPendingLines)
{
    auto* x = new Handler;
    for (int i = 0; i < 5; ++i)
        appendLine(&x->h, "_event_ mount _node_ n" + std::to_string(i));
    delete x;   // leak detection checks the five items and their texts
    SUCCEED();
}

// ------------------------------------------------------------- the latch

TEST(EventsLatch, IsABitNotACount)
{
    Handler x(1);
    x.h.wakeSendThread();
    x.h.wakeSendThread();
    EXPECT_EQ(qv_events::conditionMet, 1);
    StderrCapture cap;
    x.h.waitReceiveThread();   // does not block: the latch is set
    EXPECT_EQ(cap.finish(), "send pthread_mutex_lock()\nsend pthread_mutex_unlock()\n");
    EXPECT_EQ(qv_events::conditionMet, 0);   // two wake-ups, one wait: nothing left
}

TEST(EventsLatch, WaiterBlocksUntilWokenAndTracesEachStep)
{
    Handler x(1);
    PipeCapture cap;
    std::thread waiter([&] { x.h.waitReceiveThread(); });
    ASSERT_TRUE(cap.waitFor("send Thread blocked\n"));
    // The waiter holds the mutex until it is inside the wait.
    pthread_mutex_lock(&qv_events::mutex);
    pthread_mutex_unlock(&qv_events::mutex);
    x.h.wakeSendThread();
    waiter.join();
    std::string text = cap.finish();
    EXPECT_EQ(linesMatching(text, "^send "),
              (std::vector<std::string>{"send pthread_mutex_lock()", "send Thread blocked",
                                        "send pthread_cond_wait()",
                                        "send pthread_mutex_unlock()"}));
    EXPECT_EQ(linesMatching(text, "^recv "),
              (std::vector<std::string>{"recv pthread_mutex_lock()", "recv Wake up all waiters...",
                                        "recv pthread_cond_broadcast()",
                                        "recv pthread_mutex_unlock()"}));
    EXPECT_EQ(qv_events::conditionMet, 0);
}

// ------------------------------------------------------------- send thread

TEST(SendThread, DeliversInOrderToTheCallbackOfEachNumber)
{
    Handler x;
    Sink sink;
    sink.registerAll(&x.h);
    SendThread sender(&x.h);
    appendLine(&x.h, "_event_ mount _node_ m1 _fs_ f _severity_ INFO");
    appendLine(&x.h, "_event_ unmount _node_ u1 _fs_ f");
    appendLine(&x.h, "_event_ failure _node_ fl");
    ASSERT_TRUE(sink.waitCount(3));
    sender.stop();
    auto got = sink.snapshot();
    ASSERT_EQ(got.size(), 3u);
    // The slot, not the record, tells a mount from an unmount.
    EXPECT_EQ(got[0].type, 0);
    EXPECT_EQ(got[0].node, "m1");
    EXPECT_EQ(got[0].severity, "INFO");
    EXPECT_EQ(got[1].type, 1);
    EXPECT_EQ(got[1].node, "u1");
    EXPECT_EQ(got[1].severity, "");
    EXPECT_EQ(got[2].type, 6);
    EXPECT_EQ(got[2].node, "fl");
    EXPECT_NE(got[0].thread, std::this_thread::get_id());
    EXPECT_EQ(got[0].thread, got[2].thread);
}

TEST(SendThread, TenLinesArrivingDuringOneCallbackFollowAfterOneWakeUp)
{
    Handler x(1);
    Sink sink;
    sink.gateFirst = true;
    sink.registerAll(&x.h);
    PipeCapture cap;
    SendThread sender(&x.h);
    appendLine(&x.h, "_event_ userEvent _n_ first");
    ASSERT_TRUE(sink.waitEntered());
    for (int i = 0; i < 10; ++i)
        appendLine(&x.h, "_event_ userEvent _n_ later" + std::to_string(i));
    sink.open();
    ASSERT_TRUE(sink.waitCount(11));
    sender.stop();
    auto got = sink.snapshot();
    ASSERT_EQ(got.size(), 11u);
    EXPECT_EQ(got[0].node, "first");
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(got[i + 1].node, "later" + std::to_string(i));

    // One wake-up took all eleven: the counter ran from 0 to 10 unbroken.
    std::string text = cap.finish();
    std::vector<std::string> extracted = linesMatching(text, "th extracted item = ");
    ASSERT_EQ(extracted.size(), 11u) << text;
    EXPECT_EQ(extracted[0], "0th extracted item = _event_ userEvent _n_ first");
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(extracted[i + 1], std::to_string(i + 1) + "th extracted item = _event_ userEvent _n_ later" +
                                        std::to_string(i));
    // And each line's word was traced by getEventType.
    EXPECT_EQ(linesMatching(text, "^answer = userEvent$").size(), 11u);
}

TEST(SendThread, UnknownExceptionAndUnparsableLinesReachNoCallbackAndEndNoThread)
{
    Handler x;
    Sink sink;
    sink.registerAll(&x.h);   // including slot 12, exception
    StderrCapture cap;
    SendThread sender(&x.h);
    appendLine(&x.h, "_event_ nosuchword _node_ n");
    appendLine(&x.h, "_event_ exception _node_ n _severity_ SEVERE");
    appendLine(&x.h, "_node_ n without an event word");
    appendLine(&x.h, "_event_ recovery _node_ after");
    ASSERT_TRUE(sink.waitCount(1));
    sender.stop();
    auto got = sink.snapshot();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].type, 7);
    EXPECT_EQ(got[0].node, "after");
    std::vector<std::string> lines = splitLines(cap.finish());
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(std::regex_match(
        lines[0], std::regex(std::string(kTimeRegex) +
                             ": quelvane_lib: _error_ answer parsing error \\.\\.\\.\\.")))
        << lines[0];
}

namespace {

Sink* refreshSink = nullptr;
std::vector<PollingHandler*> refreshHandlers;
std::vector<std::thread::id> refreshThreads;

void recordingRefresh(PollingHandler* h)
{
    std::lock_guard<std::mutex> lock(refreshSink->m);
    refreshHandlers.push_back(h);
    refreshThreads.push_back(std::this_thread::get_id());
    refreshSink->order.push_back("refresh");
}

struct RefreshHookGuard
{
    SdrRefreshHook previous;
    explicit RefreshHookGuard(Sink* s) : previous(setSdrRefreshHook(recordingRefresh))
    {
        refreshSink = s;
        refreshHandlers.clear();
        refreshThreads.clear();
    }
    ~RefreshHookGuard() { setSdrRefreshHook(previous); }
};

} // namespace

TEST(SendThread, SdrChangedRefreshesOnTheSendThreadBeforeItsCallback)
{
    Handler x;
    Sink sink;
    RefreshHookGuard guard(&sink);
    PollingHandler* fake = reinterpret_cast<PollingHandler*>(&sink);
    x.h.pollingHandler = fake;
    sink.registerAll(&x.h);
    SendThread sender(&x.h);
    appendLine(&x.h, "_event_ sdrChanged _node_ s1 _severity_ INFO");
    appendLine(&x.h, "_event_ mount _node_ m _fs_ f");
    ASSERT_TRUE(sink.waitCount(2));
    sender.stop();
    std::lock_guard<std::mutex> lock(sink.m);
    EXPECT_EQ(sink.order, (std::vector<std::string>{"refresh", "callback:16", "callback:0"}));
    ASSERT_EQ(refreshHandlers.size(), 1u);
    EXPECT_EQ(refreshHandlers[0], fake);
    EXPECT_EQ(refreshThreads[0], sink.got[0].thread);
    EXPECT_NE(refreshThreads[0], std::this_thread::get_id());
    EXPECT_EQ(sink.got[0].node, "s1");
}

TEST(SendThread, NumberWithoutCallbackStillBuildsItsRecordAndRefreshes)
{
    Handler x;
    Sink sink;
    RefreshHookGuard guard(&sink);
    PollingHandler* fake = reinterpret_cast<PollingHandler*>(&x);
    x.h.pollingHandler = fake;
    x.h.registerEventCallback(0, Sink::callback, &sink.cookies[0]);
    // The undelivered record stays allocated: leak detection is off on the
    // send thread for this test.
    SendThread sender(&x.h, true);
    appendLine(&x.h, "_event_ sdrChanged _node_ nobody-listens");
    appendLine(&x.h, "_event_ mount _node_ m _fs_ f");
    ASSERT_TRUE(sink.waitCount(1));
    sender.stop();
    std::lock_guard<std::mutex> lock(sink.m);
    EXPECT_EQ(sink.order, (std::vector<std::string>{"refresh", "callback:0"}));
    ASSERT_EQ(refreshHandlers.size(), 1u);
    EXPECT_EQ(refreshHandlers[0], fake);
}

TEST(SendThread, NullPollingHandlerMeansNoRefresh)
{
    Handler x;
    Sink sink;
    RefreshHookGuard guard(&sink);
    sink.registerAll(&x.h);
    SendThread sender(&x.h);
    appendLine(&x.h, "_event_ sdrChanged _node_ s1");
    ASSERT_TRUE(sink.waitCount(1));
    sender.stop();
    std::lock_guard<std::mutex> lock(sink.m);
    EXPECT_EQ(sink.order, (std::vector<std::string>{"callback:16"}));
    EXPECT_TRUE(refreshHandlers.empty());
}

TEST(SendThread, ReRegistrationReplacesAndNullSwitchesOff)
{
    Handler x;
    Sink first, second;
    x.h.registerEventCallback(6, Sink::callback, &first.cookies[6]);
    x.h.registerEventCallback(6, Sink::callback, &second.cookies[6]);
    EXPECT_EQ(x.h.eventCallbacks[6].callback, &Sink::callback);
    EXPECT_EQ(x.h.eventCallbacks[6].callbackData, &second.cookies[6]);
    x.h.registerEventCallback(7, Sink::callback, &first.cookies[7]);
    x.h.registerEventCallback(7, nullptr, nullptr);
    EXPECT_EQ(x.h.eventCallbacks[7].callback, nullptr);
    EXPECT_EQ(x.h.eventCallbacks[7].callbackData, nullptr);
    SendThread sender(&x.h, true);   // the recovery record is not delivered
    appendLine(&x.h, "_event_ failure _node_ a");
    appendLine(&x.h, "_event_ recovery _node_ dropped");
    appendLine(&x.h, "_event_ failure _node_ b");
    ASSERT_TRUE(second.waitCount(2));
    sender.stop();
    EXPECT_TRUE(first.snapshot().empty());
    auto got = second.snapshot();
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0].node, "a");
    EXPECT_EQ(got[1].node, "b");
}

namespace {

// Callbacks that know which data must come with them: registrations that
// alternate on one slot while lines are delivered must never hand one
// callback the data of the other.
struct PairCheck
{
    EventsHandler* handler;
    std::atomic<long> delivered{0};
    std::atomic<long> mismatched{0};
    std::atomic<long> byFirst{0};
    std::atomic<long> bySecond{0};
    std::atomic<long> bySelf{0};
};

struct PairTag
{
    PairCheck* check;
    int which;   // 1 first, 2 second, 3 the callback that registers
};

void countDelivery(PairTag* tag, int expected, std::atomic<long>& by)
{
    if (tag->which != expected)
        tag->check->mismatched++;
    by++;
    tag->check->delivered++;
}

int firstCallback(Event* e, void* data)
{
    delete static_cast<NodeStatusEvent*>(e);
    PairTag* tag = static_cast<PairTag*>(data);
    countDelivery(tag, 1, tag->check->byFirst);
    return 0;
}

int secondCallback(Event* e, void* data)
{
    delete static_cast<NodeStatusEvent*>(e);
    PairTag* tag = static_cast<PairTag*>(data);
    countDelivery(tag, 2, tag->check->bySecond);
    return 0;
}

// Registers from inside a delivery: itself again on its own number, and on
// number 11 (not fed) a callback that is never called.
int registeringCallback(Event* e, void* data)
{
    delete static_cast<NodeStatusEvent*>(e);
    PairTag* tag = static_cast<PairTag*>(data);
    tag->check->handler->registerEventCallback(7, registeringCallback, tag);
    tag->check->handler->registerEventCallback(11, secondCallback, tag);
    countDelivery(tag, 3, tag->check->bySelf);
    return 0;
}

} // namespace

TEST(SendThread, RegistrationWhileDeliveringKeepsEachCallbackWithItsData)
{
    Handler x;
    PairCheck check;
    check.handler = &x.h;
    PairTag first{&check, 1}, second{&check, 2}, self{&check, 3};
    x.h.registerEventCallback(6, firstCallback, &first);
    x.h.registerEventCallback(7, registeringCallback, &self);
    SendThread sender(&x.h);

    // Failures (6) and now and then a recovery (7), never more than 64 lines
    // ahead of the deliveries.
    std::atomic<bool> stop{false};
    std::atomic<long> appended{0};
    std::thread feeder([&] {
        while (!stop.load()) {
            if (appended.load() - check.delivered.load() >= 64) {
                std::this_thread::yield();
                continue;
            }
            long n = appended.load();
            appendLine(&x.h, n % 8 == 7 ? "_event_ recovery _node_ r" : "_event_ failure _node_ f");
            appended++;
        }
    });

    // Slot 6 changes hands for three seconds, each pair standing for a moment.
    long registrations = 0;
    auto end = std::chrono::steady_clock::now() + 3s;
    while (std::chrono::steady_clock::now() < end) {
        x.h.registerEventCallback(6, secondCallback, &second);
        std::this_thread::yield();
        x.h.registerEventCallback(6, firstCallback, &first);
        std::this_thread::yield();
        registrations += 2;
    }
    stop = true;
    feeder.join();

    auto drainEnd = std::chrono::steady_clock::now() + 10s;
    while (check.delivered.load() < appended.load() && std::chrono::steady_clock::now() < drainEnd)
        std::this_thread::sleep_for(1ms);
    sender.stop();

    EXPECT_EQ(check.delivered.load(), appended.load());
    EXPECT_EQ(check.mismatched.load(), 0);
    EXPECT_GT(check.byFirst.load(), 0);
    EXPECT_GT(check.bySecond.load(), 0);
    EXPECT_GT(check.bySelf.load(), 0);
    EXPECT_GT(registrations, 100);
    EXPECT_EQ(x.h.eventCallbacks[6].callback, &firstCallback);
    EXPECT_EQ(x.h.eventCallbacks[6].callbackData, &first);
    EXPECT_EQ(x.h.eventCallbacks[7].callback, &registeringCallback);
    EXPECT_EQ(x.h.eventCallbacks[11].callback, &secondCallback);
    EXPECT_EQ(x.h.eventCallbacks[11].callbackData, &self);
}

TEST(SendThread, RecordsOfWaitingLinesCarryTheTimeOfDecoding)
{
    Handler x;
    Sink sink;
    sink.registerAll(&x.h);
    timeval t0;
    gettimeofday(&t0, nullptr);
    appendLine(&x.h, "_event_ mount _node_ early _fs_ f");
    std::this_thread::sleep_for(300ms);
    appendLine(&x.h, "_event_ mount _node_ late _fs_ f");
    SendThread sender(&x.h);
    ASSERT_TRUE(sink.waitCount(2));
    sender.stop();
    auto got = sink.snapshot();
    ASSERT_EQ(got.size(), 2u);
    auto usec = [](const timeval& tv) {
        return static_cast<long long>(tv.tv_sec) * 1000000 + tv.tv_usec;
    };
    // Both were decoded well after the first line arrived, close together.
    EXPECT_GE(usec(got[0].tv) - usec(t0), 300000);
    EXPECT_LT(usec(got[1].tv) - usec(got[0].tv), 100000);
}

TEST(SendThread, EndsAtTheFlagWithoutDeliveringPendingLines)
{
    char logPath[] = "/tmp/events-log-XXXXXX";
    int fd = mkstemp(logPath);
    ASSERT_GE(fd, 0);
    close(fd);
    QuelvaneLogFileP = fopen(logPath, "w");
    ASSERT_NE(QuelvaneLogFileP, nullptr);

    auto* x = new Handler;
    Sink sink;
    sink.registerAll(&x->h);
    // Lines are pending and the receive side has ended before the send
    // thread looks: it leaves them to the destructor.
    appendLine(&x->h, "_event_ mount _node_ p1 _fs_ f");
    appendLine(&x->h, "_event_ mount _node_ p2 _fs_ f");
    __atomic_store_n(&x->h.receiveDone, 1, __ATOMIC_RELEASE);
    x->h.wakeSendThread();
    std::thread t([x] { EventsHandler::sendHandlerBody(&x->h); });
    t.join();
    EXPECT_TRUE(sink.snapshot().empty());
    EXPECT_NE(x->h.eventListHead.next, nullptr);
    delete x;   // frees the two lines (checked by leak detection)

    fclose(QuelvaneLogFileP);
    QuelvaneLogFileP = nullptr;
    std::vector<std::string> log = splitLines(readFile(logPath));
    ASSERT_EQ(log.size(), 1u);
    EXPECT_TRUE(std::regex_match(
        log[0], std::regex(std::string(kTimeRegex) +
                           ": INFO: EventsHandler::sendHandlerBody: exiting\\.\\.\\.")))
        << log[0];
}

TEST(SendThread, LineLongerThanItsBufferIsDecodedFromTheFreshArray)
{
    Handler x(1);
    Sink sink;
    sink.registerAll(&x.h);
    std::string arg(1500, 'q');
    PipeCapture cap;
    SendThread sender(&x.h);
    appendLine(&x.h, "_event_ userEvent _n_ big _arg_ " + arg);
    ASSERT_TRUE(sink.waitCount(1));
    sender.stop();
    cap.finish();
    auto got = sink.snapshot();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].type, 21);
    EXPECT_EQ(got[0].node, "big");
}

// ------------------------------------------------ against the fake daemon

#include "support/fake_daemon.h"

#include <quelvane/tavrel_wrapper_utils.h>

#include <future>

namespace {

// EventsHandler::run on a thread of the test, with a bounded wait for its end.
class Runner
{
public:
    // The handler is taken on the constructing thread: a test may make
    // another singleton while this one runs.
    explicit Runner(EventsHandler* handler = theEventsHandler)
    {
        done_ = promise_.get_future();
        t_ = std::thread([this, handler] {
            handler->run();
            promise_.set_value();
        });
    }
    ~Runner()
    {
        if (t_.joinable())
            t_.join();
    }
    bool waitEnded(std::chrono::milliseconds limit = 5000ms)
    {
        return done_.wait_for(limit) == std::future_status::ready;
    }

private:
    std::promise<void> promise_;
    std::future<void> done_;
    std::thread t_;
};

const std::string kDaemonLostLine =
    ": quelvane_lib: Error: Events handler ORLU daemon connection failed, exiting\\.\\.\\.";

} // namespace

TEST(EventsPipeline, TermWithoutSingletonDoesNothing)
{
    ASSERT_EQ(theEventsHandler, nullptr);
    EventsHandler::term();
    EventsHandler::term();
    EXPECT_EQ(theEventsHandler, nullptr);
}

TEST(EventsPipeline, InitOpensItsOwnConnectionAndWritesNothing)
{
    FakeDaemon daemon;
    int dummy = 0;
    PollingHandler* fake = reinterpret_cast<PollingHandler*>(&dummy);
    ASSERT_EQ(EventsHandler::init(fake, 1), 0);
    ASSERT_NE(theEventsHandler, nullptr);
    EXPECT_EQ(theEventsHandler->pollingHandler, fake);
    EXPECT_EQ(theEventsHandler->debug, 1);
    ASSERT_NE(theEventsHandler->tavrelWrapper, nullptr);
    EXPECT_EQ(theEventsHandler->tavrelWrapper->debug, 0);   // its own trace stays off
    EXPECT_NE(theEventsHandler->tavrelWrapper->eventPipeIn, nullptr);
    EXPECT_NE(theEventsHandler->tavrelWrapper->eventPipeOut, nullptr);
    ASSERT_NE(theEventsHandler->tavrelWrapper->connection, nullptr);
    EXPECT_NE(theEventsHandler->tavrelWrapper->connection->callback, nullptr);
    EXPECT_EQ(theEventsHandler->tavrelWrapper->connection->callbackData, nullptr);
    EXPECT_EQ(theEventsHandler->eventListTail, &theEventsHandler->eventListHead);
    ASSERT_TRUE(daemon.waitForConnections(1));
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(daemon.connectionsAccepted(), 1u);
    EXPECT_EQ(daemon.received(), "");
    EventsHandler::term();
    EXPECT_EQ(theEventsHandler, nullptr);
    EventsHandler::term();   // twice is harmless
    EXPECT_EQ(theEventsHandler, nullptr);
}

TEST(EventsPipeline, InitWithoutDaemonReportsTheSessionError)
{
    StderrCapture cap;
    MErrno rc = EventsHandler::init(nullptr, 0);
    std::string err = cap.finish();
    EXPECT_NE(rc, 0);
    // The singleton stays in place with its failed session.
    ASSERT_NE(theEventsHandler, nullptr);
    EXPECT_NE(theEventsHandler->tavrelWrapper, nullptr);
    std::vector<std::string> lines = splitLines(err);
    ASSERT_EQ(lines.size(), 3u) << err;
    const char* texts[3] = {"Error: Failed to connect", "Error: Failed to make connection",
                            "_error_ creating tavrel wrapper utils"};
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(std::regex_match(lines[i], std::regex(std::string(kTimeRegex) +
                                                          ": quelvane_lib: " + texts[i])))
            << lines[i];
    EventsHandler::term();
    EXPECT_EQ(theEventsHandler, nullptr);
}

TEST(EventsPipeline, SecondInitReplacesTheSingleton)
{
    FakeDaemon daemon;
    ASSERT_EQ(EventsHandler::init(nullptr, 0), 0);
    EventsHandler* first = theEventsHandler;
    ASSERT_EQ(EventsHandler::init(nullptr, 0), 0);
    EXPECT_NE(theEventsHandler, first);
    ASSERT_TRUE(daemon.waitForConnections(2));
    EventsHandler::term();
    // The first object was abandoned by the second init; put it back to
    // dispose of it.
    theEventsHandler = first;
    EventsHandler::term();
    EXPECT_EQ(theEventsHandler, nullptr);
    EXPECT_EQ(daemon.received(), "");
}

TEST(EventsPipeline, ThousandMixedEventsDuringASlowCallbackArriveOnceInOrder)
{
    FakeDaemon daemon;
    ASSERT_EQ(EventsHandler::init(nullptr, 0), 0);
    Sink sink;
    sink.gateFirst = true;
    sink.registerAll(theEventsHandler);
    ASSERT_TRUE(daemon.waitForConnections(1));

    // Kinds in turn; the node (or the filesystem) carries the sequence number.
    auto lineFor = [](int i, int* type) {
        std::string s = std::to_string(i);
        switch (i % 9) {
        case 0: *type = 0; return "_event_ mount _node_ " + s + " _fs_ f _severity_ INFO";
        case 1: *type = 1; return "_event_ unmount _fs_ 'a fs' _node_ " + s;
        case 2: *type = 6; return "_event_ failure _node_ " + s + " _severity_ ERROR";
        case 3: *type = 7; return "_event_ recovery _node_ " + s;
        case 4: *type = 11; return "_event_ newconnection _n_ " + s;
        case 5: *type = 15; return "_event_ poolutil _fs_ " + s + " _pool_ p _util_ 90 _status_ hi";
        case 6: *type = 19; return "_event_ consoleLog _n_ " + s + " _level_ 1 _msg_ it's 'fine'";
        case 7: *type = 21; return "_event_ userEvent _n_ " + s + " _arg_ 'x y'";
        default:
            *type = 31;
            return "_event_ nsdCksumMismatch _n_ " + s +
                   " _role_ r _othernode_ o _nsd_ d _reason_ x _sector_ 1 _dlen_ 2 _ecc_ 3 "
                   "_ecs_ 4 _ecnsd_ 5 _ri_ 6";
        }
    };

    auto start = std::chrono::steady_clock::now();
    Runner runner;
    std::vector<int> expectedTypes;
    int type = -1;
    daemon.pushEvent(lineFor(0, &type));
    expectedTypes.push_back(type);
    ASSERT_TRUE(sink.waitEntered());   // the first callback now holds the send thread
    for (int i = 1; i < 1000; ++i) {
        daemon.pushEvent(lineFor(i, &type));
        expectedTypes.push_back(type);
        if (i % 100 == 0) {
            // Lines that reach no callback are interleaved.
            daemon.pushEvent("_event_ exception _node_ x");
            daemon.pushEvent("_event_ unheardof _node_ x");
        }
    }
    sink.open();
    ASSERT_TRUE(sink.waitCount(1000, 10000ms));
    std::this_thread::sleep_for(100ms);   // nothing more comes

    StderrCapture quiet;   // the final connection error is checked elsewhere
    daemon.stop();
    ASSERT_TRUE(runner.waitEnded());
    quiet.finish();
    auto elapsed = std::chrono::steady_clock::now() - start;

    auto got = sink.snapshot();
    ASSERT_EQ(got.size(), 1000u);
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(got[i].type, expectedTypes[i]) << i;
        ASSERT_EQ(got[i].node, std::to_string(i)) << i;
    }
    EXPECT_EQ(got[0].severity, "INFO");
    EXPECT_EQ(got[2].severity, "ERROR");
    EXPECT_EQ(daemon.received(), "");
    EXPECT_EQ(daemon.connectionsAccepted(), 1u);
    EXPECT_LT(std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count(), 8000);
    EventsHandler::term();
}

TEST(EventsPipeline, DaemonRestartReconnectsOnceAndEventsFlowAgain)
{
    FakeDaemon daemon;
    ASSERT_EQ(EventsHandler::init(nullptr, 0), 0);
    Sink sink;
    sink.registerAll(theEventsHandler);
    ASSERT_TRUE(daemon.waitForConnections(1));
    StderrCapture cap;
    Runner runner;

    daemon.pushEvent("_event_ mount _node_ before1 _fs_ f");
    daemon.pushEvent("_event_ failure _node_ before2");
    ASSERT_TRUE(sink.waitCount(2));

    daemon.dropConnections();
    ASSERT_TRUE(daemon.waitForConnections(2));
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(daemon.connectionsAccepted(), 2u);   // exactly one reconnection
    EXPECT_EQ(daemon.openConnections(), 1u);

    daemon.pushEvent("_event_ recovery _node_ after1");
    daemon.pushEvent("_event_ userEvent _n_ after2 _arg_ a");
    ASSERT_TRUE(sink.waitCount(4));
    EXPECT_EQ(cap.finish(), "");   // a regained connection is not reported
    EXPECT_EQ(daemon.received(), "");

    StderrCapture quiet;   // the final connection error is checked elsewhere
    daemon.stop();
    ASSERT_TRUE(runner.waitEnded());
    quiet.finish();
    auto got = sink.snapshot();
    ASSERT_EQ(got.size(), 4u);
    EXPECT_EQ(got[0].node, "before1");
    EXPECT_EQ(got[1].node, "before2");
    EXPECT_EQ(got[2].type, 7);
    EXPECT_EQ(got[2].node, "after1");
    EXPECT_EQ(got[3].type, 21);
    EXPECT_EQ(got[3].node, "after2");
    EXPECT_EQ(daemon.connectionsAccepted(), 2u);
    EXPECT_EQ(daemon.received(), "");   // nothing written, not even after reconnecting
    EventsHandler::term();
}

TEST(EventsPipeline, DaemonDownForGoodEndsBothThreadsWithOneErrorLine)
{
    FakeDaemon daemon;
    ASSERT_EQ(EventsHandler::init(nullptr, 0), 0);
    Sink sink;
    sink.registerAll(theEventsHandler);
    ASSERT_TRUE(daemon.waitForConnections(1));
    StderrCapture cap;
    Runner runner;
    daemon.pushEvent("_event_ mount _node_ n1 _fs_ f");
    ASSERT_TRUE(sink.waitCount(1));

    daemon.stop();
    ASSERT_TRUE(runner.waitEnded());   // both threads ended, run returned
    std::string err = cap.finish();
    std::vector<std::string> lines = splitLines(err);
    ASSERT_EQ(lines.size(), 1u) << err;
    EXPECT_TRUE(std::regex_match(lines[0], std::regex(std::string(kTimeRegex) + kDaemonLostLine)))
        << lines[0];
    EXPECT_EQ(__atomic_load_n(&theEventsHandler->receiveDone, __ATOMIC_ACQUIRE), 1);
    EXPECT_EQ(daemon.connectionsAccepted(), 1u);
    EXPECT_EQ(daemon.received(), "");

    // Lines left in the list at the end are freed by term (leak detection
    // checks them).
    EventItem* left = EventItem::strdup("_event_ mount _node_ late _fs_ f");
    theEventsHandler->appendEventToList(left, left, 1, 0);
    EventsHandler::term();
    EXPECT_EQ(theEventsHandler, nullptr);
    EXPECT_EQ(sink.snapshot().size(), 1u);
}

TEST(EventsPipeline, RunLogsItsStepsAndTheThreadsTheirEnd)
{
    FakeDaemon daemon;
    char logPath[] = "/tmp/events-run-log-XXXXXX";
    int fd = mkstemp(logPath);
    ASSERT_GE(fd, 0);
    close(fd);
    ASSERT_EQ(EventsHandler::init(nullptr, 0), 0);
    QuelvaneLogFileP = fopen(logPath, "w");
    ASSERT_NE(QuelvaneLogFileP, nullptr);
    ASSERT_TRUE(daemon.waitForConnections(1));
    StderrCapture quiet;
    Runner runner;
    std::this_thread::sleep_for(100ms);
    daemon.stop();
    ASSERT_TRUE(runner.waitEnded());
    quiet.finish();
    fclose(QuelvaneLogFileP);
    QuelvaneLogFileP = nullptr;
    EventsHandler::term();

    std::string text = readFile(logPath);
    std::vector<std::string> log = splitLines(text);
    ASSERT_EQ(log.size(), 5u) << text;
    // The first and the last line have no concurrent writer. The three lines
    // between come from three threads at nearly the same time; a log line is
    // written in two pieces, so only the pieces are checked there.
    EXPECT_TRUE(std::regex_match(log[0], std::regex(std::string(kTimeRegex) +
                                                    ": INFO: EventsHandler::run: wait threads")))
        << log[0];
    EXPECT_TRUE(std::regex_match(log[4], std::regex(std::string(kTimeRegex) +
                                                    ": INFO: EventsHandler::run: joined the "
                                                    "receive thread")))
        << log[4];
    auto count = [&](const std::string& piece) {
        size_t n = 0;
        for (size_t pos = text.find(piece); pos != std::string::npos;
             pos = text.find(piece, pos + 1))
            ++n;
        return n;
    };
    EXPECT_EQ(count(": INFO: EventsHandler::sendHandlerBody: "), 1u);
    EXPECT_EQ(count(": INFO: EventsHandler::receiveHandlerBody: "), 1u);
    EXPECT_EQ(count(": INFO: EventsHandler::run: "), 3u);
    EXPECT_EQ(count("exiting...\n"), 2u);
    EXPECT_EQ(count("joined the send thread\n"), 1u);
    EXPECT_LT(text.find("joined the send thread\n"), text.find("joined the receive thread\n"));
}

TEST(EventsPipeline, SdrChangedRefreshesTheHandlerGivenToInit)
{
    FakeDaemon daemon;
    Sink sink;
    RefreshHookGuard guard(&sink);
    int dummy = 0;
    PollingHandler* fake = reinterpret_cast<PollingHandler*>(&dummy);
    ASSERT_EQ(EventsHandler::init(fake, 0), 0);
    sink.registerAll(theEventsHandler);
    ASSERT_TRUE(daemon.waitForConnections(1));
    Runner runner;
    daemon.pushEvent("_event_ sdrChanged _node_ n1 _severity_ INFO");
    daemon.pushEvent("_event_ mount _node_ n2 _fs_ f");
    ASSERT_TRUE(sink.waitCount(2));
    StderrCapture quiet;   // the final connection error is checked elsewhere
    daemon.stop();
    ASSERT_TRUE(runner.waitEnded());
    quiet.finish();
    {
        std::lock_guard<std::mutex> lock(sink.m);
        EXPECT_EQ(sink.order, (std::vector<std::string>{"refresh", "callback:16", "callback:0"}));
        ASSERT_EQ(refreshHandlers.size(), 1u);
        EXPECT_EQ(refreshHandlers[0], fake);
        EXPECT_EQ(refreshThreads[0], sink.got[0].thread);
        EXPECT_EQ(sink.got[0].severity, "INFO");
    }
    EXPECT_EQ(daemon.received(), "");
    EventsHandler::term();
}

// ---------------------------------------------------------------------------
// Misuse that must not crash.

TEST(EventsPipeline, TermWhileRunDeliversStopsThePipelineFirst)
{
    FakeDaemon daemon;
    ASSERT_EQ(EventsHandler::init(nullptr, 0), 0);
    Sink sink;
    sink.registerAll(theEventsHandler);
    ASSERT_TRUE(daemon.waitForConnections(1));
    StderrCapture cap;
    Runner runner;
    daemon.pushEvent("_event_ mount _node_ n1 _fs_ f");
    ASSERT_TRUE(sink.waitCount(1));

    // term from another thread while run waits: the pipeline stops without
    // reconnecting, run returns, and only then is the handler freed.
    EventsHandler::term();
    EXPECT_EQ(theEventsHandler, nullptr);
    ASSERT_TRUE(runner.waitEnded());
    std::string err = cap.finish();
    EXPECT_EQ(err, "");   // a deliberate stop is no lost connection
    EXPECT_EQ(daemon.connectionsAccepted(), 1u);
    EXPECT_EQ(sink.snapshot().size(), 1u);
}

TEST(EventsPipeline, RunAfterAFailedInitReturnsAtOnce)
{
    StderrCapture cap;
    ASSERT_NE(EventsHandler::init(nullptr, 0), 0);   // no daemon
    ASSERT_NE(theEventsHandler, nullptr);
    Runner runner;
    EXPECT_TRUE(runner.waitEnded(2000ms));
    cap.finish();
    EventsHandler::term();
    EXPECT_EQ(theEventsHandler, nullptr);
}

TEST(EventsPipeline, SecondInitWhileRunningLeavesEachPipelineItsOwnLines)
{
    FakeDaemon daemon;
    ASSERT_EQ(EventsHandler::init(nullptr, 0), 0);
    EventsHandler* first = theEventsHandler;
    Sink firstSink;
    firstSink.registerAll(first);
    ASSERT_TRUE(daemon.waitForConnections(1));
    StderrCapture cap;
    Runner firstRunner;

    ASSERT_EQ(EventsHandler::init(nullptr, 0), 0);   // abandons the first
    Sink secondSink;
    secondSink.registerAll(theEventsHandler);
    ASSERT_TRUE(daemon.waitForConnections(2));
    Runner secondRunner;

    // Both pipelines share the one-bit latch between their threads, so a
    // wake-up may be taken by the other pipeline's send thread: what is
    // certain is that no line goes to a pipeline it was not read by.
    EXPECT_EQ(daemon.pushEvent("_event_ unmount _node_ n2 _fs_ f"), 2);
    std::this_thread::sleep_for(100ms);
    EXPECT_LE(firstSink.snapshot().size(), 1u);
    EXPECT_LE(secondSink.snapshot().size(), 1u);

    // The second goes; the first goes on reading its own connection, and a
    // line it reads now must not reach the freed second.
    EventsHandler::term();
    ASSERT_TRUE(secondRunner.waitEnded());
    EXPECT_EQ(daemon.pushEvent("_event_ mount _node_ n3 _fs_ f"), 1);
    std::this_thread::sleep_for(100ms);
    EXPECT_LE(secondSink.snapshot().size(), 1u);

    // The first ends when its connection is lost for good; put it back to
    // dispose of it.
    daemon.stop();
    ASSERT_TRUE(firstRunner.waitEnded());
    cap.finish();
    theEventsHandler = first;
    EventsHandler::term();
    EXPECT_EQ(theEventsHandler, nullptr);
}
