/// What a launched client gets from the real daemon, whatever the daemon's starter was like. A program that
/// changes nothing stands in the client's place; /proc tells what it was given. Each test prints what it
/// pins.

#include "tests/sandbox/Processes.h"
#include "tests/sandbox/Sandbox.h"
#include "tests/support/DaemonDriver.h"
#include "tests/support/Files.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Matchers.h"
#include "tests/support/Rows.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Words.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>

namespace {

using namespace ZNORBTEST;

using Signals = std::set<int>;

const Signals ignoredByTheDaemon = {SIGHUP, SIGCHLD, SIGTSTP, SIGTTIN, SIGTTOU};

/// Those that can be ignored and blocked at all, the real-time ones included; not the two in between that the
/// C library keeps for itself.
Signals everySignal() {
    Signals signals;
    for (int number = 1; number <= SIGRTMAX; ++number) {
        const bool isFixed = number == SIGKILL || number == SIGSTOP;
        if (!isFixed && (number < __SIGRTMIN || number >= SIGRTMIN)) {
            (void)signals.insert(number);
        }
    }
    return signals;
}

/// What /proc tells about one process.
class Witness {
public:
    explicit Witness(pid_t pid) : m_pid(pid), m_folder("/proc/" + std::to_string(pid) + "/") {}

    [[nodiscard]] std::vector<std::string> words(const std::string& file) const {
        return wordsOf(readFile(m_folder + file));
    }

    [[nodiscard]] std::string text(const std::string& file) const { return readFile(m_folder + file); }

    [[nodiscard]] std::string link(const std::string& name) const { return linkOf(m_pid, name); }

    /// Open descriptors and what they lead to.
    [[nodiscard]] std::map<int, std::string> descriptors() const {
        std::map<int, std::string> result;
        for (const std::string& name : namesIn(m_folder + "fd")) {
            result[std::stoi(name)] = link("fd/" + name);
        }
        return result;
    }

    /// Whether a descriptor is for reading, for writing, or both: O_RDONLY, O_WRONLY or O_RDWR.
    [[nodiscard]] int accessOf(int descriptor) const {
        const std::string info = readFile(m_folder + "fdinfo/" + std::to_string(descriptor));
        return std::stoi(info.substr(info.find("flags:") + 6), nullptr, 8) & O_ACCMODE;
    }

    /// A line of the status, such as "Umask".
    [[nodiscard]] std::string status(const std::string& field) const {
        const std::optional<std::string> value = statusField(m_pid, field);
        EXPECT_TRUE(value.has_value()) << field;
        return value.value_or("");
    }

    [[nodiscard]] Signals signals(const std::string& field) const {
        const unsigned long long bits = std::stoull(status(field), nullptr, 16);
        Signals result;
        for (int number = 1; number <= SIGRTMAX; ++number) {
            if ((bits >> (number - 1) & 1) != 0) {
                (void)result.insert(number);
            }
        }
        return result;
    }

    /// A field of the one-line status by its number in the manual, where the state is the third.
    [[nodiscard]] std::string field(std::size_t number) const {
        const std::string line = text("stat");
        return partsOf(line.substr(line.rfind(')') + 2), " ")[number - 3];
    }
    [[nodiscard]] long number(std::size_t number) const { return std::stol(field(number)); }
    [[nodiscard]] std::string state() const { return field(3); }
    [[nodiscard]] pid_t parent() const { return static_cast<pid_t>(number(4)); }
    [[nodiscard]] pid_t group() const { return static_cast<pid_t>(number(5)); }
    [[nodiscard]] pid_t session() const { return static_cast<pid_t>(number(6)); }
    [[nodiscard]] long terminal() const { return number(7); }
    [[nodiscard]] long niceness() const { return number(19); }

private:
    pid_t m_pid;
    std::string m_folder;
};

std::string inWords(const Signals& signals) {
    std::string text;
    for (const int number : signals) {
        const char* name = sigabbrev_np(number);
        text += (text.empty() ? "" : " ") + (name != nullptr ? std::string(name) : std::to_string(number));
    }
    return text.empty() ? "none" : text;
}

void print(const std::string& what, const std::string& value) {
    std::printf("  %-20s %s\n", what.c_str(), value.c_str());
    testing::Test::RecordProperty(what, value);
}

void openEverything() {
    const int source = open("/dev/null", O_RDWR);
    for (int descriptor = 3; descriptor < 1024; ++descriptor) {
        if (descriptor < 10 || descriptor >= 100) {
            (void)dup2(source, descriptor);
        }
    }
}

void closeStandardDescriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        (void)close(descriptor);
    }
}

