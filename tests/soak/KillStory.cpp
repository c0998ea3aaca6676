/// SIGKILL at random moments: what stays is what has been made by then, the lock refuses every start, and
/// the removal of the names recovers.

#include "tests/soak/Lives.h"
#include "tests/soak/Soak.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/PlayedDaemon.h"

#include <unistd.h>

#include <csignal>

namespace ZNORBSOAK {

using namespace ZNORBTEST;

namespace {

constexpr const char* refusedMessage =
    "Error: Only one instance of the ZN Orbisan daemon can be active at one time.\n";
constexpr const char* stoppedMessage = "The ZN Orbisan daemon has stopped.\n";

/// The names of a daemon that was killed.
struct Residue {
    bool lock = false;
    bool table = false;
    bool socket = false;
    std::vector<std::string> others;

    explicit Residue(const std::vector<std::string>& names) {
        for (const std::string& name : names) {
            lock = lock || name == lockFile;
            table = table || name == tableFile;
            socket = socket || name == socketFile;
            if (name != lockFile && name != tableFile && name != socketFile) {
                others.push_back(name);
            }
        }
    }
};

/// Lock, table and socket come in this order and, the socket excepted, go in the reverse order.
void checkResidue(Part& part, Load load, const Residue& left) {
    for (const std::string& name : left.others) {
        part.expect(load == Load::Starting && isUnfinishedSemaphore(name), name + " was left");
        part.note("semaphores that the C library had not finished");
        (void)unlink(name.c_str());
    }
    switch (load) {
    case Load::Starting:
        part.expect(left.lock || !left.table, "a table was left without a lock");
        part.expect(left.table || !left.socket, "a socket was left without a table");
        break;
    case Load::Sweeping:
        part.expect(left.lock || !left.table, "a table was left without a lock");
        part.expect(left.socket, "there was no socket file");
        break;
    default:
        part.expect(left.lock && left.table && left.socket, "lock, table or socket file was gone");
    }
}

void checkRefusals(Part& part, const DaemonDriver& driver) {
    const ProgramResult start = driver.run({"-d"});
    part.expect(start.end == exitedWith(2) && start.errors == refusedMessage && start.output.empty(),
                "a start beside a stale lock was not refused");
    const ProgramResult stop = driver.run({"-stop"});
    part.expect(stop.end == exitedWith(255) && stop.output.empty() && stop.errors.empty(),
                "a stop beside a stale lock did not fail silently");
    part.note("refused starts beside a stale lock");
}

/// A table alone makes one start fail and is removed by it.
void checkStaleTable(Part& part, DaemonDriver& driver) {
    part.expect(driver.start(), "a start beside a stale table was refused");
    part.expect(driver.waitForDaemon() == exitedWith(255), "a start beside a stale table did not fail");
    const Residue left(driver.newNames());
    part.expect(!left.lock && !left.table && left.others.empty(), "a stale table was not removed");
    part.note("stale tables removed by a start");
}

void checkRecovery(Part& part, DaemonDriver& driver) {
    part.expect(driver.startServing(), "no start after the recovery");
    part.expect(askDaemon("GET|en|60") == "0", "no GET after the recovery");
    part.expect(driver.run({"-stop"}).output == stoppedMessage, "no stop after the recovery");
    part.expect(driver.waitForDaemon() == exitedWith(255), "no orderly end after the recovery");
    part.expect(driver.newNames() == std::vector<std::string>{socketFile}, "a name was left");
}

/// False when there was no daemon to kill.
bool killOnce(Part& part, const DaemonDriver& driver, Load load) {
    ChildProcess invoking(driver.launch({"-d"})); // it may wait for the barrier for ever, and is ended here
    const pid_t daemon = awaitDaemon(invoking.pid());
    if (!part.expect(daemon != -1, "no daemon was started")) {
        return false;
    }
    if (load != Load::Starting) {
        part.expect(waitUntil([]() { return askDaemon("PRINT") == "0"; }), "the daemon did not serve");
    }
    const Onlooker lock(daemonLock);
    const AppliedLoad applied(load);
    awaitRandomMoment(part, load);
    (void)kill(daemon, SIGKILL);
    const ProcessEnd end = waitForEndOf(daemon);
    const bool endedInOrder = load == Load::Sweeping && end == exitedWith(255); // "QUIT" was quicker
    part.expect(end == endedBy(SIGKILL) || endedInOrder, "it " + inWords(end) + ", not by SIGKILL");
    part.note(endedInOrder ? "quit before the signal came" : loadNames[static_cast<std::size_t>(load)]);
    const bool isHeld = load != Load::Sweeping && load != Load::Starting;
    part.expect(!isHeld || (lock.isOpen() && lock.count() == 0), "the lock was not held any more");
    return true;
}

} // namespace

void killOutright(Part& part) {
    DaemonDriver driver;
    for (unsigned long round = 0; round < part.rounds(); ++round) {
        part.countRound();
        const Load load = static_cast<Load>(round % loadNames.size());
        if (!killOnce(part, driver, load)) {
            return;
        }
        part.expect(endClients(driver), "a client cannot be ended");
        const Residue left(driver.newNames());
        checkResidue(part, load, left);
        if (left.lock) {
            checkRefusals(part, driver);
            const bool isTableRemoved = round % 2 == 0; // every other time as the administrator does it
            (void)unlink(lockFile);
            if (isTableRemoved) {
                (void)unlink(tableFile);
            }
        }
        if (Residue(driver.newNames()).table) {
            checkStaleTable(part, driver);
        }
        checkRecovery(part, driver);
        part.expect(endClients(driver), "a client cannot be ended");
        removeNames(driver);
    }
}

} // namespace ZNORBSOAK
