#ifndef VOINET_SERVER_LISTENER_H
#define VOINET_SERVER_LISTENER_H

#include <httplib.h>

#include <chrono>
#include <cstdint>
#include <future>
#include <string>
#include <thread>

namespace voinetserver {

/// Runs an httplib server on a thread of its own. Used by one thread.
class Listener {
  public:
    /// `server` has its handlers and outlives this object.
    explicit Listener(httplib::Server& server);
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    /// Stops and waits for the replies that are running.
    ~Listener();

    /// Listens at a numeric address, port 0 being any free one, and returns the port once
    /// connections are accepted. Throws StartError. To be called once.
    int listen(const std::string& address, std::uint16_t port);

    /// Accepts nothing more and returns true when all connections have ended within `patience`;
    /// false when some are still being waited for.
    bool stop(std::chrono::milliseconds patience);

  private:
    int bind(const std::string& address, std::uint16_t port);

    httplib::Server& server_;
    std::promise<void> accepting_;
    std::promise<void> ended_;
    std::thread thread_;
};

}  // namespace voinetserver

#endif
