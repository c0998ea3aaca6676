#include "foundation/streams/InputStreamFromFile.h"

#include <exception>

namespace Common {

namespace {

/// Asks how many bytes there are between the position of `file`, which it keeps, and its end: 0 when the
/// file was cut short behind us. False when the file has no such length.
bool countRemaining(std::FILE* file, std::size_t& count) {
    std::fpos_t position;
    if (std::fgetpos(file, &position) != 0) {
        return false;
    }
    const long current = std::ftell(file); // there is one: the position was had
    if (std::fseek(file, 0, SEEK_END) != 0) {
        return false;
    }
    const long end = std::ftell(file);
    (void)std::fsetpos(file, &position); // cannot fail after the seek; if it did, nothing would remain
    count = end > current ? static_cast<std::size_t>(end - current) : 0;
    return true;
}

void readCounted(std::FILE* file, std::size_t count, std::string& out) {
    out.resize(count);
    out.resize(std::fread(out.data(), 1, count, file));
}

void readUntilEnd(std::FILE* file, std::string& out) {
    constexpr std::size_t step = 65536;
    std::size_t held = 0;
    std::size_t taken = step;
    while (taken == step && held < InputStreamFromFile::unseekableLimit) {
        out.resize(held + step);
        taken = std::fread(out.data() + held, 1, step, file);
        held += taken;
        out.resize(held);
    }
}

} // namespace

InputStreamFromFile::InputStreamFromFile(const char* path) : m_file(std::fopen(path, "rb")) {}

InputStreamFromFile::~InputStreamFromFile() {
    if (m_file != nullptr) {
        (void)std::fclose(m_file); // nothing was written, so nothing can be lost
    }
}

bool InputStreamFromFile::isOpen() const {
    return m_file != nullptr;
}

bool InputStreamFromFile::isEof() {
    return !isOpen() || std::feof(m_file) > 0;
}

void InputStreamFromFile::getCharacter(std::string& out) {
    out.clear();
    if (isEof()) {
        return;
    }
    const int character = std::fgetc(m_file);
    if (character != EOF) {
        out.assign(1, static_cast<char>(character));
    }
}

void InputStreamFromFile::getLine(std::string& out) {
    if (isEof()) {
        return;
    }
    out.clear();
    try {
        std::string character;
        getCharacter(character);
        // No character: the end of the file, or a read error, which must not be tried for ever.
        while (!character.empty() && character != "\n") {
            if (character != "\r") {
                out += character;
            }
            getCharacter(character);
        }
    } catch (const std::exception&) {
        return; // no memory for a longer line
    }
}

void InputStreamFromFile::getAll(std::string& out) {
    if (!isEof()) {
        readRemaining(m_file, out);
    }
}

void InputStreamFromFile::readRemaining(std::FILE* file, std::string& out) {
    out.clear();
    try {
        std::size_t count = 0;
        if (countRemaining(file, count)) {
            readCounted(file, count, out);
        } else {
            readUntilEnd(file, out);
        }
    } catch (const std::exception&) {
        return; // no memory: what was read so far stays
    }
}

} // namespace Common
