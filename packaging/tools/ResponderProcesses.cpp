#include "packaging/tools/ResponderProcesses.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
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

std::string inProc(pid_t process, const std::string& name) {
    return "/proc/" + std::to_string(process) + "/" + name;
}

/// Empty when the link cannot be read; errno tells why.
std::string linkTarget(const std::string& link) {
    char target[PATH_MAX];
    const ssize_t length = readlink(link.c_str(), target, sizeof target);
    return length > 0 ? std::string(target, static_cast<std::size_t>(length)) : std::string();
}

/// A target too long for a path is that of no file which is looked for here.
std::string linkTarget(const std::string& link, Doubt& doubt) {
    std::string target = linkTarget(link);
    if (target.empty() && errno != ENAMETOOLONG) {
        doubt.note(link, errno);
    }
    return target;
}

std::string parentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

std::string nameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
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

/// Calls the function with each name in the directory, until it returns false.
void forEachName(const std::string& path, Doubt& doubt, const std::function<bool(const char*)>& function) {
    DIR* directory = opendir(path.c_str());
    if (directory == nullptr) {
        doubt.note(path, errno);
        return;
    }
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(directory);
        if (entry == nullptr && errno != 0) {
            doubt.note(path, errno);
        }
        if (entry == nullptr || !function(entry->d_name)) {
            break;
        }
    }
    (void)closedir(directory);
}

/// Calls the function with each line of the file, its end cut off, until it returns false.
void forEachLine(const std::string& path, Doubt& doubt, const std::function<bool(const char*)>& function) {
    std::FILE* file = std::fopen(path.c_str(), "re");
    if (file == nullptr) {
        doubt.note(path, errno);
        return;
    }
    char* line = nullptr;
    std::size_t capacity = 0;
    for (;;) {
        const ssize_t length = getline(&line, &capacity, file);
        if (length <= 0 && std::feof(file) == 0) {
            doubt.note(path, errno);
        }
        if (length > 0 && line[length - 1] == '\n') {
            line[length - 1] = '\0';
        }
        if (length <= 0 || !function(line)) {
            break;
        }
    }
    std::free(line); // getline() allocates it
    (void)std::fclose(file);
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

/// The first fields of a line, and behind them the rest of it as one more. Fewer when the line ends before.
std::vector<std::string> splitLine(const std::string& line, std::size_t fields) {
    std::vector<std::string> result;
    std::size_t position = line.find_first_not_of(' ');
    while (position != std::string::npos && result.size() < fields) {
        const std::size_t end = line.find(' ', position);
        result.push_back(line.substr(position, end - position));
        position = line.find_first_not_of(' ', end);
    }
    if (position != std::string::npos) {
        result.push_back(line.substr(position));
    }
    return result;
}

/// The inode of the socket that a line of /proc/net/unix tells of; empty unless it listens at the path.
std::string listeningInode(const std::string& line, const std::string& path) {
    constexpr unsigned long acceptsConnections = 0x10000; // __SO_ACCEPTCON, the kernel's own
    // Num RefCount Protocol Flags Type St Inode, and for sockets that have one their path
    const std::vector<std::string> fields = splitLine(line, 7);
    const bool listens = fields.size() == 8 && fields[7] == path &&
                         (std::strtoul(fields[3].c_str(), nullptr, 16) & acceptsConnections) != 0;
    return listens ? fields[6] : "";
}

std::vector<std::string> listeningSockets(const std::string& table, const std::string& path, Doubt& doubt) {
    std::vector<std::string> result;
    forEachLine(table, doubt, [&](const char* line) {
        const std::string inode = listeningInode(line, path);
        if (!inode.empty()) {
            result.push_back("socket:[" + inode + "]");
        }
        return true;
    });
    return result;
}

/// True when one of the process's descriptors is one of the sockets, given as their links in /proc read.
bool holdsAny(pid_t process, const std::vector<std::string>& sockets, Doubt& doubt) {
    bool result = false;
    const std::string descriptors = inProc(process, "fd");
    if (sockets.empty()) {
        return false;
    }
    forEachName(descriptors, doubt, [&](const char* name) {
        const bool isDescriptor = *name != '.';
        const std::string target = isDescriptor ? linkTarget(descriptors + "/" + name, doubt) : "";
        result = std::find(sockets.begin(), sockets.end(), target) != sockets.end();
        return !result;
    });
    return result;
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

/// For a process that may not be looked into: false when it has another name, or has ended and runs nothing.
bool mayRun(const std::string& folder, const std::string& name) {
    if (linkTarget(folder + "exe").empty() && errno == ENOENT) {
        return false;
    }
    std::FILE* file = std::fopen((folder + "comm").c_str(), "re");
    if (file == nullptr) {
        return true;
    }
    char line[64] = {};
    const bool isKnown = std::fgets(line, sizeof line, file) != nullptr;
    (void)std::fclose(file);
    return !isKnown || name + "\n" == line;
}

} // namespace

Doubt::Doubt(const std::string& executable)
    : m_name(nameOf(executable).substr(0, 15)) {} // the kernel cuts it there

void Doubt::add(const std::string& text) {
    if (m_text.empty()) {
        m_text = text;
    }
}

void Doubt::note(const std::string& path, int error) {
    const std::string processes = "/proc/";
    const std::size_t number = processes.size();
    if (path.starts_with(processes) && path.find_first_of("0123456789") == number) {
        const std::string folder = path.substr(0, path.find('/', number) + 1);
        const bool hasGone = error == ENOENT || error == ESRCH;
        const bool isForbidden = error == EACCES || error == EPERM;
        if (hasGone || (isForbidden && !mayRun(folder, m_name))) {
            return;
        }
    }
    add("cannot read " + path + ": " + std::strerror(error));
}

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
    return holdsAny(process, listeningSockets(inProc(process, "net/unix"), path, doubt), doubt);
}

std::vector<pid_t> findListeners(const std::string& path, Doubt& doubt) {
    const std::vector<std::string> sockets = listeningSockets("/proc/self/net/unix", path, doubt);
    return findProcesses(doubt, [&](pid_t process) {
        return holdsAny(process, sockets, doubt) && sharesMemoryFolder(process);
    });
}

} // namespace ZNORBTOOLS
