/// Start, GET, stop, and at once the next: no refused start, no residue, on busy cores.

#include "tests/soak/Lives.h"
#include "tests/soak/Soak.h"
#include "tests/support/LocalConnection.h"

namespace ZNORBSOAK {

using namespace ZNORBTEST;

namespace {

constexpr const char* stoppedMessage = "The ZN Orbisan daemon has stopped.\n";

/// What every daemon leaves that got as far as binding its socket.
const std::vector<std::string> leftByDesign = {socketFile};

void liveOnce(Part& part, DaemonDriver& driver, bool withPatience) {
    part.expect(driver.start(), "the start was refused");
    part.expect(waitUntil([]() { return askDaemon("GET|en|60") == "0"; }), "the first GET failed");
    if (withPatience) {
        part.expect(askDaemon("GET|de|60") == "1", "the second GET failed");
        part.expect(DaemonDriver::waitForClient(0) && DaemonDriver::waitForClient(1),
                    "a client did not fill in its entry");
    }
    part.expect(driver.run({"-stop"}).output == stoppedMessage, "the stop failed");
    // On busy cores the next start may come before this daemon is through with its exit: it has let go of
    // everything by then.
    part.expect(driver.waitForDaemon() == exitedWith(255), "the daemon's status was not 255");
    part.expect(driver.newNames() == leftByDesign, "a name was left");
    if (withPatience) {
        part.expect(waitUntil([&driver]() { return driver.clients().empty(); }), "a client was left");
    }
    part.expect(endClients(driver), "a client cannot be ended"); // some had no port yet
}

/// The next start does not wait for the daemon's exit, only for the stop's.
void restartAtOnce(Part& part, DaemonDriver& driver) {
    part.expect(driver.start(), "the start was refused");
    part.expect(waitUntil([]() { return askDaemon("PRINT") == "0"; }), "the daemon did not serve");
    part.expect(driver.run({"-stop"}).output == stoppedMessage, "the stop failed");
    const pid_t former = driver.daemon();
    part.expect(driver.start(), "the start right after the stop was refused");
    part.expect(waitUntil([]() { return askDaemon("PRINT") == "0"; }), "the second daemon did not serve");
    part.expect(waitForEndOf(former) == exitedWith(255), "the first daemon's status was not 255");
    part.expect(driver.run({"-stop"}).output == stoppedMessage, "the second stop failed");
    part.expect(driver.waitForDaemon() == exitedWith(255), "the second daemon's status was not 255");
    part.expect(driver.newNames() == leftByDesign, "a name was left");
    part.note("starts right after a stop");
}

} // namespace

void startAndStop(Part& part) {
    const BusyCores busy(part);
    DaemonDriver driver;
    for (unsigned long round = 0; round < part.rounds(); ++round) {
        part.countRound();
        switch (round % 4) {
        case 0:
            restartAtOnce(part, driver);
            break;
        case 1:
            liveOnce(part, driver, true);
            break;
        default:
            liveOnce(part, driver, false);
        }
    }
}

} // namespace ZNORBSOAK
