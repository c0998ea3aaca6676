#pragma once

#include "tests/schedules/Ensemble.h"
#include "tests/schedules/Story.h"
#include "tests/support/DaemonDriver.h"

#include <string>

namespace ZNORBSCHEDULES {

/// Brings about what there is when the story begins. Everybody is held or waits then. False when it did not
/// come to that within the bound.
bool prepare(Setting setting, const ZNORBTEST::DaemonDriver& driver, Ensemble& ensemble);

/// Adds one of a story's, held at its start.
void addActor(const std::string& name, const ZNORBTEST::DaemonDriver& driver, Ensemble& ensemble);

} // namespace ZNORBSCHEDULES
