#pragma once

#include "fuzz/support/Source.h"

#include <sys/types.h>

#include <cstdio>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace ZNORBFUZZ {

/// The files that the daemon sees, in memory: linked into a target, it puts its own `fopen`, `stat`,
/// `readlink` and `getenv` before the C library's. It answers for paths that begin with "/opt/zn/" or
/// "/fuzzed/", for the link to the executable, and for the variable "ZNORB_HTML_PATH"; everything else is
/// the fuzzer's own and goes to the system.
///
/// Only regular files can be opened, and only they are found by `stat`; a write makes or replaces one.
/// One at a time, on one thread.
class Files {
public:
    Files();
    ~Files();
    Files(const Files&) = delete;
    Files& operator=(const Files&) = delete;

    void add(const std::string& path, const std::string& bytes) { m_contents[path] = bytes; }

    /// What a read of the path gives instead of a file's bytes; not owned.
    void add(const std::string& path, Source* source) { m_sources[path] = source; }

    /// A path that cannot be opened for writing.
    void refuse(const std::string& path) { m_refused.insert(path); }

    /// Something that is no regular file. A directory is found with or without a "/" at its end; files need
    /// none.
    void addFifo(const std::string& path) { m_fifos.insert(path); }
    void addDirectory(const std::string& path) { m_directories.insert(path); }

    /// What the link to the executable says; without it there is no proc file system.
    void setExecutable(const std::string& target) { m_executable = target; }
    void setHtmlPath(const std::string& value) { m_htmlPath = value; }

    [[nodiscard]] const std::map<std::string, std::string>& contents() const { return m_contents; }
    [[nodiscard]] unsigned openCount() const { return m_openCount; }

    /// The permissions of what there is, as `chmod` sets them; 0644 and 0755 to begin with. False when there
    /// is nothing of that name.
    bool setPermissions(const std::string& path, mode_t permissions);

    /// Those of a file that is made from now on.
    void setNewPermissions(mode_t permissions) { m_newPermissions = permissions; }

    /// Called for each write, with the permissions of what is written to.
    void setWriteHook(void (*hook)(mode_t permissions)) { m_writeHook = hook; }

    // The calls themselves, for the functions that stand in for the C library's.
    static bool isFake(const char* path);
    std::FILE* open(const std::string& path, const std::string& mode);
    void write(const std::string& path, const char* data, std::size_t size);
    void closed() { --m_openCount; }
    [[nodiscard]] std::optional<mode_t> modeOf(const std::string& path) const;
    [[nodiscard]] const std::optional<std::string>& executable() const { return m_executable; }
    [[nodiscard]] const std::optional<std::string>& htmlPath() const { return m_htmlPath; }

private:
    std::map<std::string, std::string> m_contents;
    std::map<std::string, Source*> m_sources;
    std::set<std::string> m_refused;
    std::set<std::string> m_fifos;
    std::set<std::string> m_directories;
    std::optional<std::string> m_executable;
    std::optional<std::string> m_htmlPath;
    unsigned m_openCount = 0;
    std::map<std::string, mode_t> m_permissions;
    mode_t m_newPermissions = 0644;
    void (*m_writeHook)(mode_t permissions) = nullptr;
};

} // namespace ZNORBFUZZ
