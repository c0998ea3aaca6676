#pragma once

namespace ORBCOMMON {

/// The client end of one connected stream socket, and the base of UXClientSocket and IPClientSocket.
///
/// An object owns its descriptor: it alone closes it, at the latest when it is destroyed. A descriptor of -1
/// means "not connected". Each object belongs to the thread that uses it; nothing is shared and nothing
/// locked.
class ClientSocket {
public:
    /// Takes ownership of `descriptor`, a connected stream socket; -1 makes an object that is not connected.
    explicit ClientSocket(int descriptor = -1) noexcept;

    /// Does what close() does.
    virtual ~ClientSocket();

    ClientSocket(const ClientSocket&) = delete;
    ClientSocket& operator=(const ClientSocket&) = delete;

    /// Shuts the connection down in both directions, for every process that holds it, and closes the
    /// descriptor. Without a connection no system call is made. Afterwards isConnected() is false; failures
    /// are ignored, because the descriptor is gone either way.
    virtual void close();

    /// The descriptor, still owned by this object, or -1. For `select`, `send` and `recv` only.
    [[nodiscard]] int descriptor() const noexcept { return m_descriptor; }

    /// True exactly when descriptor() is not -1.
    [[nodiscard]] bool isConnected() const noexcept { return m_descriptor != -1; }

protected:
    /// Takes ownership of `descriptor`, or of nothing when it is -1. REQUIRES: no descriptor is held.
    void adopt(int descriptor) noexcept { m_descriptor = descriptor; }

private:
    void closeDescriptor() noexcept;

    int m_descriptor;
};

} // namespace ORBCOMMON
