#pragma once

#include "tests/support/TemporaryFolder.h"

#include <string>
#include <vector>

namespace ZNORBTEST {

/// Where the sanitizers of other processes write: a detached daemon has no standard error, and its reports
/// would be lost. In builds without sanitizers nothing is ever written.
///
/// A report that is there at the end fails the running test.
class SanitizerReports {
public:
    SanitizerReports();
    ~SanitizerReports();

    /// "NAME=value" for each sanitizer: this process' options, and the files to write to.
    std::vector<std::string> environment() const;

    /// Those written so far.
    std::vector<std::string> reports() const;

    /// For a test that expects one: forgets them.
    void clear() const;

private:
    TemporaryFolder m_folder;
};

} // namespace ZNORBTEST
