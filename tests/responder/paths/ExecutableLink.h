#pragma once

#include "tests/support/StandIns.h"

#include <unistd.h>

#include <cstddef>
#include <string>

namespace ZNORBTEST {

/// Makes this process look as if it had been started from another executable: while one of these lives, the
/// link /proc/<pid>/exe of this process reads as told.
///
/// Any thread may read the link meanwhile. A child of a fork has a link of its own, the real one.
class ExecutableLink {
public:
    /// The link leads to `target`, which need not exist. An empty one reads as nothing: 0 bytes. With an
    /// error, reading it fails.
    explicit ExecutableLink(std::string target, int error = 0);

    /// The most bytes that the latest reader of the link asked for; 0 before the first.
    [[nodiscard]] std::size_t sizeAskedFor() const { return m_sizeAskedFor; }

private:
    ssize_t read(char* buffer, std::size_t size);

    const std::string m_target;
    const int m_error;
    std::size_t m_sizeAskedFor = 0;
    const InPlaceOf<::readlink> m_link;
};

/// The path of the program that really runs.
std::string realExecutable();

} // namespace ZNORBTEST
