#include "foundation/streams/InputStreamFromBuffer.h"
#include "foundation/streams/OutputStreamToBuffer.h"
#include "fuzz/support/Fuzzer.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/Require.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

using namespace ZNORBFUZZ;

namespace {

constexpr std::size_t chunk = Common::OutputStreamToBuffer::chunkSize;
constexpr std::size_t mostHeld = 4 * chunk;
constexpr unsigned mostOperations = 32;

std::string patternOf(std::size_t length) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) {
        text += static_cast<char>(i * 31 % 251);
    }
    return text;
}

const std::string s_pattern = patternOf(2 * chunk + 1);

/// An object that is both, so that what it writes it can read, beside the plain string that it has to be.
class Buffer : public Common::InputStreamFromBuffer, public Common::OutputStreamToBuffer {
public:
    explicit Buffer(const std::string& start) : Common::InputStreamFromBuffer(start), m_model(start) {}

    void apply(char operation, Input& input) {
        switch (operation) {
        case 'w':
            writeText(std::string(input.take(input.byte())));
            break;
        case 'W':
            writeText(s_pattern.substr(0, input.word() % (2 * chunk + 2)));
            break;
        case 'c':
            checkCharacter();
            break;
        case 'l':
            checkLine();
            break;
        case 'a':
            checkAll();
            break;
        case 'f':
            flush();
            m_pending = noChunks;
            break;
        case 'o':
            checkCopyOut(input.word(), input.byte());
            break;
        case 'x':
            clear();
            m_model.clear();
            m_pending = noChunks;
            break;
        default:
            checkWhole();
        }
        checkSizes();
    }

    void checkWhole() {
        require(getString() == m_model, "the whole text");
        require(getData()[m_model.size()] == '\0', "the text's end");
        m_pending = noChunks;
    }

private:
    static constexpr std::size_t noChunks = static_cast<std::size_t>(-1);

    void writeText(const std::string& text) {
        if (m_model.size() + text.size() > mostHeld) {
            return;
        }
        // From memory of exactly its length.
        const std::vector<char> bytes(text.begin(), text.end());
        write(bytes.data(), static_cast<unsigned>(bytes.size()));
        m_model += text;
        m_pending = (m_pending == noChunks ? 0 : m_pending) + text.size();
    }

    void checkSizes() {
        requireEqual(size(), m_model.size(), "size");
        requireEqual(Common::OutputStreamToBuffer::isEmpty(), m_model.empty(), "whether it is empty");
        const std::size_t expected = m_pending == noChunks ? 0 : m_pending / chunk + 1;
        requireEqual(chunkCount(), expected, "chunks, the last of which has room");
    }

    void checkCharacter() {
        std::string out = "left behind";
        getCharacter(out);
        m_pending = noChunks;
        requireEqual(out, m_model.substr(0, 1), "character");
        m_model.erase(0, 1);
        requireEqual(isEof(), m_model.empty(), "whether the end is met");
    }

    void checkLine() {
        std::string expected = "left behind";
        std::string out = expected;
        const std::size_t end = m_model.find('\n');
        if (!m_model.empty()) {
            expected = m_model.substr(0, end);
        }
        bool isThrown = false;
        try {
            getLine(out);
        } catch (const std::out_of_range&) {
            isThrown = true;
        }
        m_pending = noChunks;
        requireEqual(isThrown, !m_model.empty() && end == std::string::npos, "the error of a last line");
        requireEqual(out, expected, "line");
        if (end != std::string::npos) {
            m_model.erase(0, end + 1);
            m_model.erase(0, !m_model.empty() && m_model.front() == '\r' ? 1 : 0);
        }
    }

    void checkAll() {
        std::string out = "left behind";
        const std::string expected = m_model.empty() ? out : m_model;
        getAll(out);
        m_pending = noChunks;
        require(out == expected, "everything that is left");
        m_model.clear();
    }

    void checkCopyOut(std::size_t offset, std::size_t count) {
        std::vector<char> destination(count, 'd');
        std::string expected = offset < m_model.size() ? m_model.substr(offset, count) : std::string();
        requireEqual(copyOut(offset, destination.data(), count), expected.size(), "bytes copied out");
        expected.resize(count, ' ');
        require(std::equal(destination.begin(), destination.end(), expected.begin(), expected.end()),
                "what was copied out");
    }

    std::string m_model;
    std::size_t m_pending = noChunks; ///< bytes in chunks; noChunks when there is not even an empty one
};

} // namespace

// The buffer that is written and read. The input: a line that it starts with, then operations, each with the
// bytes that it needs.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Buffer buffer(input.line());
    for (unsigned i = 0; i < mostOperations && !input.isEmpty(); ++i) {
        buffer.apply(static_cast<char>(input.byte()), input);
    }
    buffer.checkWhole();
    return 0;
}
