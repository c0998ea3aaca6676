#include "tests/sandbox/Sandbox.h"

#include "tests/sandbox/DirectSession.h"
#include "tests/sandbox/OrphanRecord.h"
#include "tests/sandbox/PrivateMounts.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace ZNORBTEST {
namespace {

constexpr const char* modeVariable = "ZNORB_SANDBOX";
/// Tells a runner's children that, and in which kind of sandbox, they are.
constexpr const char* insideVariable = "ZNORB_SANDBOX_INSIDE";
constexpr int setUpMilliseconds = 60000;
constexpr const char* ready = "ready";

/// Of the sandbox whose pid 1 made this process its runner.
const OrphanRecord* s_orphans = nullptr;

std::string failure(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

std::string linkTarget(const char* link) {
    char target[PATH_MAX];
    const ssize_t length = readlink(link, target, sizeof target);
    return length > 0 ? std::string(target, static_cast<std::size_t>(length)) : std::string();
}

// ---- the runner ------------------------------------------------------------------------------------

[[noreturn]] void runBody(const std::string& inside, const std::function<int()>& body) {
    (void)prctl(PR_SET_CHILD_SUBREAPER, 1);
    (void)setenv(insideVariable, inside.c_str(), 1);
    std::exit(body()); // NOLINT(concurrency-mt-unsafe): a normal exit is the promise
}

// ---- isolated --------------------------------------------------------------------------------------

/// Shared between the caller, pid 1 and the runner.
struct Session {
    OrphanRecord* orphans = nullptr;
    std::atomic<int>* waitStatus = nullptr; ///< the runner's, once pid 1 has ended
    int report[2] = {-1, -1};               ///< pipe from pid 1 to the caller: "ready", or what failed
};

std::string writeFile(const char* path, const std::string& text) {
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    if (file == -1) {
        return failure(std::string("open ") + path);
    }
    const ssize_t written = write(file, text.data(), text.size());
    const std::string problem = written == -1 ? failure(std::string("write ") + path) : "";
    (void)close(file);
    return problem;
}

/// The caller becomes root of its new user namespace, and the only user there is in it.
std::string becomeRoot(uid_t user, gid_t group) {
    std::string problem = writeFile("/proc/self/setgroups", "deny"); // or the group may not be mapped
    if (problem.empty()) {
        problem = writeFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    }
    if (problem.empty()) {
        problem = writeFile("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
    }
    return problem;
}

/// Paths that must stay in sight, should they lie in what is covered.
std::vector<std::string> pathsInUse() {
    std::vector<std::string> paths = {linkTarget("/proc/self/exe"), linkTarget("/proc/self/cwd")};
    const char* folder = std::getenv("TMPDIR");
    if (folder != nullptr) {
        paths.emplace_back(folder);
    }
    return paths;
}

[[noreturn]] void reapUntil(pid_t runner, const Session& session) {
    for (;;) {
        int waitStatus = 0;
        const pid_t pid = waitpid(-1, &waitStatus, 0);
        if (pid == runner) {
            session.waitStatus->store(waitStatus);
            _exit(EXIT_SUCCESS); // what still runs ends with its pid 1
        }
        if (pid > 0) {
            session.orphans->add(pid, waitStatus);
        } else if (errno != EINTR) {
            _exit(EXIT_FAILURE);
        }
    }
}

struct Identity {
    uid_t user;
    gid_t group;
    bool mapped; ///< in a user namespace of its own
};

[[noreturn]] void init(const Session& session, const Identity& outside, const std::function<int()>& body) {
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
    (void)close(session.report[0]); // so that the write below fails when the caller has gone meanwhile
    std::string problem = outside.mapped ? becomeRoot(outside.user, outside.group) : "";
    if (problem.empty()) {
        problem = mountPrivateDirectories(pathsInUse());
    }
    const pid_t runner = problem.empty() ? fork() : -1;
    if (runner == 0) {
        (void)close(session.report[1]);
        s_orphans = session.orphans;
        runBody("isolated " + linkTarget("/proc/self/ns/pid"), body);
    }
    if (runner == -1 && problem.empty()) {
        problem = failure("fork");
    }
    const std::string text = runner > 0 ? ready : problem;
    const ssize_t written = write(session.report[1], text.data(), text.size());
    (void)close(session.report[1]);
    if (runner == -1 || written == -1) {
        _exit(EXIT_FAILURE);
    }
    reapUntil(runner, session);
}

/// Everything that pid 1 has to say; bounded.
std::string readReport(int descriptor) {
    std::string text;
    char buffer[1024];
    pollfd wanted = {descriptor, POLLIN, 0};
    while (poll(&wanted, 1, setUpMilliseconds) > 0) {
        const ssize_t length = read(descriptor, buffer, sizeof buffer);
        if (length <= 0) {
            return text;
        }
        text.append(buffer, static_cast<std::size_t>(length));
    }
    return "the namespaces were not ready within a minute";
}

/// fork() with new namespaces, leaving those of the caller alone.
pid_t forkInto(int namespaces) {
    return static_cast<pid_t>(syscall(SYS_clone, namespaces | SIGCHLD, nullptr, nullptr, nullptr, nullptr));
}

bool openSession(Session& session) {
    void* memory = mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    session.orphans = OrphanRecord::createShared();
    if (memory == MAP_FAILED || session.orphans == nullptr || pipe2(session.report, O_CLOEXEC) != 0) {
        return false;
    }
    session.waitStatus = new (memory) std::atomic<int>(SIGKILL); // of a sandbox that dies as a whole
    return true;
}

/// False when the namespaces cannot be had, `problem` tells why; else the runner's wait status.
bool runIsolated(int namespaces, const std::function<int()>& body, int& waitStatus, std::string& problem) {
    Session session;
    if (!openSession(session)) {
        problem = failure("memory for a sandbox");
        return false;
    }
    const Identity outside = {geteuid(), getegid(), (namespaces & CLONE_NEWUSER) != 0};
    const pid_t child = forkInto(namespaces);
    if (child == 0) {
        init(session, outside, body);
    }
    problem = child == -1 ? failure("new namespaces") : "";
    (void)close(session.report[1]);
    if (child > 0) {
        problem = readReport(session.report[0]);
        if (problem != ready) {
            (void)kill(child, SIGKILL);
        }
        while (waitpid(child, nullptr, 0) == -1 && errno == EINTR) {
        }
        waitStatus = session.waitStatus->load();
    }
    (void)close(session.report[0]);
    return problem == ready;
}

// ---- direct ----------------------------------------------------------------------------------------

SandboxOutcome runDirectly(const std::function<int()>& body, const SandboxOptions& options) {
    DirectSession session;
    if (currentSandboxMode() != SandboxMode::Direct) { // else it is the turn of this process already
        const std::string problem = session.begin(options.lockSeconds);
        if (!problem.empty()) {
            return {SandboxOutcome::Kind::Refused, 0, problem};
        }
    }
    const int waitStatus = session.run([&body]() { runBody("direct " + std::to_string(getpid()), body); });
    session.end();
    return {SandboxOutcome::Kind::Ended, waitStatus, ""};
}

} // namespace

SandboxOutcome runSandboxed(const std::function<int()>& body, const SandboxOptions& options) {
    (void)signal(SIGCHLD, SIG_DFL); // inherited as ignored, it would hide how children end
    (void)std::fflush(nullptr);     // or the runner would write it once more
    const char* wanted = std::getenv(modeVariable);
    std::string problem = "direct mode is asked for";
    if (wanted == nullptr || std::strcmp(wanted, "direct") != 0) {
        std::vector<int> attempts = {CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWPID};
        if (geteuid() == 0) {
            attempts.insert(attempts.begin(), CLONE_NEWNS | CLONE_NEWPID);
        }
        for (const int namespaces : attempts) {
            int waitStatus = 0;
            if (runIsolated(namespaces, body, waitStatus, problem)) {
                return {SandboxOutcome::Kind::Ended, waitStatus, ""};
            }
        }
    }
    if (geteuid() != 0) {
        return {SandboxOutcome::Kind::Unavailable, 0,
                "needs root, or a user who may create user namespaces (" + problem + ")"};
    }
    return runDirectly(body, options);
}

void endLike(int waitStatus) {
    if (WIFSIGNALED(waitStatus)) {
        const int number = WTERMSIG(waitStatus);
        const rlimit none = {0, 0};
        (void)setrlimit(RLIMIT_CORE, &none); // the one that mattered has been written
        (void)signal(number, SIG_DFL);
        sigset_t signals;
        (void)sigemptyset(&signals);
        (void)sigaddset(&signals, number);
        (void)sigprocmask(SIG_UNBLOCK, &signals, nullptr);
        (void)kill(getpid(), number);
    }
    _exit(WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : EXIT_FAILURE);
}

SandboxMode currentSandboxMode() {
    const char* value = std::getenv(insideVariable);
    const std::string inside = value != nullptr ? value : "";
    if (inside == "isolated " + linkTarget("/proc/self/ns/pid")) {
        return SandboxMode::Isolated;
    }
    const std::string direct = "direct ";
    if (inside.compare(0, direct.size(), direct) == 0) {
        const long runner = std::strtol(inside.c_str() + direct.size(), nullptr, 10);
        if (runner > 0 && kill(static_cast<pid_t>(runner), 0) == 0) {
            return SandboxMode::Direct;
        }
    }
    return SandboxMode::None;
}

std::optional<int> endOfOrphan(pid_t pid) {
    return s_orphans != nullptr ? s_orphans->find(pid) : std::nullopt;
}

} // namespace ZNORBTEST
