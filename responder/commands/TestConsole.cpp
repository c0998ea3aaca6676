#include "responder/commands/TestConsole.h"

#include "common/log/Logger.h"
#include "common/sockets/SocketWait.h"
#include "foundation/containers/SharedPtr.h"
#include "foundation/streams/OutputStreamToConsole.h"
#include "responder/Globals.h"
#include "responder/commands/CommandClient.h"
#include "responder/commands/ExitStatus.h"
#include "responder/service/ResponderThread.h"

#include <unistd.h>

#include <string>

namespace ZNORBRESPONDER {

namespace {

constexpr long inputWaitSeconds = 60; // only a wake-up: waiting goes on

/// Serves the keys as they arrive until "q". Everything else, a newline included, is ignored.
void serveKeys() {
    for (int key = readKey(); key != 'q'; key = readKey()) {
        if (key == 'p') {
            (void)sendPrint();
        }
    }
}

} // namespace

bool waitForInput() {
    ORBCOMMON::Readiness readiness = ORBCOMMON::Readiness::TimedOut;
    while (readiness == ORBCOMMON::Readiness::TimedOut) {
        readiness = ORBCOMMON::waitUntilReadable(STDIN_FILENO, inputWaitSeconds);
    }
    return readiness == ORBCOMMON::Readiness::Readable;
}

int readKey() {
    unsigned char key = 0;
    if (waitForInput()) {
        [[maybe_unused]] const ssize_t taken = read(STDIN_FILENO, &key, 1); // at its end the key stays 0
    }
    return key;
}

int runTestConsole() {
    gIsTestMode = true;
    // Kept although nothing shows it: the title of the console's window.
    [[maybe_unused]] const std::string title("ZNORB Responder Test Mode");

    const Common::shared_ptr<Common::OutputStream> console(new Common::OutputStreamToConsole);
    ORBCOMMON::Logger::addOutputStream(console);
    ORBCOMMON::Logger::log("Press: p, then Enter to show stats.");
    ORBCOMMON::Logger::log("Press: q, then Enter to exit.");

    ResponderThread responder;
    responder.start();
    serveKeys();
    (void)sendQuit();
    responder.awaitEnd();
    ORBCOMMON::Logger::removeAllOutputStreams();
    return otherEndStatus;
}

} // namespace ZNORBRESPONDER
