/// The socket's dialogue with the real daemon: every kind of request and requester.

#include "tests/support/DaemonDriver.h"
#include "tests/support/Files.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Matchers.h"
#include "tests/support/Results.h"
#include "tests/support/SharedTable.h"

#include <sys/socket.h>

namespace {

using namespace ZNORBTEST;

class Request : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(driver.startServing()); }

    DaemonDriver driver;
};

TEST_F(Request, GetAnswersTheEntrysNumberAndTheClientFillsItIn) {
    EXPECT_EQ(askDaemon("GET|en"), "0");
    EXPECT_EQ(askDaemon("GET|en"), "1");
    ASSERT_TRUE(DaemonDriver::waitForClient(0));
    ASSERT_TRUE(DaemonDriver::waitForClient(1));
    const znorb_shared_table table = sharedTable();
    EXPECT_EQ(table.count, 2U);
    EXPECT_EQ(table.entries[0].in_use, 1);
    EXPECT_EQ(driver.clients().size(), 2U);
    EXPECT_NE(identifierOf(table.entries[0]), identifierOf(table.entries[1]));
}

TEST_F(Request, GetTakesTheLowestEntryThatAClientHasFreed) {
    for (const char* number : {"0", "1", "2"}) {
        ASSERT_EQ(askDaemon("GET|en"), number);
    }
    EXPECT_TRUE(writeSharedTable(4 + 128, std::string(1, '\0')));
    EXPECT_EQ(askDaemon("GET|en"), "1");
    EXPECT_EQ(sharedTable().count, 3U);
}

TEST_F(Request, GetWithoutALanguageIsAnsweredZeroAndLaunchesNothingButWithAnEmptyOneLaunches) {
    EXPECT_EQ(askDaemon("GET"), "0");
    EXPECT_EQ(sharedTable().count, 0U);
    EXPECT_THAT(driver.clients(), IsEmpty());
    EXPECT_EQ(askDaemon("GET|"), "0");
    EXPECT_EQ(sharedTable().count, 1U);
    EXPECT_TRUE(DaemonDriver::waitForClient(0));
}

TEST_F(Request, GetOfAFullTableIsAnsweredZeroAndLaunchesNothing) {
    EXPECT_TRUE(writeSharedTable(0, countOf(64)));
    for (off_t entry = 0; entry < 64; ++entry) {
        EXPECT_TRUE(writeSharedTable(4 + 128 * entry, std::string(1, '\1')));
    }
    EXPECT_EQ(askDaemon("GET|en"), "0");
    EXPECT_EQ(sharedTable().count, 64U);
    EXPECT_THAT(driver.clients(), IsEmpty());
}

TEST_F(Request, HostileCountsAndEntriesHarmNothing) {
    EXPECT_TRUE(writeSharedTable(0, std::string("\xff\xff\xff\xff", 4)));
    EXPECT_TRUE(writeSharedTable(4, std::string(64 * 128, '\xff')));
    EXPECT_EQ(askDaemon("PRINT"), "0");
    EXPECT_EQ(askDaemon("GET|en"), "0");
    EXPECT_THAT(driver.clients(), IsEmpty());
    EXPECT_EQ(driver.quit(), exitedWith(255)); // all 64 ports are tried
}

TEST_F(Request, PrintIsAnsweredZeroWhateverItsFurtherTokensOfWhichWhatIsBeyondOneReceiveIsDropped) {
    EXPECT_EQ(askDaemon("PRINT"), "0");
    EXPECT_EQ(askDaemon("PRINT|x"), "0");
    EXPECT_EQ(askDaemon("PRINT|" + std::string(1018, 'x')), "0");
    EXPECT_TRUE(LocalConnection::toPath(socketPath).send(std::string(4096, 'x')));
    EXPECT_EQ(askDaemon("PRINT"), "0");
}

TEST_F(Request, UnknownOnesAreAnsweredZeroAndDoNothing) {
    for (const char* request : {"print", "get|en", "QUIT\n", "QUIT ", " QUIT", "|QUIT", "x", "|", "GET en"}) {
        EXPECT_EQ(askDaemon(request), "0") << request;
    }
    EXPECT_EQ(sharedTable().count, 0U);
    EXPECT_EQ(driver.waitForDaemon(Milliseconds(0)), stillRunning());
}

TEST_F(Request, FromAnUnprivilegedUserIsServed) {
    EXPECT_THAT(runProgram({.program = driver.requestor(), .arguments = {"PRINT"}, .asOrdinaryUser = true}),
                resultIs(exitedWith(0), "0\n", _));
}

TEST_F(Request, QuitIsAnsweredWhateverItsFurtherTokensAndThenNobodyListens) {
    for (const char* request : {"QUIT|now", "QUIT"}) {
        EXPECT_EQ(askDaemon(request), "0");
        EXPECT_EQ(driver.waitForDaemon(), exitedWith(255));
        EXPECT_FALSE(LocalConnection::toPath(socketPath).isConnected());
        EXPECT_THAT(driver.newNames(), ElementsAre("/run/znorb.socket"));
        ASSERT_TRUE(driver.startServing());
    }
}

TEST_F(Request, QuitAsksEveryClientToExit) {
    for (const char* number : {"0", "1", "2"}) {
        ASSERT_EQ(askDaemon("GET|en"), number);
    }
    for (unsigned entry = 0; entry < 3; ++entry) {
        ASSERT_TRUE(DaemonDriver::waitForClient(entry));
    }
    EXPECT_EQ(driver.quit(), exitedWith(255));
    EXPECT_TRUE(waitUntil([&]() { return driver.clients().empty(); }));
}

TEST_F(Request, QuitCannotReachAClientWithoutAPort) {
    driver.installAsClient("znorb-waiter"); // it never fills anything in
    ASSERT_EQ(askDaemon("GET|en"), "0");
    ASSERT_TRUE(waitUntil([&]() { return driver.clients().size() == 1; }));
    EXPECT_EQ(driver.quit(), exitedWith(255));
    EXPECT_EQ(driver.clients().size(), 1U);
}

TEST_F(Request, LeavesNoDescriptorBehind) {
    const std::string descriptors = "/proc/" + std::to_string(driver.daemon()) + "/fd";
    const std::vector<std::string> before = namesIn(descriptors);
    for (int round = 0; round < 50; ++round) {
        ASSERT_EQ(askDaemon("PRINT"), "0");
        ASSERT_EQ(askDaemon("unknown"), "0");
        (void)LocalConnection::toPath(socketPath);
    }
    ASSERT_EQ(askDaemon("GET|en"), "0");
    ASSERT_EQ(askDaemon("PRINT"), "0");
    EXPECT_TRUE(waitUntil([&]() { return namesIn(descriptors) == before; }));
}

TEST_F(Request, QuitPassesOverClientsThatAreGone) {
    ASSERT_EQ(askDaemon("GET|en|1"), "0");
    ASSERT_TRUE(DaemonDriver::waitForClient(0));
    ASSERT_TRUE(waitUntil([&]() { return driver.clients().empty(); })); // its second is over
    EXPECT_TRUE(writeSharedTable(4, std::string(1, '\1')));             // as if it had been killed
    EXPECT_EQ(driver.quit(), exitedWith(255));
}

} // namespace
