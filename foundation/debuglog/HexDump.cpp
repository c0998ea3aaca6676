#include "foundation/debuglog/HexDump.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace Common {

static_assert(sizeof(hexDumpHeader) == 70 + 1);
static_assert(sizeof(hexDumpRule) == sizeof(hexDumpHeader));

namespace {

constexpr char hexDigits[] = "0123456789ABCDEF";

/// " %03X  " of the largest offset, which has eight digits, and its NUL.
constexpr std::size_t offsetFieldCapacity = 12;

/// Fixed, not the locale's idea of it: 0x20 to 0x7E.
bool isPrintable(unsigned char byte) {
    return byte >= 0x20 && byte <= 0x7E;
}

} // namespace

void buildHexDumpRow(char (&row)[hexDumpRowCapacity], std::uint32_t offset, const void* bytes,
                     std::size_t count) {
    const auto* const data = static_cast<const unsigned char*>(bytes);
    const std::size_t shown = std::min(count, hexDumpRowBytes);
    char digits[offsetFieldCapacity + 3 * hexDumpRowBytes];
    auto length = static_cast<std::size_t>(std::snprintf(digits, offsetFieldCapacity, " %03X  ", offset));
    for (std::size_t i = 0; i < shown; ++i) {
        digits[length++] = hexDigits[data[i] >> 4U];
        digits[length++] = hexDigits[data[i] & 0x0FU];
        digits[length++] = ' ';
        row[hexDumpDigitsWidth + i] = isPrintable(data[i]) ? static_cast<char>(data[i]) : '.';
    }
    // Cut at 54 characters on purpose: the characters stay in one column. From offset 0x1000 on that
    // takes the space behind the sixteenth byte, from 0x10000 on also that byte's last digit.
    const std::size_t kept = std::min(length, hexDumpDigitsWidth);
    std::memcpy(row, digits, kept);
    std::memset(row + kept, ' ', hexDumpDigitsWidth - kept);
    row[hexDumpDigitsWidth + shown] = '\0';
}

} // namespace Common
