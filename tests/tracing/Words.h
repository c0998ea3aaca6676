#pragma once

#include <string>
#include <vector>

namespace ZNORBTRACING {

/// The parts between the separators, empty ones included; at least one.
std::vector<std::string> splitAt(char separator, const std::string& text);

/// The parts with the separator between them.
std::string joined(const std::vector<std::string>& parts, const std::string& separator);

} // namespace ZNORBTRACING
