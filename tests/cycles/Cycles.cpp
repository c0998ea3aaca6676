/// What many lives of the daemon leave behind: start/GET/stop cycles, and SIGTERMs at random moments.
///
///     znorb-cycles [count [seed]]
///
/// Prints the counts of both stories and ends with 0 when nothing was left and nothing went wrong. Runs in
/// the same sandbox as the tests.

#include "tests/support/DaemonDriver.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Sandbox.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace ZNORBTEST;

constexpr const char* tableFile = "/dev/shm/znorb.shvars";
constexpr const char* stoppedMessage = "The ZN Orbisan daemon has stopped.\n";

/// What every daemon leaves that got as far as binding its socket.
const std::vector<std::string> leftByDesign = {"/run/znorb.socket"};

/// The end that a terminated daemon must have come to, a request or not.
constexpr Milliseconds terminationBound{1000};

class Story {
public:
    explicit Story(const char* name) : m_name(name) {}

    void count() { ++m_count; }
    void expect(bool holds, const char* what) {
        if (!holds) {
            std::printf("%s %u: %s\n", m_name, m_count, what);
            ++m_failures;
        }
    }
    unsigned report(const std::string& details) const {
        std::printf("%s: %u rounds, %u failures%s\n", m_name, m_count, m_failures, details.c_str());
        (void)std::fflush(stdout);
        return m_failures;
    }

private:
    const char* m_name;
    unsigned m_count = 0;
    unsigned m_failures = 0;
};

void endClients(const DaemonDriver& driver) {
    (void)waitUntil([&driver]() {
        const std::vector<pid_t> running = driver.clients();
        for (const pid_t client : running) {
            (void)kill(client, SIGKILL);
            (void)waitForEndOf(client, Milliseconds(0));
        }
        return running.empty();
    });
}

/// `-d`, one or two GETs as soon as the socket answers, `-stop`, and at once the next.
unsigned startGetStop(unsigned rounds) {
    DaemonDriver driver;
    Story story("start/GET/stop");
    for (unsigned round = 0; round < rounds; ++round) {
        story.count();
        story.expect(driver.start(), "the start was refused");
        story.expect(waitUntil([]() { return askDaemon("GET|en|60") == "0"; }), "the first GET failed");
        if (round % 2 == 0) {
            story.expect(askDaemon("GET|de|60") == "1", "the second GET failed");
            story.expect(DaemonDriver::waitForClient(0) && DaemonDriver::waitForClient(1),
                         "a client did not fill in its entry");
        }
        story.expect(driver.run({"-stop"}).output == stoppedMessage, "the stop failed");
        story.expect(driver.waitForDaemon() == exitedWith(255), "the daemon's status was not 255");
        story.expect(driver.newNames() == leftByDesign, "a name was left");
        if (round % 2 == 0) {
            story.expect(waitUntil([&driver]() { return driver.clients().empty(); }), "a client was left");
        }
        endClients(driver); // those that had no port yet when the daemon quit
    }
    return story.report("");
}

/// What the daemon is busy with when SIGTERM comes.
enum class Load { Starting, Idle, Launching, Listing, Sweeping };
constexpr std::array<const char*, 5> loadNames = {"starting", "idle", "under GET", "under PRINT",
                                                  "in the sweep"};

/// Requests without end from a thread, until destroyed.
class Requests {
public:
    explicit Requests(std::string request)
        : m_thread([this, request]() {
              while (!m_stop) {
                  (void)askDaemon(request, Milliseconds(500));
              }
          }) {}
    ~Requests() {
        m_stop = true;
        m_thread.join();
    }
    Requests(const Requests&) = delete;
    Requests& operator=(const Requests&) = delete;

private:
    std::atomic<bool> m_stop = false;
    std::thread m_thread;
};

std::unique_ptr<Requests> applyLoad(Load load) {
    switch (load) {
    case Load::Launching:
        return std::make_unique<Requests>("GET|en|60");
    case Load::Listing:
        return std::make_unique<Requests>("PRINT");
    case Load::Sweeping:
        for (int client = 0; client < 4; ++client) {
            (void)askDaemon("GET|en|60");
        }
        return std::make_unique<Requests>("QUIT");
    case Load::Starting:
    case Load::Idle:
        break;
    }
    return nullptr;
}

unsigned terminateAtRandom(unsigned rounds, unsigned seed) {
    DaemonDriver driver;
    Story story("SIGTERM at a random moment");
    std::mt19937 random(seed);
    std::array<unsigned, loadNames.size()> terminated{};
    unsigned endedInOrder = 0;
    for (unsigned round = 0; round < rounds; ++round) {
        story.count();
        const Load load = static_cast<Load>(round % loadNames.size());
        ChildProcess invoking(driver.launch({"-d"}));
        pid_t daemon = -1;
        story.expect(waitUntil([&]() { return (daemon = DaemonDriver::findDaemon({invoking.pid()})) != -1; }),
                     "no daemon was started");
        if (load != Load::Starting) {
            story.expect(waitUntil([]() { return askDaemon("PRINT") == "0"; }), "the daemon did not serve");
        }
        const std::unique_ptr<Requests> requests = applyLoad(load);
        std::this_thread::sleep_for(
            std::chrono::microseconds(random() % (load == Load::Starting ? 3000 : 20000)));
        const bool wasThere = kill(daemon, SIGTERM) == 0;
        const ProcessEnd end = waitForEndOf(daemon, terminationBound);
        const bool inOrder = load == Load::Sweeping && end == exitedWith(255); // "QUIT" was quicker
        story.expect(wasThere && (end == exitedWith(10) || inOrder), "the status was not 10 within a second");
        (void)unlink(tableFile); // stays by design
        const std::vector<std::string> left = driver.newNames();
        story.expect(left.empty() || left == leftByDesign, "a name was left");
        terminated[static_cast<std::size_t>(load)] += end == exitedWith(10) ? 1U : 0U;
        endedInOrder += inOrder ? 1U : 0U;
        endClients(driver);
    }
    std::string details;
    for (std::size_t load = 0; load < loadNames.size(); ++load) {
        details += std::string("; ") + loadNames[load] + " " + std::to_string(terminated[load]);
    }
    return story.report(details + "; quit before the signal came " + std::to_string(endedInOrder));
}

unsigned numberOr(int argc, char** argv, int index, unsigned otherwise) {
    return index < argc ? static_cast<unsigned>(std::strtoul(argv[index], nullptr, 10)) : otherwise;
}

} // namespace

int main(int argc, char** argv) {
    const unsigned rounds = numberOr(argc, argv, 1, 1000);
    const unsigned seed = numberOr(argc, argv, 2, std::random_device()());
    std::printf("znorb-cycles: %u rounds of each story, seed %u\n", rounds, seed);
    (void)std::fflush(stdout);
    const SandboxOutcome outcome = runSandboxed([=]() {
        return startGetStop(rounds) + terminateAtRandom(rounds, seed) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
    });
    if (outcome.kind != SandboxOutcome::Kind::Ended) {
        std::printf("znorb-cycles: no sandbox: %s\n", outcome.reason.c_str());
        return EXIT_FAILURE;
    }
    const bool isClean = WIFEXITED(outcome.waitStatus) && WEXITSTATUS(outcome.waitStatus) == EXIT_SUCCESS;
    std::printf("znorb-cycles: %s\n", isClean ? "nothing was left behind" : "FAILED");
    return isClean ? EXIT_SUCCESS : EXIT_FAILURE;
}
