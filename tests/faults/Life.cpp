#include "tests/faults/Life.h"

#include "tests/faults/InstalledWebConsole.h"
#include "tests/sandbox/Processes.h"
#include "tests/support/DaemonDriver.h"
#include "tests/support/Files.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/PlayedDaemon.h"
#include "tests/tracing/Words.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <memory>

namespace ZNORBFAULTS {
namespace {

using namespace ZNORBTRACING;
using namespace ZNORBTEST;

/// Long enough on a busy machine for what takes milliseconds; used up only by what does not happen at all.
constexpr Milliseconds bound{4000};
/// How long a reply is waited for that most likely never comes.
constexpr Milliseconds hopelessBound{600};
/// How long something that must not happen is waited for.
constexpr Milliseconds patience{150};
/// The processor time, in milliseconds, that no process of a life comes near unless it spins.
constexpr long spinning = 700;

bool isAlive(pid_t pid) {
    return pid > 0 && !programOf(pid).empty();
}

class LifeRun {
public:
    LifeRun(LifeKind kind, const LifeSettings& settings) : m_kind(kind), m_settings(settings) {}
    ~LifeRun() {
        for (const pid_t client : m_driver.clients()) {
            (void)kill(client, SIGKILL);
        }
    }

    LifeRecord run() {
        m_daemon = launch("-d", "invoking", m_settings.environment);
        awaitStart();
        if (m_isServing) {
            request("PRINT", "1st PRINT");
            observeDaemon();
            launchClient("en", "1st client");
            launchClient("de", "2nd client");
            request("PRINT", "2nd PRINT");
            runSecond();
            requestEnd();
        }
        awaitEnds();
        observeEnds(*m_daemon);
        observeRest();
        return {m_seen, allCalls(), isInjected()};
    }

private:
    std::unique_ptr<TracedProgram> launch(const std::string& argument, const std::string& role,
                                          const std::vector<std::string>& environment) const {
        Launch program = m_driver.launch({argument});
        program.environment.insert(program.environment.end(), environment.begin(), environment.end());
        return std::make_unique<TracedProgram>(program, role, m_settings.fault, m_settings.recordsCalls);
    }

    /// Nobody is left who is or will be a daemon.
    bool isDaemonGone() {
        const std::vector<TracedProcess>& processes = m_daemon->processes();
        const bool hasForked = processes.size() > 1 || (!processes.empty() && processes.front().hasEnded);
        return hasForked && std::all_of(processes.begin(), processes.end(), [](const TracedProcess& process) {
                   return process.hasEnded || !process.otherProgram.empty() || process.role == "invoking";
               });
    }

    bool hasEnded(const std::string& role) {
        const TracedProcess* process = m_daemon->find(role);
        return process != nullptr && process->hasEnded;
    }

    /// Until the invoking process has ended and the socket answers, or nobody is left who could. The first
    /// connection that gets through is the first request: the daemon's calls are the same in every life.
    void awaitStart() {
        (void)waitUntil([this]() { return hasEnded("invoking") || isDaemonGone(); }, bound);
        (void)waitUntil([this]() { return connect() || isDaemonGone(); }, bound);
        m_seen["serves"] = m_isServing ? "yes" : "no";
    }

    bool connect() {
        m_connection = std::make_unique<LocalConnection>(LocalConnection::toPath(socketPath));
        m_isServing = m_connection->isConnected();
        return m_isServing;
    }

    std::string ask(const std::string& text) {
        if (m_connection == nullptr && !connect()) {
            return "no connection";
        }
        const std::unique_ptr<LocalConnection> connection = std::move(m_connection);
        (void)connection->send(text);
        const bool isHopeless = m_settings.fault.kind == FaultKind::FailsAlways;
        const std::string reply = connection->receiveUntilClosed(isHopeless ? hopelessBound : bound);
        if (!connection->wasClosed()) {
            return reply.empty() ? "silence" : reply + ", then silence";
        }
        return reply.empty() ? "no reply" : reply;
    }

    static Milliseconds briefly(const std::string& text) {
        return text == "QUIT" ? patience : Milliseconds(0);
    }

    /// Once more when there is no reply.
    std::string request(const std::string& text, const std::string& name) {
        std::string reply = ask(text);
        m_seen[name] = reply;
        // A daemon that ends for all that has a moment to.
        if (reply.starts_with("no ") && !waitUntil([this]() { return isDaemonGone(); }, briefly(text))) {
            reply = ask(text);
            m_seen[name] += ", then " + reply;
        }
        return reply;
    }

