#include "tests/schedules/Scheduler.h"

#include <algorithm>
#include <vector>

namespace ZNORBSCHEDULES {
namespace {

/// Of the clock that sleeps go by: twice what a `-stop` waits at most.
constexpr std::uint64_t longest = 10'000'000;
constexpr std::size_t mostSteps = 4000;

struct Candidate {
    std::string role;
    std::string family;
};

std::vector<Candidate> candidatesIn(const Ensemble& ensemble) {
    std::vector<Candidate> candidates;
    for (const Participant* held : ensemble.held()) {
        candidates.push_back({held->role, held->family});
    }
    return candidates;
}

/// What would come to the same is left out: to let another family go first, when the step has nothing to do
/// with it, is to let it go after the step. That has its own turn, and costs no more.
void noteAlternatives(Step& step, std::size_t index, const std::string& family, bool isOwnAffair,
                      const std::vector<Candidate>& candidates) {
    for (const Candidate& candidate : candidates) {
        if (candidate.role == step.role) {
            continue;
        }
        if (!isOwnAffair || candidate.family == family) {
            step.alternatives.push_back({index, candidate.role, step.state});
        }
    }
}

} // namespace

void Scheduler::play(const Order& order, Course& course, const KnownStates& known) {
    if (!m_ensemble.settle()) {
        course.problem = "nobody at rest within the bound";
        return;
    }
    (void)m_witness.look();
    while (takeStep(order, course)) {
        if (m_choices == order.size() && known.contains(m_history.state(m_current))) {
            course.isCut = true;
            return;
        }
        if (course.steps.size() > mostSteps) {
            course.problem = "no end after " + std::to_string(mostSteps) + " steps";
        }
    }
    if (m_choices < order.size() && course.problem.empty()) {
        course.problem = "ended before its last choice";
    }
}

/// False at the end.
bool Scheduler::takeStep(const Order& order, Course& course) {
    const Participant* const usual = usualNext();
    if (usual == nullptr || m_ensemble.time() > longest) {
        return false;
    }
    const Participant* const chosen = choose(order, usual, course);
    if (!course.problem.empty()) {
        return false;
    }
    Step step;
    if (!take(*chosen, step, course.steps.size())) {
        course.problem = "nobody at rest within the bound, after " + step.role + ", " + step.place + ": " +
                         m_ensemble.report();
    }
    course.steps.push_back(step);
    return course.problem.empty();
}

/// Whoever took the last step while he can, else the one who could not go on for the shortest time, which is
/// whom that one has woken; sleepers last, in the order in which they wake up. The first by name of several.
const Participant* Scheduler::usualNext() const {
    const Participant* next = nullptr;
    for (const Participant* held : m_ensemble.held()) {
        if (held->role == m_current && !held->sleeps()) {
            return held;
        }
        const bool isSooner = next == nullptr || (next->sleeps() && !held->sleeps()) ||
                              (next->sleeps() && held->wakesAt < next->wakesAt) ||
                              (!next->sleeps() && !held->sleeps() && held->heldSince > next->heldSince);
        next = isSooner ? held : next;
    }
    return next;
}

const Participant* Scheduler::choose(const Order& order, const Participant* usual, Course& course) {
    if (m_choices == order.size() || order[m_choices].step != course.steps.size()) {
        return usual;
    }
    const Choice& choice = order[m_choices++];
    const Participant* const wanted = m_ensemble.find(choice.role);
    if (wanted == nullptr || !wanted->isHeld || choice.state != m_history.state(m_current)) {
        course.problem = "another state at step " + std::to_string(choice.step) + " than in the order before";
        return usual;
    }
    return wanted;
}

/// False when it did not come to its end.
bool Scheduler::take(const Participant& chosen, Step& step, std::size_t index) {
    step = {.role = chosen.role, .place = chosen.place, .state = m_history.state(m_current)};
    const std::vector<Candidate> candidates = candidatesIn(m_ensemble);
    const std::string family = chosen.family;
    Access access = chosen.shared.access;
    m_current = step.role;
    m_ensemble.goOn(step.role);
    if (!m_ensemble.settle()) {
        return false;
    }
    access.writes |= m_witness.look();
    access.reads = (access.reads | Signals) & m_objects; // a signal comes between any two steps
    access.writes &= m_objects;
    noteAlternatives(step, index, family, access.isNone(), candidates);
    m_history.add(family, step.role + ", " + step.place, access);
    noteEarlyWord(family);
    return true;
}

/// "-d" says that the daemon has started when its thread has been.
void Scheduler::noteEarlyWord(const std::string& family) {
    if (!m_ensemble.hasBeen(family + " responder") &&
        m_ensemble.output(family).find("has started") != std::string::npos) {
        m_witness.note("start told before the thread's");
    }
}

} // namespace ZNORBSCHEDULES
