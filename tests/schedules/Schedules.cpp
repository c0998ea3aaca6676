/// The orders in which two processes of the daemon's may take their steps.
///
///     znorb-schedules all|short|STORY [NUMBER] [--document FILE]
///
/// "all" and STORY: every order with at most two preemptions; "short": with at most one turn that is not the
/// usual one. A number goes through that one of the story's orders and prints its steps. Ends with 0 when
/// every outcome was an expected one, with 77 where nothing can be traced or put into a sandbox.

#include "tests/schedules/Life.h"
#include "tests/schedules/Outcomes.h"
#include "tests/schedules/Report.h"
#include "tests/tracing/CommandLine.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using namespace ZNORBSCHEDULES;
using ZNORBTRACING::CommandLine;

/// The orders before it tell which one it is.
int repeat(const Story& story, Bound bound, std::size_t number) {
    const Exploration exploration = explore(story, bound, number);
    if (exploration.results.size() < number) {
        std::printf("znorb-schedules: FAILED: %s has %zu orders\n", story.name, exploration.results.size());
        return EXIT_FAILURE;
    }
    const Course course = goThrough(story, exploration.results[number - 1].order);
    printOrder(story, number, course);
    return findOutcome(story, course) != nullptr ? EXIT_SUCCESS : EXIT_FAILURE;
}

int run(const CommandLine& line) {
    const Bound bound = line.word == "short" ? Bound::OneTurn : Bound::Preemptions;
    std::vector<Exploration> explorations;
    std::size_t orders = 0;
    std::size_t unexplained = 0;
    for (const Story& story : stories()) {
        if (line.number != 0 && line.word == story.name) {
            return repeat(story, bound, line.number);
        }
        if (line.asksFor(story.name, true)) {
            explorations.push_back(explore(story, bound));
            orders += explorations.back().results.size();
            unexplained += printStory(explorations.back());
        }
    }
    if (!line.document.empty()) {
        writeDocument(explorations, line.document);
    }
    std::printf("znorb-schedules: %zu orders, %zu unexplained\n", orders, unexplained);
    return orders != 0 && unexplained == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv) {
    return ZNORBTRACING::runCampaign(argc, argv, run);
}
