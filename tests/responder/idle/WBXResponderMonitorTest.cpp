#include "responder/idle/WBXResponderMonitor.h"

#include "common/log/Logger.h"
#include "foundation/containers/SharedPtr.h"
#include "foundation/streams/OutputStream.h"
#include "tests/responder/idle/MonitorThread.h"
#include "tests/responder/paths/StagedInstallation.h"
#include "tests/support/Files.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Matchers.h"
#include "tests/support/SharedTable.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <filesystem>
#include <stdexcept>
#include <type_traits>

namespace {

using namespace ZNORBTEST;
using ZNORBRESPONDER::WBXResponderMonitor;

static_assert(std::is_base_of_v<ORBCOMMON::Threadable, WBXResponderMonitor>);
static_assert(sizeof(WBXResponderMonitor) == sizeof(ORBCOMMON::Threadable), "no members of its own");

constexpr const char* published = "/opt/zn/znwbx/webapp/znorb.xml";
constexpr const char* startedLine = "WBX Responder Monitor Started";
constexpr const char* failedLine = "WBX Responder Monitor could not allocate global shared memory.";
constexpr const char* stoppedLine = "WBX Responder Monitor Stopped";

class WBXResponderMonitorTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(exists(tableFile)) << "not in a sandbox, or left behind by a test";
        StagedInstallation::installConsole();
        writeFile(std::string(StagedInstallation::sources) + "/znorb.xml", "<descriptor/>");
    }
    void TearDown() override {
        ORBCOMMON::Logger::removeAllOutputStreams();
        (void)shm_unlink(ZNORB_TABLE_NAME);
    }

    StagedInstallation m_installation;
    LogRecorder m_log;
    WBXResponderMonitor m_monitor;
};

TEST_F(WBXResponderMonitorTest, ConstructionAndFinishDoNothing) {
    {
        WBXResponderMonitor monitor;
        monitor.finish();
    }
    EXPECT_EQ(m_log.text(), "");
    EXPECT_FALSE(exists(published));
}

TEST_F(WBXResponderMonitorTest,
       WithoutAnObjectOneIsMadeZeroedAndUnlinkedAndTheConsoleServedBetweenTheTwoLines) {
    std::vector<std::string> seen;
    onLogLines([&seen](const std::string& line) {
        EXPECT_EQ(readFile(tableFile), std::string(8196, '\0'));
        EXPECT_EQ(modeOf(tableFile), 0666U);
        seen.push_back(line + (exists(published) ? ", there" : ""));
    });
    const mode_t mask = umask(0077);
    m_monitor.run();
    (void)umask(mask);
    EXPECT_THAT(seen, ElementsAre(startedLine, std::string(stoppedLine) + ", there"));
    EXPECT_EQ(m_log.text(), "WBX Responder Monitor Started\r\nWBX Responder Monitor Stopped\r\n");
    EXPECT_EQ(readFile(published), "<descriptor/>");
    EXPECT_FALSE(exists(tableFile));
}

TEST_F(WBXResponderMonitorTest, ObjectThatIsPresentIsLeftUntouchedAndUnlinkedAtTheEndAndTheNextRunIsAsEver) {
    writeFile(tableFile, "foreign", 0600);
    unsigned looks = 0;
    onLogLines([&looks](const std::string& line) {
        if (++looks <= 3) {
            EXPECT_EQ(readFile(tableFile), "foreign");
            EXPECT_EQ(modeOf(tableFile), 0600U);
            EXPECT_EQ(exists(published), line == stoppedLine);
        }
    });
    m_monitor.run();
    EXPECT_EQ(looks, 3U);
    EXPECT_FALSE(exists(tableFile));
    EXPECT_THAT(m_log.lines(), ElementsAre(startedLine, failedLine, stoppedLine));
    EXPECT_EQ(readFile(published), "<descriptor/>") << "the console is served all the same";
    m_log.clear();
    std::filesystem::remove(published);
    m_monitor.run();
    EXPECT_THAT(m_log.lines(), ElementsAre(startedLine, stoppedLine));
    EXPECT_EQ(readFile(published), "<descriptor/>");
}

TEST_F(WBXResponderMonitorTest, OwnerOfAnObjectThatWasPresentGoesOnWithItsMapping) {
    const OwnSharedTable table;
    table.claim(0);
    m_monitor.run();
    EXPECT_FALSE(exists(tableFile));
    EXPECT_TRUE(table.isInUse(0));
}

TEST_F(WBXResponderMonitorTest, WithoutAConsoleThePassIsTheSame) {
    std::filesystem::remove_all(StagedInstallation::console);
    m_monitor.run();
    EXPECT_THAT(m_log.lines(), ElementsAre(startedLine, stoppedLine));
    EXPECT_FALSE(exists(StagedInstallation::console));
    EXPECT_FALSE(exists(tableFile));
}

TEST_F(WBXResponderMonitorTest, ThreadOnItMakesOnePassAndEnds) {
    runOnThread<WBXResponderMonitor>();
    EXPECT_THAT(m_log.lines(), ElementsAre(startedLine, stoppedLine));
    EXPECT_EQ(readFile(published), "<descriptor/>");
    EXPECT_FALSE(exists(tableFile));
}

TEST_F(WBXResponderMonitorTest, ThreadWithAnObjectPresentLogsTheThreeLinesPublishesAndUnlinks) {
    writeFile(tableFile, "foreign", 0600);
    runOnThread<WBXResponderMonitor>();
    EXPECT_THAT(m_log.lines(), ElementsAre(startedLine, failedLine, stoppedLine));
    EXPECT_EQ(readFile(published), "<descriptor/>");
    EXPECT_FALSE(exists(tableFile));
}

TEST_F(WBXResponderMonitorTest, ExceptionThatLeavesThePassFindsTheNameUnlinkedWhoseverItIs) {
    for (const std::string thrower : {startedLine, stoppedLine, failedLine}) {
        if (thrower == failedLine) {
            writeFile(tableFile, "foreign", 0600);
        }
        onLogLines([thrower](const std::string& line) {
            if (line == thrower) {
                throw std::runtime_error("from a log stream");
            }
        });
        EXPECT_THROW(m_monitor.run(), std::runtime_error) << thrower;
        EXPECT_FALSE(exists(tableFile)) << thrower;
        ORBCOMMON::Logger::removeAllOutputStreams();
    }
}

} // namespace
