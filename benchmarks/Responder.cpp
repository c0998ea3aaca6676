#include "benchmarks/Responder.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

namespace ZNORBBENCH {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* socketPath = "/var/run/znorb.socket";
constexpr const char* lockFile = "/dev/shm/sem.znorb.appLock";
constexpr auto waitLimit = std::chrono::seconds(30);

/// Polls as fast as it can: what is measured ends with it.
void await(const char* what, const std::function<bool()>& holds) {
    const auto limit = Clock::now() + waitLimit;
    while (!holds()) {
        if (Clock::now() > limit) {
            fail(std::string("waited too long for ") + what);
        }
        (void)sched_yield();
    }
}

/// A descriptor that is closed with its owner.
class Descriptor {
public:
    explicit Descriptor(int number) : m_number(number) {}
    ~Descriptor() { (void)close(m_number); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    [[nodiscard]] int number() const { return m_number; }

private:
    int m_number;
};

/// False when nobody listens. Nothing that is received afterwards is waited for longer than the limit.
bool connectTo(const Descriptor& connection) {
    const timeval limit = {waitLimit.count(), 0};
    (void)setsockopt(connection.number(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    (void)std::strcpy(address.sun_path, socketPath);
    return connect(connection.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool isServed() {
    const Descriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    char reply = 0;
    return connectTo(connection) && send(connection.number(), "?", 1, MSG_NOSIGNAL) == 1 &&
           recv(connection.number(), &reply, 1, 0) == 1;
}

/// Who listens on the socket.
pid_t findServer() {
    const Descriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ucred credentials = {};
    socklen_t length = sizeof credentials;
    if (!connectTo(connection) ||
        getsockopt(connection.number(), SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0) {
        fail("nobody listens");
    }
    return credentials.pid;
}

/// When a program took the place of the process that executed it, and what that had cost by then: noted
/// there.
class Execution {
public:
    Execution()
        : m_note(static_cast<Note*>(
              mmap(nullptr, sizeof(Note), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
        if (m_note == MAP_FAILED) {
            fail("no memory");
        }
        note();
    }
    ~Execution() { (void)munmap(m_note, sizeof *m_note); }
    Execution(const Execution&) = delete;
    Execution& operator=(const Execution&) = delete;

    void note() const {
        rusage usage = {};
        (void)getrusage(RUSAGE_SELF, &usage);
        *m_note = {Clock::now(), usage.ru_minflt};
    }
    [[nodiscard]] Seconds past() const { return Clock::now() - m_note->moment; }
    [[nodiscard]] long faultsBefore() const { return m_note->faults; }

private:
    struct Note {
        Clock::time_point moment;
        long faults;
    };
    Note* m_note;
};

pid_t spawn(std::vector<std::string> words, int processor, const Execution& execution) {
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        if (processor != -1) {
            pinTo(processor);
        }
        (void)dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
        execution.note();
        (void)execvp(arguments[0], arguments.data());
        _exit(127);
    }
    return pid;
}

std::string contentOf(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

std::vector<pid_t> threadsOf(pid_t process) {
    std::vector<pid_t> threads;
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        threads.push_back(static_cast<pid_t>(std::stol(entry.path().filename().string())));
    }
    return threads;
}

/// The page faults without input or output that a process or a thread, by its folder in /proc, has had so
/// far.
long minorFaultsOf(const std::string& folder) {
    // The tenth word; the second one is the name in parentheses.
    const std::string text = contentOf(folder + "/stat");
    std::istringstream words(text.substr(text.rfind(')') + 1));
    std::string word;
    for (int number = 3; number <= 10; ++number) {
        words >> word;
    }
    return std::stol(word);
}

bool isTraced(pid_t thread) {
    return contentOf("/proc/" + std::to_string(thread) + "/status").find("TracerPid:\t0\n") ==
           std::string::npos;
}

} // namespace

void fail(const std::string& what) {
    (void)std::fprintf(stderr, "bench: FAILED: %s\n", what.c_str());
    std::exit(1);
}

void adoptOrphans() {
    if (prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0) {
        fail("orphans cannot be adopted");
    }
}

void pinTo(int processor) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(static_cast<std::size_t>(processor), &set);
    if (sched_setaffinity(0, sizeof set, &set) != 0) {
        fail("no such processor");
    }
}

std::string ask(const std::string& request) {
    const Descriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    char reply[64];
    if (!connectTo(connection) ||
        send(connection.number(), request.data(), request.size(), MSG_NOSIGNAL) == -1) {
        fail("cannot send " + request);
    }
    const ssize_t length = recv(connection.number(), reply, sizeof reply, 0);
    if (length <= 0) {
        fail("no reply to " + request);
    }
    return {reply, static_cast<std::size_t>(length)};
}

Responder::Responder(const std::string& program, const std::string& argument, int processor, Started end) {
    std::vector<std::string> words = {program, "-d"};
    if (!argument.empty()) {
        words.push_back(argument);
    }
    (void)unlink(socketPath);
    const Execution execution;
    const pid_t invoked = spawn(words, processor, execution);
    int status = -1;
    rusage usage = {};
    const std::function<bool()> isExited = [&] {
        return wait4(invoked, &status, WNOHANG, &usage) == invoked;
    };
    if (end == Started::Exited) {
        await("the program's exit", isExited);
        m_startTime = execution.past();
        await("the first reply", isServed);
    } else {
        await("the first reply", isServed);
        m_startTime = execution.past();
        await("the program's exit", isExited);
    }
    if (status != 0) {
        fail(program + " did not start");
    }
    m_startFaults = usage.ru_minflt - execution.faultsBefore();
    await("the end of the process between", [&usage] { return wait4(-1, nullptr, WNOHANG, &usage) > 0; });
    m_pid = findServer();
    m_startFaults += usage.ru_minflt + minorFaultsOf("/proc/" + std::to_string(m_pid));
}

Responder::~Responder() {
    if (m_pid != -1) {
        (void)quit();
    }
}

pid_t Responder::servingThread() const {
    const std::vector<pid_t> threads = threadsOf(m_pid);
    return *std::max_element(threads.begin(), threads.end());
}

std::vector<pid_t> Responder::clients() const {
    std::vector<pid_t> result;
    for (const pid_t thread : threadsOf(m_pid)) {
        std::istringstream children(
            contentOf("/proc/" + std::to_string(m_pid) + "/task/" + std::to_string(thread) + "/children"));
        for (pid_t child = 0; children >> child;) {
            result.push_back(child);
        }
    }
    return result;
}

void Responder::awaitClientsEnd() const {
    await("the clients' end", [this] { return clients().empty(); });
}

Seconds Responder::quit() {
    std::vector<pid_t> processes = clients();
    processes.push_back(m_pid);
    std::vector<pollfd> ends;
    for (const pid_t process : processes) {
        ends.push_back({static_cast<int>(syscall(SYS_pidfd_open, process, 0)), POLLIN, 0});
    }
    const auto start = Clock::now();
    (void)ask("QUIT");
    for (pollfd& end : ends) {
        if (poll(&end, 1, static_cast<int>(std::chrono::milliseconds(waitLimit).count())) != 1) {
            fail("somebody outlives QUIT");
        }
    }
    const Seconds duration = Clock::now() - start;
    for (const pollfd& end : ends) {
        (void)close(end.fd);
    }
    (void)waitpid(m_pid, nullptr, 0);
    m_pid = -1;
    await("the end of the lock", [] { return access(lockFile, F_OK) != 0; });
    return duration;
}

long Responder::memory(const std::string& name) const {
    std::istringstream lines(contentOf("/proc/" + std::to_string(m_pid) + "/smaps_rollup"));
    for (std::string word; lines >> word;) {
        if (word == name) {
            long value = 0;
            lines >> value;
            return value;
        }
    }
    fail("no " + name + " in smaps_rollup");
}

long Responder::minorFaults() const {
    return minorFaultsOf("/proc/" + std::to_string(m_pid) + "/task/" + std::to_string(servingThread()));
}

double Responder::systemCallsPer(const std::string& request, int count) const {
    const std::string log = "/tmp/znorb-bench-strace." + std::to_string(getpid());
    const pid_t thread = servingThread();
    const pid_t tracer = spawn({"strace", "-qq", "-o", log, "-p", std::to_string(thread)}, -1, Execution());
    bool isRefused = false;
    await("strace", [&] {
        isRefused = waitpid(tracer, nullptr, WNOHANG) == tracer;
        return isRefused || isTraced(thread);
    });
    if (isRefused) {
        return -1;
    }
    for (int number = 0; number < count; ++number) {
        (void)ask(request);
        awaitClientsEnd();
    }
    // The last request's end, and the next wait's beginning.
    await("the pause", [thread] {
        return contentOf("/proc/" + std::to_string(thread) + "/syscall")
            .starts_with(std::to_string(SYS_pselect6) + " ");
    });
    (void)kill(tracer, SIGINT);
    await("strace's end", [tracer] { return waitpid(tracer, nullptr, WNOHANG) == tracer; });
    const std::string calls = contentOf(log);
    (void)unlink(log.c_str());
    // From the first accept to the last close; the wait that each accept ends stands before the accept.
    const auto first = calls.begin() + static_cast<std::ptrdiff_t>(calls.find("accept4("));
    const auto last = calls.begin() + static_cast<std::ptrdiff_t>(calls.rfind("close("));
    return static_cast<double>(std::count(first, last, '\n') + 2) / count;
}

MappedTable::MappedTable() {
    const Descriptor object(shm_open(ZNORB_TABLE_NAME, O_RDWR, 0));
    void* const memory =
        mmap(nullptr, ZNORB_TABLE_SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, object.number(), 0);
    if (memory == MAP_FAILED) {
        fail("no table");
    }
    m_table = static_cast<znorb_shared_table*>(memory);
}

MappedTable::~MappedTable() {
    (void)munmap(m_table, ZNORB_TABLE_SIZE);
}

void MappedTable::fill(unsigned count, bool inUse) const {
    m_table->count = count;
    for (unsigned index = 0; index < count; ++index) {
        m_table->entries[index].in_use = inUse ? 1 : 0;
    }
}

void MappedTable::awaitRegistered(unsigned count) const {
    for (unsigned index = 0; index < count; ++index) {
        const volatile std::uint16_t& port = m_table->entries[index].port;
        await("the clients' ports", [&port] { return port != 0; });
    }
}

} // namespace ZNORBBENCH
