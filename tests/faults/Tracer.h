#pragma once

#include "tests/faults/Fault.h"
#include "tests/faults/ObjectNames.h"
#include "tests/support/SystemCallTracer.h"

#include <sys/types.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace ZNORBFAULTS {

/// Follows a process and its descendants, through every fork, and injects one fault. Unlike the
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

    /// Follows the child, which calls stopForTracer(), until none of its kind is left, or for as long as they
    /// are silent for no longer than any life waits.
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
        const ZNORBTRACING::SystemCall* call = nullptr; ///< under way
        StoppedCall start;
        std::string object;
        unsigned occurrence = 0;
        bool isHit = false; ///< by the fault
        std::map<std::pair<std::string, std::string>, unsigned> counts;
    };

    void report(const std::vector<std::string>& words) const;
    void handle(ZNORBTEST::TracedStop& stop);
    void handleEnd(const ZNORBTEST::TracedStop& stop);
    void adopt(pid_t child, const Thread& parent, bool isThread);
    bool letsGo(pid_t thread);
    void handleCall(const ZNORBTEST::TracedStop& stop);
    void startCall(pid_t id, Thread& thread, const StoppedCall& start);
    void endCall(pid_t id, Thread& thread, long result);
    bool isAimedAt(const Thread& thread) const;
    void applyAtStart(pid_t id, const Thread& thread) const;
    bool isErrorDue(const Thread& thread) const;

    const Fault m_fault;
    const bool m_recordsCalls;
    const int m_report;
    std::map<pid_t, Thread> m_threads;
};

} // namespace ZNORBFAULTS
