#include "packaging/tools/ResponderProcesses.h"

#include "packaging/tools/ListeningSockets.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>

namespace ZNORBTOOLS {
namespace {

constexpr const char* sharedMemoryFolder = "/dev/shm";
constexpr const char* deletedSuffix = " (deleted)"; ///< the kernel's, behind the path of an unlinked file

std::string parentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

/// The path as /proc shows it: without symbolic links in its directories.
std::string resolved(const std::string& path, Doubt& doubt) {
    char folder[PATH_MAX];
    if (realpath((parentOf(path) + "/").c_str(), folder) != nullptr) {
        return (std::string(folder) == "/" ? "" : std::string(folder)) + "/" + nameOf(path);
    }
    if (errno != ENOENT && errno != ENOTDIR) { // else it has been removed meanwhile
        doubt.note(parentOf(path), errno);
    }
    return path;
}

/// Whether it acts for root, as every responder does. Anybody else may run the executable and map the lock,
/// and must not be able to hold up the recovery by that.
bool isRoots(pid_t process, Doubt& doubt) {
    bool result = false;
    forEachLine(inProc(process, "status"), doubt, [&](const char* line) {
        if (std::strncmp(line, "Uid:", 4) != 0) {
            return true;
        }
        char* effective = nullptr;
        (void)std::strtoul(line + 4, &effective, 10); // the real one comes first
        result = std::strtoul(effective, nullptr, 10) == 0;
        return false;
    });
    return result;
}

/// Whether /proc is there, numbers the processes as this one does, and shows every process of root's: where
/// it hides any (hidepid), it hides process 1, which may do as much as others of root's.
bool showsProcesses(Doubt& doubt) {
    struct stat status = {};
    if (stat("/proc", &status) != 0) {
        doubt.note("/proc", errno);
    } else if (linkTarget("/proc/self") != std::to_string(getpid())) {
        doubt.add("/proc does not show this process");
    } else if (stat("/proc/1", &status) != 0) {
        doubt.add("/proc hides processes");
    }
    return !doubt.exists();
}

/// Every process of root's but this one for which the predicate holds.
std::vector<pid_t> findProcesses(Doubt& doubt, const std::function<bool(pid_t)>& predicate) {
    std::vector<pid_t> result;
    if (!showsProcesses(doubt)) {
        return result;
    }
    bool metItself = false;
    forEachName("/proc", doubt, [&](const char* name) {
        const long number = std::strtol(name, nullptr, 10);
        const auto process = static_cast<pid_t>(number);
        metItself = metItself || process == getpid();
        if (number > 0 && process != getpid() && isRoots(process, doubt) && predicate(process)) {
            result.push_back(process);
        }
        return true;
    });
    if (!metItself) {
        doubt.add("/proc does not show this process");
    }
    return result;
}

/// False only when both are known and differ.
bool sharesMemoryFolder(pid_t process) {
    struct stat ours = {};
    struct stat theirs = {};
    return stat(sharedMemoryFolder, &ours) != 0 ||
           stat(inProc(process, std::string("root") + sharedMemoryFolder).c_str(), &theirs) != 0 ||
           (ours.st_dev == theirs.st_dev && ours.st_ino == theirs.st_ino);
}

/// True for a command line with the word "-stop". The responder takes no second command beside it, and a
/// daemon keeps the line that it was started with.
bool isStopCommand(pid_t process, Doubt& doubt) {
    const std::string path = inProc(process, "cmdline");
    std::FILE* file = std::fopen(path.c_str(), "re");
    if (file == nullptr) {
        doubt.note(path, errno);
        return false;
    }
    char words[4096];
    const std::size_t length = std::fread(words, 1, sizeof words, file);
    (void)std::fclose(file);
    return std::string(words, length).find(std::string("\0-stop\0", 7)) != std::string::npos;
}

/// Compares no paths: a named semaphore is mapped before it gets its name.
bool maps(pid_t process, const struct stat& status, Doubt& doubt) {
    char device[24];
    (void)std::snprintf(device, sizeof device, "%02x:%02x", major(status.st_dev), minor(status.st_dev));
    const std::string inode = std::to_string(status.st_ino);
    bool result = false;
    forEachLine(inProc(process, "maps"), doubt, [&](const char* line) {
        const std::vector<std::string> fields = splitLine(line, 5); // range, rights, offset, device, inode
        result = fields.size() >= 5 && fields[3] == device && fields[4] == inode;
        return !result;
    });
    return result;
}

/// See runsResponder(); `executable` is resolved.
bool runs(pid_t process, const std::string& executable, Doubt& doubt) {
    const std::string program = linkTarget(inProc(process, "exe"), doubt);
    return (program == executable || program == executable + deletedSuffix) && sharesMemoryFolder(process) &&
           !isStopCommand(process, doubt);
}

} // namespace

std::string installedResponder() {
    const std::string prefix = parentOf(parentOf(linkTarget("/proc/self/exe")));
    return (nameOf(prefix) == "usr" ? parentOf(prefix) : prefix) + "/opt/zn/znorb/bin/znorbresponder";
}

bool runsResponder(pid_t process, const std::string& executable, Doubt& doubt) {
    return showsProcesses(doubt) && runs(process, resolved(executable, doubt), doubt);
}

bool runsAnything(pid_t process) {
    return !linkTarget(inProc(process, "exe")).empty();
}

std::vector<pid_t> findResponders(const std::string& executable, Doubt& doubt) {
    const std::string wanted = resolved(executable, doubt);
    return findProcesses(doubt, [&](pid_t process) { return runs(process, wanted, doubt); });
}

std::vector<pid_t> findUsers(const std::string& path, Doubt& doubt) {
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0) {
        if (errno != ENOENT) {
            doubt.note(path, errno);
        }
        return {};
    }
    return findProcesses(
        doubt, [&](pid_t process) { return maps(process, status, doubt) && !isStopCommand(process, doubt); });
}

bool listensAt(pid_t process, const std::string& path, Doubt& doubt) {
    return holdsAny(process, listeningSockets(std::to_string(process), path, doubt), path, doubt);
}

std::vector<pid_t> findListeners(const std::string& path, Doubt& doubt) {
    const std::vector<std::string> sockets = listeningSockets("self", path, doubt);
    return findProcesses(doubt, [&](pid_t process) {
        return holdsAny(process, sockets, path, doubt) && sharesMemoryFolder(process);
    });
}

} // namespace ZNORBTOOLS
