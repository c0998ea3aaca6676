#include "fuzz/support/Fuzzer.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/LogCapture.h"
#include "fuzz/support/Require.h"
#include "fuzz/support/ResponseModel.h"
#include "fuzz/support/Sockets.h"
#include "fuzz/support/TableImage.h"
#include "responder/clients/ExitSweep.h"

#include <netinet/in.h>

#include <cerrno>
#include <deque>
#include <memory>
#include <string>
#include <vector>

using namespace ZNORBFUZZ;
using ZNORBRESPONDER::SharedVariables;

namespace {

constexpr const char* exitRequest = "POST /ExitApplication.json HTTP/1.0\r\nContent-Length: 0\r\n\r\n";

/// How the client at a port behaves: its lowest three bits say.
enum Behaviour {
    Refuses,
    SendsNothing,
    TimesOut,
    Closes,
    CannotBeSentTo,
    Drips,
    LiesAboutItsLength,
    Answers
};

Behaviour behaviourOf(unsigned port) {
    return static_cast<Behaviour>(port % 8);
}

Peer clientAt(unsigned port) {
    switch (behaviourOf(port)) {
    case TimesOut:
        return {"T", ""};
    case Closes:
        return {"C", ""};
    case CannotBeSentTo:
        return {"", "", "E"};
    case Drips: // byte by byte, with two pauses
        return {std::string("\x2A\x01", 2) + "CC\x01",
                "HTTP/1.0 200 OK\r\nContent-Length: 012\r\n\r\nhello, world"};
    case LiesAboutItsLength:
        return {"", "HTTP/1.0 200 OK\r\nContent-Length: 4294967295\r\n\r\nhello"};
    case Answers:
        return {"", "HTTP/1.0 200 OK\r\nContent-Length: 12\r\n\r\nhello, world"};
    default:
        return {"R", ""};
    }
}

/// What reading the client's response comes to.
const ResponseModel& responseOf(unsigned port) {
    static const std::vector<ResponseModel> models = []() {
        std::vector<ResponseModel> result;
        for (unsigned each = 0; each < 8; ++each) {
            result.emplace_back(clientAt(each));
        }
        return result;
    }();
    return models[behaviourOf(port)];
}

/// The neighbours: a client that is reached may change the table while the sweep goes on.
struct Change {
    std::size_t offset = 0;
    unsigned char value = 0;
    unsigned port = 0; ///< the client that makes it
};

class Clients : public Sockets {
public:
    Clients(SharedVariables& table, std::vector<Change> changes)
        : m_table(table), m_changes(std::move(changes)) {}

    Peer* answer(std::uint32_t address, std::uint16_t port) override {
        require(address == INADDR_LOOPBACK, "only 127.0.0.1 is asked");
        m_ports.push_back(port);
        for (const Change& change : m_changes) {
            if (change.port == port) {
                reinterpret_cast<unsigned char*>(&m_table)[change.offset] = change.value;
            }
        }
        if (behaviourOf(port) == Refuses) {
            return nullptr;
        }
        m_peers.push_back(clientAt(port));
        return &m_peers.back();
    }

    [[nodiscard]] const std::vector<unsigned>& ports() const { return m_ports; }
    [[nodiscard]] const std::deque<Peer>& peers() const { return m_peers; }

private:
    SharedVariables& m_table;
    std::vector<Change> m_changes;
    std::vector<unsigned> m_ports;
    std::deque<Peer> m_peers;
};

/// What the sweep has to do, worked out on the bytes of the table.
struct Sweep {
    Sweep(TableModel& model, const std::vector<Change>& changes) {
        const unsigned count = model.bounded(); // as it stands when the sweep begins
        for (unsigned i = 0; i < count; ++i) {
            if (model.isInUse(i)) {
                ask(model.port(i));
                for (const Change& change : changes) {
                    if (change.port == ports.back()) {
                        model.setNumber(change.offset, 1, change.value);
                    }
                }
            }
        }
    }

    void ask(unsigned port) {
        ports.push_back(port);
        const Behaviour behaviour = behaviourOf(port);
        if (behaviour == Refuses) {
            return;
        }
        const bool isSent = behaviour != CannotBeSentTo;
        requests.emplace_back(isSent ? exitRequest : "");
        if (isSent) {
            const ResponseModel& response = responseOf(port);
            log += response.log;
            waits += response.waits;
            pauses += response.pauses;
        }
    }

    std::vector<unsigned> ports;
    std::vector<std::string> requests;
    std::string log;
    unsigned waits = 0;
    unsigned pauses = 0;
};

} // namespace

// The exit sweep over an arbitrary image of the table, which the clients change while it goes on. The input:
// a byte with the number of changes, each with an offset (two bytes), a value and the port of the client that
// makes it (two bytes); then the image (TableImage.h).
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    std::vector<Change> changes(input.byte() % 8);
    for (Change& change : changes) {
        change.offset = input.word() % sizeof(SharedVariables);
        change.value = input.byte();
        change.port = input.word();
    }
    TableModel model(takeImage(input));
    const auto table = std::make_unique<SharedVariables>(tableOf(model.image()));
    const Sweep expected(model, changes);
    (void)takeLog();

    Clients clients(*table, changes);
    ZNORBRESPONDER::exitAllClients(nullptr);
    require(clients.ports().empty(), "no table, no sweep");
    ZNORBRESPONDER::exitAllClients(table.get());

    requireEqual(clients.ports(), expected.ports, "the ports, in their order");
    std::vector<std::string> requests;
    for (const Peer& peer : clients.peers()) {
        requests.push_back(peer.taken());
    }
    requireEqual(requests, expected.requests, "the requests");
    requireEqual(takeLog(), expected.log, "log");
    requireEqual(clients.waits(), std::vector<unsigned>(expected.waits, 1800), "waits");
    requireEqual(clients.slept(), expected.pauses * 100'000UL, "microseconds slept");
    requireEqual(clients.openCount(), 0U, "sockets left open");
    require(isSame(*table, model), "the sweep leaves the table alone");
    return 0;
}
