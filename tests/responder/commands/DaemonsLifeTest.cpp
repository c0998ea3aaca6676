/// A whole life of the daemon, from the invoking process to the end that "QUIT" brings, looked at before each
/// of its system calls: what must come before what.

#include "responder/Globals.h"
#include "responder/commands/StartStop.h"
#include "tests/sandbox/Processes.h"
#include "tests/support/Files.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/ListeningPeer.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Matchers.h"
#include "tests/support/Names.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/SharedTable.h"
#include "tests/support/StandIns.h"
#include "tests/support/SystemCallTracer.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Waiting.h"

#include <pthread.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <optional>

namespace {

using namespace ZNORBRESPONDER;
using namespace ZNORBTEST;
using testing::Ne;
using testing::UnorderedElementsAre;

using Kind = TracedStop::Kind;

/// An argument of a call, as the call's text shows it.
using Showing = std::string (*)(pid_t thread, std::uint64_t value);

std::string asNumber(pid_t /*thread*/, std::uint64_t value) {
    return " " + std::to_string(value);
}

std::string asMode(pid_t /*thread*/, std::uint64_t value) {
    char digits[32];
    (void)std::snprintf(digits, sizeof digits, " %llo", static_cast<unsigned long long>(value));
    return digits;
}

std::string asText(pid_t thread, std::uint64_t value) {
    return " " + readText(thread, value);
}

std::string asNothing(pid_t /*thread*/, std::uint64_t /*value*/) {
    return "";
}

/// The calls that the order is about. A call has several numbers on some machines.
struct ShownCall {
    long number;
    const char* name;
    std::size_t argument;
    Showing show;
};

constexpr ShownCall shownCalls[] = {
    {SYS_setpgid, "setpgid", 0, asNothing},
    {SYS_umask, "umask", 0, asMode},
    {SYS_openat, "open", 1, asText},
    {SYS_fchmod, "fchmod", 1, asMode},
    {SYS_ftruncate, "ftruncate", 1, asNumber},
#ifdef SYS_mmap
    {SYS_mmap, "mmap", 1, asNumber},
#endif
    {SYS_munmap, "munmap", 1, asNumber},
    {SYS_socket, "socket", 0, asNothing},
    {SYS_bind, "bind", 2, asNumber},
    {SYS_listen, "listen", 1, asNumber},
    {SYS_recvfrom, "recvfrom", 2, asNumber},
    {SYS_sendto, "sendto", 3, asNumber},
    {SYS_setsockopt, "setsockopt", 0, asNothing},
#ifdef SYS_newfstatat
    {SYS_newfstatat, "stat", 1, asText},
#endif
#ifdef SYS_unlink
    {SYS_link, "link", 1, asText},
    {SYS_unlink, "unlink", 0, asText},
    {SYS_chmod, "chmod", 0, asText},
#endif
    {SYS_linkat, "link", 3, asText},
    {SYS_unlinkat, "unlink", 1, asText},
    {SYS_fchmodat, "chmod", 1, asText},
};

/// The disposition that a process sets; empty when it only asks for one.
std::string dispositionText(pid_t thread, const StoppedCall& call) {
    const char* const name = sigabbrev_np(static_cast<int>(call.arguments[0]));
    if (call.arguments[1] == 0 || name == nullptr) {
        return "";
    }
    const std::uint64_t handler = readWord(thread, call.arguments[1]);
    return std::string(name) + (handler == 0 ? " default" : handler == 1 ? " ignored" : " caught");
}

/// What the processes of the life report of themselves.
struct Report {
    std::atomic<unsigned> exits; ///< processes whose exit ran what is registered for it
    pid_t exited[8];
    std::atomic<unsigned> detaches;
    bool hadLockWhenDetached;
    bool hadEventWhenDetached;   ///< whether the responder had ended
    std::atomic<unsigned> forks; ///< with what is registered for them
};

const SharedReport<Report>* s_report = nullptr;

void noteExit() {
    (*s_report)->exited[(*s_report)->exits++] = getpid();
}

int noteDetach(pthread_t thread) {
    ++(*s_report)->detaches;
    (*s_report)->hadLockWhenDetached = exists(lockFile);
    (*s_report)->hadEventWhenDetached = mainExitBarrier.timedWait(0);
    return pthread_detach(thread);
}

class DaemonsLife : public testing::Test {
protected:
    DaemonsLife() { s_report = &m_report; }

    ~DaemonsLife() override {
        // The life has destroyed what it shares with this process.
        std::destroy_at(&ORBFrontProcessBarrier);
        std::construct_at(&ORBFrontProcessBarrier, false, true);
        (void)unlink(socketPath);
        s_report = nullptr;
    }

