#include "common/log/Logger.h"
#include "foundation/debuglog/DebugLog.h"
#include "foundation/debuglog/HexDump.h"
#include "fuzz/support/Fuzzer.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/LogCapture.h"
#include "fuzz/support/Require.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

using namespace ZNORBFUZZ;

namespace {

constexpr const char* header = "      00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 0123456789ABCDEF";
constexpr std::size_t digitsWidth = 54;
constexpr std::size_t stampLength = sizeof "[2026-11-15 11:35:15] " - 1;

std::string rule() {
    return std::string(6, ' ') + std::string(64, '-');
}

std::string hexadecimal(std::uint32_t value, std::size_t leastDigits) {
    std::string digits;
    while (value != 0 || digits.size() < leastDigits) {
        digits += "0123456789ABCDEF"[value % 16];
        value /= 16;
    }
    std::reverse(digits.begin(), digits.end());
    return digits;
}

std::string rowModel(std::uint32_t offset, const std::string& bytes) {
    std::string digits = ' ' + hexadecimal(offset, 3) + "  ";
    std::string characters;
    for (const char byte : bytes) {
        digits += hexadecimal(static_cast<unsigned char>(byte), 2) + ' ';
        characters += byte >= ' ' && byte <= '~' ? byte : '.';
    }
    digits.resize(digitsWidth, ' ');
    return digits + characters;
}

std::vector<std::string> dumpModel(const std::string& bytes) {
    std::vector<std::string> lines = {header, rule()};
    for (std::size_t offset = 0; offset < bytes.size(); offset += 16) {
        lines.push_back(rowModel(static_cast<std::uint32_t>(offset), bytes.substr(offset, 16)));
    }
    return lines;
}

void checkRow(std::uint32_t offset, const std::string& bytes) {
    char row[Common::hexDumpRowCapacity];
    std::fill(std::begin(row), std::end(row), 'x');
    Common::buildHexDumpRow(row, offset, bytes.data(), bytes.size());
    requireEqual(std::string(row), rowModel(offset, bytes.substr(0, 16)), "row");
}

void checkLogger(const std::string& bytes) {
    std::string expected;
    const std::vector<std::string> lines = dumpModel(bytes);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        expected += lines[i] + (i < 2 ? "\n\r\n" : "\r\n");
    }
    // From memory of exactly its length.
    const std::vector<char> exact(bytes.begin(), bytes.end());
    (void)takeLog();
    ORBCOMMON::Logger::hexDump(0, exact.data(), static_cast<unsigned>(exact.size()));
    requireEqual(takeLog(), expected, "the Logger's dump");
}

/// Checks a stamp for its form and takes it off.
std::string withoutStamp(const std::string& record) {
    std::string form = record.substr(0, stampLength);
    for (char& character : form) {
        character = character >= '0' && character <= '9' ? 'd' : character;
    }
    requireEqual(form, "[dddd-dd-dd dd:dd:dd] ", "form of a time stamp");
    return record.substr(stampLength);
}

void checkDebugLog(const std::string& bytes, unsigned char streamMask, int recordMask) {
    std::string text;
    Common::DebugLog::addOutputStream(streamMask,
                                      Common::shared_ptr<Common::OutputStream>(new CapturingStream(text)));
    const std::vector<char> exact(bytes.begin(), bytes.end());
    Common::DebugLog::hexDump(recordMask, exact.data(), static_cast<int>(exact.size()));
    Common::DebugLog::removeAllOutputStreams();

    std::vector<std::string> lines;
    for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n')) {
        lines.push_back(withoutStamp(text.substr(0, end)));
        text.erase(0, end + 1);
    }
    const bool isWritten = (streamMask & recordMask) != 0;
    requireEqual(lines, isWritten ? dumpModel(bytes) : std::vector<std::string>(), "the debug log's dump");
    requireEqual(text, "", "what is behind the last line");
}

} // namespace

int LLVMFuzzerInitialize(int* /*argumentCount*/, char*** /*arguments*/) {
    // Otherwise each time stamp looks for the file of the local zone.
    return setenv("TZ", "UTC0", 1);
}

// Hexadecimal dumps: single rows, the Logger's, the debug log's. The input: a row's offset (four bytes), the
// masks of the debug stream and of the record (one byte each), the bytes.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::uint32_t offset = input.doubleWord();
    const unsigned char streamMask = input.byte();
    const int recordMask = input.byte();
    const std::string bytes = input.rest();
    checkRow(offset, bytes);
    checkLogger(bytes);
    checkDebugLog(bytes, streamMask, recordMask);
    return 0;
}
