#include "foundation/streams/OutputStreamToBuffer.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

/// Collecting range(1) bytes in writes of range(0) bytes: the buffer stream, the standard library's means,
/// and copying into memory that is there already. "Whole" also asks for the result as one string.
///
/// The C library gives more than 128 KiB that become free back to the system, and who takes them anew pays
/// for the page faults, whatever he collects with. script/bench runs this with and without that.
///
/// How source and destination lie to each other makes up to a third of the copying. Each repetition therefore
/// has them somewhere else, the reference as well, and the median is one over places, too.
namespace {

std::size_t totalOf(const benchmark::State& state) {
    return static_cast<std::size_t>(state.range(1));
}

/// Touched memory at a place that nobody can foretell: on a multiple of 16, as allocated memory is.
class Somewhere {
public:
    explicit Somewhere(std::size_t size)
        : m_shift(16 * std::uniform_int_distribution<std::size_t>(0, 255)(s_random)),
          m_before(new char[1 + m_shift]),
          m_memory(new char[m_shift + size]()),
          m_data(m_memory.get() + m_shift) {}

    [[nodiscard]] char* data() const { return m_data; }

private:
    static std::minstd_rand s_random;

    std::size_t m_shift;
    std::unique_ptr<char[]> m_before; ///< shifts what is allocated afterwards
    std::unique_ptr<char[]> m_memory;
    char* m_data;
};

std::minstd_rand Somewhere::s_random; // NOLINT: places without a pattern are all that it has to give

/// What is written, again and again.
class Piece {
public:
    explicit Piece(const benchmark::State& state)
        : m_size(static_cast<std::size_t>(state.range(0))), m_memory(m_size) {
        std::memset(m_memory.data(), 'x', m_size);
    }

    [[nodiscard]] const char* data() const { return m_memory.data(); }
    [[nodiscard]] std::size_t size() const { return m_size; }

private:
    std::size_t m_size;
    Somewhere m_memory;
};

/// The reference.
void copyToReadyMemory(benchmark::State& state) {
    const Piece piece(state);
    const std::size_t total = totalOf(state);
    const Somewhere memory(total);
    char* const target = memory.data();
    const char* const source = piece.data();
    const std::size_t size = piece.size();
    for ([[maybe_unused]] const auto step : state) {
        for (std::size_t offset = 0; offset < total; offset += size) {
            std::memcpy(target + offset, source, size);
            benchmark::ClobberMemory();
        }
    }
}

/// The reference when each 8 KiB are allocated, and given back at the end.
void copyToNewChunks(benchmark::State& state) {
    constexpr std::size_t chunkSize = Common::OutputStreamToBuffer::chunkSize;
    const Piece piece(state);
    const std::size_t total = totalOf(state);
    std::vector<char*> chunks(total / chunkSize);
    for ([[maybe_unused]] const auto step : state) {
        for (char*& chunk : chunks) {
            chunk = static_cast<char*>(operator new(chunkSize));
            for (std::size_t offset = 0; offset < chunkSize; offset += piece.size()) {
                std::memcpy(chunk + offset, piece.data(), piece.size());
                benchmark::ClobberMemory();
            }
        }
        for (std::size_t index = chunks.size(); index > 0; --index) {
            operator delete(chunks[index - 1]);
        }
    }
}

void writeBuffer(benchmark::State& state, bool isWhole) {
    const Piece piece(state);
    const std::size_t total = totalOf(state);
    const auto length = static_cast<unsigned int>(piece.size());
    for ([[maybe_unused]] const auto step : state) {
        Common::OutputStreamToBuffer stream;
        for (std::size_t offset = 0; offset < total; offset += length) {
            stream.write(piece.data(), length);
        }
        benchmark::DoNotOptimize(isWhole ? stream.getString().size() : stream.size());
    }
}

void appendString(benchmark::State& state) {
    const Piece piece(state);
    const std::size_t total = totalOf(state);
    for ([[maybe_unused]] const auto step : state) {
        std::string text;
        for (std::size_t offset = 0; offset < total; offset += piece.size()) {
            text.append(piece.data(), piece.size());
        }
        benchmark::DoNotOptimize(text.data());
    }
}

void writeStringStream(benchmark::State& state) {
    const Piece piece(state);
    const std::size_t total = totalOf(state);
    for ([[maybe_unused]] const auto step : state) {
        std::ostringstream stream;
        for (std::size_t offset = 0; offset < total; offset += piece.size()) {
            stream.write(piece.data(), static_cast<std::streamsize>(piece.size()));
        }
        benchmark::DoNotOptimize(stream.str().size());
    }
}

void bufferStream(benchmark::State& state) {
    writeBuffer(state, false);
}

void bufferStreamWhole(benchmark::State& state) {
    writeBuffer(state, true);
}

// NOLINTNEXTLINE(cert-err58-cpp)
const std::vector<std::vector<std::int64_t>> sizes = {{16, 1024}, {8192, 65536, 1048576}};

BENCHMARK(copyToReadyMemory)->ArgsProduct(sizes);
BENCHMARK(copyToNewChunks)->ArgsProduct(sizes);
BENCHMARK(bufferStream)->ArgsProduct(sizes);
BENCHMARK(bufferStreamWhole)->ArgsProduct(sizes);
BENCHMARK(appendString)->ArgsProduct(sizes);
BENCHMARK(writeStringStream)->ArgsProduct(sizes);

} // namespace
