/// Tables that any process of the machine may have written: the daemon lists them and claims from them as far
/// as they make sense, and outlives them.

#include "tests/soak/Lives.h"
#include "tests/soak/Soak.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/SharedTable.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>

namespace ZNORBSOAK {

using namespace ZNORBTEST;

namespace {

constexpr unsigned capacity = ZNORB_TABLE_CAPACITY;
constexpr unsigned long imagesPerLife = 500;
constexpr const char* waitingLine = "Unified responder waiting for connections\r\n";

using Image = znorb_shared_table;

std::string bytesOf(const Image& image) {
    return std::string(reinterpret_cast<const char*>(&image), sizeof image);
}

// ---- what the daemon makes of an image -------------------------------------------------------------

unsigned countOf(const Image& image) {
    return std::min<unsigned>(image.count, capacity);
}

/// What "PRINT" logs.
std::string listingOf(const Image& image) {
    std::string text;
    for (unsigned index = 0; index < countOf(image); ++index) {
        char begin[64];
        (void)std::snprintf(begin, sizeof begin, "Entry: %2u, Valid?: %s, ID: ", index,
                            image.entries[index].in_use != 0 ? "Y" : "N");
        text += begin + identifierOf(image.entries[index]) + "\r\n";
    }
    return text;
}

/// The lowest free entry, which becomes claimed; nullopt when there is none.
std::optional<unsigned> claimFrom(Image& image) {
    unsigned index = 0;
    while (index < countOf(image) && image.entries[index].in_use != 0) {
        ++index;
    }
    if (index == capacity) {
        return std::nullopt;
    }
    image.count = index == countOf(image) ? index + 1 : image.count;
    znorb_client_entry& entry = image.entries[index];
    entry.in_use = 1;
    entry.reserved = 0;
    entry.port = 0;
    std::memset(entry.identifier, 0, sizeof entry.identifier);
    return index;
}

// ---- images ------------------------------------------------------------------------------------------

Image filledWith(const std::string& bytes) {
    Image image;
    std::memcpy(&image, bytes.data(), sizeof image);
    return image;
}

std::uint32_t oddCount(Part& part) {
    static constexpr std::array<std::uint32_t, 12> counts = {
        0, 1, 2, 63, 64, 65, 66, 0x100, 0x7fffffff, 0x80000000, 0xfffffffe, 0xffffffff};
    return counts[part.below(counts.size())];
}

Image randomImage(Part& part, const Image& latest) {
    Image image = latest;
    switch (part.below(5)) {
    case 0:
        image = filledWith(part.randomBytes(sizeof image));
        break;
    case 1: // full of one byte, no terminator anywhere
        image = filledWith(std::string(sizeof image, static_cast<char>(part.below(3) - 1)));
        image.count = oddCount(part);
        break;
    case 2: // some entries in use, identifiers of all lengths
        image = filledWith(part.randomBytes(sizeof image));
        image.count = part.below(70);
        for (znorb_client_entry& entry : image.entries) {
            entry.in_use = static_cast<std::uint8_t>(part.below(3));
            entry.identifier[part.below(ZNORB_IDENTIFIER_SIZE)] = '\0';
        }
        break;
    case 3: // full but for one
        image.count = capacity + part.below(2);
        for (znorb_client_entry& entry : image.entries) {
            entry.in_use = 0xff;
        }
        image.entries[part.below(capacity)].in_use = 0;
        break;
    default: { // the latest one with some bytes changed
        std::string bytes = bytesOf(latest);
        for (unsigned change = part.below(64); change > 0; --change) {
            bytes[part.below(sizeof image)] = static_cast<char>(part.random()());
        }
        image = filledWith(bytes);
    }
    }
    if (!part.hasOwnNetwork()) { // the sweep at the end must meet nobody
        for (znorb_client_entry& entry : image.entries) {
            entry.port = 0;
        }
    }
    return image;
}

/// A daemon in test mode, where the listing can be seen.
class Console {
public:
    Console(Part& part, const DaemonDriver& driver) : m_part(part), m_process(driver.startTestConsole()) {
        part.expect(m_process->waitForOutput(waitingLine) &&
                        waitUntil([]() { return askDaemon("PRINT") == "0"; }), // it says so before it listens
                    "the daemon did not serve");
        m_seen = m_process->output().size();
    }

    bool expectListed(const Image& image) {
        m_part.expect(askDaemon("PRINT") == "0", "PRINT was not answered");
        return m_part.expect(newOutput() == listingOf(image), "another table was listed");
    }

    void expectClaimed(Image& image) {
        const std::optional<unsigned> index = claimFrom(image);
        m_part.expect(askDaemon("GET|en") == std::to_string(index.value_or(0)), "another entry was claimed");
        const bool isLaunched = newOutput().find("New process created: ") != std::string::npos;
        m_part.expect(isLaunched == index.has_value(), "launched although full, or not although free");
        const auto table = readSharedTable();
        m_part.expect(table.has_value() && bytesOf(*table) == bytesOf(image), "another table was left");
        m_part.note(index.has_value() ? "claims" : "refused claims");
    }

