#include "responder/clients/HttpClient.h"

#include "common/log/Logger.h"
#include "common/sockets/SocketWait.h"
#include "common/threads/ThreadHandle.h"
#include "responder/RuntimeNames.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>

namespace ZNORBRESPONDER {

namespace {

constexpr std::size_t firstReadSize = 8192;
constexpr std::size_t sendChunkSize = 8192;

/// Milliseconds between two looks at a peer that has closed its side before its body was complete.
constexpr unsigned closedPeerPause = 100;

constexpr int errorLevel = 0;

/// The response's first bytes and what was found in them.
struct ResponseHead {
    std::string_view received;
    std::size_t bodyStart = 0;
};

std::string requestText(const std::string& method, const std::string& url, std::size_t bodyLength) {
    constexpr std::size_t roomForTheRest = 64;
    std::string text;
    text.reserve(method.size() + url.size() + roomForTheRest); // one piece of memory, not one for each line
    text.append(method).append(" ").append(url).append(" HTTP/1.0\r\n");
    if (method == "POST") {
        char number[21] = {};
        (void)std::snprintf(number, sizeof number, "%u", static_cast<unsigned>(bodyLength));
        text.append("Content-Length: ").append(number).append("\r\n");
    }
    text.append("\r\n");
    return text;
}

bool sendBody(ORBCOMMON::ClientSocket& socket, const std::string& body) {
    std::size_t sent = 0;
    while (sent < body.size()) {
        const std::size_t chunk = std::min(sendChunkSize, body.size() - sent);
        const ssize_t result = send(socket.descriptor(), body.data() + sent, chunk, MSG_NOSIGNAL);
        if (result == -1) {
            ORBCOMMON::Logger::logAt(errorLevel, "Error Sending to Server. Code: %d", errno);
            socket.close();
            return false;
        }
        sent += static_cast<std::size_t>(result);
    }
    return true;
}

bool isReadable(int descriptor) {
    return ORBCOMMON::waitUntilReadable(descriptor, httpWaitSeconds) == ORBCOMMON::Readiness::Readable;
}

bool isLineEnd(std::string_view received, std::size_t position) {
    return received.substr(std::min(position, received.size()), 2) == "\r\n";
}

/// Finds the line that begins at `start`. False when no "\r\n" ends it: a "\r" alone does not.
bool findLine(std::string_view received, std::size_t start, std::string_view& line) {
    const std::size_t end = received.find('\r', start);
    if (!isLineEnd(received, end)) {
        return false;
    }
    line = received.substr(start, end - start);
    return true;
}

/// Records the header of one line. A line without a colon is ignored, and so, on purpose, is a value of
/// fewer than two characters after its leading spaces.
void recordHeader(std::string_view line, HttpHeaders& headers) {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) {
        return;
    }
    const std::size_t value = line.find_first_not_of(' ', colon + 1);
    if (value == std::string_view::npos || value + 1 >= line.size()) {
        return;
    }
    (void)headers.insert(std::string(line.substr(0, colon)), std::string(line.substr(value)));
}

/// Reads status line and headers from the first bytes. False when they do not end there.
bool parseHead(ResponseHead& head, std::string& statusLine, HttpHeaders& headers) {
    std::string_view line;
    if (!findLine(head.received, 0, line) || line.empty()) {
        return false;
    }
    statusLine = line;
    std::size_t position = line.size() + 2;
    while (!isLineEnd(head.received, position)) {
        if (!findLine(head.received, position, line)) {
            return false;
        }
        recordHeader(line, headers);
        position += line.size() + 2;
    }
    head.bodyStart = position + 2;
    return true;
}

/// The count that a "Content-Length" stands for: white space, one sign, then digits up to the first other
/// character, as the NUL at the end is, in unsigned 32-bit arithmetic. Whatever the text, it is some count.
std::uint32_t parseLength(const std::string& text) {
    std::size_t position = std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size());
    const bool isNegative = text[position] == '-';
    if (isNegative || text[position] == '+') {
        ++position;
    }
    std::uint32_t count = 0;
    for (; text[position] >= '0' && text[position] <= '9'; ++position) {
        count = count * 10 + static_cast<std::uint32_t>(text[position] - '0');
    }
    return isNegative ? 0 - count : count;
}

