#pragma once

#include <cstdio>

namespace ZNORBRESPONDER {

/// Writes the message and a newline to the stream (standard output or standard error) and flushes it at
/// once. A failure is ignored: there is nobody left to tell.
void tellUser(std::FILE* stream, const char* message);

} // namespace ZNORBRESPONDER
