#pragma once

namespace Common {

/// Name of the application for everything that is named after it and was given no other name.
inline constexpr const char* defaultApplicationName = "application.exe";

} // namespace Common
