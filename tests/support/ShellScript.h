#pragma once

#include "tests/support/ChildProcess.h"

#include <string>

namespace ZNORBTEST {

/// A shell that ends at the first failure, for a script out of a document. Programs in `directory` are found
/// by their names; an empty one adds nothing.
Launch shellScript(const std::string& directory, const std::string& script);

} // namespace ZNORBTEST
