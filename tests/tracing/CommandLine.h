#pragma once

#include <functional>
#include <string>

namespace ZNORBTRACING {

/// What a campaign is to go through, "all|short|PART [NUMBER] [--document FILE]".
struct CommandLine {
    std::string word{};
    unsigned long number = 0; ///< of one that is in the part; 0: all
    std::string document{};   ///< a file to write, or ""

    bool asksFor(const std::string& part, bool isInShortForm) const {
        return word == "all" || (word == "short" && isInShortForm) || word == part;
    }
};

/// The main() of a campaign. Ends with 77 where nothing can be traced or put into a sandbox.
int runCampaign(int argc, char** argv, const std::function<int(const CommandLine&)>& run);

} // namespace ZNORBTRACING
