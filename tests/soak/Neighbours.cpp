#include "tests/soak/Neighbours.h"

#include "tests/support/LocalConnection.h"

#include <algorithm>
#include <array>

namespace ZNORBSOAK {

using namespace ZNORBTEST;

namespace {

constexpr unsigned longestNoise = 4096;

std::string noise(std::mt19937& random, std::size_t length) {
    std::string bytes(length, '\0');
    std::generate(bytes.begin(), bytes.end(), [&random]() { return static_cast<char>(random()); });
    return bytes;
}

/// Bytes by chance that are certainly no "QUIT".
std::string harmlessNoise(std::mt19937& random) {
    const std::string bytes = noise(random, 1 + random() % longestNoise);
    return bytes.starts_with("QUIT") ? "x" : bytes;
}

} // namespace

RandomRequest randomRequest(std::mt19937& random) {
    static constexpr std::array<const char*, 12> others = {"PRINT",  "PRINT|x", "GET",    "print",
                                                           "get|en", "QUIT ",   " QUIT|", "|",
                                                           "||||",   "x",       "QUIT\n", "GET en"};
    switch (random() % 8) {
    case 0:
        return {"GET|en", true};
    case 1:
        return {"GET|en|" + std::to_string(random() % 100) + "|more", true};
    case 2:
        return {"GET|" + noise(random, random() % longestNoise), true};
    case 3:
        return {harmlessNoise(random), false};
    case 4:
        return {"PRINT|" + noise(random, random() % longestNoise), false};
    default:
        return {others[random() % others.size()], false};
    }
}

std::string sendLikeThat(Manner manner, const std::string& request, bool& isOver) {
    LocalConnection connection = LocalConnection::toPath(socketPath);
    isOver = connection.isConnected();
    if (!isOver || manner == Manner::SaysNothing) {
        return "";
    }
    if (manner == Manner::ClosesUnasked) {
        connection.finishSending();
    } else if (manner == Manner::SendsInPieces) {
        (void)connection.send(request.substr(0, request.size() / 2));
        (void)connection.send(request.substr(request.size() / 2));
    } else {
        (void)connection.send(request);
    }
    if (manner == Manner::Vanishes) {
        return "";
    }
    if (manner == Manner::HalfCloses) {
        connection.finishSending();
    } else if (manner == Manner::LeavesMuch) {
        (void)connection.send(std::string(longestNoise, 'x')); // the daemon may have closed already
    }
    const std::string reply = connection.receiveUntilClosed();
    isOver = connection.wasClosed();
    return reply;
}

} // namespace ZNORBSOAK
