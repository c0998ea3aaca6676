#pragma once

#include <string>
#include <vector>

namespace ZNORBFAULTS {

/// The parts between the separators, empty ones included; at least one.
std::vector<std::string> splitAt(char separator, const std::string& text);

} // namespace ZNORBFAULTS
