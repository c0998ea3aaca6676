#include "tests/moments/Campaign.h"

#include "tests/sandbox/ParallelSandboxes.h"
#include "tests/tracing/Words.h"

#include <algorithm>
#include <iterator>
#include <set>

namespace ZNORBMOMENTS {
namespace {

using ZNORBTEST::TracedStop;
using ZNORBTRACING::splitAt;

constexpr std::size_t recordings = 8;
/// A life that does not come to the moment, because chance is in it, proves nothing: it is lived again.
constexpr int attempts = 12;
const std::string happenedMark = "happened: ";

std::string flags(const Surroundings& there) {
    std::string text;
    for (const bool flag : {there.hasConnection, there.hasTable, there.hasLock, there.hasClient,
                            there.isStopping, there.hasThread}) {
        text += flag ? '1' : '0';
    }
    return text;
}

Surroundings surroundingsFrom(const std::string& text) {
    return {text[0] == '1', text[1] == '1', text[2] == '1', text[3] == '1', text[4] == '1', text[5] == '1'};
}

/// Lines of words with tabs between them.
std::string record(Story story) {
    std::string text;
    Life life(
        story,
        [&text](const Life& now, const Boundary& boundary, const TracedStop&) {
            for (const std::string& word :
                 {std::string("at"), boundary.role, std::to_string(boundary.call),
                  std::to_string(boundary.occurrence), std::string(boundary.isBefore ? "1" : "0")}) {
                text += word + "\t";
            }
            text += flags(now.surroundings()) + "\n";
        },
        [](const Life&, const std::string&, const TracedStop&) {});
    for (const auto& [question, answer] : life.run()) {
        text += "seen\t" + question + "\t" + answer + "\n";
    }
    return text;
}

UsualLife parseRecord(const std::string& text) {
    UsualLife life;
    for (const std::string& line : splitAt('\n', text)) {
        const std::vector<std::string> words = splitAt('\t', line);
        if (words[0] == "seen") {
            life.observation[words[1]] = words[2];
        } else if (words[0] == "at") {
            const Boundary boundary = {words[1], std::stol(words[2]),
                                       static_cast<unsigned>(std::stoul(words[3])), words[4] == "1"};
            life.boundaries.emplace_back(boundary, surroundingsFrom(words[5]));
        }
    }
    return life;
}

/// Leaves what the other life came to as well, with no more around it than it had there.
void intersect(UsualLife& life, const UsualLife& other) {
    const std::map<Boundary, Surroundings> others(other.boundaries.begin(), other.boundaries.end());
    std::vector<std::pair<Boundary, Surroundings>> common;
    for (const auto& [boundary, there] : life.boundaries) {
        const auto found = others.find(boundary);
        if (found != others.end()) {
            common.emplace_back(boundary, Surroundings{there.hasConnection && found->second.hasConnection,
                                                       there.hasTable && found->second.hasTable,
                                                       there.hasLock && found->second.hasLock,
                                                       there.hasClient && found->second.hasClient,
                                                       there.isStopping && found->second.isStopping,
                                                       there.hasThread && found->second.hasThread});
        }
    }
    life.boundaries = std::move(common);
}

/// Up to its own the story with `-stop` is the other one's beginning.
bool isNew(Story story, const Surroundings& there) {
    return story != Story::Stop || there.isStopping;
}

std::string live(const Moment& moment, const Observation& usual) {
    std::string text = "not reached";
    for (int attempt = 0; attempt < attempts && text == "not reached"; ++attempt) {
        Event event(moment);
        Life life(
            moment.story,
            [&event](Life& now, const Boundary& boundary, TracedStop& stop) {
                event.atBoundary(now, boundary, stop);
            },
            [&event](Life& now, const std::string& role, TracedStop& stop) {
                event.atSignal(now, role, stop);
            });
        const Observation seen = life.run();
        if (event.hasHappened()) {
            text = happenedMark + difference(usual, seen);
        }
    }
    return text;
}

} // namespace

UsualLives recordUsualLives(std::string& problem) {
    constexpr std::size_t count = std::size(stories) * recordings;
    const std::vector<std::string> texts = ZNORBTEST::runInSandboxes(
        count, [](std::size_t index) { return record(stories[index % std::size(stories)].story); });
    UsualLives lives;
    for (std::size_t index = 0; index < count; ++index) {
        const Story story = stories[index % std::size(stories)].story;
        const UsualLife life = parseRecord(texts[index]);
        const auto [usual, isFirst] = lives.emplace(story, life);
        const std::string differing = difference(usual->second.observation, life.observation);
        if (life.boundaries.empty() || differing != "as ever") {
            problem = life.boundaries.empty()
                          ? "no life of the story " + describe(story) + ": " + texts[index]
                          : "two lives of the story " + describe(story) + " differ: " + differing;
            return {};
        }
        intersect(usual->second, life);
    }
    return lives;
}

std::vector<Moment> momentsOf(const Kind& kind, const UsualLives& lives) {
    std::vector<Moment> moments;
    for (const auto& [story, life] : lives) {
        for (const auto& [boundary, there] : life.boundaries) {
            const bool isMeant =
                isNew(story, there) && there.include(kind.needs) && kind.fits(story, boundary);
            for (unsigned variant = 0; isMeant && variant < kind.variants; ++variant) {
                moments.push_back(
                    {&kind, static_cast<unsigned>(moments.size() + 1), story, boundary, variant});
            }
        }
    }
    return moments;
}

std::vector<Result> visit(const std::vector<Moment>& moments, const UsualLives& lives) {
    const std::vector<std::string> texts = ZNORBTEST::runInSandboxes(moments.size(), [&](std::size_t index) {
        return live(moments[index], lives.at(moments[index].story).observation);
    });
    std::vector<Result> results;
    for (std::size_t index = 0; index < moments.size(); ++index) {
        const bool hasHappened = texts[index].starts_with(happenedMark);
        results.push_back({moments[index], hasHappened,
                           hasHappened ? texts[index].substr(happenedMark.size()) : texts[index]});
    }
    return results;
}

} // namespace ZNORBMOMENTS
