#pragma once

#include "tests/schedules/Access.h"

#include <array>
#include <cstdint>
#include <map>
#include <string>

namespace ZNORBSCHEDULES {

/// What has happened before what. Two orders that differ only in steps which have nothing to do with each
/// other have led to the same state, and have the same number here.
class History {
public:
    /// A step of one of the family's threads, with all that tells it from others that it may take.
    void add(const std::string& family, const std::string& step, const Access& access);

    /// With the one who took the last step.
    std::uint64_t state(const std::string& current) const;

private:
    struct Past {
        std::uint64_t written = 0; ///< by the last step that changed it
        std::uint64_t readers = 0; ///< since then, in whatever order
    };

    std::map<std::string, std::uint64_t> m_families; ///< each one's past as it can know it
    std::array<Past, objectCount> m_objects;
};

} // namespace ZNORBSCHEDULES
