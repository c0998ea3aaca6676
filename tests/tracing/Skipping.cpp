#include "tests/tracing/Skipping.h"

#include "tests/sandbox/Sandbox.h"
#include "tests/support/SystemCallTracer.h"

#include <cstdlib>

namespace ZNORBTRACING {

using ZNORBTEST::SandboxOutcome;

std::optional<std::string> reasonToSkip() {
    if (!ZNORBTEST::canChangeCalls() || !ZNORBTEST::canTrace()) {
        return "processes cannot be traced here";
    }
    const SandboxOutcome outcome = ZNORBTEST::runSandboxed([]() { return EXIT_SUCCESS; });
    return outcome.kind == SandboxOutcome::Kind::Ended
               ? std::nullopt
               : std::optional("processes cannot be put into a sandbox here: " + outcome.reason);
}

} // namespace ZNORBTRACING
