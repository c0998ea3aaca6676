#pragma once

#include "tests/faults/Expectations.h"

#include <string>
#include <vector>

namespace ZNORBFAULTS {

/// An injection and what came of it.
struct Result {
    std::string life;
    unsigned occurrence;
    bool isInjected;
    Incident incident;
};

/// A line for each injection, in Markdown.
void writeTable(const std::vector<Result>& results, const std::string& path);

/// A line for each process, call and outcome, in Markdown, and what the outcomes mean.
void writeDocument(const std::vector<Result>& results, const std::string& path);

/// Prints the counts by verdict, and every outcome that was not expected; true when there is none, and every
/// fault was injected.
bool printSummary(const std::string& campaign, const std::vector<Result>& results);

} // namespace ZNORBFAULTS
