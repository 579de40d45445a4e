// The shared handler fixture brings a handler up and down against the fakes.
#include "support/handler_fixture.h"

#include <quelvane/tavrel_wrapper_utils.h>

using namespace qvtest;

using HandlerFixtureTest = HandlerFixture;

TEST_F(HandlerFixtureTest, StartsAgainstFakesAndCountsLaterRequestsOnly)
{
    startHandler();
    EXPECT_EQ(kxctl.calls(), (std::vector<std::string>{"showCfgValue libquelvaneversion"}));
    EXPECT_TRUE(requestsSinceStart().empty());
    daemon.respond("get clusterinfo", {"_cluster_ _name_ c1"});
    EXPECT_EQ(handler()->processCommand("get clusterinfo"), 0);
    theTavrelWrapperUtils->cleanupCommand();
    EXPECT_EQ(requestsSinceStart(), (std::vector<std::string>{"get clusterinfo"}));
    stopHandler();
    EXPECT_EQ(thePollingHandler, nullptr);
}
