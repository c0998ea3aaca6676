/// Requesters that mean no good, several at a time: noise, half a request, gone, reset, silent. The daemon
/// answers the others and waits for these without working.

#include "tests/soak/Lives.h"
#include "tests/soak/Neighbours.h"
#include "tests/soak/Possessions.h"
#include "tests/soak/Soak.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/ProcessorTime.h"

#include <algorithm>

namespace ZNORBSOAK {

using namespace ZNORBTEST;

namespace {

constexpr unsigned atATime = 4;
constexpr unsigned long batch = 500;

/// As many requesters as told, one after the other. Returns how many found the daemon gone or hanging.
unsigned long misbehave(unsigned long requesters, unsigned seed) {
    std::mt19937 random(seed);
    unsigned long failures = 0;
    for (unsigned long requester = 0; requester < requesters; ++requester) {
        const Manner manner = static_cast<Manner>(random() % mannerCount);
        bool isOver = false;
        (void)sendLikeThat(manner, randomRequest(random).bytes, isOver);
        failures += isOver ? 0U : 1U;
    }
    return failures;
}

void misbehaveTogether(Part& part, unsigned long requesters) {
    std::atomic<unsigned long> failures = 0;
    std::vector<std::thread> threads;
    for (unsigned number = 0; number < atATime; ++number) {
        const unsigned long share = requesters / atATime + (number < requesters % atATime ? 1 : 0);
        threads.emplace_back([share, seed = static_cast<unsigned>(part.random()()), &failures]() {
            failures += misbehave(share, seed);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    part.expect(failures == 0, std::to_string(failures) + " requesters found nobody or were left hanging");
}

/// Nobody says anything for as long as the daemon has patience, or for a bounded stretch of it.
void watchASilentOne(Part& part, const DaemonDriver& driver) {
    LocalConnection silent = LocalConnection::toPath(socketPath);
    part.expect(silent.isConnected(), "the daemon is gone");
    const ProcessorUse use = watchProcessor(driver.daemon(), Milliseconds(part.isFull() ? 50000 : 2000));
    part.expect(use.isWaiting(), "the daemon worked while it waited for a request");
    part.noteHighest("at most per mille of a core while waiting",
                     static_cast<unsigned long>(1000 * use.used / use.watched));
    if (part.isFull()) {
        part.expect(silent.receiveUntilClosed(Milliseconds(20000)).empty() && silent.wasClosed(),
                    "a silent requester was not dropped after a minute");
        part.note("silent requesters dropped after a minute");
    }
}

} // namespace

void serveHostileRequesters(Part& part) {
    DaemonDriver driver;
    installBriefClient(driver);
    if (!part.expect(driver.startServing(), "the daemon did not serve")) {
        return;
    }
    Possessions before;
    for (unsigned long played = 0; played < part.rounds();) {
        const unsigned long now = std::min(batch, part.rounds() - played);
        misbehaveTogether(part, now);
        part.countRounds(now);
        const bool isFirst = played == 0;
        played += now;
        part.expect(askDaemon("PRINT") == "0", "the daemon does not answer any more");
        if (isFirst) {
            before = possessionsAtRest(part, driver.daemon());
        }
    }
    expectNothingMore(part, before, possessionsAtRest(part, driver.daemon()));
    watchASilentOne(part, driver);
    part.expect(askDaemon("QUIT") == "0", "QUIT was not answered");
    part.expect(driver.waitForDaemon() == exitedWith(255), "the daemon's status was not 255");
}

} // namespace ZNORBSOAK
