#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace ZNORBTEST {

/// Runs the function for each number below `count`, each in a sandbox of its own, and collects the texts that
/// it returns: "no result" when one ended without, "no sandbox: " and the reason when there could be none. At
/// most 262143 bytes of each. Four at a time for each processor, because most of what they do is waiting; one
/// at a time where sandboxes are no namespaces. Call it while there is only one thread.
std::vector<std::string> runInSandboxes(std::size_t count,
                                        const std::function<std::string(std::size_t)>& run);

} // namespace ZNORBTEST
