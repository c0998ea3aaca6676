#include "tests/responder/clients/StandInClient.h"

#include "tests/responder/paths/ExecutableLink.h"
#include "tests/support/Files.h"
#include "tests/support/Waiting.h"
#include "tests/support/Words.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>

namespace ZNORBTEST {
namespace {

constexpr const char* programName = "/znorbclient";
constexpr const char* gateName = "/gate";
constexpr unsigned gateSeconds = 60;
constexpr const char* recordName = "/start-"; ///< followed by the process' id and what it holds

std::string recordPath(const std::string& directory, pid_t process, const std::string& part) {
    return directory + recordName + std::to_string(process) + part;
}

// ---- the stand-in: runs before main, without GoogleTest ------------------------------------------------

void store(const std::string& path, const std::string& content) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (file == -1 || write(file, content.data(), content.size()) != static_cast<ssize_t>(content.size())) {
        _exit(EXIT_FAILURE);
    }
    (void)close(file);
}

std::string openDescriptors() {
    constexpr int some = 1024;
    std::string text;
    for (int descriptor = 0; descriptor < some; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) != -1) {
            text += std::to_string(descriptor) + "\n";
        }
    }
    return text;
}

[[noreturn]] void standIn(const std::string& words, const std::string& program) {
    const std::string directory = program.substr(0, program.rfind('/'));
    char current[PATH_MAX];
    store(recordPath(directory, getpid(), ".descriptors"), openDescriptors());
    store(recordPath(directory, getpid(), ".table"), readFileIfAny("/dev/shm/znorb.shvars"));
    store(recordPath(directory, getpid(), ".words"), words);
    store(recordPath(directory, getpid(), ".directory"),
          getcwd(current, sizeof current) != nullptr ? current : "");
    store(recordPath(directory, getpid(), ".complete"), "");
    (void)alarm(gateSeconds); // nobody may ever open it
    const int gate = open((directory + gateName).c_str(), O_RDONLY | O_CLOEXEC);
    char pass = 0;
    _exit(gate == -1 || read(gate, &pass, 1) == 1 ? EXIT_SUCCESS : EXIT_FAILURE);
}

bool becomeStandInIfAsked() {
    const std::string words = readFileIfAny("/proc/self/cmdline");
    const std::string program = words.substr(0, words.find('\0'));
    if (program.ends_with(programName)) {
        standIn(words, program);
    }
    return false;
}

[[maybe_unused]] const bool s_isStandIn = becomeStandInIfAsked();

// ---- the test's side -----------------------------------------------------------------------------------

} // namespace

void installStandInClient(const std::string& directory) {
    const std::string program = directory + programName;
    EXPECT_EQ(symlink(realExecutable().c_str(), program.c_str()), 0) << program;
}

void closeGate(const std::string& directory) {
    EXPECT_EQ(mkfifo((directory + gateName).c_str(), 0600), 0);
}

bool openGate(const std::string& directory) {
    int gate = -1;
    (void)waitUntil([&gate, &directory]() {
        gate = open((directory + gateName).c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        return gate != -1; // before, nobody waits
    });
    const bool released = gate != -1 && write(gate, "x", 1) == 1;
    if (gate != -1) {
        (void)close(gate);
    }
    return released;
}

bool waitForStart(const std::string& directory, pid_t process) {
    return waitUntil([&directory, process]() { return exists(recordPath(directory, process, ".complete")); });
}

ClientStart startOf(const std::string& directory, pid_t process) {
    ClientStart start;
    start.words = wordsOf(readFile(recordPath(directory, process, ".words")));
    start.directory = readFile(recordPath(directory, process, ".directory"));
    start.table = readFile(recordPath(directory, process, ".table"));
    for (const std::string& number :
         partsOf(readFile(recordPath(directory, process, ".descriptors")), "\n")) {
        start.descriptors.push_back(std::stoi(number));
    }
    return start;
}

std::vector<pid_t> startedFrom(const std::string& directory) {
    const std::string prefix = recordName + 1;
    const std::string ending = ".complete";
    std::vector<pid_t> processes;
    for (const std::string& name : namesIn(directory)) {
        if (name.starts_with(prefix) && name.ends_with(ending)) {
            processes.push_back(static_cast<pid_t>(std::stol(name.substr(prefix.size()))));
        }
    }
    std::sort(processes.begin(), processes.end());
    return processes;
}

} // namespace ZNORBTEST
