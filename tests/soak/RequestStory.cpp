/// Requests of all kinds to one daemon: each is answered as it should be, and the daemon needs no more of
/// anything than at the beginning.

#include "tests/soak/Lives.h"
#include "tests/soak/Neighbours.h"
#include "tests/soak/Possessions.h"
#include "tests/soak/Soak.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/SharedTable.h"

#include <algorithm>

namespace ZNORBSOAK {

using namespace ZNORBTEST;

namespace {

/// Requests after which the daemon has seen the most that chance makes of one.
constexpr unsigned long longestWarmUp = 10000;

/// The table as it should be, for as long as nobody but this story and the daemon writes into it.
class ExpectedTable {
public:
    /// The reply to a "GET" that launches.
    std::string claim() {
        const auto entry = std::find(m_inUse.begin(), m_inUse.end(), false);
        if (entry == m_inUse.end()) {
            return "0";
        }
        *entry = true;
        return std::to_string(entry - m_inUse.begin());
    }

    /// As a client does at its end.
    void free(unsigned index) {
        m_inUse[index] = false;
        (void)writeSharedTable(4 + 128 * static_cast<std::int64_t>(index), std::string(1, '\0'));
    }

    bool isFull() const { return std::find(m_inUse.begin(), m_inUse.end(), false) == m_inUse.end(); }

private:
    std::array<bool, ZNORB_TABLE_CAPACITY> m_inUse{};
};

/// A reply is to be had in these ways, and a whole request to be seen.
bool isAnswered(Manner manner) {
    return manner == Manner::Waits || manner == Manner::HalfCloses;
}

/// The requests that need the most memory, so that chance does not come upon them late. They launch nothing.
void askForMost(Part& part) {
    for (const std::string command : {"", "PRINT", "GE", "QUI"}) {
        for (const char filler : {'|', 'x'}) {
            const std::string request = command + std::string(1024 - command.size(), filler);
            part.expect(askDaemon(request) == "0", "the reply to a long request was not 0");
        }
    }
}

void requestOnce(Part& part, ExpectedTable& table) {
    // The manners that leave open what the daemon gets to see are the requesters' story.
    static constexpr std::array<Manner, 6> manners = {Manner::Waits,       Manner::Waits,
                                                      Manner::HalfCloses,  Manner::Vanishes,
                                                      Manner::SaysNothing, Manner::ClosesUnasked};
    const Manner manner = manners[part.below(manners.size())];
    const RandomRequest request = randomRequest(part.random());
    const bool isSent = manner != Manner::SaysNothing && manner != Manner::ClosesUnasked;
    const std::string expected = isSent && request.launches ? table.claim() : "0";
    bool isOver = false;
    const std::string reply = sendLikeThat(manner, request.bytes, isOver);
    part.expect(isOver, "a connection was refused or left open");
    part.expect(reply == (isAnswered(manner) ? expected : ""), "the reply was \"" + reply + "\"");
    part.note(isAnswered(manner) ? "answered" : "without an answer by the requester's manner");
    if (table.isFull() && part.below(4) == 0) {
        (void)askDaemon("PRINT"); // every request before it has been served: nobody claims meanwhile
        for (unsigned count = 0; count < ZNORB_TABLE_CAPACITY / 4; ++count) {
            table.free(part.below(ZNORB_TABLE_CAPACITY));
        }
    }
}

} // namespace

void request(Part& part) {
    DaemonDriver driver;
    installBriefClient(driver);
    if (!part.expect(driver.startServing(), "the daemon did not serve")) {
        return;
    }
    askForMost(part);
    ExpectedTable table;
    const unsigned long warmUp = std::min(part.rounds() / 2, longestWarmUp);
    Possessions before;
    for (unsigned long round = 0; round < part.rounds(); ++round) {
        part.countRound();
        requestOnce(part, table);
        if (round == warmUp) {
            before = possessionsAtRest(part, driver.daemon());
        }
    }
    expectNothingMore(part, before, possessionsAtRest(part, driver.daemon()));
    part.expect(driver.run({"-stop"}).end == exitedWith(255), "the stop failed");
    part.expect(driver.waitForDaemon() == exitedWith(255), "the daemon's status was not 255");
}

} // namespace ZNORBSOAK
