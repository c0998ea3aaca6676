#pragma once

#include "tests/faults/Fault.h"
#include "tests/faults/Observation.h"
#include "tests/faults/TracedProgram.h"

#include <string>
#include <vector>

namespace ZNORBFAULTS {

/// How a life is brought to its end, and what else happens in it.
enum class LifeKind {
    Quit,      ///< "QUIT" over the socket
    Stop,      ///< the executable with "-stop", which is traced, too ("stop")
    Terminate, ///< SIGTERM
    Refused    ///< as Quit, after a second "-d", which is traced, too ("second")
};
std::string describe(LifeKind kind);
constexpr LifeKind allLifeKinds[] = {LifeKind::Quit, LifeKind::Stop, LifeKind::Terminate, LifeKind::Refused};

struct LifeRecord {
    Observation observation;
    std::vector<RecordedCall> calls; ///< when they were asked for
    bool isFaultInjected = false;
};

/// One life of the daemon, in a sandbox's runner: `-d`, PRINT, GET twice until the clients have filled in
/// their entries, PRINT, the end. A request that gets no answer is made once more: a daemon may refuse one,
/// and serves the next. What does not end by itself is sent SIGTERM, then SIGKILL; every wait is bounded.
/// `environment`: "NAME=value" for the daemon; `environmentOfOther`: for the program that is run besides.
struct LifeSettings {
    Fault fault;
    bool recordsCalls = false;
    std::vector<std::string> environment;
    std::vector<std::string> environmentOfOther;
    bool isPatient = false; ///< waits for a stop that takes more than a minute
};
LifeRecord runLife(LifeKind kind, const LifeSettings& settings);

} // namespace ZNORBFAULTS
