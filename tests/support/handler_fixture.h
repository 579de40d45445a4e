#ifndef QUELVANE_TEST_HANDLER_FIXTURE_H
#define QUELVANE_TEST_HANDLER_FIXTURE_H

#include "support/fake_daemon.h"
#include "support/fake_tool.h"

#include <quelvane/api_poll.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qvtest {

// A PollingHandler brought up against a fake daemon and a fake "kxctl" that
// states version 3504. Tests script the daemon and further fake tools, call
// startHandler(), and read what was sent since with requestsSinceStart().
class HandlerFixture : public ::testing::Test
{
protected:
    FakeDaemon daemon;
    FakeTool kxctl{"kxctl"};

    HandlerFixture();
    ~HandlerFixture() override;

    // PollingHandler::init with the given arguments; fails the test when it
    // does not give 0. The node-list requests of the start are remembered so
    // that requestsSinceStart() leaves them out.
    void startHandler(int pollingScope = POLL_LOCAL_CLUSTER, int debug = 0,
                      MgmtProtocol protocol = MGMT_PROTOCOL_DIRECT);
    // PollingHandler::term, if a handler is up (the destructor calls it too).
    void stopHandler();

    // Request lines the daemon received after startHandler() returned.
    std::vector<std::string> requestsSinceStart() const;
    PollingHandler* handler() const { return thePollingHandler; }

private:
    size_t startRequests_ = 0;
};

} // namespace qvtest

#endif
