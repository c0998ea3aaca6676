#include "common/sockets/ClientSocket.h"
#include "common/sockets/SocketWait.h"
#include "foundation/streams/OutputStreamToBuffer.h"
#include "responder/RuntimeNames.h"
#include "responder/clients/HttpClient.h"

#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <thread>

/// An HTTP exchange with a body of range(0) bytes, into a buffer stream, against receiving the same bytes raw
/// into memory that is there already. The other side is a thread that answers each request with the same
/// response, over TCP as the daemon's clients do. Run it on one processor, so that no wake-up of another one
/// is measured.
namespace {

constexpr std::size_t requestSize = 8192;

std::string responseWith(std::size_t bodySize) {
    return "HTTP/1.0 200 OK\r\nContent-Length: " + std::to_string(bodySize) + "\r\n\r\n" +
           std::string(bodySize, 'x');
}

class Server {
public:
    explicit Server(std::string response) : m_response(std::move(response)) {
        connectEnds();
        m_thread = std::thread([this] { serve(); });
    }
    ~Server() {
        (void)shutdown(m_ends[0], SHUT_RDWR);
        m_thread.join();
        (void)close(m_ends[1]);
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Closed by whoever takes it.
    [[nodiscard]] int nearEnd() const { return m_ends[0]; }

private:
    void connectEnds() {
        const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        (void)bind(listener, reinterpret_cast<sockaddr*>(&address), length);
        (void)listen(listener, 1);
        (void)getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
        m_ends[0] = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        (void)connect(m_ends[0], reinterpret_cast<sockaddr*>(&address), length);
        m_ends[1] = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        (void)close(listener);
    }

    void serve() const {
        char request[requestSize];
        while (recv(m_ends[1], request, sizeof request, 0) > 0) {
            for (std::size_t sent = 0; sent < m_response.size();) {
                const ssize_t result =
                    send(m_ends[1], m_response.data() + sent, m_response.size() - sent, MSG_NOSIGNAL);
                if (result <= 0) {
                    return;
                }
                sent += static_cast<std::size_t>(result);
            }
        }
    }

    std::string m_response;
    int m_ends[2] = {-1, -1};
    std::thread m_thread;
};

/// Receives a response of `size` bytes. False when it does not come.
bool receiveAll(int descriptor, char* memory, std::size_t size, bool isWaitingFirst) {
    for (std::size_t held = 0; held < size;) {
        if (isWaitingFirst) {
            (void)ORBCOMMON::waitUntilReadable(descriptor, ZNORBRESPONDER::httpWaitSeconds);
        }
        const ssize_t received = recv(descriptor, memory + held, size - held, 0);
        if (received <= 0) {
            return false;
        }
        held += static_cast<std::size_t>(received);
    }
    return true;
}

/// The reference. With `isWaitingFirst` it also does what a limit for the waiting takes.
void receive(benchmark::State& state, bool isWaitingFirst) {
    const std::string response = responseWith(static_cast<std::size_t>(state.range(0)));
    const std::unique_ptr<char[]> memory(new char[response.size()]());
    const std::string request = "GET / HTTP/1.0\r\n\r\n";
    const Server server(response);
    for ([[maybe_unused]] const auto step : state) {
        (void)send(server.nearEnd(), request.data(), request.size(), MSG_NOSIGNAL);
        if (!receiveAll(server.nearEnd(), memory.get(), response.size(), isWaitingFirst)) {
            state.SkipWithError("the response did not arrive");
            break;
        }
    }
    (void)close(server.nearEnd());
}

void receiveRaw(benchmark::State& state) {
    receive(state, false);
}

void receiveAfterSelect(benchmark::State& state) {
    receive(state, true);
}

void exchange(benchmark::State& state) {
    const Server server(responseWith(static_cast<std::size_t>(state.range(0))));
    ORBCOMMON::ClientSocket socket(server.nearEnd());
    for ([[maybe_unused]] const auto step : state) {
        std::string statusLine;
        ZNORBRESPONDER::HttpHeaders headers;
        Common::OutputStreamToBuffer body;
        (void)ZNORBRESPONDER::sendRequest(socket, "GET", "/", "", statusLine, headers, body);
        if (body.size() != static_cast<std::size_t>(state.range(0))) {
            state.SkipWithError("the body did not arrive");
            break;
        }
    }
}

constexpr std::int64_t small = 12;
constexpr std::int64_t middle = std::int64_t{64} << 10;
constexpr std::int64_t large = std::int64_t{32} << 20;

BENCHMARK(receiveRaw)->Arg(small)->Arg(middle)->Arg(large)->UseRealTime();
BENCHMARK(receiveAfterSelect)->Arg(small)->Arg(middle)->Arg(large)->UseRealTime();
BENCHMARK(exchange)->Arg(small)->Arg(middle)->Arg(large)->UseRealTime();

} // namespace
