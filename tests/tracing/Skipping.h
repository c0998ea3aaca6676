#pragma once

#include <optional>
#include <string>

namespace ZNORBTRACING {

/// Why no life can be led from call to call here; nullopt when it can.
std::optional<std::string> reasonToSkip();

} // namespace ZNORBTRACING
