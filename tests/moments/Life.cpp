#include "tests/moments/Life.h"

#include "tests/sandbox/Processes.h"
#include "tests/support/Files.h"
#include "tests/support/Names.h"
#include "tests/support/PlayedDaemon.h"
#include "tests/support/SharedTable.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <iterator>
#include <set>
#include <utility>

namespace ZNORBMOMENTS {
namespace {

using namespace ZNORBTEST;
using Clock = std::chrono::steady_clock;

constexpr const char* socketFile = "/run/znorb.socket";
constexpr const char* tools = ZNORB_TOOLS "/";

/// For what takes milliseconds on a machine that is not busy; used up only by what does not happen at all.
constexpr Milliseconds bound{10000};

std::string inWords(const std::string& name) {
    const std::string unnamed = "/dev/shm/sem.";
    return name == socketFile                                               ? "socket"
           : name == tableFile                                              ? "table"
           : name == lockFile                                               ? "lock"
           : name.starts_with(unnamed) && name.size() == unnamed.size() + 6 ? "unnamed lock"
           : name == "/run/znorb-clean.lock"                                ? "turn"
                                                                            : name;
}

std::string inWords(int waitStatus) {
    return WIFSIGNALED(waitStatus) ? std::string("SIG") + sigabbrev_np(WTERMSIG(waitStatus))
                                   : "status " + std::to_string(WEXITSTATUS(waitStatus));
}

Launch tool(const std::string& name, const DaemonDriver& driver) {
    Launch result;
    result.program = tools + name;
    result.arguments = {"-e", driver.program()};
    return result;
}

std::string onOneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    return text;
}

} // namespace

std::string describe(Story story) {
    return std::find_if(std::begin(stories), std::end(stories),
                        [story](const StoryName& row) { return row.story == story; })
        ->name;
}

bool Surroundings::include(const Surroundings& other) const {
    return (hasConnection || !other.hasConnection) && (hasTable || !other.hasTable) &&
           (hasLock || !other.hasLock) && (hasClient || !other.hasClient) &&
           (isStopping || !other.isStopping) && (hasThread || !other.hasThread);
}

Life::Life(Story story, AtBoundary atBoundary, AtSignal atSignal)
    : m_story(story),
      m_traced(
          [this, atBoundary](const Boundary& boundary, TracedStop& stop) {
              lookForLock();
              atBoundary(*this, boundary, stop);
          },
          [this, atSignal](const std::string& role, TracedStop& stop) { atSignal(*this, role, stop); }) {}

Life::~Life() {
    if (m_keys != -1) {
        (void)close(m_keys);
    }
}

Observation Life::run() {
    prepare();
    play();
    awaitEnds();
    observe();
    observeNext();
    return std::move(m_seen);
}

/// What comes before the part of the life that is looked at.
void Life::prepare() {
    if (m_story == Story::Clean || m_story == Story::Wait) {
        // The tools look at all that listens: at the daemons of other lives as well, were these not
        // elsewhere.
        (void)unshare(CLONE_NEWNET);
        (void)m_driver.startServing();
    }
    if (m_story == Story::Clean) {
        (void)kill(m_driver.daemon(), SIGKILL);
        (void)m_driver.waitForDaemon();
        while (waitpid(-1, nullptr, 0) > 0) { // or a cleaner would meet them in one life and not in another
        }
    }
}

/// A handle of our own, from the first moment that there is a lock. The recovery must not meet one.
void Life::lookForLock() {
    if (!m_lock.has_value() && m_story != Story::Clean && exists(lockFile)) {
        m_lock.emplace(daemonLock);
    }
}

std::vector<Life::Step> Life::stepsOf(Story story) {
    switch (story) {
    case Story::Quit:
        return {launch("invoking", m_driver.launch({"-d"})),
                awaitStart(),
                request("PRINT", "reply to 1st PRINT"),
                request("GET|en|60", "reply to 1st GET"),
                awaitClient(0, "reply to 1st GET"),
                request("GET|de|60", "reply to 2nd GET"),
                awaitClient(1, "reply to 2nd GET"),
                request("PRINT", "reply to 2nd PRINT"),
                request("QUIT", "reply to QUIT")};
    case Story::Stop:
        return {
            launch("invoking", m_driver.launch({"-d"})), awaitStart(), request("PRINT", "reply to 1st PRINT"),
            launch("stop", m_driver.launch({"-stop"})),  awaitStop(),  request("QUIT", "QUIT after it")};
    case Story::Test:
        return {launch("test", m_driver.launch({"-test"})), request("PRINT", "reply to 1st PRINT"),
                press("pq\n")};
    case Story::Clean:
        return {launch("clean", tool("znorb-clean", m_driver))};
    case Story::Wait:
        return {launch("wait", tool("znorb-wait", m_driver))};
    }
    return {};
}

