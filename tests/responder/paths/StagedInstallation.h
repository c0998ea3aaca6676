#pragma once

#include "tests/responder/paths/ExecutableLink.h"

namespace ZNORBTEST {

/// An installation of the product at its usual place, as far as the directories go: this process looks as if
/// it had been started from there. Lives in a sandbox (sandbox_test_main), which has no installation.
///
/// At its end the installation is removed, and the web console, if the test has made one.
class StagedInstallation {
public:
    static constexpr const char* root = "/opt/zn/znorb";
    static constexpr const char* programs = "/opt/zn/znorb/bin"; ///< the executable directory; exists
    static constexpr const char* sources = "/opt/zn/znorb/WBX";  ///< what the console gets; does not exist
    static constexpr const char* console = "/opt/zn/znwbx";      ///< does not exist

    StagedInstallation();
    ~StagedInstallation();

    /// Makes the four directories that a web console consists of.
    static void installConsole();

private:
    ExecutableLink m_link;
};

} // namespace ZNORBTEST
