#include "fuzz/support/Files.h"

#include "fuzz/support/Require.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace ZNORBFUZZ {

namespace {

Files* s_current = nullptr;

/// The executable's link, by the name that the product uses.
bool isExecutableLink(std::string_view path) {
    static const std::string link = "/proc/" + std::to_string(getpid()) + "/exe";
    return path == link;
}

/// An open file: reads its own copy of the bytes, and gives the files what is written.
struct Cookie {
    Files& files;
    std::string path;
    Source source;
};

ssize_t readCookie(void* cookie, char* buffer, std::size_t size) {
    return static_cast<Cookie*>(cookie)->source.read(buffer, size);
}

int seekCookie(void* cookie, off64_t* offset, int whence) {
    return static_cast<Cookie*>(cookie)->source.seek(*offset, whence) ? 0 : -1;
}

ssize_t writeCookie(void* cookie, const char* data, std::size_t size) {
    auto* const file = static_cast<Cookie*>(cookie);
    file->files.write(file->path, data, size);
    return static_cast<ssize_t>(size);
}

int closeCookie(void* cookie) {
    auto* const file = static_cast<Cookie*>(cookie);
    file->files.closed();
    delete file;
    return 0;
}

} // namespace

Files::Files() {
    require(s_current == nullptr, "one Files at a time");
    s_current = this;
}

Files::~Files() {
    s_current = nullptr;
}

bool Files::isFake(const char* path) {
    const std::string_view text(path);
    return s_current != nullptr &&
           (text.substr(0, 8) == "/opt/zn/" || text.substr(0, 8) == "/fuzzed/" || isExecutableLink(text));
}

std::FILE* Files::open(const std::string& path, const std::string& mode) {
    const bool isRead = mode == "rb";
    require(isRead || mode == "wb", "a file is read, or written anew, in binary mode");
    require(!modeOf(path) || S_ISREG(*modeOf(path)), "only regular files are opened");
    const auto source = m_sources.find(path);
    if (isRead && source != m_sources.end()) {
        return source->second->open();
    }
    if (isRead ? !m_contents.contains(path) : m_refused.contains(path)) {
        errno = isRead ? ENOENT : EACCES;
        return nullptr;
    }
    if (!isRead && !m_contents.contains(path)) {
        m_permissions[path] = m_newPermissions;
    }
    auto* const cookie = new Cookie{*this, path, Source("", isRead ? m_contents[path] : "", true)};
    cookie_io_functions_t functions = {};
    functions.close = closeCookie;
    if (isRead) {
        functions.read = readCookie;
        functions.seek = seekCookie;
    } else {
        m_contents[path].clear();
        functions.write = writeCookie;
    }
    ++m_openCount;
    return fopencookie(cookie, mode.c_str(), functions);
}

void Files::write(const std::string& path, const char* data, std::size_t size) {
    if (m_writeHook != nullptr) {
        m_writeHook(*modeOf(path) & 07777U);
    }
    m_contents[path].append(data, size);
}

bool Files::setPermissions(const std::string& path, mode_t permissions) {
    const bool isThere = modeOf(path).has_value();
    if (isThere) {
        m_permissions[path] = permissions;
    }
    return isThere;
}

std::optional<mode_t> Files::modeOf(const std::string& path) const {
    const std::string name = path.ends_with('/') ? path.substr(0, path.size() - 1) : path;
    const bool isDirectory = m_directories.contains(name);
    const bool isFifo = m_fifos.contains(path);
    const bool isFile =
        m_contents.contains(path) || m_sources.contains(path) || (m_executable && isExecutableLink(path));
    if (!isDirectory && !isFifo && !isFile) {
        return std::nullopt;
    }
    const auto permissions = m_permissions.find(isDirectory ? name : path);
    const mode_t usual = isDirectory ? 0755 : 0644;
    const mode_t type = isFifo ? S_IFIFO : S_IFREG;
    return (isDirectory ? S_IFDIR : type) |
           (permissions == m_permissions.end() ? usual : permissions->second);
}

} // namespace ZNORBFUZZ

using ZNORBFUZZ::Files;
using ZNORBFUZZ::s_current;

extern "C" std::FILE* fopen(const char* filename, const char* modes) {
    using Open = std::FILE* (*)(const char*, const char*);
    static const auto real = reinterpret_cast<Open>(dlsym(RTLD_NEXT, "fopen"));
    return Files::isFake(filename) ? s_current->open(filename, modes) : real(filename, modes);
}

extern "C" int stat(const char* file, struct stat* buf) noexcept {
    if (!Files::isFake(file)) {
        return static_cast<int>(syscall(SYS_newfstatat, AT_FDCWD, file, buf, 0));
    }
    const std::optional<mode_t> mode = s_current->modeOf(file);
    if (!mode) {
        errno = ENOENT;
        return -1;
    }
    *buf = {};
    buf->st_mode = *mode;
    return 0;
}

extern "C" ssize_t readlink(const char* path, char* buf, size_t len) noexcept {
    if (!Files::isFake(path)) {
        return syscall(SYS_readlink, path, buf, len);
    }
    if (!s_current->executable()) {
        errno = ENOENT;
        return -1;
    }
    const std::string& target = *s_current->executable();
    return static_cast<ssize_t>(target.copy(buf, len));
}

extern "C" char* getenv(const char* name) noexcept {
    if (s_current != nullptr && std::strcmp(name, "ZNORB_HTML_PATH") == 0) {
        const std::optional<std::string>& value = s_current->htmlPath();
        return value ? const_cast<char*>(value->c_str()) : nullptr;
    }
    const std::size_t length = std::strlen(name);
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        if (std::strncmp(*entry, name, length) == 0 && (*entry)[length] == '=') {
            return *entry + length + 1;
        }
    }
    return nullptr;
}
