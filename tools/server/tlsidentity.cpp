#include "tlsidentity.h"

#include "replacefile.h"
#include "starterror.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

namespace voinetserver {
namespace {

namespace fs = std::filesystem;

using Extension = std::unique_ptr<X509_EXTENSION, OpenSslDeleter<X509_EXTENSION_free>>;
using Memory = std::unique_ptr<BIO, OpenSslDeleter<BIO_free_all>>;
using Serial = std::unique_ptr<BIGNUM, OpenSslDeleter<BN_free>>;

constexpr const char* kAuthorityFile = "ca.pem";
constexpr const char* kAuthorityName = "voinet-server throw-away CA";
constexpr const char* kServerName = "voinet-server";

constexpr int kDaysBefore = -1;
constexpr int kDaysAfter = 365;
constexpr int kSerialBits = 127;

struct ExtensionText {
    int kind;
    std::string value;
};

void require(bool ok) {
    if (!ok) {
        std::array<char, 256> reason{};
        ::ERR_error_string_n(::ERR_get_error(), reason.data(), reason.size());
        throw StartError(std::string("the certificate for TLS cannot be made: ") + reason.data());
    }
}

PrivateKey makeKey() {
    PrivateKey key(::EVP_EC_gen("P-256"));
    require(key != nullptr);
    return key;
}

// Random, so that a client that has seen another certificate of this name can tell them apart.
void setSerial(X509* certificate) {
    const Serial number(::BN_new());
    require(number != nullptr &&
            ::BN_rand(number.get(), kSerialBits, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY) == 1 &&
            ::BN_to_ASN1_INTEGER(number.get(), ::X509_get_serialNumber(certificate)) != nullptr);
}

void setValidity(X509* certificate) {
    require(::X509_time_adj_ex(::X509_getm_notBefore(certificate), kDaysBefore, 0, nullptr) !=
                nullptr &&
            ::X509_time_adj_ex(::X509_getm_notAfter(certificate), kDaysAfter, 0, nullptr) !=
                nullptr);
}

void setName(X509* certificate, const char* name) {
    require(::X509_NAME_add_entry_by_NID(::X509_get_subject_name(certificate), NID_commonName,
                                         MBSTRING_ASC, reinterpret_cast<const unsigned char*>(name),
                                         -1, -1, 0) == 1);
}

void addExtensions(X509* certificate, X509* issuer, const std::vector<ExtensionText>& extensions) {
    X509V3_CTX context{};
    X509V3_set_ctx_nodb(&context);
    ::X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    for (const auto& [kind, value] : extensions) {
        const Extension extension(::X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()));
        require(extension != nullptr && ::X509_add_ext(certificate, extension.get(), -1) == 1);
    }
}

// Without an issuer it signs itself. Lacks its extensions and the signature.
Certificate makeCertificate(const char* name, EVP_PKEY* key, const X509* issuer) {
    Certificate certificate(::X509_new());
    require(certificate != nullptr && ::X509_set_version(certificate.get(), X509_VERSION_3) == 1 &&
            ::X509_set_pubkey(certificate.get(), key) == 1);
    setSerial(certificate.get());
    setValidity(certificate.get());
    setName(certificate.get(), name);
    const X509* signer = issuer != nullptr ? issuer : certificate.get();
    require(::X509_set_issuer_name(certificate.get(), ::X509_get_subject_name(signer)) == 1);
    return certificate;
}

void sign(X509* certificate, EVP_PKEY* key) {
    require(::X509_sign(certificate, key, ::EVP_sha256()) > 0);
}

Certificate makeAuthority(EVP_PKEY* key) {
    Certificate authority = makeCertificate(kAuthorityName, key, nullptr);
    addExtensions(authority.get(), authority.get(),
                  {{NID_basic_constraints, "critical,CA:TRUE,pathlen:0"},
                   {NID_key_usage, "critical,keyCertSign,cRLSign"},
                   {NID_subject_key_identifier, "hash"}});
    sign(authority.get(), key);
    return authority;
}

std::string alternativeNames(const std::string& address) {
    std::string names = "DNS:localhost,IP:127.0.0.1,IP:::1";
    if (address != "127.0.0.1" && address != "::1") {
        names += ",IP:" + address;
    }
    return names;
}

Certificate makeServerCertificate(EVP_PKEY* key, X509* authority, EVP_PKEY* authorityKey,
                                  const std::string& address) {
    Certificate certificate = makeCertificate(kServerName, key, authority);
    addExtensions(certificate.get(), authority,
                  {{NID_basic_constraints, "critical,CA:FALSE"},
                   {NID_key_usage, "critical,digitalSignature"},
                   {NID_ext_key_usage, "serverAuth"},
                   {NID_subject_key_identifier, "hash"},
                   {NID_authority_key_identifier, "keyid:always"},
                   {NID_subject_alt_name, alternativeNames(address)}});
    sign(certificate.get(), authorityKey);
    return certificate;
}

std::string pemOf(X509* certificate) {
    const Memory memory(::BIO_new(::BIO_s_mem()));
    require(memory != nullptr && ::PEM_write_bio_X509(memory.get(), certificate) == 1);
    char* text = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &text);
    return {text, static_cast<std::size_t>(size)};
}

}  // namespace

TlsIdentity::TlsIdentity(const std::string& address) : key_(makeKey()) {
    const PrivateKey authorityKey = makeKey();
    const Certificate authority = makeAuthority(authorityKey.get());
    certificate_ = makeServerCertificate(key_.get(), authority.get(), authorityKey.get(), address);
    authorityPem_ = pemOf(authority.get());
}

void TlsIdentity::writeAuthority(const std::string& directory) const {
    const fs::path file = fs::path(directory) / kAuthorityFile;
    std::error_code error;
    fs::create_directories(directory, error);
    if (!error && !replaceFile(file.string(), authorityPem_)) {
        error = std::error_code(errno, std::generic_category());
    }
    if (error) {
        throw StartError("the CA file " + file.string() + " cannot be written: " + error.message());
    }
}

}  // namespace voinetserver
