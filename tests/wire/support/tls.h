#ifndef VOINET_TESTS_WIRE_SUPPORT_TLS_H
#define VOINET_TESTS_WIRE_SUPPORT_TLS_H

#include "support/conversation.h"
#include "support/scriptedserver.h"

#include <string>

namespace tessaro_com::pkm::voInet::wire {

/// A certificate with its private key, as PEM texts.
struct Identity {
    std::string certificate;
    std::string key;
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
    const std::string& pem() const { return m_identity.certificate; }

    /// A server's identity for a host name or IPv4 address.
    Identity issue(const std::string& host, const Validity& validity = {}) const;

  private:
    std::string m_name;
    Identity m_identity;
};

/// A server's identity that nobody but itself vouches for.
Identity selfSigned(const std::string& host);

/// TLS 1.2 over the connections of a scripted server. The handshake is made with the first byte
/// that a script receives or sends; the end of sending is announced to the client, closing without
/// it is not.
TransportFactory tlsTransport(const Identity& identity);

/// What libcurl, the client of all tests, makes TLS with.
enum class TlsLibrary { openSsl, mbedTls };

/// Throws std::runtime_error when it is another one.
TlsLibrary clientTlsLibrary();

/// Fatal alerts, with their numbers on the wire.
enum class Alert : unsigned char {
    badCertificate = 42,
    certificateExpired = 45,
    unknownCa = 48,
    decryptError = 51,
};

/// The client must not accept the server's identity, and must not send anything over TLS. One with
/// OpenSSL ends the handshake with this alert. One with mbedTLS ends it without: libcurl has that
/// library complete every handshake, judges the certificate then and closes.
Step expectRefusal(Alert alert);

}  // namespace tessaro_com::pkm::voInet::wire

#endif  // VOINET_TESTS_WIRE_SUPPORT_TLS_H
