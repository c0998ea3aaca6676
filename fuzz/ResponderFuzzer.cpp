#include "common/processes/ProcessEvent.h"
#include "fuzz/support/Files.h"
#include "fuzz/support/Fuzzer.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/LogCapture.h"
#include "fuzz/support/Require.h"
#include "fuzz/support/Sockets.h"
#include "fuzz/support/TableImage.h"
#include "responder/Globals.h"
#include "responder/service/UnifiedResponderMonitor.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using namespace ZNORBFUZZ;
using ZNORBRESPONDER::SharedVariables;

namespace {

constexpr int objectDescriptor = Sockets::otherDescriptor;
constexpr const char* socketPath = "/var/run/znorb.socket";
constexpr const char* installation = "/opt/zn/znorb/bin";
constexpr std::size_t requestLimit = 1024;

/// What the rest of the system saw of one run: the shared object, the processes and the socket's file.
struct Kernel {
    std::unique_ptr<char[]> object; ///< exactly the table's bytes
    bool refusesObject = false;
    int forkResult = 0; ///< 0: the child, whose exec then fails, so that it goes on as the daemon
    bool isMapped = false;
    std::vector<std::string> calls; ///< what was asked for, in order
};

Kernel* s_kernel = nullptr;

std::string upToNul(const std::string& text) {
    return text.substr(0, text.find('\0'));
}

std::vector<std::string> split(const std::string& text) {
    std::vector<std::string> tokens(1);
    for (const char character : text) {
        if (character == '|') {
            tokens.emplace_back();
        } else {
            tokens.back() += character;
        }
    }
    return tokens;
}

/// The responder as its rules have it: the table, and what each request makes of it, of the log and of the
/// processes.
class Model {
public:
    explicit Model(const Kernel& kernel)
        : m_kernel(kernel), m_table(std::string(sizeof(SharedVariables), '\0')) {}

    [[nodiscard]] TableModel& table() { return m_table; }

    /// Takes the one request of a connection. The reply, or nothing when none may come.
    std::string take(Peer peer) {
        char buffer[requestLimit];
        const ssize_t count = peer.await() == 1 ? peer.receive(buffer, sizeof buffer) : -1;
        waits.push_back(60);
        if (count <= 0) {
            return "";
        }
        const std::vector<std::string> tokens = split(std::string(buffer, static_cast<std::size_t>(count)));
        if (tokens.front() == "GET") {
            return get(tokens);
        }
        if (tokens.front() == "PRINT") {
            log += m_table.listing();
        } else if (tokens.front() == "QUIT") {
            log += "Received QUIT command\r\n";
            isQuit = true;
            sweep();
        }
        return "0";
    }

    std::string log;
    std::vector<std::string> calls;
    std::vector<unsigned> ports; ///< that have to be asked to exit
    std::vector<unsigned> waits;
    bool isQuit = false;

private:
    std::string get(const std::vector<std::string>& tokens) {
        log += "Received GET command\r\n";
        const unsigned entry = tokens.size() > 1 ? m_table.claim() : TableModel::capacity;
        if (entry == TableModel::capacity) {
            return "0";
        }
        calls.emplace_back("fork");
        if (m_kernel.forkResult == 0) {
            calls.push_back(std::string("chdir ") + installation);
            std::string arguments = std::string("execvp ") + installation + "/znorbclient";
            arguments += ZNORBRESPONDER::gIsTestMode ? " [-v]" : "";
            arguments +=
                " [-lang] [" + upToNul(tokens[1]) + "] [-wbx] [-index] [" + std::to_string(entry) + ']';
            if (tokens.size() > 2 && !tokens[2].empty()) {
                arguments += " [-timeout] [" + upToNul(tokens[2]) + ']';
            }
            calls.push_back(arguments);
        }
        log += "New process created: " + std::to_string(m_kernel.forkResult) + "\r\n";
        return std::to_string(entry);
    }

    void sweep() {
        for (unsigned i = 0; i < m_table.bounded(); ++i) {
            if (m_table.isInUse(i)) {
                ports.push_back(m_table.port(i));
                if (ports.back() % 2 == 0) {
                    waits.push_back(1800);
                }
            }
        }
    }

    const Kernel& m_kernel;
    TableModel m_table;
};

/// The world outside: requesters that come one after the other, clients that are asked to exit, and
/// neighbours that write into the table; each step is a line.
class World : public Sockets {
public:
    World(Kernel& kernel, Input& input, const std::string& switches)
        : m_kernel(kernel), m_input(input), m_switches(switches), m_model(kernel) {}

    int socket(int domain) override { return domain == AF_UNIX && has('k') ? -1 : Sockets::socket(domain); }
    int bind(int descriptor, const std::string& path) override {
        return has('b') ? -1 : Sockets::bind(descriptor, path);
    }
    int listen(int descriptor) override { return has('l') ? -1 : Sockets::listen(descriptor); }

    int close(int descriptor) override {
        if (descriptor != objectDescriptor) {
            return Sockets::close(descriptor);
        }
        m_kernel.calls.emplace_back("close");
        return 0;
    }

