#include "responder/commands/UserMessage.h"

#include <sys/uio.h>

#include <string_view>

namespace ZNORBRESPONDER {

namespace {

iovec piece(std::string_view text) {
    return {const_cast<char*>(text.data()), text.size()}; // writev only reads it
}

} // namespace

void tellUser(int descriptor, const char* message) {
    const iovec line[] = {piece(message), piece("\n")};
    [[maybe_unused]] const ssize_t written = writev(descriptor, line, 2);
}

} // namespace ZNORBRESPONDER
