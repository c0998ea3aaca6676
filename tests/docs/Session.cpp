#include "tests/docs/Session.h"

#include "tests/docs/SourceTree.h"

#include <gtest/gtest.h>

#include <regex>

namespace ZNORBTEST {
namespace {

std::string printable(const std::string& bytes) {
    std::string text;
    for (const char byte : bytes) {
        text += byte >= ' ' && byte <= '~' ? byte : '.';
    }
    return text;
}

} // namespace

std::string bytesFromHex(const std::string& text) {
    static const std::regex pair("^[ \n]*([0-9a-f]{2})(?![0-9a-f])");
    std::string bytes;
    std::smatch match;
    for (std::string rest = text; std::regex_search(rest, match, pair); rest = match.suffix()) {
        bytes += static_cast<char>(std::stoi(match[1], nullptr, 16));
    }
    return bytes;
}

std::vector<SessionStep> readSession(const std::string& document) {
    static const std::regex row("^    (\\S[^0-9]*?)? +([0-9a-f]{8})  (.{48})  (.+)$");
    std::vector<SessionStep> steps;
    for (const std::string& line : linesOf(document.substr(document.find("## A complete session")))) {
        std::smatch match;
        if (!std::regex_match(line, match, row)) {
            continue;
        }
        const auto offset = static_cast<std::uint32_t>(std::stoul(match[2], nullptr, 16));
        const std::string bytes = bytesFromHex(match[3]);
        EXPECT_EQ(printable(bytes), match[4]) << line;
        if (match[1].length() > 0) {
            steps.push_back({match[1], offset, bytes});
        } else if (!steps.empty()) {
            EXPECT_EQ(offset, steps.back().offset + steps.back().bytes.size()) << line;
            steps.back().bytes += bytes;
        }
    }
    return steps;
}

} // namespace ZNORBTEST
