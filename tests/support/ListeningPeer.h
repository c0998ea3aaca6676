#pragma once

#include "tests/support/Descriptor.h"
#include "tests/support/Waiting.h"

#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace ZNORBTEST {

/// What a ListeningPeer does with each connection, in this order.
struct PeerScript {
    std::size_t receiveFirst = 0;    ///< bytes to receive before the first piece is sent
    std::vector<std::string> pieces; ///< each sent on its own, when the one before has arrived
    bool holdOpen = false;           ///< close only with the peer's end, else after the last piece
    Milliseconds pause{0};           ///< behind each piece
    bool repeatLast = false;         ///< send the last piece again and again, as long as it is taken
    bool finishSending = false;      ///< say that nothing more comes, before holding open
    bool reset = false;              ///< close with a reset, should the other side not have closed before
};

// For a script that is written as a list.
inline constexpr bool holdOpen = true;
inline constexpr bool repeatLast = true;
inline constexpr bool finishSending = true;
inline constexpr bool reset = true;

/// A server on this machine, on a thread of its own, that follows a script and records what it receives.
/// It serves one connection after the other, as many as come.
///
/// A piece is sent when the one before it has left the socket: over a path the other side has received it
/// by then, over TCP its kernel has it.
///
/// The destructor ends the thread; no connection can hold it up.
class ListeningPeer {
public:
    /// On 127.0.0.1, at a port of the kernel's choice.
    explicit ListeningPeer(PeerScript script);
    /// On a UNIX-domain path; the file is removed at the end.
    ListeningPeer(PeerScript script, const std::string& path);
    ~ListeningPeer();

    std::uint16_t port() const { return m_port; }

    /// What came over each connection so far, in the order of their acceptance.
    std::vector<std::string> received() const;

    /// Waits until each piece of the script has been sent on `count` connections; false when it has on fewer
    /// within the bound.
    bool waitForServed(std::size_t count, Milliseconds bound = usualBound) const;

private:
    void listenAndStart();
    void serveAll();
    void serve(int connection);
    bool receive(int connection);
    void noteServed();
    bool rest() const;
    bool sendPiece(int connection, const std::string& piece) const;
    bool isReadable(int descriptor) const;
    bool isStopped() const;

    const PeerScript m_script;
    const std::string m_path;
    const Descriptor m_listener;
    Descriptor m_isStopping; ///< the reading end of a pipe
    Descriptor m_stop;       ///< its writing end, which is closed to end the thread
    std::uint16_t m_port = 0;
    mutable std::mutex m_mutex; ///< guards the two below
    std::vector<std::string> m_received;
    std::size_t m_served = 0;
    std::thread m_thread;
};

} // namespace ZNORBTEST
