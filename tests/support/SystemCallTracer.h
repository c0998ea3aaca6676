#pragma once

#include "tests/support/StoppedCall.h"
#include "tests/support/Waiting.h"

#include <sys/types.h>

#include <functional>
#include <map>
#include <optional>

namespace ZNORBTEST {

/// Where a traced thread stands, or what became of it.
struct TracedStop {
    enum class Kind {
        Start,     ///< has run nothing of its own yet since it is traced
        Call,      ///< before a system call or after it
        Birth,     ///< has made `child`, which is traced from its start
        Execution, ///< has become another program, or the same anew
        Signal,    ///< gets `signal` when it goes on
        End,       ///< is gone
        Nobody,    ///< of no thread: none that is traced runs
        Overdue    ///< of no thread: none stopped within the bound
    };
    Kind kind = Kind::Nobody;
    pid_t thread = -1;
    StoppedCall call{};         ///< Call
    pid_t child = -1;           ///< Birth
    bool isThread = false;      ///< Birth: the child is a thread of the same process
    int signal = 0;             ///< Signal; a handler may put another, or 0, in its place
    int waitStatus = 0;         ///< End, as waitpid() gives it
    long long milliseconds = 0; ///< End: of processor time
    bool isReleased = false;    ///< set by a handler: is traced no more when it goes on
};

/// Leads processes, all their threads and all their descendants from stop to stop with ptrace: before and
/// after every system call, at each birth, execution, signal and end.
///
/// - A thread that is stopped stays so until it is told to go on, whatever the others do. So a caller may
///   look at it, change its call (StoppedCall.h), send it a signal or let another process go first.
/// - A signal sent to a stopped thread is a stop of its own when the thread goes on: before the call, if it
///   stood before one that can be interrupted, and before anything else behind one.
/// - The stops of several threads are handed out in turn; none is starved.
/// - A child is handed out as born before it is seen itself. One whose parent was killed while it was being
/// made
///   is handed out right before the end of the thread that made it.
/// - Every wait has a bound. Other children of this process are never waited for, nor is the disposition of
///   any signal changed.
/// - SIGSTOP is taken from a traced thread: nobody is left stopped by it.
///
/// Used on the one thread that made the traced processes. The destructor ends what is still traced.
class SystemCallTracer {
public:
    SystemCallTracer() = default;
    ~SystemCallTracer();
    SystemCallTracer(const SystemCallTracer&) = delete;
    SystemCallTracer& operator=(const SystemCallTracer&) = delete;

    /// Adds a process of this thread's that runs the body, from its first system call on. -1: none could be
    /// made.
    pid_t start(const std::function<void()>& body);

    /// Adds a child of this thread's that calls stopForTracer().
    void add(pid_t child);

    /// The next stop of any thread that runs.
    TracedStop next(Milliseconds bound = usualBound);

    /// Lets the thread run to its next stop, or without any more of them.
    void goOn(const TracedStop& stop);

    /// Hands every stop to the handler and lets the thread go on. False when nobody stopped within the bound.
    bool follow(const std::function<void(TracedStop&)>& handler, Milliseconds bound = usualBound);

private:
    struct Thread {
        bool isStarted = false;
        bool isStopped = false;
        bool isForking = false;
    };

    bool poll(TracedStop& stop);
    bool describe(TracedStop& stop, int waitStatus);
    bool describeEvent(TracedStop& stop, int event);
    bool describeEnd(TracedStop& stop);
    pid_t unknownChild() const;
    bool isAnyRunning() const;

    std::map<pid_t, Thread> m_threads;
    pid_t m_last = -1;               ///< the thread whose stop was the last
    std::optional<TracedStop> m_end; ///< that comes after a birth
};

/// In the child: asks to be traced by its parent and stops until it is. False when it cannot be traced.
bool stopForTracer();

/// Whether this process may trace its children and read their calls; tries it.
bool canTrace();

} // namespace ZNORBTEST
