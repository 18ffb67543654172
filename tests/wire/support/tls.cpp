#include "support/tls.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <climits>
#include <new>
#include <stdexcept>
#include <string_view>

namespace tessaro_com::pkm::voInet::wire {

namespace {

constexpr std::size_t kBufferSize = std::size_t{16} * 1024;
constexpr long kSecondsPerDay = 24L * 60 * 60;
constexpr long kX509Version3 = 2;

/// The client has refused the handshake.
class HandshakeRefused : public ScriptFailure {
  public:
    using ScriptFailure::ScriptFailure;
};

struct BioDeleter {
    void operator()(BIO* bio) const { BIO_free(bio); }
};
using BioPtr = std::unique_ptr<BIO, BioDeleter>;

struct ExtensionDeleter {
    void operator()(X509_EXTENSION* extension) const { X509_EXTENSION_free(extension); }
};

std::string reasonOfLastError() {
    const char* reason = ERR_reason_error_string(ERR_peek_last_error());
    ERR_clear_error();
    return reason == nullptr ? "no reason" : reason;
}

void check(bool succeeded, const char* what) {
    if (!succeeded) {
        throw std::runtime_error(std::string(what) + ": " + reasonOfLastError());
    }
}

void setName(X509_NAME* name, const std::string& commonName) {
    check(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                     reinterpret_cast<const unsigned char*>(commonName.c_str()), -1,
                                     -1, 0) == 1,
          "name");
}

void addExtension(X509* certificate, int id, const std::string& value) {
    const std::unique_ptr<X509_EXTENSION, ExtensionDeleter> extension(
        X509V3_EXT_conf_nid(nullptr, nullptr, id, value.c_str()));
    check(extension != nullptr && X509_add_ext(certificate, extension.get(), -1) == 1, "extension");
}

/// A new key with a certificate that is not signed yet.
Identity makeIdentity(const std::string& commonName, const Validity& validity) {
    Identity made{std::unique_ptr<EVP_PKEY, OpenSslDeleter>(EVP_EC_gen("P-256")),
                  std::unique_ptr<X509, OpenSslDeleter>(X509_new())};
    X509* certificate = made.certificate.get();
    check(made.key != nullptr && certificate != nullptr, "key and certificate");
    static long serialNumber = 1;
    X509_set_version(certificate, kX509Version3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), serialNumber++);
    X509_gmtime_adj(X509_getm_notBefore(certificate), validity.from * kSecondsPerDay);
    X509_gmtime_adj(X509_getm_notAfter(certificate), validity.to * kSecondsPerDay);
    X509_set_pubkey(certificate, made.key.get());
    setName(X509_get_subject_name(certificate), commonName);
    return made;
}

void sign(const Identity& subject, const X509* issuer, EVP_PKEY* issuerKey) {
    check(X509_set_issuer_name(subject.certificate.get(), X509_get_subject_name(issuer)) == 1,
          "issuer");
    check(X509_sign(subject.certificate.get(), issuerKey, EVP_sha256()) > 0, "signature");
}

bool isAddress(const std::string& host) {
    return host.find_first_not_of("0123456789.") == std::string::npos;
}

void nameHost(X509* certificate, const std::string& host) {
    addExtension(certificate, NID_subject_alt_name, (isAddress(host) ? "IP:" : "DNS:") + host);
}

int saturated(std::size_t size) {
    return static_cast<int>(std::min<std::size_t>(size, INT_MAX));
}

/// OpenSSL works on memory; what it has to send and wants to receive goes over the plain transport.
class TlsTransport : public Transport {
  public:
    TlsTransport(SSL_CTX* context, const SocketGate& gate)
        : m_wire(makePlainTransport(gate)),
          m_session(SSL_new(context)),
          m_incoming(BIO_new(BIO_s_mem())),
          m_outgoing(BIO_new(BIO_s_mem())) {
        check(m_session != nullptr && m_incoming != nullptr && m_outgoing != nullptr, "session");
        SSL_set_bio(m_session.get(), m_incoming, m_outgoing);
        SSL_set_accept_state(m_session.get());
    }

    std::size_t receive(char* buffer, std::size_t size) override {
        shakeHands();
        const int count =
            perform([&] { return SSL_read(m_session.get(), buffer, saturated(size)); });
        return static_cast<std::size_t>(count);
    }

