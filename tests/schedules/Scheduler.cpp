#include "tests/schedules/Scheduler.h"

#include "tests/tracing/Words.h"

#include <algorithm>

namespace ZNORBSCHEDULES {
namespace {

constexpr std::size_t mostSteps = 4000;

std::string inWords(const Objects& objects) {
    return ZNORBTRACING::joined({objects.begin(), objects.end()}, ", ");
}

} // namespace

void Scheduler::play(const Order& order, Course& course, const KnownStates& known) {
    if (!m_ensemble.settle()) {
        course.problem = "nobody at rest within the bound";
        return;
    }
    (void)m_witness.look();
    for (const Participant* enabled : m_ensemble.enabled()) {
        m_history.begin(enabled->role, "");
    }
    while (takeStep(order, course)) {
        if (m_choices == order.size() && known.contains(state())) {
            course.isCut = true;
            return;
        }
        if (course.steps.size() > mostSteps) {
            course.problem = "no end after " + std::to_string(mostSteps) + " steps";
            return;
        }
    }
    if (m_choices < order.size() && course.problem.empty()) {
        course.problem = "ended before its last choice";
    }
}

/// False at the end.
bool Scheduler::takeStep(const Order& order, Course& course) {
    if (m_ensemble.enabled().empty()) {
        return false;
    }
    Step step = {.role = "", .place = "", .state = state(), .alternatives = choices(course.steps.size())};
    const Participant* const chosen = choose(order, step.alternatives, course);
    course.isCut = chosen == nullptr && course.problem.empty();
    if (chosen != nullptr) {
        step.role = chosen->role;
        step.place = chosen->place;
        std::erase_if(step.alternatives, [&](const Choice& choice) { return choice.role == step.role; });
        course.problem = take(*chosen);
    }
    course.steps.push_back(step);
    return chosen != nullptr && course.problem.empty();
}

/// Who may take the next step. One whose step is private takes it at once, as if it were a part of his next
/// one: whenever he takes it, the same comes of it.
std::vector<Choice> Scheduler::choices(std::size_t index) const {
    std::vector<Choice> result;
    for (const Participant* enabled : m_ensemble.enabled()) {
        const Choice choice = {index, enabled->role, state(), !isFree(*enabled)};
        if (m_ensemble.isPrivate(*enabled)) {
            return {{index, enabled->role, state(), false}};
        }
        const bool isForNothing = choice.isPreemption && enabled->sleeps() && !enabled->hasNews;
        if (!m_sleepSet.contains(enabled->role) && !isForNothing) {
            result.push_back(choice);
        }
    }
    return result;
}

bool Scheduler::isFree(const Participant& enabled) const {
    if (!m_current.empty()) {
        return enabled.role == m_current;
    }
    const std::vector<const Participant*> all = m_ensemble.enabled();
    return !enabled.sleeps() || std::none_of(all.begin(), all.end(), [&enabled](const Participant* other) {
        const bool isSooner = other->wakesAt < enabled.wakesAt ||
                              (other->wakesAt == enabled.wakesAt && other->role < enabled.role);
        return !other->sleeps() || isSooner;
    });
}

/// Usual is, of those whose turn is free, the one who has waited for the shortest time, which is whom the
/// last step has woken; the first by name of several. Null when all of them are in the sleep set.
const Participant* Scheduler::choose(const Order& order, const std::vector<Choice>& choices, Course& course) {
    if (m_choices < order.size() && order[m_choices].step == course.steps.size()) {
        const Choice& choice = order[m_choices++];
        const Participant* const wanted = m_ensemble.find(choice.role);
        if (wanted == nullptr || !Ensemble::isEnabled(*wanted) || choice.state != state()) {
            course.problem =
                "another state at step " + std::to_string(choice.step) + " than in the order before";
            return nullptr;
        }
        return wanted;
    }
    const Participant* usual = nullptr;
    for (const Choice& choice : choices) {
        const Participant* const enabled = m_ensemble.find(choice.role);
        if (!choice.isPreemption && (usual == nullptr || enabled->heldSince > usual->heldSince)) {
            usual = enabled;
        }
    }
    return usual;
}

/// Why it did not come to its end, if so.
std::string Scheduler::take(const Participant& chosen) {
    const Participant before = chosen;
    const Access access = m_ensemble.accessOf(chosen);
    const bool isTurn = before.role == m_current || !m_ensemble.isPrivate(chosen);
    if (isTurn && !m_current.empty() && before.role != m_current) {
        m_sleepSet[m_current] = m_ensemble.accessOf(*m_ensemble.find(m_current));
    }
    const std::string which = before.role + ", " + before.place + ": ";
    m_ensemble.goOn(before.role);
    if (!m_ensemble.settle()) {
        return which + "nobody at rest within the bound: " + m_ensemble.report();
    }
    noteStep(before, access);
    if (isTurn) {
        const Participant* const current = m_ensemble.find(before.role);
        const bool canGoOn = current != nullptr && Ensemble::isEnabled(*current) && !current->sleeps();
        m_current = canGoOn ? before.role : "";
    }
    Objects unforeseen = m_witness.look();
    std::erase_if(unforeseen,
                  [&access](const std::string& object) { return access.writes.contains(object); });
    noteEarlyWord(before.family);
    return unforeseen.empty() ? ""
                              : which + "has changed " + inWords(unforeseen) + ", which was not foreseen";
}

/// Whoever has come to a call in which he would wait has looked at that for which he would.
void Scheduler::noteStep(const Participant& before, const Access& access) {
    m_history.add(before.role, before.place, access);
    for (const Participant* enabled : m_ensemble.enabled()) {
        m_history.begin(enabled->role, before.role);
    }
    Access touched = access;
    const Participant* const now = m_ensemble.find(before.role);
    if (now != nullptr && now->isBlocked) {
        touched.add(m_ensemble.accessOf(*now));
    }
    std::erase_if(m_sleepSet, [&](const auto& entry) { return !areIndependent(entry.second, touched); });
}

/// "-d" says that the daemon has started when its thread has been.
void Scheduler::noteEarlyWord(const std::string& family) {
    if (!m_ensemble.hasBeen(family + " responder") &&
        m_ensemble.output(family).find("has started") != std::string::npos) {
        m_witness.note("start told before the thread's");
    }
}

/// What has happened, and what the next choices are and cost.
std::uint64_t Scheduler::state() const {
    std::string text = m_current;
    for (const auto& [role, access] : m_sleepSet) {
        text += ", " + role;
    }
    return mixed(m_history.state(), numberOf(text));
}

} // namespace ZNORBSCHEDULES
