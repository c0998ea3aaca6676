#include "common/sockets/ClientSocket.h"

#include "common/sockets/UXClientSocket.h"
#include "tests/support/SocketPair.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <type_traits>

namespace {

using namespace ORBCOMMON;

static_assert(!std::is_copy_constructible_v<ClientSocket>);
static_assert(!std::is_copy_assignable_v<ClientSocket>);
static_assert(!std::is_move_constructible_v<ClientSocket>);
static_assert(std::has_virtual_destructor_v<ClientSocket>);

bool isOpen(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

// The peer's end: true when everything sent has been read and the other side is shut down.
bool isAtEnd(int descriptor) {
    char byte = 0;
    return recv(descriptor, &byte, 1, MSG_DONTWAIT) == 0;
}

// Two connected descriptors: `given` goes to the socket under test, `peer` stays the test's.
class ClientSocketTest : public testing::Test {
protected:
    ZNORBTEST::SocketPair m_pair;
    const int given = m_pair.releaseNear();
    const int peer = m_pair.far();
};

TEST(ClientSocket, IsNotConnectedByDefault) {
    const ClientSocket socket;
    EXPECT_EQ(socket.descriptor(), -1);
    EXPECT_FALSE(socket.isConnected());
}

TEST_F(ClientSocketTest, HoldsTheDescriptorThatItIsGivenUntilItClosesAndForgetsIt) {
    ClientSocket socket(given);
    EXPECT_EQ(socket.descriptor(), given);
    EXPECT_TRUE(socket.isConnected());
    EXPECT_FALSE(isAtEnd(peer));
    socket.close();
    EXPECT_EQ(socket.descriptor(), -1);
    EXPECT_FALSE(socket.isConnected());
    EXPECT_FALSE(isOpen(given));
}

TEST_F(ClientSocketTest, HoldsTheDescriptorThatIsAdopted) {
    class Adopting : public ClientSocket {
    public:
        using ClientSocket::adopt;
    };
    Adopting socket;
    socket.adopt(given);
    EXPECT_EQ(socket.descriptor(), given);
    EXPECT_TRUE(socket.isConnected());
}

TEST_F(ClientSocketTest, CloseShutsDownForEveryHolderOfTheConnection) {
    const ZNORBTEST::Descriptor duplicate(dup(given));
    ASSERT_TRUE(duplicate.isOpen());
    ClientSocket socket(given);
    socket.close();
    EXPECT_TRUE(isAtEnd(peer)) << "the writing direction is still open";
    EXPECT_EQ(send(peer, "x", 1, MSG_NOSIGNAL), -1) << "the reading direction is still open";
}

TEST_F(ClientSocketTest, SecondCloseLeavesAReusedDescriptorNumberAlone) {
    ClientSocket socket(given);
    socket.close();
    const int reused = dup(peer);
    ASSERT_EQ(reused, given) << "the lowest free number is handed out again";
    socket.close();
    EXPECT_TRUE(isOpen(reused));
    (void)close(reused);
}

TEST_F(ClientSocketTest, DestructorShutsDownAndCloses) {
    const ZNORBTEST::Descriptor duplicate(dup(given));
    ASSERT_TRUE(duplicate.isOpen());
    { const ClientSocket socket(given); }
    EXPECT_FALSE(isOpen(given));
    EXPECT_TRUE(isAtEnd(peer));
}

TEST_F(ClientSocketTest, DestructionThroughTheBaseClosesADerivedSocket) {
    std::unique_ptr<ClientSocket> socket = std::make_unique<UXClientSocket>(given, "");
    socket.reset();
    EXPECT_FALSE(isOpen(given));
    EXPECT_TRUE(isAtEnd(peer));
}

TEST_F(ClientSocketTest, CloseIgnoresADescriptorThatIsNoSocket) {
    const int file = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_NE(file, -1);
    ClientSocket socket(file);
    socket.close();
    EXPECT_FALSE(socket.isConnected());
    EXPECT_FALSE(isOpen(file));
    (void)close(given);
}

// A shutdown or close of -1 would leave EBADF behind.
TEST(ClientSocket, ClosingAndDestroyingWithoutAConnectionMakeNoSystemCall) {
    errno = 0;
    {
        ClientSocket socket;
        socket.close();
        EXPECT_EQ(errno, 0);
        EXPECT_EQ(socket.descriptor(), -1);
    }
    { const ClientSocket socket; }
    EXPECT_EQ(errno, 0);
}

TEST(ClientSocket, CloseIsVirtual) {
    class Recording : public ClientSocket {
    public:
        void close() override { closed = true; }
        bool closed = false;
    };
    Recording recording;
    ClientSocket& socket = recording;
    socket.close();
    EXPECT_TRUE(recording.closed);
}

} // namespace
