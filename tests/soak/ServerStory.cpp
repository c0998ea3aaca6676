/// HTTP servers that mean no good, in the table in the place of a client: the daemon passes on to the next
/// one, or waits without working until it is terminated, as each of them deserves.

#include "tests/soak/Lives.h"
#include "tests/soak/Soak.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/LocalPort.h"
#include "tests/support/ProcessorTime.h"
#include "tests/support/SharedTable.h"

#include <unistd.h>

#include <csignal>
#include <optional>

namespace ZNORBSOAK {

using namespace ZNORBTEST;

namespace {

constexpr std::size_t requestSize = 58;
const std::string statusLine = "HTTP/1.0 200 OK\r\n";

enum class Outcome { Passes, Holds, Either };

struct Misbehaviour {
    const char* name;
    Outcome outcome;
    PeerScript (*script)(Part& part);
};

std::string headWith(const std::string& length) {
    return statusLine + "Content-Length: " + length + "\r\n\r\n";
}

PeerScript answering(const std::vector<std::string>& pieces) {
    return {requestSize, pieces};
}

PeerScript dripping(const std::vector<std::string>& pieces, Milliseconds pause) {
    return {requestSize, pieces, !holdOpen, pause, repeatLast};
}

PeerScript closeEarly(Part& part) {
    return {part.below(requestSize + 1), {}};
}

PeerScript resetEarly(Part& part) {
    return {part.below(requestSize + 1), {}, !holdOpen, Milliseconds(0), !repeatLast, !finishSending, reset};
}

PeerScript sendGarbage(Part& part) {
    const std::string garbage = part.randomBytes(1 + part.below(20000));
    return {part.below(2) * requestSize, {garbage}};
}

PeerScript dripHead(Part& part) {
    const std::string begin = statusLine.substr(0, 1 + part.below(10));
    return dripping({begin, "x"}, Milliseconds(10 + part.below(40)));
}

PeerScript sendEndlessHeader(Part& part) {
    const std::string some(1 + part.below(9000), 'a');
    return part.below(2) == 0 ? dripping({statusLine, "X-Name: value\r\n"}, Milliseconds(0))
                              : dripping({statusLine + "X-Name: ", some}, Milliseconds(0));
}

PeerScript sendWrongLines(Part& part) {
    static constexpr std::array<const char*, 8> answers = {
        "\r\n",         "\n", "HTTP/1.0 200 OK", "HTTP/1.0 200\n", "a\rb\r\n\r\n", "a\r\nb\rc\r\n\r\n",
        "a\r\n:\r\n\r", "\r"};
    return answering({answers[part.below(answers.size())]});
}

PeerScript stateNoLength(Part& part) {
    static constexpr std::array<const char*, 8> lengths = {"00", "-0", "+0", "abc", "7", "", "0x10", "  --5"};
    return answering({headWith(lengths[part.below(lengths.size())]) + std::string(part.below(100), 'x')});
}

PeerScript sendMoreThanStated(Part& part) {
    const unsigned length = 10 + part.below(5000);
    return answering({headWith(std::to_string(length)) + std::string(length + part.below(100000), 'x')});
}

PeerScript neverAnswer(Part& /*part*/) {
    return {requestSize, {}, holdOpen};
}

PeerScript sendLessThanStated(Part& part) {
    const unsigned length = 10 + part.below(1000000);
    return {requestSize, {headWith(std::to_string(length)) + std::string(part.below(length), 'x')}, holdOpen};
}

PeerScript closeInTheBody(Part& part) {
    PeerScript script = sendLessThanStated(part);
    script.holdOpen = part.below(2) == 0;
    script.finishSending = script.holdOpen;
    return script;
}

PeerScript resetInTheBody(Part& part) {
    PeerScript script = sendLessThanStated(part);
    script.holdOpen = false;
    script.pause = Milliseconds(part.below(50));
    script.reset = true;
    return script;
}

PeerScript dripBody(Part& part) {
    const std::string head = headWith(std::to_string(1000000 + part.below(1000000)));
    return dripping({head, "x"}, Milliseconds(20 + part.below(30)));
}

/// Where there is no memory for so much the daemon passes on, else it waits.
PeerScript stateGiantLength(Part& part) {
    static constexpr std::array<const char*, 7> lengths = {
        "4294967295",           "-1", "-10000", "2147483648", "99999999999999999999", "+4000000000",
        "-99999999999999999999"};
    return {requestSize, {headWith(lengths[part.below(lengths.size())]) + "x"}, holdOpen};
}

constexpr std::array<Misbehaviour, 14> misbehaviours = {{
    {"early close", Outcome::Passes, closeEarly},
    {"never answers", Outcome::Holds, neverAnswer},
    {"early reset", Outcome::Passes, resetEarly},
    {"drips its body", Outcome::Holds, dripBody},
    {"garbage", Outcome::Passes, sendGarbage},
    {"closes in its body", Outcome::Holds, closeInTheBody},
    {"drips its head", Outcome::Passes, dripHead},
    {"sends less than stated", Outcome::Holds, sendLessThanStated},
    {"endless header", Outcome::Passes, sendEndlessHeader},
    {"giant or negative length", Outcome::Either, stateGiantLength},
    {"wrong lines", Outcome::Passes, sendWrongLines},
    {"no length to speak of", Outcome::Passes, stateNoLength},
    {"sends more than stated", Outcome::Passes, sendMoreThanStated},
    {"resets in its body", Outcome::Passes, resetInTheBody},
}};

/// A daemon with a misbehaving server in entry 0 and a good one in entry 1, and its way to the end.
class Life {
public:
    Life(Part& part, DaemonDriver& driver, std::uint16_t hostilePort)
        : m_part(part), m_driver(driver), m_good(answering({statusLine + "\r\n"})) {
        m_isServing = part.expect(driver.startServing(), "the daemon did not serve") &&
                      part.expect(enterClient(0, hostilePort) && enterClient(1, m_good.port()), "no table");
        m_quit.emplace(LocalConnection::toPath(socketPath));
        part.expect(m_isServing && m_quit->send("QUIT"), "QUIT cannot be sent");
    }

