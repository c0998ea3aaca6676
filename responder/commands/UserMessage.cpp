#include "responder/commands/UserMessage.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace ZNORBRESPONDER {

void tellUser(int descriptor, const char* message) {
    char line[longestMessage + 1];
    char* const newline = std::copy_n(message, std::min(std::strlen(message), sizeof line - 1), line);
    *newline = '\n';
    for (const char* rest = line; rest <= newline;) {
        const ssize_t written = write(descriptor, rest, static_cast<std::size_t>(newline + 1 - rest));
        if (written <= 0) {
            return;
        }
        rest += written;
    }
}

} // namespace ZNORBRESPONDER
