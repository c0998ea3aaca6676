#include "tests/responder/paths/ExecutableLink.h"

#include <fcntl.h>
#include <sys/syscall.h>

#include <cerrno>
#include <climits>
#include <utility>

namespace ZNORBTEST {

ExecutableLink::ExecutableLink(std::string target, int error)
    : m_target(std::move(target)),
      m_error(error),
      m_link([this, owner = getpid(), own = "/proc/" + std::to_string(getpid()) + "/exe"](
                 const char* path, char* buffer, std::size_t size) {
          return path == own && getpid() == owner ? read(buffer, size) : ::readlink(path, buffer, size);
      }) {}

ssize_t ExecutableLink::read(char* buffer, std::size_t size) {
    m_sizeAskedFor = size;
    if (m_error != 0) {
        errno = m_error;
        return -1;
    }
    return static_cast<ssize_t>(m_target.copy(buffer, size));
}

std::string realExecutable() {
    char target[PATH_MAX];
    const long length = syscall(SYS_readlinkat, AT_FDCWD, "/proc/self/exe", target, sizeof target);
    return {target, length > 0 ? static_cast<std::size_t>(length) : 0};
}

} // namespace ZNORBTEST
