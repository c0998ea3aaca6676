#pragma once

#include "tests/faults/Fault.h"
#include "tests/faults/ObjectNames.h"

#include <sys/types.h>

#include <map>
#include <memory>
#include <string>
#include <utility>

struct rusage;

namespace ZNORBFAULTS {

/// Follows a process and its descendants with ptrace, through every fork, and injects one fault. Unlike the
/// counters of strace, which begin anew for each thread, a fault here has one place in one of them.
///
/// Roles: the first process has the one that it is given; its child is "intermediate", the child of that
/// "main"; a thread is "responder", and what that one forks is "launch 1", "launch 2". A program other than
/// the first that a descendant executes is let go.
///
/// Reports in lines of words with tabs between them:
///
///     start  role pid                      a process
///     thread role pid                      the process that got a second thread
///     call   role name object occurrence result phase    phase: 1 once the program's main has begun
///     fault  role                          the fault has been injected (again)
///     exec   role path                     let go as another program
///     stays  role                          could not execute the other program
///     end    role pid status milliseconds  as waitpid() gives it, and its processor time
class Tracer {
public:
    /// `report` is written to, and not owned. `recordsCalls`: whether calls are reported.
    Tracer(const Fault& fault, bool recordsCalls, int report)
        : m_fault(fault), m_recordsCalls(recordsCalls), m_report(report) {}

    /// Follows the stopped child, which has asked to be traced, until none of its kind is left.
    void follow(pid_t first, const std::string& role);

private:
    struct Process {
        pid_t leader = -1;
        std::string role;
        std::string program;
        bool isInMain = false;
        ObjectNames names;
        unsigned launches = 0;
    };
    struct Thread {
        std::shared_ptr<Process> process;
        std::string role;
        const SystemCall* call = nullptr; ///< under way
        StoppedCall start;
        std::string object;
        unsigned occurrence = 0;
        bool isHit = false; ///< by the fault
        std::map<std::pair<std::string, std::string>, unsigned> counts;
    };

    void report(const std::string& line) const;
    void handleStop(pid_t thread, int waitStatus);
    void handleEnd(pid_t thread, int waitStatus, const rusage& usage);
    int handleEvent(pid_t thread, int event);
    void adopt(pid_t child, const Thread& parent, bool isThread);
    bool letGo(pid_t thread);
    void handleCall(pid_t thread);
    void startCall(pid_t id, Thread& thread, const StoppedCall& start);
    void endCall(pid_t id, Thread& thread, long result);
    bool isAimedAt(const Thread& thread) const;
    void applyAtStart(pid_t id, const Thread& thread) const;
    bool isErrorDue(const Thread& thread) const;

    const Fault m_fault;
    const bool m_recordsCalls;
    const int m_report;
    std::map<pid_t, Thread> m_threads;
    std::map<pid_t, bool> m_early; ///< stopped before their creation was reported
};

/// Whether this process may trace its children at all; tries it.
bool canTrace();

} // namespace ZNORBFAULTS
