#pragma once

#include "foundation/streams/OutputStream.h"

#include <gtest/gtest.h>

#include <functional>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

namespace ZNORBTEST {

/// Notes every write, behind its own name, in a record that streams may share and that outlives them.
class RecordingStream : public Common::OutputStream {
public:
    explicit RecordingStream(std::vector<std::string>& writes, std::string name = "")
        : m_writes(writes), m_name(std::move(name)) {}

    void write(const char* data, const unsigned int& length) override {
        EXPECT_EQ(data[length], '\0') << "streams that print text need a terminated one";
        m_writes.push_back(m_name + std::string(data, length));
    }

private:
    std::vector<std::string>& m_writes;
    std::string m_name;
};

/// Does something of its own after each write, and when it is destroyed.
class ActingStream : public RecordingStream {
public:
    using Action = std::function<void(const std::string&)>;

    ActingStream(std::vector<std::string>& writes, Action onWrite, std::function<void()> onEnd = {})
        : RecordingStream(writes), m_onWrite(std::move(onWrite)), m_onEnd(std::move(onEnd)) {}

    ~ActingStream() override {
        if (m_onEnd) {
            m_onEnd();
        }
    }

    void write(const char* data, const unsigned int& length) override {
        RecordingStream::write(data, length);
        if (m_onWrite) {
            m_onWrite(std::string(data, length));
        }
    }

private:
    Action m_onWrite;
    std::function<void()> m_onEnd;
};

/// All pieces in one text.
inline std::string joined(const std::vector<std::string>& pieces) {
    return std::accumulate(pieces.begin(), pieces.end(), std::string());
}

} // namespace ZNORBTEST