    /// The roles of those that were forked to become clients, also by a second daemon.
    std::vector<std::string> launches() {
        std::vector<std::string> roles;
        for (const TracedProcess& process : m_daemon->processes()) {
            if (process.role.find("launch ") != std::string::npos) {
                roles.push_back(process.role);
            }
        }
        return roles;
    }

    /// GET, until the client has filled in its entry. The daemon forks before it replies.
    void launchClient(const std::string& language, const std::string& name) {
        const std::size_t before = launches().size();
        const std::string reply = request("GET|" + language + "|60", "GET for the " + name);
        const std::vector<std::string> now = launches();
        const std::string role = now.size() == before ? "no launch" : now.back();
        (void)waitUntil(bound, [this, &role]() {
            const TracedProcess* process = m_daemon->find(role);
            return process == nullptr || process->hasStayed || process->hasEnded ||
                   !process->otherProgram.empty();
        });
        const TracedProcess* process = m_daemon->find(role);
        const unsigned index = reply == "1" ? 1 : 0;
        const pid_t pid = process != nullptr && !process->otherProgram.empty() ? process->pid : -1;
        bool isFilledIn = false;
        (void)waitUntil(bound, [&]() {
            isFilledIn = DaemonDriver::waitForClient(index, Milliseconds(0));
            return isFilledIn || !isAlive(pid);
        });
        m_seen[name] = isFilledIn && isAlive(pid) ? "runs in " + linkOf(pid, "cwd") : "does not run";
    }

    /// What the process with the responder's thread is like, once it serves and has closed its connection.
    void observeDaemon() {
        pid_t daemon = -1;
        for (const TracedProcess& process : m_daemon->processes()) {
            daemon = process.hasThread ? process.pid : daemon;
        }
        (void)waitUntil(patience,
                        [daemon]() { return descriptorsOf(daemon).find("4 ") == std::string::npos; });
        m_seen["descriptors"] = descriptorsOf(daemon);
        const TracedProcess* intermediate = m_daemon->find("intermediate");
        const bool isMember = intermediate != nullptr && getpgid(daemon) == intermediate->pid;
        m_seen["process group"] = isMember ? "the intermediate process'" : "another";
        for (const std::string field : {"Umask", "SigBlk", "SigIgn", "SigCgt"}) {
            m_seen[field] = statusField(daemon, field).value_or("");
        }
        m_seen["lock's name"] = exists("/dev/shm/sem.znorb.appLock") ? "there" : "absent";
        m_seen["table's mode"] = octal(modeOf("/dev/shm/znorb.shvars"));
        m_seen["socket's mode"] = octal(modeOf(socketPath));
    }

    void runSecond() {
        if (m_kind == LifeKind::Refused) {
            m_other = launch("-d", "second", m_settings.environmentOfOther);
            awaitOther("second");
        }
    }

    void requestEnd() {
        if (m_kind == LifeKind::Stop) {
            m_other = launch("-stop", "stop", m_settings.environmentOfOther);
            awaitOther("stop");
            if (!isDaemonGone() && !waitUntil([this]() { return isDaemonGone(); }, patience)) {
                (void)request("QUIT", "QUIT after it");
            }
        } else if (m_kind == LifeKind::Terminate) {
            for (const TracedProcess& process : m_daemon->processes()) {
                if (process.hasThread && !process.hasEnded) {
                    // To the main thread, which always takes it: so the handler's calls are main's.
                    (void)syscall(SYS_tgkill, process.pid, process.pid, SIGTERM);
                }
            }
        } else {
            (void)request("QUIT", "QUIT");
        }
    }

    /// A stop that was not heard waits for a minute.
    Milliseconds boundOfOther() const {
        return m_settings.isPatient ? Milliseconds(75000) : Milliseconds(6500);
    }

    void awaitOther(const std::string& role) {
        const bool hasEnded = waitUntil(
            [this]() {
                const std::vector<TracedProcess>& processes = m_other->processes();
                return !processes.empty() &&
                       std::all_of(processes.begin(), processes.end(),
                                   [](const TracedProcess& process) { return process.hasEnded; });
            },
            boundOfOther());
        if (!hasEnded) {
            endOther();
        }
        observeProgram(*m_other, role);
        observeEnds(*m_other);
    }

    void endOther() {
        for (const TracedProcess& process : std::vector<TracedProcess>(m_other->processes())) {
            if (!process.hasEnded) {
                m_needed[process.role] = "waits on, ";
                (void)kill(process.pid, SIGKILL);
                (void)waitUntil(bound, [&]() {
                    const TracedProcess* now = m_other->find(process.role);
                    return now != nullptr && now->hasEnded;
                });
            }
        }
    }

