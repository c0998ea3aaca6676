#include "tests/docs/TroubleshootingPage.h"

#include "tests/sandbox/Processes.h"
#include "tests/support/Files.h"
#include "tests/support/ShellScript.h"

#include <algorithm>
#include <csignal>
#include <filesystem>

namespace ZNORBTEST {
namespace {

using testing::AllOf;
using testing::HasSubstr;

const std::string heading = "\n## ";

/// Without the word that it begins with, and on one line.
std::string paragraphAfter(const std::string& word, const std::string& section) {
    const std::size_t begin = section.find("\n" + word) + 1 + word.size();
    std::string text = section.substr(begin, section.find("\n\n", begin) - begin);
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

std::string linesShown(const std::string& section) {
    const std::string indent = "    ";
    std::string result;
    for (const std::string& line : linesOf(section)) {
        if (line.starts_with(indent)) {
            result += line.substr(indent.size()) + "\n";
        }
    }
    return result;
}

} // namespace

std::vector<TroubleshootingRow> troubleshootingRows() {
    std::vector<TroubleshootingRow> rows;
    const std::string text = readSource(troubleshootingPage);
    for (auto begin = text.find(heading); begin != std::string::npos; begin = text.find(heading, begin + 1)) {
        const std::string section = text.substr(begin, text.find(heading, begin + 1) - begin);
        const std::size_t start = heading.size();
        EXPECT_THAT(section, AllOf(HasSubstr("\n\nCause: "), HasSubstr("\n\nCure: ")));
        rows.push_back({section.substr(start, section.find('\n', start) - start),
                        paragraphAfter("Cause: ", section), linesShown(section),
                        paragraphAfter("Cure: ", section)});
    }
    return rows;
}

TroubleshootingRow Troubleshooting::row(const std::string& symptom) {
    for (const TroubleshootingRow& candidate : troubleshootingRows()) {
        if (candidate.symptom == symptom) {
            return candidate;
        }
    }
    ADD_FAILURE() << "the page has no symptom: " << symptom;
    return {};
}

std::string Troubleshooting::quoted(const std::string& cell, std::size_t number) {
    const std::vector<std::string> all = matches(cell, "`([^`]*)`");
    EXPECT_GT(all.size(), number) << cell;
    return all.size() > number ? all[number] : "";
}

ProgramResult Troubleshooting::inShell(const std::string& script) const {
    return runProgram(shellScript(driver.directory() + ":" + ZNORB_PROGRAM_DIRECTORY, script));
}

void Troubleshooting::endBy(int number) {
    ASSERT_TRUE(driver.startServing());
    ASSERT_NE(driver.endBy(number), stillRunning());
}

void Troubleshooting::expectAStartToWork() {
    EXPECT_TRUE(driver.startServing());
    EXPECT_EQ(driver.run({"-stop"}).output, "The ZN Orbisan daemon has stopped.\n");
}

std::vector<pid_t> Troubleshooting::daemons() const {
    std::vector<pid_t> result;
    std::error_code error;
    const std::filesystem::path ours = std::filesystem::read_symlink("/proc/self/ns/mnt", error);
    for (const pid_t process : processesRunning(driver.program())) {
        const std::string mounts = "/proc/" + std::to_string(process) + "/ns/mnt";
        if (std::filesystem::read_symlink(mounts, error) == ours) {
            result.push_back(process);
        }
    }
    return result;
}

void Troubleshooting::terminateAll() const {
    for (const pid_t process : daemons()) {
        (void)kill(process, SIGTERM);
        (void)kill(process, SIGCONT);
    }
    EXPECT_TRUE(waitUntil([this]() { return daemons().empty(); }));
}

void Troubleshooting::installTheClient() const {
    copyProgram(ZNORB_PROGRAM_DIRECTORY "/znorbclient", driver.client());
}

} // namespace ZNORBTEST
