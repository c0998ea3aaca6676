#pragma once

#include "foundation/streams/OutputStream.h"

namespace Common {

/// Writes into the debug log, one record of category 1 for each write. Has no state. Must not be a stream
/// of the debug log itself: that log's lock is not recursive.
class OutputStreamToLog : public OutputStream {
public:
    /// Prints `data`, NUL-terminated, as a FORMAT: a "%" in it is a conversion, so it must come from the
    /// program itself, never from outside. `length` is not used.
    void write(const char* data, const unsigned int& length) override;
};

} // namespace Common
