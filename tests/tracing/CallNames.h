#pragma once

#include <string>

namespace ZNORBTRACING {

/// "futex" and the like, of every call that the daemon's programs make.
std::string callName(long number);

} // namespace ZNORBTRACING
