#include "support/scriptedserver.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace tessaro_com::pkm::voInet::wire {

namespace {

constexpr int kBacklog = 64;

[[noreturn]] void throwSystemError(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

sockaddr_storage loopback(AddressFamily family) {
    sockaddr_storage storage{};
    if (family == AddressFamily::ipv4) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        std::memcpy(&storage, &address, sizeof address);
    } else {
        sockaddr_in6 address{};
        address.sin6_family = AF_INET6;
        address.sin6_addr = in6addr_loopback;
        std::memcpy(&storage, &address, sizeof address);
    }
    return storage;
}

socklen_t addressSize(const sockaddr_storage& address) {
    return address.ss_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
}

const sockaddr* generic(const sockaddr_storage& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

/// A socket that is bound to a free port of the loopback interface.
Descriptor makeBoundSocket(AddressFamily family) {
    const sockaddr_storage address = loopback(family);
    Descriptor bound(::socket(address.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!bound || ::bind(bound.get(), generic(address), addressSize(address)) != 0) {
        throwSystemError("binding a socket");
    }
    return bound;
}

sockaddr_storage boundAddress(const Descriptor& bound) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (::getsockname(bound.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        throwSystemError("getsockname");
    }
    return address;
}

std::uint16_t portOf(const Descriptor& bound) {
    const sockaddr_storage address = boundAddress(bound);
    // sin_port and sin6_port stand at the same place.
    sockaddr_in ipv4{};
    std::memcpy(&ipv4, &address, sizeof ipv4);
    return ntohs(ipv4.sin_port);
}

void listenAt(const Descriptor& bound, int backlog) {
    if (::listen(bound.get(), backlog) != 0) {
        throwSystemError("listen");
    }
}

/// Small writes are to be seen by the client as they are made.
void sendAtOnce(const Descriptor& socket) {
    const int on = 1;
    ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

bool isConnected(const Descriptor& client) {
    pollfd waited{client.get(), POLLOUT, 0};
    return ::poll(&waited, 1, 0) > 0;
}

std::wstring withPort(const wchar_t* host, std::uint16_t port) {
    return std::wstring(host) + L":" + std::to_wstring(port);
}

}  // namespace

Step receiveRequest() {
    return [](Conversation& client) { client.receiveRequest(); };
}

Step receiveLine() {
    return [](Conversation& client) { client.receiveLine(); };
}

Step send(std::string bytes) {
    return [bytes = std::move(bytes)](Conversation& client) { client.send(bytes); };
}

Step sendInPieces(std::string bytes, std::size_t pieceSize) {
    return [bytes = std::move(bytes), pieceSize](Conversation& client) {
        for (std::size_t sent = 0; sent < bytes.size(); sent += pieceSize) {
            client.send(std::string_view(bytes).substr(sent, pieceSize));
        }
    };
}

Step sendUntilClosed(std::string bytes) {
    return [bytes = std::move(bytes)](Conversation& client) {
        try {
            client.send(bytes);
        } catch (const ConnectionLost&) {
            // The client had enough.
        }
    };
}

Step halfClose() {
    return [](Conversation& client) { client.halfClose(); };
}

Step reset() {
    return [](Conversation& client) { client.reset(); };
}

Step awaitClose() {
    return [](Conversation& client) { client.awaitClose(); };
}

Step await(const Event& event) {
    return [&event](Conversation& client) { client.await(event); };
}

Step signal(Event& event) {
    return [&event](Conversation&) { event.set(); };
}

Script answer(std::string reply) {
    return {receiveRequest(), send(std::move(reply))};
}

Script answers(std::vector<std::string> replies) {
    Script script;
    for (auto& reply : replies) {
        script.push_back(receiveRequest());
        script.push_back(send(std::move(reply)));
    }
    return script;
}

ScriptedServer::ScriptedServer(AddressFamily family, TransportFactory makeTransport)
    : m_makeTransport(std::move(makeTransport)),
      m_listener(makeBoundSocket(family)),
      m_port(portOf(m_listener)),
      m_family(family) {
    listenAt(m_listener, kBacklog);
    m_thread = std::thread([this] { run(); });
}

ScriptedServer::~ScriptedServer() {
    for (const auto& failure : finish()) {
        ADD_FAILURE() << "server at port " << m_port << ": " << failure;
    }
}

std::wstring ScriptedServer::hostAndPort() const {
    return withPort(m_family == AddressFamily::ipv4 ? L"127.0.0.1" : L"[::1]", m_port);
}

void ScriptedServer::connection(Script script) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_scripts.push_back(std::move(script));
}

void ScriptedServer::otherwise(Script script) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_otherwise = std::move(script);
}

bool ScriptedServer::awaitPlayed() {
    std::unique_lock<std::mutex> lock(m_mutex);
    const bool played = m_changed.wait_for(lock, kPatience, [this] {
        return !m_failures.empty() || (m_scripts.empty() && !m_playing);
    });
    return played && m_failures.empty();
}

std::vector<std::string> ScriptedServer::finish() {
    m_drain.set();
    join();
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_scripts.empty()) {
        m_failures.push_back(std::to_string(m_scripts.size()) + " script(s) without a connection");
        m_scripts.clear();
    }
    return std::exchange(m_failures, {});
}

