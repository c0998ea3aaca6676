#include "tests/sandbox/DirectSession.h"

#include "tests/sandbox/Processes.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace ZNORBTEST {
namespace {

constexpr const char* lockName = "/dev/shm/sem.znorb.appLock";
constexpr const char* tableName = "/dev/shm/znorb.shvars";
constexpr const char* socketName = "/var/run/znorb.socket";
constexpr const char* turnName = "/run/znorb-clean.lock";
constexpr const char* installation = "/opt/zn";
constexpr const char* mark = "/opt/zn/.znorb-sandbox";

constexpr int pollMicroseconds = 20000;

bool exists(const char* path) {
    struct stat status {};
    return lstat(path, &status) == 0;
}

bool somebodyServesTheSocket() {
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor == -1) {
        return false;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (void)std::strncpy(address.sun_path, socketName, sizeof address.sun_path - 1);
    const bool connected =
        connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ||
        errno == EAGAIN;
    (void)close(descriptor);
    return connected;
}

void removeNames() {
    (void)unlink(lockName);
    (void)unlink(tableName);
    (void)unlink(socketName);
    (void)unlink(turnName);
    std::error_code ignored; // what cannot be removed makes the next session refuse, with its name
    (void)std::filesystem::remove_all(installation, ignored);
}

/// Ends this process' children, and those that become its children thereby: it is a subreaper.
void endChildren() {
    for (int round = 0; round < 500; ++round) {
        const std::vector<pid_t> children = childrenOf(getpid());
        if (children.empty()) {
            return;
        }
        for (const pid_t child : children) {
            (void)kill(child, SIGKILL);
            (void)waitpid(child, nullptr, WNOHANG);
        }
        (void)usleep(pollMicroseconds);
    }
}

/// Waits for the child; ends it on a signal that asks this process to end. The signals are blocked and taken
/// one by one: a handler would be called late, or never, under ThreadSanitizer.
int waitFor(pid_t child, const sigset_t& awaited) {
    int waitStatus = 0;
    while (waitpid(child, &waitStatus, WNOHANG) != child) {
        const timespec bound = {1, 0};
        const int number = sigtimedwait(&awaited, nullptr, &bound);
        if (number > 0 && number != SIGCHLD) {
            (void)kill(child, SIGKILL);
        }
    }
    return waitStatus;
}

} // namespace

DirectSession::~DirectSession() {
    end();
    if (m_lock != -1) {
        (void)close(m_lock);
    }
}

/// Opens and locks the file; false with errno when either fails. The one before may have removed the file
/// between the two: then the lock is worth nothing.
bool DirectSession::tryLock() {
    m_lock = open(m_lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (m_lock == -1) {
        return false;
    }
    struct stat locked {};
    struct stat named {};
    const bool isLocked = flock(m_lock, LOCK_EX | LOCK_NB) == 0;
    if (isLocked && fstat(m_lock, &locked) == 0 && stat(m_lockPath.c_str(), &named) == 0 &&
        locked.st_ino == named.st_ino && locked.st_dev == named.st_dev) {
        return true;
    }
    (void)close(m_lock);
    m_lock = -1;
    errno = EWOULDBLOCK;
    return false;
}

std::string DirectSession::takeLock(int seconds) {
    const char* folder = std::getenv("TMPDIR");
    m_lockPath = std::string(folder != nullptr && *folder != '\0' ? folder : "/tmp") + "/znorb-sandbox.lock";
    for (long long waited = 0; !tryLock(); waited += pollMicroseconds) {
        if (errno != EWOULDBLOCK) {
            return "the lock file " + m_lockPath + " cannot be opened: " + std::strerror(errno);
        }
        if (waited >= seconds * 1000000LL) {
            return "another session has held " + m_lockPath + " for " + std::to_string(seconds) + " seconds";
        }
        (void)usleep(pollMicroseconds);
    }
    return "";
}

std::string DirectSession::begin(int lockSeconds) {
    std::string problem = takeLock(lockSeconds);
    if (!problem.empty()) {
        return problem;
    }
    if (somebodyServesTheSocket()) {
        return std::string("a daemon is running on this machine (") + socketName +
               " is served): stop it first";
    }
    if (exists(mark)) { // of a session that was killed
        removeNames();
    }
    for (const char* name : {lockName, tableName, installation}) {
        if (exists(name)) {
            return std::string(name) +
                   " exists on this machine, and a test must not touch what it did not make";
        }
    }
    std::error_code error;
    (void)std::filesystem::create_directories(installation, error);
    const int file = open(mark, O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (file == -1) {
        return std::string(mark) + " cannot be made: " + std::strerror(errno);
    }
    (void)close(file);
    m_begun = true;
    return "";
}

int DirectSession::run(const std::function<void()>& runner) {
    (void)prctl(PR_SET_CHILD_SUBREAPER, 1); // for what the runner leaves behind
    sigset_t awaited = {};
    sigset_t before = {};
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGCHLD}) {
        (void)sigaddset(&awaited, number);
    }
    (void)sigprocmask(SIG_BLOCK, &awaited, &before);
    const pid_t caller = getpid();
    const pid_t child = fork();
    if (child == 0) {
        (void)sigprocmask(SIG_SETMASK, &before, nullptr);
        (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != caller) {
            _exit(EXIT_FAILURE);
        }
        runner();
        _exit(EXIT_FAILURE); // not reached
    }
    const int waitStatus = child > 0 ? waitFor(child, awaited) : W_EXITCODE(EXIT_FAILURE, 0);
    (void)sigprocmask(SIG_SETMASK, &before, nullptr);
    return waitStatus;
}

void DirectSession::end() {
    if (m_begun) {
        m_begun = false;
        endChildren();
        removeNames();
        (void)unlink(m_lockPath.c_str());
    }
}

} // namespace ZNORBTEST
