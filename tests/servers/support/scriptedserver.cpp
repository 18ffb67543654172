#include "scriptedserver.h"

#include "loopback.h"

#include <sys/socket.h>

#include <array>
#include <optional>

namespace voinettest {
namespace {

/// Takes what there is; false when the client has gone.
bool receiveMore(const Descriptor& connection, std::string& bytes) {
    std::array<char, 16384> block{};
    const ssize_t count = ::recv(connection.get(), block.data(), block.size(), 0);
    if (count <= 0) {
        return false;
    }
    bytes.append(block.data(), static_cast<std::size_t>(count));
    return true;
}

/// The whole request's size as its head announces it.
std::size_t announcedSize(const std::string& request, std::size_t headSize) {
    static const std::string kHeader = "\r\nContent-Length: ";
    const std::size_t at = request.find(kHeader);
    return at == std::string::npos || at > headSize
               ? headSize
               : headSize + std::stoul(request.substr(at + kHeader.size()));
}

/// Head and body; none when the client goes before they are complete.
std::optional<std::string> receiveRequest(const Descriptor& connection,
                                          const std::function<void()>& onHead) {
    static const std::string kHeadEnd = "\r\n\r\n";
    std::string request;
    while (request.find(kHeadEnd) == std::string::npos) {
        if (!receiveMore(connection, request)) {
            return std::nullopt;
        }
    }
    if (onHead) {
        onHead();
    }
    const std::size_t size = announcedSize(request, request.find(kHeadEnd) + kHeadEnd.size());
    while (request.size() < size) {
        if (!receiveMore(connection, request)) {
            return std::nullopt;
        }
    }
    return request;
}

}  // namespace

ScriptedServer::ScriptedServer(std::string answer, AfterAnswer after, std::function<void()> onHead)
    : answer_(std::move(answer)),
      after_(after),
      onHead_(std::move(onHead)),
      listener_(boundSocket()),
      port_(portOf(listener_)) {
    require(::listen(listener_.get(), 8) == 0, "listening");
    thread_ = std::thread([this] { serve(); });
}

ScriptedServer::~ScriptedServer() {
    ending_ = true;
    // Wakes accept().
    ::shutdown(listener_.get(), SHUT_RDWR);
    thread_.join();
}

std::vector<std::string> ScriptedServer::requests() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

bool ScriptedServer::awaitRequest(Deadline deadline) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return arrived_.wait_for(lock, std::chrono::milliseconds(deadline.remainingMilliseconds()),
                             [this] { return !requests_.empty(); });
}

void ScriptedServer::serve() {
    while (!ending_) {
        const Descriptor connection(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (connection.isOpen()) {
            answer(connection);
        }
    }
}

void ScriptedServer::answer(const Descriptor& connection) {
    const auto request = receiveRequest(connection, onHead_);
    if (!request) {
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        requests_.push_back(*request);
    }
    arrived_.notify_all();
    sendAll(connection, answer_);
    std::string ignored;
    while (after_ == AfterAnswer::hold && receiveMore(connection, ignored)) {
    }
}

ClosedPort::ClosedPort() : socket_(boundSocket()), port_(portOf(socket_)) {}

}  // namespace voinettest
