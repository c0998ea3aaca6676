#include "common/sockets/IPClientSocket.h"
#include "common/sockets/UXClientSocket.h"
#include "tests/support/LocalPort.h"
#include "tests/support/TemporaryFolder.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

namespace {

using ORBCOMMON::ClientSocket;
using ORBCOMMON::IPClientSocket;
using ORBCOMMON::UXClientSocket;

/// A listener on 127.0.0.1 at a port of the kernel's choice.
class Port {
public:
    using Socket = IPClientSocket;

    Port()
        : listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
          m_number(ZNORBTEST::bindToLocalPort(listener.descriptor())) {
        EXPECT_NE(m_number, 0);
    }

    template <typename Kind>
    std::unique_ptr<Kind> newSocket() const {
        return std::make_unique<Kind>("127.0.0.1", m_number);
    }

    ClientSocket listener;

private:
    std::uint16_t m_number = 0;
};

/// A listener on a path.
class Path {
public:
    using Socket = UXClientSocket;

    Path() : listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        (void)m_path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(bind(listener.descriptor(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
                  0);
    }

    template <typename Kind>
    std::unique_ptr<Kind> newSocket() const {
        return std::make_unique<Kind>(m_path);
    }

private:
    const ZNORBTEST::TemporaryFolder m_folder;
    const std::string m_path = m_folder / "socket";

public:
    ClientSocket listener;
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

    void SetUp() override { EXPECT_EQ(listen(address.listener.descriptor(), 5), 0); }

    /// The next connection, which goes to the caller, or -1 when nobody is queued.
    int acceptOne() { return accept4(address.listener.descriptor(), nullptr, nullptr, SOCK_CLOEXEC); }

    static bool isAtEnd(const ClientSocket& connection) {
        char byte = 0;
        return recv(connection.descriptor(), &byte, 1, 0) == 0;
    }

    Address address;
    std::unique_ptr<Counting> socket = address.template newSocket<Counting>();
};

using Addresses = testing::Types<Port, Path>;

TYPED_TEST_SUITE(ConnectedSocket, Addresses);

TYPED_TEST(ConnectedSocket, IsNotConnectedBeforeConnect) {
    EXPECT_FALSE(this->socket->isConnected());
    EXPECT_EQ(this->socket->descriptor(), -1);
    EXPECT_EQ(this->acceptOne(), -1);
}

TYPED_TEST(ConnectedSocket, ReachesTheListener) {
    this->socket->connect();
    ASSERT_TRUE(this->socket->isConnected());
    const ClientSocket accepted(this->acceptOne());
    ASSERT_EQ(send(this->socket->descriptor(), "hello", 5, MSG_NOSIGNAL), 5);
    char received[6] = {};
    EXPECT_EQ(recv(accepted.descriptor(), received, 5, MSG_WAITALL), 5);
    EXPECT_STREQ(received, "hello");
}

// The first connection is made without the limit: the sanitizers need a descriptor when they meet a type.
TYPED_TEST(ConnectedSocket, EndsUnconnectedWhenNoSocketCanBeCreated) {
    this->socket->connect();
    const ClientSocket accepted(this->acceptOne());
    this->socket->closes = 0;
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    this->socket->connect();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_FALSE(this->socket->isConnected());
    EXPECT_EQ(this->socket->closes, 2) << "the connection before, and the failed attempt";
    EXPECT_TRUE(this->isAtEnd(accepted));
    EXPECT_EQ(this->acceptOne(), -1);
}

TYPED_TEST(ConnectedSocket, LeavesNoDescriptorOpenWhenItIsRefused) {
    this->address.listener.close();
    const ClientSocket before(dup(STDERR_FILENO));
    this->socket->connect();
    EXPECT_FALSE(this->socket->isConnected());
    const ClientSocket after(dup(STDERR_FILENO));
    EXPECT_EQ(after.descriptor(), before.descriptor() + 1);
}

TYPED_TEST(ConnectedSocket, ConnectingAgainClosesTheFirstConnection) {
    this->socket->connect();
    const ClientSocket first(this->acceptOne());
    this->socket->connect();
    const ClientSocket second(this->acceptOne());
    EXPECT_TRUE(this->socket->isConnected());
    EXPECT_TRUE(second.isConnected());
    EXPECT_TRUE(this->isAtEnd(first));
    char byte = 0;
    EXPECT_EQ(recv(second.descriptor(), &byte, 1, MSG_DONTWAIT), -1);
}

TYPED_TEST(ConnectedSocket, FailedReconnectGivesTheFirstConnectionUp) {
    this->socket->connect();
    const ClientSocket accepted(this->acceptOne());
    this->address.listener.close();
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
    const ClientSocket accepted(this->acceptOne());
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