    int awaitConnection() override {
        checkLast();
        m_model.waits.push_back(5);
        while (!m_input.isEmpty()) {
            const std::string line = m_input.line();
            if (line == "T") {
                return 0;
            }
            if (line == "E") {
                m_pauses += 1;
                return -1;
            }
            if (line == "X" || (!line.empty() && line.front() == 'c')) {
                m_next = line;
                return 1;
            }
            change(line);
        }
        m_next = "cAQUIT";
        return 1;
    }

    Peer* connection() override {
        if (m_next == "X") {
            m_pauses += 1;
            return nullptr;
        }
        std::string request = m_next.substr(std::min<std::size_t>(m_next.size(), 2));
        std::replace(request.begin(), request.end(), '~', '\n');
        m_peers.emplace_back(m_next.substr(1, 1), withRun(request));
        m_expectedReply = m_model.take(m_peers.back());
        m_isServing = true;
        return &m_peers.back();
    }

    Peer* answer(std::uint32_t address, std::uint16_t port) override {
        require(address == INADDR_LOOPBACK, "only 127.0.0.1 is asked");
        m_ports.push_back(port);
        m_clients.emplace_back("", "HTTP/1.0 200 OK\r\n\r\n");
        return port % 2 == 0 ? &m_clients.back() : nullptr;
    }

    /// After the run.
    void check() {
        checkLast();
        const bool hasTable = !has('s');
        const bool isListening = hasTable && !has('k') && !has('b') && !has('l');
        std::string expected = "Unified responder starting\r\n";
        if (!hasTable) {
            expected += "Unable to get to shared global variables\r\n";
        } else if (has('k')) {
            expected += "Unable to create socket\r\n";
        } else if (has('b')) {
            expected += "Unable to bind socket\r\n";
        } else {
            expected += "Unified responder waiting for connections\r\n";
            expected += isListening ? m_model.log : "Unable to put socket in listen mode\r\n";
        }
        requireEqual(takeLog(), expected + "Unified responder stopped\r\n", "log");
        require(m_model.isQuit == isListening, "only QUIT ends the service");
        requireEqual(m_ports, m_model.ports, "the ports that were asked to exit");
        requireEqual(waits(), m_model.waits, "the waits");
        requireEqual(slept(), m_pauses * 100'000UL, "microseconds slept");
        requireEqual(openCount(), 0U, "sockets left open");
        requireEqual(m_kernel.calls, expectedCalls(), "the calls");
        require(!m_kernel.isMapped, "the table is unmapped");
    }

private:
    [[nodiscard]] bool has(char letter) const { return m_switches.find(letter) != std::string::npos; }

    [[nodiscard]] std::vector<std::string> expectedCalls() const {
        std::vector<std::string> calls = {"shm_open"};
        if (!has('s')) {
            calls.insert(calls.end(), {"fchmod", "ftruncate", "mmap", "close"});
            if (!has('k')) {
                calls.push_back(std::string("unlink ") + socketPath);
                if (!has('b')) {
                    calls.push_back(std::string("chmod ") + socketPath);
                }
            }
            calls.insert(calls.end(), m_model.calls.begin(), m_model.calls.end());
            calls.emplace_back("munmap");
        }
        calls.emplace_back("shm_unlink");
        return calls;
    }

    /// What the last connection left behind.
    void checkLast() {
        if (m_isServing) {
            requireEqual(m_peers.back().taken(), m_expectedReply, "the reply");
            m_isServing = false;
        }
        if (m_kernel.isMapped) {
            require(std::string_view(m_kernel.object.get(), sizeof(SharedVariables)) ==
                        m_model.table().image(),
                    "the table");
        }
    }

    /// A change that is none of the daemon's: a letter, then a number, then "=" and a value.
    void change(const std::string& line) {
        const std::size_t equals = std::min(line.find('='), line.size());
        const std::string left = line.substr(0, equals);
        const std::string right = line.substr(std::min(equals + 1, line.size()));
        const auto value = static_cast<std::uint32_t>(std::strtoul(right.c_str(), nullptr, 10));
        const char kind = left.empty() ? '\0' : left.front();
        const unsigned long number = left.empty() ? 0 : std::strtoul(left.c_str() + 1, nullptr, 10);
        const std::size_t entry = TableModel::at(static_cast<unsigned>(number % TableModel::capacity));
        TableModel& table = m_model.table();
        if (kind == 'v') {
            ZNORBRESPONDER::gIsTestMode = !ZNORBRESPONDER::gIsTestMode;
        } else if (kind == 'f') {
            m_kernel.forkResult = std::max(static_cast<int>(value), -1);
        } else if (kind == 'n') {
            table.setNumber(0, 4, value);
        } else if (kind == 'u') {
            table.setNumber(entry, 1, value);
        } else if (kind == 'q') {
            table.setNumber(entry + 124, 2, value);
        } else if (kind == 'i') {
            table.setBytes(entry + 1, right.substr(0, 127)); // as far as the next entry
        }
        (void)table.image().copy(m_kernel.object.get(), sizeof(SharedVariables));
    }

    Kernel& m_kernel;
    Input& m_input;
    std::string m_switches;
    Model m_model;
    std::string m_next;
    std::string m_expectedReply;
    bool m_isServing = false;
    unsigned m_pauses = 0;
    std::deque<Peer> m_peers;
    std::deque<Peer> m_clients;
    std::vector<unsigned> m_ports;
};

} // namespace

// A whole run of the responder: a conversation with requesters, clients and neighbours, in a world where
// every call of the system's is answered by the target. The input: a line of what fails ("s" the shared
// object, "k" the socket, "b" its bind, "l" its listen), then a step per line: "T" nobody comes in time, "E"
// the wait fails, "X" the accept fails, "c", a character of a script (Peer.h) and a request (withRun) with
// "~" for a line feed; or a change: "n=70", "u3=0", "q3=8080", "i3=text" of the table's count, inUse, port
// and identifier, "v" of the test mode, "f=7" of what a fork returns. QUIT comes last.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::string switches = input.line();
    Kernel kernel;
    kernel.object = std::make_unique<char[]>(sizeof(SharedVariables));
    std::fill_n(kernel.object.get(), sizeof(SharedVariables), '\xA5'); // the daemon has to clear it
    kernel.refusesObject = switches.find('s') != std::string::npos;
    Files files;
    files.setExecutable(std::string(installation) + "/znorbresponder");
    (void)takeLog();
    ORBCOMMON::ProcessEvent exitEvent(false, false);
    World world(kernel, input, switches);
    s_kernel = &kernel;
    ZNORBRESPONDER::UnifiedResponderMonitor(&exitEvent).run();
    s_kernel = nullptr;
    world.check();
    require(exitEvent.wait(), "the end is announced");
    require(std::signal(SIGCHLD, SIG_DFL) == SIG_DFL, "the ends of children are heard of again");
    ZNORBRESPONDER::gIsTestMode = false;
    return 0;
}

