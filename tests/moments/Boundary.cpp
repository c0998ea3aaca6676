#include "tests/moments/Boundary.h"

#include "tests/tracing/CallNames.h"

namespace ZNORBMOMENTS {

std::string describe(const Boundary& boundary) {
    return boundary.role + (boundary.isBefore ? ", before " : ", behind ") +
           ZNORBTRACING::callName(boundary.call) + " " + std::to_string(boundary.occurrence);
}

} // namespace ZNORBMOMENTS
