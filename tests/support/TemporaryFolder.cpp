#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace ZNORBTEST {

TemporaryFolder::TemporaryFolder() : m_path(testing::TempDir() + "znorb-XXXXXX") {
    if (mkdtemp(m_path.data()) == nullptr) {
        ADD_FAILURE() << "no temporary folder " << m_path;
    }
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code error;
    (void)std::filesystem::remove_all(m_path, error);
    EXPECT_FALSE(error) << m_path << ": " << error.message();
}

} // namespace ZNORBTEST
