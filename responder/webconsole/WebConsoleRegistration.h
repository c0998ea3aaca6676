#pragma once

#include "foundation/streams/OutputStream.h"

#include <string>
#include <string_view>

/// Publishing the product into the web management console, when that is installed. Runs on the calling
/// monitor's thread. One thread at a time may register: the process's umask is another meanwhile, and two at
/// once, who would write the same files, could leave it so.
namespace ZNORBRESPONDER {

/// Copies the descriptor, the page, the entry script (filled from its template) and the requestor
/// program into the console's directories and sets their modes. False, with nothing done, when one of
/// the console's four directories is missing; true otherwise, also when a file could not be copied: what
/// cannot be done is skipped without a message. Nothing published is writable by others at any moment.
bool registerWebConsole();

/// Writes the source text to the destination with the first "%ZNORB_BIN_PATH%" and the first
/// "%ZNORB_HTML_PATH%" replaced by those directories, backslashes doubled. Nothing happens when the source
/// cannot be opened; a destination that cannot be opened is ignored.
void fillTemplate(const std::string& sourceFile, const std::string& destinationFile);

/// Copies the named file from one directory to the other, replacing what is there. True when the source
/// could be opened, even if the destination could not.
///
/// Both of these count what is no regular file as one that cannot be opened, and take from an existing
/// destination everybody's right to write to it but its owner's.
bool copyFileTo(const std::string& sourceDirectory, const std::string& destinationDirectory,
                const std::string& fileName);

/// Writes the text: at once, unless it is longer than a write can be.
void writeWhole(Common::OutputStream& destination, std::string_view text);

} // namespace ZNORBRESPONDER
