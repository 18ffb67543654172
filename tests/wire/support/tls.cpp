#include "support/tls.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <mbedtls/asn1write.h>
#include <mbedtls/entropy.h>
#include <mbedtls/error.h>
#include <mbedtls/oid.h>
#include <mbedtls/pk.h>
#include <mbedtls/ssl.h>
#include <mbedtls/x509_crt.h>
#include <sys/random.h>

#include <array>
#include <cstddef>
#include <ctime>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace tessaro_com::pkm::voInet::wire {

namespace {

constexpr std::size_t kPemSize = 4096;
constexpr std::size_t kExtensionSize = 512;
constexpr std::time_t kSecondsPerDay = std::time_t{24} * 60 * 60;

/// The client has refused the handshake.
class HandshakeRefused : public ScriptFailure {
  public:
    explicit HandshakeRefused(int alert)
        : ScriptFailure("refused with alert " + std::to_string(alert)), m_alert(alert) {}

    int alert() const { return m_alert; }

  private:
    int m_alert;
};

/// The client has left before the handshake was complete, without a reason.
class HandshakeCut : public ConnectionLost {
  public:
    HandshakeCut() : ConnectionLost("the client closed during the handshake") {}
};

/// A structure of mbedTLS, which must stay where it is.
template <class Object, auto initialise, auto release>
class Managed {
  public:
    Managed() { initialise(&m_object); }
    ~Managed() { release(&m_object); }
    Managed(const Managed&) = delete;
    Managed& operator=(const Managed&) = delete;

    Object* get() { return &m_object; }

  private:
    Object m_object{};
};

using Certificate = Managed<mbedtls_x509_crt, mbedtls_x509_crt_init, mbedtls_x509_crt_free>;
using Configuration = Managed<mbedtls_ssl_config, mbedtls_ssl_config_init, mbedtls_ssl_config_free>;
using Draft =
    Managed<mbedtls_x509write_cert, mbedtls_x509write_crt_init, mbedtls_x509write_crt_free>;
using Key = Managed<mbedtls_pk_context, mbedtls_pk_init, mbedtls_pk_free>;
using Number = Managed<mbedtls_mpi, mbedtls_mpi_init, mbedtls_mpi_free>;
using Session = Managed<mbedtls_ssl_context, mbedtls_ssl_init, mbedtls_ssl_free>;

std::string reason(int error) {
    std::array<char, 256> text{};
    mbedtls_strerror(error, text.data(), text.size());
    return text.data();
}

/// Sizes are results as well.
std::size_t check(int result, const char* what) {
    if (result < 0) {
        throw std::runtime_error(std::string(what) + ": " + reason(result));
    }
    return static_cast<std::size_t>(result);
}

int fillRandomly(void* /*context*/, unsigned char* bytes, std::size_t size) {
    const auto count = ::getrandom(bytes, size, 0);
    return count == static_cast<ssize_t>(size) ? 0 : MBEDTLS_ERR_ENTROPY_SOURCE_FAILED;
}

const unsigned char* octets(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.c_str());
}

/// The size of a PEM text counts the zero at its end.
void parseKey(Key& key, const std::string& pem) {
    check(mbedtls_pk_parse_key(key.get(), octets(pem), pem.size() + 1, nullptr, 0), "key");
}

void makeKey(Key& key) {
    check(mbedtls_pk_setup(key.get(), mbedtls_pk_info_from_type(MBEDTLS_PK_ECKEY)), "key");
    check(mbedtls_ecp_gen_key(MBEDTLS_ECP_DP_SECP256R1, mbedtls_pk_ec(*key.get()), fillRandomly,
                              nullptr),
          "key");
}

std::string pemOf(Key& key) {
    std::array<unsigned char, kPemSize> text{};
    check(mbedtls_pk_write_key_pem(key.get(), text.data(), text.size()), "PEM");
    return reinterpret_cast<const char*>(text.data());
}

std::string pemOf(Draft& draft) {
    std::array<unsigned char, kPemSize> text{};
    check(mbedtls_x509write_crt_pem(draft.get(), text.data(), text.size(), fillRandomly, nullptr),
          "PEM");
    return reinterpret_cast<const char*>(text.data());
}

std::string timeInDays(int days) {
    const std::time_t time = std::time(nullptr) + days * kSecondsPerDay;
    std::tm parts{};
    ::gmtime_r(&time, &parts);
    std::array<char, 16> text{};
    std::strftime(text.data(), text.size(), "%Y%m%d%H%M%S", &parts);
    return text.data();
}

void describe(Draft& draft, const std::string& subject, const std::string& issuer,
              const Validity& validity) {
    static int serialNumber = 1;
    Number serial;
    check(mbedtls_mpi_lset(serial.get(), serialNumber++), "serial number");
    check(mbedtls_x509write_crt_set_serial(draft.get(), serial.get()), "serial number");
    check(mbedtls_x509write_crt_set_validity(draft.get(), timeInDays(validity.from).c_str(),
                                             timeInDays(validity.to).c_str()),
          "validity");
    check(mbedtls_x509write_crt_set_subject_name(draft.get(), ("CN=" + subject).c_str()), "name");
    check(mbedtls_x509write_crt_set_issuer_name(draft.get(), ("CN=" + issuer).c_str()), "name");
    mbedtls_x509write_crt_set_md_alg(draft.get(), MBEDTLS_MD_SHA256);
}

