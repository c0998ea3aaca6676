#pragma once

#include "foundation/streams/InputStream.h"

#include <cstdio>
#include <string>

namespace Common {

/// Reads a file and owns it: the file is closed by the destructor.
///
/// A file that could not be opened is at its end for every read. A read error (a directory opens, but
/// cannot be read) ends the read like the end of the file does, but `isEof` stays false then.
class InputStreamFromFile : public InputStream {
public:
    /// Opens the file `path`, NUL-terminated, in binary mode; `isOpen` tells whether that worked.
    explicit InputStreamFromFile(const char* path);

    InputStreamFromFile(const InputStreamFromFile&) = delete;
    InputStreamFromFile& operator=(const InputStreamFromFile&) = delete;
    ~InputStreamFromFile() override;

    [[nodiscard]] bool isOpen() const override;
    bool isEof() override;

    /// Empties `out` when there is no further character.
    void getCharacter(std::string& out) override;

    /// A line ends at a line feed or at the end of the file. Every carriage return is dropped, wherever
    /// it stands.
    void getLine(std::string& out) override;

    /// As `readRemaining` of the file, unless it is known to be at its end.
    void getAll(std::string& out) override;

    /// Sets `out` to the bytes from the position of `file` to its end, NUL bytes included, or to what
    /// could be read of them; to nothing when there is no memory for them.
    ///
    /// The file is not read past its length, so its end-of-file indicator stays clear. What cannot be sought
    /// (a pipe, a terminal) has no length: nothing is read from it, at once.
    static void readRemaining(std::FILE* file, std::string& out);

private:
    std::FILE* m_file; // null: could not be opened
};

} // namespace Common
