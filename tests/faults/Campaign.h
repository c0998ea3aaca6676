#pragma once

#include "tests/faults/Fault.h"
#include "tests/faults/Life.h"

#include <map>
#include <string>
#include <vector>

namespace ZNORBFAULTS {

/// A fault and the life in which it happens.
struct Injection {
    LifeKind life;
    Fault fault;
    bool isPatient = false; ///< as in LifeSettings
};

/// What came of one injection.
struct Outcome {
    Injection injection;
    bool isInjected = false; ///< the life came to the place
    std::string text;        ///< as difference() has it
};

/// A life of each kind without a fault: what was seen, and the calls that were made.
using UsualLives = std::map<LifeKind, LifeRecord>;

/// Runs a life of each kind and records it; empty, with a message, when two lives of a kind differ or no
/// sandbox can be had.
UsualLives recordUsualLives(std::string& problem);

/// Every fault at every place of the recorded lives, once main has begun: what the C library does before it
/// is no matter of ours, but for the mapping of the shared event. Of a call that a life makes on the same
/// object more than eight times, the first two, the middle and the last. `briefly`: each place with two of
/// its faults only, others at each.
std::vector<Injection> planInjections(const UsualLives& lives, bool briefly);

/// Runs a life for each injection, each in a sandbox of its own, twice as many at a time as there are
/// processors; one at a time where sandboxes are no namespaces. The outcomes come in the plan's order.
std::vector<Outcome> runInjections(const UsualLives& lives, const std::vector<Injection>& plan);

/// Before the text of a life that came to the fault's place.
inline const std::string injectedMark = "injected: ";

/// The outcomes of a plan's faults, from such texts.
template <typename Outcome, typename Planned>
std::vector<Outcome> outcomesOf(const std::vector<Planned>& plan, const std::vector<std::string>& texts) {
    std::vector<Outcome> outcomes;
    for (std::size_t index = 0; index < plan.size(); ++index) {
        const bool isInjected = texts[index].starts_with(injectedMark);
        outcomes.push_back(
            {plan[index], isInjected, texts[index].substr(isInjected ? injectedMark.size() : 0)});
    }
    return outcomes;
}

} // namespace ZNORBFAULTS
