#pragma once

#include <cstddef>
#include <cstdint>

namespace Common {

/// The layout of a hexadecimal dump, shared by the Logger and the debug log. Builds text only: what ends
/// a line, where it goes and under which lock is the log's business.

/// The bytes of a full row, and the size of a buffer that takes any row with its NUL: 54 characters of
/// offset and hexadecimal digits, then one character for each byte.
inline constexpr std::size_t hexDumpRowBytes = 16;
inline constexpr std::size_t hexDumpDigitsWidth = 54;
inline constexpr std::size_t hexDumpRowCapacity = hexDumpDigitsWidth + hexDumpRowBytes + 1;

/// The two lines above the rows, 70 characters each, without a line end.
inline constexpr char hexDumpHeader[] =
    "      00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 0123456789ABCDEF";
inline constexpr char hexDumpRule[] =
    "      ----------------------------------------------------------------";

/// Builds the NUL-terminated row of the `count` bytes (at most hexDumpRowBytes; more are ignored) at
/// `bytes`, which stand at `offset` in the dumped range: " %03X  " of the offset, "%02X " of each byte,
/// spaces up to column 54, then each byte itself, or "." for one outside 0x20 to 0x7E. Allocates nothing.
void buildHexDumpRow(char (&row)[hexDumpRowCapacity], std::uint32_t offset, const void* bytes,
                     std::size_t count);

} // namespace Common
