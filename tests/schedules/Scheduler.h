#pragma once

#include "tests/schedules/Ensemble.h"
#include "tests/schedules/History.h"
#include "tests/schedules/Order.h"
#include "tests/schedules/Witness.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace ZNORBSCHEDULES {

/// Lets one of the enabled threads go on at a time, in an order.
///
/// As long as the one who took the last step is enabled, to let another go on preempts him; else the switch
/// is free, and may go to any other one. Whoever sleeps has his turn when nobody else is enabled, in the
/// order of time: to let him go on before costs as much as a preemption, and is only tried when something has
/// changed that he looks at.
///
/// Whoever is preempted is in the sleep set until somebody takes a step that is not independent of his next
/// one. Before that he need not go on: it would come to the same to preempt him behind that step instead.
class Scheduler {
public:
    Scheduler(Ensemble& ensemble, Witness& witness) : m_ensemble(ensemble), m_witness(witness) {}

    /// Until nobody can go on. Notes the steps, or why the order could not be gone through.
    void play(const Order& order, Course& course, const KnownStates& known = {});

private:
    bool takeStep(const Order& order, Course& course);
    std::vector<Choice> choices(std::size_t index) const;
    bool isFree(const Participant& enabled) const;
    const Participant* choose(const Order& order, const std::vector<Choice>& choices, Course& course);
    std::string take(const Participant& chosen);
    void noteStep(const Participant& before, const Access& access);
    void noteEarlyWord(const std::string& family);
    std::uint64_t state() const;

    Ensemble& m_ensemble;
    Witness& m_witness;
    History m_history;
    std::string m_current;                    ///< who took the last step, while he is enabled
    std::map<std::string, Access> m_sleepSet; ///< with what their next steps touch
    std::size_t m_choices = 0;                ///< of the order's that have been made
};

} // namespace ZNORBSCHEDULES
