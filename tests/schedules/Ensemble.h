#pragma once

#include "tests/schedules/Connections.h"
#include "tests/schedules/SharedCall.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/SystemCallTracer.h"

#include <sys/types.h>

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace ZNORBSCHEDULES {

/// A traced thread. Its role is that of what it was launched as; the child of "-d" is "-d fork", and the
/// child of that "-d daemon", whose second thread is "-d responder", whose children are "-d launch 1" and so
/// on.
struct Participant {
    std::string role;
    std::string family; ///< the role that all of them come from
    pid_t thread = -1;
    pid_t process = -1;        ///< its first thread
    bool holdsSocket = false;  ///< some time; of a process' first thread only
    bool isOurs = false;       ///< has become the program that was launched
    bool isPassing = false;    ///< only makes the daemon: is never held
    bool isHeld = false;       ///< stands at a boundary
    bool isAsleep = false;     ///< waits for others
    bool hasWaited = false;    ///< some time
    bool isBlocked = false;    ///< is held before a call in which it would do so
    bool isRestarting = false; ///< makes a call once more that a signal of no importance had interrupted
    bool isSkipping = false;   ///< the call under way is not made
    ZNORBTEST::TracedStop stop{};
    long call = -1;            ///< under way, or the last
    SharedCall shared{};       ///< what that one has to do with others
    std::string place{};       ///< where it is held
    Objects watched{};         ///< what its steps since its last sleep have had to do with
    bool hasNews = false;      ///< another has changed something of that
    std::uint64_t wakesAt = 0; ///< held before a sleep: when that ends, in microseconds
    std::size_t heldSince = 0; ///< how often somebody had been let go on when it came there
    unsigned children = 0;

    bool isProcess() const { return thread == process; }
    /// Is held before a sleep.
    bool sleeps() const;
    /// Its process' own, and the barrier at which a `-d` waits for its daemon's main thread: the only memory
    /// that is shared across a fork, but for the lock and the table. Main has done with it when it waits for
    /// the first time, which is for the responder's end.
    Objects memory() const;
    /// A daemon's first thread.
    bool isMain() const;
};

/// How a process came to its end.
struct Ending {
    bool isAnotherProgram = false;
    int waitStatus = 0;
};

/// Traces what is started and all that comes of it, and holds every thread at the boundaries: before the
/// calls in which others have a part, at its start, before a signal's handler and behind a call in which it
/// has waited. Who is let go from there runs to its next boundary, alone: all others are held or wait.
///
/// Sleeps take no time: there is a clock of its own.
///
/// Used on the only thread of a sandbox's runner. The destructor ends whom it still traces.
class Ensemble {
public:
    /// `ignored`: the objects that make no difference.
    explicit Ensemble(Objects ignored) : m_ignored(std::move(ignored)) {}
    ~Ensemble();
    Ensemble(const Ensemble&) = delete;
    Ensemble& operator=(const Ensemble&) = delete;

    void launch(const std::string& role, const ZNORBTEST::Launch& program);
    /// One that this program plays itself; what it writes to its standard output is recorded.
    void play(const std::string& role, const std::function<void()>& body);

    /// From now on nobody is held, or they are again.
    void setFree(bool isFree);

    /// Until everybody is held, waits or is gone; false when that did not come within the bound.
    bool settle();

    /// Those who can go on, by role.
    std::vector<const Participant*> enabled() const;
    /// Is held, and would not wait in the call, nor only look again at what was there before a daemon's
    /// sleep.
    static bool isEnabled(const Participant& participant);

    /// What its next step may look at and change, of one that is held.
    Access accessOf(const Participant& participant) const;

    /// Nobody can notice its next step: it touches but memory, and all with whom it shares that wait for it.
    bool isPrivate(const Participant& participant) const;

    /// Lets it run from its boundary. settle() next.
    void goOn(const std::string& role);

    /// Null when there is nobody of this role any more.
    const Participant* find(const std::string& role) const;
    pid_t processOf(const std::string& role) const;
    std::vector<std::string> processes() const;
    const std::map<std::string, Ending>& endings() const { return m_endings; }
    bool hasBeen(const std::string& role) const { return m_roles.count(role) != 0; }
    std::string output(const std::string& role) const;
    /// What keeps it from coming to rest.
    std::string report() const;

private:
    void add(const std::string& role, pid_t child, bool isOurs);
    bool mayAllWait() const;
    bool areAtRest();
    bool releaseEnded();
    void noteWaiting();
    void take(ZNORBTEST::TracedStop& stop);
    bool takeCall(Participant& participant, const ZNORBTEST::TracedStop& stop);
    bool takeCallsStart(Participant& participant, const ZNORBTEST::TracedStop& stop);
    bool doesHoldSocket(const Participant& participant) const;
    void noteSockets(Participant& participant);
    void noteNews(Participant& participant);
    Access relevant(Access access) const;
    bool takeCallsEnd(Participant& participant, const ZNORBTEST::TracedStop& stop);
    bool takeExecution(Participant& participant, ZNORBTEST::TracedStop& stop);
    void adopt(Participant& parent, const ZNORBTEST::TracedStop& stop);
    void end(const ZNORBTEST::TracedStop& stop);

    const Objects m_ignored;
    Connections m_connections;
    ZNORBTEST::SystemCallTracer m_tracer;
    std::map<pid_t, Participant> m_participants;
    std::map<std::string, pid_t> m_roles; ///< of all that have ever been
    std::map<std::string, Ending> m_endings;
    std::map<std::string, int> m_outputs;
    bool m_isFree = false;
    std::uint64_t m_time = 0;
    std::size_t m_turns = 0; ///< how often somebody was let go on
};

} // namespace ZNORBSCHEDULES
