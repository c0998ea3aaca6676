#include "tests/moments/Report.h"

#include "tests/moments/Outcomes.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <memory>
#include <set>
#include <utility>

namespace ZNORBMOMENTS {
namespace {

struct Row {
    std::string kind;
    std::string role;
    std::string outcome;
    std::size_t count = 0;
};

std::string nameOf(const Result& result) {
    const ExpectedOutcome* outcome = findOutcome(result);
    return outcome == nullptr ? "UNEXPLAINED" : outcome->name;
}

/// "launch 1" and "launch 2" are the same, and so is the responder's thread of every story but the test's.
std::string actorIn(const Moment& moment) {
    const std::string& role = moment.boundary.role;
    return role.starts_with("launch")                           ? "launch"
           : moment.story == Story::Test && role == "responder" ? "test's responder"
                                                                : role;
}

/// By kind and process, in the order of the life.
std::vector<Row> condense(const std::vector<Result>& results) {
    std::vector<Row> rows;
    for (const Result& result : results) {
        const Row wanted = {result.moment.kind->name, actorIn(result.moment), nameOf(result)};
        auto row = std::find_if(rows.begin(), rows.end(), [&](const Row& known) {
            return known.kind == wanted.kind && known.role == wanted.role && known.outcome == wanted.outcome;
        });
        if (row == rows.end()) {
            const auto last = std::find_if(rows.rbegin(), rows.rend(), [&](const Row& known) {
                return known.kind == wanted.kind && known.role == wanted.role;
            });
            row = rows.insert(last == rows.rend() ? rows.end() : last.base(), wanted);
        }
        ++row->count;
    }
    return rows;
}

} // namespace

bool printSummary(const std::vector<Result>& results) {
    std::size_t unexplained = 0;
    for (const Kind& kind : kinds) {
        std::size_t count = 0;
        for (const Result& result : results) {
            if (result.moment.kind != &kind) {
                continue;
            }
            ++count;
            if (findOutcome(result) == nullptr) {
                ++unexplained;
                std::printf("%s: %s\n", describe(result.moment).c_str(), result.outcome.c_str());
            }
        }
        if (count > 0) {
            std::printf("  %5zu  %s: %s\n", count, kind.name, kind.description);
        }
    }
    std::printf("znorb-moments: %zu moments, %zu unexplained\n", results.size(), unexplained);
    return unexplained == 0;
}

void writeDocument(const std::vector<Result>& results, const std::string& path) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "w"), std::fclose);
    if (file == nullptr) {
        std::perror(path.c_str());
        return;
    }
    std::string kind;
    for (const Row& row : condense(results)) {
        if (row.kind != kind) {
            kind = row.kind;
            const auto* const found =
                std::find_if(std::begin(kinds), std::end(kinds),
                             [&kind](const Kind& candidate) { return kind == candidate.name; });
            (void)std::fprintf(file.get(),
                               "\n## %s: %s\n\n| Process | Moments | Outcome |\n| --- | --: | --- |\n",
                               found->name, found->description);
        }
        (void)std::fprintf(file.get(), "| %s | %zu | %s |\n", row.role.c_str(), row.count,
                           row.outcome.c_str());
    }
    std::set<std::pair<std::string, std::string>> reasons;
    for (const Result& result : results) {
        const ExpectedOutcome* outcome = findOutcome(result);
        if (outcome != nullptr && outcome->reason[0] != '\0') {
            reasons.emplace(outcome->name, outcome->reason);
        }
    }
    (void)std::fputs("\n## Why they are right\n\n", file.get());
    for (const auto& [name, reason] : reasons) {
        (void)std::fprintf(file.get(), "- *%s*: %s\n", name.c_str(), reason.c_str());
    }
}

} // namespace ZNORBMOMENTS
