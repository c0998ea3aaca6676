#include "packaging/tools/ToolArguments.h"

#include "packaging/tools/ResponderProcesses.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace ZNORBTOOLS {
namespace {

constexpr long mostSeconds = 24L * 3600;

/// False when the option is none of ours or has no proper value.
bool take(int option, ToolArguments& result) {
    switch (option) {
    case 'n':
        result.dryRun = true;
        return true;
    case 'e':
        result.executable = optarg;
        return !result.executable.empty() && result.executable.front() == '/';
    case 't':
        result.seconds = static_cast<int>(parseNumber(optarg, mostSeconds));
        return result.seconds >= 0;
    default:
        return false;
    }
}

} // namespace

long parseNumber(const std::string& text, long limit) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) {
        return -1;
    }
    errno = 0;
    const long number = std::strtol(text.c_str(), nullptr, 10);
    return errno == 0 && number <= limit ? number : -1;
}

ToolArguments parseToolArguments(int argc, char** argv, const char* options, bool takesProcess) {
    ToolArguments result;
    for (int option = getopt(argc, argv, options); option != -1; option = getopt(argc, argv, options)) {
        if (!take(option, result)) {
            return {};
        }
    }
    if (argc - optind > (takesProcess ? 1 : 0)) {
        return {};
    }
    if (optind < argc) {
        result.hasProcess = true;
        result.process = argv[optind];
    }
    if (result.executable.empty()) {
        result.executable = installedResponder();
    }
    result.accepted = true;
    return result;
}

} // namespace ZNORBTOOLS
