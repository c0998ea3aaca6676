#pragma once

#include "tests/support/DaemonDriver.h"

#include <string>

namespace ZNORBTEST {

/// How every document starts the daemon, as a line of its own.
inline constexpr const char* startLine = "znorb-clean && znorbresponder -d && znorb-wait\n";

/// Runs a script out of a document in a shell that ends at the first failure, on this installation. Tools
/// know the executable that they are installed with; here they are told.
ProgramResult runShownScript(const DaemonDriver& driver, const std::string& script);

} // namespace ZNORBTEST
