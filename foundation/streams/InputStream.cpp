#include "foundation/streams/InputStream.h"

namespace Common {

InputStream::~InputStream() = default;

InputStream& InputStream::setReader(Reader reader) {
    m_reader = reader;
    return *this;
}

InputStream& InputStream::read(std::string& out) {
    m_reader(*this, out);
    return *this;
}

void InputStream::readCharacter(InputStream& stream, std::string& out) {
    stream.getCharacter(out);
}

void InputStream::readLine(InputStream& stream, std::string& out) {
    stream.getLine(out);
}

void InputStream::readBuffer(InputStream& stream, std::string& out) {
    stream.getAll(out);
}

} // namespace Common
