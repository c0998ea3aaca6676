#include "tests/tracing/CommandLine.h"

#include "tests/tracing/Skipping.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>

namespace ZNORBTRACING {
namespace {

constexpr int skipped = 77;

std::optional<CommandLine> parse(int argc, char** argv) {
    CommandLine line = {.word = argc > 1 ? argv[1] : ""};
    const bool isOne = line.word != "all" && line.word != "short";
    bool isValid = !line.word.empty();
    for (int i = 2; i < argc; ++i) {
        if (std::string(argv[i]) == "--document" && i + 1 < argc) {
            line.document = argv[++i];
        } else if (isOne && line.number == 0) {
            line.number = std::strtoul(argv[i], nullptr, 10);
        } else {
            isValid = false;
        }
    }
    return isValid ? std::optional(line) : std::nullopt;
}

} // namespace

int runCampaign(int argc, char** argv, const std::function<int(const CommandLine&)>& run) {
    const char* const program = program_invocation_short_name;
    const std::optional<CommandLine> line = parse(argc, argv);
    if (!line.has_value()) {
        (void)std::fprintf(stderr, "usage: %s all|short|PART [NUMBER] [--document FILE]\n", program);
        return EXIT_FAILURE;
    }
    if (const std::optional<std::string> reason = reasonToSkip(); reason.has_value()) {
        std::printf("%s: skipped: %s\n", program, reason->c_str());
        return skipped;
    }
    return run(*line);
}

} // namespace ZNORBTRACING