    void observeProgram(const TracedProgram& program, const std::string& role) {
        m_seen[role + " says"] = program.output() + program.errors();
        std::string& said = m_seen[role + " says"];
        said.erase(std::remove(said.begin(), said.end(), '\n'), said.end());
    }

    /// Whether the request was made twice, in vain.
    bool wasRefused(const std::string& name) const {
        const auto seen = m_seen.find(name);
        return seen != m_seen.end() && seen->second.ends_with("then no reply");
    }

    /// The daemon's processes end by themselves, or by SIGTERM, or they hang. The invoking process waits for
    /// ever when its daemon is gone before it was ready; so nobody waits for it.
    void awaitEnds() {
        const bool isExpected = !wasRefused("QUIT") && !wasRefused("QUIT after it");
        (void)waitUntil([this]() { return isDaemonGone(); }, isExpected ? bound : hopelessBound);
        for (const TracedProcess& process : std::vector<TracedProcess>(m_daemon->processes())) {
            if (process.hasEnded || !process.otherProgram.empty() || process.role == "invoking") {
                continue;
            }
            (void)kill(process.pid, SIGTERM);
            m_needed[process.role] = "after SIGTERM ";
            if (!waitUntil([&]() { return hasEnded(process.role); }, bound)) {
                (void)kill(process.pid, SIGKILL);
                m_needed[process.role] = "HANGS, ";
                (void)waitUntil([&]() { return hasEnded(process.role); }, bound);
            }
        }
        if (!waitUntil([this]() { return hasEnded("invoking"); }, patience)) {
            const TracedProcess* invoking = m_daemon->find("invoking");
            if (invoking != nullptr) {
                m_needed["invoking"] = "waits for ever, ";
                (void)kill(invoking->pid, SIGKILL);
                (void)waitUntil([this]() { return hasEnded("invoking"); }, bound);
            }
        }
        observeProgram(*m_daemon, "invoking");
    }

    void observeEnds(TracedProgram& program) {
        for (const TracedProcess& process : program.processes()) {
            std::string& end = m_seen[process.role];
            end = m_needed[process.role];
            if (!process.otherProgram.empty()) {
                end += "becomes " + process.otherProgram;
            } else {
                end += process.hasEnded ? describeEnd(process.waitStatus) : "NO END";
            }
            if (process.milliseconds >= spinning) {
                end += ", SPINS (" + std::to_string(process.milliseconds) + " ms)";
            }
        }
    }

    void observeRest() {
        const bool areAsked =
            m_kind != LifeKind::Terminate && !wasRefused("QUIT") && !wasRefused("QUIT after it");
        if (areAsked) {
            (void)waitUntil([this]() { return m_driver.clients().empty(); }, Milliseconds(1500));
        }
        m_seen["clients left"] = std::to_string(m_driver.clients().size());
        const std::string left = joined(withoutChance(m_driver.newNames()), ", ");
        m_seen["names left"] = left.empty() ? "nothing" : left;
        m_seen["pages"] = m_console.stateOfPages(m_driver.requestor());
    }

    std::vector<RecordedCall> allCalls() {
        std::vector<RecordedCall> calls = m_daemon->calls();
        if (m_other != nullptr) {
            calls.insert(calls.end(), m_other->calls().begin(), m_other->calls().end());
        }
        return calls;
    }

    bool isInjected() const {
        return m_daemon->isFaultInjected() || (m_other != nullptr && m_other->isFaultInjected());
    }

    const LifeKind m_kind;
    const LifeSettings m_settings;
    const InstalledWebConsole m_console;
    DaemonDriver m_driver;
    std::unique_ptr<TracedProgram> m_daemon;
    std::unique_ptr<TracedProgram> m_other;
    std::unique_ptr<LocalConnection> m_connection;
    bool m_isServing = false;
    Observation m_seen;
    std::map<std::string, std::string> m_needed; ///< by role: what it took to end it
};

} // namespace

std::string describe(LifeKind kind) {
    switch (kind) {
    case LifeKind::Quit:
        return "QUIT";
    case LifeKind::Stop:
        return "-stop";
    case LifeKind::Terminate:
        return "SIGTERM";
    case LifeKind::Refused:
        return "second -d";
    }
    return "";
}

LifeRecord runLife(LifeKind kind, const LifeSettings& settings) {
    return LifeRun(kind, settings).run();
}

} // namespace ZNORBFAULTS
