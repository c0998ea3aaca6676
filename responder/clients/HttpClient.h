#pragma once

#include "common/sockets/ClientSocket.h"
#include "foundation/containers/Map.h"
#include "foundation/streams/OutputStream.h"

#include <cstdint>
#include <memory>
#include <string>

/// A minimal blocking HTTP/1.0 client: one request, one response, on a connected socket of the caller's.
/// Keeps no state; runs on the caller's thread and may block it for 1800 seconds per wait.
namespace ZNORBRESPONDER {

/// Response headers by their exact names as received.
using HttpHeaders = Common::map<std::string, std::string>;

/// Sends the request and reads the response. Only a "POST" (exactly so) carries its body and its length;
/// for any other method the body is not sent. Status line and headers are cleared, then filled from the
/// response; its body goes to `bodyStream` in one write.
///
/// True when the request was sent, also when no response could be read; an empty status line tells that
/// nothing of one was understood. False when the socket was not connected, sending failed or memory ran
/// out; the socket is closed then.
bool sendRequest(ORBCOMMON::ClientSocket& socket, const std::string& method, const std::string& url,
                 const std::string& body, std::string& statusLine, HttpHeaders& headers,
                 Common::OutputStream& bodyStream);

/// Reads one response from the descriptor: the status line and all headers must arrive with the first
/// read of at most 8192 bytes; the body follows when "Content-Length" is recorded. True when all of that
/// was there; then `data` holds `length` bytes, or null for a response without a length. False otherwise,
/// with `data` null; a body that cannot be allocated is a failed read.
///
/// A header whose value is shorter than two characters is dropped on purpose, as in "Content-Length: 7":
/// such a response is read without its body. A peer that closes before its body is complete is not
/// recognised, on purpose: the call then goes on waiting, for ever if the connection never fails.
///
/// `descriptor` is what is read from; the socket that it belongs to stays untouched.
bool readResponse(ORBCOMMON::ClientSocket& socket, int descriptor, std::string& statusLine,
                  HttpHeaders& headers, std::unique_ptr<std::uint8_t[]>& data, std::uint32_t& length);

} // namespace ZNORBRESPONDER