    void send(std::string_view bytes) override {
        shakeHands();
        while (!bytes.empty()) {
            const int count = perform(
                [&] { return SSL_write(m_session.get(), bytes.data(), saturated(bytes.size())); });
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
    }

    void endSending() override {
        SSL_shutdown(m_session.get());
        sendOutgoing();
        m_wire->endSending();
    }

  private:
    void shakeHands() {
        if (SSL_is_init_finished(m_session.get()) == 0) {
            perform([&] { return SSL_do_handshake(m_session.get()); });
        }
    }

    /// Repeats an operation with what it needs from the wire. 0 at the end of the stream.
    template <class Operation>
    int perform(Operation operation) {
        for (;;) {
            const int result = operation();
            const int error = SSL_get_error(m_session.get(), result);
            sendOutgoing();
            if (result > 0) {
                return result;
            }
            if (error == SSL_ERROR_ZERO_RETURN) {
                return 0;
            }
            if (error != SSL_ERROR_WANT_READ) {
                throw HandshakeRefused(reasonOfLastError());
            }
            if (!receiveIncoming()) {
                return endOfWire();
            }
        }
    }

    int endOfWire() const {
        if (SSL_is_init_finished(m_session.get()) == 0) {
            throw ConnectionLost("the client closed during the handshake");
        }
        return 0;
    }

    void sendOutgoing() {
        std::array<char, kBufferSize> buffer{};
        while (BIO_pending(m_outgoing) > 0) {
            const int count = BIO_read(m_outgoing, buffer.data(), saturated(buffer.size()));
            m_wire->send({buffer.data(), static_cast<std::size_t>(std::max(count, 0))});
        }
    }

    bool receiveIncoming() {
        std::array<char, kBufferSize> buffer{};
        const std::size_t count = m_wire->receive(buffer.data(), buffer.size());
        BIO_write(m_incoming, buffer.data(), saturated(count));
        return count > 0;
    }

    std::unique_ptr<Transport> m_wire;
    std::unique_ptr<SSL, OpenSslDeleter> m_session;
    // Owned by the session.
    BIO* m_incoming;
    BIO* m_outgoing;
};

}  // namespace

std::string Identity::pem() const {
    const BioPtr text(BIO_new(BIO_s_mem()));
    check(text != nullptr && PEM_write_bio_X509(text.get(), certificate.get()) == 1, "PEM");
    char* data = nullptr;
    const long size = BIO_get_mem_data(text.get(), &data);
    return {data, static_cast<std::size_t>(size)};
}

CertificateAuthority::CertificateAuthority(const std::string& name, const Validity& validity)
    : m_identity(makeIdentity(name, validity)) {
    addExtension(m_identity.certificate.get(), NID_basic_constraints, "critical,CA:TRUE");
    addExtension(m_identity.certificate.get(), NID_key_usage, "critical,keyCertSign,cRLSign");
    sign(m_identity, m_identity.certificate.get(), m_identity.key.get());
}

Identity CertificateAuthority::issue(const std::string& host, const Validity& validity) const {
    Identity issued = makeIdentity(host, validity);
    nameHost(issued.certificate.get(), host);
    sign(issued, m_identity.certificate.get(), m_identity.key.get());
    return issued;
}

Identity selfSigned(const std::string& host) {
    Identity made = makeIdentity(host, {});
    nameHost(made.certificate.get(), host);
    sign(made, made.certificate.get(), made.key.get());
    return made;
}

TransportFactory tlsTransport(const Identity& identity, const TlsVersions& versions) {
    const std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), OpenSslDeleter());
    check(context != nullptr && SSL_CTX_use_certificate(context.get(), identity.certificate.get()),
          "certificate");
    check(SSL_CTX_use_PrivateKey(context.get(), identity.key.get()) == 1, "private key");
    SSL_CTX_set_min_proto_version(context.get(), versions.oldest);
    SSL_CTX_set_max_proto_version(context.get(), versions.newest);
    return [context](const SocketGate& gate) {
        return std::make_unique<TlsTransport>(context.get(), gate);
    };
}

Step expectRefusal(const std::string& alert) {
    return [alert](Conversation& client) {
        try {
            client.receiveBytes(1);
        } catch (const HandshakeRefused& refused) {
            if (std::string(refused.what()).find(alert) == std::string::npos) {
                throw ScriptFailure("refused with another alert: " + std::string(refused.what()));
            }
            return;
        }
        throw ScriptFailure("the client has accepted the server");
    };
}

}  // namespace tessaro_com::pkm::voInet::wire
