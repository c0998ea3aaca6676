#pragma once

#include "tests/soak/Soak.h"
#include "tests/support/DaemonDriver.h"
#include "tests/support/ListeningPeer.h"

#include <sys/types.h>

#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

/// What the lives of a daemon in the soak consist of.
namespace ZNORBSOAK {

/// Keeps the processors busy while it lives, together with those of the story's other parts: with one process
/// for each of them. Make it while there is only one thread.
class BusyCores {
public:
    explicit BusyCores(const Part& part);
    ~BusyCores();
    BusyCores(const BusyCores&) = delete;
    BusyCores& operator=(const BusyCores&) = delete;

private:
    std::vector<pid_t> m_burners;
};

/// What the daemon is busy with when its end comes.
enum class Load { Starting, Idle, Launching, Listing, Sweeping, HeldInTheSweep };

inline constexpr std::array<const char*, 6> loadNames = {"starting",    "idle",         "under GET",
                                                         "under PRINT", "in the sweep", "held in the sweep"};

/// Lets a time of chance pass that fits what the daemon is busy with; often none while it is starting,
/// because a start takes less than a millisecond.
void awaitRandomMoment(Part& part, Load load);

/// Keeps a serving daemon busy while it lives.
class AppliedLoad {
public:
    explicit AppliedLoad(Load load);
    ~AppliedLoad();

private:
    void launchClients();
    void repeat(const std::string& request);

    std::unique_ptr<ZNORBTEST::ListeningPeer> m_silent; ///< a client that takes the exit request
    std::atomic<bool> m_stop = false;
    std::thread m_requests;
};

/// Waits for the daemon that the process starts, without a pause, so that it is met at its very beginning; -1
/// when none comes. REQUIRES: no other one runs, nor the fork of one.
pid_t awaitDaemon(pid_t invoking);

/// After the daemon's end: ends the clients that run, by their ids, those included that the daemon had forked
/// but that do not have a name of their own yet, and would be taken for the next daemon. Collects what the
/// daemon has left to this process: thousands of zombies would use up the machine's process ids. False when
/// they do not end. REQUIRES: whoever wants to know how another child ended has asked.
bool endClients(const ZNORBTEST::DaemonDriver& driver);

/// Removes the names that have come up since the driver was made, so that a failed round does not fail the
/// next one.
void removeNames(const ZNORBTEST::DaemonDriver& driver);

/// For people to read.
std::string inWords(const ZNORBTEST::ProcessEnd& end);

/// Puts a program into the client's place that ends at once and leaves its entry as it was claimed.
void installBriefClient(const ZNORBTEST::DaemonDriver& driver);

} // namespace ZNORBSOAK
