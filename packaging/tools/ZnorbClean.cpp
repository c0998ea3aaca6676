#include "common/processes/GlobalLock.h"
#include "packaging/tools/ResponderProcesses.h"
#include "packaging/tools/ToolArguments.h"
#include "responder/RuntimeNames.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

/// znorb-clean: removes the lock and the table that a dead responder has left behind, and nothing of a living
/// one's. What makes it safe to run at any time:
///
/// - It looks for processes, not at the lock's count: a count tells nothing about who held it.
/// - Where it could not look it does not know, and removes nothing.
/// - The lock goes last: while its name exists every `znorbresponder -d` is refused, and no new daemon can
///   make names of its own in between.
/// - An object is removed only while it is the one that was there before the processes were looked at.
/// - Cleaners take turns.
namespace {

using namespace ZNORBTOOLS;

enum ExitStatus { Clean = 0, Failed = 1, Running = 2 };

constexpr const char* turnFile = "/run/znorb-clean.lock"; ///< root's own: nobody else can hold a cleaner up
constexpr int turnSeconds = 10;

/// A file in /dev/shm as it was found.
struct Leftover {
    std::string what;
    std::string path;
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
};

void say(std::FILE* stream, const std::string& text) {
    (void)std::fprintf(stream, "znorb-clean: %s\n", text.c_str());
}

Leftover look(const std::string& what, const std::string& path) {
    struct stat status = {};
    Leftover result = {what, path};
    result.exists = lstat(path.c_str(), &status) == 0;
    result.device = status.st_dev;
    result.inode = status.st_ino;
    return result;
}

bool isStillThere(const Leftover& leftover) {
    const Leftover now = look(leftover.what, leftover.path);
    return leftover.exists && now.exists && now.device == leftover.device && now.inode == leftover.inode;
}

std::string listed(const std::vector<pid_t>& processes) {
    std::string result;
    for (const pid_t process : processes) {
        result += (result.empty() ? "" : ", ") + std::to_string(process);
    }
    return result;
}

/// Why nothing may be removed, with the exit status that says so; Clean when nothing speaks against it.
struct Objection {
    ExitStatus status = Clean;
    std::string reason;
};

/// Who speaks against it, as far as could be looked.
std::string whoRuns(const std::string& executable, const Leftover& lock, Doubt& doubt) {
    const std::vector<pid_t> responders = findResponders(executable, doubt);
    if (!responders.empty()) {
        return "a responder runs (process " + listed(responders) + ")";
    }
    const std::vector<pid_t> holders = findUsers(lock.path, doubt);
    if (!holders.empty()) {
        return "process " + listed(holders) + " uses " + lock.path;
    }
    const std::vector<pid_t> listeners = findListeners(ZNORBRESPONDER::commandSocketPath, doubt);
    return listeners.empty()
               ? std::string()
               : "process " + listed(listeners) + " listens on " + ZNORBRESPONDER::commandSocketPath;
}

Objection objection(const std::string& executable, const Leftover& lock) {
    Doubt doubt(executable);
    const std::string somebody = whoRuns(executable, lock, doubt);
    if (!somebody.empty()) {
        return {Running, somebody};
    }
    return doubt.exists() ? Objection{Failed, "cannot tell whether a responder runs: " + doubt.text()}
                          : Objection{};
}

/// False when it is there and cannot be removed.
bool removeLeftover(const Leftover& leftover, bool dryRun) {
    if (!isStillThere(leftover)) {
        return true;
    }
    if (dryRun) {
        say(stdout, "would remove " + leftover.what + " " + leftover.path);
        return true;
    }
    if (unlink(leftover.path.c_str()) != 0 && errno != ENOENT) {
        say(stderr, "cannot remove " + leftover.path + ": " + std::strerror(errno));
        return false;
    }
    say(stdout, "removed " + leftover.what + " " + leftover.path);
    return true;
}

/// The descriptor holds the turn until this process ends; -1 when it cannot be had in time.
int takeTurn() {
    const int file = open(turnFile, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (file == -1) {
        return -1;
    }
    constexpr int pollsPerSecond = 20;
    for (int poll = 0; poll < turnSeconds * pollsPerSecond; ++poll) {
        if (flock(file, LOCK_EX | LOCK_NB) == 0) {
            return file;
        }
        const timespec pause = {0, 1'000'000'000L / pollsPerSecond};
        (void)nanosleep(&pause, nullptr);
    }
    (void)close(file);
    return -1;
}

int refuse(const Objection& objection, const std::string& when) {
    say(stderr, objection.reason + when + "; nothing was removed");
    return objection.status;
}

int clean(const ToolArguments& arguments) {
    const Leftover table =
        look("the stale table", std::string("/dev/shm") + ZNORBRESPONDER::sharedVariablesName);
    const Leftover lock = look("the stale lock", std::string(ORBCOMMON::semaphoreFiles) +
                                                     (ZNORBRESPONDER::applicationLockName + 1));
    const Objection before = objection(arguments.executable, lock);
    if (before.status != Clean) {
        return refuse(before, "");
    }
    if (!removeLeftover(table, arguments.dryRun)) {
        return Failed;
    }
    const Objection byNow = objection(arguments.executable, lock);
    if (byNow.status != Clean) {
        return refuse(byNow, " by now");
    }
    return removeLeftover(lock, arguments.dryRun) ? Clean : Failed;
}

} // namespace

int main(int argc, char** argv) {
    const ToolArguments arguments = parseToolArguments(argc, argv, "ne:", false);
    if (!arguments.accepted) {
        (void)std::fputs("usage: znorb-clean [-n] [-e executable]\n", stderr);
        return Failed;
    }
    if (geteuid() != 0) {
        say(stderr, "only root can tell which processes run the responder");
        return Failed;
    }
    if (takeTurn() == -1) {
        say(stderr, std::string("cannot lock ") + turnFile);
        return Failed;
    }
    return clean(arguments);
}
