#include "tests/moments/Observation.h"

namespace ZNORBMOMENTS {
namespace {

bool isAboutService(const std::string& question) {
    return question.starts_with("reply") || question.starts_with("client") ||
           question.starts_with("launch") || question == "QUIT after it";
}

/// Whether the difference does not matter: a daemon that did not come to its usual end serves less than
/// usual, and a program that did not, says less.
bool isNoMatter(const std::string& question, const Observation& usual, const Observation& seen) {
    const auto hasAnotherEnd = [&](const std::string& role) {
        return answer(usual, role) != answer(seen, role);
    };
    const bool isDaemonHit = hasAnotherEnd("main") || hasAnotherEnd("test");
    const std::string is = answer(seen, question);
    if (question.ends_with(" says")) {
        return hasAnotherEnd(question.substr(0, question.size() - 5)) &&
               answer(usual, question).starts_with(is);
    }
    const bool isWrong = question.starts_with("reply") && is != "none" && is != "no connection" &&
                         is != "given up" && is != "nobody";
    return isDaemonHit && isAboutService(question) && !isWrong;
}

} // namespace

std::string answer(const Observation& answers, const std::string& question) {
    const auto found = answers.find(question);
    return found == answers.end() ? "nobody" : found->second;
}

std::string difference(const Observation& usual, const Observation& seen) {
    Observation all = seen;
    all.insert(usual.begin(), usual.end());
    std::string result;
    for (const auto& [question, unused] : all) {
        const std::string is = answer(seen, question);
        if (is != answer(usual, question) && !isNoMatter(question, usual, seen)) {
            result += (result.empty() ? "" : "; ") + question + ": " + is;
        }
    }
    return result.empty() ? "as ever" : result;
}

} // namespace ZNORBMOMENTS
