#include "responder/commands/CommandClient.h"
#include "tests/responder/service/UnifiedResponderMonitorFixture.h"
#include "tests/support/Descriptor.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/Layout.h"
#include "tests/support/Matchers.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <memory>

namespace {

using namespace ZNORBTEST;

TEST_F(ServingResponderMonitor, WholeDialogueIsLoggedInOrder) {
    EXPECT_EQ(askDaemon("GET|en"), "0");
    (void)argumentsOfClient();
    EXPECT_EQ(askDaemon("PRINT"), "0");
    quit();
    EXPECT_THAT(log.lines(), ElementsAre("Unified responder starting",
                                         "Unified responder waiting for connections", "Received GET command",
                                         StartsWith("New process created: "), "Entry:  0, Valid?: Y, ID: ",
                                         "Received QUIT command", "Unified responder stopped"));
}

TEST_F(ServingResponderMonitor,
       EndsOfClientsAreIgnoredAndTheTableIsThereUntilItQuitsAndThenConnectionsAreRefused) {
    EXPECT_FALSE(isExitEventSet());
    EXPECT_EQ(childDisposition(), SIG_IGN);
    EXPECT_EQ(modeOf(tableFile), 0666U);
    const znorb_shared_table table = sharedTable();
    EXPECT_EQ(table.count, 0U);
    quit();
    EXPECT_TRUE(isExitEventSet());
    EXPECT_EQ(childDisposition(), noteChild);
    EXPECT_FALSE(exists(tableFile));
    EXPECT_TRUE(exists(socketPath)) << "the next start removes the file";
    EXPECT_FALSE(LocalConnection::toPath(socketPath).isConnected());
}

TEST_F(UnifiedResponderMonitor, QuitIsAnsweredBeforeTheEnd) {
    std::atomic<bool> isAnswered = false;
    std::atomic<bool> wasAnswered = false;
    onLogLine("Unified responder stopped", [&isAnswered, &wasAnswered]() {
        wasAnswered = waitUntil([&isAnswered]() { return isAnswered.load(); });
    });
    startServing();
    EXPECT_TRUE(ZNORBRESPONDER::sendPrint());
    EXPECT_TRUE(ZNORBRESPONDER::sendQuit());
    isAnswered = true;
    awaitEnd();
    EXPECT_TRUE(wasAnswered);
}

TEST_F(ServingResponderMonitor, ConnectionsThatStillWaitAtTheEndAreClosedWithoutAReply) {
    const LocalConnection quitter = LocalConnection::toPath(socketPath);
    LocalConnection late = LocalConnection::toPath(socketPath);
    EXPECT_TRUE(late.send("PRINT"));
    EXPECT_TRUE(quitter.send("QUIT"));
    awaitEnd();
    EXPECT_EQ(late.receiveUntilClosed(), "");
    EXPECT_TRUE(late.wasClosed());
}

TEST_F(UnifiedResponderMonitor, EventIsSetBeforeTheLastMessageAndTheTableGoesAfterIt) {
    std::atomic<bool> wasSet = false;
    std::atomic<bool> wasThere = false;
    onLogLine("Unified responder stopped", [this, &wasSet, &wasThere]() {
        wasSet = isExitEventSet();
        wasThere = exists(tableFile);
    });
    startServing();
    quit();
    EXPECT_TRUE(wasSet);
    EXPECT_TRUE(wasThere);
    EXPECT_FALSE(exists(tableFile));
}

TEST_F(ServingResponderMonitor, CanRunAgainAfterItsEnd) {
    EXPECT_EQ(askDaemon("GET|en"), "0");
    (void)argumentsOfClient();
    quit();
    (void)exitEvent.reset();
    startServing();
    EXPECT_EQ(askDaemon("GET|en"), "0") << "the table begins empty";
    (void)argumentsOfClient();
    quit();
}

TEST_F(UnifiedResponderMonitor, StaleSocketFileIsReplaced) {
    writeFile(socketPath, "left behind");
    startServing();
    quit();
    startServing();
    quit();
}

TEST_F(UnifiedResponderMonitor, SocketIsOpenToEverybodyWhateverTheUmask) {
    const mode_t before = umask(077);
    startServing();
    (void)umask(before);
    EXPECT_EQ(modeOf(socketPath), 0666U);
}

TEST_F(ServingResponderMonitor, NoDescriptorOfItsOwnIsPassedOnToExecutedPrograms) {
    const LocalConnection client = LocalConnection::toPath(socketPath);
    awaitRequestWait(2);
    const std::vector<int> own = socketsOf(socketPath);
    EXPECT_EQ(own.size(), 2U) << "the listening socket and the connection";
    for (const int descriptor : own) {
        EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
    }
}

TEST_F(UnifiedResponderMonitor, NoDescriptorIsLeftOpen) {
    const auto before = namesIn("/proc/self/fd");
    startServing();
    EXPECT_EQ(askDaemon("GET|en"), "0");
    (void)argumentsOfClient();
    EXPECT_EQ(askDaemon("PRINT"), "0");
    (void)LocalConnection::toPath(socketPath);
    quit();
    EXPECT_EQ(namesIn("/proc/self/fd"), before);
}

TEST_F(UnifiedResponderMonitor, PublishesToTheWebConsoleBetweenBindingAndListening) {
    std::filesystem::create_directories("/opt/zn/znwbx/webapp");
    std::filesystem::create_directories("/opt/zn/znwbx/data/htdocs");
    writeFile(folder / "WBX/znorb.xml", "descriptor");
    std::atomic<bool> wasPublished = false;
    std::atomic<mode_t> mode = 0;
    std::atomic<bool> wasLetIn = true;
    onLogLine("Unified responder waiting for connections", [&wasPublished, &mode, &wasLetIn]() {
        wasPublished = exists("/opt/zn/znwbx/webapp/znorb.xml");
        mode = modeOf(socketPath);
        wasLetIn = LocalConnection::toPath(socketPath).isConnected();
    });
    startServing();
    EXPECT_TRUE(wasPublished);
    EXPECT_EQ(mode, 0666U);
    EXPECT_FALSE(wasLetIn);
    EXPECT_EQ(readFile("/opt/zn/znwbx/webapp/znorb.xml"), "descriptor");
    std::filesystem::remove_all("/opt/zn/znwbx");
}

// ---- set-up that fails ----------------------------------------------------------------------------------

TEST_F(UnifiedResponderMonitor, TableThatExistsAlreadyEndsTheRunAndIsRemovedSoThatTheNextStartSucceeds) {
    writeFile(tableFile, "left behind");
    expectFailedRun({"Unable to get to shared global variables"});
    EXPECT_FALSE(exists(socketPath)) << "the socket is not touched";
    (void)exitEvent.reset();
    startServing();
    quit();
}

TEST_F(UnifiedResponderMonitor, SocketThatCannotBeMadeEndsTheRun) {
    // The table needs a descriptor, too: they run out between the two.
    std::unique_ptr<DescriptorLimit> limit;
    onLogLine("Unified responder starting", [&limit]() { limit = std::make_unique<DescriptorLimit>(0); });
    onLogLine("Unable to create socket", [&limit]() { limit.reset(); });
    expectFailedRun({"Unable to create socket"});
    EXPECT_FALSE(exists(socketPath));
}

TEST_F(UnifiedResponderMonitor, SocketThatCannotBeBoundEndsTheRun) {
    ASSERT_EQ(mkdir(socketPath, 0700), 0);
    const auto descriptors = namesIn("/proc/self/fd");
    expectFailedRun({"Unable to bind socket"});
    EXPECT_EQ(modeOf(socketPath), 0700U) << "what is in the socket's place is left alone";
    EXPECT_EQ(namesIn("/proc/self/fd"), descriptors);
}

TEST_F(UnifiedResponderMonitor, SocketThatCannotListenEndsTheRun) {
    const auto descriptors = namesIn("/proc/self/fd");
    std::atomic<bool> wasIgnored = false;
    onLogLine("Unified responder waiting for connections", [&wasIgnored]() {
        wasIgnored = childDisposition() == SIG_IGN;
        // Something else takes the socket's place at the last moment.
        const Descriptor null(open("/dev/null", O_RDONLY | O_CLOEXEC));
        for (const int descriptor : socketsOf(socketPath)) {
            (void)dup3(null.get(), descriptor, O_CLOEXEC);
        }
    });
    expectFailedRun({"Unified responder waiting for connections", "Unable to put socket in listen mode"});
    EXPECT_TRUE(wasIgnored);
    EXPECT_EQ(namesIn("/proc/self/fd"), descriptors);
}

TEST_F(UnifiedResponderMonitor, KeepsNothingButThePointerToItsEvent) {
    EXPECT_EQ(fieldAt<ORBCOMMON::ProcessEvent*>(&monitor, sizeof(void*)), &exitEvent);
    EXPECT_EQ(sizeof monitor, 2 * sizeof(void*));
}

} // namespace