void blockEverything() {
    sigset_t all;
    (void)sigfillset(&all);
    (void)sigprocmask(SIG_SETMASK, &all, nullptr);
}

void ignoreEverything() {
    for (const int number : everySignal()) {
        (void)std::signal(number, SIG_IGN);
    }
}

void doNothing() {}

class ClientEnvironment : public testing::Test {
protected:
    ClientEnvironment() { driver.installAsClient("znorb-waiter"); }

    /// Becomes `znorbresponder -d`, altered by `prepare`.
    int becomeStarter(const std::function<void()>& prepare) const {
        const Launch launch = driver.launch({"-d"});
        for (const std::string& setting : launch.environment) {
            (void)putenv(strdup(setting.c_str()));
        }
        std::vector<std::string> words = {launch.program};
        words.insert(words.end(), launch.arguments.begin(), launch.arguments.end());
        const std::vector<char*> arguments = argumentsOf(words);
        prepare();
        (void)execv(launch.program.c_str(), arguments.data());
        return 127;
    }

    /// Starts the daemon from a process that `prepare` has altered, and launches the first client.
    void launchFrom(const std::function<void()>& prepare) {
        ASSERT_EQ(endOfForked([this, &prepare]() { return becomeStarter(prepare); }), exitedWith(0));
        ASSERT_TRUE(waitUntil([]() { return askDaemon("PRINT") == "0"; }));
        launch();
    }

    void launch() {
        ASSERT_EQ(askDaemon("GET|en"), "0");
        ASSERT_TRUE(waitUntil([this]() { return isAtRest(); }));
    }

    /// Whether the client is there and waits, with everything behind it that comes before its first line.
    [[nodiscard]] bool isAtRest() const {
        const std::vector<pid_t> clients = driver.clients();
        return clients.size() == 1 && Witness(clients[0]).state() == "S";
    }

    [[nodiscard]] Witness client() const { return Witness(driver.clients().at(0)); }

    void expectDescriptors() const {
        const std::map<int, std::string> found = client().descriptors();
        print("descriptors", std::to_string(found.size()));
        for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            print("descriptor_" + std::to_string(descriptor),
                  client().link("fd/" + std::to_string(descriptor)));
        }
        const std::map<int, std::string> expected = {{0, "/dev/null"}, {1, "/dev/null"}, {2, "/dev/null"}};
        EXPECT_EQ(found, expected);
        EXPECT_EQ(client().accessOf(0), O_RDONLY);
        EXPECT_EQ(client().accessOf(1), O_WRONLY);
        EXPECT_EQ(client().accessOf(2), O_WRONLY);
    }

    void expectSignals(const Signals& ignored) const {
        print("blocked", inWords(client().signals("SigBlk")));
        print("ignored", inWords(client().signals("SigIgn")));
        print("caught", inWords(client().signals("SigCgt")));
        EXPECT_THAT(client().signals("SigBlk"), IsEmpty());
        EXPECT_THAT(client().signals("SigCgt"), IsEmpty());
        EXPECT_EQ(client().signals("SigIgn"), ignored);
    }

    void expectUmask() const {
        print("umask", client().status("Umask"));
        EXPECT_EQ(client().status("Umask"), "0000");
    }

    DaemonDriver driver;
};

/// What the starter has done to itself.
struct Starter {
    const char* name;
    void (*prepare)();

    friend void PrintTo(const Starter& row, std::ostream* stream) { *stream << row.name; }
};

class ClientOfAnyStarter : public ClientEnvironment, public testing::WithParamInterface<Starter> {};

TEST_P(ClientOfAnyStarter, HasTheStandardDescriptorsAloneNoSignalBlockedAndNoUmask) {
    launchFrom(GetParam().prepare);
    expectDescriptors();
    expectSignals(ignoredByTheDaemon);
    expectUmask();
}

