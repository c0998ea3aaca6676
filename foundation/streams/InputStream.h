#pragma once

#include <string>

namespace Common {

/// A source from which characters, lines, or everything that remains can be read into a string. For one
/// thread at a time.
///
/// The only exception that leaves a stream is the one that InputStreamFromBuffer::getLine documents.
/// Nothing else is reported: callers ask `isOpen` before they read and `isEof` between reads. A read
/// that runs out of memory ends early, as if less had been there.
class InputStream {
public:
    /// One way of reading, chosen with `setReader` and used by `read`.
    using Reader = void (*)(InputStream&, std::string&);

    InputStream() = default;
    InputStream(const InputStream&) = delete;
    InputStream& operator=(const InputStream&) = delete;
    virtual ~InputStream();

    /// True when there is something to read from, be it at its end.
    [[nodiscard]] virtual bool isOpen() const = 0;

    /// True when a read is known to find nothing. A file only knows it once a read has met its end.
    virtual bool isEof() = 0;

    /// Sets `out` to the next character.
    virtual void getCharacter(std::string& out) = 0;

    /// Sets `out` to the next line without its end; at the end of the input leaves `out` as it is. What
    /// ends a line differs between the kinds of stream.
    virtual void getLine(std::string& out) = 0;

    /// Sets `out` to everything that remains; at the end of the input leaves `out` as it is.
    virtual void getAll(std::string& out) = 0;

    /// Makes `reader`, not null, the way in which `read` reads, in place of `readBuffer`. Returns the
    /// stream, so that calls chain.
    InputStream& setReader(Reader reader);

    /// Reads into `out` with the current reader. Returns the stream, so that calls chain.
    InputStream& read(std::string& out);

    /// The readers: one character, one line, everything that remains.
    static void readCharacter(InputStream& stream, std::string& out);
    static void readLine(InputStream& stream, std::string& out);
    static void readBuffer(InputStream& stream, std::string& out);

private:
    Reader m_reader = readBuffer;
};

} // namespace Common
