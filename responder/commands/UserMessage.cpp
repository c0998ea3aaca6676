#include "responder/commands/UserMessage.h"

#include <cstdio>

namespace ZNORBRESPONDER {

void tellUser(int descriptor, const char* message) {
    (void)dprintf(descriptor, "%s\n", message);
}

} // namespace ZNORBRESPONDER