/// Receives until the array holds `length` bytes, of which `held` are there. False when waiting or
/// receiving fails.
bool receiveRest(int descriptor, std::uint8_t* data, std::size_t length, std::size_t held) {
    while (held < length) {
        if (!isReadable(descriptor)) {
            return false;
        }
        const ssize_t received = recv(descriptor, data + held, length - held, 0);
        if (received == -1) {
            ORBCOMMON::Logger::logAt(errorLevel, "Error Receiving from Server. Code: %d", errno);
            return false;
        }
        if (received == 0) {
            // The peer has closed. That is not recognised, on purpose, but must not burn a core either.
            ORBCOMMON::sleepMilliseconds(closedPeerPause);
        }
        held += static_cast<std::size_t>(received);
    }
    return true;
}

bool readBody(int descriptor, const ResponseHead& head, std::uint32_t count,
              std::unique_ptr<std::uint8_t[]>& data) {
    std::unique_ptr<std::uint8_t[]> body(new (std::nothrow) std::uint8_t[count]);
    if (body == nullptr) {
        return false;
    }
    const std::size_t held = std::min<std::size_t>(count, head.received.size() - head.bodyStart);
    std::memcpy(body.get(), head.received.data() + head.bodyStart, held);
    if (!receiveRest(descriptor, body.get(), count, held)) {
        return false;
    }
    data = std::move(body);
    return true;
}

bool readWholeResponse(int descriptor, std::string& statusLine, HttpHeaders& headers,
                       std::unique_ptr<std::uint8_t[]>& data, std::uint32_t& length) {
    char buffer[firstReadSize];
    if (!isReadable(descriptor)) {
        return false;
    }
    const ssize_t received = recv(descriptor, buffer, sizeof buffer, 0);
    if (received <= 0) {
        return false;
    }
    ResponseHead head{std::string_view(buffer, static_cast<std::size_t>(received))};
    if (!parseHead(head, statusLine, headers)) {
        return false;
    }
    const auto stated = headers.find("Content-Length");
    if (stated == headers.end()) {
        return true;
    }
    const std::uint32_t count = parseLength(stated->second);
    if (!readBody(descriptor, head, count, data)) {
        return false;
    }
    length = count;
    return true;
}

bool exchange(ORBCOMMON::ClientSocket& socket, const std::string& method, const std::string& url,
              const std::string& body, std::string& statusLine, HttpHeaders& headers,
              Common::OutputStream& bodyStream) {
    const std::string text = requestText(method, url, body.size());
    if (send(socket.descriptor(), text.data(), text.size(), MSG_NOSIGNAL) == -1) {
        socket.close();
        return false;
    }
    if (method == "POST" && !sendBody(socket, body)) {
        return false;
    }
    std::unique_ptr<std::uint8_t[]> data;
    std::uint32_t length = 0;
    if (readResponse(socket, socket.descriptor(), statusLine, headers, data, length) && length != 0) {
        bodyStream.write(reinterpret_cast<const char*>(data.get()), length);
    }
    return true;
}

} // namespace

bool sendRequest(ORBCOMMON::ClientSocket& socket, const std::string& method, const std::string& url,
                 const std::string& body, std::string& statusLine, HttpHeaders& headers,
                 Common::OutputStream& bodyStream) {
    statusLine.clear();
    headers.clear();
    if (!socket.isConnected()) {
        return false;
    }
    try {
        return exchange(socket, method, url, body, statusLine, headers, bodyStream);
    } catch (const std::bad_alloc&) {
        socket.close();
        return false;
    }
}

bool readResponse(ORBCOMMON::ClientSocket& /*socket*/, int descriptor, std::string& statusLine,
                  HttpHeaders& headers, std::unique_ptr<std::uint8_t[]>& data, std::uint32_t& length) {
    headers.clear();
    data.reset();
    length = 0;
    try {
        return readWholeResponse(descriptor, statusLine, headers, data, length);
    } catch (const std::bad_alloc&) {
        return false;
    }
}

} // namespace ZNORBRESPONDER
