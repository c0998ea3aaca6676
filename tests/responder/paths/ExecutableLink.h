#pragma once

#include <cstddef>
#include <string>

namespace ZNORBTEST {

/// Makes this process look as if it had been started from another executable: while one of these lives, the
/// link /proc/<pid>/exe of this process, or /proc/self/exe, reads as told. Linked into a program, it puts a
/// `readlink` of its own before the C library's, which passes on every other path.
///
/// One at a time, made and steered on one thread; any thread may read the link meanwhile. A child of a fork
/// has a link of its own, the real one.
class ExecutableLink {
public:
    /// The link leads to `target`, which need not exist. An empty one reads as nothing: 0 bytes.
    explicit ExecutableLink(const std::string& target);
    ~ExecutableLink();
    ExecutableLink(const ExecutableLink&) = delete;
    ExecutableLink& operator=(const ExecutableLink&) = delete;

    /// From here on reading the link fails with this error.
    static void fail(int error);

    /// The most bytes that the latest reader of the link asked for; 0 before the first.
    static std::size_t sizeAskedFor();
};

/// The path of the program that really runs.
std::string realExecutable();

} // namespace ZNORBTEST
