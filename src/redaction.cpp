#include "redaction.h"

#include "asciitext.h"
#include "voinet/INetUtils.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <utility>

namespace tessaro_com::pkm::voInet {

namespace {

constexpr std::string_view kMark = "***";
constexpr std::size_t kShortestSecret = 4;

/// Header lines whose values are credentials.
constexpr std::string_view kSecretHeaders[] = {
    "Authorization",
    "Proxy-Authorization",
    "Authentication-Info",
    "Proxy-Authentication-Info",
    "Cookie",
    "Cookie2",
    "Set-Cookie",
    "Set-Cookie2",
    "UpdateToken",
};

/// Header lines of nothing but figures, which a host decides by: a password of digits must not
/// change them.
constexpr std::string_view kFigureHeaders[] = {"Content-Length", "Content-Range", "Retry-After"};

template <std::size_t size>
bool isAmong(const std::string_view (&names)[size], std::string_view name) {
    return std::any_of(std::begin(names), std::end(names),
                       [name](std::string_view each) { return equalsIgnoringCase(each, name); });
}

std::string base64(std::string_view bytes) {
    constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    constexpr std::size_t kGroup = 3;
    std::string text;
    for (std::size_t start = 0; start < bytes.size(); start += kGroup) {
        const auto group = bytes.substr(start, kGroup);
        std::uint32_t bits = 0;
        for (std::size_t i = 0; i < kGroup; ++i) {
            bits = bits << 8 | (i < group.size() ? static_cast<unsigned char>(group[i]) : 0U);
        }
        for (std::size_t i = 0; i <= kGroup; ++i) {
            text += i <= group.size() ? kDigits[bits >> (18 - 6 * i) & 0x3FU] : '=';
        }
    }
    return text;
}

/// Every character that is no letter or digit as "%" and two hexadecimal digits.
std::string percentEncoded(std::string_view plain, const char* hexDigits) {
    std::string text;
    for (const char c : plain) {
        const auto byte = static_cast<unsigned char>(c);
        const char lower = toLowerAscii(c);
        if ((lower >= 'a' && lower <= 'z') || (c >= '0' && c <= '9')) {
            text += c;
        } else {
            text += {'%', hexDigits[byte / 16], hexDigits[byte % 16]};
        }
    }
    return text;
}

/// Cuts "user:password@" out of the URL whose authority begins at `start`. Returns where to go on.
std::size_t cutUserInformation(std::string& text, std::size_t start) {
    const auto end = std::min(text.find_first_of("/?# \t\"'<>", start), text.size());
    const auto at = text.rfind('@', end);
    if (at == std::string::npos || at < start || at >= end) {
        return start;
    }
    text.erase(start, at - start + 1);
    return start;
}

void cutUserInformation(std::string& text) {
    constexpr std::string_view kAuthority = "//";
    constexpr std::string_view kScheme = "://";
    if (startsWith(text, kAuthority)) {
        cutUserInformation(text, kAuthority.size());
    }
    std::size_t found = text.find(kScheme);
    while (found != std::string::npos) {
        found = text.find(kScheme, cutUserInformation(text, found + kScheme.size()));
    }
}

void replaceAll(std::string& text, const std::string& secret) {
    for (auto found = text.find(secret); found != std::string::npos;
         found = text.find(secret, found + kMark.size())) {
        text.replace(found, secret.size(), kMark);
    }
}

}  // namespace

Redaction::Redaction(const TransferItf& settings) {
    addCredentials(settings.m_strUser_utf8_rep, settings.m_strPassword_utf8_rep);
    addCredentials(settings.m_strProxyUserName_utf8_rep, settings.m_strProxyPassword_utf8_rep);
    addCredentials(settings.m_strAltProxyUserName_utf8_rep,
                   settings.m_strAltProxyPassword_utf8_rep);
    addSecret(unicode_to_utf8(settings.m_strUpdateToken));
    std::sort(m_secrets.begin(), m_secrets.end(),
              [](const std::string& a, const std::string& b) { return a.size() > b.size(); });
}

void Redaction::addSecret(const std::string& secret) {
    if (secret.size() < kShortestSecret) {
        return;
    }
    m_secrets.push_back(secret);
    m_secrets.push_back(percentEncoded(secret, "0123456789abcdef"));
    m_secrets.push_back(percentEncoded(secret, "0123456789ABCDEF"));
    m_secrets.push_back(fixCredentialWithSpecialCharacters(secret));
}

void Redaction::addCredentials(const std::string& user, const std::string& password) {
    if (!password.empty()) {
        addSecret(password);
        addSecret(base64(user + ":" + password));
    }
}

std::string Redaction::text(std::string_view raw) const {
    std::string text(raw);
    cutUserInformation(text);
    for (const std::string& secret : m_secrets) {
        replaceAll(text, secret);
    }
    // A server may send anything; the conversion there and back replaces what is ill-formed.
    return unicode_to_utf8(utf8_to_unicode(text));
}

HeaderField Redaction::header(std::string_view name, std::string_view value) const {
    if (isAmong(kSecretHeaders, name)) {
        return {std::string(name), std::string(kMark)};
    }
    if (isAmong(kFigureHeaders, name)) {
        return {std::string(name), unicode_to_utf8(utf8_to_unicode(std::string(value)))};
    }
    return {text(name), text(value)};
}

}  // namespace tessaro_com::pkm::voInet
