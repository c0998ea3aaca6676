/// What happens at every boundary between the system calls of the daemon's life.
///
///     znorb-moments all|short|KIND [NUMBER] [--document FILE]
///
/// "short": the kinds that are in the short form. A number visits one moment of the kind and prints what came
/// of it. Ends with 0 when every outcome was an expected one, with 77 where nothing can be traced or put into
/// a sandbox.

#include "tests/moments/Campaign.h"
#include "tests/moments/Outcomes.h"
#include "tests/moments/Report.h"
#include "tests/tracing/Skipping.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using namespace ZNORBMOMENTS;

constexpr int skipped = 77;

struct Arguments {
    std::vector<const Kind*> chosen; ///< none: the command line is wrong
    unsigned long number = 0;        ///< 0: all
    std::string document;
};

Arguments parse(int argc, char** argv) {
    Arguments arguments;
    const std::string word = argc > 1 ? argv[1] : "";
    for (const Kind& kind : kinds) {
        if (word == "all" || (word == "short" && kind.isInShortForm) || word == kind.name) {
            arguments.chosen.push_back(&kind);
        }
    }
    for (int i = 2; i < argc; ++i) {
        if (std::string(argv[i]) == "--document" && i + 1 < argc) {
            arguments.document = argv[++i];
        } else if (arguments.chosen.size() == 1 && arguments.number == 0) {
            arguments.number = std::strtoul(argv[i], nullptr, 10);
        } else {
            arguments.chosen.clear();
        }
    }
    return arguments;
}

std::vector<Moment> chosenMoments(const Arguments& arguments, const UsualLives& lives) {
    std::vector<Moment> chosen;
    for (const Kind* kind : arguments.chosen) {
        for (const Moment& moment : momentsOf(*kind, lives)) {
            if (arguments.number == 0 || arguments.number == moment.number) {
                chosen.push_back(moment);
            }
        }
    }
    return chosen;
}

int run(const Arguments& arguments) {
    std::string problem;
    const UsualLives lives = recordUsualLives(problem);
    if (lives.empty()) {
        std::printf("znorb-moments: FAILED: %s\n", problem.c_str());
        return EXIT_FAILURE;
    }
    const std::vector<Result> results = visit(chosenMoments(arguments, lives), lives);
    if (arguments.number != 0 && !results.empty()) {
        std::printf("%s: %s\n", describe(results.front().moment).c_str(), results.front().outcome.c_str());
    }
    if (!arguments.document.empty()) {
        writeDocument(results, arguments.document);
    }
    return printSummary(results) && !results.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv) {
    const Arguments arguments = parse(argc, argv);
    if (arguments.chosen.empty()) {
        (void)std::fputs("usage: znorb-moments all|short|KIND [NUMBER] [--document FILE]\n", stderr);
        return EXIT_FAILURE;
    }
    if (const std::optional<std::string> reason = ZNORBTRACING::reasonToSkip(); reason.has_value()) {
        std::printf("znorb-moments: skipped: %s\n", reason->c_str());
        return skipped;
    }
    return run(arguments);
}
