#pragma once

#include "common/sockets/ClientSocket.h"

#include <string>

namespace ORBCOMMON {

/// The client end of a UNIX-domain stream connection: one that it makes itself with connect(), or one that a
/// server has accepted and hands over. Ownership and threads are those of ClientSocket.
class UXClientSocket : public ClientSocket {
public:
    /// Not connected; `path` is the socket file that connect() goes to. The path must not hold "%", and of a
    /// path longer than 107 bytes only the first 107 are used.
    explicit UXClientSocket(std::string path) noexcept;

    /// Takes ownership of `descriptor`, a connection that is already made; `path` may be empty.
    UXClientSocket(int descriptor, std::string path) noexcept;

    /// Closes the present connection, if any, and connects to the path. Success is told by isConnected():
    /// it is false when the socket cannot be created or nobody listens on the path. The socket is not
    /// passed on to programs that this process executes. May block while the listener's queue is full.
    void connect();

private:
    std::string m_path;
};

} // namespace ORBCOMMON
