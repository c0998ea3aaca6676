#pragma once

#include "common/processes/ProcessEvent.h"
#include "common/sockets/UXClientSocket.h"
#include "common/threads/Threadable.h"
#include "responder/table/SharedVariables.h"

#include <string>
#include <vector>

namespace ZNORBRESPONDER {

class CommandSocket;

/// What the daemon's working thread does: owns the shared table for its run, listens on the command socket
/// and serves one connection at a time, each carrying one request and at most one reply.
///
/// The life of a request: accepted, waited for (up to 60 seconds), read with one `recv` of at most 1024
/// bytes, split at "|", dispatched on its first token, answered with one `send`, closed. "GET" launches a
/// client and answers its entry number, "PRINT" lists the table in the log, "QUIT" asks every client to
/// exit and ends the run; everything but "GET" is answered "0", also what is unknown. A slow requester holds
/// up everyone behind it.
///
/// No exception leaves `run`: a request for which memory runs out is closed without a reply.
class UnifiedResponderMonitor : public ORBCOMMON::Threadable {
public:
    /// `exitEvent` is signalled at the end of every run, and not owned.
    explicit UnifiedResponderMonitor(ORBCOMMON::ProcessEvent* exitEvent);

    /// The thread's body: returns when "QUIT" has been served or when the table or the socket could not be
    /// set up. The shared table is gone when it returns; the socket file stays.
    void run() override;

    /// Takes one request from an accepted connection: the command and all tokens, the command included.
    /// False when none arrived within 60 seconds, the peer closed or the wait failed.
    static bool readRequest(const ORBCOMMON::ClientSocket& socket, std::string& command,
                            std::vector<std::string>& tokens);

private:
    static void serve(SharedVariables* table);
    static void acceptUntilQuit(CommandSocket& listener, SharedVariables* table);
    static bool serveConnection(int descriptor, SharedVariables* table);

    ORBCOMMON::ProcessEvent* m_exitEvent;
};

} // namespace ZNORBRESPONDER
