#pragma once

#include "tests/moments/Kind.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace ZNORBMOMENTS {

/// A life of each story in which nothing happens: what it shows, and its boundaries in their order.
struct UsualLife {
    Observation observation;
    std::vector<std::pair<Boundary, Surroundings>> boundaries;
};
using UsualLives = std::map<Story, UsualLife>;

/// Lives each story several times. A boundary counts that all of them come to. Empty, with a message, when
/// they do not show the same.
UsualLives recordUsualLives(std::string& problem);

/// Every moment of the kind, numbered.
std::vector<Moment> momentsOf(const Kind& kind, const UsualLives& lives);

/// What came of a moment.
struct Result {
    Moment moment;
    bool hasHappened = false;
    std::string outcome; ///< as difference() has it
};

/// Lives each moment, several lives at a time. The results come in the moments' order.
std::vector<Result> visit(const std::vector<Moment>& moments, const UsualLives& lives);

} // namespace ZNORBMOMENTS
