#pragma once

namespace ZNORBTEST {

/// Set in the environment of copies of this program (FailingStart.h) in which the Logger's static
/// initialisation finds no memory for its mutex. Not under a sanitizer, which has an operator new of its own.
inline constexpr const char* withoutLoggerMutex = "ZNORB_TEST_WITHOUT_LOGGER_MUTEX";

} // namespace ZNORBTEST
