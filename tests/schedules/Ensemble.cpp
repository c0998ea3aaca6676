#include "tests/schedules/Ensemble.h"

#include "tests/sandbox/Processes.h"
#include "tests/support/Files.h"
#include "tests/tracing/Execution.h"

#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <utility>

namespace ZNORBSCHEDULES {
namespace {

using namespace ZNORBTEST;
using Kind = TracedStop::Kind;
using Clock = std::chrono::steady_clock;

/// The kernel's own: a call that a signal has interrupted and that is to be made again.
constexpr long firstRestart = -516;
constexpr long lastRestart = -512;

std::string childsRole(const Participant& parent, unsigned number) {
    if (parent.role == parent.family) {
        return parent.family + " fork";
    }
    if (parent.role == parent.family + " fork") {
        return parent.family + " daemon";
    }
    return (parent.isProcess() ? parent.role : parent.family) + " launch " + std::to_string(number);
}

std::uint64_t microsecondsOf(pid_t thread, const StoppedCall& call) {
    const std::uint64_t request = call.arguments[2]; // a timespec
    return readWord(thread, request) * 1'000'000 + readWord(thread, request + 8) / 1'000;
}

} // namespace

bool Participant::sleeps() const {
    return stop.kind == Kind::Call && stop.call.isStart && stop.call.number == SYS_clock_nanosleep;
}

bool Participant::isMain() const {
    return isProcess() && role == family + " daemon";
}

Objects Participant::memory() const {
    Objects result = {"memory of " + std::to_string(process)};
    if (role == family || (isMain() && !hasWaited)) {
        (void)result.insert("barrier of " + family);
    }
    return result;
}

Ensemble::~Ensemble() {
    for (const auto& [role, file] : m_outputs) {
        (void)close(file);
    }
}

void Ensemble::add(const std::string& role, pid_t child, bool isOurs) {
    m_participants[child] = {
        .role = role, .family = role, .thread = child, .process = child, .isOurs = isOurs};
    m_roles[role] = child;
    m_connections.add(child, role);
}

void Ensemble::launch(const std::string& role, const Launch& program) {
    const int output = m_outputs[role] = memfd_create("output", MFD_CLOEXEC);
    add(role, m_tracer.start([&]() { ZNORBTRACING::execute(program, -1, output); }), false);
}

void Ensemble::play(const std::string& role, const std::function<void()>& body) {
    const int output = m_outputs[role] = memfd_create("output", MFD_CLOEXEC);
    const auto play = [&]() {
        (void)dup2(output, STDOUT_FILENO);
        body();
    };
    add(role, m_tracer.start(play), true);
}

void Ensemble::setFree(bool isFree) {
    m_isFree = isFree;
    for (auto& [thread, participant] : m_participants) {
        if (isFree && participant.isHeld) {
            participant.isHeld = false;
            m_tracer.goOn(participant.stop);
        }
    }
}

bool Ensemble::settle() {
    const Clock::time_point end = Clock::now() + usualBound;
    while (Clock::now() < end) {
        TracedStop stop = m_tracer.next(mayAllWait() ? Milliseconds(0) : Milliseconds(1));
        if (stop.kind == Kind::Overdue && areAtRest()) {
            stop = m_tracer.next(Milliseconds(0)); // what has come up while the others were looked at
            if (stop.kind == Kind::Overdue) {
                noteWaiting();
                return true;
            }
        }
        if (stop.kind == Kind::Nobody) {
            noteWaiting();
            return true;
        }
        if (stop.kind != Kind::Overdue) {
            take(stop);
        }
    }
    return false;
}

/// Else somebody is bound to come to another stop.
bool Ensemble::mayAllWait() const {
    return std::all_of(m_participants.begin(), m_participants.end(),
                       [](const auto& entry) { return entry.second.isHeld || canWaitIn(entry.second.call); });
}

bool Ensemble::areAtRest() {
    const bool doAllWait =
        mayAllWait() && std::all_of(m_participants.begin(), m_participants.end(), [](const auto& entry) {
            return entry.second.isHeld || stateOf(entry.first) == 'S';
        });
    return (doAllWait || !mayAllWait()) && !releaseEnded() && doAllWait;
}

/// Those who were held when their process ended. Whether there are any.
bool Ensemble::releaseEnded() {
    bool result = false;
    for (auto& [thread, participant] : m_participants) {
        if (participant.isHeld && stateOf(thread) != 't') {
            participant.isHeld = false;
            m_tracer.goOn(participant.stop);
            result = true;
        }
    }
    return result;
}

void Ensemble::noteWaiting() {
    for (auto& [thread, participant] : m_participants) {
        const bool isBefore = participant.stop.kind == Kind::Call && participant.stop.call.isStart;
        participant.isAsleep = !participant.isHeld;
        participant.hasWaited = participant.hasWaited || participant.isAsleep;
        participant.isBlocked =
            participant.isHeld && isBefore && !isReady(participant.shared, participant.process);
    }
}

void Ensemble::take(TracedStop& stop) {
    if (stop.kind == Kind::End) {
        end(stop);
        return;
    }
    Participant& participant = m_participants.at(stop.thread);
    bool isBoundary = false;
    switch (stop.kind) {
    case Kind::Start:
        isBoundary = true;
        participant.place = "its start";
        break;
    case Kind::Birth:
        adopt(participant, stop);
        break;
    case Kind::Execution:
        if (takeExecution(participant, stop)) {
            return;
        }
        break;
    case Kind::Signal:
        isBoundary = stop.signal != 0 && stop.signal != SIGCHLD;
        participant.place = "the signal's handler";
        participant.shared = {.access = {{}, {lockCount}}};
        break;
    default:
        isBoundary = takeCall(participant, stop);
    }
    participant.isHeld = isBoundary && !m_isFree && !participant.isPassing;
    participant.stop = stop;
    participant.heldSince = m_turns;
    if (!participant.isHeld) {
        m_tracer.goOn(stop);
    }
}

bool Ensemble::takeCall(Participant& participant, const TracedStop& stop) {
    return stop.call.isStart ? takeCallsStart(participant, stop) : takeCallsEnd(participant, stop);
}

bool Ensemble::takeCallsStart(Participant& participant, const TracedStop& stop) {
    const bool isAgain = std::exchange(participant.isRestarting, false);
    participant.call = stop.call.number;
    participant.shared = participant.isOurs ? examine(stop.thread, stop.call) : SharedCall();
    participant.place = participant.shared.place;
    const pid_t lookedAt = participant.shared.lookedAt;
    if (lookedAt == participant.process || (lookedAt != 0 && !m_participants.contains(lookedAt))) {
        participant.shared = {.place = participant.place}; // nobody there changes anything
    }
    noteSockets(participant);
    if (stop.call.number == SYS_clock_nanosleep) {
        participant.wakesAt = m_time + microsecondsOf(stop.thread, stop.call);
    }
    m_connections.resolve(participant.shared, participant.process, stop.call);
    const bool isBoundary =
        participant.shared.isMemorysAffair || !relevant(participant.shared.access).isNone();
    return isBoundary && !isAgain;
}

bool Ensemble::doesHoldSocket(const Participant& participant) const {
    const auto process = m_participants.find(participant.process);
    return process == m_participants.end() || process->second.holdsSocket;
}

/// The end of a daemon that has some closes them. Requesters have closed theirs before, and what a client
/// inherits the daemon has shut down or is going to: nobody notices its execution.
void Ensemble::noteSockets(Participant& participant) {
    const auto process = m_participants.find(participant.process);
    if (participant.call == SYS_socket && process != m_participants.end()) {
        process->second.holdsSocket = true;
    }
    const bool isDaemons = participant.role != participant.family;
    if (participant.call == SYS_exit_group && isDaemons && doesHoldSocket(participant)) {
        participant.shared.access.writes.merge(Objects{listener, queuesHead, allConnections});
    }
}

/// Beside what its call tells: main lets go of the lock without one, and a signal may come between any two
/// steps of the old daemon's. A process at its start has no memory yet that others know; but it is there
/// then.
Access Ensemble::accessOf(const Participant& participant) const {
    if (participant.stop.kind == Kind::Start && participant.isProcess()) {
        return relevant({{}, {processList}});
    }
    const bool isBehind = participant.stop.kind == Kind::Call && !participant.stop.call.isStart;
    Access access = isBehind ? participant.shared.behind : participant.shared.access;
    access.add({{sleepersClock}, participant.memory()});
    if (participant.isMain()) {
        (void)access.writes.insert(lockCount);
    }
    if (participant.family == "old") {
        (void)access.reads.insert(pendingSignals);
    }
    return relevant(m_connections.withQueue(access));
}

Access Ensemble::relevant(Access access) const {
    for (const std::string& object : m_ignored) {
        (void)access.reads.erase(object);
        (void)access.writes.erase(object);
    }
    return access;
}

bool Ensemble::isPrivate(const Participant& participant) const {
    const Objects memory = participant.memory();
    Access access = accessOf(participant);
    (void)access.reads.erase(sleepersClock);
    const bool isSeen = std::any_of(m_participants.begin(), m_participants.end(), [&](const auto& entry) {
        const Participant& other = entry.second;
        const bool doesWait = other.isAsleep && other.call == SYS_futex;
        return other.thread != participant.thread && !doesWait &&
               !areIndependent(access, {other.memory(), {}});
    });
    for (const std::string& object : memory) {
        (void)access.writes.erase(object);
    }
    return access.isNone() && !isSeen && !participant.sleeps();
}

bool Ensemble::takeCallsEnd(Participant& participant, const TracedStop& stop) {
    if (std::exchange(participant.isSkipping, false)) {
        setResult(stop.thread, 0);
    }
    const bool hasWaited = std::exchange(participant.isAsleep, false);
    m_connections.noteEnd(participant.shared, participant.process, participant.call, stop.call.result);
    participant.isRestarting = stop.call.result >= firstRestart && stop.call.result <= lastRestart;
    participant.place = "behind " + participant.shared.place;
    return participant.isOurs && !participant.isRestarting &&
           (hasWaited || participant.shared.isBoundaryBehind);
}

/// Whether it has become a program that is nobody of ours.
bool Ensemble::takeExecution(Participant& participant, TracedStop& stop) {
    if (!std::exchange(participant.isOurs, true)) {
        return false;
    }
    m_endings[participant.role] = {.isAnotherProgram = true};
    stop.isReleased = true;
    m_tracer.goOn(stop);
    m_participants.erase(stop.thread);
    return true;
}

void Ensemble::adopt(Participant& parent, const TracedStop& stop) {
    Participant child = {.role = parent.family + " responder", .family = parent.family, .thread = stop.child};
    child.isOurs = true;
    child.process = stop.isThread ? parent.process : stop.child;
    child.holdsSocket = doesHoldSocket(parent);
    if (!stop.isThread) {
        child.role = childsRole(parent, ++parent.children);
        child.isPassing = parent.role == parent.family;
    }
    m_roles[child.role] = stop.child;
    m_participants[stop.child] = child;
}

void Ensemble::end(const TracedStop& stop) {
    const Participant& participant = m_participants.at(stop.thread);
    if (participant.isProcess()) {
        m_endings[participant.role] = {.waitStatus = stop.waitStatus};
    }
    m_participants.erase(stop.thread);
    m_tracer.goOn(stop);
}

bool Ensemble::isEnabled(const Participant& participant) {
    const bool looksAgain =
        participant.sleeps() && !participant.hasNews && participant.role != participant.family;
    return participant.isHeld && !participant.isBlocked && !looksAgain;
}

std::vector<const Participant*> Ensemble::enabled() const {
    std::vector<const Participant*> result;
    for (const auto& [thread, participant] : m_participants) {
        if (isEnabled(participant)) {
            result.push_back(&participant);
        }
    }
    std::sort(result.begin(), result.end(),
              [](const Participant* one, const Participant* other) { return one->role < other->role; });
    return result;
}

void Ensemble::goOn(const std::string& role) {
    const pid_t thread = m_roles.at(role);
    Participant& participant = m_participants.at(thread);
    noteNews(participant);
    if (participant.sleeps()) {
        m_time = std::max(m_time, participant.wakesAt);
        skipCall(thread);
        participant.isSkipping = true;
    }
    ++m_turns;
    participant.isHeld = false;
    m_tracer.goOn(participant.stop);
}

/// To those who have looked at what it may change in its next step. Whoever sleeps looks at it again then.
void Ensemble::noteNews(Participant& participant) {
    Access access = accessOf(participant);
    (void)access.reads.erase(sleepersClock);
    (void)access.writes.erase(sleepersClock);
    for (auto& [thread, other] : m_participants) {
        const bool isNews = thread != participant.thread && !areIndependent({other.watched, {}}, access);
        other.hasNews = other.hasNews || isNews;
    }
    if (participant.sleeps()) {
        participant.hasNews = false;
        participant.watched.clear();
    }
    participant.watched.merge(access.reads);
    participant.watched.merge(access.writes);
}

const Participant* Ensemble::find(const std::string& role) const {
    const auto known = m_roles.find(role);
    const auto found = known == m_roles.end() ? m_participants.end() : m_participants.find(known->second);
    return found == m_participants.end() ? nullptr : &found->second;
}

pid_t Ensemble::processOf(const std::string& role) const {
    return find(role) == nullptr ? -1 : m_roles.at(role);
}

std::vector<std::string> Ensemble::processes() const {
    std::vector<std::string> result;
    for (const auto& [thread, participant] : m_participants) {
        if (participant.isProcess()) {
            result.push_back(participant.role);
        }
    }
    std::sort(result.begin(), result.end());
    return result;
}

std::string Ensemble::report() const {
    std::string text;
    for (const auto& [thread, participant] : m_participants) {
        text += (text.empty() ? "" : ", ") + participant.role + (participant.isHeld ? " held " : " free ") +
                stateOf(thread) + " at " + participant.place;
    }
    return text;
}

std::string Ensemble::output(const std::string& role) const {
    const auto found = m_outputs.find(role);
    return found == m_outputs.end() ? "" : contentOf(found->second);
}

} // namespace ZNORBSCHEDULES
