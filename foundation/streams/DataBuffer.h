#pragma once

#include <string>

namespace Common {

/// The bytes behind the memory streams. OutputStreamToBuffer and InputStreamFromBuffer both derive from
/// it virtually, so an object that is both holds one DataBuffer, and what it writes it can read.
class DataBuffer {
public:
    DataBuffer() = default;
    DataBuffer(const DataBuffer&) = delete;
    DataBuffer& operator=(const DataBuffer&) = delete;
    virtual ~DataBuffer();

    /// Brings bytes that a writing side still holds elsewhere into `m_bytes`. The reading side calls it
    /// before every read. There is nothing to bring here.
    virtual void flush();

protected:
    /// The bytes, oldest first; the reading side takes them from the front.
    std::string m_bytes;
};

} // namespace Common
