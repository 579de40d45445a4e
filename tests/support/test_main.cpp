// Entry point of every test suite: each test process runs in a private mount
// namespace of its own, so that fake daemons and fake tools can stand at the
// library's fixed paths while suites run in parallel.
#include "support/hermetic.h"

#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    qvtest::keepStandardDescriptorsOpen();
    qvtest::enterHermeticNamespace();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
