/// The soak: what many lives of the daemon, and many neighbours that mean no good, leave behind.
///
///     znorb-soak [full] [--seed N] [STORY...]
///
/// Prints one line per story with its counts, then a verdict; ends with 0 when nothing was left and nothing
/// went wrong. A story played twice at once has a sandbox for each. The same N repeats the choices, not the
/// moments at which the processes happen to be where they are. For builds without sanitizers: memory is
/// measured, and a leak check takes a SIGTERM amiss.

#include "tests/soak/Soak.h"

#include "tests/sandbox/Sandbox.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <vector>

namespace {

using namespace ZNORBSOAK;

constexpr std::array<Story, 9> stories = {{
    {"cycles", "start, GET, stop, at once the next; on busy cores", 100, 2000, 2, startAndStop},
    {"terminate", "SIGTERM at random moments", 480, 10000, 2, terminate},
    {"kill", "SIGKILL at random moments, and the recovery from it", 60, 1000, 2, killOutright},
    {"requests", "requests of all kinds to one daemon", 10000, 100000, 1, request},
    {"clients", "64 clients launched and swept; some dead, slow, hostile", 4, 100, 2, launchAndSweep},
    {"images", "random and hand-made tables, listed and claimed from", 5000, 100000, 2, readTableImages},
    {"truncations", "the table shortened and scribbled over meanwhile", 40, 1000, 2, truncateTables},
    {"servers", "misbehaving HTTP servers in the table", 32, 200, 8, askHostileServers},
    {"requesters", "misbehaving requesters, several at a time", 2000, 20000, 2, serveHostileRequesters},
}};

/// What one part may last, in seconds, the wait for its turn included where sandboxes take turns.
constexpr unsigned shortLimit = 300;
constexpr unsigned fullLimit = 4 * 3600;

struct Settings {
    bool isFull = false;
    unsigned seed = std::random_device()();
    std::vector<std::string> chosen; ///< empty: all stories
};

Tally* sharedTallies(unsigned count) {
    void* memory =
        mmap(nullptr, count * sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        return nullptr;
    }
    return new (memory) Tally[count];
}

/// The rounds of one part: their sum over all parts is the story's.
unsigned long shareOf(unsigned long rounds, unsigned parts, unsigned index) {
    return rounds / parts + (index < rounds % parts ? 1 : 0);
}

[[noreturn]] void playPart(const Story& story, unsigned index, const Settings& settings, Tally& tally) {
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
    (void)alarm(settings.isFull ? fullLimit : shortLimit); // the death of this process ends its sandbox
    const unsigned long rounds = settings.isFull ? story.fullRounds : story.rounds;
    Part part(story, index, shareOf(rounds, story.parts, index), settings.isFull, settings.seed, tally);
    ZNORBTEST::SandboxOptions options;
    options.lockSeconds = fullLimit;
    const ZNORBTEST::SandboxOutcome outcome = ZNORBTEST::runSandboxed(
        [&]() {
            part.enterOwnNetwork();
            story.play(part);
            // The support of the tests reports what goes wrong in it, sanitizers' findings too, as GoogleTest
            // does.
            (void)part.expect(!testing::UnitTest::GetInstance()->Failed(), "see above");
            tally.isOver = true;
            return EXIT_SUCCESS;
        },
        options);
    if (outcome.kind != ZNORBTEST::SandboxOutcome::Kind::Ended) {
        (void)part.expect(false, "no sandbox: " + outcome.reason);
    }
    std::_Exit(EXIT_SUCCESS);
}

/// Adds what the parts came to, the numbers under their names in the order in which they came up.
std::string sumOf(const Tally* tallies, unsigned parts) {
    std::vector<std::pair<std::string, unsigned long>> numbers;
    for (unsigned part = 0; part < parts; ++part) {
        for (const Tally::Number& number : tallies[part].numbers) {
            const std::string name(number.name.data());
            std::size_t place = 0;
            while (place < numbers.size() && numbers[place].first != name) {
                ++place;
            }
            if (name.empty()) {
                break;
            }
            if (place == numbers.size()) {
                numbers.emplace_back(name, 0);
            }
            const bool isHighest = name.starts_with("at most ");
            numbers[place].second = isHighest ? std::max(numbers[place].second, number.value.load())
                                              : numbers[place].second + number.value;
        }
    }
    std::string text;
    for (const auto& [name, value] : numbers) {
        text += "; " + name + " " + std::to_string(value);
    }
    return text;
}

/// Plays all parts at the same time. Returns the number of failures.
unsigned long play(const Story& story, const Settings& settings) {
    const auto begin = std::chrono::steady_clock::now();
    Tally* tallies = sharedTallies(story.parts);
    if (tallies == nullptr) {
        std::printf("%s: FAILED: no memory\n", story.name);
        return 1;
    }
    (void)std::fflush(stdout); // or each part would write it once more
    for (unsigned index = 0; index < story.parts; ++index) {
        const pid_t child = fork();
        if (child == 0) {
            playPart(story, index, settings, tallies[index]);
        }
    }
    while (wait(nullptr) > 0 || errno == EINTR) {
    }
    unsigned long rounds = 0;
    unsigned long failures = 0;
    for (unsigned index = 0; index < story.parts; ++index) {
        rounds += tallies[index].rounds;
        failures += tallies[index].failures + (tallies[index].isOver ? 0U : 1U);
    }
    const bool areAllPlayed = rounds == (settings.isFull ? story.fullRounds : story.rounds);
    failures += areAllPlayed ? 0U : 1U;
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - begin).count();
    std::printf("%s: %lu rounds, %lu failures, %ld s%s%s\n", story.name, rounds, failures,
                static_cast<long>(seconds), sumOf(tallies, story.parts).c_str(),
                areAllPlayed ? "" : "; NOT ALL WERE PLAYED");
    (void)std::fflush(stdout);
    (void)munmap(tallies, story.parts * sizeof(Tally));
    return failures;
}

