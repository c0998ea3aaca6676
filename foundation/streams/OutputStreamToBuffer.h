#pragma once

#include "foundation/containers/List.h"
#include "foundation/streams/DataBuffer.h"
#include "foundation/streams/OutputStream.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace Common {

/// Collects bytes in memory, in chunks of 8192 bytes, so that a long body grows without copying what is
/// already held; `flush` joins the chunks behind the bytes of the DataBuffer.
///
/// Held are, in order: the DataBuffer's string, every full chunk, and the first `m_fill` bytes of the last
/// chunk. Once anything has been written there is always a last chunk with room in it (`m_fill` is less
/// than `chunkSize`): the next chunk exists before the last one is filled.
///
/// When memory runs out, nothing throws and nothing is reported: like a full disk, `write` keeps the front
/// of its run, as far as there is memory for it, and drops the rest, and `flush` leaves the chunks for a
/// later attempt. A caller that must know compares `size` before and after.
class OutputStreamToBuffer : public virtual DataBuffer, public virtual OutputStream {
public:
    static constexpr std::uint32_t chunkSize = 8192;

    OutputStreamToBuffer() = default;
    OutputStreamToBuffer(const OutputStreamToBuffer&) = delete;
    OutputStreamToBuffer& operator=(const OutputStreamToBuffer&) = delete;
    ~OutputStreamToBuffer() override;

    /// Appends `length` bytes of `data`. A length of 0 holds nothing, whatever `data` is, but still allocates
    /// the first chunk.
    void write(const char* data, const unsigned int& length) override;

    /// Moves the bytes of all chunks to the end of the DataBuffer's string and frees the chunks. Without
    /// memory for the longer string, nothing moves.
    void flush() override;

    /// All held bytes, flushed. The reference stays good for the life of the stream, its content until
    /// the next operation.
    const std::string& getString();

    /// As getString, as a NUL-terminated pointer to the first byte.
    const char* getData();

    /// The number of bytes held.
    [[nodiscard]] std::size_t size() const;

    /// True when no byte is held.
    [[nodiscard]] bool isEmpty() const;

    /// Fills `count` bytes of `destination` with spaces, then copies held bytes from `offset` on over
    /// them, at most `count`, and keeps them held. Returns the number copied: 0 for an offset at or
    /// beyond `size`.
    std::size_t copyOut(std::size_t offset, char* destination, std::size_t count) const;

    /// Drops all held bytes and frees every chunk.
    void clear();

protected:
    /// The number of chunks, the last one included.
    [[nodiscard]] std::size_t chunkCount() const;

private:
    struct Chunk {
        char bytes[chunkSize];
    };

    /// Writes what needs another chunk: fills chunks as long as there is enough, then writes the rest. Never
    /// inlined, as that would double the time of the usual write.
    [[gnu::noinline]] void fillChunks(const char* data, std::uint32_t count);

    /// Gives the list one more last chunk, not initialised; false, and no change, without memory for it.
    bool appendChunk();

    /// Frees the chunks; their bytes are gone. The last one first, which the allocator has least work with.
    void freeChunks();

    /// The number of bytes in the chunks.
    [[nodiscard]] std::size_t chunkBytes() const;

    list<Chunk> m_chunks; // oldest first
    std::uint32_t m_fill = 0;
};

} // namespace Common
