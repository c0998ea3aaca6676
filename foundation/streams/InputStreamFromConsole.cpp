#include "foundation/streams/InputStreamFromConsole.h"

#include "foundation/streams/InputStreamFromFile.h"

#include <cstdio>
#include <exception>

namespace Common {

bool InputStreamFromConsole::isOpen() const {
    return true;
}

bool InputStreamFromConsole::isEof() {
    return std::feof(stdin) > 0;
}

void InputStreamFromConsole::getCharacter(std::string& out) {
    out.assign(1, static_cast<char>(std::fgetc(stdin)));
}

void InputStreamFromConsole::getLine(std::string& out) {
    if (isEof()) {
        return;
    }
    out.clear();
    // A read error counts as the end of the input, so that it is not tried for ever.
    int character = std::fgetc(stdin);
    if (character == EOF) {
        return;
    }
    try {
        while (character != '\n') {
            // No end test between the read and this, unlike the file stream, on purpose: a line cut short
            // keeps the 0xFF of the failed read.
            if (character != '\r') {
                out += static_cast<char>(character);
            }
            if (character == EOF) {
                return;
            }
            character = std::fgetc(stdin);
        }
    } catch (const std::exception&) {
        return; // no memory for a longer line
    }
}

void InputStreamFromConsole::getAll(std::string& out) {
    if (!isEof()) {
        InputStreamFromFile::readRemaining(stdin, out);
    }
}

} // namespace Common