    /// Traces a life in which a client is asked to exit.
    void trace() {
        SystemCallTracer tracer;
        m_roles[tracer.start([]() {
            const InPlaceOf<pthread_detach> detaches(noteDetach);
            (void)std::signal(SIGCHLD, SIG_DFL);
            (void)std::atexit(noteExit);
            std::exit(startDaemon());
        })] = "invoking";
        ForkedChild requester([]() { return request() ? 0 : 1; });
        EXPECT_TRUE(tracer.follow([this](const TracedStop& stop) { note(stop); }));
        EXPECT_EQ(requester.waitForEnd(), exitedWith(0));
    }

    /// The block of the start event: its first byte tells that it is destroyed, its second that it is
    /// signalled.
    static unsigned startEventsByte(unsigned number) {
        const volatile std::uint8_t* block = nullptr;
        std::memcpy(&block, static_cast<const void*>(&ORBFrontProcessBarrier), sizeof block);
        return block[number];
    }

    /// Whether these calls were made in this order, whatever came between.
    testing::AssertionResult isInOrder(const std::vector<std::string>& calls) const {
        auto place = m_calls.begin();
        for (const std::string& call : calls) {
            place = std::find(place, m_calls.end(), call);
            if (place == m_calls.end()) {
                return testing::AssertionFailure() << "not there: " << call;
            }
            ++place;
        }
        return testing::AssertionSuccess();
    }

    [[nodiscard]] pid_t processOf(const std::string& role) const {
        const auto found = std::find_if(m_roles.begin(), m_roles.end(),
                                        [&role](const auto& entry) { return entry.second == role; });
        return found == m_roles.end() ? -1 : found->first;
    }

    const SharedReport<Report> m_report;
    std::vector<std::string> m_calls;
    std::map<pid_t, ProcessEnd> m_ends;
    bool m_wasSetBeforeTheThread = true;
    // When the invoking process says something.
    bool m_wasDestroyedBefore = true;
    std::optional<std::string> m_invokersMask;

private:
    static bool request() {
        const ListeningPeer client({58, {"HTTP/1.0 200 OK\r\n\r\n"}});
        return waitUntil([]() { return askDaemon("PRINT") == "0"; }) && enterClient(0, client.port()) &&
               askDaemon("QUIT") == "0";
    }

    void note(const TracedStop& stop) {
        const std::string role = m_roles[stop.thread];
        if (stop.kind == Kind::Birth) {
            m_roles[stop.child] = stop.isThread        ? "responder"
                                  : role == "invoking" ? "intermediate"
                                                       : "daemon";
            m_calls.push_back(role + ": makes " + m_roles[stop.child]);
            m_wasSetBeforeTheThread = startEventsByte(1) != 0;
        } else if (stop.kind == Kind::End) {
            m_ends[stop.thread] = endFrom(stop.waitStatus);
        } else if (stop.kind == Kind::Call && !stop.call.isStart) {
            if (m_listener == -1 && stop.thread == m_listenersMaker) {
                m_listener = static_cast<int>(stop.call.result);
            }
        } else if (stop.kind == Kind::Call) {
            m_calls.push_back(role + ": " + textOf(stop.thread, stop.call));
            if (role == "invoking" && stop.call.number == SYS_write) {
                m_wasDestroyedBefore = startEventsByte(0) != 0;
                m_invokersMask = statusField(stop.thread, "SigBlk");
            }
        }
    }

    std::string textOf(pid_t thread, const StoppedCall& call) {
        if (call.number == SYS_rt_sigaction) {
            return dispositionText(thread, call);
        }
        if (call.number == SYS_shutdown || call.number == SYS_close) {
            return (call.number == SYS_close ? "close " : "shutdown ") + nameOf(call.arguments[0]);
        }
        if (call.number == SYS_write) {
            const auto length = static_cast<std::size_t>(call.arguments[2]);
            return "says " + readText(thread, call.arguments[1]).substr(0, length);
        }
        if (call.number == SYS_socket && m_listenersMaker == -1) {
            m_listenersMaker = thread;
        }
        const auto* const shown =
            std::find_if(std::begin(shownCalls), std::end(shownCalls),
                         [&call](const ShownCall& known) { return known.number == call.number; });
        return shown == std::end(shownCalls)
                   ? std::string()
                   : shown->name + shown->show(thread, call.arguments[shown->argument]);
    }

    [[nodiscard]] std::string nameOf(std::uint64_t descriptor) const {
        return m_listener != -1 && descriptor == static_cast<std::uint64_t>(m_listener) ? "listener"
                                                                                        : "another";
    }

