#pragma once

#include "tests/schedules/Explorer.h"

namespace ZNORBSCHEDULES {

/// What may come of a story, and why that is right.
struct ExpectedOutcome {
    const char* story;
    const char* seen; ///< as describe() has it, as for fnmatch(FNM_EXTMATCH)
    const char* name; ///< the outcome in short
    const char* reason;
};

/// Nullptr when it is in no row: a defect.
const ExpectedOutcome* findOutcome(const Story& story, const Course& course);

} // namespace ZNORBSCHEDULES
