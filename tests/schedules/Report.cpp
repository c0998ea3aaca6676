#include "tests/schedules/Report.h"

#include "tests/schedules/Outcomes.h"

#include <cstdio>
#include <map>
#include <memory>

namespace ZNORBSCHEDULES {
namespace {

/// Some of each story: where one is wrong, many are.
constexpr std::size_t mostPrinted = 3;

std::string row(const std::string& name, std::size_t count, const std::string& reason) {
    return "| " + name + " | " + std::to_string(count) + " | " + reason + " |\n";
}

void writeStory(const Exploration& exploration, std::FILE* file) {
    std::map<std::string, std::pair<std::size_t, std::string>> counts;
    for (const Result& result : exploration.results) {
        const ExpectedOutcome* const outcome = findOutcome(*exploration.story, result.course);
        if (!result.course.isCut) {
            auto& [count, reason] = counts[outcome == nullptr ? "UNEXPLAINED" : outcome->name];
            ++count;
            reason = outcome == nullptr ? "" : outcome->reason;
        }
    }
    (void)std::fprintf(file, "\n## %s: %s\n\n%zu orders, of which %zu were cut.\n\n", exploration.story->name,
                       exploration.story->description, exploration.results.size(), exploration.cut);
    (void)std::fputs("| Outcome | Orders | Why it is right |\n| --- | --: | --- |\n", file);
    for (const auto& [name, found] : counts) {
        (void)std::fputs(row(name, found.first, found.second).c_str(), file);
    }
}

} // namespace

void printOrder(const Story& story, std::size_t number, const Course& course) {
    const ExpectedOutcome* const outcome = findOutcome(story, course);
    std::printf("%s %zu: %s\n    %s\n", story.name, number,
                outcome == nullptr ? "UNEXPLAINED" : outcome->name, describe(course).c_str());
    std::string last;
    for (const Step& step : course.steps) {
        if (step.role.empty()) {
            break; // all who could have gone on are in the sleep set
        }
        std::printf("%s%s", step.role != last ? ("\n    " + step.role + ": ").c_str() : ", ",
                    step.place.c_str());
        last = step.role;
    }
    std::printf("\n\n");
}

std::size_t printStory(const Exploration& exploration) {
    std::size_t unexplained = 0;
    for (std::size_t index = 0; index < exploration.results.size(); ++index) {
        const Course& course = exploration.results[index].course;
        if (findOutcome(*exploration.story, course) == nullptr && unexplained++ < mostPrinted) {
            printOrder(*exploration.story, index + 1, course);
        }
    }
    std::printf("  %5zu  %s: %s: %zu cut, %zu unexplained\n", exploration.results.size(),
                exploration.story->name, exploration.story->description, exploration.cut, unexplained);
    (void)std::fflush(stdout);
    return unexplained;
}

void writeDocument(const std::vector<Exploration>& explorations, const std::string& path) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "w"), std::fclose);
    if (file == nullptr) {
        std::perror(path.c_str());
        return;
    }
    for (const Exploration& exploration : explorations) {
        writeStory(exploration, file.get());
    }
}

} // namespace ZNORBSCHEDULES
