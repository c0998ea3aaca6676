#include "tests/support/SanitizerReports.h"

#include "tests/support/Files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <utility>

namespace ZNORBTEST {

namespace {

/// The leak sanitizer's remark that the system would not let it look into a thread at that moment, alone: a
/// finding would stand behind it.
bool isRemark(const std::string& report) {
    std::istringstream lines(report);
    bool isEmpty = true;
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.find("Unable to get registers from thread") == std::string::npos) {
            return false;
        }
        isEmpty = false;
    }
    return !isEmpty;
}

} // namespace

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
        std::string report = readFile(m_folder / name);
        if (!isRemark(report)) {
            result.push_back(std::move(report));
        }
    }
    return result;
}

void SanitizerReports::clear() const {
    for (const std::string& name : namesIn(m_folder.path())) {
        (void)unlink((m_folder / name).c_str());
    }
}

} // namespace ZNORBTEST
