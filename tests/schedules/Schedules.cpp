/// The orders in which two processes of the daemon's may take their steps.
///
///     znorb-schedules all|short|STORY [NUMBER] [--document FILE]
///
/// "all" and STORY: every order with at most two turns that are not the usual ones; "short": with at most
/// one. A number goes through that one of the story's orders and prints its steps. Ends with 0 when every
/// outcome was an expected one, with 77 where nothing can be traced or put into a sandbox.

#include "tests/schedules/Life.h"
#include "tests/schedules/Outcomes.h"
#include "tests/schedules/Report.h"
#include "tests/tracing/Skipping.h"

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace ZNORBSCHEDULES;

constexpr int skipped = 77;

struct Arguments {
    std::vector<const Story*> chosen; ///< none: the command line is wrong
    unsigned turns = 2;
    unsigned long number = 0; ///< 0: all
    std::string document;
};

Arguments parse(int argc, char** argv) {
    Arguments arguments;
    const std::string word = argc > 1 ? argv[1] : "";
    arguments.turns = word == "short" ? 1 : 2;
    for (const Story& story : stories()) {
        if (word == "all" || word == "short" || word == story.name) {
            arguments.chosen.push_back(&story);
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

/// The orders before it tell which one it is.
int repeat(const Story& story, unsigned turns, std::size_t number) {
    const Exploration exploration = explore(story, turns, number);
    if (exploration.results.size() < number) {
        std::printf("znorb-schedules: FAILED: %s has %zu orders\n", story.name, exploration.results.size());
        return EXIT_FAILURE;
    }
    const Course course = goThrough(story, exploration.results[number - 1].order);
    printOrder(story, number, course);
    return findOutcome(story, course) != nullptr ? EXIT_SUCCESS : EXIT_FAILURE;
}

int run(const Arguments& arguments) {
    if (arguments.number != 0) {
        return repeat(*arguments.chosen.front(), arguments.turns, arguments.number);
    }
    std::vector<Exploration> explorations;
    std::size_t orders = 0;
    std::size_t unexplained = 0;
    for (const Story* story : arguments.chosen) {
        explorations.push_back(explore(*story, arguments.turns));
        orders += explorations.back().results.size();
        unexplained += printStory(explorations.back());
    }
    if (!arguments.document.empty()) {
        writeDocument(explorations, arguments.document);
    }
    std::printf("znorb-schedules: %zu orders, %zu unexplained\n", orders, unexplained);
    return unexplained == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv) {
    const Arguments arguments = parse(argc, argv);
    if (arguments.chosen.empty()) {
        (void)std::fputs("usage: znorb-schedules all|short|STORY [NUMBER] [--document FILE]\n", stderr);
        return EXIT_FAILURE;
    }
    if (const std::optional<std::string> reason = ZNORBTRACING::reasonToSkip(); reason.has_value()) {
        std::printf("znorb-schedules: skipped: %s\n", reason->c_str());
        return skipped;
    }
    return run(arguments);
}
