#pragma once

#include "tests/moments/Campaign.h"

namespace ZNORBMOMENTS {

/// What may come of a kind of moment, and why that is right.
struct ExpectedOutcome {
    const char* kind; ///< this and the next three as for fnmatch(FNM_EXTMATCH)
    const char* role;
    const char* call; ///< with its number among those of its kind on the thread: "unlink 2"
    const char* outcome;
    const char* name; ///< the outcome in short
    const char* reason;
};

/// Nullptr when it is in no row: a defect.
const ExpectedOutcome* findOutcome(const Result& result);

} // namespace ZNORBMOMENTS
