/// What the daemon does when the system fails it.
///
///     znorb-faults calls       [--all] [--table FILE] [--document FILE]
///     znorb-faults allocations [--all] [--table FILE] [--document FILE]
///
/// "calls" fails the system calls of the daemon's life, one in each life; "allocations" its allocations,
/// which takes a build with shared libraries. --all: every fault at every place, else two at each.
/// --table: a line in Markdown for each injection; --document: the same in short. Prints the counts, and ends
/// with 0 when every outcome was an expected one; with 77 where nothing can be traced or put into a sandbox.

#include "tests/faults/Allocations.h"
#include "tests/faults/Campaign.h"
#include "tests/faults/Expectations.h"
#include "tests/faults/Report.h"
#include "tests/faults/Tracer.h"
#include "tests/tracing/Skipping.h"

#include <cstdio>
#include <cstdlib>

namespace {

using namespace ZNORBFAULTS;

constexpr int skipped = 77;

struct Arguments {
    std::string campaign;
    bool isWhole = false;
    std::string table;
    std::string document;
    bool areValid = false;
};

Arguments parse(int argc, char** argv) {
    Arguments arguments;
    arguments.campaign = argc > 1 ? argv[1] : "";
    arguments.areValid = arguments.campaign == "calls" || arguments.campaign == "allocations";
    for (int i = 2; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--all") {
            arguments.isWhole = true;
        } else if (word == "--table" && i + 1 < argc) {
            arguments.table = argv[++i];
        } else if (word == "--document" && i + 1 < argc) {
            arguments.document = argv[++i];
        } else {
            arguments.areValid = false;
        }
    }
    return arguments;
}

std::vector<Result> failCalls(bool isWhole, std::string& problem) {
    std::vector<Result> results;
    const UsualLives lives = recordUsualLives(problem);
    if (lives.empty()) {
        return results;
    }
    for (const Outcome& outcome : runInjections(lives, planInjections(lives, !isWhole))) {
        const Fault& fault = outcome.injection.fault;
        results.push_back(
            {describe(outcome.injection.life),
             fault.site.occurrence,
             outcome.isInjected,
             {fault.site.role, fault.site.call, fault.site.object, describe(fault), outcome.text}});
    }
    return results;
}

std::vector<Result> failAllocations(bool isWhole, std::string& problem) {
    std::vector<Result> results;
    const UsualLives lives = recordUsualLives(problem);
    const std::vector<AllocationFault> plan =
        lives.empty() ? std::vector<AllocationFault>() : planAllocations(isWhole, problem);
    if (plan.empty()) {
        return results;
    }
    for (const AllocationOutcome& outcome : runAllocations(lives, plan)) {
        const AllocationFault& fault = outcome.fault;
        results.push_back(
            {describe(fault.life),
             fault.number,
             outcome.isInjected,
             {describe(fault.role), "allocation", "", fault.forEver ? "for ever" : "once", outcome.text}});
    }
    return results;
}

} // namespace

int main(int argc, char** argv) {
    const Arguments arguments = parse(argc, argv);
    if (!arguments.areValid) {
        (void)std::fputs("usage: znorb-faults calls|allocations [--all] [--table FILE] [--document FILE]\n",
                         stderr);
        return EXIT_FAILURE;
    }
    if (const std::optional<std::string> reason = ZNORBTRACING::reasonToSkip(); reason.has_value()) {
        std::printf("znorb-faults: skipped: %s\n", reason->c_str());
        return skipped;
    }
    std::string problem;
    const bool areCalls = arguments.campaign == "calls";
    const std::vector<Result> results =
        areCalls ? failCalls(arguments.isWhole, problem) : failAllocations(arguments.isWhole, problem);
    if (results.empty()) {
        std::printf("znorb-faults: FAILED: %s\n", problem.c_str());
        return EXIT_FAILURE;
    }
    if (!arguments.table.empty()) {
        writeTable(results, arguments.table);
    }
    if (!arguments.document.empty()) {
        writeDocument(results, arguments.document);
    }
    return printSummary(arguments.campaign, results) ? EXIT_SUCCESS : EXIT_FAILURE;
}
