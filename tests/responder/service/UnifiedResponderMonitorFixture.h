#pragma once

#include "common/log/Logger.h"
#include "common/processes/ProcessEvent.h"
#include "common/threads/ThreadHandle.h"
#include "foundation/containers/SharedPtr.h"
#include "foundation/streams/OutputStream.h"
#include "responder/service/UnifiedResponderMonitor.h"
#include "tests/responder/paths/ExecutableLink.h"
#include "tests/support/Files.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/SelectRecorder.h"
#include "tests/support/SharedTable.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Waiting.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <ctime>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace ZNORBTEST {

/// The descriptors of this process that are sockets of the path, the listening one and its connections.
inline std::vector<int> socketsOf(const std::string& path) {
    std::vector<int> result;
    for (const std::string& name : namesIn("/proc/self/fd")) {
        const int descriptor = std::stoi(name);
        sockaddr_un address = {};
        socklen_t length = sizeof address;
        if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
            address.sun_family == AF_UNIX && path == address.sun_path) {
            result.push_back(descriptor);
        }
    }
    return result;
}

/// The disposition of SIGCHLD outside the monitor's service.
extern "C" inline void noteChild(int) {}

using Handler = void (*)(int);

inline Handler childDisposition() {
    struct sigaction action = {};
    (void)sigaction(SIGCHLD, nullptr, &action);
    return action.sa_handler;
}

/// A monitor on a thread of its own, in a sandbox. Its client program is a script that writes its arguments
/// down, each in quotes, and ends.
class UnifiedResponderMonitor : public testing::Test {
protected:
    UnifiedResponderMonitor() {
        (void)std::signal(SIGCHLD, noteChild);
        const std::string arguments = folder / "arguments";
        writeFile(folder / "bin/znorbclient",
                  "#!/bin/sh\nfor word in \"$@\"; do printf '<%s>' \"$word\"; done > '" + arguments +
                      ".new'\nmv '" + arguments + ".new' '" + arguments + "'\n",
                  0755);
    }

    ~UnifiedResponderMonitor() override {
        if (isStarted) {
            (void)waitUntil([]() { return !askDaemon("QUIT").has_value(); });
            ORBCOMMON::join(thread);
        }
        (void)std::signal(SIGCHLD, SIG_DFL);
        std::error_code error;
        (void)std::filesystem::remove_all(socketPath, error);
        (void)unlink(tableFile);
    }

    void startThread() {
        ASSERT_EQ(ORBCOMMON::start(thread, &monitor), 0);
        isStarted = true;
    }

    /// Starts the monitor; returns when it has answered.
    void startServing() {
        startThread();
        ASSERT_TRUE(waitUntil([]() { return askDaemon("are you there?") == "0"; }));
    }

    bool isExitEventSet() { return exitEvent.timedWait(0); }

    /// A run that ends by itself: it logs these lines between its first and its last, and leaves no table.
    void expectFailedRun(std::vector<std::string> lines) {
        startThread();
        awaitEnd();
        lines.insert(lines.begin(), "Unified responder starting");
        lines.emplace_back("Unified responder stopped");
        EXPECT_EQ(log.lines(), lines);
        EXPECT_EQ(childDisposition(), noteChild);
        EXPECT_FALSE(exists(tableFile));
    }

    /// Waits for the end of a run that ends by itself.
    void awaitEnd() {
        ASSERT_TRUE(exitEvent.timedWait(std::time(nullptr) + usualBound.count() / 1000));
        ORBCOMMON::join(thread);
        isStarted = false;
    }

    void quit() {
        EXPECT_EQ(askDaemon("QUIT"), "0");
        awaitEnd();
    }

    /// The lines that are logged after the start's.
    [[nodiscard]] std::vector<std::string> linesOfService() const {
        std::vector<std::string> lines = log.lines();
        const auto begin = std::find(lines.begin(), lines.end(), "Unified responder waiting for connections");
        lines.erase(lines.begin(), begin == lines.end() ? begin : begin + 1);
        return lines;
    }

    [[nodiscard]] std::string argumentsOfClient() const {
        const std::string path = folder / "arguments";
        EXPECT_TRUE(waitUntil([&path]() { return exists(path); }));
        std::string arguments = readFile(path);
        (void)unlink(path.c_str());
        return arguments;
    }

    /// Changes the daemon's table as a client would. REQUIRES: the monitor serves.
    static void changeTable(const std::function<void(znorb_shared_table&)>& change) {
        std::optional<znorb_shared_table> table = readSharedTable();
        ASSERT_TRUE(table.has_value());
        change(*table);
        ASSERT_TRUE(writeSharedTable(0, {reinterpret_cast<const char*>(&*table), sizeof *table}));
    }

    /// Waits until the monitor waits for the request of a connection; earlier requests have been served.
    static void awaitRequestWait(std::size_t number) {
        ASSERT_TRUE(waitUntil([number]() {
            std::size_t count = 0;
            for (const SelectRecorder::Call& call : SelectRecorder::calls()) {
                count += call.seconds == 60 ? 1 : 0;
            }
            return count >= number;
        }));
    }

    const TemporaryFolder folder;
    const ExecutableLink executable{folder / "bin/responder"};
    const LogRecorder log;
    const SelectRecorder waits;
    ORBCOMMON::ProcessEvent exitEvent{false, false};
    ZNORBRESPONDER::UnifiedResponderMonitor monitor{&exitEvent};
    ORBCOMMON::ThreadHandle thread;
    bool isStarted = false;
};

class ServingResponderMonitor : public UnifiedResponderMonitor {
protected:
    void SetUp() override { startServing(); }
};

} // namespace ZNORBTEST
