#include "responder/idle/ConfigurationMonitor.h"

#include "tests/responder/idle/MonitorThread.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Matchers.h"

#include <type_traits>

namespace {

using ZNORBRESPONDER::ConfigurationMonitor;
using namespace ZNORBTEST;

static_assert(std::is_base_of_v<ORBCOMMON::Threadable, ConfigurationMonitor>);
static_assert(std::is_default_constructible_v<ConfigurationMonitor>);
static_assert(sizeof(ConfigurationMonitor) == sizeof(ORBCOMMON::Threadable), "no members of its own");

TEST(ConfigurationMonitor, EachRunLogsItsStartAndItsEndAndNothingElseDoes) {
    const LogRecorder log;
    {
        ConfigurationMonitor monitor;
        monitor.finish();
        EXPECT_EQ(log.text(), "");
        const std::string lines =
            "Configuration Change Monitor Started\r\nConfiguration Change Monitor Stopped\r\n";
        monitor.run();
        EXPECT_EQ(log.text(), lines);
        monitor.run();
        EXPECT_EQ(log.text(), lines + lines);
    }
    EXPECT_EQ(log.lines().size(), 4U);
}

TEST(ConfigurationMonitor, ThreadOnItLogsTheTwoLinesInOrderAndEnds) {
    const LogRecorder log;
    runOnThread<ConfigurationMonitor>();
    EXPECT_THAT(log.lines(),
                ElementsAre("Configuration Change Monitor Started", "Configuration Change Monitor Stopped"));
}

} // namespace
