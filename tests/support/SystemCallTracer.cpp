#include "tests/support/SystemCallTracer.h"

#include "tests/support/Files.h"

#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <string>
#include <utility>

namespace ZNORBTEST {
namespace {

using Kind = TracedStop::Kind;
using Clock = std::chrono::steady_clock;

constexpr int callStop = SIGTRAP | 0x80;
constexpr int notTraced = 77;

/// Keeps SIGCHLD, by which the kernel tells of each stop, pending while it is waited for.
class PendingStops {
public:
    PendingStops() {
        (void)sigemptyset(&m_signals);
        (void)sigaddset(&m_signals, SIGCHLD);
        (void)pthread_sigmask(SIG_BLOCK, &m_signals, &m_before);
    }
    ~PendingStops() { (void)pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    PendingStops(const PendingStops&) = delete;
    PendingStops& operator=(const PendingStops&) = delete;

    /// Until the end, but not for long at a time: another thread may take the signal.
    void await(Clock::time_point end) const {
        const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(end - Clock::now());
        const timespec slice = {0, static_cast<long>(std::clamp<long long>(left.count(), 0, 20000000))};
        (void)sigtimedwait(&m_signals, nullptr, &slice);
    }

private:
    sigset_t m_signals{};
    sigset_t m_before{};
};

long long milliseconds(const rusage& usage) {
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000LL +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1000;
}

void setOptions(pid_t thread) {
    constexpr long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK |
                             PTRACE_O_TRACECLONE | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL;
    (void)ptrace(PTRACE_SETOPTIONS, thread, nullptr, options);
}

bool hasThread(pid_t process, pid_t thread) {
    const std::string entry = "/proc/" + std::to_string(process) + "/task/" + std::to_string(thread);
    return access(entry.c_str(), F_OK) == 0;
}

bool isFork(long call) {
    static constexpr long forks[] = {SYS_clone, SYS_clone3,
#ifdef SYS_fork
                                     SYS_fork, SYS_vfork
#endif
    };
    return std::find(std::begin(forks), std::end(forks), call) != std::end(forks);
}

/// By the calling thread.
bool isTracedHere(const std::string& process) {
    return readFileIfAny("/proc/" + process + "/status")
               .find("\nTracerPid:\t" + std::to_string(gettid()) + "\n") != std::string::npos;
}

} // namespace

SystemCallTracer::~SystemCallTracer() {
    for (auto& [id, thread] : m_threads) {
        (void)kill(id, SIGKILL);
        thread.isStopped = false;
    }
    const Clock::time_point end = Clock::now() + usualBound;
    while (isAnyRunning() && Clock::now() < end) {
        goOn(next(Milliseconds(100)));
    }
}

pid_t SystemCallTracer::start(const std::function<void()>& body) {
    (void)std::fflush(nullptr); // or the child, should it exit, would write it once more
    const pid_t child = fork();
    if (child == 0) {
        if (!stopForTracer()) {
            _exit(notTraced);
        }
        body();
        _exit(EXIT_SUCCESS);
    }
    if (child != -1) {
        add(child);
    }
    return child;
}

void SystemCallTracer::add(pid_t child) {
    m_threads[child] = {};
}

bool SystemCallTracer::isAnyRunning() const {
    return std::any_of(m_threads.begin(), m_threads.end(),
                       [](const auto& entry) { return !entry.second.isStopped; });
}

TracedStop SystemCallTracer::next(Milliseconds bound) {
    const PendingStops pending;
    const Clock::time_point end = Clock::now() + bound;
    TracedStop stop;
    while (isAnyRunning()) {
        if (poll(stop)) {
            return stop;
        }
        if (Clock::now() >= end) {
            return {.kind = Kind::Overdue};
        }
        pending.await(end);
    }
    return {};
}

bool SystemCallTracer::poll(TracedStop& stop) {
    if (m_end.has_value()) {
        stop = *std::exchange(m_end, std::nullopt);
        return describeEnd(stop);
    }
    auto place = m_threads.upper_bound(m_last);
    for (std::size_t left = m_threads.size(); left > 0; --left) {
        const auto current = place == m_threads.end() ? m_threads.begin() : place;
        place = std::next(current);
        int waitStatus = 0;
        rusage usage{};
        const pid_t changed =
            current->second.isStopped ? 0 : wait4(current->first, &waitStatus, __WALL | WNOHANG, &usage);
        if (changed == current->first) {
            stop = {.thread = changed, .milliseconds = milliseconds(usage)};
            m_last = changed;
            return describe(stop, waitStatus) || poll(stop);
        }
        if (changed == -1 && errno == ECHILD) { // another thread of its process has executed a program
            m_threads.erase(current);
        }
    }
    return false;
}

bool SystemCallTracer::describe(TracedStop& stop, int waitStatus) {
    if (!WIFSTOPPED(waitStatus)) {
        stop.kind = Kind::End;
        stop.waitStatus = waitStatus;
        return describeEnd(stop);
    }
    Thread& thread = m_threads.at(stop.thread);
    const int signal = WSTOPSIG(waitStatus);
    bool isForCaller = true;
    if (signal == callStop) {
        stop.kind = Kind::Call;
        isForCaller = readStoppedCall(stop.thread, stop.call);
        thread.isForking = stop.call.isStart && isFork(stop.call.number);
    } else if (waitStatus >> 16 != 0) {
        isForCaller = describeEvent(stop, waitStatus >> 16);
    } else if (signal == SIGSTOP && !thread.isStarted) {
        setOptions(stop.thread);
        thread.isStarted = true;
        stop.kind = Kind::Start;
    } else {
        stop.kind = Kind::Signal;
        stop.signal = signal == SIGSTOP ? 0 : signal;
    }
    thread.isStopped = true;
    if (!isForCaller) {
        goOn(stop);
    }
    return isForCaller;
}

/// The kernel stops a child that its parent did not live to tell of.
bool SystemCallTracer::describeEnd(TracedStop& stop) {
    const pid_t child = m_threads.at(stop.thread).isForking ? unknownChild() : -1;
    if (child == -1) {
        m_threads.erase(stop.thread);
        return true;
    }
    m_end = stop;
    stop = {.kind = Kind::Birth, .thread = stop.thread, .child = child};
    add(child);
    return true;
}

pid_t SystemCallTracer::unknownChild() const {
    for (const std::string& name : namesIn("/proc")) {
        const auto process = static_cast<pid_t>(std::strtol(name.c_str(), nullptr, 10));
        if (process > 0 && !m_threads.contains(process) && isTracedHere(name)) {
            return process;
        }
    }
    return -1;
}

bool SystemCallTracer::describeEvent(TracedStop& stop, int event) {
    if (event == PTRACE_EVENT_EXEC) {
        stop.kind = Kind::Execution;
        return true;
    }
    unsigned long message = 0;
    if (ptrace(PTRACE_GETEVENTMSG, stop.thread, nullptr, &message) != 0) {
        return false;
    }
    stop.kind = Kind::Birth;
    stop.child = static_cast<pid_t>(message);
    stop.isThread = hasThread(stop.thread, stop.child);
    add(stop.child);
    return true;
}

void SystemCallTracer::goOn(const TracedStop& stop) {
    const auto found = m_threads.find(stop.thread);
    if (found == m_threads.end()) {
        return;
    }
    const auto signal = static_cast<std::intptr_t>(stop.signal);
    (void)ptrace(stop.isReleased ? PTRACE_DETACH : PTRACE_SYSCALL, stop.thread, nullptr, signal);
    found->second.isStopped = false;
    if (stop.isReleased) {
        m_threads.erase(found);
    }
}

bool SystemCallTracer::follow(const std::function<void(TracedStop&)>& handler, Milliseconds bound) {
    for (TracedStop stop = next(bound); stop.kind != Kind::Nobody; stop = next(bound)) {
        if (stop.kind == Kind::Overdue) {
            return false;
        }
        handler(stop);
        goOn(stop);
    }
    return true;
}

bool stopForTracer() {
    return ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 && raise(SIGSTOP) == 0;
}

bool canTrace() {
    SystemCallTracer tracer;
    (void)tracer.start([]() {});
    const TracedStop start = tracer.next();
    tracer.goOn(start);
    return start.kind == Kind::Start && tracer.next().kind == Kind::Call;
}

} // namespace ZNORBTEST
