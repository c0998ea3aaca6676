/// What the real daemon does while nobody asks it for anything.

#include "tests/support/CodeMemory.h"
#include "tests/support/DaemonDriver.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Waiting.h"

#include <gtest/gtest.h>

namespace {

using namespace ZNORBTEST;

class Idle : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(driver.startServing()); }

    /// After a request, waits for the pause in which the daemon lets its code go.
    [[nodiscard]] bool doesReleaseCode() const {
        EXPECT_EQ(askDaemon("PRINT"), "0");
        const unsigned long busy = residentCode(driver.daemon());
        return waitUntil([this, busy]() { return residentCode(driver.daemon()) < busy; });
    }

    DaemonDriver driver;
};

TEST_F(Idle, CodeLeavesTheMemoryInAPauseAndIsThereForTheNextRequest) {
    EXPECT_TRUE(doesReleaseCode());
    EXPECT_EQ(askDaemon("GET|en"), "0");
    EXPECT_TRUE(DaemonDriver::waitForClient(0));
}

TEST_F(Idle, CodeLeavesTheMemoryInEveryPause) {
    EXPECT_TRUE(doesReleaseCode());
    EXPECT_TRUE(doesReleaseCode());
}

} // namespace
