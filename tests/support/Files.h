#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

/// Small file operations for tests. What fails is reported as a failure of the running test, with the path.
namespace ZNORBTEST {

/// The whole file. One that cannot be read is a failure.
std::string readFile(const std::string& path);

/// The file as far as it can be read; empty when there is none.
std::string readFileIfAny(const std::string& path);

/// What an open file holds from this byte on, wherever others read or write in it.
std::string contentOf(int file, std::size_t from = 0);

/// Makes the file, and the directories that it needs, with this content and exactly this mode.
void writeFile(const std::string& path, const std::string& content, mode_t mode = 0644);

/// Copies a program, with mode 0755, making the directories that it needs.
void copyProgram(const std::string& from, const std::string& to);

bool exists(const std::string& path);

/// The permission bits; 0 when there is no such file.
mode_t modeOf(const std::string& path);

/// The names in a directory, sorted; empty when it cannot be read.
std::vector<std::string> namesIn(const std::string& directory);

} // namespace ZNORBTEST
