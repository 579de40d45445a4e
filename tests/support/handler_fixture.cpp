#include "support/handler_fixture.h"

namespace qvtest {

HandlerFixture::HandlerFixture()
{
    kxctl.output("3504\n");
}

HandlerFixture::~HandlerFixture()
{
    stopHandler();
}

void HandlerFixture::startHandler(int pollingScope, int debug, MgmtProtocol protocol)
{
    ASSERT_EQ(PollingHandler::init(protocol, debug, pollingScope), 0);
    ASSERT_NE(thePollingHandler, nullptr);
    startRequests_ = daemon.requestLines().size();
}

void HandlerFixture::stopHandler()
{
    if (thePollingHandler != nullptr)
        PollingHandler::term();
}

std::vector<std::string> HandlerFixture::requestsSinceStart() const
{
    std::vector<std::string> all = daemon.requestLines();
    if (all.size() <= startRequests_)
        return {};
    return std::vector<std::string>(all.begin() + static_cast<long>(startRequests_), all.end());
}

} // namespace qvtest
