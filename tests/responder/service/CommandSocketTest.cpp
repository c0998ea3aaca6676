#include "responder/service/CommandSocket.h"

#include "tests/support/Addresses.h"
#include "tests/support/Descriptor.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/Files.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Matchers.h"
#include "tests/support/SelectRecorder.h"
#include "tests/support/StandIns.h"
#include "tests/support/TemporaryFolder.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <memory>

namespace {

using namespace ZNORBTEST;
using Listener = ZNORBRESPONDER::CommandSocket;

bool isSocketFile(const std::string& path) {
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
}

/// The error of connecting without waiting, or 0; the connection is kept open in `connections`.
int connectTo(const std::string& path, std::vector<Descriptor>& connections) {
    connections.emplace_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    return ZNORBTEST::connectTo(connections.back().get(), addressOf(path)) == 0 ? 0 : errno;
}

class CommandSocket : public testing::Test {
protected:
    void openAndListen() {
        ASSERT_TRUE(listener.open());
        ASSERT_TRUE(listener.bind(path.c_str()));
        ASSERT_TRUE(listener.listen(5));
    }

    const TemporaryFolder folder;
    const std::string path = folder / "socket";
    const SelectRecorder waits;
    Listener listener;
};

class OpenCommandSocket : public CommandSocket {
protected:
    void SetUp() override { ASSERT_TRUE(listener.open()); }
};

class ListeningCommandSocket : public CommandSocket {
protected:
    void SetUp() override { openAndListen(); }
};

TEST_F(CommandSocket, IsAStreamSocketOfTheLocalKindAndNotPassedOnToExecutedPrograms) {
    const int descriptor = lowestFreeDescriptor();
    ASSERT_TRUE(listener.open());
    EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
    int value = 0;
    socklen_t length = sizeof value;
    ASSERT_EQ(getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &value, &length), 0);
    EXPECT_EQ(value, AF_UNIX);
    ASSERT_EQ(getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &value, &length), 0);
    EXPECT_EQ(value, SOCK_STREAM);
}

TEST_F(CommandSocket, OpeningFailsWithoutAFreeDescriptor) {
    Listener unopened;
    bool isOpen = true;
    {
        const DescriptorLimit limit(0);
        isOpen = unopened.open();
    }
    EXPECT_FALSE(isOpen);
    EXPECT_FALSE(unopened.bind(path.c_str()));
}

TEST_F(CommandSocket, BindingReplacesAStaleSocketFile) {
    auto earlier = std::make_unique<Listener>();
    ASSERT_TRUE(earlier->open() && earlier->bind(path.c_str()) && earlier->listen(5));
    earlier.reset();
    ASSERT_TRUE(isSocketFile(path));
    openAndListen();
    EXPECT_TRUE(LocalConnection::toPath(path).isConnected());
}

TEST_F(OpenCommandSocket, BindingReplacesAnyFileThatCanBeUnlinkedAndNotWhatALinkLeadsTo) {
    writeFile(path, "not a socket");
    EXPECT_TRUE(listener.bind(path.c_str()));
    EXPECT_TRUE(isSocketFile(path));
    writeFile(folder / "target", "kept");
    ASSERT_EQ(symlink((folder / "target").c_str(), (folder / "link").c_str()), 0);
    Listener second;
    ASSERT_TRUE(second.open());
    EXPECT_TRUE(second.bind((folder / "link").c_str()));
    EXPECT_TRUE(isSocketFile(folder / "link"));
    EXPECT_EQ(readFile(folder / "target"), "kept");
}

TEST_F(OpenCommandSocket, BindingFailsWithoutTheFilesDirectoryOrOnADirectory) {
    EXPECT_FALSE(listener.bind((folder / "missing/socket").c_str()));
    ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
    EXPECT_FALSE(listener.bind(path.c_str()));
}

