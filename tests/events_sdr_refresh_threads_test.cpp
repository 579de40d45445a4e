// An sdrChanged event refreshes the disk repository data of the polling
// handler given to EventsHandler::init, on the send thread, before the
// event's callback runs.
#include "../events/event_names_internal.h"
#include "support/fake_tool.h"
#include "support/files.h"
#include "support/handler_fixture.h"

#include <quelvane/cluster_info.h>
#include <quelvane/event_records.h>
#include <quelvane/events_handler.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

using namespace qvtest;

namespace {

struct Delivered {
    std::mutex m;
    std::condition_variable cv;
    std::vector<std::string> calls;   // vksdrquery calls seen when the callback ran
    int count = 0;
};

FakeTool* gSdrQuery = nullptr;

int onSdrChanged(Event* e, void* data)
{
    auto* d = static_cast<Delivered*>(data);
    std::lock_guard<std::mutex> lock(d->m);
    d->calls = gSdrQuery->calls();
    ++d->count;
    delete static_cast<SDRChangedEvent*>(e);
    d->cv.notify_all();
    return 0;
}

using SdrRefresh = HandlerFixture;

} // namespace

TEST_F(SdrRefresh, SDRChangedEventRescansTheRepositoryIntoTheRecipe)
{
    FakeTool sdrquery("vksdrquery");
    gSdrQuery = &sdrquery;
    startHandler();
    sdrquery.output("vksdrquery:sdrq_nsd_info:0:1:::d1:fs1:system:dataAndMetadata:f7:f8:::\n");

    ASSERT_EQ(EventsHandler::init(handler(), 0), 0);
    Delivered delivered;
    int sdrChanged = -1;
    for (int i = 0; i < EVENTS_MAX_TYPES; ++i) {
        if (EventNamesP[i].name != nullptr && std::string(EventNamesP[i].name) == "sdrChanged")
            sdrChanged = i;
    }
    ASSERT_GE(sdrChanged, 0);
    theEventsHandler->registerEventCallback(sdrChanged, onSdrChanged, &delivered);
    ASSERT_TRUE(daemon.waitForConnections(2));
    std::thread runner([] { theEventsHandler->run(); });

    daemon.pushEvent("_event_ sdrChanged _node_ n1 _severity_ INFO", 1);
    {
        std::unique_lock<std::mutex> lock(delivered.m);
        ASSERT_TRUE(delivered.cv.wait_for(lock, std::chrono::seconds(5), [&] { return delivered.count == 1; }));
        // The scan had run, with "all norefresh", before the callback was called.
        EXPECT_EQ(delivered.calls,
                  (std::vector<std::string>{"30 3001:3004:3005:3006:3007:3008:3002:3003 all norefresh"}));
    }

    StderrCapture quiet;   // the event connection's final error line
    daemon.stop();
    runner.join();
    quiet.finish();
    EventsHandler::term();
    daemon.start();   // the handler's own session takes its node list down at the end

    MErrno err = 0;
    ClusterInfo tree(&err);
    ASSERT_EQ(handler()->copyRecipe(&tree), 0);
    ASSERT_EQ(tree.filesystemItems.size(), 1u);
    EXPECT_STREQ(tree.filesystemItems[0]->name, "fs1");
    ASSERT_EQ(tree.filesystemItems[0]->poolItems.size(), 1u);
    EXPECT_STREQ(tree.filesystemItems[0]->poolItems[0]->name, "system");
    ASSERT_EQ(tree.filesystemItems[0]->poolItems[0]->diskItems.size(), 1u);
    EXPECT_STREQ(tree.filesystemItems[0]->poolItems[0]->diskItems[0]->name, "d1");
    gSdrQuery = nullptr;
}
