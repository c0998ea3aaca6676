#pragma once

#include "tests/docs/SourceTree.h"
#include "tests/support/DaemonDriver.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

/// docs/TROUBLESHOOTING.md as its tests read it, and what they try its rows with.
namespace ZNORBTEST {

constexpr const char* troubleshootingPage = "docs/TROUBLESHOOTING.md";

struct TroubleshootingRow {
    std::string symptom;
    std::string cause;
    std::string shown; ///< the lines that stand below the cause, indented there; none in most rows
    std::string cure;
};

std::vector<TroubleshootingRow> troubleshootingRows();

class Troubleshooting : public testing::Test {
protected:
    /// The row with this symptom; each is tried by exactly one test.
    static TroubleshootingRow row(const std::string& symptom);

    /// The words of a cell between its nth pair of backquotes.
    static std::string quoted(const std::string& cell, std::size_t number = 0);

    ProgramResult inShell(const std::string& script) const;

    /// znorb-clean for this installation, and not for the one that it is installed with.
    ProgramResult clean() const { return inShell("znorb-clean -e " + driver.program()); }

    void endBy(int number);
    void expectAStartToWork();

    /// Everything that runs the executable here: without namespaces of our own we see those of other
    /// sandboxes.
    std::vector<pid_t> daemons() const;

    void terminateAll() const;

    /// Where there is none.
    void installTheClient() const;

    DaemonDriver driver;
};

} // namespace ZNORBTEST
