/// The arguments that the real daemon gives to a client, and what becomes of a launch that fails.

#include "tests/sandbox/Processes.h"
#include "tests/support/DaemonDriver.h"
#include "tests/support/Files.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Matchers.h"
#include "tests/support/Rows.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/SharedTable.h"
#include "tests/support/Words.h"

#include <unistd.h>

#include <csignal>

namespace {

using namespace ZNORBTEST;

class LaunchedClient : public testing::Test {
protected:
    /// Starts the daemon and, by this request, its first client.
    void launchBy(const std::string& request) {
        ASSERT_TRUE(driver.startServing());
        ASSERT_EQ(askDaemon(request), "0");
        ASSERT_TRUE(DaemonDriver::waitForClient(0));
        ASSERT_EQ(driver.clients().size(), 1U);
        client = "/proc/" + std::to_string(driver.clients()[0]);
    }

    std::vector<std::string> arguments() const { return wordsOf(readFile(client + "/cmdline")); }

    DaemonDriver driver;
    std::string client;
};

using Request = Row<std::string, std::vector<std::string>>;

class ArgumentsOfAClient : public LaunchedClient, public testing::WithParamInterface<Request> {};

TEST_P(ArgumentsOfAClient, AreThoseOfItsRequest) {
    launchBy(GetParam().given);
    std::vector<std::string> expected = GetParam().expected;
    expected.insert(expected.begin(), driver.client());
    EXPECT_EQ(arguments(), expected);
}

const Request requests[] = {
    {"LanguageAndEntry", "GET|en", {"-lang", "en", "-wbx", "-index", "0"}},
    {"TimeOutAndNothingBeyondIt", "GET|de|30|more", {"-lang", "de", "-wbx", "-index", "0", "-timeout", "30"}},
    {"NoEmptyTimeOutButAnEmptyLanguage", "GET||", {"-lang", "", "-wbx", "-index", "0"}},
};

INSTANTIATE_TEST_SUITE_P(LaunchedClient, ArgumentsOfAClient, testing::ValuesIn(requests), rowName);

TEST_F(LaunchedClient, ThatEndsNeverBecomesAZombie) {
    launchBy("GET|en|1");
    ASSERT_TRUE(waitUntil([&]() { return driver.clients().empty(); }));
    EXPECT_TRUE(waitUntil([&]() { return childrenOf(driver.daemon()).empty(); }));
    EXPECT_EQ(askDaemon("GET|en"), "0"); // it had freed its entry
}

class FailedLaunch : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(driver.startServing());
        ASSERT_EQ(unlink(driver.client().c_str()), 0);
        // The forked copy answers on the same connection as well, so one or two replies arrive.
        const auto reply = askDaemon("GET|en");
        ASSERT_TRUE(reply == "0" || reply == "00") << reply.value_or("none");
        ASSERT_TRUE(waitUntil([&]() { return daemons().size() == 2; }));
    }

    std::vector<pid_t> daemons() const { return processesRunning(driver.program()); }

    DaemonDriver driver;
};

TEST_F(FailedLaunch, KeepsASecondDaemonThatServesToo) {
    for (int request = 0; request < 20; ++request) {
        EXPECT_EQ(askDaemon("PRINT"), "0");
    }
    EXPECT_EQ(daemons().size(), 2U);
    const znorb_shared_table table = sharedTable();
    EXPECT_EQ(table.count, 1U);
    EXPECT_EQ(table.entries[0].in_use, 1);
}

// Not in the ThreadSanitizer build: after the fork of a process with threads it handles no signal any more.
#if !ZNORB_THREAD_SANITIZER
TEST_F(FailedLaunch, LeavesOneDaemonThatOnlyASignalEndsOnceTheOtherHasQuit) {
    ASSERT_EQ(askDaemon("QUIT"), "0");
    ASSERT_TRUE(waitUntil([&]() { return daemons().size() == 1; }));
    // The one that quit has shut the socket down that both shared.
    EXPECT_FALSE(LocalConnection::toPath(socketPath).isConnected());
    const pid_t left = daemons()[0];
    ASSERT_EQ(kill(left, SIGTERM), 0);
    EXPECT_EQ(waitForEndOf(left), exitedWith(10));
}
#endif

TEST(FailedLaunchOfALaterEntry, IsAnsweredWithItsNumberOnceOrTwice) {
    DaemonDriver driver;
    ASSERT_TRUE(driver.startServing());
    ASSERT_EQ(askDaemon("GET|en"), "0");
    ASSERT_TRUE(DaemonDriver::waitForClient(0)); // answered before it was executed
    ASSERT_EQ(unlink(driver.client().c_str()), 0);
    const auto reply = askDaemon("GET|en");
    EXPECT_TRUE(reply == "1" || reply == "11") << reply.value_or("none");
}

TEST(LongInstallationPath, BeyondEightyBytesLaunchesNothingFromTheRealDirectory) {
    DaemonDriver driver("/opt/zn/" + std::string(90, 'x') + "/bin");
    ASSERT_TRUE(driver.startServing());
    ASSERT_TRUE(askDaemon("GET|en").has_value());
    EXPECT_THAT(driver.clients(), IsEmpty());
}

} // namespace
