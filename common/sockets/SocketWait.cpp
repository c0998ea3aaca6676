#include "common/sockets/SocketWait.h"

#include <sys/select.h>

namespace ORBCOMMON {

Readiness waitUntilReadable(int descriptor, long seconds) {
    if (descriptor < 0 || descriptor >= FD_SETSIZE) {
        return Readiness::Failed;
    }
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(descriptor, &readable);
    timeval timeout{seconds, 0};
    const int count = select(descriptor + 1, &readable, nullptr, nullptr, &timeout);
    if (count == 0) {
        return Readiness::TimedOut;
    }
    return count > 0 && FD_ISSET(descriptor, &readable) ? Readiness::Readable : Readiness::Failed;
}

} // namespace ORBCOMMON
