#include "tests/docs/ShownScript.h"

#include "tests/support/ShellScript.h"

#include <regex>

namespace ZNORBTEST {

ProgramResult runShownScript(const DaemonDriver& driver, const std::string& script) {
    static const std::regex tool("znorb-(clean|wait)");
    return runProgram(shellScript(driver.directory() + ":" + ZNORB_PROGRAM_DIRECTORY,
                                  std::regex_replace(script, tool, "znorb-$1 -e " + driver.program())));
}

} // namespace ZNORBTEST
