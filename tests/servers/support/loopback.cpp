#include "loopback.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace voinettest {

Descriptor boundSocket() {
    Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    require(socket.isOpen(), "making a socket");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    require(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
            "binding a socket");
    return socket;
}

std::uint16_t portOf(const Descriptor& socket) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    require(::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size) == 0,
            "asking for the port");
    return ntohs(address.sin_port);
}

bool sendAll(const Descriptor& connection, const std::string& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count =
            ::send(connection.get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            return false;
        }
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

}  // namespace voinettest
