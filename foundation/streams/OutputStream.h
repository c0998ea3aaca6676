#pragma once

namespace Common {

/// A sink that accepts runs of bytes: the one abstraction behind log streams, HTTP bodies and written
/// files. Owned through shared_ptr or by value; never copied.
///
/// No kind of stream reports a failure: bytes that it cannot take are dropped, no exception leaves
/// `write`, and the writer goes on. Streams hold no lock of their own; whoever shares one between
/// threads locks around it.
class OutputStream {
public:
    OutputStream() = default;
    OutputStream(const OutputStream&) = delete;
    OutputStream& operator=(const OutputStream&) = delete;
    virtual ~OutputStream();

    /// Takes `length` bytes from `data`. Kinds that print text instead (the console, the debug log)
    /// ignore the length and need a NUL at the end; writers that may meet any kind supply one.
    virtual void write(const char* data, const unsigned int& length) = 0;
};

} // namespace Common
