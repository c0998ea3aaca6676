#pragma once

#include "tests/schedules/Ensemble.h"
#include "tests/schedules/History.h"
#include "tests/schedules/Order.h"
#include "tests/schedules/Witness.h"

#include <string>

namespace ZNORBSCHEDULES {

/// Lets one of the held threads go on at a time, in an order.
class Scheduler {
public:
    /// `objects`: those that make a difference in the story.
    Scheduler(Ensemble& ensemble, Witness& witness, unsigned objects)
        : m_ensemble(ensemble), m_witness(witness), m_objects(objects) {}

    /// Until nobody can go on, or time has run out for those who only look again and again. Notes the steps,
    /// or why the order could not be gone through.
    void play(const Order& order, Course& course, const KnownStates& known = {});

private:
    bool takeStep(const Order& order, Course& course);
    const Participant* usualNext() const;
    const Participant* choose(const Order& order, const Participant* usual, Course& course);
    bool take(const Participant& chosen, Step& step, std::size_t index);
    void noteEarlyWord(const std::string& family);

    Ensemble& m_ensemble;
    Witness& m_witness;
    const unsigned m_objects;
    History m_history;
    std::string m_current;     ///< who took the last step
    std::size_t m_choices = 0; ///< of the order's that have been made
};

} // namespace ZNORBSCHEDULES
