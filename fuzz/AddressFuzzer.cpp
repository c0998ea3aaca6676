#include "common/sockets/IPClientSocket.h"
#include "fuzz/support/Fuzzer.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/Require.h"
#include "fuzz/support/Sockets.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

using namespace ZNORBFUZZ;

namespace {

/// The resolver's answer: the family, the stated length and the bytes of the first address.
struct Answer {
    bool isFound = false;
    int family = AF_INET;
    int length = 4;
    std::vector<char> bytes;
    bool hasAddress = true;
};

Answer s_answer;

/// Accepts every connection and keeps where it led.
class AnyServer : public Sockets {
public:
    Peer* answer(std::uint32_t address, std::uint16_t port) override {
        m_addresses.push_back(address);
        m_port = port;
        return address == INADDR_NONE ? nullptr : &m_peer;
    }

    [[nodiscard]] const std::vector<unsigned>& addresses() const { return m_addresses; }
    [[nodiscard]] unsigned port() const { return m_port; }

private:
    Peer m_peer;
    std::vector<unsigned> m_addresses;
    unsigned m_port = 0;
};

/// The address that the host stands for, in host byte order, and whether there is one.
bool addressModel(const std::string& host, unsigned& address) {
    const char first = host.empty() ? '\0' : host.front();
    if (!((first >= 'a' && first <= 'z') || (first >= 'A' && first <= 'Z'))) {
        address = ntohl(inet_addr(host.c_str()));
        return true;
    }
    if (!s_answer.isFound || s_answer.length <= 0 || !s_answer.hasAddress) {
        return false;
    }
    unsigned char bytes[4] = {};
    std::copy_n(s_answer.bytes.begin(), std::min(s_answer.length, 4), bytes);
    address = static_cast<unsigned>(bytes[0]) << 24U | static_cast<unsigned>(bytes[1]) << 16U |
              static_cast<unsigned>(bytes[2]) << 8U | bytes[3];
    return true;
}

} // namespace

// The host and the port of a TCP connection, and what the resolver may answer. The input: the port (two
// bytes), whether the resolver finds the host and whether it has an address (one byte), the length of its
// address (two bytes), the address, the host.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::uint16_t port = input.word();
    const unsigned switches = input.byte();
    s_answer.isFound = (switches & 1U) != 0;
    s_answer.hasAddress = (switches & 2U) == 0;
    s_answer.length = static_cast<std::int16_t>(input.word());
    // Memory of exactly the length that the answer states.
    const std::string_view bytes = input.take(4);
    s_answer.bytes.assign(bytes.begin(), bytes.end());
    s_answer.bytes.resize(static_cast<std::size_t>(std::max(s_answer.length, 0)));
    const std::string rest = input.rest();
    const std::string host = rest.substr(0, rest.find('\0'));

    unsigned expected = 0;
    const bool isKnown = addressModel(host, expected);
    AnyServer server;
    {
        ORBCOMMON::IPClientSocket socket(host, port);
        socket.connect();
        requireEqual(server.addresses(), isKnown ? std::vector<unsigned>{expected} : std::vector<unsigned>(),
                     "the address that is connected to");
        requireEqual(socket.isConnected(), isKnown && expected != INADDR_NONE, "whether it is connected");
        requireEqual(server.port(), isKnown ? port : 0U, "the port");
    }
    requireEqual(server.openCount(), 0U, "sockets left open");
    return 0;
}

extern "C" hostent* gethostbyname(const char* /*name*/) {
    static char* addresses[2] = {};
    static hostent answer = {};
    addresses[0] = s_answer.hasAddress ? s_answer.bytes.data() : nullptr;
    answer.h_addrtype = s_answer.family;
    answer.h_length = s_answer.length;
    answer.h_addr_list = addresses;
    return s_answer.isFound ? &answer : nullptr;
}
