#pragma once

#include "fuzz/support/Peer.h"
#include "responder/clients/HttpClient.h"

#include <cstddef>
#include <map>
#include <string>

namespace ZNORBFUZZ {

/// What reading one HTTP response comes to, worked out position by position as the rules of the reader have
/// it, without any of its code.
struct ResponseModel {
    /// Reads from the peer, which it uses up.
    explicit ResponseModel(Peer peer);

    std::string statusLine;
    std::map<std::string, std::string> headers;
    bool hasBody = false;
    std::string body;
    std::string log;
    unsigned pauses = 0; ///< one for each 0 bytes that a peer sends before its body is complete

    // Reading fills the members above, so these come last.
    bool isRead;
    unsigned waits;
    unsigned receives;

private:
    bool read(Peer& peer);
    bool readHead(const std::string& received, std::size_t& bodyStart);
    void readHeader(const std::string& line);
    bool readBody(Peer& peer, const std::string& first);
};

/// The headers that the product found, as the model has them.
std::map<std::string, std::string> plain(const ZNORBRESPONDER::HttpHeaders& headers);

/// The largest array that `new (std::nothrow)` gives in a target that links this: a larger one finds no
/// memory, so that the lengths that a peer may claim cost nothing.
inline constexpr std::size_t bodyLimit = 65536;

} // namespace ZNORBFUZZ
