#pragma once

#include "foundation/streams/OutputStream.h"

#include <numeric>
#include <string>
#include <utility>
#include <vector>

namespace ZNORBTEST {

/// Keeps every write as a piece of its own, behind the stream's name, in a vector that outlives the stream.
class RecordingStream : public Common::OutputStream {
public:
    explicit RecordingStream(std::vector<std::string>& pieces, std::string name = "")
        : m_pieces(pieces), m_name(std::move(name)) {}

    void write(const char* data, const unsigned int& length) override {
        m_pieces.push_back(m_name + std::string(data, length));
    }

private:
    std::vector<std::string>& m_pieces;
    const std::string m_name;
};

/// All pieces in one text.
inline std::string joined(const std::vector<std::string>& pieces) {
    return std::accumulate(pieces.begin(), pieces.end(), std::string());
}

} // namespace ZNORBTEST
