#pragma once

#include "tests/support/ChildProcess.h"
#include "tests/support/Matchers.h"
#include "tests/support/ProcessEnd.h"

#include <ostream>

namespace ZNORBTEST {

/// How GoogleTest shows it.
inline void PrintTo(const ProgramResult& result, std::ostream* stream) {
    *stream << result.end << ", output \"" << result.output << "\", errors \"" << result.errors << '"';
}

/// Matches a program that ended like this and printed just that; each may be a matcher, `_` for any text.
template <typename Output = const char*, typename Errors = const char*>
auto resultIs(const ProcessEnd& end, const Output& output = "", const Errors& errors = "") {
    return AllOf(Field("end", &ProgramResult::end, end), Field("output", &ProgramResult::output, output),
                 Field("errors", &ProgramResult::errors, errors));
}

} // namespace ZNORBTEST
