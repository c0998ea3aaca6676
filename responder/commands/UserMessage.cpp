#include "responder/commands/UserMessage.h"

namespace ZNORBRESPONDER {

void tellUser(std::FILE* stream, const char* message) {
    (void)std::fputs(message, stream);
    (void)std::fputc('\n', stream);
    (void)std::fflush(stream);
}

} // namespace ZNORBRESPONDER
