#pragma once

namespace ZNORBRESPONDER {

/// Writes the message and a newline, as one piece if it is short, to the descriptor: standard output or
/// standard error. It is there when this returns. A failure is ignored: there is nobody left to tell.
void tellUser(int descriptor, const char* message);

} // namespace ZNORBRESPONDER
