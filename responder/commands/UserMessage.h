#pragma once

namespace ZNORBRESPONDER {

/// Writes the message and a newline, at once and as one piece, to the descriptor: standard output or standard
/// error. A failure is ignored: there is nobody left to tell.
void tellUser(int descriptor, const char* message);

} // namespace ZNORBRESPONDER
