/// What the real daemon does while nobody asks it for anything.

#include "tests/support/DaemonDriver.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Processes.h"
#include "tests/support/Waiting.h"

#include <gtest/gtest.h>

namespace {

using namespace ZNORBTEST;

class Idle : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(driver.startServing()); }

    /// Waits for the page faults of a daemon that wakes in a pause and has to take its code from the file
    /// again. Nothing else in a pause has any, once there has been one.
    [[nodiscard]] bool doesTakeCodeAgain() const {
        EXPECT_EQ(askDaemon("PRINT"), "0"); // brings what a request needs, up to its end
        EXPECT_EQ(askDaemon("PRINT"), "0");
        const unsigned long before = pageFaultsOf(driver.daemon());
        return waitUntil([this, before]() { return pageFaultsOf(driver.daemon()) > before; });
    }

    DaemonDriver driver;
};

TEST_F(Idle, CodeLeavesTheMemoryInEveryPauseAndIsThereForTheNextRequest) {
    EXPECT_TRUE(doesTakeCodeAgain());
    EXPECT_TRUE(doesTakeCodeAgain());
    EXPECT_EQ(askDaemon("GET|en"), "0");
    EXPECT_TRUE(DaemonDriver::waitForClient(0));
}

} // namespace
