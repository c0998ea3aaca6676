#include "packaging/tools/ListeningSockets.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace ZNORBTOOLS {
namespace {

/// The inode of the socket that a line of /proc/net/unix tells of; empty unless it listens at the path.
std::string listeningInode(const std::string& line, const std::string& path) {
    constexpr unsigned long acceptsConnections = 0x10000; // __SO_ACCEPTCON, the kernel's own
    // Num RefCount Protocol Flags Type St Inode, and for sockets that have one their path
    const std::vector<std::string> fields = splitLine(line, 7);
    const bool listens = fields.size() == 8 && fields[7] == path &&
                         (std::strtoul(fields[3].c_str(), nullptr, 16) & acceptsConnections) != 0;
    return listens ? fields[6] : "";
}

/// A descriptor of ours for what is behind one of another process's; -1 where the kernel does not know how,
/// or does not allow it.
int duplicateOf(pid_t process, long descriptor) {
    const auto handle = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
    if (handle == -1) {
        return -1;
    }
    const auto result = static_cast<int>(syscall(SYS_pidfd_getfd, handle, descriptor, 0));
    (void)close(handle);
    return result;
}

bool listens(int socket, const std::string& path) {
    sockaddr_un address = {};
    socklen_t length = sizeof address - 1; // keeps the path's end
    int doesListen = 0;
    socklen_t size = sizeof doesListen;
    return getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
           address.sun_family == AF_UNIX && address.sun_path == path &&
           getsockopt(socket, SOL_SOCKET, SO_ACCEPTCONN, &doesListen, &size) == 0 && doesListen != 0;
}

bool isRoots(int socket) {
    struct stat status = {};
    return fstat(socket, &status) == 0 && status.st_uid == 0;
}

/// Whether it is another socket than a line made it look, or one that a process of root's was given to hold.
bool isRefuted(pid_t process, long descriptor, const std::string& path) {
    const int socket = duplicateOf(process, descriptor);
    if (socket == -1) {
        return false;
    }
    const bool result = !listens(socket, path) || !isRoots(socket);
    (void)close(socket);
    return result;
}

} // namespace

std::vector<std::string> listeningSockets(const std::string& process, const std::string& path, Doubt& doubt) {
    std::vector<std::string> result;
    forEachLine("/proc/" + process + "/net/unix", doubt, [&](const char* line) {
        const std::string inode = listeningInode(line, path);
        if (!inode.empty()) {
            result.push_back("socket:[" + inode + "]");
        }
        return true;
    });
    return result;
}

bool holdsAny(pid_t process, const std::vector<std::string>& sockets, const std::string& path, Doubt& doubt) {
    bool result = false;
    const std::string descriptors = inProc(process, "fd");
    if (sockets.empty()) {
        return false;
    }
    forEachName(descriptors, doubt, [&](const char* name) {
        const bool isDescriptor = *name != '.';
        const std::string target = isDescriptor ? linkTarget(descriptors + "/" + name, doubt) : "";
        result = std::find(sockets.begin(), sockets.end(), target) != sockets.end() &&
                 !isRefuted(process, std::strtol(name, nullptr, 10), path);
        return !result;
    });
    return result;
}

} // namespace ZNORBTOOLS
