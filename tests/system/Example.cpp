#include "tests/system/Example.h"

#include "tests/sandbox/Processes.h"
#include "tests/support/ShellScript.h"
#include "tests/support/Skipping.h"

#include <unistd.h>

namespace ZNORBTEST {

void ExampleTest::SetUp() {
    ZNORB_SKIP_IF(program().ends_with(".py") &&
                  runProgram(shellScript("", "command -v python3")).end != exitedWith(0))
        << "Python is not installed";
}

Launch ExampleTest::launch(const std::vector<std::string>& arguments) const {
    const std::string self = programOf(getpid());
    return {.program = self.substr(0, self.rfind('/') + 1) + program(),
            .arguments = arguments,
            .environment = m_reports.environment()};
}

} // namespace ZNORBTEST
