#ifndef VOINET_SERVER_TLSIDENTITY_H
#define VOINET_SERVER_TLSIDENTITY_H

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

namespace voinetserver {

/// Owners of what OpenSSL hands out.
template <auto release>
struct OpenSslDeleter {
    template <class Object>
    void operator()(Object* object) const {
        release(object);
    }
};
using Certificate = std::unique_ptr<X509, OpenSslDeleter<X509_free>>;
using PrivateKey = std::unique_ptr<EVP_PKEY, OpenSslDeleter<EVP_PKEY_free>>;

/// A server certificate, made on the spot together with a certificate authority that has signed
/// this one and never signs another: its key is gone when the constructor returns. No private key
/// ever leaves the memory.
class TlsIdentity {
  public:
    /// The certificate is for localhost, the loopback addresses and the numeric `address`, and
    /// valid from yesterday (clocks differ) for a year. Throws StartError when OpenSSL fails.
    explicit TlsIdentity(const std::string& address);

    X509* certificate() const { return certificate_.get(); }
    EVP_PKEY* key() const { return key_.get(); }

    /// Writes the certificate of the authority to `ca.pem` in `directory`, which is made when it is
    /// missing. Throws StartError.
    void writeAuthority(const std::string& directory) const;

  private:
    PrivateKey key_;
    Certificate certificate_;
    std::string authorityPem_;
};

}  // namespace voinetserver

#endif
