#include "foundation/streams/OutputStreamToBuffer.h"

#include <algorithm>
#include <exception>
#include <new>

namespace Common {

namespace {

/// Copies out a range of bytes that arrives in consecutive pieces.
class RangeCopier {
public:
    RangeCopier(std::size_t offset, char* destination, std::size_t count)
        : m_skip(offset), m_destination(destination), m_wanted(count) {}

    void take(const char* piece, std::size_t length) {
        const std::size_t skipped = std::min(m_skip, length);
        const std::size_t taken = std::min(length - skipped, m_wanted - m_copied);
        m_skip -= skipped;
        std::copy_n(piece + skipped, taken, m_destination + m_copied);
        m_copied += taken;
    }

    [[nodiscard]] std::size_t copied() const { return m_copied; }

private:
    std::size_t m_skip;
    char* m_destination;
    std::size_t m_wanted;
    std::size_t m_copied = 0;
};

} // namespace

OutputStreamToBuffer::~OutputStreamToBuffer() {
    clear();
}

void OutputStreamToBuffer::write(const char* data, const unsigned int& length) {
    const std::uint32_t count = length;
    if (m_chunks.empty() || count >= chunkSize - m_fill) {
        fillChunks(data, count);
        return;
    }
    char* const target = m_chunks.last().bytes + m_fill;
    m_fill += count;
    std::copy_n(data, count, target);
}

void OutputStreamToBuffer::fillChunks(const char* data, std::uint32_t count) {
    if (m_chunks.empty() && !appendChunk()) {
        return;
    }
    for (std::uint32_t room = chunkSize - m_fill; count >= room; room = chunkSize) {
        char* const target = m_chunks.last().bytes + m_fill;
        // The next chunk comes first: a last chunk without room would never take another byte.
        if (!appendChunk()) {
            return;
        }
        std::copy_n(data, room, target);
        data += room;
        count -= room;
        m_fill = 0;
    }
    OutputStreamToBuffer::write(data, count);
}

void OutputStreamToBuffer::flush() {
    if (m_chunks.empty()) {
        return;
    }
    std::size_t pending = chunkBytes();
    try {
        m_bytes.reserve(m_bytes.size() + pending);
    } catch (const std::exception&) {
        return;
    }
    for (const Chunk& chunk : m_chunks) {
        const std::size_t count = std::min<std::size_t>(pending, chunkSize);
        m_bytes.append(chunk.bytes, count);
        pending -= count;
    }
    freeChunks();
}

const std::string& OutputStreamToBuffer::getString() {
    flush();
    return m_bytes;
}

const char* OutputStreamToBuffer::getData() {
    return getString().c_str();
}

std::size_t OutputStreamToBuffer::size() const {
    return m_bytes.size() + chunkBytes();
}

bool OutputStreamToBuffer::isEmpty() const {
    return size() == 0;
}

std::size_t OutputStreamToBuffer::copyOut(std::size_t offset, char* destination, std::size_t count) const {
    std::fill_n(destination, count, ' ');
    RangeCopier copier(offset, destination, count);
    copier.take(m_bytes.data(), m_bytes.size());
    std::size_t pending = chunkBytes();
    for (const Chunk& chunk : m_chunks) {
        const std::size_t held = std::min<std::size_t>(pending, chunkSize);
        copier.take(chunk.bytes, held);
        pending -= held;
    }
    return copier.copied();
}

void OutputStreamToBuffer::clear() {
    freeChunks();
    m_bytes.clear();
}

std::size_t OutputStreamToBuffer::chunkCount() const {
    return m_chunks.size();
}

bool OutputStreamToBuffer::appendChunk() {
    try {
        m_chunks.appendDefault(); // not initialised: every byte is written first
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void OutputStreamToBuffer::freeChunks() {
    while (!m_chunks.empty()) {
        m_chunks.removeLast();
    }
    m_fill = 0;
}

std::size_t OutputStreamToBuffer::chunkBytes() const {
    return m_chunks.empty() ? 0 : (chunkCount() - 1) * chunkSize + m_fill;
}

} // namespace Common
