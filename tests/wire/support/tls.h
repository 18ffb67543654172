#ifndef VOINET_TESTS_WIRE_SUPPORT_TLS_H
#define VOINET_TESTS_WIRE_SUPPORT_TLS_H

#include "support/conversation.h"
#include "support/scriptedserver.h"

#include <openssl/ssl.h>

#include <memory>
#include <string>

namespace tessaro_com::pkm::voInet::wire {

struct OpenSslDeleter {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    void operator()(SSL* session) const { SSL_free(session); }
};

/// A certificate with its private key, both in memory only.
struct Identity {
    std::unique_ptr<EVP_PKEY, OpenSslDeleter> key;
    std::unique_ptr<X509, OpenSslDeleter> certificate;

    /// The certificate as a CA file holds it.
    std::string pem() const;
};

/// When a certificate is valid, in days from now.
struct Validity {
    int from = -1;
    int to = 1;
};

/// A throw-away certification authority.
class CertificateAuthority {
  public:
    explicit CertificateAuthority(const std::string& name = "Throw-away CA",
                                  const Validity& validity = {});

    /// The CA file that a client trusts this authority with.
    std::string pem() const { return m_identity.pem(); }

    /// A server's identity for a host name or address.
    Identity issue(const std::string& host, const Validity& validity = {}) const;

  private:
    Identity m_identity;
};

/// A server's identity that nobody but itself vouches for.
Identity selfSigned(const std::string& host);

/// TLS versions that a server takes; 0 means the oldest or the newest of OpenSSL.
struct TlsVersions {
    int oldest = 0;
    int newest = 0;
};

/// TLS over the connections of a scripted server. The handshake is made with the first byte that a
/// script receives or sends; the end of sending is announced to the client, closing without it is
/// not.
TransportFactory tlsTransport(const Identity& identity, const TlsVersions& versions = {});

/// The client must not accept the server's identity: it ends the handshake with this alert.
Step expectRefusal(const std::string& alert);

}  // namespace tessaro_com::pkm::voInet::wire

#endif  // VOINET_TESTS_WIRE_SUPPORT_TLS_H
