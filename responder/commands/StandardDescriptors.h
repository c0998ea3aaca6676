#pragma once

namespace ZNORBRESPONDER {

/// Points a standard descriptor (0, 1 or 2) at "/dev/null": 0 for reading, the others for writing. Nothing
/// changes when that cannot be opened.
void pointToNull(int descriptor);

/// Points the standard descriptors that the process was started without at "/dev/null". Otherwise the next
/// sockets would take their numbers, and be read as the keyboard and written to as the terminal.
void fillMissingDescriptors();

} // namespace ZNORBRESPONDER