TEST_F(OpenCommandSocket, PathIsCutAt107BytesAndNoFormat) {
    const std::string fitting = folder / ("100%s" + std::string(107 - folder.path().size() - 6, 's'));
    EXPECT_TRUE(listener.bind((fitting + "and more").c_str()));
    EXPECT_TRUE(isSocketFile(fitting));
}

TEST_F(OpenCommandSocket, ListensOnlyWhenItIsBoundAndLetsNobodyInBefore) {
    EXPECT_FALSE(listener.listen(5));
    ASSERT_TRUE(listener.bind(path.c_str()));
    EXPECT_FALSE(LocalConnection::toPath(path).isConnected());
}

TEST_F(ListeningCommandSocket, BacklogBoundsTheConnectionsThatWait) {
    std::vector<Descriptor> connections;
    int waiting = 0;
    while (waiting < 100 && connectTo(path, connections) == 0) {
        ++waiting;
    }
    EXPECT_EQ(waiting, 6) << "the kernel lets one more wait than it is told";
}

TEST_F(ListeningCommandSocket, AcceptReturnsTheConnectionThatWaitsAndThatIsNotPassedOnToExecutedPrograms) {
    const LocalConnection client = LocalConnection::toPath(path);
    const Descriptor connection(listener.accept(5));
    ASSERT_TRUE(connection.isOpen());
    EXPECT_EQ(fcntl(connection.get(), F_GETFD), FD_CLOEXEC);
    ASSERT_TRUE(client.send("hello"));
    char received[8] = {};
    EXPECT_EQ(recvfrom(connection.get(), received, sizeof received, 0, nullptr, nullptr), 5);
    EXPECT_STREQ(received, "hello");
}

TEST_F(ListeningCommandSocket, AcceptTakesConnectionsInTheirOrder) {
    const LocalConnection clients[] = {LocalConnection::toPath(path), LocalConnection::toPath(path)};
    for (const LocalConnection& client : clients) {
        ASSERT_TRUE(client.send(&client == clients ? "1" : "2"));
    }
    for (const char expected : {'1', '2'}) {
        const Descriptor connection(listener.accept(5));
        char received = 0;
        EXPECT_EQ(recvfrom(connection.get(), &received, 1, 0, nullptr, nullptr), 1);
        EXPECT_EQ(received, expected);
    }
}

TEST_F(CommandSocket, AcceptWaitsForTheListenerAloneAndAsLongAsItIsTold) {
    const int descriptor = lowestFreeDescriptor();
    openAndListen();
    SelectRecorder::divideWaitsBy(100);
    EXPECT_EQ(listener.accept(5), -1);
    EXPECT_EQ(listener.accept(7), -1);
    EXPECT_THAT(SelectRecorder::calls(), ElementsAre(isWaitFor(descriptor, 5), isWaitFor(descriptor, 7)));
}

TEST_F(ListeningCommandSocket, AcceptReturnsNothingWhenTheWaitFails) {
    const LocalConnection client = LocalConnection::toPath(path);
    SelectRecorder::fail(EINTR);
    EXPECT_EQ(listener.accept(5), -1);
    SelectRecorder::returnOneWithoutDescriptor();
    EXPECT_EQ(listener.accept(5), -1);
    EXPECT_TRUE(Descriptor(listener.accept(5)).isOpen()) << "the connection has waited meanwhile";
}

/// How long it takes to be told that nothing came.
std::chrono::steady_clock::duration durationOfFailedAccept(Listener& listener) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(listener.accept(5), -1);
    return std::chrono::steady_clock::now() - begin;
}

std::chrono::steady_clock::duration durationOfAcceptWithoutADescriptor(Listener& listener) {
    const DescriptorLimit limit(lowestFreeDescriptor());
    return durationOfFailedAccept(listener);
}

