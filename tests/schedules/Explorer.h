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

/// The orders of a story, those with fewer unusual turns first.
struct Exploration {
    const Story* story = nullptr;
    std::vector<Result> results;
    std::size_t cut = 0; ///< orders that came to a state to which another one had come
};

/// Goes through every order with at most so many turns that are not the usual ones, several at a time. Usual
/// is that whoever ran goes on while he can, and then whom he has woken: so each preemption is one of them.
/// Stops behind the order of the number, if that is not 0.
Exploration explore(const Story& story, unsigned turns, std::size_t last = 0);

/// One order, to its end.
Course goThrough(const Story& story, const Order& order);

} // namespace ZNORBSCHEDULES
