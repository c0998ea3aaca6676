#include "foundation/streams/InputStreamFromConsole.h"
#include "foundation/streams/InputStreamFromFile.h"
#include "fuzz/support/Files.h"
#include "fuzz/support/Fuzzer.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/Require.h"
#include "fuzz/support/Source.h"

#include <cstdio>
#include <string>

using namespace ZNORBFUZZ;

namespace {

constexpr const char* path = "/fuzzed/file";

/// What a stream makes of a source, read byte by byte: the C library's end-of-file indicator and its buffer
/// are modelled, its code and the stream's are not used.
class Model {
public:
    Model(const Source& source, bool isConsole) : m_source(source), m_isConsole(isConsole) {}

    [[nodiscard]] bool isEof() const { return m_isEof; }

    void getCharacter(std::string& out) {
        if (m_isConsole) {
            out = std::string(1, static_cast<char>(next()));
            return;
        }
        out.clear();
        const int character = m_isEof ? EOF : next();
        if (character != EOF) {
            out += static_cast<char>(character);
        }
    }

    void getLine(std::string& out) {
        if (m_isEof) {
            return;
        }
        out.clear();
        for (bool isFirst = true;; isFirst = false) {
            const int character = next();
            if (character == EOF && m_isConsole && !isFirst) {
                out += '\xFF';
            }
            if (character == EOF || character == '\n') {
                return;
            }
            if (character != '\r') {
                out += static_cast<char>(character);
            }
        }
    }

    void getAll(std::string& out) {
        if (m_isEof) {
            return;
        }
        out.clear();
        if (m_source.isSeekable()) {
            out = m_source.bytes().substr(m_position);
            m_position = m_source.bytes().size();
        }
    }

private:
    int next() {
        if (m_isEof) {
            return EOF;
        }
        if (m_source.isSeekable()) { // its reads never fail, whatever their sizes
            m_isEof = m_position == m_source.bytes().size();
            return m_isEof ? EOF : static_cast<unsigned char>(m_source.bytes()[m_position++]);
        }
        if (m_used == m_buffer.size()) {
            char bytes[BUFSIZ];
            const ssize_t count = m_source.read(bytes, sizeof bytes);
            if (count <= 0) {
                m_isEof = count == 0;
                return EOF;
            }
            m_buffer.assign(bytes, static_cast<std::size_t>(count));
            m_used = 0;
        }
        return static_cast<unsigned char>(m_buffer[m_used++]);
    }

    Source m_source; ///< its own copy
    bool m_isConsole;
    std::size_t m_position = 0;
    std::string m_buffer;
    std::size_t m_used = 0;
    bool m_isEof = false;
};

/// One operation, chosen by its character: the stream's own, or one by way of its reader.
void apply(char operation, Common::InputStream& stream, Model& model) {
    std::string out = "left behind";
    std::string expected = out;
    switch (operation) {
    case 'c':
        stream.getCharacter(out);
        model.getCharacter(expected);
        break;
    case 'C':
        (void)stream.setReader(Common::InputStream::readCharacter).read(out);
        model.getCharacter(expected);
        break;
    case 'l':
        stream.getLine(out);
        model.getLine(expected);
        break;
    case 'L':
        (void)stream.setReader(Common::InputStream::readLine).read(out);
        model.getLine(expected);
        break;
    case 'a':
        stream.getAll(out);
        model.getAll(expected);
        break;
    default:
        (void)stream.setReader(Common::InputStream::readBuffer).read(out);
        model.getAll(expected);
    }
    requireEqual(out, expected, "what was read");
    requireEqual(stream.isEof(), model.isEof(), "whether the end was met");
    require(stream.isOpen(), "the stream stays open");
}

void checkFile(const std::string& operations, Source source) {
    Files files;
    files.add(path, &source);
    Model model(source, false);
    Common::InputStreamFromFile stream(path);
    for (const char operation : operations) {
        apply(operation, stream, model);
    }
}

void checkConsole(const std::string& operations, Source source) {
    Model model(source, true);
    std::FILE* const standardInput = stdin;
    stdin = source.open();
    {
        Common::InputStreamFromConsole stream;
        for (const char operation : operations) {
            apply(operation, stream, model);
        }
    }
    (void)std::fclose(stdin);
    stdin = standardInput;
}

} // namespace

// The streams of files and of the console, on the same bytes. The input: a line of operations; a line with
// "s" when the source can be searched, and its script (Source.h); then the bytes.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::string operations = input.line().substr(0, 64);
    const std::string script = input.line();
    const bool isSeekable = !script.empty() && script.front() == 's';
    const Source source(isSeekable ? script.substr(1) : script, input.rest(), isSeekable);
    checkFile(operations, source);
    checkConsole(operations, source);
    return 0;
}