void markAsAuthority(Draft& draft) {
    constexpr int kAnyLength = -1;
    check(mbedtls_x509write_crt_set_basic_constraints(draft.get(), 1, kAnyLength), "extension");
    check(mbedtls_x509write_crt_set_key_usage(
              draft.get(), MBEDTLS_X509_KU_KEY_CERT_SIGN | MBEDTLS_X509_KU_CRL_SIGN),
          "extension");
}

struct AlternativeName {
    unsigned char kind;
    std::string value;
};

AlternativeName alternativeName(const std::string& host) {
    in_addr address{};
    if (::inet_pton(AF_INET, host.c_str(), &address) != 1) {
        return {MBEDTLS_X509_SAN_DNS_NAME, host};
    }
    return {MBEDTLS_X509_SAN_IP_ADDRESS,
            std::string(reinterpret_cast<const char*>(&address), sizeof address)};
}

/// mbedTLS writes DER from the end to the beginning, and has no function for this extension.
void nameHost(Draft& draft, const std::string& host) {
    constexpr const char* kWhat = "alternative name";
    const AlternativeName name = alternativeName(host);
    std::array<unsigned char, kExtensionSize> der{};
    unsigned char* const begin = der.data();
    unsigned char* at = begin + der.size();
    std::size_t size = check(
        mbedtls_asn1_write_raw_buffer(&at, begin, octets(name.value), name.value.size()), kWhat);
    const auto wrap = [&](int tag) {
        size += check(mbedtls_asn1_write_len(&at, begin, size), kWhat);
        size += check(mbedtls_asn1_write_tag(&at, begin, static_cast<unsigned char>(tag)), kWhat);
    };
    wrap(MBEDTLS_ASN1_CONTEXT_SPECIFIC | name.kind);
    wrap(MBEDTLS_ASN1_CONSTRUCTED | MBEDTLS_ASN1_SEQUENCE);
    check(mbedtls_x509write_crt_set_extension(draft.get(), MBEDTLS_OID_SUBJECT_ALT_NAME,
                                              MBEDTLS_OID_SIZE(MBEDTLS_OID_SUBJECT_ALT_NAME), 0, at,
                                              size),
          kWhat);
}

Identity sign(Draft& draft, Key& subjectKey, Key& issuerKey) {
    mbedtls_x509write_crt_set_subject_key(draft.get(), subjectKey.get());
    mbedtls_x509write_crt_set_issuer_key(draft.get(), issuerKey.get());
    return {pemOf(draft), pemOf(subjectKey)};
}

Identity makeAuthority(const std::string& name, const Validity& validity) {
    Key key;
    Draft draft;
    makeKey(key);
    describe(draft, name, name, validity);
    markAsAuthority(draft);
    return sign(draft, key, key);
}

/// What the sessions of a server have in common.
class ServerSetup {
  public:
    explicit ServerSetup(const Identity& identity) {
        const std::string& pem = identity.certificate;
        check(mbedtls_x509_crt_parse(m_certificate.get(), octets(pem), pem.size() + 1),
              "certificate");
        parseKey(m_key, identity.key);
        mbedtls_ssl_config* configuration = m_configuration.get();
        check(mbedtls_ssl_config_defaults(configuration, MBEDTLS_SSL_IS_SERVER,
                                          MBEDTLS_SSL_TRANSPORT_STREAM, MBEDTLS_SSL_PRESET_DEFAULT),
              "configuration");
        mbedtls_ssl_conf_rng(configuration, fillRandomly, nullptr);
        mbedtls_ssl_conf_min_version(configuration, MBEDTLS_SSL_MAJOR_VERSION_3,
                                     MBEDTLS_SSL_MINOR_VERSION_3);
        check(mbedtls_ssl_conf_own_cert(configuration, m_certificate.get(), m_key.get()),
              "certificate");
    }

    const mbedtls_ssl_config* configuration() { return m_configuration.get(); }

  private:
    Certificate m_certificate;
    Key m_key;
    Configuration m_configuration;
};

/// What mbedTLS has to send and wants to receive goes over the plain transport.
class TlsTransport : public Transport {
  public:
    TlsTransport(std::shared_ptr<ServerSetup> setup, const SocketGate& gate)
        : m_setup(std::move(setup)), m_wire(makePlainTransport(gate)) {
        check(mbedtls_ssl_setup(m_session.get(), m_setup->configuration()), "session");
        mbedtls_ssl_set_bio(m_session.get(), this, collect, receiveFromWire, nullptr);
    }

    std::size_t receive(char* buffer, std::size_t size) override {
        return perform(mbedtls_ssl_read, reinterpret_cast<unsigned char*>(buffer), size);
    }

