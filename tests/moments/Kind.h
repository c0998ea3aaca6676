#pragma once

#include "tests/moments/Life.h"

#include <string>

namespace ZNORBMOMENTS {

/// Something that happens at a moment. Whoever adds one: a row of `kinds` in Kind.cpp, and what may come of
/// it in Outcomes.cpp.
struct Kind {
    const char* name;
    const char* description;
    bool isInShortForm;
    unsigned variants;  ///< how many times it is tried at each moment, each with another number
    Surroundings needs; ///< what must be there
    bool (*fits)(Story, const Boundary&);
    void (*act)(Life&, const Boundary&, ZNORBTEST::TracedStop&);
};

constexpr unsigned kindCount = 12;
extern const Kind kinds[kindCount];

/// A kind, and where it happens.
struct Moment {
    const Kind* kind;
    unsigned number; ///< among those of the kind, from 1
    Story story;
    Boundary boundary;
    unsigned variant;
};

std::string describe(const Moment& moment);

/// Lets it happen in one life.
class Event {
public:
    explicit Event(const Moment& moment) : m_moment(moment) {}

    void atBoundary(Life& life, const Boundary& boundary, ZNORBTEST::TracedStop& stop);
    void atSignal(Life& life, const std::string& role, ZNORBTEST::TracedStop& stop);

    /// Whether the life came to the moment, with all that it takes.
    bool hasHappened() const { return m_hasHappened; }

private:
    void repeatTermination(Life& life, const std::string& role);

    const Moment m_moment;
    bool m_hasHappened = false;
    bool m_isStopped = false;
    std::string m_handler;     ///< the role whose thread takes the first SIGTERM
    unsigned m_boundaries = 0; ///< of that one since then
};

} // namespace ZNORBMOMENTS
