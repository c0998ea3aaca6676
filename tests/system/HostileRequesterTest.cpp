/// Requesters that mean no good, one per test: the daemon waits for them without working, keeps nothing of
/// them, and serves the next one.

#include "tests/support/DaemonDriver.h"
#include "tests/support/Descriptor.h"
#include "tests/support/Files.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/ProcessorTime.h"
#include "tests/support/SharedTable.h"
#include "tests/support/Words.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstring>
#include <thread>

namespace {

using namespace ZNORBTEST;

class HostileRequester : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(driver.startServing());
        descriptors = openDescriptors();
    }

    void TearDown() override {
        EXPECT_EQ(askDaemon("PRINT"), "0");
        EXPECT_TRUE(waitUntil([this]() { return openDescriptors() == descriptors; }));
        EXPECT_EQ(driver.quit(), exitedWith(255));
    }

    std::vector<std::string> openDescriptors() const {
        return namesIn("/proc/" + std::to_string(driver.daemon()) + "/fd");
    }

    static LocalConnection connectToDaemon() { return LocalConnection::toPath(socketPath); }

    DaemonDriver driver;
    std::vector<std::string> descriptors;
};

TEST_F(HostileRequester, ThatIsSilentIsWaitedForWithoutWork) {
    const LocalConnection silent = connectToDaemon();
    ASSERT_TRUE(silent.isConnected());
    const ProcessorUse use = watchProcessor(driver.daemon(), Milliseconds(1000));
    EXPECT_TRUE(use.isWaiting()) << use;
}

TEST_F(HostileRequester, ThatConnectsAndVanishesIsForgotten) {
    for (int round = 0; round < 100; ++round) {
        ASSERT_TRUE(connectToDaemon().isConnected()) << round;
    }
}

TEST_F(HostileRequester, ThatHalfClosesWithoutARequestIsClosedWithoutAReply) {
    LocalConnection connection = connectToDaemon();
    connection.finishSending();
    EXPECT_EQ(connection.receiveUntilClosed(), "");
    EXPECT_TRUE(connection.wasClosed());
}

TEST_F(HostileRequester, ThatHalfClosesAfterItsRequestIsAnswered) {
    LocalConnection connection = connectToDaemon();
    ASSERT_TRUE(connection.send("GET|en"));
    connection.finishSending();
    EXPECT_EQ(connection.receiveUntilClosed(), "0");
}

TEST_F(HostileRequester, ThatVanishesAfterGetHasItsClientAllTheSame) {
    ASSERT_TRUE(connectToDaemon().send("GET|en"));
    EXPECT_TRUE(DaemonDriver::waitForClient(0));
}

TEST_F(HostileRequester, ThatResetsUnderTheReplyHarmsNothing) {
    for (int round = 0; round < 100; ++round) {
        const LocalConnection connection = connectToDaemon();
        ASSERT_TRUE(connection.send("PRINT"));
        // Closed with the reply, or the daemon's close, on its way.
    }
}

TEST_F(HostileRequester, ThatNeverReadsTheReplyHoldsNobodyUp) {
    const LocalConnection connection = connectToDaemon();
    ASSERT_TRUE(connection.send("PRINT"));
    EXPECT_EQ(askDaemon("PRINT"), "0");
}

TEST_F(HostileRequester, ThatSendsEveryByteThereIsOrManyZeroBytesIsAnsweredZero) {
    for (const char byte : allBytes()) {
        EXPECT_EQ(askDaemon(std::string(1, byte)), "0") << static_cast<int>(byte);
    }
    EXPECT_EQ(askDaemon(allBytes()), "0");
    EXPECT_EQ(sharedTable().count, 0U);
    EXPECT_EQ(askDaemon(std::string(4096, '\0')), "0");
    EXPECT_EQ(askDaemon(std::string("QUIT\0", 5)), "0"); // that is not "QUIT"
}

TEST_F(HostileRequester, ThatSendsNothingButSeparatorsIsAnsweredZero) {
    EXPECT_EQ(askDaemon(std::string(1024, '|')), "0");
    EXPECT_EQ(askDaemon("GET" + std::string(1021, '|')), "0");
    EXPECT_EQ(sharedTable().count, 1U); // an empty language is one
}

