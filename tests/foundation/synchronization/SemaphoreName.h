#pragma once

#include "tests/support/Onlooker.h"

#include <semaphore.h>
#include <unistd.h>

#include <string>

namespace ZNORBTEST {

/// A semaphore name that no other process uses; unlinked at the end.
class SemaphoreName {
public:
    explicit SemaphoreName(const std::string& test)
        : m_name("znorb-test-" + test + "-" + std::to_string(getpid())) {}
    SemaphoreName(const SemaphoreName&) = delete;
    SemaphoreName& operator=(const SemaphoreName&) = delete;
    ~SemaphoreName() { unlink(); }

    /// Without and with the leading "/".
    [[nodiscard]] const std::string& plain() const { return m_name; }
    [[nodiscard]] std::string absolute() const { return "/" + m_name; }

    void unlink() const { (void)sem_unlink(absolute().c_str()); }

    /// The count of the semaphore, or -1 when there is none of the name.
    [[nodiscard]] int count() const { return Onlooker(absolute()).count(); }

    [[nodiscard]] bool exists() const { return count() != -1; }

private:
    std::string m_name;
};

} // namespace ZNORBTEST
