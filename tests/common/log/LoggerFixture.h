#pragma once

#include "common/log/Logger.h"
#include "foundation/containers/SharedPtr.h"
#include "foundation/streams/OutputStream.h"
#include "tests/support/RecordingStream.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <ctime>
#include <string>
#include <vector>

/// What the tests of the Logger have in common.
namespace ZNORBTEST {

using Writes = std::vector<std::string>;
using StreamPointer = Common::shared_ptr<Common::OutputStream>;

/// 2001-09-09 01:46:40 UTC, with a day of the month of one digit.
inline constexpr std::time_t billionthSecond = 1000000000;

/// Logger::vlog() with its arguments in a list.
__attribute__((format(printf, 2, 3))) void logList(int level, const char* format, ...);

/// The first two lines of every dump.
inline const std::string dumpHeader =
    "      00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 0123456789ABCDEF\n\r\n";
inline const std::string dumpRule =
    "      ----------------------------------------------------------------\n\r\n";

/// The row of a dump of `bytes` that begins at the offset, put together with the C library's own formatting.
std::string expectedRow(const std::string& bytes, std::size_t offset);

/// The Logger as a program finds it, before and after each test: no stream, no stamps, threshold 0, not
/// paused.
class LoggerTest : public testing::Test {
protected:
    void SetUp() override { reset(); }

    void TearDown() override { reset(); }

    static void reset();

    static void setZone(const char* zone);

    void addRecorder(const std::string& name = "") {
        ORBCOMMON::Logger::addOutputStream(StreamPointer(new RecordingStream(writes, name)));
    }

    Writes writes;
};

/// With one stream.
class RecordedLogger : public LoggerTest {
protected:
    void SetUp() override {
        LoggerTest::SetUp();
        addRecorder();
    }
};

} // namespace ZNORBTEST
