#include "tests/soak/Lives.h"

#include "tests/sandbox/Processes.h"
#include "tests/support/Files.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/SharedTable.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <sstream>

namespace ZNORBSOAK {

using namespace ZNORBTEST;

namespace {

constexpr unsigned clientsToSweep = 4;
constexpr std::size_t exitRequestSize = 58;

/// Does what can only be seen from outside: nothing, at full speed.
[[noreturn]] void burn() {
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (std::atomic<unsigned> turns = 0;; ++turns) {
    }
}

} // namespace

BusyCores::BusyCores(const Part& part) {
    const auto cores = static_cast<unsigned>(std::max(sysconf(_SC_NPROCESSORS_ONLN), 0L));
    for (unsigned core = part.index(); core < cores; core += part.parts()) {
        const pid_t burner = fork();
        if (burner == 0) {
            burn();
        }
        m_burners.push_back(burner);
    }
}

BusyCores::~BusyCores() {
    for (const pid_t burner : m_burners) {
        if (burner > 0) {
            (void)kill(burner, SIGKILL);
            (void)waitForEndOf(burner);
        }
    }
}

void awaitRandomMoment(Part& part, Load load) {
    if (load == Load::Starting) {
        const unsigned moment = part.below(2) == 0 ? 0 : part.below(1000);
        const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(moment);
        while (std::chrono::steady_clock::now() < end) { // sleeping would be too coarse
        }
        return;
    }
    const unsigned longest = load == Load::Sweeping ? 6000 : 20000;
    std::this_thread::sleep_for(std::chrono::microseconds(part.below(longest)));
}

AppliedLoad::AppliedLoad(Load load) {
    switch (load) {
    case Load::Launching:
        repeat("GET|en|60");
        break;
    case Load::Listing:
        repeat("PRINT");
        break;
    case Load::Sweeping:
        launchClients();
        repeat("QUIT");
        break;
    case Load::HeldInTheSweep:
        launchClients();
        m_silent = std::make_unique<ListeningPeer>(PeerScript{exitRequestSize, {}, true});
        (void)DaemonDriver::waitForClient(clientsToSweep / 2); // or it would overwrite the port
        (void)enterClient(clientsToSweep / 2, m_silent->port());
        repeat("QUIT");
        break;
    case Load::Starting:
    case Load::Idle:
        break;
    }
}

AppliedLoad::~AppliedLoad() {
    m_stop = true;
    if (m_requests.joinable()) {
        m_requests.join();
    }
}

void AppliedLoad::launchClients() {
    for (unsigned client = 0; client < clientsToSweep; ++client) {
        (void)askDaemon("GET|en|60");
    }
}

void AppliedLoad::repeat(const std::string& request) {
    m_requests = std::thread([this, request]() {
        while (!m_stop) {
            if (!askDaemon(request, Milliseconds(500)).has_value()) {
                std::this_thread::sleep_for(Milliseconds(1)); // the daemon may be gone
            }
        }
    });
}

pid_t awaitDaemon(pid_t invoking) {
    const auto end = std::chrono::steady_clock::now() + usualBound;
    pid_t daemon = -1;
    while (daemon == -1 && std::chrono::steady_clock::now() < end) {
        daemon = DaemonDriver::findDaemon({invoking});
    }
    return daemon;
}

bool endClients(const DaemonDriver& driver) {
    return waitUntil([&driver]() {
        const std::vector<pid_t> running = driver.clients();
        for (const pid_t client : running) {
            (void)kill(client, SIGKILL);
        }
        while (waitpid(-1, nullptr, WNOHANG) > 0) {
        }
        return running.empty() && processesRunning(driver.program()).empty() &&
               DaemonDriver::findDaemon({}) == -1;
    });
}

void removeNames(const DaemonDriver& driver) {
    for (const std::string& name : driver.newNames()) {
        (void)unlink(name.c_str());
    }
}

std::string inWords(const ProcessEnd& end) {
    std::ostringstream text;
    text << end;
    return text.str();
}

void installBriefClient(const DaemonDriver& driver) {
    (void)unlink(driver.client().c_str());
    copyProgram("/bin/true", driver.client());
}

} // namespace ZNORBSOAK
