#pragma once

#include "tests/support/ProcessEnd.h"

#include <sys/mman.h>
#include <sys/types.h>

#include <functional>
#include <new>

namespace ZNORBTEST {

/// A copy of the test's process in which code runs that ends or changes a whole process. A failure of an
/// expectation is lost there: let the body report what it found in a SharedReport.
///
/// Used on one thread, while there is only one. The destructor ends the process, should it still run.
class ForkedChild {
public:
    /// The body's result becomes the exit status, at once and without destructors. A failure to fork is a
    /// failure of the test.
    explicit ForkedChild(const std::function<int()>& body);
    ~ForkedChild();
    ForkedChild(const ForkedChild&) = delete;
    ForkedChild& operator=(const ForkedChild&) = delete;

    [[nodiscard]] pid_t pid() const { return m_pid; }

    /// stillRunning() when it did not end within the bound.
    ProcessEnd waitForEnd(Milliseconds bound = usualBound);

private:
    pid_t m_pid;
    ProcessEnd m_end;
};

/// Runs the body in a process of its own, to its end.
ProcessEnd endOfForked(const std::function<int()>& body, Milliseconds bound = usualBound);

/// A failure of the test, in the line of the call, unless it ends so.
void expectEndOfForked(const ProcessEnd& expected, const std::function<int()>& body,
                       const char* file = __builtin_FILE(), int line = __builtin_LINE());

/// Whether it holds in a process of its own, which ends by itself.
bool holdsInForked(const std::function<bool()>& condition);

/// One `Report` that this process shares with all that are forked while it lives, zero at first.
template <typename Report>
class SharedReport {
public:
    SharedReport()
        : m_report(new (mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1,
                             0)) Report()) {}
    ~SharedReport() { (void)munmap(m_report, sizeof(Report)); }
    SharedReport(const SharedReport&) = delete;
    SharedReport& operator=(const SharedReport&) = delete;

    Report* operator->() const { return m_report; }
    Report& operator*() const { return *m_report; }

private:
    Report* m_report;
};

} // namespace ZNORBTEST
