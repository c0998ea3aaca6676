#pragma once

#include "tests/support/ChildProcess.h"
#include "tests/support/Matchers.h"
#include "tests/support/ProcessEnd.h"

#include <ostream>
#include <string>

namespace ZNORBTEST {

/// How GoogleTest shows it.
inline void PrintTo(const ProgramResult& result, std::ostream* stream) {
    *stream << result.end << ", output \"" << result.output << "\", errors \"" << result.errors << '"';
}

/// Matches a program that ended like this and printed just that.
inline auto resultIs(const ProcessEnd& end, const std::string& output = "", const std::string& errors = "") {
    return AllOf(Field("end", &ProgramResult::end, end), Field("output", &ProgramResult::output, output),
                 Field("errors", &ProgramResult::errors, errors));
}

} // namespace ZNORBTEST
