#include "loopbackserver.h"

#include "support/body.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <optional>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

namespace tessaro_com::pkm::voInet::load {

namespace {

using wire::Descriptor;

constexpr int kBacklog = 128;

[[noreturn]] void throwSystemError(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

Descriptor listener() {
    Descriptor made(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (!made ||
        ::bind(made.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(made.get(), kBacklog) != 0) {
        throwSystemError("listening on the loopback interface");
    }
    return made;
}

std::uint16_t portOf(const Descriptor& bound) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (::getsockname(bound.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        throwSystemError("getsockname");
    }
    return ntohs(address.sin_port);
}

Descriptor acceptFrom(const Descriptor& from) {
    return Descriptor(::accept4(from.get(), nullptr, nullptr, SOCK_CLOEXEC));
}

bool contains(const std::string& text, std::string_view part) {
    return text.find(part) != std::string::npos;
}

std::string without(std::string text, std::string_view part) {
    const auto at = text.find(part);
    return at == std::string::npos ? text : text.erase(at, part.size());
}

/// One accepted connection. At its end it waits for the client to close first and then resets, so
/// that a hundred thousand of them do not use up the ports of the machine.
class Connection {
  public:
    explicit Connection(Descriptor accepted) : m_socket(std::move(accepted)) {
        const int on = 1;
        ::setsockopt(m_socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }
    ~Connection() {
        if (m_socket) {
            ::shutdown(m_socket.get(), SHUT_WR);
            while (receiveMore()) {
            }
            const linger reset{1, 0};
            ::setsockopt(m_socket.get(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
        }
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Up to and with the mark; none when the client has gone.
    std::optional<std::string> receiveUntil(std::string_view mark) {
        auto end = m_received.find(mark);
        while (end == std::string::npos) {
            if (!receiveMore()) {
                return std::nullopt;
            }
            end = m_received.find(mark);
        }
        return take(end + mark.size());
    }
    std::optional<std::string> receive(std::size_t size) {
        while (m_received.size() < size) {
            if (!receiveMore()) {
                return std::nullopt;
            }
        }
        return take(size);
    }

    /// A client that has gone is noticed when something is received.
    void send(std::string_view bytes) const {
        while (!bytes.empty()) {
            const ssize_t sent = ::send(m_socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (sent <= 0) {
                return;
            }
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        }
    }

  private:
    bool receiveMore() {
        std::array<char, 16384> block{};
        const ssize_t count = ::recv(m_socket.get(), block.data(), block.size(), 0);
        m_received.append(block.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        return count > 0;
    }
    std::string take(std::size_t size) {
        std::string taken = m_received.substr(0, size);
        m_received.erase(0, size);
        return taken;
    }

    Descriptor m_socket;
    std::string m_received;
};

/// The number behind a text of a request's head, such as "Content-Length: ".
std::optional<std::size_t> numberAfter(const std::string& head, std::string_view text) {
    const auto at = head.find(text);
    if (at == std::string::npos || at + text.size() >= head.size() ||
        head[at + text.size()] < '0' || head[at + text.size()] > '9') {
        return std::nullopt;
    }
    return std::stoul(head.substr(at + text.size()));
}

std::string httpHead(const std::string& status, std::size_t length,
                     const std::string& headers = {}) {
    return "HTTP/1.1 " + status + "\r\n" + headers + "Content-Length: " + std::to_string(length) +
           "\r\n\r\n";
}

/// The part of the content that a request's head asks for, with its own head.
std::string servedPart(const std::string& content, const std::string& head) {
    const auto from = numberAfter(head, "Range: bytes=");
    if (!from) {
        return httpHead("200 OK", content.size()) + content;
    }
    if (*from >= content.size()) {
        return httpHead("416 Nothing there", 0);
    }
    const auto dash = head.find('-', head.find("Range: bytes="));
    const auto last = numberAfter(head.substr(dash), "-").value_or(content.size() - 1);
    const std::string part = content.substr(*from, last - *from + 1);
    const std::string range = "Content-Range: bytes " + std::to_string(*from) + "-" +
                              std::to_string(*from + part.size() - 1) + "/" +
                              std::to_string(content.size()) + "\r\n";
    return httpHead("206 Part", part.size(), range) + part;
}

/// False when the connection is to be closed.
bool answerHttp(Connection& client, const std::string& head) {
    const auto blank = head.find(' ');
    const std::string method = head.substr(0, blank);
    const std::string path = head.substr(blank + 1, head.find(' ', blank + 1) - blank - 1);
    const std::string content = contentOf(path);
    if (const auto size = numberAfter(head, "Content-Length: ");
        size && !client.receive(*size).has_value()) {
        return false;
    }
    if (contains(path, "missing")) {
        client.send(httpHead("404 Not Found", 0));
    } else if (contains(path, "busy")) {
        client.send(httpHead("503 Busy", 0));
    } else if (contains(path, "moved-")) {
        client.send(httpHead("302 Moved", 0, "Location: " + without(path, "moved-") + "\r\n"));
    } else if (contains(path, "cut")) {
        client.send(httpHead("200 OK", content.size()) + content.substr(0, content.size() / 2));
        return false;
    } else if (method == "HEAD") {
        client.send(httpHead("200 OK", content.size()));
    } else {
        client.send(servedPart(content, head));
    }
    return true;
}

void serveHttp(Descriptor accepted) {
    Connection client(std::move(accepted));
    for (auto head = client.receiveUntil("\r\n\r\n"); head;
         head = client.receiveUntil("\r\n\r\n")) {
        if (!answerHttp(client, *head)) {
            return;
        }
    }
}

/// The talk with one FTP client.
class FtpTalk {
  public:
    FtpTalk(Descriptor accepted, const Descriptor& data)
        : m_client(std::move(accepted)), m_data(data) {}

    void run() {
        m_client.send("220 Ready\r\n");
        for (auto line = m_client.receiveUntil("\r\n"); line;
             line = m_client.receiveUntil("\r\n")) {
            line->erase(line->size() - 2);
            const std::string reply = replyTo(*line);
            m_client.send(reply.empty() ? reply : reply + "\r\n");
        }
    }

  private:
    /// Empty when the reply has been sent already.
    std::string replyTo(const std::string& line) {
        const auto blank = line.find(' ');
        const std::string word = line.substr(0, blank);
        const std::string argument = blank == std::string::npos ? "" : line.substr(blank + 1);
        if (word == "EPSV") {
            return "229 Here (|||" + std::to_string(portOf(m_data)) + "|)";
        }
        if (word == "CWD") {
            m_folder += "/" + argument;
            return "250 Done";
        }
        if (word == "SIZE") {
            return "213 " + std::to_string(contentOf(pathOf(argument)).size());
        }
        if (word == "REST") {
            m_offset = std::stoul(argument);
            return "350 Go on";
        }
        return word == "RETR" ? retrieve(pathOf(argument)) : usualReply(word);
    }

    static std::string usualReply(const std::string& word) {
        static constexpr std::array<std::array<const char*, 2>, 5> kUsual{{
            {"USER", "331 Password, please"},
            {"PASS", "230 Logged on"},
            {"PWD", "257 \"/\" is the directory"},
            {"TYPE", "200 Done"},
            {"QUIT", "221 Bye"},
        }};
        const auto* const found = std::find_if(
            kUsual.begin(), kUsual.end(), [&word](const auto& each) { return word == each[0]; });
        return found == kUsual.end() ? "500 What?" : (*found)[1];
    }

    std::string pathOf(const std::string& name) const { return m_folder + "/" + name; }

    std::string retrieve(const std::string& path) {
        const Connection data(acceptFrom(m_data));
        if (contains(path, "missing")) {
            // The client keeps its data connection until it knows.
            m_client.send("550 No such file\r\n");
            return {};
        }
        m_client.send("150 Here it comes\r\n");
        const std::string content = contentOf(path).substr(std::exchange(m_offset, 0));
        data.send(contains(path, "cut") ? content.substr(0, content.size() / 2) : content);
        return "226 Done";
    }

    Connection m_client;
    const Descriptor& m_data;
    std::string m_folder;
    std::size_t m_offset = 0;
};

/// A thread for each client: one that keeps its connection does not hold up the next.
[[noreturn]] void serve(const Descriptor& http, const Descriptor& ftp, const Descriptor& data) {
    for (;;) {
        std::array<pollfd, 2> waited{{{http.get(), POLLIN, 0}, {ftp.get(), POLLIN, 0}}};
        ::poll(waited.data(), waited.size(), -1);
        if (waited[0].revents != 0) {
            std::thread(serveHttp, acceptFrom(http)).detach();
        }
        if (waited[1].revents != 0) {
            std::thread([&data](Descriptor client) { FtpTalk(std::move(client), data).run(); },
                        acceptFrom(ftp))
                .detach();
        }
    }
}

}  // namespace

std::string contentOf(const std::string& path) {
    constexpr std::size_t kSmallest = 3000;
    constexpr std::size_t kVariety = 2000;
    // The same on every platform, unlike std::hash.
    std::uint32_t sum = 0;
    for (const char each : path) {
        sum = sum * 31 + static_cast<unsigned char>(each);
    }
    return wire::makeBody(kSmallest + sum % kVariety, sum);
}

LoopbackServer::LoopbackServer() {
    const Descriptor http = listener();
    const Descriptor ftp = listener();
    const Descriptor data = listener();
    m_httpPort = portOf(http);
    m_ftpPort = portOf(ftp);
    const pid_t parent = ::getpid();
    m_process = ::fork();
    if (m_process < 0) {
        throwSystemError("starting the server");
    }
    if (m_process == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent) {
            ::_exit(1);
        }
        try {
            serve(http, ftp, data);
        } catch (...) {
            ::_exit(1);
        }
    }
}

LoopbackServer::~LoopbackServer() {
    ::kill(m_process, SIGKILL);
    while (::waitpid(m_process, nullptr, 0) < 0 && errno == EINTR) {
    }
}

std::wstring LoopbackServer::hostAndPort(std::uint16_t port) {
    return L"127.0.0.1:" + std::to_wstring(port);
}

}  // namespace tessaro_com::pkm::voInet::load
