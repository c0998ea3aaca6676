/// Requests of all kinds to one daemon: each is answered as it should be, and the daemon needs no more of
/// anything than at the beginning.

#include "tests/soak/Lives.h"
#include "tests/soak/Neighbours.h"
#include "tests/soak/Soak.h"
#include "tests/support/CodeMemory.h"
#include "tests/support/Files.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Processes.h"
#include "tests/support/SharedTable.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace ZNORBSOAK {

using namespace ZNORBTEST;

namespace {

constexpr unsigned long mostGrowth = 64; // KiB

/// Requests after which the daemon has seen the most that chance makes of one.
constexpr unsigned long longestWarmUp = 10000;

/// What a daemon has of the system.
struct Possessions {
    std::vector<std::string> descriptors;
    std::size_t sockets = 0; ///< the one that listens, and those of the connections that are not closed yet
    std::size_t threads = 0;
    std::size_t children = 0;   ///< running or zombies
    unsigned long resident = 0; ///< KiB, counted page by page
};

/// Without the executable's code, which comes and goes with the pauses.
unsigned long residentOf(pid_t process) {
    const std::string text = readFile("/proc/" + std::to_string(process) + "/smaps_rollup");
    const std::size_t place = text.find("Rss:");
    const unsigned long all =
        place == std::string::npos ? 0 : std::strtoul(text.c_str() + place + 4, nullptr, 10);
    return all - std::min(all, residentCode(process));
}

std::size_t socketsAmong(const std::string& folder, const std::vector<std::string>& descriptors) {
    return static_cast<std::size_t>(
        std::count_if(descriptors.begin(), descriptors.end(), [&folder](const std::string& name) {
            std::error_code isGone;
            return std::filesystem::read_symlink(folder + "/" + name, isGone).string().starts_with("socket:");
        }));
}

Possessions possessionsOf(pid_t daemon) {
    const std::string process = "/proc/" + std::to_string(daemon);
    const std::string folder = process + "/fd";
    const std::vector<std::string> descriptors = namesIn(folder);
    return {descriptors, socketsAmong(folder, descriptors), namesIn(process + "/task").size(),
            childrenOf(daemon).size(), residentOf(daemon)};
}

/// What the daemon has when everything asked of it is over. The requester sees the end of a connection before
/// the daemon has closed it.
Possessions possessionsAtRest(Part& part, pid_t daemon) {
    (void)askDaemon("PRINT"); // every request before it has been served
    Possessions found;
    const bool isAtRest = waitUntil([&found, daemon]() {
        found = possessionsOf(daemon);
        return found.sockets == 1 && found.children == 0;
    });
    part.expect(isAtRest, std::to_string(found.sockets) + " sockets and " + std::to_string(found.children) +
                              " children were left");
    return found;
}

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
    const Possessions after = possessionsAtRest(part, driver.daemon());
    part.expect(after.descriptors == before.descriptors, "a descriptor was left open");
    part.expect(after.threads == before.threads && after.threads == 2, "there were other threads");
    part.expect(after.resident <= before.resident + mostGrowth, "resident memory grew from " +
                                                                    std::to_string(before.resident) + " to " +
                                                                    std::to_string(after.resident) + " KiB");
    part.note("descriptors more", after.descriptors.size() - before.descriptors.size());
    part.note("threads more", after.threads - before.threads);
    part.note("zombies", after.children);
    part.note("KiB resident before", before.resident);
    part.note("KiB resident after", after.resident);
    part.expect(driver.run({"-stop"}).end == exitedWith(255), "the stop failed");
    part.expect(driver.waitForDaemon() == exitedWith(255), "the daemon's status was not 255");
}

} // namespace ZNORBSOAK
