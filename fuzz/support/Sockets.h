#pragma once

#include "fuzz/support/Peer.h"

#include <cstdint>
#include <string>
#include <vector>

namespace ZNORBFUZZ {

/// The kernel's sockets, as far as the daemon uses them: linked into a target, it puts its own `select`,
/// `recv`, `send`, `socket`, `connect`, `bind`, `listen`, `accept4`, `shutdown`, `close` and `usleep` before
/// the C library's. Connections lead to peers in memory, nothing blocks and nothing sleeps.
///
/// A call that the daemon must not make (on a descriptor that is closed, with a wait of its own kind, twice)
/// is a finding. A descriptor that is left open is for the target to find, with openCount().
///
/// One at a time, on one thread. Only close() may be given a descriptor that is none of its own.
class Sockets {
public:
    Sockets();
    virtual ~Sockets();
    Sockets(const Sockets&) = delete;
    Sockets& operator=(const Sockets&) = delete;

    /// A new descriptor of a connection to the peer, which is not owned.
    int open(Peer* peer);

    [[nodiscard]] unsigned openCount() const;

    /// What was asked for, in order: the seconds of each wait, and all microseconds slept.
    [[nodiscard]] const std::vector<unsigned>& waits() const { return m_waits; }
    [[nodiscard]] unsigned long slept() const { return m_slept; }

    /// Who answers at the port of the address, both in host byte order; null refuses the connection.
    virtual Peer* answer(std::uint32_t address, std::uint16_t port);

    /// What `select` says of the listening socket, and who then connects; null fails the `accept4`.
    virtual int awaitConnection();
    virtual Peer* connection();

    // The calls themselves, for the functions that stand in for the C library's.
    virtual int socket(int domain);
    int connect(int descriptor, std::uint32_t address, std::uint16_t port);
    virtual int bind(int descriptor, const std::string& path);
    virtual int listen(int descriptor);
    int accept(int descriptor);
    int select(int descriptor, long seconds);
    Peer& peerOf(int descriptor);
    int shutdown(int descriptor);
    virtual int close(int descriptor);
    void sleep(unsigned microseconds) { m_slept += microseconds; }

    static bool isFake(int descriptor);

    /// A descriptor of something else that a target makes up; close() takes it too.
    static constexpr int otherDescriptor = 959;

private:
    enum class State { Closed, Made, Connected, Bound, Listening };

    struct Slot {
        State state = State::Closed;
        int domain = 0;
        bool isShutDown = false;
        Peer* peer = nullptr;
    };

    Slot& slotOf(int descriptor);
    int takeSlot(const Slot& slot);

    static constexpr int s_first = otherDescriptor + 1; ///< the highest that `select` can name
    static constexpr int s_count = 64;

    Slot m_slots[s_count];
    std::vector<unsigned> m_waits;
    unsigned long m_slept = 0;
};

} // namespace ZNORBFUZZ
