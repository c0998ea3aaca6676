#pragma once

#include "foundation/streams/OutputStream.h"

#include <string>
#include <vector>

namespace ZNORBTEST {

/// Keeps every write as a piece of its own, in a vector that outlives the stream.
class RecordingStream : public Common::OutputStream {
public:
    explicit RecordingStream(std::vector<std::string>& pieces) : m_pieces(pieces) {}

    void write(const char* data, const unsigned int& length) override { m_pieces.emplace_back(data, length); }

private:
    std::vector<std::string>& m_pieces;
};

} // namespace ZNORBTEST
