#pragma once

#include "tests/schedules/Explorer.h"

#include <string>
#include <vector>

namespace ZNORBSCHEDULES {

/// Prints the story's orders in one line, and every one that is not explained with its steps; how many those
/// are.
std::size_t printStory(const Exploration& exploration);

/// What came of one order, and its steps: a line for each turn.
void printOrder(const Story& story, std::size_t number, const Course& course);

/// A table of outcomes for each story, in Markdown, with why they are right.
void writeDocument(const std::vector<Exploration>& explorations, const std::string& path);

} // namespace ZNORBSCHEDULES
