#include "fuzz/support/Source.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace ZNORBFUZZ {

namespace {

ssize_t readCookie(void* cookie, char* buffer, std::size_t size) {
    return static_cast<Source*>(cookie)->read(buffer, size);
}

int seekCookie(void* cookie, off64_t* offset, int whence) {
    return static_cast<Source*>(cookie)->seek(*offset, whence) ? 0 : -1;
}

} // namespace

Source::Source(std::string script, std::string bytes, bool isSeekable)
    : m_script(std::move(script)), m_bytes(std::move(bytes)), m_isSeekable(isSeekable) {}

std::FILE* Source::open() {
    cookie_io_functions_t functions = {};
    functions.read = readCookie;
    functions.seek = m_isSeekable ? seekCookie : nullptr;
    return fopencookie(this, "rb", functions);
}

ssize_t Source::read(char* buffer, std::size_t size) {
    const char step = m_step < m_script.size() ? m_script[m_step] : 'A';
    ++m_step;
    if (step == 'E' && !m_isSeekable) {
        errno = EIO;
        return -1;
    }
    const std::size_t limit = step == 'A' ? size : std::max<std::size_t>(static_cast<unsigned char>(step), 1);
    const std::size_t count = std::min({limit, size, m_bytes.size() - m_position});
    std::copy_n(m_bytes.data() + m_position, count, buffer);
    m_position += count;
    return static_cast<ssize_t>(count);
}

bool Source::seek(off64_t& offset, int whence) {
    off64_t base = 0;
    if (whence == SEEK_CUR) {
        base = static_cast<off64_t>(m_position);
    } else if (whence == SEEK_END) {
        base = static_cast<off64_t>(m_bytes.size());
    }
    const off64_t target = base + offset;
    if (target < 0 || target > static_cast<off64_t>(m_bytes.size())) {
        errno = EINVAL;
        return false;
    }
    m_position = static_cast<std::size_t>(target);
    offset = target;
    return true;
}

} // namespace ZNORBFUZZ
