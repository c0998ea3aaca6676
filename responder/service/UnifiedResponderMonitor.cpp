#include "responder/service/UnifiedResponderMonitor.h"

#include "common/log/Logger.h"
#include "common/sockets/SocketWait.h"
#include "responder/RuntimeNames.h"
#include "responder/clients/ClientLauncher.h"
#include "responder/clients/ExitSweep.h"
#include "responder/service/CommandSocket.h"
#include "responder/table/ClientTable.h"
#include "responder/table/SharedObject.h"
#include "responder/webconsole/WebConsoleRegistration.h"

#include <sys/socket.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdint>
#include <exception>

namespace ZNORBRESPONDER {

namespace {

using ORBCOMMON::Logger;

constexpr mode_t commandSocketMode = 0666; // unprivileged requesters may connect

std::vector<std::string> splitRequest(const std::string& request) {
    std::vector<std::string> tokens;
    std::string::size_type start = 0;
    for (auto bar = request.find('|'); bar != std::string::npos; bar = request.find('|', start)) {
        tokens.push_back(request.substr(start, bar - start));
        start = bar + 1;
    }
    tokens.push_back(request.substr(start));
    return tokens;
}

/// Launches a client for "GET|language|time-out". A request without a language is an error and launches
/// nothing.
std::string answerGet(const std::vector<std::string>& tokens, SharedVariables* table) {
    Logger::log("Received GET command");
    std::uint16_t index = 0;
    if (tokens.size() > 1) {
        const std::string timeout = tokens.size() > 2 ? tokens[2] : std::string();
        (void)startClient(table, index, tokens[1], timeout);
    }
    return std::to_string(index);
}

std::string answer(const std::string& command, const std::vector<std::string>& tokens,
                   SharedVariables* table) {
    if (command == quitCommand) {
        Logger::log("Received QUIT command");
        exitAllClients(table);
    } else if (command == printCommand) {
        listEntries(*table);
    } else if (command == getCommand) {
        return answerGet(tokens, table);
    }
    return "0";
}

} // namespace

UnifiedResponderMonitor::UnifiedResponderMonitor(ORBCOMMON::ProcessEvent* exitEvent)
    : m_exitEvent(exitEvent) {}

void UnifiedResponderMonitor::run() {
    SharedObject object;
    object.create();
    Logger::log("Unified responder starting");
    if (object.table() == nullptr) {
        Logger::log("Unable to get to shared global variables");
    } else {
        serve(object.table());
    }
    (void)m_exitEvent->set();
    Logger::log("Unified responder stopped");
}

void UnifiedResponderMonitor::serve(SharedVariables* table) {
    const auto previous = std::signal(SIGCHLD, SIG_IGN); // launched clients never become zombies
    CommandSocket listener;
    if (!listener.open()) {
        Logger::log("Unable to create socket");
    } else if (!listener.bind(commandSocketPath)) {
        Logger::log("Unable to bind socket");
    } else {
        acceptUntilQuit(listener, table);
    }
    listener.close();
    (void)std::signal(SIGCHLD, previous);
}

void UnifiedResponderMonitor::acceptUntilQuit(CommandSocket& listener, SharedVariables* table) {
    (void)chmod(commandSocketPath, commandSocketMode);
    (void)registerWebConsole();
    Logger::log("Unified responder waiting for connections");
    if (!listener.listen(commandSocketBacklog)) {
        Logger::log("Unable to put socket in listen mode");
        return;
    }
    for (bool isQuit = false; !isQuit;) {
        const int connection = listener.accept(acceptWaitSeconds);
        isQuit = connection != -1 && serveConnection(connection, table);
    }
}

/// Serves the one request of a connection and closes it. True when it was "QUIT".
bool UnifiedResponderMonitor::serveConnection(int descriptor, SharedVariables* table) {
    ORBCOMMON::UXClientSocket connection(descriptor, std::string());
    try {
        std::string command;
        std::vector<std::string> tokens;
        if (!readRequest(connection, command, tokens)) {
            return false;
        }
        const std::string reply = answer(command, tokens, table);
        (void)send(connection.descriptor(), reply.data(), reply.size(), MSG_NOSIGNAL);
        return command == quitCommand;
    } catch (const std::exception&) {
        return false;
    }
}

bool UnifiedResponderMonitor::readRequest(const ORBCOMMON::ClientSocket& socket, std::string& command,
                                          std::vector<std::string>& tokens) {
    command.clear();
    tokens.clear();
    if (ORBCOMMON::waitUntilReadable(socket.descriptor(), commandWaitSeconds) !=
        ORBCOMMON::Readiness::Readable) {
        return false;
    }
    char buffer[commandBufferSize];
    const ssize_t received = recv(socket.descriptor(), buffer, sizeof buffer, 0);
    if (received <= 0) {
        return false;
    }
    tokens = splitRequest(std::string(buffer, static_cast<std::size_t>(received)));
    command = tokens.front();
    return true;
}

} // namespace ZNORBRESPONDER
