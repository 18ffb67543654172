#include "tlsclient.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <stdexcept>

namespace voinettest {
namespace {

using Connection = std::unique_ptr<BIO, Release<BIO_free_all>>;

// Only reached when something is broken.
constexpr timeval patience{60, 0};

void require(bool ok, const std::string& what) {
    if (!ok) {
        throw std::runtime_error("TLS client: " + what + " failed");
    }
}

Connection connectTo(const std::string& address, std::uint16_t port) {
    const bool ipv6 = address.find(':') != std::string::npos;
    const std::string host = ipv6 ? '[' + address + ']' : address;
    Connection connection(::BIO_new_connect((host + ':' + std::to_string(port)).c_str()));
    require(connection != nullptr && BIO_do_connect(connection.get()) == 1, "connecting");
    const auto socket = static_cast<int>(BIO_get_fd(connection.get(), nullptr));
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
    return connection;
}

}  // namespace

TlsConnection::TlsConnection(std::uint16_t port, const std::string& caFile,
                             const std::string& address)
    : context_(::SSL_CTX_new(::TLS_client_method())) {
    require(context_ != nullptr &&
                ::SSL_CTX_load_verify_locations(context_.get(), caFile.c_str(), nullptr) == 1,
            "reading " + caFile);
    session_.reset(::SSL_new(context_.get()));
    require(session_ != nullptr, "making a session");
    BIO* connection = connectTo(address, port).release();
    ::SSL_set_bio(session_.get(), connection, connection);
    require(::SSL_connect(session_.get()) == 1, "the handshake");
}

long TlsConnection::verification() const {
    return ::SSL_get_verify_result(session_.get());
}

std::unique_ptr<X509, Release<X509_free>> TlsConnection::certificate() const {
    return std::unique_ptr<X509, Release<X509_free>>(::SSL_get1_peer_certificate(session_.get()));
}

void TlsConnection::send(const std::string& bytes) const {
    std::size_t count = 0;
    require(::SSL_write_ex(session_.get(), bytes.data(), bytes.size(), &count) == 1 &&
                count == bytes.size(),
            "sending");
}

std::string TlsConnection::readToEnd() const {
    std::string received;
    std::array<char, 16384> buffer{};
    std::size_t count = 0;
    while (::SSL_read_ex(session_.get(), buffer.data(), buffer.size(), &count) == 1) {
        received.append(buffer.data(), count);
    }
    return received;
}

}  // namespace voinettest
