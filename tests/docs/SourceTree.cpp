#include "tests/docs/SourceTree.h"

#include "tests/support/Files.h"

#include <algorithm>
#include <filesystem>
#include <regex>

namespace ZNORBTEST {

std::string sourcePath(const std::string& name) {
    return std::string(ZNORB_SOURCE_DIRECTORY) + "/" + name;
}

std::string readSource(const std::string& name) {
    return readFile(sourcePath(name));
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (auto end = text.find('\n'); end != std::string::npos; end = text.find('\n', start)) {
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    if (start < text.size()) {
        lines.push_back(text.substr(start));
    }
    return lines;
}

std::vector<std::string> filesBelow(const std::string& folder) {
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(sourcePath(folder))) {
        if (entry.is_regular_file()) {
            files.push_back(std::filesystem::relative(entry.path(), sourcePath("")));
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<std::string> matches(const std::string& text, const std::string& expression) {
    const std::regex pattern(expression);
    std::vector<std::string> found;
    for (std::sregex_iterator match(text.begin(), text.end(), pattern), end; match != end; ++match) {
        found.push_back((*match)[1]);
    }
    return found;
}

std::vector<std::string> cellsOf(const std::string& line) {
    std::vector<std::string> cells;
    if (!line.starts_with("|")) {
        return cells;
    }
    for (const std::string& cell : matches(line.substr(1), "([^|]*)\\|")) {
        const auto first = cell.find_first_not_of(' ');
        const auto last = cell.find_last_not_of(' ');
        cells.push_back(first == std::string::npos ? "" : cell.substr(first, last - first + 1));
    }
    return cells;
}

} // namespace ZNORBTEST
