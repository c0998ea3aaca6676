#pragma once

#include "tests/support/ChildProcess.h"
#include "tests/support/SanitizerReports.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace ZNORBTEST {

/// One of the examples for authors. It lies beside the tests' own executable.
struct Example {
    const char* name; ///< its language
    std::string program;

    friend void PrintTo(const Example& row, std::ostream* stream) { *stream << row.name; }
};

/// Tests that run an example, and are skipped where its language is missing.
class ExampleTest : public testing::Test {
protected:
    explicit ExampleTest(Example example) : m_example(std::move(example)) {}
    void SetUp() override;

    const std::string& program() const { return m_example.program; }
    Launch launch(const std::vector<std::string>& arguments) const;

private:
    const Example m_example;
    SanitizerReports m_reports;
};

} // namespace ZNORBTEST
