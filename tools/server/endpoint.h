#ifndef VOINET_SERVER_ENDPOINT_H
#define VOINET_SERVER_ENDPOINT_H

#include "listener.h"
#include "tlsidentity.h"

#include <httplib.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace voinetserver {

/// One port of the server, plain or TLS. Services install their handlers into its server() before
/// it listens. Used by one thread.
class Endpoint {
  public:
    /// Plain without an identity. Throws StartError when TLS cannot be set up.
    explicit Endpoint(const TlsIdentity* identity);

    httplib::Server& server() { return *server_; }

    /// Throws StartError. To be called once.
    void listen(const std::string& address, std::uint16_t port);

    /// As Listener::stop().
    bool stop(std::chrono::milliseconds patience) { return listener_.stop(patience); }

    /// Once it listens.
    int port() const { return port_; }
    std::string url() const;

  private:
    const char* scheme_;
    std::unique_ptr<httplib::Server> server_;
    // Stops the server, so it goes first.
    Listener listener_;
    std::string address_;
    int port_ = 0;
};

}  // namespace voinetserver

#endif
