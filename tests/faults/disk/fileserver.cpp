#include "fileserver.h"

#include "loopback.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <optional>

namespace voinettest {
namespace {

/// The number that follows a text of the head; none when the text is not there.
std::optional<std::size_t> numberAfter(const std::string& head, const std::string& text) {
    const std::size_t at = head.find(text);
    return at == std::string::npos ? std::nullopt
                                   : std::optional(std::stoul(head.substr(at + text.size())));
}

/// Takes one request, head and body, and returns its head; none when the client goes before.
std::optional<std::string> receiveHead(const Descriptor& connection) {
    constexpr const char* kHeadEnd = "\r\n\r\n";
    constexpr std::size_t kHeadEndSize = 4;
    std::string request;
    std::size_t missing = 1;
    while (missing > 0) {
        std::array<char, 16384> block{};
        const ssize_t count = ::recv(connection.get(), block.data(), block.size(), 0);
        if (count <= 0) {
            return std::nullopt;
        }
        request.append(block.data(), static_cast<std::size_t>(count));
        const std::size_t end = request.find(kHeadEnd);
        if (end != std::string::npos) {
            const std::size_t size =
                end + kHeadEndSize + numberAfter(request, "\r\nContent-Length: ").value_or(0);
            missing = size - std::min(size, request.size());
        }
    }
    return request.substr(0, request.find(kHeadEnd) + 2);
}

}  // namespace

FileServer::FileServer(std::string file)
    : file_(std::move(file)), listener_(boundSocket()), port_(portOf(listener_)) {
    constexpr int kBacklog = 64;
    require(::listen(listener_.get(), kBacklog) == 0, "listening");
    thread_ = std::thread([this] { serve(); });
}

FileServer::~FileServer() {
    ending_ = true;
    // Wakes accept().
    ::shutdown(listener_.get(), SHUT_RDWR);
    thread_.join();
}

void FileServer::serve() {
    while (!ending_) {
        const Descriptor connection(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!connection.isOpen()) {
            continue;
        }
        if (const auto head = receiveHead(connection)) {
            sendAll(connection, answerTo(*head));
        }
    }
}

std::string FileServer::answerTo(const std::string& head) const {
    const auto from = numberAfter(head, "\r\nRange: bytes=");
    std::string status = "200 OK";
    std::string range;
    std::string body = file_;
    if (from) {
        const std::string begin = "bytes=" + std::to_string(*from) + "-";
        const bool isOpenEnd = head.find(begin + "\r") != std::string::npos;
        const std::size_t end =
            isOpenEnd ? file_.size() : std::min(*numberAfter(head, begin) + 1, file_.size());
        body = file_.substr(*from, end - *from);
        status = "206 Partial Content";
        range = "Content-Range: bytes " + std::to_string(*from) + "-" + std::to_string(end - 1) +
                "/" + std::to_string(file_.size()) + "\r\n";
    }
    return "HTTP/1.1 " + status + "\r\n" + range +
           "Connection: close\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
           body;
}

}  // namespace voinettest
