#include "tests/schedules/Order.h"

#include "tests/tracing/Words.h"

namespace ZNORBSCHEDULES {
namespace {

using ZNORBTRACING::splitAt;

std::string record(std::size_t index, const Step& step) {
    std::string text = "step\t" + step.role + "\t" + step.place + "\t" + std::to_string(step.state) + "\n";
    for (const Choice& choice : step.alternatives) {
        text += "or\t" + std::to_string(index) + "\t" + choice.role +
                (choice.isPreemption ? "\tpreempts\n" : "\tfree\n");
    }
    return text;
}

void parseLine(const std::vector<std::string>& words, Course& course) {
    if (words[0] == "cut") {
        course.isCut = true;
    } else if (words[0] == "problem" && words.size() == 2) {
        course.problem = words[1];
    } else if (words[0] == "seen" && words.size() == 3) {
        course.seen[words[1]] = words[2];
    } else if (words[0] == "step" && words.size() == 4) {
        course.steps.push_back({words[1], words[2], std::stoull(words[3])});
    } else if (words[0] == "or" && words.size() == 4) {
        Step& step = course.steps.back();
        step.alternatives.push_back({std::stoul(words[1]), words[2], step.state, words[3] == "preempts"});
    } else if (words != std::vector<std::string>{""}) {
        course.problem = "no course: " + words[0]; // what stands in a result's place
    }
}

} // namespace

std::string record(const Course& course) {
    std::string text = course.isCut ? "cut\n" : "";
    text += course.problem.empty() ? "" : "problem\t" + course.problem + "\n";
    for (const auto& [question, answer] : course.seen) {
        text += "seen\t" + question + "\t" + answer + "\n";
    }
    for (std::size_t index = 0; index < course.steps.size(); ++index) {
        text += record(index, course.steps[index]);
    }
    return text;
}

Course parseCourse(const std::string& text) {
    Course course;
    for (const std::string& line : splitAt('\n', text)) {
        parseLine(splitAt('\t', line), course);
    }
    return course;
}

std::string describe(const Course& course) {
    if (!course.problem.empty()) {
        return course.problem;
    }
    if (course.isCut) {
        return "as another order";
    }
    std::string text;
    for (const auto& [question, answer] : course.seen) {
        text += (text.empty() ? "" : "; ") + question + ": " + answer;
    }
    return text;
}

} // namespace ZNORBSCHEDULES
