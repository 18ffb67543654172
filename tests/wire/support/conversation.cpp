#include "support/conversation.h"

#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>

namespace tessaro_com::pkm::voInet::wire {

namespace {

constexpr std::size_t kReceiveSize = std::size_t{64} * 1024;

[[noreturn]] void fail(const std::string& what, int error) {
    const std::string text = what + ": " + std::strerror(error);
    if (error == ECONNRESET || error == EPIPE) {
        throw ConnectionLost(text);
    }
    throw ScriptFailure(text);
}

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool equalIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && ::strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::size_t parseNumber(std::string_view text, int base) {
    std::size_t number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (result.ec != std::errc()) {
        throw ScriptFailure("no number: " + std::string(text));
    }
    return number;
}

/// Takes the next line off `rest`, without its CR LF.
std::string_view nextLine(std::string_view& rest) {
    const auto end = rest.find("\r\n");
    const auto line = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 2);
    return line;
}

class PlainTransport : public Transport {
  public:
    explicit PlainTransport(const SocketGate& gate) : m_gate(gate) {}

    std::size_t receive(char* buffer, std::size_t size) override {
        const Deadline deadline;
        for (;;) {
            const auto count = ::recv(m_gate.socket(), buffer, size, 0);
            if (count >= 0) {
                return static_cast<std::size_t>(count);
            }
            awaitOrThrow(deadline, &SocketGate::awaitReadable, "receiving");
        }
    }

