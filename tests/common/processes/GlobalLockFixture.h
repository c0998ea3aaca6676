#pragma once

#include "tests/support/Onlooker.h"

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
    return Onlooker(name).isOpen();
}

/// A name of this test's own, gone before and after it.
class GlobalLockTest : public testing::Test {
protected:
    void SetUp() override { (void)sem_unlink(m_name.c_str()); }
    void TearDown() override { (void)sem_unlink(m_name.c_str()); }

    const std::string m_name = "/znorb.globalLockTest." + std::to_string(getpid());
};

} // namespace ZNORBTEST
