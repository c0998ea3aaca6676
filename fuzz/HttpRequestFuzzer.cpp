#include "fuzz/support/Fuzzer.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/LogCapture.h"
#include "fuzz/support/Require.h"
#include "fuzz/support/ResponseModel.h"
#include "fuzz/support/Sockets.h"
#include "responder/clients/HttpClient.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

using namespace ZNORBFUZZ;

namespace {

struct Request {
    std::string method;
    std::string url;
    std::string body;
};

/// What sending it comes to, and then reading the response.
struct Outcome {
    bool isSent = false;
    std::string log;
    std::string wire;
};

std::string repeated(const std::string& text, unsigned times) {
    std::string result;
    for (unsigned i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

Outcome sendModel(const Request& request, Peer peer) {
    const bool isPost = request.method == "POST";
    const std::string head =
        request.method + ' ' + request.url + " HTTP/1.0\r\n" +
        (isPost ? "Content-Length: " + std::to_string(request.body.size()) + "\r\n" : "") + "\r\n";
    Outcome outcome;
    // One call: what a peer does not take of it is lost.
    outcome.isSent = peer.take(head.data(), head.size()) != -1;
    std::string left = isPost ? request.body : std::string();
    while (outcome.isSent && !left.empty()) {
        const ssize_t taken = peer.take(left.data(), std::min<std::size_t>(left.size(), 8192));
        if (taken == -1) {
            outcome.isSent = false;
            outcome.log = "Error Sending to Server. Code: " + std::to_string(EPIPE) + "\r\n";
        } else {
            left.erase(0, static_cast<std::size_t>(taken));
        }
    }
    outcome.wire = peer.taken();
    return outcome;
}

/// The writes of a body, each with its length in front.
class BodyRecorder : public Common::OutputStream {
public:
    void write(const char* data, const unsigned int& length) override { m_writes.emplace_back(data, length); }

    [[nodiscard]] const std::vector<std::string>& writes() const { return m_writes; }

private:
    std::vector<std::string> m_writes;
};

void check(const Request& request, Peer& peer) {
    const Outcome sending = sendModel(request, peer);
    const ResponseModel response(sending.isSent ? peer : Peer("F", ""));
    (void)takeLog();

    Sockets sockets;
    ORBCOMMON::ClientSocket socket(sockets.open(&peer));
    std::string statusLine = "left behind";
    ZNORBRESPONDER::HttpHeaders headers;
    (void)headers.insert("left", "behind");
    BodyRecorder body;
    const bool isSent = ZNORBRESPONDER::sendRequest(socket, request.method, request.url, request.body,
                                                    statusLine, headers, body);

    requireEqual(isSent, sending.isSent, "whether the request was sent");
    requireEqual(socket.isConnected(), sending.isSent, "whether the socket stays connected");
    requireEqual(peer.taken(), sending.wire, "the request on the wire");
    requireEqual(takeLog(), sending.log + response.log, "log");
    requireEqual(statusLine, response.statusLine, "status line");
    require(plain(headers) == response.headers, "the headers");
    const std::vector<std::string> written =
        response.body.empty() ? std::vector<std::string>() : std::vector<std::string>(1, response.body);
    require(body.writes() == written, "the body in one write, unless it is empty");
    requireEqual(peer.receives(), response.receives, "number of receives");
    requireEqual(sockets.slept(), response.pauses * 100'000UL, "microseconds slept");
    socket.close();
    requireEqual(sockets.openCount(), 0U, "sockets left open");
}

} // namespace

// Sending requests, and what becomes of the response. The input, line by line: method, url, the peer's script
// for sends, its script for receives, a body; then a byte that says how often the body is repeated, and the
// response.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Request request;
    request.method = input.line();
    request.url = input.line();
    const std::string sending = input.line();
    const std::string receiving = input.line();
    const std::string body = input.line();
    request.body = repeated(body, input.byte());
    Peer peer(receiving, input.rest(), sending);
    check(request, peer);
    return 0;
}
