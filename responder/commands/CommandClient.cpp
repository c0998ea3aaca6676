#include "responder/commands/CommandClient.h"

#include "common/sockets/SocketWait.h"
#include "common/sockets/UXClientSocket.h"
#include "responder/RuntimeNames.h"

#include <sys/socket.h>

#include <cstring>
#include <new>
#include <string>

namespace ZNORBRESPONDER {

namespace {

bool isAnswered(int descriptor) {
    if (ORBCOMMON::waitUntilReadable(descriptor, commandWaitSeconds) != ORBCOMMON::Readiness::Readable) {
        return false;
    }
    char reply[commandBufferSize]; // what the daemon says is not looked at, only that it spoke
    return recv(descriptor, reply, sizeof reply, 0) > 0;
}

bool exchange(const char* command) {
    ORBCOMMON::UXClientSocket socket(commandSocketPath);
    socket.connect();
    if (!socket.isConnected()) {
        return false;
    }
    // A failed send shows in the reply that does not come.
    (void)send(socket.descriptor(), command, std::strlen(command), MSG_NOSIGNAL);
    return isAnswered(socket.descriptor());
}

bool sendCommand(const char* command) {
    try {
        return exchange(command);
    } catch (const std::bad_alloc&) {
        return false; // not even connected
    }
}

} // namespace

bool sendQuit() {
    return sendCommand(quitCommand);
}

bool sendPrint() {
    return sendCommand(printCommand);
}

} // namespace ZNORBRESPONDER
