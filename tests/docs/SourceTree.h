#pragma once

#include <string>
#include <vector>

/// The project's own files, as the tests of its documents read them.
namespace ZNORBTEST {

/// The full path of a file of the tree.
std::string sourcePath(const std::string& name);

/// The whole file. One that cannot be read is a failure.
std::string readSource(const std::string& name);

std::vector<std::string> linesOf(const std::string& text);

/// The regular files below a folder of the tree, as paths from the root, sorted; without build output.
std::vector<std::string> filesBelow(const std::string& folder);

/// All matches of the expression's first group, in their order.
std::vector<std::string> matches(const std::string& text, const std::string& expression);

/// The cells of a line of a table, "| a | b |", without the spaces around them; none of any other line.
std::vector<std::string> cellsOf(const std::string& line);

} // namespace ZNORBTEST
