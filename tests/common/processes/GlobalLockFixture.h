#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <semaphore.h>
#include <unistd.h>

#include <climits>
#include <cstddef>
#include <string>

/// What the tests of the lock have in common.
namespace ZNORBTEST {

/// Of a semaphore, without its slash.
constexpr std::size_t longestName = NAME_MAX - 4;

inline bool nameExists(const std::string& name) {
    sem_t* semaphore = sem_open(name.c_str(), 0);
    if (semaphore == SEM_FAILED) {
        return false;
    }
    (void)sem_close(semaphore);
    return true;
}

/// A handle on the semaphore besides the lock under test: another process's view of it.
class Onlooker {
public:
    explicit Onlooker(const std::string& name) : m_semaphore(sem_open(name.c_str(), 0)) {}
    /// Makes the name.
    Onlooker(const std::string& name, unsigned count)
        : m_semaphore(sem_open(name.c_str(), O_CREAT | O_EXCL, 0600, count)) {}
    ~Onlooker() {
        if (m_semaphore != SEM_FAILED) {
            (void)sem_close(m_semaphore);
        }
    }
    Onlooker(const Onlooker&) = delete;
    Onlooker& operator=(const Onlooker&) = delete;

    /// -1 when the semaphore could not be opened.
    int count() const {
        int value = -1;
        if (m_semaphore == SEM_FAILED || sem_getvalue(m_semaphore, &value) != 0) {
            return -1;
        }
        return value;
    }
    void post() const { (void)sem_post(m_semaphore); }

private:
    sem_t* m_semaphore;
};

/// A name of this test's own, gone before and after it.
class GlobalLockTest : public testing::Test {
protected:
    void SetUp() override { (void)sem_unlink(m_name.c_str()); }
    void TearDown() override { (void)sem_unlink(m_name.c_str()); }

    const std::string m_name = "/znorb.globalLockTest." + std::to_string(getpid());
};

} // namespace ZNORBTEST
