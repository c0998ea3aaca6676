#pragma once

/// Skips the running test where the condition holds, for the reason that follows:
///
///     ZNORB_SKIP_IF(underSanitizer) << "a sanitizer ends such a process in its own way";
#define ZNORB_SKIP_IF(condition)                                                                             \
    GTEST_AMBIGUOUS_ELSE_BLOCKER_                                                                            \
    if (!(condition)) {                                                                                      \
    } else                                                                                                   \
        GTEST_SKIP()