extern "C" int shm_open(const char* name, int oflag, mode_t mode) {
    requireEqual(name, std::string("/znorb.shvars"), "the object's name");
    require(oflag == (O_RDWR | O_CREAT | O_EXCL) && mode == 0777, "an object of the daemon's own");
    s_kernel->calls.emplace_back("shm_open");
    errno = EEXIST;
    return s_kernel->refusesObject ? -1 : objectDescriptor;
}

extern "C" int shm_unlink(const char* name) {
    requireEqual(name, std::string("/znorb.shvars"), "the object's name");
    s_kernel->calls.emplace_back("shm_unlink");
    return 0;
}

extern "C" int fchmod(int fd, mode_t mode) noexcept {
    require(fd == objectDescriptor && mode == 0666, "the object's mode");
    s_kernel->calls.emplace_back("fchmod");
    return 0;
}

extern "C" int ftruncate(int fd, off_t length) noexcept {
    require(fd == objectDescriptor && length == sizeof(SharedVariables), "the object's size");
    s_kernel->calls.emplace_back("ftruncate");
    return 0;
}

extern "C" void* mmap(void* addr, size_t len, int prot, int flags, int fd, off_t offset) noexcept {
    if (s_kernel == nullptr || fd != objectDescriptor) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): what the kernel returns is a number
        return reinterpret_cast<void*>(syscall(SYS_mmap, addr, len, prot, flags, fd, offset));
    }
    require(len == sizeof(SharedVariables) && offset == 0, "a mapping of the whole object");
    require(prot == (PROT_READ | PROT_WRITE) && flags == MAP_SHARED, "a mapping that is shared");
    s_kernel->calls.emplace_back("mmap");
    s_kernel->isMapped = true;
    return s_kernel->object.get();
}

extern "C" int munmap(void* addr, size_t len) noexcept {
    if (s_kernel == nullptr || addr != s_kernel->object.get()) {
        return static_cast<int>(syscall(SYS_munmap, addr, len));
    }
    require(s_kernel->isMapped && len == sizeof(SharedVariables), "the mapping is undone whole, once");
    s_kernel->calls.emplace_back("munmap");
    s_kernel->isMapped = false;
    return 0;
}

extern "C" int unlink(const char* name) noexcept {
    if (s_kernel == nullptr) {
        return static_cast<int>(syscall(SYS_unlink, name));
    }
    s_kernel->calls.push_back(std::string("unlink ") + name);
    return 0;
}

extern "C" int chmod(const char* file, mode_t mode) noexcept {
    require(mode == 0666, "the socket's mode");
    s_kernel->calls.push_back(std::string("chmod ") + file);
    return 0;
}

extern "C" pid_t fork() noexcept {
    s_kernel->calls.emplace_back("fork");
    return s_kernel->forkResult;
}

extern "C" int chdir(const char* path) noexcept {
    s_kernel->calls.push_back(std::string("chdir ") + path);
    return 0;
}

extern "C" int execvp(const char* file, char* const argv[]) noexcept {
    require(argv[0] == std::string(file), "the program is its own first argument");
    std::string call = std::string("execvp ") + file;
    for (char* const* argument = argv + 1; *argument != nullptr; ++argument) {
        call += std::string(" [") + *argument + ']';
    }
    s_kernel->calls.push_back(call);
    errno = ENOENT;
    return -1;
}
