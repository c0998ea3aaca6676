#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace ZNORBSCHEDULES {

/// At this step, of which the state is known, another goes on than would by themselves.
struct Choice {
    std::size_t step = 0;
    std::string role;
    std::uint64_t state = 0;  ///< in which it is taken
    bool isPreemption = true; ///< of one who could have gone on; else a switch that is free
};

/// What makes an order: its turns that are not the usual ones. Usual is that whoever ran goes on while he
/// can, and then whom he has woken.
using Order = std::vector<Choice>;

/// From one boundary to the next.
struct Step {
    std::string role;
    std::string place; ///< at which it stood
    std::uint64_t state = 0;
    std::vector<Choice> alternatives{}; ///< to it, as far as they can make a difference
};

/// Those from which every way has been or is going to be gone.
using KnownStates = std::set<std::uint64_t>;

/// What came of an order.
struct Course {
    bool isCut = false;  ///< from its last step on others have shown what comes of it
    std::string problem; ///< if it could not be gone through
    std::map<std::string, std::string> seen{};
    std::vector<Step> steps{};
};

/// From one process to another.
std::string record(const Course& course);
Course parseCourse(const std::string& text);

/// What was seen, on one line.
std::string describe(const Course& course);

} // namespace ZNORBSCHEDULES
