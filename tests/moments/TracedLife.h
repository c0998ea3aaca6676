#pragma once

#include "tests/moments/Boundary.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/SystemCallTracer.h"

#include <sys/types.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace ZNORBMOMENTS {

/// A process of ours that is or was traced.
struct Actor {
    std::string role;
    pid_t pid = -1;
    bool isOther = false; ///< has become another program, and is traced no more
    bool hasEnded = false;
    int waitStatus = 0; ///< of its end, as waitpid() gives it
};

/// Traces what is launched and all that comes of it, and names each thread by its role: a program by the one
/// it is launched with; the child of "invoking" is "intermediate", the child of that "main"; a second thread
/// is "responder", and what that one forks is "launch 1", "launch 2" until it becomes the client.
///
/// Used on the only thread of a sandbox's runner. The destructor ends whom it still traces.
class TracedLife {
public:
    /// Called while the thread stands at the boundary; it may change the stop's signal.
    using AtBoundary = std::function<void(const Boundary&, ZNORBTEST::TracedStop&)>;
    /// Called with the role of a thread that is about to get a signal, 0 for SIGSTOP, and of one that has
    /// become another program and is about to be let go.
    using AtSignal = std::function<void(const std::string&, ZNORBTEST::TracedStop&)>;

    TracedLife(AtBoundary atBoundary, AtSignal atSignal);
    ~TracedLife();
    TracedLife(const TracedLife&) = delete;
    TracedLife& operator=(const TracedLife&) = delete;

    /// `input`: its standard input, or -1 for /dev/null.
    void launch(const std::string& role, const ZNORBTEST::Launch& program, int input = -1);

    /// Leads one thread from its stop to the next; false when none stopped within two milliseconds.
    bool step();

    /// Null when there has been none.
    const Actor* find(const std::string& role) const;
    const std::vector<Actor>& actors() const { return m_actors; }

    /// The process that the role's thread belongs to, and the thread itself; -1 when it is gone or not there
    /// yet.
    pid_t processOf(const std::string& role) const;
    pid_t threadOf(const std::string& role) const;

    /// Nobody is left who is a daemon or is going to be one.
    bool isDaemonGone() const;

    /// What the launched program has written, and what its standard error.
    std::string output(const std::string& role) const;

    /// At a stop before a call: the call is not made and reports the error.
    void failCall(const ZNORBTEST::TracedStop& stop, int error);

    /// As with isDaemonGone(): nobody but the role's own process and released ones has not ended.
    bool isAlone(const std::string& role) const;

private:
    struct Thread {
        std::string role;
        std::size_t actor = 0;
        bool isOurs = false; ///< has executed the program that was launched
        long call = -1;      ///< under way
        bool isFailing = false;
        long result = 0; ///< if it is failing
        std::map<long, unsigned> counts{};
    };

    void handle(ZNORBTEST::TracedStop& stop);
    void handleCall(ZNORBTEST::TracedStop& stop);
    void handleEnd(const ZNORBTEST::TracedStop& stop);
    void adopt(const ZNORBTEST::TracedStop& stop);
    bool mustSleepOn(const ZNORBTEST::TracedStop& stop) const;
    void wakeSleepers();

    AtBoundary m_atBoundary;
    AtSignal m_atSignal;
    ZNORBTEST::SystemCallTracer m_tracer;
    std::vector<Actor> m_actors;
    std::map<pid_t, Thread> m_threads;
    std::map<std::string, int> m_outputs;
    std::vector<ZNORBTEST::TracedStop> m_sleepers;
    unsigned m_launches = 0;
};

} // namespace ZNORBMOMENTS
