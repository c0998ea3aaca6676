#include "common/sockets/UXClientSocket.h"

#include "tests/common/sockets/Listeners.h"
#include "tests/support/Layout.h"
#include "tests/support/Rows.h"
#include "tests/support/StandIns.h"
#include "tests/support/TemporaryFolder.h"

#include <sys/un.h>

#include <cstring>
#include <filesystem>
#include <type_traits>

namespace {

using namespace ORBCOMMON;
using namespace ZNORBTEST;

static_assert(std::is_base_of_v<ClientSocket, UXClientSocket>);
static_assert(!std::is_copy_constructible_v<UXClientSocket>);

class UXClientSocketTest : public testing::Test {
protected:
    const TemporaryFolder folder;
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
    (void)LocalPath(path);
    ASSERT_TRUE(std::filesystem::exists(path));
    UXClientSocket socket(path);
    socket.connect();
    EXPECT_FALSE(socket.isConnected());
}

TEST_F(UXClientSocketTest, ServerHandsAnAcceptedConnectionOver) {
    const LocalPath place(path);
    UXClientSocket client(path);
    client.connect();
    const int accepted = place.acceptOne();
    {
        const UXClientSocket server(accepted, "");
        EXPECT_EQ(server.descriptor(), accepted);
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
    const Row<std::string, std::string> paths[] = {
        {"the longest is used whole", longest, longest},
        {"a longer one is cut", longest + std::string(5000, 'q'), longest},
        {"it is read as a format", folder / "100%%", folder / "100%"},
    };
    for (const auto& row : paths) {
        SCOPED_TRACE(row.name);
        const LocalPath place(row.expected);
        UXClientSocket socket(row.given);
        socket.connect();
        EXPECT_TRUE(socket.isConnected());
        EXPECT_TRUE(std::filesystem::remove(row.expected));
    }
}

TEST_F(UXClientSocketTest, KeepsItsPathBehindTheDescriptor) {
    const UXClientSocket socket(path);
    EXPECT_EQ(fieldAt<int>(&socket, sizeof(void*)), -1);
    EXPECT_EQ(fieldAt<std::string>(&socket, 2 * sizeof(void*)), path);
}

TEST_F(UXClientSocketTest, ConnectsToAnAddressOf110BytesThatIsZeroBehindThePath) {
    sockaddr_un address = {};
    socklen_t given = 0;
    const InPlaceOf<connect> connections([&](int, const sockaddr* to, socklen_t length) {
        given = length;
        std::memcpy(&address, to, sizeof address);
        return 0;
    });
    UXClientSocket socket(path);
    socket.connect();
    EXPECT_TRUE(socket.isConnected());
    EXPECT_EQ(given, 110U);
    EXPECT_EQ(address.sun_family, AF_UNIX);
    EXPECT_EQ(std::string(address.sun_path, sizeof address.sun_path),
              path + std::string(sizeof address.sun_path - path.size(), '\0'));
}

} // namespace
