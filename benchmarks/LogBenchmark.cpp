#include "common/log/Logger.h"
#include "foundation/streams/OutputStreamToFile.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

/// What a record costs: without a stream, and with streams to files against writing the same bytes by hand.
namespace {

using ORBCOMMON::Logger;

constexpr const char* nowhere = "/dev/null";

void logRecord(int number) {
    Logger::log("Entry: %2d, Valid?: %s, ID: %s", number, "Y", "znorbclient-4711 en");
}

void recordWithoutStream(benchmark::State& state) {
    for ([[maybe_unused]] const auto step : state) {
        logRecord(7);
    }
}

void recordToFileStreams(benchmark::State& state) {
    for (int stream = 0; stream < state.range(0); ++stream) {
        Logger::addOutputStream(
            Common::shared_ptr<Common::OutputStream>(new Common::OutputStreamToFile(nowhere, true)));
    }
    for ([[maybe_unused]] const auto step : state) {
        logRecord(7);
    }
    Logger::removeAllOutputStreams();
}

/// The reference: the record's bytes, ready, in one write.
void oneFwriteAndFflush(benchmark::State& state) {
    const std::string record = "Entry:  7, Valid?: Y, ID: znorbclient-4711 en\r\n";
    std::FILE* const file = std::fopen(nowhere, "ab");
    for ([[maybe_unused]] const auto step : state) {
        (void)std::fwrite(record.data(), record.size(), 1, file);
        (void)std::fflush(file);
    }
    (void)std::fclose(file);
}

BENCHMARK(recordWithoutStream);
BENCHMARK(oneFwriteAndFflush);
BENCHMARK(recordToFileStreams)->Arg(1)->Arg(2)->Arg(4);

} // namespace
