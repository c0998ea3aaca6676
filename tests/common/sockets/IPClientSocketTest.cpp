#include "common/sockets/IPClientSocket.h"

#include "tests/support/Layout.h"
#include "tests/support/LocalPort.h"
#include "tests/support/Rows.h"
#include "tests/support/SocketPair.h"
#include "tests/support/StandIns.h"

#include <netdb.h>

#include <cstring>
#include <type_traits>

namespace {

using namespace ORBCOMMON;
using namespace ZNORBTEST;

static_assert(std::is_base_of_v<ClientSocket, IPClientSocket>);
static_assert(!std::is_copy_constructible_v<IPClientSocket>);

class IPClientSocketTest : public testing::Test {
protected:
    LocalPort port{true};
};

TEST_F(IPClientSocketTest, GoesToTheGivenPortInNetworkByteOrder) {
    IPClientSocket socket("127.0.0.1", port.number());
    socket.connect();
    ASSERT_TRUE(socket.isConnected());
    sockaddr_in peer{};
    socklen_t length = sizeof(peer);
    ASSERT_EQ(getpeername(socket.descriptor(), reinterpret_cast<sockaddr*>(&peer), &length), 0);
    EXPECT_EQ(peer.sin_port, htons(port.number()));
    EXPECT_EQ(peer.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
}

TEST_F(IPClientSocketTest, NameThatResolvesToNoAddressStaysUnconnected) {
    char* none[1] = {nullptr};
    hostent answer{};
    answer.h_addrtype = AF_INET;
    answer.h_length = 4;
    answer.h_addr_list = none;
    const InPlaceOf<gethostbyname> service([&answer](const char*) { return &answer; });
    IPClientSocket client("localhost", port.number());
    client.connect();
    EXPECT_FALSE(client.isConnected());
    EXPECT_EQ(port.acceptOne(), -1);
}

TEST_F(IPClientSocketTest, NameThatDoesNotResolveGivesThePreviousConnectionUp) {
    class Renamed : public IPClientSocket {
    public:
        explicit Renamed(int descriptor) : IPClientSocket(std::string(300, 'a'), 80) { adopt(descriptor); }
        void close() override {
            ++closes;
            IPClientSocket::close();
        }
        int closes = 0;
    };
    SocketPair pair;
    Renamed socket(pair.releaseNear());
    socket.connect();
    EXPECT_FALSE(socket.isConnected());
    char byte = 0;
    EXPECT_EQ(recv(pair.far(), &byte, 1, MSG_DONTWAIT), 0);
    EXPECT_EQ(socket.closes, 2) << "the connection before, and the failed attempt";
}

TEST(IPClientSocket, LooksUpWhatBeginsWithALetterAlone) {
    std::vector<std::string> lookedUp;
    const InPlaceOf<gethostbyname> service([&lookedUp](const char* name) -> hostent* {
        lookedUp.emplace_back(name);
        return nullptr;
    });
    const FailingCall<connect> connections(ECONNREFUSED);
    for (const char* host : {"a1", "127.0.0.1", "", "1a", "#a", "\xe4host", "Z"}) {
        IPClientSocket(host, 80).connect();
    }
    EXPECT_EQ(lookedUp, (std::vector<std::string>{"a1", "Z"}));
}

/// A host and whether it is connected to.
using Host = Row<std::string, bool>;

class ConnectToAHost : public IPClientSocketTest, public testing::WithParamInterface<Host> {};

TEST_P(ConnectToAHost, SucceedsOrStaysUnconnected) {
    IPClientSocket socket(GetParam().given, port.number());
    socket.connect();
    EXPECT_EQ(socket.isConnected(), GetParam().expected);
    const ClientSocket accepted(port.acceptOne());
    EXPECT_EQ(accepted.isConnected(), GetParam().expected);
}

const Host hosts[] = {
    {"DottedAddress", "127.0.0.1", true},
    {"NameIsResolved", "localhost", true},
    {"UpperCaseNameIsResolvedToo", "LOCALHOST", true},
    // No label may be that long, so the resolver refuses it without asking anybody.
    {"NameThatDoesNotResolve", std::string(300, 'a'), false},
    {"EmptyText", "", false},
    {"NumberOutOfRange", "999.0.0.1", false},
    {"Dash", "-", false},
    {"NumberSignBeforeAName", "#localhost", false},
    {"LetterBeyondAscii", "\xe4host", false},
};

INSTANTIATE_TEST_SUITE_P(IPClientSocket, ConnectToAHost, testing::ValuesIn(hosts), rowName);

TEST(IPClientSocket, PortThatRefusesOrIsZeroStaysUnconnected) {
    const LocalPort silent(false);
    for (const std::uint16_t port : {silent.number(), std::uint16_t{0}}) {
        IPClientSocket socket("127.0.0.1", port);
        socket.connect();
        EXPECT_FALSE(socket.isConnected()) << port;
    }
}

// A resolver's answer with one address of the given family and stated length.
class Answer {
public:
    Answer(int family, int length) {
        for (std::size_t i = 0; i < sizeof(m_bytes); ++i) {
            m_bytes[i] = static_cast<char>(i + 1);
        }
        m_answer.h_addrtype = family;
        m_answer.h_length = length;
        m_answer.h_addr_list = m_addresses;
    }

    hostent& get() { return m_answer; }

private:
    char m_bytes[16] = {};
    char* m_addresses[2] = {m_bytes, nullptr};
    hostent m_answer{};
};

TEST(StoreFirstAddress, TakesFamilyAndAddressOfAnIPv4AnswerAndNoMoreThanItsBytes) {
    Answer answer(AF_INET, 4);
    sockaddr_in address{};
    EXPECT_TRUE(storeFirstAddress(answer.get(), address));
    EXPECT_EQ(address.sin_family, AF_INET);
    EXPECT_EQ(address.sin_addr.s_addr, htonl(0x01020304));
    for (const auto& [length, expected] : {std::pair(2, 0x01020000U), std::pair(1, 0x01000000U)}) {
        Answer shorter(AF_INET, length);
        address = {};
        EXPECT_TRUE(storeFirstAddress(shorter.get(), address));
        EXPECT_EQ(address.sin_addr.s_addr, htonl(expected));
    }
}

TEST(StoreFirstAddress, IPv6AnswerDoesNotOverrunTheField) {
    Answer answer(AF_INET6, 16);
    struct {
        sockaddr_in address{};
        unsigned char guard[16] = {}; // which must not change
    } guarded;
    guarded.address.sin_port = htons(0x5a5a);
    EXPECT_TRUE(storeFirstAddress(answer.get(), guarded.address));
    EXPECT_EQ(guarded.address.sin_family, AF_INET6);
    EXPECT_EQ(guarded.address.sin_addr.s_addr, htonl(0x01020304));
    EXPECT_EQ(guarded.address.sin_port, htons(0x5a5a));
    const unsigned char zeros[16] = {};
    EXPECT_EQ(std::memcmp(guarded.address.sin_zero, zeros, sizeof(guarded.address.sin_zero)), 0);
    EXPECT_EQ(std::memcmp(guarded.guard, zeros, sizeof(zeros)), 0);
}

TEST(StoreFirstAddress, AnswerWithoutAnAddressIsRefused) {
    sockaddr_in address{};
    for (const int length : {0, -1}) {
        Answer answer(AF_INET, length);
        EXPECT_FALSE(storeFirstAddress(answer.get(), address));
    }
    char* none[1] = {nullptr};
    Answer empty(AF_INET, 4);
    for (char** const list : {none, static_cast<char**>(nullptr)}) {
        empty.get().h_addr_list = list;
        EXPECT_FALSE(storeFirstAddress(empty.get(), address));
    }
    EXPECT_EQ(address.sin_family, 0);
}

TEST(IPClientSocket, KeepsHostAndPortBehindTheDescriptor) {
    const IPClientSocket socket("host", 4711);
    EXPECT_EQ(fieldAt<int>(&socket, sizeof(void*)), -1);
    EXPECT_EQ(fieldAt<std::string>(&socket, 2 * sizeof(void*)), "host");
    EXPECT_EQ(fieldAt<std::uint16_t>(&socket, 2 * sizeof(void*) + sizeof(std::string)), 4711);
}

} // namespace
