#include "tests/schedules/Access.h"

#include <algorithm>

namespace ZNORBSCHEDULES {
namespace {

bool doesChange(const Access& one, const Access& other) {
    return std::any_of(one.writes.begin(), one.writes.end(), [&other](const std::string& object) {
        return other.reads.count(object) != 0 || other.writes.count(object) != 0;
    });
}

} // namespace

bool areIndependent(const Access& one, const Access& other) {
    return !doesChange(one, other) && !doesChange(other, one);
}

} // namespace ZNORBSCHEDULES
