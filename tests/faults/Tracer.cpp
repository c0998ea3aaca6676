#include "tests/faults/Tracer.h"

#include "tests/faults/SystemCalls.h"

#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstring>

namespace ZNORBFAULTS {
namespace {

using namespace ZNORBTEST;

constexpr int callStop = SIGTRAP | 0x80;

std::string programOf(pid_t process) {
    char target[PATH_MAX];
    const std::string link = "/proc/" + std::to_string(process) + "/exe";
    const ssize_t length = readlink(link.c_str(), target, sizeof target);
    return {target, length > 0 ? static_cast<std::size_t>(length) : 0};
}

void resume(pid_t thread, int signal) {
    (void)ptrace(PTRACE_SYSCALL, thread, nullptr, static_cast<std::intptr_t>(signal));
}

std::string joined(std::initializer_list<std::string> words) {
    std::string line;
    for (const std::string& word : words) {
        line += (line.empty() ? "" : "\t") + word;
    }
    return line;
}

long milliseconds(const rusage& usage) {
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000 +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1000;
}

} // namespace

void Tracer::report(const std::string& line) const {
    const std::string whole = line + "\n";
    (void)!write(m_report, whole.data(), whole.size());
}

void Tracer::follow(pid_t first, const std::string& role) {
    int waitStatus = 0;
    if (waitpid(first, &waitStatus, __WALL) != first || !WIFSTOPPED(waitStatus)) {
        return;
    }
    constexpr long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK |
                             PTRACE_O_TRACECLONE | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL;
    (void)ptrace(PTRACE_SETOPTIONS, first, nullptr, options);
    Thread& thread = m_threads[first];
    thread.process = std::make_shared<Process>();
    thread.process->leader = first;
    thread.process->role = role;
    thread.role = role;
    report(joined({"start", role, std::to_string(first)}));
    resume(first, 0);
    for (;;) {
        rusage usage{};
        const pid_t pid = wait4(-1, &waitStatus, __WALL, &usage);
        if (pid == -1 && errno == EINTR) {
            continue;
        }
        if (pid == -1) {
            return;
        }
        if (WIFSTOPPED(waitStatus)) {
            handleStop(pid, waitStatus);
        } else {
            handleEnd(pid, waitStatus, usage);
        }
    }
}

void Tracer::handleEnd(pid_t thread, int waitStatus, const rusage& usage) {
    const auto found = m_threads.find(thread);
    if (found == m_threads.end()) {
        return;
    }
    if (found->second.process->leader == thread) {
        report(joined({"end", found->second.process->role, std::to_string(thread), std::to_string(waitStatus),
                       std::to_string(milliseconds(usage))}));
    }
    m_threads.erase(found);
}

void Tracer::handleStop(pid_t thread, int waitStatus) {
    const int signal = WSTOPSIG(waitStatus);
    if (m_threads.count(thread) == 0) {
        m_early[thread] = true; // goes on when its parent has told of it
        return;
    }
    if (signal == callStop) {
        handleCall(thread);
        resume(thread, 0);
        return;
    }
    const int event = waitStatus >> 16;
    if (event != 0) {
        if (event == PTRACE_EVENT_EXEC && letGo(thread)) {
            return;
        }
        resume(thread, handleEvent(thread, event));
        return;
    }
    // The first stop of a new thread, too, is SIGSTOP; nobody here sends another.
    resume(thread, signal == SIGSTOP ? 0 : signal);
}

int Tracer::handleEvent(pid_t thread, int event) {
    unsigned long message = 0;
    const bool isBirth =
        event == PTRACE_EVENT_FORK || event == PTRACE_EVENT_VFORK || event == PTRACE_EVENT_CLONE;
    if (isBirth && ptrace(PTRACE_GETEVENTMSG, thread, nullptr, &message) == 0) {
        const Thread& parent = m_threads.at(thread);
        const bool isThread = event == PTRACE_EVENT_CLONE && parent.object == "thread";
        adopt(static_cast<pid_t>(message), parent, isThread);
    }
    return 0;
}

void Tracer::adopt(pid_t child, const Thread& parent, bool isThread) {
    Thread thread;
    if (isThread) {
        thread.process = parent.process;
        thread.role = "responder";
        report(joined({"thread", parent.process->role, std::to_string(parent.process->leader)}));
    } else {
        thread.process = std::make_shared<Process>(*parent.process);
        thread.process->leader = child;
        thread.role = parent.role == "responder"      ? "launch " + std::to_string(++parent.process->launches)
                      : parent.role == "intermediate" ? "main"
                      : parent.role == "invoking"     ? "intermediate"
                                                      : "child of " + parent.role;
        thread.process->role = thread.role;
        report(joined({"start", thread.role, std::to_string(child)}));
    }
    m_threads[child] = std::move(thread);
    if (m_early.erase(child) != 0) {
        resume(child, 0);
    }
}

bool Tracer::letGo(pid_t thread) {
    Thread& former = m_threads.at(thread);
    const std::string program = programOf(thread);
    if (former.process->program.empty() || program == former.process->program) {
        former.process->program = program;
        return false;
    }
    if (m_recordsCalls && former.call != nullptr) { // the one call whose end is never seen
        endCall(thread, former, 0);
    }
    report(joined({"exec", former.role, program}));
    m_threads.erase(thread);
    (void)ptrace(PTRACE_DETACH, thread, nullptr, nullptr);
    return true;
}

void Tracer::handleCall(pid_t id) {
    Thread& thread = m_threads.at(id);
    StoppedCall stopped;
    if (!readStoppedCall(id, stopped)) {
        return;
    }
    if (stopped.isStart) {
        startCall(id, thread, stopped);
    } else if (thread.call != nullptr) {
        endCall(id, thread, stopped.result);
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
            report(joined(
                {"call", thread.role, unlistedCall + std::to_string(start.number), "-", "1", "0", "0"}));
        }
        return;
    }
    thread.start = start;
    thread.object = thread.process->names.nameOf(id, *thread.call, start);
    thread.occurrence = ++thread.counts[{thread.call->name, thread.object}];
    thread.isHit = isAimedAt(thread);
    if (thread.isHit) {
        report(joined({"fault", thread.role}));
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
        report(
            joined({"call", thread.role, thread.call->name, thread.object, std::to_string(thread.occurrence),
                    std::to_string(result), thread.process->isInMain ? "1" : "0"}));
    }
    if (std::strcmp(thread.call->name, "execve") == 0 && result < 0) {
        report(joined({"stays", thread.role}));
    }
}

bool canTrace() {
    if (!canChangeCalls()) {
        return false;
    }
    const pid_t child = fork();
    if (child == 0) {
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0) {
            (void)raise(SIGSTOP);
        }
        _exit(0);
    }
    int waitStatus = 0;
    if (child == -1 || waitpid(child, &waitStatus, __WALL) != child || !WIFSTOPPED(waitStatus)) {
        return false;
    }
    StoppedCall call;
    const bool isUsable = ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD) == 0 &&
                          ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0 &&
                          waitpid(child, &waitStatus, __WALL) == child && WIFSTOPPED(waitStatus) &&
                          readStoppedCall(child, call);
    (void)kill(child, SIGKILL);
    (void)waitpid(child, &waitStatus, __WALL);
    return isUsable;
}

} // namespace ZNORBFAULTS
