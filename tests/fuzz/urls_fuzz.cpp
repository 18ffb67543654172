// Paths, URLs and credentials (INetUtils.h).

#include "support/fuzztarget.h"
#include "support/input.h"
#include "voinet/INetUtils.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace voinet_fuzz {

namespace {

namespace voInet = tessaro_com::pkm::voInet;

std::wstring widenedBytes(const std::string& text) {
    std::wstring wide;
    for (const char each : text) {
        wide += static_cast<wchar_t>(static_cast<unsigned char>(each));
    }
    return wide;
}

std::string withoutEscapes(const std::string& encoded) {
    std::string text;
    for (std::size_t i = 0; i < encoded.size(); ++i) {
        if (encoded[i] != '%') {
            text += encoded[i];
            continue;
        }
        const std::string digits = encoded.substr(i + 1, 2);
        require(digits == "40" || digits == "25" || digits == "3a", "only @ % : are encoded",
                digits);
        text += static_cast<char>(std::stoi(digits, nullptr, 16));
        i += 2;
    }
    return text;
}

void checkCredential(const std::string& credential) {
    const std::string encoded = voInet::fixCredentialWithSpecialCharacters(credential);
    require(encoded.find_first_of("@:") == std::string::npos, "a credential has no @ and no :");
    require(withoutEscapes(encoded) == credential, "a credential can be decoded");
    require(voInet::fixCredentialWithSpecialCharacters(widenedBytes(credential)) ==
                widenedBytes(encoded),
            "the wide form encodes alike");
}

void checkPath(const std::string& path) {
    std::string converted = path;
    require(voInet::ConvertMSPathtoUnixPath(converted), "converting succeeds");
    require(converted.size() == path.size(), "a path keeps its length");
    for (std::size_t i = 0; i < path.size(); ++i) {
        require(converted[i] == (path[i] == '\\' ? '/' : path[i]), "only backslashes change");
    }
    std::vector<char> buffer(path.c_str(), path.c_str() + path.size() + 1);
    require(voInet::ConvertMSPathtoUnixPath(buffer.data()), "converting in place succeeds");
    require(std::strcmp(buffer.data(), converted.c_str()) == 0, "both forms convert alike");
}

/// Positions of `what`, in order.
std::vector<std::size_t> positionsOf(const std::string& text, const std::string& what) {
    std::vector<std::size_t> positions;
    for (std::size_t at = 0; at + what.size() <= text.size(); ++at) {
        if (text.compare(at, what.size(), what) == 0) {
            positions.push_back(at);
        }
    }
    return positions;
}

struct Separator {
    std::size_t position = std::string::npos;
    int length = 0;

    bool operator==(const Separator& other) const {
        return position == other.position && length == other.length;
    }
};

constexpr int kUntouched = -77;

Separator expected(const std::vector<std::string>& separators, const std::string& url,
                   bool fromEnd) {
    for (const std::string& separator : separators) {
        const auto positions = positionsOf(url, separator);
        if (!positions.empty()) {
            return {fromEnd ? positions.back() : positions.front(),
                    static_cast<int>(separator.size())};
        }
    }
    return {std::string::npos, kUntouched};
}

template <class Text, class Find>
Separator found(Find find, const Text& url, bool bracketAware) {
    Separator separator;
    separator.length = kUntouched;
    separator.position = find(url, separator.length, bracketAware);
    return separator;
}

void checkSeparators(const std::string& url) {
    const auto prefix = [](const auto& text, int& length, bool aware) {
        return voInet::findPrefixInUrl(text, length, aware);
    };
    const auto port = [](const auto& text, int& length, bool aware) {
        return voInet::findPortInUrl(text, length, aware);
    };
    const std::wstring wide = widenedBytes(url);
    for (const bool aware : {false, true}) {
        using Texts = std::vector<std::string>;
        const auto prefixes = aware ? Texts{"://[", "://"} : Texts{"://"};
        const auto ports = aware ? Texts{"]:", ":"} : Texts{":"};
        require(found(prefix, url, aware) == expected(prefixes, url, false), "scheme separator");
        require(found(prefix, wide, aware) == expected(prefixes, url, false), "wide scheme");
        require(found(port, url, aware) == expected(ports, url, true), "port separator");
        require(found(port, wide, aware) == expected(ports, url, true), "wide port");
    }
}

void checkHost(const std::string& url) {
    const std::string host = voInet::canonicalize(url);
    require(url.find(host) != std::string::npos, "the host is a part of the URL", host);
    require(host.find('/') == std::string::npos, "a host has no path", host);
    require(voInet::canonicalize(host).size() <= host.size(), "a host does not grow");
}

/// A URL that is put together comes apart again.
void checkComposedUrl(const std::string& text) {
    std::string host = text.substr(0, text.size() / 2);
    host.erase(std::remove_if(host.begin(), host.end(),
                              [](char each) { return std::strchr(":/[]", each) != nullptr; }),
               host.end());
    const std::string path = "/" + text.substr(text.size() / 2);
    if (path.find("://[") != std::string::npos) {
        return;  // it would be taken for the scheme's
    }
    require(voInet::canonicalize("http://" + host + ":8080" + path) == host, "host and port");
    require(voInet::canonicalize("http://" + host + path) == host, "host without a port");
    require(voInet::canonicalize(host + ":1") == host, "host without a scheme");
    const std::string address = "fe80::" + host;
    require(voInet::canonicalize("http://[" + address + "]:80" + path) == address,
            "an IPv6 address with a port loses its brackets");
}

}  // namespace

void tryInput(const std::string& bytes) {
    checkCredential(bytes);
    checkPath(bytes);
    checkSeparators(bytes);
    checkHost(bytes);
    checkComposedUrl(bytes);
}

}  // namespace voinet_fuzz
