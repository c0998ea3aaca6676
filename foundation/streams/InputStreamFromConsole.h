#pragma once

#include "foundation/streams/InputStream.h"

#include <string>

namespace Common {

/// Reads standard input, which belongs to the process: the object has no state of its own. Reads wait
/// for input like every read of standard input.
class InputStreamFromConsole : public InputStream {
public:
    /// Always true.
    [[nodiscard]] bool isOpen() const override;
    bool isEof() override;

    /// Takes one character without a test for the end: there, `out` becomes the byte 0xFF.
    void getCharacter(std::string& out) override;

    /// A line ends at a line feed or at the end of the input, and every carriage return is dropped. A
    /// line that the end of the input cuts short has the byte 0xFF of the failed read at its end.
    void getLine(std::string& out) override;

    /// As InputStreamFromFile::readRemaining of standard input, unless it is known to be at its end.
    void getAll(std::string& out) override;
};

} // namespace Common