    std::map<pid_t, std::string> m_roles;
    pid_t m_listenersMaker = -1; ///< the listener is the first socket of the life
    int m_listener = -1;
};

const std::string withoutSignal = "responder: sendto " + std::to_string(MSG_NOSIGNAL);

/// What one process or thread does, in its order.
const std::vector<std::string> orders[] = {
    {"invoking: TTOU ignored", "invoking: TTIN ignored", "invoking: TSTP ignored",
     "invoking: makes intermediate", "invoking: says The ZN Orbisan daemon has started.\n"},
    {"intermediate: setpgid", "intermediate: HUP ignored", "intermediate: makes daemon"},
    {"daemon: open /dev/null", "daemon: umask 0", "daemon: TERM caught",
     std::string("daemon: link ") + lockFile, "daemon: makes responder",
     std::string("daemon: unlink ") + lockFile},
    // The table: its mode comes before its size.
    {"responder: open /dev/shm/znorb.shvars", "responder: fchmod 666", "responder: ftruncate 8196",
     "responder: mmap 8196", "responder: close another"},
    // The socket: its mode comes before the registration.
    {"responder: CHLD ignored", "responder: socket", "responder: unlink /var/run/znorb.socket",
     "responder: bind 110", "responder: chmod /var/run/znorb.socket", "responder: stat /opt/zn/znwbx/",
     "responder: listen 5", "responder: recvfrom 1024", withoutSignal},
    // The end: the listener is closed before the clients' ends count again.
    {"responder: listen 5", "responder: shutdown listener", "responder: close listener",
     "responder: CHLD default", "responder: munmap 8196", "responder: unlink /dev/shm/znorb.shvars",
     std::string("daemon: unlink ") + lockFile},
    // The start is reported when it has happened.
    {"daemon: makes responder", "invoking: says The ZN Orbisan daemon has started.\n"},
};

} // namespace

TEST_F(DaemonsLife, MakesItsSystemCallsInTheirOrder) {
    ZNORB_SKIP_IF(underSanitizer || !canTrace())
        << "no process can be traced here, or none whose exit looks for leaks";
    ZNORB_SKIP_IF(sizeof(void*) == 4) << "with 32 bits the calls are others";
    trace();
    for (const std::vector<std::string>& order : orders) {
        EXPECT_TRUE(isInOrder(order));
    }
    EXPECT_THAT(m_calls, Not(Contains(EndsWith(": setsockopt")))) << "towards requesters or clients";
    EXPECT_THAT(m_calls, Not(Contains(AllOf(StartsWith("responder: sendto "), Ne(withoutSignal)))));

    EXPECT_THAT(m_calls, Not(Contains(AllOf(StartsWith("responder: mmap "), Ne("responder: mmap 8196")))))
        << "both threads have one arena of memory";

    EXPECT_FALSE(m_wasSetBeforeTheThread) << "the start is reported by who has started the thread";
    EXPECT_EQ(startEventsByte(1), 1U);
    EXPECT_FALSE(m_wasDestroyedBefore);
    EXPECT_EQ(startEventsByte(0), 1U) << "the invoking process owns the event and destroys it";
    EXPECT_EQ(m_invokersMask, statusField(getpid(), "SigBlk")) << "it holds nothing back any more";

    EXPECT_EQ(m_ends[processOf("invoking")], exitedWith(0));
    EXPECT_EQ(m_ends[processOf("intermediate")], exitedWith(0));
    EXPECT_EQ(m_ends[processOf("daemon")], exitedWith(255));
    const std::vector<pid_t> exited(m_report->exited, m_report->exited + m_report->exits);
    EXPECT_THAT(exited,
                UnorderedElementsAre(processOf("invoking"), processOf("intermediate"), processOf("daemon")))
        << "all three run their destructors";

    EXPECT_EQ(m_report->detaches, 1U);
    EXPECT_FALSE(m_report->hadLockWhenDetached);
    EXPECT_TRUE(m_report->hadEventWhenDetached);
}

TEST_F(DaemonsLife, ClientsAreLaunchedWithoutWhatIsRegisteredForForks) {
    ZNORB_SKIP_IF(underSanitizer) << "the invoking process would look for leaks at its exit";
    const TemporaryFolder folder;
    const std::string executable = folder / "responder";
    const InPlaceOf<readlink> link([&executable](const char*, char* buffer, std::size_t size) {
        return static_cast<ssize_t>(executable.copy(buffer, size));
    });
    writeFile(folder / "znorbclient", "#!/bin/sh\n", 0755);
    ForkedChild invoker([]() -> int {
        (void)pthread_atfork([]() { ++(*s_report)->forks; }, nullptr, nullptr);
        std::exit(startDaemon());
    });
    EXPECT_EQ(invoker.waitForEnd(), exitedWith(0));
    EXPECT_TRUE(waitUntil([]() { return askDaemon("GET|en") == "0"; }));
    EXPECT_EQ(sharedTable().count, 1U) << "one was launched";
    EXPECT_EQ(m_report->forks, 2U) << "those into the background";
    EXPECT_EQ(askDaemon("QUIT"), "0");
    EXPECT_TRUE(waitUntil([]() { return !exists(lockFile); }));
}
