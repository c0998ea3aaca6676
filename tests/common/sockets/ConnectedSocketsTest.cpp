#include "common/sockets/IPClientSocket.h"
#include "common/sockets/UXClientSocket.h"
#include "tests/common/sockets/Listeners.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/LocalPort.h"
#include "tests/support/StandIns.h"
#include "tests/support/TemporaryFolder.h"

#include <fcntl.h>
#include <unistd.h>

#include <memory>

namespace {

using namespace ORBCOMMON;
using namespace ZNORBTEST;

/// A port and a path, each with the kind of socket that connects to it.
struct ByPort {
    using Socket = IPClientSocket;

    template <typename Kind>
    std::unique_ptr<Kind> newSocket() const {
        return std::make_unique<Kind>("127.0.0.1", place.number());
    }

    LocalPort place{true};
};

struct ByPath {
    using Socket = UXClientSocket;

    template <typename Kind>
    std::unique_ptr<Kind> newSocket() const {
        return std::make_unique<Kind>(path);
    }

    const TemporaryFolder folder;
    const std::string path = folder / "socket";
    LocalPath place{path};
};

/// What both kinds of connecting sockets have in common.
template <typename Address>
class ConnectedSocket : public testing::Test {
protected:
    using Socket = typename Address::Socket;

    /// Counts how often it is closed.
    class Counting : public Socket {
    public:
        using Socket::Socket;
        void close() override {
            ++closes;
            Socket::close();
        }
        int closes = 0;
    };

    int acceptNext() { return address.place.acceptOne(); }

    static bool isAtEnd(const ClientSocket& connection) {
        char byte = 0;
        return recv(connection.descriptor(), &byte, 1, 0) == 0;
    }

    Address address;
    std::unique_ptr<Counting> socket = address.template newSocket<Counting>();
};

using Addresses = testing::Types<ByPort, ByPath>;

TYPED_TEST_SUITE(ConnectedSocket, Addresses);

TYPED_TEST(ConnectedSocket, IsNotConnectedBeforeConnect) {
    EXPECT_FALSE(this->socket->isConnected());
    EXPECT_EQ(this->socket->descriptor(), -1);
    EXPECT_EQ(this->acceptNext(), -1);
}

TYPED_TEST(ConnectedSocket, ReachesTheListener) {
    this->socket->connect();
    ASSERT_TRUE(this->socket->isConnected());
    const ClientSocket accepted(this->acceptNext());
    ASSERT_EQ(send(this->socket->descriptor(), "hello", 5, MSG_NOSIGNAL), 5);
    char received[6] = {};
    EXPECT_EQ(recv(accepted.descriptor(), received, 5, MSG_WAITALL), 5);
    EXPECT_STREQ(received, "hello");
}

// The first connection is made without the limit: the sanitizers need a descriptor when they meet a type.
TYPED_TEST(ConnectedSocket, EndsUnconnectedWhenNoSocketCanBeCreated) {
    this->socket->connect();
    const ClientSocket accepted(this->acceptNext());
    this->socket->closes = 0;
    const FailingCall<connect> connections(EBADF);
    {
        const DescriptorLimit none(0);
        this->socket->connect();
    }
    EXPECT_FALSE(this->socket->isConnected());
    EXPECT_EQ(this->socket->closes, 2) << "the connection before, and the failed attempt";
    EXPECT_EQ(connections.calls(), 0U);
    EXPECT_TRUE(this->isAtEnd(accepted));
    EXPECT_EQ(this->acceptNext(), -1);
}

TYPED_TEST(ConnectedSocket, LeavesNoDescriptorOpenWhenItIsRefused) {
    this->address.place.stopListening();
    const ClientSocket before(dup(STDERR_FILENO));
    this->socket->connect();
    EXPECT_FALSE(this->socket->isConnected());
    const ClientSocket after(dup(STDERR_FILENO));
    EXPECT_EQ(after.descriptor(), before.descriptor() + 1);
}

TYPED_TEST(ConnectedSocket, ConnectingAgainClosesTheFirstConnection) {
    this->socket->connect();
    const ClientSocket first(this->acceptNext());
    this->socket->connect();
    const ClientSocket second(this->acceptNext());
    EXPECT_TRUE(this->socket->isConnected());
    EXPECT_TRUE(second.isConnected());
    EXPECT_TRUE(this->isAtEnd(first));
    char byte = 0;
    EXPECT_EQ(recv(second.descriptor(), &byte, 1, MSG_DONTWAIT), -1);
}

TYPED_TEST(ConnectedSocket, FailedReconnectGivesTheFirstConnectionUp) {
    this->socket->connect();
    const ClientSocket accepted(this->acceptNext());
    this->address.place.stopListening();
    this->socket->connect();
    EXPECT_FALSE(this->socket->isConnected());
    EXPECT_TRUE(this->isAtEnd(accepted));
}

TYPED_TEST(ConnectedSocket, CloseAndConnectMakeItConnectedAnew) {
    this->socket->connect();
    this->socket->close();
    EXPECT_FALSE(this->socket->isConnected());
    this->socket->connect();
    EXPECT_TRUE(this->socket->isConnected());
}

TYPED_TEST(ConnectedSocket, DestructionThroughTheBaseClosesTheConnection) {
    this->socket->connect();
    const ClientSocket accepted(this->acceptNext());
    std::unique_ptr<ClientSocket> base = std::move(this->socket);
    base.reset();
    EXPECT_TRUE(this->isAtEnd(accepted));
}

TYPED_TEST(ConnectedSocket, IsNotPassedOnToExecutedPrograms) {
    this->socket->connect();
    ASSERT_TRUE(this->socket->isConnected());
    EXPECT_EQ(fcntl(this->socket->descriptor(), F_GETFD), FD_CLOEXEC);
}

} // namespace
