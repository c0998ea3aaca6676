#pragma once

#include "tests/support/Names.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <random>
#include <string>

/// What the stories of the soak have in common: each shows over many rounds, with choices of chance, that the
/// daemon keeps to what it promises.
namespace ZNORBSOAK {

class Part;

/// A story and its scale.
struct Story {
    const char* name;
    const char* content;      ///< one line, for people
    unsigned long rounds;     ///< of the short form
    unsigned long fullRounds; ///< of the full form
    unsigned parts;           ///< sandboxes that share the rounds at the same time
    void (*play)(Part& part);
};

/// What one part of a story came to, in memory that its sandbox shares with the program. One writer.
struct Tally {
    struct Number {
        std::array<char, 48> name{};
        std::atomic<unsigned long> value{0};
    };

    std::atomic<unsigned long> rounds{0};
    std::atomic<unsigned long> failures{0};
    std::atomic<bool> isOver{false};
    std::array<Number, 24> numbers{};
};

/// A part of a story: one sandbox, a share of the rounds, and where to write down what happened. Belongs to
/// the sandbox's only thread, unless said otherwise.
class Part {
public:
    /// `rounds` are this part's own.
    Part(const Story& story, unsigned index, unsigned long rounds, bool isFull, unsigned seed, Tally& tally);

    unsigned index() const { return m_index; }
    unsigned parts() const { return m_parts; }
    unsigned long rounds() const { return m_rounds; }
    bool isFull() const { return m_isFull; }

    /// Whether this sandbox reaches nobody over the network but itself, so that any port may be tried.
    bool hasOwnNetwork() const { return m_hasOwnNetwork; }

    std::mt19937& random() { return m_random; }
    /// 0 to limit - 1. REQUIRES: a limit that is not 0.
    unsigned below(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }
    std::string randomBytes(std::size_t length);

    void countRounds(unsigned long count) { m_tally.rounds += count; }
    void countRound() { countRounds(1); }

    /// Adds to one of the story's numbers.
    void note(const std::string& name, unsigned long count = 1);
    /// Keeps the highest of them.
    void noteHighest(const std::string& name, unsigned long value);

    /// A failure of the story when it does not hold; the first few are printed. Returns `holds`.
    bool expect(bool holds, const std::string& what);

    /// Gives the sandbox a network of its own, if it may have one.
    void enterOwnNetwork();

private:
    std::atomic<unsigned long>& numberOf(const std::string& name);

    const char* m_story;
    const unsigned m_index;
    const unsigned m_parts;
    const unsigned long m_rounds;
    const bool m_isFull;
    bool m_hasOwnNetwork = false;
    Tally& m_tally;
    std::mt19937 m_random;
};

void startAndStop(Part& part);
void terminate(Part& part);
void killOutright(Part& part);
void request(Part& part);
void launchAndSweep(Part& part);
void readTableImages(Part& part);
void truncateTables(Part& part);
void askHostileServers(Part& part);
void serveHostileRequesters(Part& part);

inline constexpr const char* socketFile = "/run/znorb.socket";

} // namespace ZNORBSOAK
