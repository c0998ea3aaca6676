#pragma once

#include "foundation/streams/OutputStream.h"

namespace Common {

/// Writes text to standard output. Has no state: any number of objects may exist, and standard output
/// belongs to the process.
class OutputStreamToConsole : public OutputStream {
public:
    /// Prints `data` up to its NUL and flushes standard output. `length` is not used, so the text must
    /// be NUL-terminated. Failures of the terminal are ignored.
    void write(const char* data, const unsigned int& length) override;
};

} // namespace Common