TEST_F(HostileRequester, ThatSendsLengthsAroundTheLongestRequestIsAnsweredOnceAndNotObeyedBehindIt) {
    for (const std::size_t length : {1023U, 1024U, 1025U, 2048U, 4096U}) {
        const std::string request = "PRINT|" + std::string(length - 6, 'x');
        EXPECT_EQ(askDaemon(request), "0") << length;
    }
    // What is behind the 1024th byte goes with the connection.
    EXPECT_EQ(askDaemon(std::string(1024, 'x') + "QUIT"), "0");
    EXPECT_EQ(driver.waitForDaemon(Milliseconds(0)), stillRunning());
}

TEST_F(HostileRequester, ThatSendsASecondRequestOnItsConnectionIsAnsweredOnce) {
    LocalConnection connection = connectToDaemon();
    ASSERT_TRUE(connection.send("PRINT|"));
    (void)connection.send("GET|en"); // the daemon may see one request of both, or only the first
    EXPECT_EQ(connection.receiveUntilClosed(), "0");
    EXPECT_EQ(sharedTable().count, 0U);
}

TEST_F(HostileRequester, ThatAsksForALongLanguageHasItPassedOn) {
    EXPECT_EQ(askDaemon("GET|" + std::string(1020, 'x')), "0");
    ASSERT_TRUE(DaemonDriver::waitForClient(0));
    const znorb_shared_table table = sharedTable();
    EXPECT_EQ(identifierOf(table.entries[0]).size(), ZNORB_IDENTIFIER_SIZE - 1U);
}

TEST_F(HostileRequester, ThatAsksForLanguagesWithAMeaningElsewhereGetsAClientEachTime) {
    const std::vector<std::string> languages = {
        "-index",    "-timeout", "../../../bin/sh",     "$(reboot)", "%n%s",
        "en\nLANG=", "*",        std::string("e\0n", 3)};
    for (std::size_t number = 0; number < languages.size(); ++number) {
        EXPECT_EQ(askDaemon("GET|" + languages[number]), std::to_string(number)) << languages[number];
        EXPECT_TRUE(DaemonDriver::waitForClient(static_cast<unsigned>(number))) << languages[number];
    }
}

TEST_F(HostileRequester, ThatAsksForMoreThanThereIsFindsATableThatIsFull) {
    driver.installAsClient("znorb-waiter");
    for (unsigned number = 0; number < ZNORB_TABLE_CAPACITY; ++number) {
        EXPECT_EQ(askDaemon("GET|en"), std::to_string(number));
    }
    for (int round = 0; round < 100; ++round) {
        EXPECT_EQ(askDaemon("GET|en"), "0");
    }
    // The last ones may still be on their way from the fork to the exec.
    EXPECT_TRUE(waitUntil([this] { return driver.clients().size() == ZNORB_TABLE_CAPACITY; }));
    EXPECT_EQ(driver.clients().size(), ZNORB_TABLE_CAPACITY);
}

TEST_F(HostileRequester, ThatPassesDescriptorsLeavesNoneInTheDaemon) {
    LocalConnection connection = connectToDaemon();
    const Descriptor descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
    const int passed = descriptor.get();
    ASSERT_NE(passed, -1);
    char text[] = "PRINT";
    iovec bytes = {text, 5};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof passed)] = {};
    msghdr message{};
    message.msg_iov = &bytes;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof passed);
    std::memcpy(CMSG_DATA(header), &passed, sizeof passed);
    EXPECT_EQ(sendmsg(connection.descriptor(), &message, MSG_NOSIGNAL), 5);
    EXPECT_EQ(connection.receiveUntilClosed(), "0");
}

TEST_F(HostileRequester, ThatComesInACrowdIsServedInTurn) {
    std::vector<std::thread> crowd;
    for (int number = 0; number < 32; ++number) {
        crowd.emplace_back([]() {
            for (int round = 0; round < 10; ++round) {
                EXPECT_EQ(askDaemon("PRINT"), "0");
                (void)LocalConnection::toPath(socketPath);
            }
        });
    }
    for (std::thread& requester : crowd) {
        requester.join();
    }
}

} // namespace
