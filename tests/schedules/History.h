#pragma once

#include "tests/schedules/Access.h"

#include <cstdint>
#include <map>
#include <string>

namespace ZNORBSCHEDULES {

/// What has happened before what. Two orders that differ only in adjacent steps which are independent have
/// led to the same state, and have the same number here.
class History {
public:
    /// Its first step comes behind the last one of the `parent`'s. One that is known already stays as it is.
    void begin(const std::string& thread, const std::string& parent);

    /// `place`: all that tells the step from others that the thread may take.
    void add(const std::string& thread, const std::string& place, const Access& access);

    std::uint64_t state() const;

private:
    struct Past {
        std::uint64_t written = 0; ///< by the last step that changed it
        std::uint64_t readers = 0; ///< since then, in whatever order
    };

    std::map<std::string, std::uint64_t> m_threads; ///< each one's past as it can know it
    std::map<std::string, Past> m_objects;
};

/// One number of both, in this order.
std::uint64_t mixed(std::uint64_t one, std::uint64_t other);
/// The same in every run, unlike std::hash perhaps.
std::uint64_t numberOf(const std::string& text);

} // namespace ZNORBSCHEDULES
