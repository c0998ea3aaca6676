#include "tests/sandbox/PrivateMounts.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>

namespace ZNORBTEST {
namespace {

using KeepEntry = std::function<bool(const std::string& name)>;

std::string failure(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

/// The path without symbolic links; empty when it leads nowhere.
std::string realPath(const std::string& path) {
    char buffer[PATH_MAX];
    return realpath(path.c_str(), buffer) != nullptr ? std::string(buffer) : std::string();
}

/// An open directory; its descriptor still leads to it when something has been mounted on top.
class Directory {
public:
    explicit Directory(const std::string& path) : m_stream(opendir(path.c_str())) {}
    ~Directory() {
        if (m_stream != nullptr) {
            (void)closedir(m_stream);
        }
    }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    std::vector<std::string> names() const {
        std::vector<std::string> result;
        while (m_stream != nullptr) {
            const dirent* entry = readdir(m_stream);
            if (entry == nullptr) {
                break;
            }
            const std::string name = entry->d_name;
            if (name != "." && name != "..") {
                result.push_back(name);
            }
        }
        return result;
    }

    std::string pathOf(const std::string& name) const {
        return "/proc/self/fd/" + std::to_string(dirfd(m_stream)) + "/" + name;
    }

private:
    DIR* m_stream;
};

/// Shows `source` at `target`, which does not exist yet. What cannot be shown is left out: it would be
/// missed by the tests that need it.
void showThrough(const std::string& source, const std::string& target) {
    struct stat status {};
    if (lstat(source.c_str(), &status) != 0) {
        return;
    }
    if (S_ISLNK(status.st_mode)) {
        char text[PATH_MAX];
        const ssize_t length = readlink(source.c_str(), text, sizeof text);
        if (length > 0) {
            const std::string destination(text, static_cast<std::size_t>(length));
            (void)symlink(destination.c_str(), target.c_str());
        }
        return;
    }
    if (S_ISDIR(status.st_mode)) {
        (void)mkdir(target.c_str(), 0755);
    } else {
        const int file = open(target.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        if (file != -1) {
            (void)close(file);
        }
    }
    // Recursive: in a user namespace of its own a process may not uncover what lies below a mount.
    (void)mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr);
}

std::string mountEmpty(const std::string& target, const char* mode, const KeepEntry& isKept) {
    const Directory covered(target);
    const std::vector<std::string> names = covered.names();
    if (mount("tmpfs", target.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, mode) != 0) {
        return failure("mount " + target);
    }
    for (const std::string& name : names) {
        if (isKept(name)) {
            showThrough(covered.pathOf(name), target + "/" + name);
        }
    }
    return "";
}

/// Keeps the entries of `directory` in which one of the paths lies.
KeepEntry containing(const std::string& directory, const std::vector<std::string>& paths) {
    return [directory, paths](const std::string& name) {
        const std::string entry = directory + "/" + name;
        for (const std::string& path : paths) {
            if (path == entry || path.compare(0, entry.size() + 1, entry + "/") == 0) {
                return true;
            }
        }
        return false;
    };
}

} // namespace

std::string mountPrivateDirectories(const std::vector<std::string>& kept) {
    // Otherwise the mounts below would show outside, on a system that shares its mounts.
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return failure("make the mounts private");
    }
    // Resolved before the first mount hides a link: /dev/shm may lead into /run.
    const std::string run = realPath("/run");
    const std::string varRun = realPath("/var/run");
    const std::string sharedMemory = realPath("/dev/shm");
    const std::string optional = realPath("/opt");
    if (run.empty() || varRun.empty() || sharedMemory.empty() || optional.empty()) {
        return "/run, /var/run, /dev/shm or /opt does not exist";
    }
    std::string problem = mountEmpty(run, "mode=0755", containing(run, kept));
    if (problem.empty() && varRun != run) {
        problem = mountEmpty(varRun, "mode=0755", containing(varRun, kept));
    }
    if (problem.empty()) {
        (void)mkdir(sharedMemory.c_str(), 01777); // exists, unless it lay in what is covered now
        problem = mountEmpty(sharedMemory, "mode=1777", containing(sharedMemory, kept));
    }
    if (problem.empty()) {
        problem = mountEmpty(optional, "mode=0755", [](const std::string& name) { return name != "zn"; });
    }
    if (problem.empty() && mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0) {
        problem = failure("mount /proc");
    }
    return problem;
}

} // namespace ZNORBTEST
