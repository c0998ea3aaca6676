#include "fuzz/support/Fuzzer.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/LogCapture.h"
#include "fuzz/support/Require.h"
#include "fuzz/support/ResponseModel.h"
#include "fuzz/support/Sockets.h"
#include "responder/clients/HttpClient.h"

#include <memory>
#include <string>
#include <vector>

using namespace ZNORBFUZZ;

// The reader of HTTP responses against the model. The input: a line with the peer's script (Peer.h), then
// what the peer has to send (withRun).
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::string script = input.line();
    Peer peer(script, withRun(input.rest()));
    const ResponseModel model(peer);
    (void)takeLog();

    Sockets sockets;
    ORBCOMMON::ClientSocket socket(sockets.open(&peer));
    std::string statusLine;
    ZNORBRESPONDER::HttpHeaders headers;
    (void)headers.insert("left", "behind");
    std::unique_ptr<std::uint8_t[]> body(new std::uint8_t[1]);
    std::uint32_t length = 1;
    const bool isRead =
        ZNORBRESPONDER::readResponse(socket, socket.descriptor(), statusLine, headers, body, length);

    requireEqual(isRead, model.isRead, "whether the response was read");
    requireEqual(statusLine, model.statusLine, "status line");
    require(plain(headers) == model.headers, "the headers");
    requireEqual(body != nullptr, model.hasBody, "whether there is a body");
    requireEqual(length, static_cast<unsigned>(model.body.size()), "length of the body");
    require(length == 0 || std::string(body.get(), body.get() + length) == model.body, "the body");
    requireEqual(takeLog(), model.log, "log");
    requireEqual(peer.receives(), model.receives, "number of receives");
    requireEqual(sockets.waits(), std::vector<unsigned>(model.waits, 1800), "waits");
    requireEqual(sockets.slept(), model.pauses * 100'000UL, "microseconds slept");
    require(socket.isConnected() && peer.taken().empty(), "the socket is left alone");
    return 0;
}
