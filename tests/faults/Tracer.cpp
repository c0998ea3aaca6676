#include "tests/faults/Tracer.h"

#include "tests/sandbox/Processes.h"
#include "tests/tracing/SystemCalls.h"
#include "tests/tracing/Words.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace ZNORBFAULTS {
namespace {

using namespace ZNORBTRACING;
using namespace ZNORBTEST;

constexpr Milliseconds longestSilence{120000}; // a patient life waits for more than a minute

} // namespace

void Tracer::report(const std::vector<std::string>& words) const {
    const std::string whole = joined(words, "\t") + "\n";
    (void)!write(m_report, whole.data(), whole.size());
}

void Tracer::follow(pid_t first, const std::string& role) {
    Thread& thread = m_threads[first];
    thread.process = std::make_shared<Process>();
    thread.process->leader = first;
    thread.process->role = role;
    thread.role = role;
    report({"start", role, std::to_string(first)});
    SystemCallTracer tracer;
    tracer.add(first);
    (void)tracer.follow([this](TracedStop& stop) { handle(stop); }, longestSilence);
}

void Tracer::handle(TracedStop& stop) {
    switch (stop.kind) {
    case TracedStop::Kind::Call:
        handleCall(stop);
        break;
    case TracedStop::Kind::Birth:
        adopt(stop.child, m_threads.at(stop.thread), stop.isThread);
        break;
    case TracedStop::Kind::Execution:
        stop.isReleased = letsGo(stop.thread);
        break;
    case TracedStop::Kind::End:
        handleEnd(stop);
        break;
    default:
        break;
    }
}

void Tracer::handleEnd(const TracedStop& stop) {
    const Process& process = *m_threads.at(stop.thread).process;
    if (process.leader == stop.thread) {
        report({"end", process.role, std::to_string(stop.thread), std::to_string(stop.waitStatus),
                std::to_string(stop.milliseconds)});
    }
    m_threads.erase(stop.thread);
}

void Tracer::adopt(pid_t child, const Thread& parent, bool isThread) {
    Thread thread;
    if (isThread) {
        thread.process = parent.process;
        thread.role = "responder";
        report({"thread", parent.process->role, std::to_string(parent.process->leader)});
    } else {
        thread.process = std::make_shared<Process>(*parent.process);
        thread.process->leader = child;
        thread.role = parent.role == "responder"      ? "launch " + std::to_string(++parent.process->launches)
                      : parent.role == "intermediate" ? "main"
                      : parent.role == "invoking"     ? "intermediate"
                                                      : "child of " + parent.role;
        thread.process->role = thread.role;
        report({"start", thread.role, std::to_string(child)});
    }
    m_threads[child] = std::move(thread);
}

bool Tracer::letsGo(pid_t thread) {
    Thread& former = m_threads.at(thread);
    const std::string program = programOf(thread);
    if (former.process->program.empty() || program == former.process->program) {
        former.process->program = program;
        return false;
    }
    if (m_recordsCalls && former.call != nullptr) { // the one call whose end is never seen
        endCall(thread, former, 0);
    }
    report({"exec", former.role, program});
    m_threads.erase(thread);
    return true;
}

void Tracer::handleCall(const TracedStop& stop) {
    Thread& thread = m_threads.at(stop.thread);
    if (stop.call.isStart) {
        startCall(stop.thread, thread, stop.call);
    } else if (thread.call != nullptr) {
        endCall(stop.thread, thread, stop.call.result);
        thread.call = nullptr;
    }
}

void Tracer::startCall(pid_t id, Thread& thread, const StoppedCall& start) {
    if (start.number == SYS_geteuid) {
        thread.process->isInMain = true; // the first thing that main does
    }
    thread.call = findSystemCall(start.number);
    if (thread.call == nullptr) {
        if (m_recordsCalls && !isLeftOut(start.number)) {
            report({"call", thread.role, unlistedCall + std::to_string(start.number), "-", "1", "0", "0"});
        }
        return;
    }
    thread.start = start;
    thread.object = thread.process->names.nameOf(id, *thread.call, start);
    thread.occurrence = ++thread.counts[{thread.call->name, thread.object}];
    thread.isHit = isAimedAt(thread);
    if (thread.isHit) {
        report({"fault", thread.role});
        applyAtStart(id, thread);
    }
}

bool Tracer::isAimedAt(const Thread& thread) const {
    const CallSite& aim = m_fault.site;
    return m_fault.kind != FaultKind::None && thread.role == aim.role && aim.call == thread.call->name &&
           thread.object == aim.object &&
           (thread.occurrence == aim.occurrence ||
            (m_fault.kind == FaultKind::FailsAlways && thread.occurrence > aim.occurrence));
}

void Tracer::applyAtStart(pid_t id, const Thread& thread) const {
    const std::uint64_t length = thread.start.arguments[2];
    switch (m_fault.kind) {
    case FaultKind::Fails:
    case FaultKind::FailsAlways:
        if (thread.call->object == Object::Break) {
            setArgument(id, 0, 0); // how brk fails: it returns the end as it was
        } else {
            skipCall(id);
        }
        break;
    case FaultKind::OneByte:
        setArgument(id, 2, std::min<std::uint64_t>(length, 1));
        break;
    case FaultKind::Half:
        setArgument(id, 2, length / 2);
        break;
    case FaultKind::FailsLate:
    case FaultKind::None:
        break;
    }
}

bool Tracer::isErrorDue(const Thread& thread) const {
    return thread.isHit && thread.call->object != Object::Break &&
           (m_fault.kind == FaultKind::Fails || m_fault.kind == FaultKind::FailsLate ||
            m_fault.kind == FaultKind::FailsAlways);
}

void Tracer::endCall(pid_t id, Thread& thread, long result) {
    if (!thread.isHit || m_fault.kind == FaultKind::FailsLate) {
        thread.process->names.learn(*thread.call, thread.start, thread.object, result);
    }
    if (isErrorDue(thread)) {
        result = -m_fault.error;
        setResult(id, result);
    }
    if (m_recordsCalls) {
        report({"call", thread.role, thread.call->name, thread.object, std::to_string(thread.occurrence),
                std::to_string(result), thread.process->isInMain ? "1" : "0"});
    }
    if (std::strcmp(thread.call->name, "execve") == 0 && result < 0) {
        report({"stays", thread.role});
    }
}

} // namespace ZNORBFAULTS
