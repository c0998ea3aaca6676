#include "fuzz/support/Fuzzer.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/Require.h"
#include "fuzz/support/Sockets.h"
#include "responder/service/UnifiedResponderMonitor.h"

#include <string>
#include <vector>

using namespace ZNORBFUZZ;

namespace {

constexpr std::size_t mostBytes = 1024;

bool readModel(Peer peer, std::vector<std::string>& tokens) {
    char buffer[mostBytes];
    const ssize_t count = peer.await() == 1 ? peer.receive(buffer, mostBytes) : -1;
    if (count <= 0) {
        return false;
    }
    tokens.emplace_back();
    for (ssize_t i = 0; i < count; ++i) {
        if (buffer[i] == '|') {
            tokens.emplace_back();
        } else {
            tokens.back() += buffer[i];
        }
    }
    return true;
}

} // namespace

// Taking a request from a connection. The input: a line with the peer's script (Peer.h), then what it sends
// (withRun).
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::string script = input.line();
    Peer peer(script, withRun(input.rest()));
    std::vector<std::string> expected;
    const bool isExpected = readModel(peer, expected);

    Sockets sockets;
    const ORBCOMMON::UXClientSocket socket(sockets.open(&peer), std::string());
    std::string command = "left behind";
    std::vector<std::string> tokens = {"left", "behind"};
    const bool isRead = ZNORBRESPONDER::UnifiedResponderMonitor::readRequest(socket, command, tokens);

    requireEqual(isRead, isExpected, "whether a request was read");
    requireEqual(tokens, expected, "tokens");
    requireEqual(command, expected.empty() ? std::string() : expected.front(), "command");
    require(peer.receives() <= 1, "one receive");
    requireEqual(sockets.waits(), std::vector<unsigned>{60}, "waits");
    require(socket.isConnected() && peer.taken().empty(), "the connection is left alone");
    return 0;
}
