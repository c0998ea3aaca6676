#include "tests/responder/paths/StagedInstallation.h"

#include "tests/support/Files.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace ZNORBTEST {

StagedInstallation::StagedInstallation() : m_link(std::string(programs) + "/znorbresponder") {
    EXPECT_FALSE(exists(root) || exists(console)) << "not in a sandbox, or left behind by a test";
    std::error_code error;
    (void)std::filesystem::create_directories(programs, error);
    EXPECT_FALSE(error) << programs << ": " << error.message();
}

StagedInstallation::~StagedInstallation() {
    for (const char* const directory : {root, console}) {
        std::error_code error;
        (void)std::filesystem::remove_all(directory, error);
        EXPECT_FALSE(error) << directory << ": " << error.message();
    }
}

void StagedInstallation::installConsole() {
    for (const char* const name : {"/webapp", "/data/htdocs"}) {
        std::error_code error;
        (void)std::filesystem::create_directories(std::string(console) + name, error);
        EXPECT_FALSE(error) << name << ": " << error.message();
    }
}

} // namespace ZNORBTEST
