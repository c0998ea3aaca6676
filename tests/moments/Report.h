#pragma once

#include "tests/moments/Campaign.h"

#include <string>
#include <vector>

namespace ZNORBMOMENTS {

/// Prints the moments by kind, and every one that is not explained; true when there is none.
bool printSummary(const std::vector<Result>& results);

/// A table of outcomes for each kind, in Markdown, and why they are right.
void writeDocument(const std::vector<Result>& results, const std::string& path);

} // namespace ZNORBMOMENTS
