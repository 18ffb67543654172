#ifndef VOINET_TESTS_TLSCLIENT_H
#define VOINET_TESTS_TLSCLIENT_H

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

namespace voinettest {

/// What a server's certificate says.
struct ServerCertificate {
    /// What it is for: "DNS:" and a host name, "IP:" and an address as inet_ntop writes it.
    std::vector<std::string> names;
    bool isAuthority = false;
    std::time_t validFrom = 0;
    std::time_t validTo = 0;
};

/// A TLS connection to a numeric address that trusts nothing but the certificates in one file, and
/// makes the handshake whether it can trust or not. Used by one thread.
class TlsConnection {
  public:
    /// Throws std::runtime_error when there is no connection or no handshake.
    TlsConnection(std::uint16_t port, const std::string& caFile,
                  const std::string& address = "127.0.0.1");
    ~TlsConnection();

    /// Whether the server's certificate leads to one in the file and is valid now. For which host
    /// it is, is not looked at.
    bool isVerified() const;

    /// The server's certificate.
    ServerCertificate certificate() const;

    void send(const std::string& bytes) const;

    /// Reads until the other side closes.
    std::string readToEnd() const;

  private:
    struct Session;
    std::unique_ptr<Session> session_;
};

}  // namespace voinettest

#endif