    void send(std::string_view bytes) override {
        while (!bytes.empty()) {
            bytes.remove_prefix(perform(mbedtls_ssl_write,
                                        reinterpret_cast<const unsigned char*>(bytes.data()),
                                        bytes.size()));
        }
    }

    void endSending() override {
        perform(mbedtls_ssl_close_notify);
        m_wire->endSending();
    }

  private:
    /// The result as a size; 0 at the end of the stream.
    template <class... Parameters, class... Arguments>
    std::size_t perform(int (*operation)(mbedtls_ssl_context*, Parameters...),
                        Arguments... arguments) {
        const int result = operation(m_session.get(), arguments...);
        if (m_failure != nullptr) {
            std::rethrow_exception(std::exchange(m_failure, nullptr));
        }
        flush();
        switch (result) {
            case MBEDTLS_ERR_SSL_PEER_CLOSE_NOTIFY:
                return 0;
            case MBEDTLS_ERR_SSL_CONN_EOF:
                throw HandshakeCut();
            case MBEDTLS_ERR_SSL_FATAL_ALERT_MESSAGE:
                throw HandshakeRefused(m_session.get()->in_msg[1]);
            default:
                return succeeded(result);
        }
    }

    static std::size_t succeeded(int result) {
        if (result < 0) {
            throw ScriptFailure("TLS: " + reason(result));
        }
        return static_cast<std::size_t>(result);
    }

    void flush() { m_wire->send(std::exchange(m_outgoing, {})); }

    /// mbedTLS sends each message of a handshake by itself. The client gets them together: one that
    /// refuses the first would otherwise have closed before the last.
    static int collect(void* transport, const unsigned char* bytes, std::size_t size) {
        static_cast<TlsTransport*>(transport)->m_outgoing.append(
            reinterpret_cast<const char*>(bytes), size);
        return static_cast<int>(size);
    }

    /// Nothing must be thrown through mbedTLS: perform() does so behind it.
    static int receiveFromWire(void* transport, unsigned char* buffer, std::size_t size) {
        auto* self = static_cast<TlsTransport*>(transport);
        try {
            self->flush();
            return static_cast<int>(self->m_wire->receive(reinterpret_cast<char*>(buffer), size));
        } catch (...) {
            self->m_failure = std::current_exception();
            return MBEDTLS_ERR_SSL_INTERNAL_ERROR;
        }
    }

    std::shared_ptr<ServerSetup> m_setup;
    std::unique_ptr<Transport> m_wire;
    Session m_session;
    std::string m_outgoing;
    std::exception_ptr m_failure;
};

void awaitAlert(Conversation& client, Alert alert) {
    try {
        client.receiveBytes(1);
    } catch (const HandshakeRefused& refused) {
        if (refused.alert() != static_cast<int>(alert)) {
            throw;
        }
        return;
    }
    throw ScriptFailure("the client has accepted the server");
}

void awaitSilentClose(Conversation& client) {
    try {
        client.receiveBytes(1);
    } catch (const HandshakeCut&) {
        throw;
    } catch (const ConnectionLost&) {
        return;
    }
    throw ScriptFailure("the client has accepted the server");
}

}  // namespace

CertificateAuthority::CertificateAuthority(const std::string& name, const Validity& validity)
    : m_name(name), m_identity(makeAuthority(name, validity)) {}

Identity CertificateAuthority::issue(const std::string& host, const Validity& validity) const {
    Key key;
    Key issuerKey;
    Draft draft;
    makeKey(key);
    parseKey(issuerKey, m_identity.key);
    describe(draft, host, m_name, validity);
    nameHost(draft, host);
    return sign(draft, key, issuerKey);
}

Identity selfSigned(const std::string& host) {
    Key key;
    Draft draft;
    makeKey(key);
    describe(draft, host, host, {});
    nameHost(draft, host);
    return sign(draft, key, key);
}

TransportFactory tlsTransport(const Identity& identity) {
    return [setup = std::make_shared<ServerSetup>(identity)](const SocketGate& gate) {
        return std::make_unique<TlsTransport>(setup, gate);
    };
}

TlsLibrary clientTlsLibrary() {
    const char* name = ::curl_version_info(CURLVERSION_NOW)->ssl_version;
    const std::string_view library = name == nullptr ? "none" : name;
    for (const auto& [prefix, known] :
         {std::pair("OpenSSL/", TlsLibrary::openSsl), std::pair("mbedTLS/", TlsLibrary::mbedTls)}) {
        if (library.substr(0, std::string_view(prefix).size()) == prefix) {
            return known;
        }
    }
    throw std::runtime_error("libcurl's TLS library is an unknown one: " + std::string(library));
}

Step expectRefusal(Alert alert) {
    return [alert, library = clientTlsLibrary()](Conversation& client) {
        if (library == TlsLibrary::openSsl) {
            awaitAlert(client, alert);
        } else {
            awaitSilentClose(client);
        }
    };
}

}  // namespace tessaro_com::pkm::voInet::wire
