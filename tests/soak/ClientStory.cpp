/// A full table of clients, launched and swept: most as they should be, some dead, some slow, some hostile,
/// some without a port.

#include "tests/soak/Lives.h"
#include "tests/soak/Soak.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/SharedTable.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <numeric>

namespace ZNORBSOAK {

using namespace ZNORBTEST;

namespace {

constexpr unsigned ofEachKind = 6;
constexpr Milliseconds sweepBound{60000};

/// The process of a client as its entry names it: "znorbclient-<pid> <language>".
pid_t processOf(unsigned index) {
    const auto table = readSharedTable();
    const std::string identifier = table.has_value() ? identifierOf(table->entries[index]) : "";
    const std::size_t dash = identifier.find('-');
    return dash == std::string::npos
               ? -1
               : static_cast<pid_t>(std::strtol(identifier.c_str() + dash + 1, nullptr, 10));
}

/// Answers that the daemon has to put up with; it goes on after each of them.
std::unique_ptr<ListeningPeer> hostilePeer(Part& part) {
    PeerScript script;
    script.receiveFirst = part.below(2) * 58;
    switch (part.below(5)) {
    case 0:
        break; // closes without an answer
    case 1:
        script.pieces = {"\r" + part.randomBytes(part.below(9000))};
        break;
    case 2:
        script.pieces = {"HTTP/1.0 200 OK\r\nX-Name: " + std::string(9000, 'a')};
        script.repeatLast = true;
        break;
    case 3:
        script.pieces = {"HTTP/1.0 200 OK\r\nContent-Length: 1000\r\n\r\nx"};
        script.reset = true;
        break;
    default:
        script.pieces = {"H", "TTP/1.0 200 OK\r\n\r\n"};
        script.pause = Milliseconds(20);
    }
    return std::make_unique<ListeningPeer>(script);
}

/// Wakes the stopped ones one by one, while the sweep comes to them.
class SlowClients {
public:
    explicit SlowClients(std::vector<pid_t> clients)
        : m_thread([clients = std::move(clients)]() {
              for (const pid_t client : clients) {
                  std::this_thread::sleep_for(Milliseconds(50));
                  (void)kill(client, SIGCONT);
              }
          }) {}
    ~SlowClients() { m_thread.join(); }

private:
    std::thread m_thread;
};

bool launchAll(Part& part, DaemonDriver& driver) {
    bool isFilled = part.expect(driver.startServing(), "the daemon did not serve");
    for (unsigned entry = 0; isFilled && entry < ZNORB_TABLE_CAPACITY; ++entry) {
        isFilled = part.expect(askDaemon("GET|en|300") == std::to_string(entry), "a GET failed");
    }
    for (unsigned entry = 0; isFilled && entry < ZNORB_TABLE_CAPACITY; ++entry) {
        isFilled = part.expect(DaemonDriver::waitForClient(entry), "a client did not fill in its entry");
    }
    part.expect(askDaemon("GET|en") == "0", "a GET for a full table was not answered 0");
    return isFilled &&
           part.expect(driver.clients().size() == ZNORB_TABLE_CAPACITY, "there were not 64 clients");
}

/// The entries in an order of chance: the first few of them are of each kind.
std::vector<unsigned> shuffledEntries(Part& part) {
    std::vector<unsigned> entries(ZNORB_TABLE_CAPACITY);
    std::iota(entries.begin(), entries.end(), 0U);
    std::shuffle(entries.begin(), entries.end(), part.random());
    return entries;
}

void sweepOnce(Part& part, DaemonDriver& driver) {
    const std::vector<unsigned> entries = shuffledEntries(part);
    std::vector<pid_t> slow;
    std::vector<pid_t> notAsked;
    std::vector<std::unique_ptr<ListeningPeer>> hostile;
    for (unsigned number = 0; number < ofEachKind; ++number) {
        const pid_t dead = processOf(entries[number]);
        part.expect(dead > 0 && kill(dead, SIGKILL) == 0, "a client cannot be killed");
        slow.push_back(processOf(entries[ofEachKind + number]));
        part.expect(slow.back() > 0 && kill(slow.back(), SIGSTOP) == 0, "a client cannot be stopped");
        notAsked.push_back(processOf(entries[2 * ofEachKind + number]));
        hostile.push_back(hostilePeer(part));
        part.expect(enterClient(entries[2 * ofEachKind + number], hostile.back()->port()), "no table");
        notAsked.push_back(processOf(entries[3 * ofEachKind + number]));
        part.expect(enterClient(entries[3 * ofEachKind + number], 0), "no table");
    }
    std::sort(slow.begin(), slow.end()); // as they were launched, and as the sweep comes to them
    {
        const SlowClients slowOnes(slow);
        part.expect(askDaemon("QUIT", sweepBound) == "0", "QUIT was not answered");
    }
    part.expect(driver.waitForDaemon() == exitedWith(255), "the daemon's status was not 255");
    std::sort(notAsked.begin(), notAsked.end());
    part.expect(waitUntil([&]() {
                    std::vector<pid_t> running = driver.clients();
                    std::sort(running.begin(), running.end());
                    return running == notAsked;
                }),
                "others than those that could not be reached are left");
    part.note("clients", ZNORB_TABLE_CAPACITY);
    part.note("dead, slow, hostile, without a port: each", ofEachKind);
    part.expect(driver.newNames() == std::vector<std::string>{socketFile}, "a name was left");
}

} // namespace

void launchAndSweep(Part& part) {
    DaemonDriver driver;
    for (unsigned long round = 0; round < part.rounds(); ++round) {
        part.countRound();
        if (!launchAll(part, driver)) {
            return;
        }
        sweepOnce(part, driver);
        part.expect(endClients(driver), "a client cannot be ended");
    }
}

} // namespace ZNORBSOAK
