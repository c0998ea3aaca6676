#include "tests/moments/Kind.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>

namespace ZNORBMOMENTS {
namespace {

using ZNORBTEST::TracedStop;

constexpr unsigned handlerBoundaries = 6; ///< of its calls, and the place where it begins

// ---- where ------------------------------------------------------------------------------------------

bool everywhere(Story, const Boundary&) {
    return true;
}

bool onResponder(Story, const Boundary& boundary) {
    return boundary.role == "responder";
}

bool onMain(Story, const Boundary& boundary) {
    return boundary.role == "main" || boundary.role == "test";
}

bool inTheDaemon(Story story, const Boundary& boundary) {
    return story == Story::Quit && (boundary.role == "main" || boundary.role == "responder");
}

// ---- what -------------------------------------------------------------------------------------------

void signalProcess(Life& life, const std::string& role, int signal) {
    (void)kill(life.traced().processOf(role), signal);
}

void signalThread(Life& life, const Boundary& boundary, const std::string& role) {
    (void)syscall(SYS_tgkill, life.traced().processOf(boundary.role), life.traced().threadOf(role), SIGTERM);
}

void terminate(Life& life, const Boundary& boundary, TracedStop&) {
    signalProcess(life, boundary.role, SIGTERM);
}

void terminateMain(Life& life, const Boundary& boundary, TracedStop&) {
    signalThread(life, boundary, life.traced().find("test") != nullptr ? "test" : "main");
}

void terminateResponder(Life& life, const Boundary& boundary, TracedStop&) {
    signalThread(life, boundary, "responder");
}

void killOutright(Life& life, const Boundary& boundary, TracedStop&) {
    signalProcess(life, boundary.role, SIGKILL);
}

void stop(Life& life, const Boundary& boundary, TracedStop&) {
    signalProcess(life, boundary.role, SIGSTOP);
}

void tellOfChild(Life& life, const Boundary& boundary, TracedStop&) {
    signalProcess(life, boundary.role, SIGCHLD);
}

void closeConnection(Life& life, const Boundary&, TracedStop&) {
    life.closeConnection();
}

void shutConnection(Life& life, const Boundary&, TracedStop&) {
    life.shutConnection();
}

void killClient(Life& life, const Boundary&, TracedStop&) {
    life.killClient();
}

void truncateTable(Life&, const Boundary&, TracedStop&) {
    Life::truncateTable();
}

void removeLock(Life&, const Boundary&, TracedStop&) {
    Life::removeLock();
}

} // namespace

const Kind kinds[kindCount] = {
    {"term", "SIGTERM to the process", true, 1, {}, everywhere, terminate},
    {"term-main", "SIGTERM to the main thread", false, 1, {}, onResponder, terminateMain},
    {"term-responder",
     "SIGTERM to the responder's thread",
     false,
     1,
     {.hasThread = true},
     onMain,
     terminateResponder},
    {"term-twice",
     "SIGTERM to the process, and once more at each boundary of the handler",
     false,
     handlerBoundaries,
     {},
     inTheDaemon,
     terminate},
    {"kill", "SIGKILL to the process", true, 1, {}, everywhere, killOutright},
    {"stop", "SIGSTOP to the process, then SIGCONT", false, 1, {}, everywhere, stop},
    {"child", "SIGCHLD to the process", false, 1, {}, everywhere, tellOfChild},
    {"close",
     "the requester closes its connection",
     false,
     1,
     {.hasConnection = true},
     everywhere,
     closeConnection},
    {"shutdown",
     "the requester shuts its connection down",
     false,
     1,
     {.hasConnection = true},
     everywhere,
     shutConnection},
    {"client", "the first client is killed", false, 1, {.hasClient = true}, everywhere, killClient},
    {"truncate", "the table is cut to nothing", false, 1, {.hasTable = true}, everywhere, truncateTable},
    {"unlock", "the lock's file is removed", false, 1, {.hasLock = true}, everywhere, removeLock},
};

std::string describe(const Moment& moment) {
    return std::string(moment.kind->name) + " " + std::to_string(moment.number) + " (" +
           describe(moment.story) + "): " + describe(moment.boundary) +
           (moment.kind->variants > 1 ? ", again after " + std::to_string(moment.variant) : "");
}

void Event::atBoundary(Life& life, const Boundary& boundary, TracedStop& stop) {
    if (m_hasHappened) {
        repeatTermination(life, boundary.role);
    } else if (boundary == m_moment.boundary && life.surroundings().include(m_moment.kind->needs)) {
        m_hasHappened = true;
        m_moment.kind->act(life, boundary, stop);
    }
}

/// SIGSTOP comes twice: to be passed on, and when the thread has stopped for it.
void Event::atSignal(Life& life, const std::string& role, TracedStop& stop) {
    if (stop.kind == TracedStop::Kind::Execution) {
        signalProcess(life, role, m_hasHappened ? SIGCONT : 0); // the last moment to take a SIGSTOP back
    } else if (m_hasHappened && stop.signal == SIGTERM && m_handler.empty()) {
        m_handler = role;
        repeatTermination(life, role);
    } else if (m_hasHappened && stop.signal == 0 && !m_isStopped) {
        m_isStopped = true;
        stop.signal = SIGSTOP;
    } else if (m_isStopped && stop.signal == 0) {
        signalProcess(life, role, SIGCONT);
    }
}

void Event::repeatTermination(Life& life, const std::string& role) {
    if (m_moment.kind->variants > 1 && role == m_handler && m_boundaries++ == m_moment.variant) {
        signalProcess(life, role, SIGTERM);
    }
}

} // namespace ZNORBMOMENTS
