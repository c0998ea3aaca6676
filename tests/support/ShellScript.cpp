#include "tests/support/ShellScript.h"

namespace ZNORBTEST {

Launch shellScript(const std::string& directory, const std::string& script) {
    const std::string path = directory.empty() ? "" : "PATH=" + directory + ":$PATH\n";
    return {.program = "/bin/sh", .arguments = {"-ec", path + script}};
}

} // namespace ZNORBTEST
