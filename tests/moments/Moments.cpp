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
#include "tests/tracing/CommandLine.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using namespace ZNORBMOMENTS;
using ZNORBTRACING::CommandLine;

std::vector<Moment> chosenMoments(const CommandLine& line, const UsualLives& lives) {
    std::vector<Moment> chosen;
    for (const Kind& kind : kinds) {
        for (const Moment& moment :
             line.asksFor(kind.name, kind.isInShortForm) ? momentsOf(kind, lives) : std::vector<Moment>()) {
            if (line.number == 0 || line.number == moment.number) {
                chosen.push_back(moment);
            }
        }
    }
    return chosen;
}

int run(const CommandLine& line) {
    std::string problem;
    const UsualLives lives = recordUsualLives(problem);
    if (lives.empty()) {
        std::printf("znorb-moments: FAILED: %s\n", problem.c_str());
        return EXIT_FAILURE;
    }
    const std::vector<Result> results = visit(chosenMoments(line, lives), lives);
    if (line.number != 0 && !results.empty()) {
        std::printf("%s: %s\n", describe(results.front().moment).c_str(), results.front().outcome.c_str());
    }
    if (!line.document.empty()) {
        writeDocument(results, line.document);
    }
    return printSummary(results) && !results.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv) {
    return ZNORBTRACING::runCampaign(argc, argv, run);
}
