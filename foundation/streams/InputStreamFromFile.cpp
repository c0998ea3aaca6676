#include "foundation/streams/InputStreamFromFile.h"

#include <cstddef>
#include <exception>

namespace Common {

namespace {

/// The number of bytes between the position of `file`, which it keeps, and its end: 0 when it was cut short
/// behind us, and when it cannot be sought, where the position and the end are both -1.
std::size_t countRemaining(std::FILE* file) {
    std::fpos_t position;
    if (std::fgetpos(file, &position) != 0) {
        return 0;
    }
    const long current = std::ftell(file);
    (void)std::fseek(file, 0, SEEK_END);
    const long end = std::ftell(file);
    (void)std::fsetpos(file, &position); // cannot fail after the seek; if it did, nothing would remain
    return end > current ? static_cast<std::size_t>(end - current) : 0;
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
        out.resize(countRemaining(file));
        out.resize(std::fread(out.data(), 1, out.size(), file));
    } catch (const std::exception&) {
        return; // no memory for them
    }
}

} // namespace Common
