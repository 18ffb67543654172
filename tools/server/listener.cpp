#include "listener.h"

#include "starterror.h"

#include <sys/socket.h>

#include <cerrno>
#include <ctime>
#include <system_error>

namespace voinetserver {
namespace {

// A connection holds a thread until it ends, while it idles too, so there are more threads than a
// client with a handful of connections needs.
constexpr std::size_t kThreadCount = 32;
constexpr std::size_t kRequestsPerConnection = 100;
constexpr std::time_t kIdleSeconds = 30;

// A client that stands still in a debugger does not lose its connection.
constexpr std::chrono::minutes kTransferTimeout{10};

// httplib's own options would let a second server share the port in silence.
void setSocketOptions(int socket) {
    const int on = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
}

}  // namespace

Listener::Listener(httplib::Server& server) : server_(server) {
    server_.set_socket_options(setSocketOptions);
    server_.set_tcp_nodelay(true);
    server_.set_keep_alive_max_count(kRequestsPerConnection);
    server_.set_keep_alive_timeout(kIdleSeconds);
    server_.set_read_timeout(kTransferTimeout);
    server_.set_write_timeout(kTransferTimeout);
    // httplib makes its threads right after it has begun to accept: the earliest moment at which
    // stopping it has an effect.
    server_.new_task_queue = [this] {
        accepting_.set_value();
        return new httplib::ThreadPool(kThreadCount);
    };
}

Listener::~Listener() {
    server_.stop();
    if (thread_.joinable()) {
        thread_.join();
    }
}

int Listener::listen(const std::string& address, std::uint16_t port) {
    const int boundPort = bind(address, port);
    thread_ = std::thread([this] {
        server_.listen_after_bind();
        ended_.set_value();
    });
    accepting_.get_future().wait();
    return boundPort;
}

int Listener::bind(const std::string& address, std::uint16_t port) {
    errno = 0;
    const int boundPort = port == 0                             ? server_.bind_to_any_port(address)
                          : server_.bind_to_port(address, port) ? int{port}
                                                                : -1;
    if (boundPort <= 0) {
        throw StartError("cannot listen on address " + address + ", port " + std::to_string(port) +
                         ": " + std::generic_category().message(errno));
    }
    return boundPort;
}

bool Listener::stop(std::chrono::milliseconds patience) {
    server_.stop();
    return ended_.get_future().wait_for(patience) == std::future_status::ready;
}

}  // namespace voinetserver
