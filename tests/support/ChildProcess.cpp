#include "tests/support/ChildProcess.h"

#include "tests/support/Files.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

namespace ZNORBTEST {
namespace {

constexpr uid_t nobody = 65534;
constexpr int notExecuted = 127;

/// Everything that the child needs between fork and exec, where it must not allocate.
class Preparation {
public:
    Preparation(const Launch& launch, int input, int output, int errors)
        : m_program(launch.program),
          m_directory(launch.workingDirectory),
          m_ordinaryUser(launch.asOrdinaryUser),
          m_descriptors{input, output, errors} {
        m_words.push_back(launch.program);
        m_words.insert(m_words.end(), launch.arguments.begin(), launch.arguments.end());
        m_argv = argumentsOf(m_words);
        prepareEnvironment(launch.environment);
    }
    Preparation(const Preparation&) = delete;
    Preparation& operator=(const Preparation&) = delete;

    /// Whether another user can be had only in a user namespace of the child's own: where this process'
    /// namespace knows no user but root.
    bool needsNamespace() const { return m_ordinaryUser && geteuid() == 0 && !knowsNobody(); }

    [[noreturn]] void execute() const {
        for (int i = 0; i < 3; ++i) {
            (void)dup2(m_descriptors[i], i);
        }
        if (!m_directory.empty() && chdir(m_directory.c_str()) != 0) {
            _exit(notExecuted);
        }
        if (m_ordinaryUser && geteuid() == 0 &&
            (setgroups(0, nullptr) != 0 || setgid(nobody) != 0 || setuid(nobody) != 0)) {
            _exit(notExecuted);
        }
        (void)execve(m_program.c_str(), m_argv.data(), m_environment.data());
        _exit(notExecuted);
    }

private:
    static std::string nameIn(const std::string& setting) { return setting.substr(0, setting.find('=') + 1); }

    /// Only a namespace that maps many users knows that one.
    static bool knowsNobody() {
        char text[256] = {};
        const Descriptor file(open("/proc/self/uid_map", O_RDONLY | O_CLOEXEC));
        const ssize_t length = read(file.get(), text, sizeof text - 1);
        const char* last = length > 0 ? std::strrchr(text, ' ') : nullptr;
        return last == nullptr || std::strtol(last, nullptr, 10) > static_cast<long>(nobody);
    }

    void prepareEnvironment(const std::vector<std::string>& settings) {
        for (char** entry = environ; *entry != nullptr; ++entry) {
            bool replaced = false;
            for (const std::string& setting : settings) {
                replaced =
                    replaced || std::string(*entry).compare(0, nameIn(setting).size(), nameIn(setting)) == 0;
            }
            if (!replaced) {
                m_settings.emplace_back(*entry);
            }
        }
        m_settings.insert(m_settings.end(), settings.begin(), settings.end());
        m_environment = argumentsOf(m_settings);
    }

    std::string m_program;
    std::string m_directory;
    bool m_ordinaryUser;
    int m_descriptors[3];
    std::vector<std::string> m_words;
    std::vector<std::string> m_settings;
    std::vector<char*> m_argv;
    std::vector<char*> m_environment;
};

pid_t forkAndExecute(const Preparation& preparation) {
    const pid_t pid = preparation.needsNamespace()
                          ? static_cast<pid_t>(syscall(SYS_clone, CLONE_NEWUSER | SIGCHLD, nullptr, nullptr,
                                                       nullptr, nullptr))
                          : fork();
    if (pid == 0) {
        preparation.execute();
    }
    return pid;
}

/// A child that starts the program and ends, while nobody here is a subreaper: so pid 1 inherits it. The
/// program starts only when that has happened.
pid_t executeUnderInit(const Preparation& preparation) {
    int report[2];
    if (pipe2(report, O_CLOEXEC) != 0) {
        return -1;
    }
    (void)prctl(PR_SET_CHILD_SUBREAPER, 0);
    const pid_t between = fork();
    if (between == 0) {
        const pid_t self = getpid();
        const pid_t pid = fork();
        if (pid == 0) {
            while (getppid() == self) {
                (void)usleep(1000);
            }
            preparation.execute();
        }
        _exit(write(report[1], &pid, sizeof pid) == sizeof pid ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    (void)close(report[1]);
    pid_t pid = -1;
    if (between == -1 || read(report[0], &pid, sizeof pid) != sizeof pid) {
        pid = -1;
    }
    (void)close(report[0]);
    if (between != -1) {
        (void)waitpid(between, nullptr, 0);
    }
    (void)prctl(PR_SET_CHILD_SUBREAPER, 1);
    return pid;
}

} // namespace

std::vector<char*> argumentsOf(std::vector<std::string>& words) {
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    return arguments;
}

ChildProcess::ChildProcess(const Launch& launch)
    : m_output(memfd_create("output", MFD_CLOEXEC)), m_errors(memfd_create("errors", MFD_CLOEXEC)) {
    int input[2] = {-1, -1};
    if (launch.withInput) {
        EXPECT_EQ(pipe2(input, O_CLOEXEC), 0) << std::strerror(errno);
        m_input.reset(input[1]);
    } else {
        input[0] = open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    const Descriptor childsInput(input[0]);
    EXPECT_TRUE(childsInput.isOpen() && m_output.isOpen() && m_errors.isOpen()) << std::strerror(errno);
    start(launch, childsInput.get());
    EXPECT_NE(m_pid, -1) << launch.program << " cannot be started: " << std::strerror(errno);
}

void ChildProcess::start(const Launch& launch, int input) {
    const Preparation preparation(launch, input, m_output.get(), m_errors.get());
    m_pid = launch.asChildOfInit ? executeUnderInit(preparation) : forkAndExecute(preparation);
}

ChildProcess::~ChildProcess() {
    if (m_pid > 0 && waitForEnd(Milliseconds(0)) == stillRunning()) {
        (void)kill(m_pid, SIGKILL);
        EXPECT_NE(waitForEnd(), stillRunning()) << "process " << m_pid;
    }
}

ProcessEnd ChildProcess::waitForEnd(Milliseconds bound) {
    if (m_pid > 0 && m_end == stillRunning()) {
        m_end = waitForEndOf(m_pid, bound);
    }
    return m_end;
}

std::string ChildProcess::output() const {
    return contentOf(m_output.get());
}

std::string ChildProcess::errors() const {
    return contentOf(m_errors.get());
}

std::string ChildProcess::outputFrom(std::size_t start) const {
    return contentOf(m_output.get(), start);
}

bool ChildProcess::waitForOutput(const std::string& text, Milliseconds bound) const {
    return waitUntil([this, &text]() { return output().find(text) != std::string::npos; }, bound);
}

bool ChildProcess::writeInput(const std::string& text) const {
    return write(m_input.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

ProgramResult runProgram(const Launch& launch, Milliseconds bound) {
    ChildProcess process(launch);
    const ProcessEnd end = process.waitForEnd(bound);
    return {end, process.output(), process.errors()};
}

} // namespace ZNORBTEST
