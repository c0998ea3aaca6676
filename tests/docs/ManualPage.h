#pragma once

#include <set>
#include <string>
#include <vector>

namespace ZNORBTEST {

/// A manual page's source, taken apart as far as the tests need it.
class ManualPage {
public:
    /// `name` is that of the file, such as "znorb.7".
    explicit ManualPage(const std::string& name);

    /// The lines of a section, or of one of its subsections; none when there is no such section, which is a
    /// failure.
    std::vector<std::string> section(const std::string& title) const;

    /// What stands behind ".It " in a section, in order.
    std::vector<std::string> items(const std::string& title) const;

    /// The items of each list of a section on their own.
    std::vector<std::vector<std::string>> lists(const std::string& title) const;

    /// The numbers that the page has for its items in the section "EXIT STATUS".
    std::set<int> statuses() const;

    /// The lines of each literal display of a section, joined by newlines.
    std::vector<std::string> displays(const std::string& title) const;

    /// The one of a section that has one; any other number is a failure.
    std::string display(const std::string& title) const;

private:
    std::vector<std::string> m_lines;
};

/// Those that the executable's constants have, as the shell sees them.
std::set<int> exitStatuses();

} // namespace ZNORBTEST
