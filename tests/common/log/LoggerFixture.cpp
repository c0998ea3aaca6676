#include "tests/common/log/LoggerFixture.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace ZNORBTEST {

void logList(int level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    ORBCOMMON::Logger::vlog(level, format, arguments);
    va_end(arguments);
}

std::string expectedRow(const std::string& bytes, std::size_t offset) {
    char field[32];
    (void)std::snprintf(field, sizeof(field), " %03zX  ", offset);
    std::string digits = field;
    std::string characters;
    for (std::size_t i = offset; i < offset + 16 && i < bytes.size(); ++i) {
        const unsigned int byte = static_cast<unsigned char>(bytes[i]);
        (void)std::snprintf(field, sizeof(field), "%02X ", byte);
        digits += field;
        characters += byte >= 0x20 && byte <= 0x7e ? bytes[i] : '.';
    }
    digits.resize(54, ' ');
    return digits + characters;
}

void LoggerTest::reset() {
    ORBCOMMON::Logger::removeAllOutputStreams();
    ORBCOMMON::Logger::resume();
    ORBCOMMON::Logger::setShowTimestamp(false);
    ORBCOMMON::Logger::setLogLevel(0);
}

void LoggerTest::setZone(const char* zone) {
    ASSERT_EQ(setenv("TZ", zone, 1), 0);
    tzset();
}

} // namespace ZNORBTEST
