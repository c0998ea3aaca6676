#include "common/sockets/SocketWait.h"

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

using ORBCOMMON::Readiness;
using ORBCOMMON::waitUntilReadable;

class SocketWaitTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0); }

    void TearDown() override {
        closeEnd(0);
        closeEnd(1);
    }

    void closeEnd(int end) {
        if (ends[end] != -1) {
            (void)close(ends[end]);
        }
        ends[end] = -1;
    }

    int ends[2] = {-1, -1};
};

TEST_F(SocketWaitTest, BytesThatWaitAreReadableAndWaitingTakesNothingAway) {
    ASSERT_EQ(send(ends[1], "x", 1, MSG_NOSIGNAL), 1);
    EXPECT_EQ(waitUntilReadable(ends[0], 60), Readiness::Readable);
    EXPECT_EQ(waitUntilReadable(ends[0], 60), Readiness::Readable);
    char byte = 0;
    EXPECT_EQ(recv(ends[0], &byte, 1, MSG_DONTWAIT), 1);
}

TEST_F(SocketWaitTest, BytesThatArriveLaterEndTheWait) {
    std::thread writer([this] { (void)send(ends[1], "x", 1, MSG_NOSIGNAL); });
    EXPECT_EQ(waitUntilReadable(ends[0], 60), Readiness::Readable);
    writer.join();
}

TEST_F(SocketWaitTest, EndOfTheConnectionIsReadable) {
    closeEnd(1);
    EXPECT_EQ(waitUntilReadable(ends[0], 60), Readiness::Readable);
}

TEST(SocketWait, QueuedConnectionMakesAListenerReadable) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(listen(listener, 1), 0);
    EXPECT_EQ(waitUntilReadable(listener, 0), Readiness::TimedOut);
    sockaddr_in address{};
    socklen_t length = sizeof(address);
    ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length), 0);
    const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(connect(client, reinterpret_cast<const sockaddr*>(&address), length), 0);
    EXPECT_EQ(waitUntilReadable(listener, 60), Readiness::Readable);
    (void)close(client);
    (void)close(listener);
}

TEST_F(SocketWaitTest, ReadinessToWriteDoesNotCountAndTimeOutIsInSecondsAndSetAfreshForEachWait) {
    EXPECT_EQ(waitUntilReadable(ends[0], 0), Readiness::TimedOut);
    for (int wait = 0; wait < 2; ++wait) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(waitUntilReadable(ends[0], 1), Readiness::TimedOut);
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
    }
}

TEST_F(SocketWaitTest, NegativeTimeOutsAndDescriptorsThatAreNotOpenFail) {
    EXPECT_EQ(waitUntilReadable(ends[0], -1), Readiness::Failed);
    const int closed = ends[0];
    closeEnd(0);
    for (const int descriptor : {-1, -1000, closed}) {
        EXPECT_EQ(waitUntilReadable(descriptor, 60), Readiness::Failed) << descriptor;
    }
}

TEST_F(SocketWaitTest, DescriptorTooLargeForASetFailsAndTheLargestIsWaitedOn) {
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit raised{std::max<rlim_t>(limit.rlim_cur, FD_SETSIZE + 16), limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &raised), 0);
    ASSERT_EQ(send(ends[1], "x", 1, MSG_NOSIGNAL), 1);
    const int large = fcntl(ends[0], F_DUPFD_CLOEXEC, FD_SETSIZE);
    EXPECT_GE(large, FD_SETSIZE);
    EXPECT_EQ(waitUntilReadable(large, 60), Readiness::Failed);
    (void)close(large);
    (void)setrlimit(RLIMIT_NOFILE, &limit);
    const int largest = fcntl(ends[0], F_DUPFD_CLOEXEC, FD_SETSIZE - 1);
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
    EXPECT_EQ(waitUntilReadable(ends[0], 60), Readiness::Failed);
    const itimerval off{};
    (void)setitimer(ITIMER_REAL, &off, nullptr);
    (void)sigaction(SIGALRM, &before, nullptr);
}

} // namespace
