#include "tests/support/ShellScript.h"

namespace ZNORBTEST {

Launch shellScript(const std::string& directory, const std::string& script) {
    Launch launch;
    launch.program = "/bin/sh";
    launch.arguments = {"-ec", (directory.empty() ? "" : "PATH=" + directory + ":$PATH\n") + script};
    return launch;
}

} // namespace ZNORBTEST