std::vector<Request> ScriptedServer::requests() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests;
}

std::vector<std::string> ScriptedServer::lines() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

std::size_t ScriptedServer::connectionCount() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_connectionCount;
}

void ScriptedServer::forgetRecords() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_requests.clear();
    m_lines.clear();
}

void ScriptedServer::recordRequest(const Request& request) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_requests.push_back(request);
}

void ScriptedServer::recordLine(const std::string& line) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.push_back(line);
}

void ScriptedServer::run() {
    for (Descriptor client = accept(); client; client = accept()) {
        play(std::move(client));
    }
}

/// The next connection; nothing when there will be none.
Descriptor ScriptedServer::accept() {
    for (;;) {
        std::array<pollfd, 2> waited{
            {{m_listener.get(), POLLIN, 0}, {m_drain.descriptor(), POLLIN, 0}}};
        if (::poll(waited.data(), waited.size(), -1) < 0 && errno != EINTR) {
            fail("waiting for a connection failed");
            return {};
        }
        Descriptor client(
            ::accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        // What has connected comes before the end.
        if (client || waited[1].revents != 0) {
            return client;
        }
    }
}

void ScriptedServer::play(Descriptor socket) {
    sendAtOnce(socket);
    const Script script = nextScript();
    std::size_t step = 0;
    try {
        Conversation client(std::move(socket), m_connectionCount - 1, m_stop, m_makeTransport,
                            *this);
        if (script.empty()) {
            client.reset();
            throw ScriptFailure("there is no script for it");
        }
        for (; step < script.size(); ++step) {
            script[step](client);
        }
    } catch (const std::exception& failure) {
        fail("connection " + std::to_string(m_connectionCount - 1) + ", step " +
             std::to_string(step) + ": " + failure.what());
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_playing = false;
    m_changed.notify_all();
}

Script ScriptedServer::nextScript() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_connectionCount;
    m_playing = true;
    if (m_scripts.empty()) {
        return m_otherwise;
    }
    Script script = std::move(m_scripts.front());
    m_scripts.pop_front();
    return script;
}

void ScriptedServer::fail(const std::string& text) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_failures.push_back(text);
}

void ScriptedServer::join() {
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

RefusingPort::RefusingPort()
    : m_socket(makeBoundSocket(AddressFamily::ipv4)), m_port(portOf(m_socket)) {}

std::wstring RefusingPort::hostAndPort() const {
    return withPort(L"127.0.0.1", m_port);
}

/// A listener whose queue of connections is full: the kernel drops what comes then.
SilentPort::SilentPort()
    : m_listener(makeBoundSocket(AddressFamily::ipv4)), m_port(portOf(m_listener)) {
    listenAt(m_listener, 0);
    const sockaddr_storage address = boundAddress(m_listener);
    do {
        m_clients.emplace_back(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        static_cast<void>(
            ::connect(m_clients.back().get(), generic(address), addressSize(address)));
    } while (isConnected(m_clients.back()) && m_clients.size() < kBacklog);
}

std::wstring SilentPort::hostAndPort() const {
    return withPort(L"127.0.0.1", m_port);
}

}  // namespace tessaro_com::pkm::voInet::wire
