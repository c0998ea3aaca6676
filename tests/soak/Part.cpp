#include "tests/soak/Soak.h"

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace ZNORBSOAK {
namespace {

constexpr unsigned long mostFailuresToPrint = 10;

bool bringLoopbackUp() {
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor == -1) {
        return false;
    }
    ifreq request{};
    std::memcpy(request.ifr_name, "lo", sizeof "lo");
    request.ifr_flags = IFF_UP;
    const bool isUp = ioctl(descriptor, SIOCSIFFLAGS, &request) == 0;
    (void)close(descriptor);
    return isUp;
}

/// Another one for each story and part, so that a story chosen alone makes the choices that it makes among
/// the others.
std::mt19937 generatorFor(const char* story, unsigned part, unsigned seed) {
    const std::string name(story);
    std::seed_seq sequence(name.begin(), name.end());
    std::vector<std::uint32_t> words(4);
    sequence.generate(words.begin(), words.end());
    words.push_back(seed);
    words.push_back(part);
    std::seed_seq all(words.begin(), words.end());
    return std::mt19937(all);
}

} // namespace

Part::Part(const Story& story, unsigned index, unsigned long rounds, bool isFull, unsigned seed, Tally& tally)
    : m_story(story.name),
      m_index(index),
      m_parts(story.parts),
      m_rounds(rounds),
      m_isFull(isFull),
      m_tally(tally),
      m_random(generatorFor(story.name, index, seed)) {}

std::string Part::randomBytes(std::size_t length) {
    std::string bytes(length, '\0');
    std::generate(bytes.begin(), bytes.end(), [this]() { return static_cast<char>(m_random()); });
    return bytes;
}

std::atomic<unsigned long>& Part::numberOf(const std::string& name) {
    for (Tally::Number& number : m_tally.numbers) {
        if (number.name[0] == '\0') {
            (void)name.copy(number.name.data(), number.name.size() - 1);
        }
        if (name.compare(0, number.name.size() - 1, number.name.data()) == 0) {
            return number.value;
        }
    }
    return m_tally.numbers.back().value; // too many names: the last one collects them
}

void Part::note(const std::string& name, unsigned long count) {
    numberOf(name) += count;
}

void Part::noteHighest(const std::string& name, unsigned long value) {
    std::atomic<unsigned long>& number = numberOf(name);
    number = std::max(number.load(), value);
}

bool Part::expect(bool holds, const std::string& what) {
    if (!holds && ++m_tally.failures <= mostFailuresToPrint) {
        std::printf("%s.%u, round %lu: %s\n", m_story, m_index, m_tally.rounds.load(), what.c_str());
        (void)std::fflush(stdout);
    }
    return holds;
}

void Part::enterOwnNetwork() {
    m_hasOwnNetwork = unshare(CLONE_NEWNET) == 0 && bringLoopbackUp();
}

} // namespace ZNORBSOAK
