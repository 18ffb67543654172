#include "runningserver.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>

namespace voinettest {
namespace {

constexpr std::chrono::seconds kStartPatience{20};
constexpr std::chrono::milliseconds kConnectPause{5};

// Of either family.
struct SocketAddress {
    sockaddr_storage storage{};
    socklen_t size = 0;

    sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }
};

SocketAddress socketAddress(const std::string& address, std::uint16_t port) {
    SocketAddress made;
    if (address.find(':') == std::string::npos) {
        auto& ipv4 = reinterpret_cast<sockaddr_in&>(made.storage);
        ipv4.sin_family = AF_INET;
        ipv4.sin_port = htons(port);
        require(::inet_pton(AF_INET, address.c_str(), &ipv4.sin_addr) == 1, address);
        made.size = sizeof(ipv4);
    } else {
        auto& ipv6 = reinterpret_cast<sockaddr_in6&>(made.storage);
        ipv6.sin6_family = AF_INET6;
        ipv6.sin6_port = htons(port);
        require(::inet_pton(AF_INET6, address.c_str(), &ipv6.sin6_addr) == 1, address);
        made.size = sizeof(ipv6);
    }
    return made;
}

Descriptor makeSocket(const SocketAddress& address) {
    Descriptor made(::socket(address.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    require(made.isOpen(), "making a socket");
    return made;
}

std::uint16_t boundPort(const Descriptor& socket) {
    SocketAddress bound;
    bound.size = sizeof(bound.storage);
    require(::getsockname(socket.get(), bound.get(), &bound.size) == 0, "asking for a port");
    // The port is at the same place in the addresses of both families.
    return ntohs(reinterpret_cast<const sockaddr_in&>(bound.storage).sin_port);
}

bool acceptsConnections(const ReservedPort& port) {
    SocketAddress address = socketAddress(port.address(), port.number());
    const Descriptor socket = makeSocket(address);
    return ::connect(socket.get(), address.get(), address.size) == 0;
}

// The wrappers become the server: the process stays the same. A change of the user takes back that
// the process ends with its parent, so that comes last.
Command commandOf(const std::vector<std::string>& words, const std::string& user) {
    Command command;
    if (!user.empty()) {
        command.words = {"setpriv", "--reuid", user, "--regid", user, "--init-groups"};
    }
    command.words.insert(command.words.end(), {"setpriv", "--pdeathsig", "TERM"});
    command.words.insert(command.words.end(), words.begin(), words.end());
    return command;
}

}  // namespace

ReservedPort::ReservedPort(const std::string& address) : address_(address) {
    SocketAddress any = socketAddress(address, 0);
    socket_ = makeSocket(any);
    const int on = 1;
    require(::setsockopt(socket_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) == 0,
            "sharing a port");
    require(::bind(socket_.get(), any.get(), any.size) == 0, "reserving a port of " + address);
    number_ = boundPort(socket_);
}

RunningServer::RunningServer(const std::vector<std::string>& words,
                             const std::vector<ReservedPort>& ports, const std::string& user)
    : name_(words.front()), process_(commandOf(words, user)) {
    const Deadline deadline = Deadline::in(kStartPatience);
    for (const ReservedPort& port : ports) {
        awaitConnections(port, deadline);
    }
}

RunningServer::~RunningServer() {
    // One that does not end is killed by its process's owner.
    process_.stop(Deadline::in(kStartPatience));
}

void RunningServer::awaitConnections(const ReservedPort& port, Deadline deadline) {
    while (!acceptsConnections(port)) {
        const auto status = process_.wait(Deadline::in(kConnectPause));
        if (status || deadline.remainingMilliseconds() == 0) {
            const std::string end =
                status ? " ended with status " + std::to_string(*status) : " does not listen";
            throw std::runtime_error(name_ + end + " (is its package installed?):\n" +
                                     process_.standardOutput() + process_.standardError());
        }
    }
}

bool isRoot() {
    return ::geteuid() == 0;
}

}  // namespace voinettest
