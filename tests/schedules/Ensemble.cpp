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

Ensemble::~Ensemble() {
    for (const auto& [role, file] : m_outputs) {
        (void)close(file);
    }
}

void Ensemble::add(const std::string& role, pid_t child, bool isOurs) {
    m_participants[child] = {
        .role = role, .family = role, .thread = child, .process = child, .isOurs = isOurs};
    m_roles[role] = child;
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
        participant.isAsleep = !participant.isHeld;
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
        participant.shared = {.access = {Signals, 0}};
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
    noteSockets(participant);
    if (stop.call.number == SYS_clock_nanosleep) {
        participant.wakesAt = m_time + microsecondsOf(stop.thread, stop.call);
    }
    Access& access = participant.shared.access;
    access = {access.reads & m_objects, access.writes & m_objects};
    return (participant.shared.isFamilyAffair || !access.isNone()) && !isAgain;
}

bool Ensemble::doesHoldSocket(const Participant& participant) const {
    const auto process = m_participants.find(participant.process);
    return process == m_participants.end() || process->second.holdsSocket;
}

/// The end of a process that has none is nothing to those who are connected.
void Ensemble::noteSockets(Participant& participant) {
    const auto process = m_participants.find(participant.process);
    if (participant.call == SYS_socket && process != m_participants.end()) {
        process->second.holdsSocket = true;
    }
    if (participant.call == SYS_exit_group && !doesHoldSocket(participant)) {
        participant.shared.access.writes &= ~static_cast<unsigned>(Socket);
    }
}

bool Ensemble::takeCallsEnd(Participant& participant, const TracedStop& stop) {
    if (std::exchange(participant.isSkipping, false)) {
        setResult(stop.thread, 0);
    }
    const bool hasWaited = std::exchange(participant.isAsleep, false);
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

std::vector<const Participant*> Ensemble::held() const {
    std::vector<const Participant*> result;
    for (const auto& [thread, participant] : m_participants) {
        if (participant.isHeld) {
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
    if (participant.sleeps()) {
        m_time = std::max(m_time, participant.wakesAt);
        skipCall(thread);
        participant.isSkipping = true;
    }
    ++m_turns;
    participant.isHeld = false;
    m_tracer.goOn(participant.stop);
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