    bool hasPassed() const { return m_good.waitForServed(1, Milliseconds(0)); }

    void expectToPass() {
        m_part.expect(m_good.waitForServed(1), "the next client was not asked to exit");
        m_part.expect(m_good.received().size() == 1 && m_good.received()[0].size() == requestSize,
                      "the next client got another request");
        m_part.expect(m_quit->receiveUntilClosed() == "0", "QUIT was not answered");
        m_part.expect(m_driver.waitForDaemon() == exitedWith(255), "the daemon's status was not 255");
        m_part.note("passed over");
    }

    void expectToWait() {
        const ProcessorUse use =
            watchProcessor(m_driver.daemon(), Milliseconds(m_part.isFull() ? 3000 : 1500));
        if (hasPassed()) { // there was no memory for what the server has announced
            expectToPass();
            return;
        }
        m_part.expect(use.isWaiting(), "the daemon used " + std::to_string(use.used.count() / 1000000) +
                                           " ms of the processor while it waited");
        m_part.noteHighest("at most per mille of a core while waiting",
                           static_cast<unsigned long>(1000 * use.used / use.watched));
        m_part.expect(kill(m_driver.daemon(), SIGTERM) == 0, "the daemon is gone");
        m_part.expect(m_driver.waitForDaemon() == exitedWith(10), "the status after SIGTERM was not 10");
        m_part.note("waited for, then terminated");
        (void)unlink(tableFile);
    }

private:
    Part& m_part;
    DaemonDriver& m_driver;
    const ListeningPeer m_good;
    std::optional<LocalConnection> m_quit;
    bool m_isServing = false;
};

void meetServer(Part& part, DaemonDriver& driver, const Misbehaviour& misbehaviour) {
    const ListeningPeer hostile(misbehaviour.script(part));
    Life life(part, driver, hostile.port());
    if (misbehaviour.outcome == Outcome::Passes) {
        life.expectToPass();
        return;
    }
    part.expect(hostile.waitForServed(1), "the server was not asked");
    life.expectToWait();
    part.expect(misbehaviour.outcome == Outcome::Either || hostile.received().size() == 1,
                "the server was asked more than once");
}

/// Refuses, or takes connections that nobody accepts.
void meetSilentPort(Part& part, DaemonDriver& driver, bool listens) {
    const LocalPort port(listens);
    Life life(part, driver, port.number());
    if (listens) {
        life.expectToWait();
    } else {
        life.expectToPass();
    }
}

} // namespace

void askHostileServers(Part& part) {
    DaemonDriver driver;
    const std::size_t kinds = misbehaviours.size() + 2;
    for (unsigned long round = 0; round < part.rounds(); ++round) {
        part.countRound();
        // All kinds in turn, over all parts.
        const std::size_t kind = (part.index() * part.rounds() + round) % kinds;
        if (kind < misbehaviours.size()) {
            meetServer(part, driver, misbehaviours[kind]);
            part.note(misbehaviours[kind].name);
        } else {
            meetSilentPort(part, driver, kind == misbehaviours.size());
            part.note(kind == misbehaviours.size() ? "never accepts" : "refuses");
        }
    }
}

} // namespace ZNORBSOAK