int usage() {
    (void)std::fputs("usage: znorb-soak [full] [--seed N] [STORY...]\nstories:\n", stderr);
    for (const Story& story : stories) {
        (void)std::fprintf(stderr, "  %-12s %6lu rounds, %lu in full: %s\n", story.name, story.rounds,
                           story.fullRounds, story.content);
    }
    return 2;
}

bool isStory(const std::string& word) {
    return std::any_of(stories.begin(), stories.end(),
                       [&word](const Story& story) { return story.name == word; });
}

bool parse(int argc, char** argv, Settings& settings) {
    for (int i = 1; i < argc; ++i) {
        const std::string word(argv[i]);
        if (word == "full") {
            settings.isFull = true;
        } else if (word == "--seed" && i + 1 < argc) {
            settings.seed = static_cast<unsigned>(std::strtoul(argv[++i], nullptr, 10));
        } else if (isStory(word)) {
            settings.chosen.push_back(word);
        } else {
            return false;
        }
    }
    return true;
}

bool isChosen(const Story& story, const Settings& settings) {
    return settings.chosen.empty() ||
           std::find(settings.chosen.begin(), settings.chosen.end(), story.name) != settings.chosen.end();
}

} // namespace

int main(int argc, char** argv) {
    Settings settings;
    if (!parse(argc, argv, settings)) {
        return usage();
    }
    std::printf("soak: the %s form, --seed %u\n", settings.isFull ? "full" : "short", settings.seed);
    const auto begin = std::chrono::steady_clock::now();
    unsigned played = 0;
    unsigned long failures = 0;
    for (const Story& story : stories) {
        if (isChosen(story, settings)) {
            failures += play(story, settings);
            ++played;
        }
    }
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - begin).count();
    std::printf("soak: %u stories in %ld s, %lu failures\n", played, static_cast<long>(seconds), failures);
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