    void send(std::string_view bytes) override {
        const Deadline deadline;
        while (!bytes.empty()) {
            const auto count = ::send(m_gate.socket(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (count >= 0) {
                bytes.remove_prefix(static_cast<std::size_t>(count));
            } else {
                awaitOrThrow(deadline, &SocketGate::awaitWritable, "sending");
            }
        }
    }

    void endSending() override { ::shutdown(m_gate.socket(), SHUT_WR); }

  private:
    using Await = void (SocketGate::*)(const Deadline&) const;

    void awaitOrThrow(const Deadline& deadline, Await await, const char* what) {
        const int error = errno;
        if (error == EAGAIN || error == EWOULDBLOCK) {
            (m_gate.*await)(deadline);
        } else if (error != EINTR) {
            fail(what, error);
        }
    }

    const SocketGate& m_gate;
};

}  // namespace

std::optional<std::string> Request::header(std::string_view name) const {
    for (const auto& [key, value] : headers) {
        if (equalIgnoringCase(key, name)) {
            return value;
        }
    }
    return std::nullopt;
}

std::size_t Request::headerCount(std::string_view name) const {
    std::size_t count = 0;
    for (const auto& entry : headers) {
        count += equalIgnoringCase(entry.first, name) ? 1 : 0;
    }
    return count;
}

Request parseRequest(std::string head) {
    Request request;
    request.head = std::move(head);
    std::string_view rest = request.head;
    const auto line = nextLine(rest);
    const auto first = line.find(' ');
    const auto last = line.rfind(' ');
    if (first == std::string_view::npos || first == last) {
        throw ScriptFailure("no HTTP request: " + std::string(line));
    }
    request.method = line.substr(0, first);
    request.target = line.substr(first + 1, last - first - 1);
    request.version = line.substr(last + 1);
    for (auto header = nextLine(rest); !header.empty(); header = nextLine(rest)) {
        const auto colon = header.find(':');
        if (colon == std::string_view::npos) {
            throw ScriptFailure("no header: " + std::string(header));
        }
        request.headers.emplace_back(header.substr(0, colon), trimmed(header.substr(colon + 1)));
    }
    return request;
}

void SocketGate::awaitReadable(const Deadline& deadline) const {
    await(m_socket, POLLIN, deadline, "the client sent nothing");
}

void SocketGate::awaitWritable(const Deadline& deadline) const {
    await(m_socket, POLLOUT, deadline, "the client took nothing");
}

void SocketGate::awaitEvent(const Event& event, const Deadline& deadline) const {
    await(event.descriptor(), POLLIN, deadline, "an event did not happen");
}

void SocketGate::await(int descriptor, short events, const Deadline& deadline,
                       const char* what) const {
    std::array<pollfd, 2> waited{{{descriptor, events, 0}, {m_stop.descriptor(), POLLIN, 0}}};
    int ready = 0;
    do {
        ready = ::poll(waited.data(), waited.size(), deadline.remainingMilliseconds());
    } while (ready < 0 && errno == EINTR);
    if (waited[0].revents != 0) {
        return;
    }
    throw ScriptFailure(std::string(what) +
                        (ready == 0 ? " in time" : " until the server stopped"));
}

std::unique_ptr<Transport> makePlainTransport(const SocketGate& gate) {
    return std::make_unique<PlainTransport>(gate);
}

Conversation::Conversation(Descriptor socket, std::size_t number, const Event& stop,
                           const TransportFactory& makeTransport, Recorder& recorder)
    : m_socket(std::move(socket)),
      m_gate(m_socket.get(), stop),
      m_number(number),
      m_recorder(recorder),
      m_transport(makeTransport(m_gate)) {}

Request Conversation::receiveRequest() {
    Request request = parseRequest(receiveUntil("\r\n\r\n"));
    request.connection = m_number;
    if (request.header("Transfer-Encoding").value_or("") == "chunked") {
        request.body = receiveChunks();
    } else if (const auto length = request.header("Content-Length")) {
        request.body = receiveBytes(parseNumber(*length, 10));
    }
    m_recorder.recordRequest(request);
    return request;
}

std::string Conversation::receiveLine() {
    std::string line = receiveUntil("\r\n");
    line.resize(line.size() - 2);
    m_recorder.recordLine(line);
    return line;
}

std::string Conversation::receiveBytes(std::size_t size) {
    while (m_received.size() < size) {
        if (!receiveMore()) {
            throw ConnectionLost("the client closed after " + std::to_string(m_received.size()) +
                                 " of " + std::to_string(size) + " bytes");
        }
    }
    return take(size);
}

std::string Conversation::receiveAll() {
    while (receiveMore()) {
    }
    return take(m_received.size());
}

void Conversation::send(std::string_view bytes) {
    m_transport->send(bytes);
}

void Conversation::halfClose() {
    m_transport->endSending();
}

void Conversation::awaitClose() {
    bool open = true;
    while (open) {
        try {
            open = receiveMore();
        } catch (const ConnectionLost&) {
            open = false;
        }
        if (!m_received.empty()) {
            throw ScriptFailure("the client sent instead of closing: " + m_received);
        }
    }
}

void Conversation::close() {
    m_transport.reset();
    m_socket.close();
}

void Conversation::reset() {
    const linger abort{1, 0};
    ::setsockopt(m_socket.get(), SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    m_socket.close();
}

std::string Conversation::receiveUntil(std::string_view terminator) {
    std::size_t searchFrom = 0;
    for (;;) {
        const auto position = m_received.find(terminator, searchFrom);
        if (position != std::string::npos) {
            return take(position + terminator.size());
        }
        searchFrom =
            m_received.size() < terminator.size() ? 0 : m_received.size() - terminator.size();
        if (!receiveMore()) {
            throw ConnectionLost("the client closed after: " + m_received);
        }
    }
}

std::string Conversation::receiveChunks() {
    std::string body;
    for (;;) {
        const std::size_t size = parseNumber(receiveUntil("\r\n"), 16);
        body += receiveBytes(size);
        if (receiveUntil("\r\n") != "\r\n") {
            throw ScriptFailure("a chunk is longer than it says");
        }
        if (size == 0) {
            return body;
        }
    }
}

bool Conversation::receiveMore() {
    const std::size_t before = m_received.size();
    m_received.resize(before + kReceiveSize);
    std::size_t count = 0;
    try {
        count = m_transport->receive(m_received.data() + before, kReceiveSize);
    } catch (...) {
        m_received.resize(before);
        throw;
    }
    m_received.resize(before + count);
    return count > 0;
}

std::string Conversation::take(std::size_t size) {
    std::string taken = m_received.substr(0, size);
    m_received.erase(0, size);
    return taken;
}

}  // namespace tessaro_com::pkm::voInet::wire
