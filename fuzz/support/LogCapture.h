#pragma once

#include "foundation/streams/OutputStream.h"

#include <string>

namespace ZNORBFUZZ {

/// Collects what it is given.
class CapturingStream : public Common::OutputStream {
public:
    explicit CapturingStream(std::string& text) : m_text(text) {}

    void write(const char* data, const unsigned int& length) override { m_text.append(data, length); }

private:
    std::string& m_text; ///< not owned
};

/// What the Logger has written since the last call. The first call makes the Logger write at all.
std::string takeLog();

} // namespace ZNORBFUZZ
