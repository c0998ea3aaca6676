#include "tests/schedules/Connections.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace ZNORBSCHEDULES {
namespace {

/// A copy of another process' descriptor. Where the kernel gives none, every answer is the other one.
class CopiedSocket {
public:
    CopiedSocket(pid_t process, int descriptor)
        : m_process(static_cast<int>(syscall(SYS_pidfd_open, process, 0))),
          m_descriptor(static_cast<int>(syscall(SYS_pidfd_getfd, m_process, descriptor, 0))) {}
    ~CopiedSocket() {
        (void)close(m_descriptor);
        (void)close(m_process);
    }
    CopiedSocket(const CopiedSocket&) = delete;
    CopiedSocket& operator=(const CopiedSocket&) = delete;

    bool isReadable() const {
        pollfd request = {m_descriptor, POLLIN, 0};
        return m_descriptor == -1 || poll(&request, 1, 0) != 0;
    }

    template <typename Value>
    Value option(int name, Value otherwise) const {
        socklen_t length = sizeof otherwise;
        (void)getsockopt(m_descriptor, SOL_SOCKET, name, &otherwise, &length);
        return otherwise;
    }

private:
    const int m_process;
    const int m_descriptor;
};

std::string connectionOf(const std::string& role) {
    return "connection of " + role;
}

void replace(Objects& objects, const std::string& placeholder, Objects found) {
    if (objects.erase(placeholder) != 0) {
        objects.merge(found);
    }
}

} // namespace

void Connections::resolve(SharedCall& shared, pid_t process, const ZNORBTEST::StoppedCall& call) const {
    Access& access = shared.access;
    if (access.reads.contains(ownConnection) || access.writes.contains(ownConnection)) {
        const Objects found = objectsOf(process, call, shared.awaited);
        replace(access.reads, ownConnection, found);
        replace(access.writes, ownConnection, found);
        if (found.empty()) {
            shared = {.place = shared.place};
        }
    }
    replace(access.reads, allConnections, all());
    replace(access.writes, allConnections, all());
    if (call.number == SYS_recvfrom) {
        (void)(m_requesters.contains(process) ? access.writes.erase(sharedTable) : 0);
        shared.behind = access;
    }
}

/// None of a socket that is connected to a client; any if that cannot be known.
Objects Connections::objectsOf(pid_t process, const ZNORBTEST::StoppedCall& call, int awaited) const {
    Objects any = all();
    any.merge(Objects{listener, queuesHead});
    if (const auto own = m_requesters.find(process); own != m_requesters.end()) {
        const std::string connection = connectionOf(own->second);
        return call.number == SYS_connect ? Objects{listener, connection} : Objects{connection};
    }
    const CopiedSocket socket(process, awaited != -1 ? awaited : static_cast<int>(call.arguments[0]));
    if (socket.option(SO_DOMAIN, AF_UNIX) != AF_UNIX) {
        return {};
    }
    if (socket.option(SO_ACCEPTCONN, 0) != 0) {
        return call.number == SYS_shutdown ? any : Objects{nextInQueue};
    }
    const pid_t peer = socket.option(SO_PEERCRED, ucred{0, 0, 0}).pid;
    const auto requester = m_requesters.find(peer);
    return peer == 0 ? any
                     : Objects{connectionOf(requester == m_requesters.end() ? "others" : requester->second)};
}

/// Whoever looks at the queue sees who is first, and nothing of those behind.
Access Connections::withQueue(Access access) const {
    const Objects next = {queuesHead, m_queue.empty() ? listener : m_queue.front()};
    replace(access.reads, nextInQueue, next);
    replace(access.writes, nextInQueue, next);
    return access;
}

void Connections::noteEnd(const SharedCall& shared, pid_t process, long call, long result) {
    const auto requester = m_requesters.find(process);
    if (call == SYS_connect && result == 0 && requester != m_requesters.end()) {
        m_queue.push_back(connectionOf(requester->second));
    } else if (call == SYS_accept4 && result >= 0 && !m_queue.empty()) {
        m_queue.pop_front();
    } else if (call == SYS_shutdown && shared.access.writes.contains(queuesHead)) {
        m_queue.clear();
    }
}

Objects Connections::all() const {
    Objects result = {connectionOf("others")};
    for (const auto& [process, role] : m_requesters) {
        (void)result.insert(connectionOf(role));
    }
    return result;
}

bool isReady(const SharedCall& shared, pid_t process) {
    return shared.awaited == -1 || CopiedSocket(process, shared.awaited).isReadable();
}

} // namespace ZNORBSCHEDULES
