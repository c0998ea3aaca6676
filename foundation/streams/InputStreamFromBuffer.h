#pragma once

#include "foundation/streams/DataBuffer.h"
#include "foundation/streams/InputStream.h"

#include <string>

namespace Common {

/// Reads bytes from memory; what is read is gone from the buffer. Every read flushes the DataBuffer
/// first, so an object that is an OutputStreamToBuffer too reads what was written to it.
class InputStreamFromBuffer : public virtual DataBuffer, public virtual InputStream {
public:
    /// Starts with a copy of `data`. Throws std::bad_alloc when there is no memory for it.
    explicit InputStreamFromBuffer(const std::string& data);

    InputStreamFromBuffer(const InputStreamFromBuffer&) = delete;
    InputStreamFromBuffer& operator=(const InputStreamFromBuffer&) = delete;
    ~InputStreamFromBuffer() override;

    /// Always true.
    [[nodiscard]] bool isOpen() const override;

    /// True when no byte is left.
    bool isEof() override;

    /// Empties `out` when no byte is left.
    void getCharacter(std::string& out) override;

    /// A line ends at a line feed, which may be followed by a carriage return; a carriage return before
    /// it belongs to the line. Bytes without a line feed throw std::out_of_range, with `out` set to all
    /// of them and the buffer unchanged. Without memory for the line, nothing changes.
    void getLine(std::string& out) override;

    void getAll(std::string& out) override;
};

} // namespace Common
