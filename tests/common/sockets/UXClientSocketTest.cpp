#include "common/sockets/UXClientSocket.h"

#include "tests/support/Descriptor.h"
#include "tests/support/Rows.h"
#include "tests/support/TemporaryFolder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <type_traits>
#include <utility>

namespace {

using ORBCOMMON::ClientSocket;
using ORBCOMMON::UXClientSocket;
using ZNORBTEST::Descriptor;

static_assert(std::is_base_of_v<ClientSocket, UXClientSocket>);
static_assert(!std::is_copy_constructible_v<UXClientSocket>);

int listenOn(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        return -1;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size());
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == -1 ||
        listen(listener, 5) == -1) {
        (void)close(listener);
        return -1;
    }
    return listener;
}

// The next connection of a listener, or -1 when nobody is queued.
int acceptFrom(const Descriptor& listener) {
    (void)fcntl(listener.get(), F_SETFL, O_NONBLOCK);
    return accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC);
}

class UXClientSocketTest : public testing::Test {
protected:
    const ZNORBTEST::TemporaryFolder folder;
    std::string path = folder / "socket";
};

TEST_F(UXClientSocketTest, StaysUnconnectedWhenThePathIsAbsentOrEmpty) {
    for (const std::string& absent : {path, std::string()}) {
        UXClientSocket socket(absent);
        socket.connect();
        EXPECT_FALSE(socket.isConnected()) << absent;
        EXPECT_EQ(socket.descriptor(), -1);
    }
}

TEST_F(UXClientSocketTest, StaysUnconnectedWhenTheSocketFileIsStale) {
    Descriptor(listenOn(path)).reset();
    ASSERT_TRUE(std::filesystem::exists(path));
    UXClientSocket socket(path);
    socket.connect();
    EXPECT_FALSE(socket.isConnected());
}

TEST_F(UXClientSocketTest, ServerHandsAnAcceptedConnectionOver) {
    const Descriptor listener(listenOn(path));
    UXClientSocket client(path);
    client.connect();
    Descriptor accepted(acceptFrom(listener));
    const int number = accepted.get();
    {
        const UXClientSocket server(accepted.release(), "");
        EXPECT_EQ(server.descriptor(), number);
        EXPECT_EQ(send(server.descriptor(), "0", 1, MSG_NOSIGNAL), 1);
    }
    char reply[8] = {};
    EXPECT_EQ(recv(client.descriptor(), reply, sizeof(reply), MSG_DONTWAIT), 1);
    EXPECT_STREQ(reply, "0");
    EXPECT_EQ(recv(client.descriptor(), reply, sizeof(reply), MSG_DONTWAIT), 0)
        << "destruction closes the connection";
}

TEST_F(UXClientSocketTest, PathIsAFormatOf107BytesAtMost) {
    const std::string longest = path + std::string(107 - path.size(), 'p');
    const ZNORBTEST::Row<std::string, std::string> paths[] = {
        {"the longest is used whole", longest, longest},
        {"a longer one is cut", longest + std::string(5000, 'q'), longest},
        {"it is read as a format", folder / "100%%", folder / "100%"},
    };
    for (const auto& row : paths) {
        SCOPED_TRACE(row.name);
        const Descriptor listener(listenOn(row.expected));
        ASSERT_NE(listener.get(), -1);
        UXClientSocket socket(row.given);
        socket.connect();
        EXPECT_TRUE(socket.isConnected());
        EXPECT_TRUE(std::filesystem::remove(row.expected));
    }
}

} // namespace
