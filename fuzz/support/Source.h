#pragma once

#include <cstdio>
#include <string>

namespace ZNORBFUZZ {

/// Something that the C library reads as a file: bytes, and a script of how they come. A character of the
/// script is one read: E fails (EIO), A gives all that is asked for, any other character at most as many
/// bytes as its code says, and at least 1. Behind the script it is A for ever; behind the bytes is the end.
///
/// A seekable source ignores the script's failures: what is behind them would be another file each time.
class Source {
public:
    Source(std::string script, std::string bytes, bool isSeekable);

    /// A stream that reads it from its start; the caller closes it, before the source goes.
    std::FILE* open();

    /// One call of the C library's for its buffer; as `read`.
    ssize_t read(char* buffer, std::size_t size);
    bool seek(off64_t& offset, int whence);

    [[nodiscard]] const std::string& bytes() const { return m_bytes; }
    [[nodiscard]] bool isSeekable() const { return m_isSeekable; }

private:
    std::string m_script;
    std::string m_bytes;
    bool m_isSeekable;
    std::size_t m_step = 0;
    std::size_t m_position = 0;
};

} // namespace ZNORBFUZZ