TEST_F(ListeningCommandSocket, FailureThatLastsIsFollowedByAPauseInWhichTheConnectionWaits) {
    const LocalConnection client = LocalConnection::toPath(path);
    EXPECT_GE(durationOfAcceptWithoutADescriptor(listener), std::chrono::milliseconds(50));
    EXPECT_TRUE(Descriptor(listener.accept(5)).isOpen());
    listener.close();
    EXPECT_GE(durationOfFailedAccept(listener), std::chrono::milliseconds(50)) << "nothing to wait for";
}

TEST_F(ListeningCommandSocket, PauseIsATenthOfASecondAndFollowsFailuresAlone) {
    std::vector<useconds_t> pauses;
    const InPlaceOf<usleep> noPause([&pauses](useconds_t microseconds) {
        pauses.push_back(microseconds);
        return 0;
    });
    SelectRecorder::divideWaitsBy(100);
    EXPECT_EQ(listener.accept(5), -1) << "nothing came";
    const LocalConnection client = LocalConnection::toPath(path);
    EXPECT_TRUE(Descriptor(listener.accept(5)).isOpen());
    EXPECT_THAT(pauses, IsEmpty());
    SelectRecorder::fail(EINTR);
    EXPECT_EQ(listener.accept(5), -1);
    EXPECT_THAT(pauses, ElementsAre(100'000U));
}

TEST_F(ListeningCommandSocket, ClosingRefusesFurtherConnectionsAndLeavesTheFileUntilItIsOpenedAnew) {
    listener.close();
    std::vector<Descriptor> connections;
    EXPECT_EQ(connectTo(path, connections), ECONNREFUSED);
    EXPECT_TRUE(isSocketFile(path));
    openAndListen();
    EXPECT_TRUE(LocalConnection::toPath(path).isConnected());
}

TEST_F(ListeningCommandSocket, ClosingEndsTheConnectionsThatStillWait) {
    LocalConnection client = LocalConnection::toPath(path);
    listener.close();
    EXPECT_EQ(client.receiveUntilClosed(), "");
    EXPECT_TRUE(client.wasClosed());
}

TEST_F(CommandSocket, ClosingRefusesConnectionsAlsoWhenAnotherProcessHoldsTheSocket) {
    const int descriptor = lowestFreeDescriptor();
    openAndListen();
    const Descriptor held(dup(descriptor)); // as a forked process would
    listener.close();
    EXPECT_FALSE(LocalConnection::toPath(path).isConnected());
}

TEST_F(CommandSocket, ClosingFreesTheDescriptorOnceOnly) {
    const int descriptor = lowestFreeDescriptor();
    openAndListen();
    listener.close();
    ASSERT_EQ(lowestFreeDescriptor(), descriptor);
    const int other = dup(STDERR_FILENO);
    ASSERT_EQ(other, descriptor);
    listener.close();
    EXPECT_NE(fcntl(other, F_GETFD), -1) << "somebody else's descriptor by now";
    (void)close(other);
}

TEST_F(CommandSocket, ClosingFreesWhateverNumberItHasAlsoThatOfStandardOutput) {
    EXPECT_TRUE(holdsInForked([]() {
        (void)close(STDOUT_FILENO);
        Listener first;
        const bool isOpen = first.open() && fcntl(STDOUT_FILENO, F_GETFD) != -1;
        first.close();
        return isOpen && fcntl(STDOUT_FILENO, F_GETFD) == -1;
    }));
}

TEST_F(CommandSocket, ClosesNothingWhenItWasNeverOpen) {
    EXPECT_TRUE(holdsInForked([]() {
        { Listener unopened; }
        return fcntl(STDOUT_FILENO, F_GETFD) != -1;
    }));
}

TEST_F(CommandSocket, DestructionCloses) {
    const int descriptor = lowestFreeDescriptor();
    {
        Listener brief;
        ASSERT_TRUE(brief.open());
        ASSERT_TRUE(brief.bind(path.c_str()));
    }
    EXPECT_EQ(lowestFreeDescriptor(), descriptor);
    EXPECT_TRUE(isSocketFile(path));
}

} // namespace
