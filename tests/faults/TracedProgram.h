#pragma once

#include "tests/faults/Fault.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Descriptor.h"

#include <sys/types.h>

#include <string>
#include <vector>

namespace ZNORBFAULTS {

/// What a tracer has reported about one process.
struct TracedProcess {
    std::string role;
    pid_t pid = -1;
    bool hasThread = false;
    bool hasStayed = false;   ///< could not execute another program
    std::string otherProgram; ///< that it has become, and is traced no more
    bool hasEnded = false;
    int waitStatus = 0;
    long milliseconds = 0; ///< of processor time, at its end
};

/// A call that a life made.
struct RecordedCall {
    CallSite site;
    long result = 0;
    bool isInMain = false; ///< the program's main had begun
};

/// A program that runs under a tracer, in a process of its own, with its output recorded.
///
/// Used on one thread of a sandbox's runner. The destructor ends all processes that are still traced.
class TracedProgram {
public:
    TracedProgram(const ZNORBTEST::Launch& launch, const std::string& role, const Fault& fault,
                  bool recordsCalls);
    ~TracedProgram();

    /// What has been reported up to now.
    const std::vector<TracedProcess>& processes();
    const std::vector<RecordedCall>& calls() const { return m_calls; }
    bool isFaultInjected() const { return m_isFaultInjected; }

    /// The process with that role, or nullptr.
    const TracedProcess* find(const std::string& role);

    std::string output() const;
    std::string errors() const;

private:
    void readReport();
    void note(const std::vector<std::string>& words);
    TracedProcess& process(const std::string& role);

    const ZNORBTEST::Descriptor m_report;
    const ZNORBTEST::Descriptor m_output;
    const ZNORBTEST::Descriptor m_errors;
    pid_t m_tracer = -1;
    std::size_t m_read = 0;
    std::string m_rest; ///< of a line that is not whole yet
    std::vector<TracedProcess> m_processes;
    std::vector<RecordedCall> m_calls;
    bool m_isFaultInjected = false;
};

} // namespace ZNORBFAULTS
