#include "tlsclient.h"

#include "descriptor.h"

#include <arpa/inet.h>
#include <mbedtls/entropy.h>
#include <mbedtls/error.h>
#include <mbedtls/ssl.h>
#include <mbedtls/x509_crt.h>
#include <netdb.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <cstddef>
#include <stdexcept>

namespace voinettest {
namespace {

using AddressList = std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)>;

// Only reached when something is broken.
constexpr timeval kPatience{60, 0};

// A structure of mbedTLS, which must stay where it is.
template <class Object, auto initialise, auto release>
class Managed {
  public:
    Managed() { initialise(&object_); }
    ~Managed() { release(&object_); }
    Managed(const Managed&) = delete;
    Managed& operator=(const Managed&) = delete;

    Object* get() { return &object_; }

  private:
    Object object_{};
};

void check(int result, const std::string& what) {
    if (result < 0) {
        std::array<char, 256> reason{};
        mbedtls_strerror(result, reason.data(), reason.size());
        throw std::runtime_error("TLS client: " + what + ": " + reason.data());
    }
}

AddressList resolve(const std::string& address, std::uint16_t port) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) {
        throw std::runtime_error(address + " is no numeric address");
    }
    return {found, ::freeaddrinfo};
}

Descriptor connectTo(const std::string& address, std::uint16_t port) {
    const AddressList target = resolve(address, port);
    Descriptor connection(
        ::socket(target->ai_family, target->ai_socktype | SOCK_CLOEXEC, target->ai_protocol));
    require(connection.isOpen(), "making a socket");
    for (const int direction : {SO_RCVTIMEO, SO_SNDTIMEO}) {
        ::setsockopt(connection.get(), SOL_SOCKET, direction, &kPatience, sizeof(kPatience));
    }
    require(::connect(connection.get(), target->ai_addr, target->ai_addrlen) == 0, "connecting");
    return connection;
}

int fillRandomly(void* /*context*/, unsigned char* bytes, std::size_t size) {
    const auto count = ::getrandom(bytes, size, 0);
    return count == static_cast<ssize_t>(size) ? 0 : MBEDTLS_ERR_ENTROPY_SOURCE_FAILED;
}

int sendToSocket(void* socket, const unsigned char* bytes, std::size_t size) {
    const auto count =
        ::send(static_cast<const Descriptor*>(socket)->get(), bytes, size, MSG_NOSIGNAL);
    return count < 0 ? MBEDTLS_ERR_SSL_INTERNAL_ERROR : static_cast<int>(count);
}

int receiveFromSocket(void* socket, unsigned char* buffer, std::size_t size) {
    const auto count = ::recv(static_cast<const Descriptor*>(socket)->get(), buffer, size, 0);
    return count < 0 ? MBEDTLS_ERR_SSL_INTERNAL_ERROR : static_cast<int>(count);
}

std::time_t timeOf(const mbedtls_x509_time& time) {
    std::tm parts{};
    parts.tm_year = time.year - 1900;
    parts.tm_mon = time.mon - 1;
    parts.tm_mday = time.day;
    parts.tm_hour = time.hour;
    parts.tm_min = time.min;
    parts.tm_sec = time.sec;
    return ::timegm(&parts);
}

std::string textOfAddress(const mbedtls_x509_buf& address) {
    constexpr std::size_t kIpv4Size = 4;
    std::array<char, INET6_ADDRSTRLEN> text{};
    const int family = address.len == kIpv4Size ? AF_INET : AF_INET6;
    require(::inet_ntop(family, address.p, text.data(), text.size()) != nullptr, "inet_ntop");
    return text.data();
}

std::string textOfName(const mbedtls_x509_buf& name) {
    switch (name.tag & MBEDTLS_ASN1_TAG_VALUE_MASK) {
        case MBEDTLS_X509_SAN_DNS_NAME:
            return "DNS:" + std::string(reinterpret_cast<const char*>(name.p), name.len);
        case MBEDTLS_X509_SAN_IP_ADDRESS:
            return "IP:" + textOfAddress(name);
        default:
            return "a name of kind " + std::to_string(name.tag);
    }
}

std::vector<std::string> namesOf(const mbedtls_x509_sequence& entries) {
    std::vector<std::string> names;
    for (const auto* entry = &entries; entry != nullptr; entry = entry->next) {
        names.push_back(textOfName(entry->buf));
    }
    return names;
}

}  // namespace

struct TlsConnection::Session {
    Session(std::uint16_t port, const std::string& caFile, const std::string& address)
        : socket(connectTo(address, port)) {
        check(mbedtls_x509_crt_parse_file(trusted.get(), caFile.c_str()), "reading " + caFile);
        check(mbedtls_ssl_config_defaults(configuration.get(), MBEDTLS_SSL_IS_CLIENT,
                                          MBEDTLS_SSL_TRANSPORT_STREAM, MBEDTLS_SSL_PRESET_DEFAULT),
              "making a configuration");
        mbedtls_ssl_conf_rng(configuration.get(), fillRandomly, nullptr);
        mbedtls_ssl_conf_ca_chain(configuration.get(), trusted.get(), nullptr);
        mbedtls_ssl_conf_authmode(configuration.get(), MBEDTLS_SSL_VERIFY_OPTIONAL);
        check(mbedtls_ssl_setup(session.get(), configuration.get()), "making a session");
        mbedtls_ssl_set_bio(session.get(), &socket, sendToSocket, receiveFromSocket, nullptr);
        check(mbedtls_ssl_handshake(session.get()), "the handshake");
    }

    Descriptor socket;
    Managed<mbedtls_x509_crt, mbedtls_x509_crt_init, mbedtls_x509_crt_free> trusted;
    Managed<mbedtls_ssl_config, mbedtls_ssl_config_init, mbedtls_ssl_config_free> configuration;
    Managed<mbedtls_ssl_context, mbedtls_ssl_init, mbedtls_ssl_free> session;
};

TlsConnection::TlsConnection(std::uint16_t port, const std::string& caFile,
                             const std::string& address)
    : session_(std::make_unique<Session>(port, caFile, address)) {}

TlsConnection::~TlsConnection() = default;

bool TlsConnection::isVerified() const {
    return mbedtls_ssl_get_verify_result(session_->session.get()) == 0;
}

ServerCertificate TlsConnection::certificate() const {
    const mbedtls_x509_crt* certificate = mbedtls_ssl_get_peer_cert(session_->session.get());
    if (certificate == nullptr) {
        throw std::runtime_error("TLS client: the server has no certificate");
    }
    return {namesOf(certificate->subject_alt_names), certificate->ca_istrue != 0,
            timeOf(certificate->valid_from), timeOf(certificate->valid_to)};
}

void TlsConnection::send(const std::string& bytes) const {
    for (std::size_t sent = 0; sent < bytes.size();) {
        const int count = mbedtls_ssl_write(
            session_->session.get(), reinterpret_cast<const unsigned char*>(bytes.data()) + sent,
            bytes.size() - sent);
        check(count, "sending");
        sent += static_cast<std::size_t>(count);
    }
}

std::string TlsConnection::readToEnd() const {
    std::string received;
    std::array<unsigned char, 16384> buffer{};
    int count = 0;
    do {
        count = mbedtls_ssl_read(session_->session.get(), buffer.data(), buffer.size());
        received.append(reinterpret_cast<const char*>(buffer.data()),
                        static_cast<std::size_t>(count > 0 ? count : 0));
    } while (count > 0);
    return received;
}

}  // namespace voinettest
