#pragma once

#include "tests/schedules/Order.h"
#include "tests/schedules/Story.h"

namespace ZNORBSCHEDULES {

/// Goes through a story in one order, in a sandbox's runner, from its setting to what can be seen at the end.
/// Every wait has a bound. It breaks off at a known state behind the order's last choice.
Course live(const Story& story, const Order& order, const KnownStates& known = {});

} // namespace ZNORBSCHEDULES
