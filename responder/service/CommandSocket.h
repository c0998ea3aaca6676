#pragma once

namespace ZNORBRESPONDER {

/// The listening side of the local command socket. Owns its descriptor (-1 = closed), which is
/// close-on-exec from its creation, like every connection it accepts: launched clients inherit neither.
/// One thread.
class CommandSocket {
public:
    CommandSocket() = default;
    CommandSocket(const CommandSocket&) = delete;
    CommandSocket& operator=(const CommandSocket&) = delete;

    /// Does what `close` does.
    ~CommandSocket();

    /// Makes the socket. False when that fails. REQUIRES: not open.
    bool open();

    /// Binds it to the path, replacing a socket file that an earlier run left there. False when that fails.
    bool bind(const char* path);

    /// Lets the kernel queue up to `backlog` connections. False when that fails.
    bool listen(int backlog);

    /// Waits for a connection for up to `seconds`. Returns its descriptor, which the caller then owns, or -1
    /// when none came or something failed. A failure is followed by a short pause, so that a caller that
    /// tries again does not spin while it lasts.
    int accept(long seconds);

    /// Shuts both directions down and closes. The socket file stays for the next run to replace.
    void close();

private:
    int m_descriptor = -1;
};

} // namespace ZNORBRESPONDER
