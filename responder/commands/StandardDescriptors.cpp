#include "responder/commands/StandardDescriptors.h"

#include <fcntl.h>
#include <unistd.h>

namespace ZNORBRESPONDER {

void pointToNull(int descriptor) {
    const int spare = open("/dev/null", descriptor == STDIN_FILENO ? O_RDONLY : O_WRONLY);
    // A descriptor that was closed is what open itself may return: it is no spare then.
    if (spare != -1 && spare != descriptor) {
        (void)dup2(spare, descriptor);
        (void)close(spare);
    }
}

void fillMissingDescriptors() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) == -1) {
            pointToNull(descriptor);
        }
    }
}

} // namespace ZNORBRESPONDER