Life::Step Life::launch(const std::string& role, const Launch& program) {
    return [this, role, program]() {
        int input[2] = {-1, -1};
        if (role == "test") {
            (void)socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, input);
            m_keys = input[1];
        }
        m_traced.launch(role, program, input[0]);
        if (input[0] != -1) {
            (void)close(input[0]);
        }
        return true;
    };
}

/// Before the first request: so every life's requests come at the same time.
Life::Step Life::awaitStart() {
    return [this]() { return m_traced.find("invoking")->hasEnded || m_traced.isDaemonGone(); };
}

bool Life::connect(const std::string& text) {
    m_connection = std::make_unique<LocalConnection>(LocalConnection::toPath(socketFile));
    if (!m_connection->isConnected()) {
        m_connection.reset();
        return false;
    }
    m_reply.clear();
    return m_connection->send(text);
}

/// A stop that fails leaves the daemon to the next step; one that does not, nobody.
Life::Step Life::awaitStop() {
    return [this]() {
        const bool hasEnded = m_traced.find("stop")->hasEnded;
        const bool hasStopped = m_traced.output("stop").find("has stopped") != std::string::npos;
        return m_traced.isDaemonGone() || (hasEnded && !hasStopped);
    };
}

/// Tries to connect until there is somebody, and takes the reply as it comes.
Life::Step Life::request(const std::string& text, const std::string& name) {
    return [this, text, name]() {
        if (std::exchange(m_hasGivenUp, false)) {
            m_connection.reset();
            m_seen[name] = "given up";
            return true;
        }
        if (m_connection == nullptr && !connect(text)) {
            m_seen[name] = "no connection";
            return m_traced.isDaemonGone();
        }
        char bytes[64];
        const ssize_t length = recv(m_connection->descriptor(), bytes, sizeof bytes, MSG_DONTWAIT);
        m_reply.append(bytes, length > 0 ? static_cast<std::size_t>(length) : 0);
        const bool isOver = length == 0 || (length == -1 && errno != EAGAIN);
        if (isOver) {
            m_seen[name] = m_reply.empty() ? "none" : m_reply;
            m_connection.reset();
        }
        return isOver;
    };
}

Life::Step Life::awaitClient(unsigned index, const std::string& reply) {
    const std::string launched = "launch " + std::to_string(index + 1);
    const std::string name = "client " + std::to_string(index + 1);
    return [this, index, reply, launched, name]() {
        const std::optional<znorb_shared_table> table = readSharedTable();
        const bool hasRegistered = table.has_value() && table->entries[index].port != 0;
        const Actor* child = m_traced.find(launched);
        const bool isToCome =
            child == nullptr && answer(m_seen, reply) == "given up"; // it is launched all the same
        const bool hasEnded =
            child == nullptr || child->hasEnded || (child->isOther && programOf(child->pid).empty());
        const bool hasLostTable = child != nullptr && child->isOther && !table.has_value();
        const bool isHopeless = (hasEnded && !isToCome) || hasLostTable || m_traced.isDaemonGone();
        m_seen[name] = hasRegistered ? "registered" : "not registered";
        return hasRegistered || isHopeless;
    };
}

Life::Step Life::press(const std::string& keys) {
    return [this, keys]() {
        (void)send(m_keys, keys.data(), keys.size(), MSG_NOSIGNAL);
        return true;
    };
}

Surroundings Life::surroundings() const {
    const std::optional<znorb_shared_table> table = readSharedTable();
    return {.hasConnection = m_connection != nullptr,
            .hasTable = exists(tableFile),
            .hasLock = exists(lockFile),
            .hasClient = table.has_value() && table->entries[0].port != 0,
            .isStopping = m_traced.find("stop") != nullptr,
            .hasThread = m_traced.threadOf("responder") != -1};
}

void Life::closeConnection() {
    m_connection.reset();
    m_hasGivenUp = true;
}

void Life::shutConnection() {
    (void)shutdown(m_connection->descriptor(), SHUT_RDWR);
    m_hasGivenUp = true;
}

void Life::truncateTable() {
    (void)resizeSharedTable(0);
}

void Life::removeLock() {
    (void)unlink(lockFile);
}

void Life::killClient() const {
    (void)kill(m_traced.find("launch 1")->pid, SIGKILL);
}

bool Life::goOnUntil(const std::function<bool()>& condition, Milliseconds limit) {
    const Clock::time_point end = Clock::now() + limit;
    while (!condition()) {
        if (!m_traced.step() && Clock::now() >= end) {
            return false;
        }
    }
    return true;
}

