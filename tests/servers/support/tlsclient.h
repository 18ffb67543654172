#ifndef VOINET_TESTS_TLSCLIENT_H
#define VOINET_TESTS_TLSCLIENT_H

#include <openssl/bio.h>
#include <openssl/ssl.h>

#include <cstdint>
#include <memory>
#include <string>

namespace voinettest {

template <auto release>
struct Release {
    template <class Object>
    void operator()(Object* object) const {
        release(object);
    }
};

/// A TLS connection to a numeric address that trusts nothing but the certificates in one file, and
/// makes the handshake whether it can trust or not. Used by one thread.
class TlsConnection {
  public:
    /// Throws std::runtime_error when there is no connection or no handshake.
    TlsConnection(std::uint16_t port, const std::string& caFile,
                  const std::string& address = "127.0.0.1");

    /// What the verification of the server's certificate has found; X509_V_OK is all right.
    long verification() const;

    /// The server's certificate.
    std::unique_ptr<X509, Release<X509_free>> certificate() const;

    void send(const std::string& bytes) const;

    /// Reads until the other side closes.
    std::string readToEnd() const;

  private:
    std::unique_ptr<SSL_CTX, Release<SSL_CTX_free>> context_;
    std::unique_ptr<SSL, Release<SSL_free>> session_;
};

}  // namespace voinettest

#endif
