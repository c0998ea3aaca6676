#pragma once

#include <string>

namespace ZNORBTOOLS {

/// The command line of the tools.
struct ToolArguments {
    bool accepted = false;  ///< false: not understood; nothing else here counts then
    bool dryRun = false;    ///< -n
    int seconds = 30;       ///< -t
    std::string executable; ///< -e; where the responder is installed when it was not given
    bool hasProcess = false;
    std::string process; ///< the word behind the options
};

/// Understands those options that are named in `options`, in the manner of getopt(), and one word behind them
/// if `takesProcess`.
ToolArguments parseToolArguments(int argc, char** argv, const char* options, bool takesProcess);

/// A whole decimal number from 0 to `limit`, or -1.
long parseNumber(const std::string& text, long limit);

} // namespace ZNORBTOOLS