const Starter starters[] = {
    {"Unprepared", doNothing},
    {"WithEverythingOpen", openEverything},
    {"WithoutStandardDescriptors", closeStandardDescriptors},
    {"WithEverySignalBlocked", blockEverything},
    {"WithAFullUmask", []() { (void)umask(0777); }},
    {"WithoutAUmask", []() { (void)umask(0); }},
};

INSTANTIATE_TEST_SUITE_P(ClientEnvironment, ClientOfAnyStarter, testing::ValuesIn(starters), rowName);

TEST_F(ClientEnvironment, IgnoresWhatTheStarterIgnoredExceptWhatTheDaemonHandles) {
    launchFrom(ignoreEverything);
    Signals ignored = everySignal();
    for (const int handled : {SIGTERM, SIGBUS}) {
        (void)ignored.erase(handled);
    }
    if (underSanitizer) { // which handles these two as well
        (void)ignored.erase(SIGSEGV);
        (void)ignored.erase(SIGFPE);
    }
    expectSignals(ignored);
}

TEST_F(ClientEnvironment, IsAChildOfTheDaemonInItsGroupAndSession) {
    ASSERT_TRUE(driver.startServing());
    launch();
    const Witness daemon(driver.daemon());
    print("parent", client().parent() == driver.daemon() ? "the daemon" : "somebody else");
    print("process_group", client().group() == daemon.group() ? "the daemon's" : "another");
    print("session", client().session() == getsid(0) ? "the starter's" : "another");
    EXPECT_EQ(client().parent(), driver.daemon());
    EXPECT_EQ(client().group(), daemon.group());
    EXPECT_NE(client().group(), getpgrp());
    EXPECT_EQ(client().session(), daemon.session());
    EXPECT_EQ(client().session(), getsid(0));
}

TEST_F(ClientEnvironment, RunsInItsDirectoryWithTheDocumentedArgumentsAlone) {
    launchFrom([]() { (void)!chdir("/dev/shm"); });
    print("working_directory", client().link("cwd"));
    EXPECT_EQ(client().link("cwd"), driver.directory());
    EXPECT_EQ(client().link("root"), "/");
    std::string line;
    for (const std::string& word : client().words("cmdline")) {
        line += "[" + word + "]";
    }
    print("arguments", line);
    EXPECT_THAT(client().words("cmdline"),
                ElementsAre(driver.client(), "-lang", "en", "-wbx", "-index", "0"));
}

TEST_F(ClientEnvironment, GetsTheStartersEnvironmentAsItWas) {
    const TemporaryFolder folder;
    const std::string record = folder / "environment";
    launchFrom([&record]() {
        (void)setenv("ZNORB_HTML_PATH", "a value", 1);
        (void)setenv("EMPTY", "", 1);
        std::string settings;
        for (char** setting = environ; *setting != nullptr; ++setting) {
            settings += std::string(*setting) + '\0';
        }
        writeFile(record, settings);
    });
    std::vector<std::string> expected = wordsOf(readFile(record));
    std::vector<std::string> found = client().words("environ");
    std::sort(expected.begin(), expected.end());
    std::sort(found.begin(), found.end());
    print("environment", "the starter's " + std::to_string(found.size()) + " variables");
    EXPECT_TRUE(found == expected); // unnamed: there may be secrets among them
    EXPECT_TRUE(std::binary_search(found.begin(), found.end(), "ZNORB_HTML_PATH=a value"));
    EXPECT_TRUE(std::binary_search(found.begin(), found.end(), "EMPTY="));
}

TEST_F(ClientEnvironment, KeepsTheStartersLimitsAndNiceness) {
    const TemporaryFolder folder;
    const std::string record = folder / "limits";
    launchFrom([&record]() {
        const std::map<__rlimit_resource_t, rlimit> limits = {
            {RLIMIT_CORE, {0, 0}}, {RLIMIT_NOFILE, {777, 1999}}, {RLIMIT_FSIZE, {1U << 30, RLIM_INFINITY}}};
        for (const auto& [resource, limit] : limits) {
            (void)setrlimit(resource, &limit);
        }
        (void)setpriority(PRIO_PROCESS, 0, 7);
        writeFile(record, readFile("/proc/self/limits"));
    });
    print("niceness", std::to_string(client().niceness()));
    std::printf("%s", client().text("limits").c_str());
    EXPECT_EQ(client().text("limits"), readFile(record));
    EXPECT_EQ(client().niceness(), 7);
}

