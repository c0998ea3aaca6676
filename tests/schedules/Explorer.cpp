#include "tests/schedules/Explorer.h"

#include "tests/sandbox/ParallelSandboxes.h"
#include "tests/schedules/Life.h"

#include <algorithm>
#include <set>
#include <string>
#include <utility>

namespace ZNORBSCHEDULES {
namespace {

constexpr int attempts = 3;

/// A machine may come to a halt in one of them; what is wrong is so again.
std::string liveInSandbox(const Story& story, const Order& order, const KnownStates& known) {
    Course course;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        course = live(story, order, known);
        if (course.problem.empty()) {
            break;
        }
    }
    return record(course);
}

class Exploring {
public:
    Exploring(const Story& story, Bound bound)
        : m_bound(bound), m_orders(1 + (bound == Bound::OneTurn ? 1 : mostPreemptions)) {
        m_exploration.story = &story;
        m_orders[0].emplace_back();
    }

    Exploration run(std::size_t last) {
        for (unsigned level = 0; level < m_orders.size(); ++level) {
            while (!m_orders[level].empty() && (last == 0 || m_exploration.results.size() < last)) {
                goThrough(std::exchange(m_orders[level], {}), level);
            }
        }
        return std::move(m_exploration);
    }

private:
    void goThrough(const std::vector<Order>& orders, unsigned level) {
        const Story& story = *m_exploration.story;
        const std::vector<std::string> texts = ZNORBTEST::runInSandboxes(
            orders.size(), [&](std::size_t index) { return liveInSandbox(story, orders[index], m_known); });
        for (std::size_t index = 0; index < orders.size(); ++index) {
            const Result result = {orders[index], parseCourse(texts[index])};
            branchOff(result, level);
            m_exploration.cut += result.course.isCut ? 1 : 0;
            m_exploration.results.push_back(result);
        }
    }

    /// The orders that differ from this one from one of its steps on. When two do the same, it makes no
    /// difference who goes first.
    void branchOff(const Result& result, unsigned level) {
        const std::vector<Step>& steps = result.course.steps;
        bool isTwins = m_exploration.story->isSymmetric() && result.order.empty();
        for (std::size_t index = result.order.empty() ? 0 : result.order.back().step + 1;
             index < steps.size(); ++index) {
            const Step& step = steps[index];
            if (!m_known.insert(step.state).second) {
                return; // the rest has been gone through from there
            }
            for (const Choice& choice : step.alternatives) {
                if (!isTwins) {
                    const bool doesCount = choice.isPreemption || m_bound == Bound::OneTurn;
                    add(result.order, choice, level + (doesCount ? 1 : 0));
                }
            }
            isTwins = isTwins && step.alternatives.empty();
        }
    }

    void add(Order order, const Choice& choice, unsigned level) {
        if (level < m_orders.size()) {
            order.push_back(choice);
            m_orders[level].push_back(std::move(order));
        }
    }

    const Bound m_bound;
    Exploration m_exploration;
    std::vector<std::vector<Order>> m_orders; ///< to be gone through, by how much of the bound they use up
    KnownStates m_known;
};

} // namespace

Exploration explore(const Story& story, Bound bound, std::size_t last) {
    Exploring exploring(story, bound);
    return exploring.run(last);
}

Course goThrough(const Story& story, const Order& order) {
    return parseCourse(
        ZNORBTEST::runInSandboxes(1, [&](std::size_t) { return liveInSandbox(story, order, {}); }).front());
}

} // namespace ZNORBSCHEDULES
