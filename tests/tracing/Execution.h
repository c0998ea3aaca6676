#pragma once

#include "tests/support/ChildProcess.h"

namespace ZNORBTRACING {

/// In a child of the tracer's: becomes the program, whose output and errors go to `output`. `input`: its
/// standard input, or -1 for /dev/null. Its memory lies at the same addresses in every life. Returns when it
/// failed.
void execute(const ZNORBTEST::Launch& launch, int input, int output);

} // namespace ZNORBTRACING