void Life::play() {
    unsigned number = 0;
    for (const Step& step : stepsOf(m_story)) {
        ++number;
        if (!goOnUntil(step, bound)) {
            m_seen["story"] = "HANGS in step " + std::to_string(number);
        }
    }
}

bool Life::haveAllEnded() const {
    return m_traced.isAlone("");
}

/// The invoking process waits without a bound for a daemon that has not come to be ready: as soon as nobody
/// else is left, and it waits, it will for ever.
bool Life::isForEver() const {
    const Actor* invoking = m_traced.find("invoking");
    return invoking != nullptr && !invoking->hasEnded && m_traced.isAlone("invoking") &&
           stateOf(invoking->pid) == 'S';
}

void Life::awaitEnds() {
    (void)goOnUntil([this]() { return haveAllEnded() || isForEver(); }, bound);
    for (const int signal : {SIGTERM, SIGKILL}) {
        for (const Actor& actor : m_traced.actors()) {
            if (actor.hasEnded || actor.isOther) {
                continue;
            }
            const bool isWaiting = actor.role == "invoking" && isForEver();
            m_needed[actor.role] = isWaiting           ? "waits for ever, "
                                   : signal == SIGTERM ? "NO END, "
                                                       : "HANGS, ";
            (void)kill(actor.pid, isWaiting ? SIGKILL : signal);
        }
        (void)goOnUntil([this]() { return haveAllEnded(); }, bound);
    }
}

void Life::observe() {
    for (const Actor& actor : m_traced.actors()) {
        m_seen[actor.role] = m_needed[actor.role] + (actor.isOther    ? "becomes the client"
                                                     : actor.hasEnded ? inWords(actor.waitStatus)
                                                                      : "NO END");
    }
    for (const std::string role : {"invoking", "stop", "test", "clean", "wait"}) {
        if (m_traced.find(role) != nullptr) {
            m_seen[role + " says"] = onOneLine(m_traced.output(role));
        }
    }
    if (m_story == Story::Wait) {
        m_seen["reply to QUIT"] = askDaemon("QUIT").value_or("none");
        m_seen["daemon"] = m_driver.waitForDaemon() == exitedWith(255) ? "status 255" : "ANOTHER END";
    }
    if (m_story == Story::Quit) {
        const bool areAsked =
            answer(m_seen, "main") == "status 255" && answer(m_seen, "reply to QUIT") != "none";
        (void)waitUntil([this]() { return m_driver.clients().empty(); },
                        areAsked ? Milliseconds(300) : Milliseconds(0));
        m_seen["clients left"] = std::to_string(m_driver.clients().size());
    }
    m_seen["count"] = m_lock.has_value() ? std::to_string(m_lock->count()) : "no lock";
    m_lock.reset();
    std::set<std::string> names;
    for (const std::string& name : m_driver.newNames()) {
        (void)names.insert(inWords(name));
    }
    std::string& left = m_seen["left"];
    for (const std::string& name : names) {
        left += (left.empty() ? "" : ", ") + name;
    }
    left += left.empty() ? "nothing" : "";
}

std::string Life::tryNext() {
    const bool hasStarted = m_driver.start();
    if (!hasStarted) {
        return m_driver.startResult().end == exitedWith(2) ? "refused" : "NOT STARTED";
    }
    (void)waitUntil(
        [this]() {
            return askDaemon("PRINT") == "0" || m_driver.waitForDaemon(Milliseconds(0)) != stillRunning();
        },
        bound);
    if (m_driver.waitForDaemon(Milliseconds(0)) == stillRunning()) {
        (void)askDaemon("QUIT");
        return m_driver.waitForDaemon(bound) == exitedWith(255) ? "serves" : "HANGS";
    }
    return m_driver.waitForDaemon() == exitedWith(255) ? "fails" : "CRASHES";
}

/// What an administrator meets who starts the daemon, once more if it fails, and after a refusal cleans up.
void Life::observeNext() {
    for (const pid_t client : m_driver.clients()) {
        (void)kill(client, SIGKILL);
    }
    (void)waitUntil([this]() { return m_driver.clients().empty(); });
    std::string& next = m_seen["next"];
    for (int attempt = 0; attempt < 3; ++attempt) {
        const std::string result = tryNext();
        next += (next.empty() ? "" : ", ") + result;
        if (result == "serves") {
            return;
        }
        if (result == "refused") {
            next += runProgram(tool("znorb-clean", m_driver)).end == exitedWith(0) ? ", cleaned"
                                                                                   : ", NOT CLEANED";
        }
    }
}

} // namespace ZNORBMOMENTS
