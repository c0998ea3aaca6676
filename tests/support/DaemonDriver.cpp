#include "tests/support/DaemonDriver.h"

#include "tests/sandbox/Processes.h"
#include "tests/support/Files.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/SharedTable.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <optional>

namespace ZNORBTEST {
namespace {

/// Where the build puts a program of its own; or, of the executable itself, which one is to be tested
/// instead.
std::string builtProgram(const std::string& name) {
    const char* other = std::getenv("ZNORB_RESPONDER");
    return name == "znorbresponder" && other != nullptr ? other : ZNORB_TEST_PROGRAMS "/" + name;
}

/// The socket's name is "/var/run/...", which usually is the same directory.
std::vector<std::string> allNames() {
    std::vector<std::string> directories = {"/run", "/dev/shm"};
    std::error_code error;
    if (!std::filesystem::equivalent("/run", "/var/run", error)) {
        directories.emplace_back("/var/run");
    }
    std::vector<std::string> paths;
    for (const std::string& directory : directories) {
        for (const std::string& name : namesIn(directory)) {
            paths.push_back(directory + "/" + name);
        }
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

/// The words of a setting of the environment; none when it is not set.
std::vector<std::string> wordsOf(const char* variable) {
    std::vector<std::string> words;
    const char* value = std::getenv(variable);
    const std::string text = value != nullptr ? value : "";
    for (std::size_t start = text.find_first_not_of(' '); start != std::string::npos;) {
        const std::size_t end = text.find(' ', start);
        words.push_back(text.substr(start, end - start));
        start = text.find_first_not_of(' ', end);
    }
    return words;
}

/// "NAME=value" by which a wrapper can name its files after the running test.
std::string runningTestSetting() {
    const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
    std::string name = test == nullptr ? "" : std::string(test->test_suite_name()) + "." + test->name();
    std::replace(name.begin(), name.end(), '/', '.');
    return "ZNORB_RUNNING_TEST=" + name;
}

/// Valgrind's tools run a program under names of their own.
bool isDaemonsName(const std::string& name) {
    return name == "znorbresponder" || name.starts_with("memcheck-") || name.starts_with("helgrind-");
}

bool contains(const std::vector<pid_t>& processes, pid_t pid) {
    return std::find(processes.begin(), processes.end(), pid) != processes.end();
}

/// Of those that a daemon closes at its start and then opens anew: what came from outside above them stays.
unsigned openSocketsOf(pid_t daemon) {
    const std::string descriptors = "/proc/" + std::to_string(daemon) + "/fd";
    unsigned count = 0;
    for (int descriptor = 0; descriptor < 256; ++descriptor) {
        std::error_code error;
        const std::filesystem::path target =
            std::filesystem::read_symlink(descriptors + "/" + std::to_string(descriptor), error);
        count += target.string().starts_with("socket:") ? 1U : 0U;
    }
    return count;
}

/// Removes the directory, and those above it that are empty then.
void removeInstallation(const std::string& directory) {
    std::error_code error;
    (void)std::filesystem::remove_all(directory, error);
    EXPECT_FALSE(error) << directory << ": " << error.message();
    std::filesystem::path above = std::filesystem::path(directory).parent_path();
    while (above.has_relative_path() && above != "/opt" && rmdir(above.c_str()) == 0) {
        above = above.parent_path();
    }
}

} // namespace

DaemonDriver::DaemonDriver(std::string directory)
    : m_directory(std::move(directory)), m_namesBefore(allNames()) {
    EXPECT_FALSE(exists(m_directory)) << m_directory << " is somebody else's";
    for (const std::string& installed : {program(), client(), requestor()}) {
        copyProgram(builtProgram(std::filesystem::path(installed).filename()), installed);
    }
}

DaemonDriver::~DaemonDriver() {
    endProcesses();
    for (const std::string& name : newNames()) {
        (void)unlink(name.c_str());
    }
    removeInstallation(m_directory);
}

void DaemonDriver::endProcesses() {
    const bool ended = waitUntil([this]() {
        std::vector<pid_t> running = processesRunning(program());
        for (const std::string& other : {client(), requestor()}) {
            const std::vector<pid_t> more = processesRunning(other);
            running.insert(running.end(), more.begin(), more.end());
        }
        for (const pid_t pid : running) {
            (void)kill(pid, SIGKILL);
            (void)waitForEndOf(pid, Milliseconds(0)); // those that are not ours yet will be in a moment
        }
        return running.empty();
    });
    EXPECT_TRUE(ended) << "processes of " << m_directory << " cannot be ended";
}

void DaemonDriver::installAsClient(const std::string& name) const {
    EXPECT_EQ(unlink(client().c_str()), 0);
    copyProgram(builtProgram(name), client());
}

Launch DaemonDriver::launch(const std::vector<std::string>& arguments) const {
    std::vector<std::string> words = wordsOf("ZNORB_WRAPPER");
    words.push_back(program());
    words.insert(words.end(), arguments.begin(), arguments.end());
    Launch result;
    result.program = words.front();
    result.arguments.assign(words.begin() + 1, words.end());
    result.environment = m_reports.environment();
    result.environment.push_back(runningTestSetting());
    result.environment.insert(result.environment.end(), m_environment.begin(), m_environment.end());
    return result;
}

ProgramResult DaemonDriver::run(const std::vector<std::string>& arguments, Milliseconds bound) const {
    return runProgram(launch(arguments), bound);
}

bool DaemonDriver::start(const std::vector<std::string>& more) {
    std::vector<std::string> arguments = {"-d"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const std::vector<pid_t> before = childrenOf(getpid());
    m_startResult = run(arguments);
    m_daemonEnd = stillRunning();
    m_daemon = -1;
    return m_startResult.end == exitedWith(0) &&
           waitUntil([this, &before]() { return (m_daemon = findDaemon(before)) != -1; });
}

bool DaemonDriver::startServing(const std::vector<std::string>& more) {
    return start(more) && waitUntil([]() { return askDaemon("PRINT") == "0"; }) &&
           waitUntil([this]() { return openSocketsOf(m_daemon) == 1; });
}

pid_t DaemonDriver::findDaemon(const std::vector<pid_t>& others) {
    for (const pid_t pid : childrenOf(getpid())) {
        if (contains(others, pid) || !isDaemonsName(nameOf(pid))) {
            continue;
        }
        if (getpgid(pid) != pid) {
            return pid;
        }
        (void)waitForEndOf(pid, Milliseconds(0)); // the intermediate process
    }
    return -1;
}

ProcessEnd DaemonDriver::waitForDaemon(Milliseconds bound) {
    if (m_daemon > 0 && m_daemonEnd == stillRunning()) {
        m_daemonEnd = waitForEndOf(m_daemon, bound);
    }
    return m_daemonEnd;
}

ProcessEnd DaemonDriver::endBy(int signal) {
    EXPECT_EQ(kill(m_daemon, signal), 0);
    return waitForDaemon();
}

ProcessEnd DaemonDriver::quit() {
    EXPECT_EQ(askDaemon("QUIT"), "0");
    return waitForDaemon();
}

std::unique_ptr<ChildProcess> DaemonDriver::startTestConsole() const {
    Launch console = launch({"-test"});
    console.withInput = true;
    return std::make_unique<ChildProcess>(console);
}

std::unique_ptr<ChildProcess> DaemonDriver::startServingConsole() const {
    std::unique_ptr<ChildProcess> console = startTestConsole();
    EXPECT_TRUE(waitUntil([]() { return askDaemon("PRINT") == "0"; }));
    return console;
}

std::unique_ptr<ChildProcess> DaemonDriver::startUnderInit() const {
    Launch daemon = launch({"-d"});
    daemon.asChildOfInit = true;
    auto process = std::make_unique<ChildProcess>(daemon);
    EXPECT_TRUE(waitUntil([]() { return askDaemon("PRINT") == "0"; }));
    return process;
}

std::vector<pid_t> DaemonDriver::clients() const {
    return processesRunning(client());
}

bool DaemonDriver::waitForClient(unsigned index, Milliseconds bound) {
    return waitUntil(bound, [index]() {
        const std::optional<znorb_shared_table> table = readSharedTable();
        return table.has_value() && table->entries[index].port != 0;
    });
}

std::vector<std::string> DaemonDriver::newNames() const {
    std::vector<std::string> result;
    for (const std::string& path : allNames()) {
        if (!std::binary_search(m_namesBefore.begin(), m_namesBefore.end(), path)) {
            result.push_back(path);
        }
    }
    return result;
}

} // namespace ZNORBTEST
