#include "tests/docs/ManualPage.h"

#include "responder/commands/ExitStatus.h"
#include "tests/docs/SourceTree.h"

#include <gtest/gtest.h>

namespace ZNORBTEST {
namespace {

bool isHeading(const std::string& line) {
    return line.starts_with(".Sh ") || line.starts_with(".Ss ");
}

} // namespace

ManualPage::ManualPage(const std::string& name) : m_lines(linesOf(readSource("packaging/man/" + name))) {}

std::vector<std::string> ManualPage::section(const std::string& title) const {
    std::vector<std::string> lines;
    bool isInside = false;
    bool isFound = false;
    for (const std::string& line : m_lines) {
        if (isHeading(line)) {
            isInside = line.substr(4) == title;
            isFound = isFound || isInside;
        } else if (isInside) {
            lines.push_back(line);
        }
    }
    EXPECT_TRUE(isFound) << title;
    return lines;
}

std::vector<std::string> ManualPage::items(const std::string& title) const {
    std::vector<std::string> all;
    for (const std::vector<std::string>& list : lists(title)) {
        all.insert(all.end(), list.begin(), list.end());
    }
    return all;
}

std::vector<std::vector<std::string>> ManualPage::lists(const std::string& title) const {
    std::vector<std::vector<std::string>> lists;
    for (const std::string& line : section(title)) {
        if (line.starts_with(".Bl ")) {
            lists.emplace_back();
        } else if (line.starts_with(".It ") && !lists.empty()) {
            lists.back().push_back(line.substr(4));
        }
    }
    return lists;
}

std::vector<std::string> ManualPage::displays(const std::string& title) const {
    std::vector<std::string> displays;
    bool isInside = false;
    for (const std::string& line : section(title)) {
        if (line.starts_with(".Bd -literal")) {
            displays.emplace_back();
            isInside = true;
        } else if (line == ".Ed") {
            isInside = false;
        } else if (isInside) {
            displays.back() += line + "\n";
        }
    }
    return displays;
}

std::string ManualPage::display(const std::string& title) const {
    const std::vector<std::string> all = displays(title);
    EXPECT_EQ(all.size(), 1U) << title;
    return all.empty() ? "" : all[0];
}

std::set<int> exitStatuses() {
    using namespace ZNORBRESPONDER;
    return {startedStatus,      notRootStatus,    refusedStatus,
            stopTimedOutStatus, terminatedStatus, otherEndStatus & 0xff};
}

std::set<int> ManualPage::statuses() const {
    std::set<int> statuses;
    for (const std::string& item : items("EXIT STATUS")) {
        (void)statuses.insert(std::stoi(item));
    }
    return statuses;
}

} // namespace ZNORBTEST
