#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ZNORBTEST {

/// One step of the session that docs/PROTOCOL.md shows as a hexadecimal dump: what happens, from which offset
/// on, and the bytes.
struct SessionStep {
    std::string what; ///< such as "requester → daemon"
    std::uint32_t offset;
    std::string bytes;
};

/// The bytes of lines such as "7a 6e  6f", one after the other; stops at the first that is none.
std::string bytesFromHex(const std::string& text);

/// The steps in the document's order. A dump that contradicts itself is a failure: its offsets and its
/// characters have to be those of its bytes.
std::vector<SessionStep> readSession(const std::string& document);

} // namespace ZNORBTEST
