#pragma once

#include "tests/schedules/Order.h"
#include "tests/schedules/Story.h"

#include <cstddef>
#include <vector>

namespace ZNORBSCHEDULES {

/// An order that has been gone through. Its number, from 1, is its place among the story's.
struct Result {
    Order order;
    Course course;
};

/// The orders of a story, those that use up less of the bound first.
struct Exploration {
    const Story* story = nullptr;
    std::vector<Result> results;
    std::size_t cut = 0; ///< orders that came to a state to which another one had come
};

constexpr unsigned mostPreemptions = 2;

/// What counts. Usual is that whoever ran goes on while he can, and then whom he has woken.
enum class Bound {
    OneTurn,    ///< at most one turn that is not the usual one
    Preemptions ///< at most `mostPreemptions`; a switch away from one who cannot go on is free
};

/// Goes through every order within the bound, several at a time. Stops behind the order of the number, if
/// that is not 0.
Exploration explore(const Story& story, Bound bound, std::size_t last = 0);

/// One order, to its end.
Course goThrough(const Story& story, const Order& order);

} // namespace ZNORBSCHEDULES
