#include "responder/clients/ExitSweep.h"

#include "common/sockets/IPClientSocket.h"
#include "foundation/streams/OutputStreamToBuffer.h"
#include "responder/clients/HttpClient.h"
#include "responder/table/ClientTable.h"

#include <new>

namespace ZNORBRESPONDER {

namespace {

void askToExit(std::uint16_t port) {
    ORBCOMMON::IPClientSocket socket("127.0.0.1", port);
    socket.connect();
    std::string statusLine;
    HttpHeaders headers;
    Common::OutputStreamToBuffer body;
    (void)sendRequest(socket, "POST", "/ExitApplication.json", "", statusLine, headers, body);
}

} // namespace

void exitAllClients(SharedVariables* const& holder) {
    if (holder == nullptr) {
        return;
    }
    const unsigned count = boundedCount(*holder);
    for (unsigned index = 0; index < count; ++index) {
        const ClientEntry& entry = holder->entries[index];
        if (!isInUse(entry)) {
            continue;
        }
        try {
            askToExit(portOf(entry));
        } catch (const std::bad_alloc&) {
            // not even the connection could be described: on to the next
        }
    }
}

} // namespace ZNORBRESPONDER
