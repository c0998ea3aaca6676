#include "foundation/OutputStreamToBuffer.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <sstream>
#include <string>

/// Collecting 64 KiB in writes of range(0) bytes: the buffer stream, the standard library's means, and
/// copying into memory that is there already. "Whole" also asks for the result as one string.
namespace {

constexpr std::size_t total = std::size_t{64} << 10U;

std::string pieceOf(const benchmark::State& state) {
    std::string piece(static_cast<std::size_t>(state.range(0)), 'x');
    return piece;
}

/// The reference.
void copyToReadyMemory(benchmark::State& state) {
    const std::string piece = pieceOf(state);
    const std::unique_ptr<char[]> memory(new char[total]());
    for ([[maybe_unused]] const auto step : state) {
        for (std::size_t offset = 0; offset < total; offset += piece.size()) {
            std::memcpy(memory.get() + offset, piece.data(), piece.size());
            benchmark::ClobberMemory();
        }
    }
}

void writeBuffer(benchmark::State& state, bool isWhole) {
    const std::string piece = pieceOf(state);
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
    const std::string piece = pieceOf(state);
    for ([[maybe_unused]] const auto step : state) {
        std::string text;
        for (std::size_t offset = 0; offset < total; offset += piece.size()) {
            text.append(piece);
        }
        benchmark::DoNotOptimize(text.data());
    }
}

void writeStringStream(benchmark::State& state) {
    const std::string piece = pieceOf(state);
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

BENCHMARK(copyToReadyMemory)->Arg(16)->Arg(1024);
BENCHMARK(bufferStream)->Arg(16)->Arg(1024);
BENCHMARK(bufferStreamWhole)->Arg(16)->Arg(1024);
BENCHMARK(appendString)->Arg(16)->Arg(1024);
BENCHMARK(writeStringStream)->Arg(16)->Arg(1024);

} // namespace
