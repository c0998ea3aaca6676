#pragma once

#include <cstddef>

namespace ZNORBRESPONDER {

inline constexpr std::size_t longestMessage = 255;

/// Writes the message, of at most `longestMessage` bytes, and a newline to the descriptor, standard output or
/// standard error: in one piece, unless the system takes less at a time. Of a longer one the rest is left
/// out. A failure is ignored: there is nobody left to tell. Takes no memory.
void tellUser(int descriptor, const char* message);

} // namespace ZNORBRESPONDER