    void expectNothingLeft() {
        m_part.expect(askDaemon("PRINT") == "0", "PRINT was not answered");
        m_part.expect(newOutput().empty(), "a lost table was listed");
        m_part.expect(askDaemon("GET|en") == "0", "GET was not answered 0");
        m_part.expect(newOutput() == "Received GET command\r\n", "a lost table was claimed from");
    }

    std::string newOutput() {
        std::string text = m_process->outputFrom(m_seen);
        m_seen += text.size();
        return text;
    }

    void quit() {
        m_part.expect(m_process->writeInput("q\n"), "no key is taken");
        m_part.expect(m_process->waitForEnd() == exitedWith(255), "the daemon's status was not 255");
    }

private:
    Part& m_part;
    const std::unique_ptr<ChildProcess> m_process;
    std::size_t m_seen = 0;
};

/// Returns after `images` of them or the first failure.
void liveThrough(Part& part, const DaemonDriver& driver, unsigned long images) {
    Console console(part, driver);
    Image image{};
    bool isAsExpected = true;
    for (unsigned long number = 0; number < images && isAsExpected; ++number) {
        part.countRound();
        image = randomImage(part, image);
        part.expect(writeSharedTable(0, bytesOf(image)), "no table");
        isAsExpected = console.expectListed(image);
        console.expectClaimed(image);
    }
    console.quit(); // and the sweep of the last one
    part.note("sweeps over a random table");
}

/// Writes and shortens from a thread without end, as any process may.
class Scribbler {
public:
    explicit Scribbler(unsigned seed) : m_thread([this, seed]() { scribble(seed); }) {}
    ~Scribbler() {
        m_stop = true;
        m_thread.join();
    }

    unsigned long resizes() const { return m_resizes; }

private:
    void scribble(unsigned seed) {
        static constexpr std::array<std::int64_t, 8> sizes = {0, 1, 4, 4096, 8191, 8192, 8196, 65536};
        std::mt19937 random(seed);
        while (!m_stop) {
            const std::string bytes(random() % 512, static_cast<char>(random()));
            (void)writeSharedTable(static_cast<std::int64_t>(random() % sizeof(Image)), bytes);
            if (random() % 16 == 0) {
                (void)resizeSharedTable(sizes[random() % sizes.size()]);
                ++m_resizes;
            }
        }
    }

    std::atomic<bool> m_stop = false;
    std::atomic<unsigned long> m_resizes = 0;
    std::thread m_thread;
};

/// Requests while the table changes under the daemon's hands; at the end it is shortened for good.
void outliveOnce(Part& part, const DaemonDriver& driver) {
    Console console(part, driver);
    {
        const Scribbler scribbler(static_cast<unsigned>(part.random()()));
        for (unsigned request = 0; request < 50; ++request) {
            part.expect(askDaemon("PRINT") == "0", "PRINT was not answered");
            const std::string reply = askDaemon("GET|en").value_or("nothing");
            part.expect(reply.size() <= 2 && reply.find_first_not_of("0123456789") == std::string::npos &&
                            std::stoul(reply) < capacity,
                        "the reply to GET was " + reply);
        }
        part.note("resizes meanwhile", scribbler.resizes());
    }
    const std::int64_t size = part.below(2) * 4096;
    part.expect(resizeSharedTable(size), "no table");
    (void)askDaemon("PRINT");
    (void)console.newOutput();
    console.expectNothingLeft();
    part.note(size == 0 ? "shortened to 0" : "shortened to 4096");
    console.quit();
}

/// Shortened while the daemon waits.
void loseIdleOnce(Part& part, const DaemonDriver& driver) {
    Console console(part, driver);
    for (unsigned claim = part.below(4); claim > 0; --claim) {
        (void)askDaemon("GET|en");
    }
    (void)console.newOutput();
    const std::int64_t size = part.below(8193);
    part.expect(resizeSharedTable(size), "no table");
    console.expectNothingLeft();
    part.expect(resizeSharedTable(sizeof(Image)), "no table");
    console.expectNothingLeft(); // that does not bring it back
    part.note("shortened at idle");
    console.quit();
}

} // namespace

void readTableImages(Part& part) {
    const DaemonDriver driver;
    installBriefClient(driver);
    for (unsigned long played = 0; played < part.rounds(); played += imagesPerLife) {
        liveThrough(part, driver, std::min(imagesPerLife, part.rounds() - played));
    }
}

void truncateTables(Part& part) {
    const DaemonDriver driver;
    installBriefClient(driver);
    for (unsigned long round = 0; round < part.rounds(); ++round) {
        part.countRound();
        if (round % 2 == 0) {
            outliveOnce(part, driver);
        } else {
            loseIdleOnce(part, driver);
        }
    }
}

} // namespace ZNORBSOAK
