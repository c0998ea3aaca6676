#include "tests/moments/TracedLife.h"

#include "tests/support/Files.h"
#include "tests/tracing/Execution.h"

#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace ZNORBMOMENTS {
namespace {

using namespace ZNORBTEST;

constexpr Milliseconds patience{2};

} // namespace

TracedLife::TracedLife(AtBoundary atBoundary, AtSignal atSignal)
    : m_atBoundary(std::move(atBoundary)), m_atSignal(std::move(atSignal)) {}

TracedLife::~TracedLife() {
    for (const auto& [role, file] : m_outputs) {
        (void)close(file);
    }
}

void TracedLife::launch(const std::string& role, const Launch& program, int input) {
    const int output = memfd_create("output", MFD_CLOEXEC);
    m_outputs[role] = output;
    const pid_t child = m_tracer.start([&]() { ZNORBTRACING::execute(program, input, output); });
    m_actors.push_back({.role = role, .pid = child});
    m_threads[child] = {.role = role, .actor = m_actors.size() - 1};
}

bool TracedLife::step() {
    wakeSleepers();
    TracedStop stop = m_tracer.next(patience);
    if (stop.kind == TracedStop::Kind::Nobody || stop.kind == TracedStop::Kind::Overdue) {
        if (stop.kind == TracedStop::Kind::Nobody) {
            (void)usleep(200); // whoever is waited for is traced no more
        }
        return false;
    }
    handle(stop);
    if (mustSleepOn(stop)) {
        m_sleepers.push_back(stop);
    } else {
        m_tracer.goOn(stop);
    }
    return true;
}

void TracedLife::handle(TracedStop& stop) {
    switch (stop.kind) {
    case TracedStop::Kind::Call:
        handleCall(stop);
        break;
    case TracedStop::Kind::Birth:
        adopt(stop);
        break;
    case TracedStop::Kind::Execution: {
        Thread& thread = m_threads.at(stop.thread);
        stop.isReleased = thread.isOurs;
        m_actors[thread.actor].isOther = thread.isOurs;
        if (thread.isOurs) {
            m_atSignal(thread.role, stop);
        }
        thread.isOurs = true;
        break;
    }
    case TracedStop::Kind::Signal:
        m_atSignal(m_threads.at(stop.thread).role, stop);
        break;
    case TracedStop::Kind::End:
        handleEnd(stop);
        break;
    default:
        break;
    }
}

void TracedLife::handleCall(TracedStop& stop) {
    Thread& thread = m_threads.at(stop.thread);
    if (!thread.isOurs || (!stop.call.isStart && thread.call == -1)) {
        return;
    }
    if (stop.call.isStart) {
        thread.call = stop.call.number;
        ++thread.counts[thread.call];
    }
    const Boundary boundary = {thread.role, thread.call, thread.counts[thread.call], stop.call.isStart};
    if (!stop.call.isStart) {
        if (std::exchange(thread.isFailing, false)) {
            setResult(stop.thread, thread.result);
        }
        thread.call = -1;
    }
    m_atBoundary(boundary, stop);
}

void TracedLife::handleEnd(const TracedStop& stop) {
    Actor& actor = m_actors[m_threads.at(stop.thread).actor];
    if (actor.pid == stop.thread) {
        actor.hasEnded = true;
        actor.waitStatus = stop.waitStatus;
    }
    m_threads.erase(stop.thread);
}

void TracedLife::adopt(const TracedStop& stop) {
    const Thread& parent = m_threads.at(stop.thread);
    Thread child = {.role = "responder", .actor = parent.actor, .isOurs = true};
    if (!stop.isThread) {
        child.role = parent.role == "responder" || parent.role == "main"
                         ? "launch " + std::to_string(++m_launches)
                     : parent.role == "invoking"     ? "intermediate"
                     : parent.role == "intermediate" ? "main"
                                                     : "child of " + parent.role;
        child.actor = m_actors.size();
        m_actors.push_back({.role = child.role, .pid = stop.child});
    }
    m_threads[stop.child] = std::move(child);
}

/// A stop that looks for the daemon's end every tenth of a second sleeps until that has come instead.
bool TracedLife::mustSleepOn(const TracedStop& stop) const {
    return stop.kind == TracedStop::Kind::Call && stop.call.isStart &&
           stop.call.number == SYS_clock_nanosleep && m_threads.at(stop.thread).role == "stop";
}

void TracedLife::wakeSleepers() {
    if (!isDaemonGone()) {
        return;
    }
    for (const TracedStop& stop : std::exchange(m_sleepers, {})) {
        failCall(stop, 0);
        m_tracer.goOn(stop);
    }
}

void TracedLife::failCall(const TracedStop& stop, int error) {
    skipCall(stop.thread);
    Thread& thread = m_threads.at(stop.thread);
    thread.isFailing = true;
    thread.result = -error;
}

const Actor* TracedLife::find(const std::string& role) const {
    const auto found = std::find_if(m_actors.begin(), m_actors.end(),
                                    [&role](const Actor& actor) { return actor.role == role; });
    return found == m_actors.end() ? nullptr : &*found;
}

pid_t TracedLife::threadOf(const std::string& role) const {
    const auto found = std::find_if(m_threads.begin(), m_threads.end(),
                                    [&role](const auto& entry) { return entry.second.role == role; });
    return found == m_threads.end() ? -1 : found->first;
}

pid_t TracedLife::processOf(const std::string& role) const {
    const pid_t thread = threadOf(role);
    return thread == -1 ? -1 : m_actors[m_threads.at(thread).actor].pid;
}

bool TracedLife::isDaemonGone() const {
    const Actor* invoking = find("invoking");
    const bool hasForked = invoking == nullptr || invoking->hasEnded || find("intermediate") != nullptr;
    return hasForked && std::all_of(m_actors.begin(), m_actors.end(), [](const Actor& actor) {
               const bool isVisitor = actor.role == "invoking" || actor.role == "stop";
               return isVisitor || actor.hasEnded || actor.isOther;
           });
}

bool TracedLife::isAlone(const std::string& role) const {
    return std::all_of(m_actors.begin(), m_actors.end(), [&role](const Actor& actor) {
        return actor.hasEnded || actor.isOther || actor.role == role;
    });
}

std::string TracedLife::output(const std::string& role) const {
    const auto found = m_outputs.find(role);
    return found == m_outputs.end() ? "" : contentOf(found->second);
}

} // namespace ZNORBMOMENTS
