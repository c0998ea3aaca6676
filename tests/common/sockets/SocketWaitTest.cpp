#include "common/sockets/SocketWait.h"

#include "tests/support/ForkedChild.h"
#include "tests/support/SelectRecorder.h"
#include "tests/support/SocketPair.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <thread>

namespace {

using namespace ORBCOMMON;

class SocketWaitTest : public testing::Test {
protected:
    ZNORBTEST::SocketPair sockets;
};

TEST_F(SocketWaitTest, BytesThatWaitAreReadableAndWaitingTakesNothingAway) {
    sockets.write("x");
    EXPECT_EQ(waitUntilReadable(sockets.near(), 60), Readiness::Readable);
    EXPECT_EQ(waitUntilReadable(sockets.near(), 60), Readiness::Readable);
    char byte = 0;
    EXPECT_EQ(recv(sockets.near(), &byte, 1, MSG_DONTWAIT), 1);
}

TEST_F(SocketWaitTest, BytesThatArriveLaterEndTheWait) {
    std::thread writer([this] { sockets.write("x"); });
    EXPECT_EQ(waitUntilReadable(sockets.near(), 60), Readiness::Readable);
    writer.join();
}

TEST_F(SocketWaitTest, EndOfTheConnectionIsReadable) {
    sockets.closeFar();
    EXPECT_EQ(waitUntilReadable(sockets.near(), 60), Readiness::Readable);
}

TEST(SocketWait, QueuedConnectionMakesAListenerReadable) {
    const ZNORBTEST::Descriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(listen(listener.get(), 1), 0);
    EXPECT_EQ(waitUntilReadable(listener.get(), 0), Readiness::TimedOut);
    sockaddr_in address{};
    socklen_t length = sizeof(address);
    ASSERT_EQ(getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &length), 0);
    const ZNORBTEST::Descriptor client(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(connect(client.get(), reinterpret_cast<const sockaddr*>(&address), length), 0);
    EXPECT_EQ(waitUntilReadable(listener.get(), 60), Readiness::Readable);
}

TEST_F(SocketWaitTest, ReadinessToWriteDoesNotCountAndTimeOutIsInSecondsAndSetAfreshForEachWait) {
    EXPECT_EQ(waitUntilReadable(sockets.near(), 0), Readiness::TimedOut);
    for (int wait = 0; wait < 2; ++wait) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(waitUntilReadable(sockets.near(), 1), Readiness::TimedOut);
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
    }
}

TEST_F(SocketWaitTest, WaitsForItsDescriptorAloneAndForWholeSeconds) {
    sockets.write("x");
    const ZNORBTEST::SelectRecorder waits;
    EXPECT_EQ(waitUntilReadable(sockets.near(), 60), Readiness::Readable);
    ZNORBTEST::SelectRecorder::returnOneWithoutDescriptor();
    EXPECT_EQ(waitUntilReadable(sockets.near(), 60), Readiness::Failed);
    const auto expected = ZNORBTEST::isWaitFor(sockets.near(), 60);
    EXPECT_THAT(ZNORBTEST::SelectRecorder::calls(), testing::ElementsAre(expected, expected));
}

TEST_F(SocketWaitTest, DescriptorZeroIsWaitedOn) {
    sockets.write("x");
    EXPECT_TRUE(ZNORBTEST::holdsInForked([this]() {
        return dup2(sockets.near(), 0) == 0 && waitUntilReadable(0, 60) == Readiness::Readable;
    }));
}

TEST_F(SocketWaitTest, NegativeTimeOutsAndDescriptorsThatAreNotOpenFail) {
    EXPECT_EQ(waitUntilReadable(sockets.near(), -1), Readiness::Failed);
    const int closed = sockets.near();
    sockets.closeNear();
    for (const int descriptor : {-1, -1000, closed}) {
        EXPECT_EQ(waitUntilReadable(descriptor, 60), Readiness::Failed) << descriptor;
    }
}

TEST_F(SocketWaitTest, DescriptorTooLargeForASetFailsAndTheLargestIsWaitedOn) {
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit raised{std::max<rlim_t>(limit.rlim_cur, FD_SETSIZE + 16), limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &raised), 0);
    sockets.write("x");
    const int large = fcntl(sockets.near(), F_DUPFD_CLOEXEC, FD_SETSIZE);
    EXPECT_GE(large, FD_SETSIZE);
    EXPECT_EQ(waitUntilReadable(large, 60), Readiness::Failed);
    (void)close(large);
    (void)setrlimit(RLIMIT_NOFILE, &limit);
    const int largest = fcntl(sockets.near(), F_DUPFD_CLOEXEC, FD_SETSIZE - 1);
    ASSERT_EQ(largest, FD_SETSIZE - 1);
    EXPECT_EQ(waitUntilReadable(largest, 60), Readiness::Readable);
    (void)close(largest);
}

extern "C" void ignoreAlarm(int) {}

// The alarm repeats, so that one of them falls into the wait however late that begins.
TEST_F(SocketWaitTest, InterruptedWaitFails) {
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = ignoreAlarm;
    ASSERT_EQ(sigaction(SIGALRM, &action, &before), 0);
    const itimerval repeating{{0, 20000}, {0, 20000}};
    ASSERT_EQ(setitimer(ITIMER_REAL, &repeating, nullptr), 0);
    EXPECT_EQ(waitUntilReadable(sockets.near(), 60), Readiness::Failed);
    const itimerval off{};
    (void)setitimer(ITIMER_REAL, &off, nullptr);
    (void)sigaction(SIGALRM, &before, nullptr);
}

} // namespace
