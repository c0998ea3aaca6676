#include "responder/idle/ConfigurationMonitor.h"

#include "common/threads/ThreadHandle.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Matchers.h"

#include <atomic>
#include <string>
#include <type_traits>

namespace {

using ZNORBRESPONDER::ConfigurationMonitor;
using namespace ZNORBTEST;

static_assert(std::is_base_of_v<ORBCOMMON::Threadable, ConfigurationMonitor>);
static_assert(std::is_default_constructible_v<ConfigurationMonitor>);
static_assert(sizeof(ConfigurationMonitor) == sizeof(ORBCOMMON::Threadable), "no members of its own");

/// Tells when its thread has come to its end.
class ObservedMonitor : public ConfigurationMonitor {
public:
    void finish() override {
        ConfigurationMonitor::finish();
        isFinished = true;
    }

    std::atomic<bool> isFinished = false;
};

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
    ObservedMonitor monitor;
    ORBCOMMON::ThreadHandle handle;
    ASSERT_EQ(ORBCOMMON::start(handle, &monitor), 0);
    EXPECT_TRUE(waitUntil([&monitor]() { return monitor.isFinished.load(); }));
    ORBCOMMON::join(handle);
    EXPECT_THAT(log.lines(),
                ElementsAre("Configuration Change Monitor Started", "Configuration Change Monitor Stopped"));
}

} // namespace
