#include "tests/responder/service/UnifiedResponderMonitorFixture.h"
#include "tests/support/Addresses.h"
#include "tests/support/Allocations.h"
#include "tests/support/Descriptor.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/LocalPort.h"
#include "tests/support/Matchers.h"
#include "tests/support/ProcessorTime.h"

#include <poll.h>

#include <cerrno>
#include <chrono>
#include <memory>

namespace {

using namespace ZNORBTEST;

/// Whether the monitor has closed the last connection; a requester sees its end before.
bool isBetweenConnections() {
    return socketsOf(socketPath).size() == 1;
}

// ---- one connection -------------------------------------------------------------------------------------

TEST_F(ServingResponderMonitor, RequestInTwoPiecesIsItsFirstPiece) {
    LocalConnection client = LocalConnection::toPath(socketPath);
    EXPECT_TRUE(client.send("QU"));
    EXPECT_EQ(client.receiveUntilClosed(), "0");
    EXPECT_FALSE(client.send("IT")) << "the server has closed the connection";
    EXPECT_FALSE(isExitEventSet());
}

TEST_F(ServingResponderMonitor, ConnectionIsClosedAfterItsReplyWhetherTheRequesterSendsMoreOrNot) {
    for (const bool isFinished : {false, true}) {
        LocalConnection client = LocalConnection::toPath(socketPath);
        EXPECT_TRUE(client.send("PRINT"));
        if (isFinished) {
            client.finishSending();
        }
        EXPECT_EQ(client.receiveUntilClosed(), "0");
        EXPECT_TRUE(client.wasClosed());
    }
}

TEST_F(ServingResponderMonitor, RequesterThatSendsNothingAndNoMoreGetsNoReply) {
    LocalConnection client = LocalConnection::toPath(socketPath);
    client.finishSending();
    EXPECT_EQ(client.receiveUntilClosed(), "");
    EXPECT_TRUE(client.wasClosed());
    EXPECT_EQ(askDaemon("PRINT"), "0");
}

TEST_F(ServingResponderMonitor, RequesterThatHasGoneBeforeItsReplyDoesNoHarm) {
    for (int i = 0; i < 20; ++i) {
        const LocalConnection client = LocalConnection::toPath(socketPath);
        EXPECT_TRUE(client.send("PRINT"));
    }
    EXPECT_EQ(askDaemon("PRINT"), "0") << "no SIGPIPE has ended the process";
}

TEST_F(ServingResponderMonitor, RequesterThatGoesWithoutARequestDoesNoHarm) {
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(LocalConnection::toPath(socketPath).isConnected());
    }
    EXPECT_EQ(askDaemon("PRINT"), "0");
    EXPECT_THAT(linesOfService(), IsEmpty());
}

TEST_F(UnifiedResponderMonitor, RequestForWhichThereIsNoMemoryIsClosedWithoutAReply) {
    ZNORB_SKIP_IF(!allocationsAreObserved) << "allocations cannot be made to fail here";
    startServing();
    const std::string request = "PRINT|" + std::string(1000, 'x');
    LocalConnection client = LocalConnection::toPath(socketPath);
    {
        const FailingAllocation failure(0, request.size());
        EXPECT_TRUE(client.send(request));
        EXPECT_EQ(client.receiveUntilClosed(), "");
        EXPECT_TRUE(client.wasClosed());
        EXPECT_TRUE(FailingAllocation::hasHappened());
    }
    EXPECT_EQ(askDaemon(request), "0");
}

TEST_F(ServingResponderMonitor, RequesterThatSendsNothingIsDroppedAfterSixtySeconds) {
    SelectRecorder::divideWaitsBy(600);
    LocalConnection client = LocalConnection::toPath(socketPath);
    EXPECT_EQ(client.receiveUntilClosed(), "");
    EXPECT_TRUE(client.wasClosed());
    awaitRequestWait(2);
    EXPECT_THAT(linesOfService(), IsEmpty());
    EXPECT_EQ(askDaemon("PRINT"), "0");
}

TEST_F(ServingResponderMonitor, SlowRequesterHoldsUpEveryoneBehindIt) {
    LocalConnection slow = LocalConnection::toPath(socketPath);
    awaitRequestWait(2);
    LocalConnection next = LocalConnection::toPath(socketPath);
    EXPECT_TRUE(next.send("PRINT"));
    EXPECT_EQ(next.receiveUntilClosed(std::chrono::milliseconds(100)), "");
    EXPECT_FALSE(next.wasClosed());
    EXPECT_TRUE(slow.send("PRINT"));
    EXPECT_EQ(slow.receiveUntilClosed(), "0");
    EXPECT_EQ(next.receiveUntilClosed(), "0");
}

