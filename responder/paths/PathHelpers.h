#pragma once

#include <string>

/// Small questions about paths and files. Paths are byte strings; both "/" and "\" separate components,
/// looked for in an order that differs between the functions and is kept so. No state; any thread.
namespace ZNORBRESPONDER {

/// True when the path exists and is a regular file (links are followed).
bool isRegularFile(const std::string& path);

/// True when the path exists and is a directory (links are followed).
bool isDirectory(const std::string& path);

/// True when the path is a regular file that can be opened for reading.
bool isReadableFile(const std::string& path);

/// Makes the directory with mode 0755, less the umask. True when it was made or the path exists already,
/// whatever it is; an existing directory keeps its mode.
bool createDirectory(const std::string& path);

/// The text after the last "/", or after the last "\" when there is no "/". Empty without any separator.
std::string getFileName(const std::string& path);

/// From the last "." to the end, the dot included; empty without a dot.
std::string getExtension(const std::string& path);

/// The file name without its extension.
std::string getBaseName(const std::string& path);

/// Everything up to and including the last "/", or the last "\" when there is no "/". Empty without any
/// separator.
std::string getDirectoryPart(const std::string& path);

/// Everything before the last "\", or before the last "/" when there is no "\": the reverse of the order
/// above, on purpose. The whole text without any separator.
std::string removeLastComponent(const std::string& path);

/// The path without any "/" and "\" at its end.
std::string removeTrailingSeparators(const std::string& path);

/// Replaces the first occurrence of `find` in `text`, if there is one; later ones stay.
void replaceFirst(std::string& text, const std::string& find, const std::string& replacement);

/// The text with every "\" doubled.
std::string escapeBackslashes(const std::string& text);

} // namespace ZNORBRESPONDER
