#include "support/scriptedserver.h"

#include "support/fuzztarget.h"
#include "support/input.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace voinet_fuzz {

namespace {

constexpr char kBetweenConnections = '\x1D';
constexpr char kBetweenAnswers = '\x1E';
constexpr char kBetweenPackets = '\x1F';

/// So long nothing happens before the server goes on by itself.
constexpr int kPatienceMilliseconds = 5;

void replaceAll(std::string& text, const std::string& what, const std::string& with) {
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at)) {
        text.replace(at, what.size(), with);
        at += with.size();
    }
}

int listenOnLoopback(std::uint16_t& port) {
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    const bool listens = ::bind(listener, generic, size) == 0 &&
                         ::listen(listener, SOMAXCONN) == 0 &&
                         ::getsockname(listener, generic, &size) == 0;
    require(listens, "there is a loopback interface");
    port = ntohs(address.sin_port);
    return listener;
}

}  // namespace

Script::Script(const std::string& bytes, std::uint16_t port, bool speaksFirst_)
    : speaksFirst(speaksFirst_) {
    std::string text = bytes;
    replaceAll(text, "@P", std::to_string(port));
    replaceAll(text, "@Q", std::to_string(port / 256) + "," + std::to_string(port % 256));
    for (const std::string& connection : split(text, kBetweenConnections)) {
        Answers answers;
        for (const std::string& answer : split(connection, kBetweenAnswers)) {
            answers.push_back(split(answer, kBetweenPackets));
        }
        connections.push_back(std::move(answers));
    }
}

struct ScriptedServer::Connection {
    int descriptor;
    Script::Answers answers;
    std::size_t answered = 0;
    /// Of what was received; behind it nothing has been answered.
    std::size_t heard = 0;
    Record record;
    bool isOpen = true;
};

ScriptedServer::ScriptedServer()
    : m_listener(listenOnLoopback(m_port)),
      m_wakeUp(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      m_script("", m_port, false),
      m_thread([this] { run(); }) {}

ScriptedServer::~ScriptedServer() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_phase = Phase::ending;
    }
    ::eventfd_write(m_wakeUp, 1);
    m_thread.join();
    ::close(m_wakeUp);
    ::close(m_listener);
}

void ScriptedServer::play(const Script& script) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_script = script;
    m_phase = Phase::playing;
}

std::vector<ScriptedServer::Record> ScriptedServer::finish() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_phase = Phase::finishing;
    ::eventfd_write(m_wakeUp, 1);
    m_finished.wait(lock, [this] { return m_phase == Phase::idle; });
    std::vector<Record> records;
    for (Connection& connection : m_connections) {
        records.push_back(std::move(connection.record));
    }
    m_connections.clear();
    return records;
}

void ScriptedServer::run() {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (m_phase != Phase::ending) {
        std::vector<pollfd> events = {{m_wakeUp, POLLIN, 0}, {m_listener, POLLIN, 0}};
        std::vector<std::size_t> polled;
        for (std::size_t i = 0; i < m_connections.size(); ++i) {
            if (m_connections[i].isOpen) {
                events.push_back({m_connections[i].descriptor, POLLIN, 0});
                polled.push_back(i);
            }
        }
        lock.unlock();
        const int patience = polled.empty() ? -1 : kPatienceMilliseconds;
        const int count = ::poll(events.data(), events.size(), patience);
        lock.lock();
        eventfd_t ignored = 0;
        ::eventfd_read(m_wakeUp, &ignored);
        for (std::size_t i = 0; i < polled.size(); ++i) {
            Connection& connection = m_connections[polled[i]];
            if (count == 0) {
                speak(connection);
            } else if (events[i + 2].revents != 0) {
                serve(connection);
            }
        }
        accept();
        const bool isQuiet = std::none_of(m_connections.begin(), m_connections.end(),
                                          [](const Connection& each) { return each.isOpen; });
        if (m_phase == Phase::finishing && isQuiet) {
            m_phase = Phase::idle;
            m_finished.notify_all();
        }
    }
}

void ScriptedServer::accept() {
    for (int client = 0; client >= 0;) {
        client = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (client < 0) {
            return;
        }
        const int on = 1;
        ::setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        Connection connection{client, {}, 0, 0, {}, true};
        const std::size_t number = m_connections.size();
        if (number < m_script.connections.size()) {
            connection.answers = m_script.connections[number];
        }
        m_connections.push_back(std::move(connection));
        if (m_script.speaksFirst || m_connections.back().answers.empty()) {
            speak(m_connections.back());
        }
    }
}

/// A request's head ends at an empty line, an FTP command at the end of its own; what follows a
/// head is not told from the next one.
bool ScriptedServer::isRequestComplete(const Connection& connection) const {
    const char* end = m_script.speaksFirst ? "\r\n" : "\r\n\r\n";
    return connection.record.received.find(end, connection.heard) != std::string::npos;
}

void ScriptedServer::serve(Connection& connection) {
    char buffer[16384];
    ssize_t count = 1;
    while (count > 0) {
        count = ::recv(connection.descriptor, buffer, sizeof buffer, 0);
        if (count > 0) {
            connection.record.received.append(buffer, static_cast<std::size_t>(count));
        }
    }
    const bool isOver = count == 0 || (errno != EAGAIN && errno != EWOULDBLOCK);
    if (isOver) {
        ::close(connection.descriptor);
        connection.isOpen = false;
    } else if (isRequestComplete(connection)) {
        connection.heard = connection.record.received.size();
        speak(connection);
    }
}

void ScriptedServer::speak(Connection& connection) {
    if (connection.answered < connection.answers.size()) {
        for (const std::string& packet : connection.answers[connection.answered]) {
            ::send(connection.descriptor, packet.data(), packet.size(), MSG_NOSIGNAL);
            connection.record.sent += packet;
        }
        ++connection.answered;
    }
    if (connection.answered >= connection.answers.size()) {
        ::shutdown(connection.descriptor, SHUT_WR);
    }
}

ScriptedServer& server() {
    static ScriptedServer instance;
    return instance;
}

}  // namespace voinet_fuzz