TEST_F(UnifiedResponderMonitor, QuitIsAnsweredOnlyWhenEveryClientHasBeenAsked) {
    const LocalPort clientPort(true);
    startServing();
    changeTable([&clientPort](znorb_shared_table& table) {
        table.count = 1;
        table.entries[0].in_use = 1;
        table.entries[0].port = clientPort.number();
    });
    LocalConnection quitter = LocalConnection::toPath(socketPath);
    EXPECT_TRUE(quitter.send("QUIT"));
    int accepted = -1;
    ASSERT_TRUE(waitUntil([&]() { return (accepted = clientPort.acceptOne()) != -1; }));
    const Descriptor connection(accepted);
    EXPECT_EQ(quitter.receiveUntilClosed(std::chrono::milliseconds(100)), "");
    EXPECT_FALSE(quitter.wasClosed());
    EXPECT_FALSE(isExitEventSet());
    EXPECT_THAT(linesOfService(), ElementsAre("Received QUIT command")) << "it was logged before";
    EXPECT_EQ(sendto(connection.get(), "HTTP/1.0 200 OK\r\n\r\n", 19, MSG_NOSIGNAL, nullptr, 0), 19);
    EXPECT_EQ(quitter.receiveUntilClosed(), "0");
    awaitEnd();
}

// ---- the accept loop ------------------------------------------------------------------------------------

TEST_F(UnifiedResponderMonitor, WaitsForConnectionsFiveSecondsAtATime) {
    SelectRecorder::divideWaitsBy(500);
    startServing();
    ASSERT_TRUE(waitUntil(isBetweenConnections));
    const std::vector<int> own = socketsOf(socketPath);
    ASSERT_TRUE(SelectRecorder::awaitCalls(SelectRecorder::calls().size() + 5));
    const auto calls = SelectRecorder::calls();
    for (std::size_t i = calls.size() - 5; i < calls.size(); ++i) {
        EXPECT_THAT(calls[i], isWaitFor(own.at(0), 5));
    }
    EXPECT_THAT(linesOfService(), IsEmpty()) << "a wait that is over is not worth a message";
}

/// The wait that goes wrong is the first one, for a connection.
void expectFirstWaitsForConnections(std::size_t count) {
    const auto calls = SelectRecorder::calls();
    ASSERT_GT(calls.size(), count);
    for (std::size_t i = 0; i <= count; ++i) {
        EXPECT_EQ(calls[i].seconds, 5);
    }
}

TEST_F(UnifiedResponderMonitor, WaitForConnectionsThatFailsIsBegunAgain) {
    SelectRecorder::fail(EINTR, 3);
    startServing();
    expectFirstWaitsForConnections(3);
    EXPECT_THAT(linesOfService(), IsEmpty());
}

TEST_F(ServingResponderMonitor, ConnectionThatCannotBeAcceptedIsTriedAgainWithoutSpinning) {
    ASSERT_TRUE(waitUntil(isBetweenConnections));
    const Descriptor late(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    auto limit = std::make_unique<DescriptorLimit>(lowestFreeDescriptor());
    ASSERT_EQ(connectTo(late.get(), addressOf(socketPath)), 0);
    ASSERT_EQ(sendto(late.get(), "PRINT", 5, MSG_NOSIGNAL, nullptr, 0), 5);
    const std::size_t calls = SelectRecorder::calls().size();
    const auto begin = std::chrono::steady_clock::now();
    const auto usedBefore = processorTimeOn(CLOCK_PROCESS_CPUTIME_ID);
    ASSERT_TRUE(SelectRecorder::awaitCalls(calls + 10));
    const auto used = processorTimeOn(CLOCK_PROCESS_CPUTIME_ID) - usedBefore;
    const auto elapsed = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(elapsed, std::chrono::milliseconds(500)) << "ten tries";
    EXPECT_LE(used, elapsed / 10);
    limit.reset();
    pollfd wanted = {late.get(), POLLIN, 0};
    EXPECT_EQ(poll(&wanted, 1, static_cast<int>(usualBound.count())), 1) << "served as soon as it can be";
    char reply = 0;
    EXPECT_EQ(recvfrom(late.get(), &reply, 1, 0, nullptr, nullptr), 1);
    EXPECT_EQ(reply, '0');
}

TEST_F(ServingResponderMonitor, ManyRequestersAtOnceAreServedOneAfterTheOther) {
    std::vector<LocalConnection> clients;
    for (int i = 0; i < 5; ++i) {
        clients.push_back(LocalConnection::toPath(socketPath));
        ASSERT_TRUE(clients.back().isConnected());
    }
    for (auto client = clients.rbegin(); client != clients.rend(); ++client) {
        EXPECT_TRUE(client->send("PRINT"));
    }
    for (LocalConnection& client : clients) {
        EXPECT_EQ(client.receiveUntilClosed(), "0");
    }
}

} // namespace
