#include "endpoint.h"

#include "starterror.h"

namespace voinetserver {
namespace {

std::unique_ptr<httplib::Server> makeServer(const TlsIdentity* identity) {
    if (identity == nullptr) {
        return std::make_unique<httplib::Server>();
    }
    auto server = std::make_unique<httplib::SSLServer>(identity->certificate(), identity->key());
    if (!server->is_valid()) {
        throw StartError("TLS cannot be set up");
    }
    return server;
}

}  // namespace

Endpoint::Endpoint(const TlsIdentity* identity)
    : scheme_(identity == nullptr ? "http" : "https"),
      server_(makeServer(identity)),
      listener_(*server_) {}

void Endpoint::listen(const std::string& address, std::uint16_t port) {
    port_ = listener_.listen(address, port);
    address_ = address;
}

std::string Endpoint::url() const {
    const bool ipv6 = address_.find(':') != std::string::npos;
    const std::string host = ipv6 ? '[' + address_ + ']' : address_;
    return std::string(scheme_) + "://" + host + ':' + std::to_string(port_) + '/';
}

}  // namespace voinetserver
