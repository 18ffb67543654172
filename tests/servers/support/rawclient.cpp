#include "rawclient.h"

#include <netdb.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <stdexcept>

namespace voinettest {
namespace {

constexpr const char* kLineEnd = "\r\n";
constexpr const char* kHeadEnd = "\r\n\r\n";

using AddressList = std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)>;

AddressList resolve(const std::string& address, std::uint16_t port) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) {
        throw std::runtime_error(address + " is no numeric address");
    }
    return {found, ::freeaddrinfo};
}

Descriptor connectTo(const addrinfo& target, int receiveBuffer) {
    Descriptor connection(
        ::socket(target.ai_family, target.ai_socktype | SOCK_CLOEXEC, target.ai_protocol));
    require(connection.isOpen(), "making a socket");
    if (receiveBuffer > 0) {
        // Before connecting, because the window is agreed on then.
        require(::setsockopt(connection.get(), SOL_SOCKET, SO_RCVBUF, &receiveBuffer,
                             sizeof(receiveBuffer)) == 0,
                "shrinking the receive buffer");
    }
    require(::connect(connection.get(), target.ai_addr, target.ai_addrlen) == 0, "connecting");
    return connection;
}

std::pair<std::string, std::string> parseHeader(const std::string& line) {
    const std::size_t colon = line.find(": ");
    if (colon == std::string::npos) {
        throw std::runtime_error("no header: " + line);
    }
    return {line.substr(0, colon), line.substr(colon + 2)};
}

RawReply parseHead(const std::string& head) {
    constexpr std::size_t kVersionLength = 9;
    RawReply reply;
    std::size_t begin = 0;
    for (std::size_t end = 0; begin < head.size(); begin = end + 2) {
        end = head.find(kLineEnd, begin);
        const std::string line = head.substr(begin, end - begin);
        if (begin == 0) {
            reply.statusLine = line;
        } else {
            reply.headers.push_back(parseHeader(line));
        }
    }
    if (reply.statusLine.compare(0, kVersionLength, "HTTP/1.1 ") != 0) {
        throw std::runtime_error("no status line: " + reply.statusLine);
    }
    reply.status = std::stoi(reply.statusLine.substr(kVersionLength));
    return reply;
}

bool mayHaveBody(int status) {
    return status >= 200 && status != 204 && status != 304;
}

}  // namespace

std::optional<std::string> RawReply::header(const std::string& name) const {
    const auto found = std::find_if(headers.begin(), headers.end(), [&](const auto& header) {
        return ::strcasecmp(header.first.c_str(), name.c_str()) == 0;
    });
    return found != headers.end() ? std::optional(found->second) : std::nullopt;
}

RawConnection::RawConnection(std::uint16_t port, const std::string& address, int receiveBuffer,
                             Deadline deadline)
    : deadline_(deadline), socket_(connectTo(*resolve(address, port), receiveBuffer)) {}

void RawConnection::send(const std::string& bytes) const {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count =
            ::send(socket_.get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        require(count >= 0 || errno == EINTR, "sending");
        sent += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
}

void RawConnection::finishSending() const {
    require(::shutdown(socket_.get(), SHUT_WR) == 0, "ending what is sent");
}

RawReply RawConnection::readReply(BodyExpected body) {
    RawReply reply = readHead();
    if (body == BodyExpected::no || !mayHaveBody(reply.status)) {
        reply.complete = true;
        return reply;
    }
    const auto length = reply.header("Content-Length");
    if (!length) {
        throw std::runtime_error("a reply without Content-Length");
    }
    const auto announced = static_cast<std::size_t>(std::stoull(*length));
    reply.body = readBytes(announced);
    reply.complete = reply.body.size() == announced;
    return reply;
}

RawReply RawConnection::readHead() {
    return parseHead(readHeadText());
}

std::string RawConnection::readBytes(std::size_t count) {
    while (received_.size() < count && receive()) {
    }
    std::string bytes = received_.substr(0, count);
    received_.erase(0, bytes.size());
    return bytes;
}

bool RawConnection::readsEnd() {
    return received_.empty() && !receive();
}

// The status line and the headers, each with its end.
std::string RawConnection::readHeadText() {
    std::size_t end = std::string::npos;
    while ((end = received_.find(kHeadEnd)) == std::string::npos) {
        if (!receive()) {
            throw std::runtime_error("the connection was closed within a head: " + received_);
        }
    }
    std::string head = received_.substr(0, end + 2);
    received_.erase(0, end + 4);
    return head;
}

// Waits for more. False when the other side has closed.
bool RawConnection::receive() {
    pollfd event{socket_.get(), POLLIN, 0};
    const int ready = ::poll(&event, 1, deadline_.remainingMilliseconds());
    require(ready >= 0 || errno == EINTR, "waiting for a connection");
    if (ready < 0) {
        return true;
    }
    if (ready == 0) {
        throw std::runtime_error("nothing came over the connection in time");
    }
    std::array<char, 65536> buffer{};
    const ssize_t count = ::recv(socket_.get(), buffer.data(), buffer.size(), 0);
    if (count < 0 && errno == EINTR) {
        return true;
    }
    require(count >= 0, "receiving");
    received_.append(buffer.data(), static_cast<std::size_t>(count));
    return count > 0;
}

std::string rawRequest(const std::string& method, const std::string& target,
                       const std::vector<std::string>& headers) {
    std::string request = method + ' ' + target + " HTTP/1.1" + kLineEnd;
    request += std::string("Host: localhost") + kLineEnd;
    for (const std::string& header : headers) {
        request += header + kLineEnd;
    }
    return request + kLineEnd;
}

RawReply exchange(std::uint16_t port, const std::string& method, const std::string& target,
                  const std::vector<std::string>& headers) {
    RawConnection connection(port);
    connection.send(rawRequest(method, target, headers));
    return connection.readReply(method == "HEAD" ? BodyExpected::no : BodyExpected::yes);
}

}  // namespace voinettest