TEST_F(ClientEnvironment, RunsAsTheDaemonsUserWithItsGroupsAndCapabilities) {
    ASSERT_TRUE(driver.startServing());
    launch();
    const Witness daemon(driver.daemon());
    for (const char* field : {"Uid", "Gid", "Groups", "CapInh", "CapPrm", "CapEff", "CapBnd", "CapAmb",
                              "NoNewPrivs", "Seccomp"}) {
        print(field, client().status(field));
        EXPECT_EQ(client().status(field), daemon.status(field)) << field;
        EXPECT_EQ(client().status(field), Witness(getpid()).status(field)) << field;
    }
    EXPECT_EQ(client().status("Uid"), "0\t0\t0\t0");
}

TEST_F(ClientEnvironment, HasTheStartersTerminalWhichTheDaemonKeeps) {
    enum Verdict { Same, NoTerminal, NotStarted, NoClient, Different };
    const auto findOut = [this]() {
        const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (setsid() == -1 || terminal == -1 || grantpt(terminal) != 0 || unlockpt(terminal) != 0 ||
            open(ptsname(terminal), O_RDWR | O_CLOEXEC) ==
                -1) { // the first one that a session's leader opens
            return NoTerminal;
        }
        if (endOfForked([this]() { return becomeStarter(doNothing); }) != exitedWith(0)) {
            return NotStarted;
        }
        const bool isLaunched = waitUntil([]() { return askDaemon("GET|en").has_value(); }) &&
                                waitUntil([this]() { return isAtRest(); });
        if (!isLaunched) {
            return NoClient;
        }
        const Witness self(getpid());
        const bool isSame =
            self.terminal() != 0 && client().terminal() == self.terminal() && client().session() == getpid();
        return isSame ? Same : Different;
    };
    const ProcessEnd end = endOfForked(findOut, 3 * usualBound); // it waits up to three times
    ZNORB_SKIP_IF(end == exitedWith(NoTerminal)) << "there are no pseudo-terminals here";
    EXPECT_EQ(end, exitedWith(Same));
    print("terminal", "the starter's, while that lives");
}

class ClientOfADaemonOfProcessOne : public ClientEnvironment {
protected:
    void SetUp() override {
        ZNORB_SKIP_IF(currentSandboxMode() != SandboxMode::Isolated)
            << "only in namespaces of its own can a test be started by process 1";
        process = driver.startUnderInit();
        launch();
    }

    std::unique_ptr<ChildProcess> process;
};

TEST_F(ClientOfADaemonOfProcessOne, HasTheSameDescriptorsUmaskAndDirectoryAndIgnoresTheEndsOfChildrenAlone) {
    expectDescriptors();
    expectUmask();
    EXPECT_EQ(client().link("cwd"), driver.directory());
    expectSignals({SIGCHLD});
}

class ClientOfTheTestConsole : public ClientEnvironment {
protected:
    void launchFromConsole() {
        console = driver.startServingConsole();
        launch();
    }

    std::unique_ptr<ChildProcess> console;
};

TEST_F(ClientOfTheTestConsole,
       SharesTheTestersDescriptorsAndUmaskButNoSocketAndIgnoresTheEndsOfChildrenAlone) {
    const mode_t before = umask(027);
    launchFromConsole();
    (void)umask(before);
    print("umask", client().status("Umask"));
    EXPECT_EQ(client().status("Umask"), "0027");
    expectSignals({SIGCHLD});
    const std::map<int, std::string> testers = Witness(console->pid()).descriptors();
    for (const auto& [descriptor, target] : client().descriptors()) {
        print("descriptor_" + std::to_string(descriptor), target);
        ASSERT_TRUE(testers.count(descriptor) == 1) << descriptor;
        EXPECT_EQ(target, testers.at(descriptor)) << descriptor;
        EXPECT_FALSE(target.starts_with("socket:")) << descriptor;
    }
    EXPECT_GE(client().descriptors().size(), 3U);
}

} // namespace
