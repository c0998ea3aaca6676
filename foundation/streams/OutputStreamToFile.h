#pragma once

#include "foundation/streams/OutputStream.h"

#include <cstdio>
#include <string>

namespace Common {

/// Writes bytes to a file and owns the open file: it is closed by `close` or by the destructor.
///
/// A file that could not be opened swallows every write; callers that care ask `isOpen`. Every write is
/// flushed to the file at once, so records reach it in order even if the process dies.
class OutputStreamToFile : public OutputStream {
public:
    /// Opens `path` as `open` does.
    OutputStreamToFile(const std::string& path, const bool& append);

    /// Opens the application's own log, the default application name followed by ".log", in the working
    /// directory.
    explicit OutputStreamToFile(const bool& append);

    /// A lone path is a mistake: it would silently convert to `append`.
    explicit OutputStreamToFile(const char* path) = delete;

    OutputStreamToFile(const OutputStreamToFile&) = delete;
    OutputStreamToFile& operator=(const OutputStreamToFile&) = delete;
    ~OutputStreamToFile() override;

    /// Opens `path` in binary mode: at its end when `append`, else emptied. On failure the stream is left
    /// without a file. A file that is already open is not closed first: callers `close` it themselves.
    void open(const std::string& path, const bool& append);

    /// True while a file is open.
    [[nodiscard]] bool isOpen() const;

    /// Writes `length` bytes and flushes; the results are ignored. Without a file, does nothing.
    void write(const char* data, const unsigned int& length) override;

    /// Closes the file, if one is open; later writes do nothing.
    void close();

private:
    std::FILE* m_file = nullptr;
};

} // namespace Common
