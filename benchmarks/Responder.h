#pragma once

#include "znorb/shared_table.h"

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

/// A program that serves the command socket, the daemon or the floor, and the requests of a benchmark. Every
/// failure ends the benchmark with a message: there is no figure without the whole life.
namespace ZNORBBENCH {

using Seconds = std::chrono::duration<double>;

/// What is said before the end of a benchmark that cannot go on.
[[noreturn]] void fail(const std::string& what);

/// Makes this process the parent of what its children leave behind. REQUIRED before the first Responder.
void adoptOrphans();

/// Restricts this process, and all that it starts from now on, to one processor.
void pinTo(int processor);

/// One request and its reply on a connection of its own.
std::string ask(const std::string& request);

/// What counts as the end of a start.
enum class Started {
    Exited, ///< the invoked program has exited with status 0; it is left alone until then
    Replies ///< the socket has answered
};

/// One run of a program in the background. Used on one thread.
class Responder {
public:
    /// Starts it with "-d" and waits until the invoked program has exited and the socket answers. With a
    /// `processor` that is not -1 it runs there.
    explicit Responder(const std::string& program, const std::string& argument = "", int processor = -1,
                       Started end = Started::Exited);

    /// Ends it with "QUIT", should it still run, and waits until it and its names are gone.
    ~Responder();
    Responder(const Responder&) = delete;
    Responder& operator=(const Responder&) = delete;

    [[nodiscard]] pid_t pid() const { return m_pid; }

    /// From the execution of the program to the end of its start.
    [[nodiscard]] Seconds startTime() const { return m_startTime; }

    /// The page faults without input or output of its start: of the invoked program from its execution on, of
    /// the process between, and of the responder to its first reply.
    [[nodiscard]] long startFaults() const { return m_startFaults; }

    /// The thread that serves the requests.
    [[nodiscard]] pid_t servingThread() const;

    /// The running clients.
    [[nodiscard]] std::vector<pid_t> clients() const;
    void awaitClientsEnd() const;

    /// From the request to the end of the program and of all its clients.
    Seconds quit();

    /// A value of smaps_rollup in KiB, such as "Pss:".
    [[nodiscard]] long memory(const std::string& name) const;

    /// The page faults without input or output that the serving thread has had so far.
    [[nodiscard]] long minorFaults() const;

    /// The system calls that the serving thread makes per request, as strace counts them. -1 where processes
    /// may not be traced.
    [[nodiscard]] double systemCallsPer(const std::string& request, int count) const;

private:
    pid_t m_pid = -1;
    Seconds m_startTime{};
    long m_startFaults = 0;
};

/// The shared table, mapped for the life of the object. REQUIRES: a responder that serves.
class MappedTable {
public:
    MappedTable();
    ~MappedTable();
    MappedTable(const MappedTable&) = delete;
    MappedTable& operator=(const MappedTable&) = delete;

    /// Makes `count` entries look as if they had been claimed, and these in use or free.
    void fill(unsigned count, bool inUse) const;

    /// Waits until the first `count` clients have registered their ports.
    void awaitRegistered(unsigned count) const;

private:
    znorb_shared_table* m_table;
};

} // namespace ZNORBBENCH
