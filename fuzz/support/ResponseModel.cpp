#include "fuzz/support/ResponseModel.h"

#include <cerrno>
#include <cstdint>
#include <new>
#include <utility>
#include <vector>

// Only what says that it may fail: a body. Its memory comes from, and goes back to, the usual place.
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return size <= ZNORBFUZZ::bodyLimit ? operator new[](size) : nullptr;
}

namespace ZNORBFUZZ {

namespace {

constexpr std::size_t firstRead = 8192;

bool isEndAt(const std::string& bytes, std::size_t position) {
    return position + 1 < bytes.size() && bytes[position] == '\r' && bytes[position + 1] == '\n';
}

/// The index of the next "\r", or the number of bytes.
std::size_t returnFrom(const std::string& bytes, std::size_t position) {
    while (position < bytes.size() && bytes[position] != '\r') {
        ++position;
    }
    return position;
}

std::uint64_t lengthOf(const std::string& text) {
    std::size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || (text[i] >= '\t' && text[i] <= '\r'))) {
        ++i;
    }
    bool isNegative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
        isNegative = text[i] == '-';
        ++i;
    }
    constexpr std::uint64_t modulus = 1ULL << 32U;
    std::uint64_t value = 0;
    while (i < text.size() && text[i] >= '0' && text[i] <= '9') {
        value = (value * 10 + static_cast<std::uint64_t>(text[i] - '0')) % modulus;
        ++i;
    }
    return isNegative ? (modulus - value) % modulus : value;
}

} // namespace

ResponseModel::ResponseModel(Peer peer)
    : isRead(read(peer)), waits(peer.waits()), receives(peer.receives()) {}

bool ResponseModel::read(Peer& peer) {
    if (peer.await() != 1) {
        return false;
    }
    std::vector<char> buffer(firstRead);
    const ssize_t count = peer.receive(buffer.data(), buffer.size());
    if (count <= 0) {
        return false;
    }
    const std::string received(buffer.data(), static_cast<std::size_t>(count));
    std::size_t bodyStart = 0;
    if (!readHead(received, bodyStart)) {
        return false;
    }
    return !headers.contains("Content-Length") || readBody(peer, received.substr(bodyStart));
}

bool ResponseModel::readHead(const std::string& received, std::size_t& bodyStart) {
    const std::size_t end = returnFrom(received, 0);
    if (end == 0 || !isEndAt(received, end)) {
        return false;
    }
    statusLine = received.substr(0, end);
    std::size_t position = end + 2;
    while (!isEndAt(received, position)) {
        const std::size_t lineEnd = returnFrom(received, position);
        if (!isEndAt(received, lineEnd)) {
            return false;
        }
        readHeader(received.substr(position, lineEnd - position));
        position = lineEnd + 2;
    }
    bodyStart = position + 2;
    return true;
}

void ResponseModel::readHeader(const std::string& line) {
    std::size_t colon = 0;
    while (colon < line.size() && line[colon] != ':') {
        ++colon;
    }
    std::size_t value = colon + 1;
    while (value + 1 < line.size() && line[value] == ' ') {
        ++value;
    }
    if (value + 1 < line.size()) {
        headers[line.substr(0, colon)] = line.substr(value);
    }
}

bool ResponseModel::readBody(Peer& peer, const std::string& first) {
    const std::uint64_t length = lengthOf(headers["Content-Length"]);
    if (length > bodyLimit) {
        return false;
    }
    std::string held = first.substr(0, length);
    while (held.size() < length) {
        if (peer.await() != 1) {
            return false;
        }
        std::vector<char> buffer(length - held.size());
        const ssize_t count = peer.receive(buffer.data(), buffer.size());
        if (count == -1) {
            log = "Error Receiving from Server. Code: " + std::to_string(ECONNRESET) + "\r\n";
            return false;
        }
        pauses += count == 0 ? 1 : 0;
        held.append(buffer.data(), static_cast<std::size_t>(count));
    }
    hasBody = true;
    body = std::move(held);
    return true;
}

std::map<std::string, std::string> plain(const ZNORBRESPONDER::HttpHeaders& headers) {
    std::map<std::string, std::string> result;
    for (const auto& header : headers) {
        result.emplace(header.first, header.second);
    }
    return result;
}

} // namespace ZNORBFUZZ
