#include "tests/support/SanitizerReports.h"

#include "tests/support/Files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace ZNORBTEST {

SanitizerReports::SanitizerReports() {
    EXPECT_EQ(chmod(m_folder.path().c_str(), 01777), 0); // programs run as other users as well
}

SanitizerReports::~SanitizerReports() {
    for (const std::string& report : reports()) {
        ADD_FAILURE() << "a sanitizer reported on another process:\n" << report;
    }
}

std::vector<std::string> SanitizerReports::environment() const {
    std::vector<std::string> result;
    for (const char* name : {"ASAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
        const char* present = std::getenv(name);
        const std::string before = present != nullptr && *present != '\0' ? std::string(present) + ":" : "";
        result.push_back(std::string(name) + "=" + before + "log_path=" + m_folder / "report");
    }
    return result;
}

std::vector<std::string> SanitizerReports::reports() const {
    std::vector<std::string> result;
    for (const std::string& name : namesIn(m_folder.path())) {
        result.push_back(readFile(m_folder / name));
    }
    return result;
}

void SanitizerReports::clear() const {
    for (const std::string& name : namesIn(m_folder.path())) {
        (void)unlink((m_folder / name).c_str());
    }
}

} // namespace ZNORBTEST
