/// SIGTERM at random moments: status 10, the lock's name gone and its count posted, whatever the daemon was
/// doing, on idle and on busy cores.

#include "tests/soak/Lives.h"
#include "tests/soak/Soak.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/PlayedDaemon.h"

#include <algorithm>
#include <csignal>
#include <optional>

namespace ZNORBSOAK {

using namespace ZNORBTEST;

namespace {

/// The end that a terminated daemon must have come to, a request or not. Generous: the cores may be busy.
constexpr Milliseconds terminationBound{5000};

/// What stays by design, of a daemon that was still starting: nothing, or less than all.
bool isLeftByDesign(const std::vector<std::string>& names) {
    return std::all_of(names.begin(), names.end(),
                       [](const std::string& name) { return name == tableFile || name == socketFile; });
}

void checkEnd(Part& part, Load load, const ProcessEnd& end, const Onlooker& lock,
              const std::vector<std::string>& left) {
    const bool endedInOrder = load == Load::Sweeping && end == exitedWith(255); // "QUIT" was quicker
    part.expect(end == exitedWith(10) || endedInOrder, "it " + inWords(end) + " " +
                                                           loadNames[static_cast<std::size_t>(load)] +
                                                           ", not with status 10");
    part.note(endedInOrder ? "quit before the signal came" : loadNames[static_cast<std::size_t>(load)]);
    if (lock.isOpen()) {
        part.expect(lock.count() == 1, "the lock's count was not posted");
        part.note("with the lock open elsewhere");
    } else {
        part.expect(load == Load::Starting, "a serving daemon had no lock");
        part.note("before there was a lock");
    }
    part.expect(isLeftByDesign(left), "a name was left");
    const bool isTableLeft = std::find(left.begin(), left.end(), tableFile) != left.end();
    part.expect(isTableLeft || endedInOrder || load == Load::Starting || load == Load::Sweeping,
                "the table was gone");
}

void terminateOnce(Part& part, const DaemonDriver& driver, Load load) {
    ChildProcess invoking(driver.launch({"-d"}));
    const pid_t daemon = awaitDaemon(invoking.pid());
    if (!part.expect(daemon != -1, "no daemon was started")) {
        return;
    }
    if (load != Load::Starting) {
        part.expect(waitUntil([]() { return askDaemon("PRINT") == "0"; }), "the daemon did not serve");
    }
    std::optional<Onlooker> lock;
    if (load != Load::Starting) {
        lock.emplace(daemonLock); // before the load: a sweep may remove the name
    }
    const AppliedLoad applied(load);
    awaitRandomMoment(part, load);
    if (!lock.has_value()) {
        lock.emplace(daemonLock); // when there is one by now
    }
    part.expect(kill(daemon, SIGTERM) == 0, "the daemon was gone");
    const ProcessEnd end = waitForEndOf(daemon, terminationBound);
    checkEnd(part, load, end, *lock, driver.newNames());
    if (end == stillRunning()) {
        (void)kill(daemon, SIGKILL);
        (void)waitForEndOf(daemon);
    }
}

void terminateRounds(Part& part, const DaemonDriver& driver, unsigned long rounds) {
    for (unsigned long round = 0; round < rounds; ++round) {
        part.countRound();
        terminateOnce(part, driver, static_cast<Load>(round % loadNames.size()));
        part.expect(endClients(driver), "a client cannot be ended");
        removeNames(driver);
    }
}

} // namespace

void terminate(Part& part) {
    const DaemonDriver driver;
    terminateRounds(part, driver, part.rounds() / 2);
    const BusyCores busy(part);
    terminateRounds(part, driver, part.rounds() - part.rounds() / 2);
}

} // namespace ZNORBSOAK
