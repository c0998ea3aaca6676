#pragma once

#include "foundation/containers/Convertible.h"

namespace Common {

/// Two values side by side: an entry of a map, or an iterator and whether the insertion was new.
template <typename First, typename Second>
class pair : public Convertible {
public:
    /// Both values value-initialised (numbers 0, pointers null).
    pair() : first(), second() {}
    pair(const First& firstValue, const Second& secondValue) : first(firstValue), second(secondValue) {}

    First first;
    Second second;
};

} // namespace Common
