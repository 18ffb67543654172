#include "voinet/proxy_detect.h"

#include "kvecomn/anetworkutil.h"
#include "voinet/INetUtils.h"

#include <strings.h>

#include <algorithm>
#include <cstring>

namespace tessaro_com::pkm::voInet {

namespace {

constexpr char kListDelimiters[] = ",; \t\n\r";
constexpr wchar_t kJoin = L';';

/// What kveGetAddrinfo is asked for.
constexpr int kAddressesOfAnyFamily = 1;

bool sameAddress(const char* a, const char* b) {
    const std::size_t length = std::strlen(a);
    return length == std::strlen(b) && strncasecmp(a, b, length) == 0;
}

std::string textOf(const char* name) {
    return name == nullptr ? std::string() : name;
}

/// `host` without its scheme. A path stays, and with it any dot that it holds; intended.
std::string withoutScheme(const std::string& host) {
    int length = 0;
    const auto prefix = findPrefixInUrl(host, length, true);
    return prefix == std::string::npos ? host
                                       : host.substr(prefix + static_cast<std::size_t>(length));
}

bool isSingleLabel(const std::string& host) {
    return host.find_first_of(".:") == std::string::npos;
}

}  // namespace

template bool tokenize<std::string>(const std::string& text, std::vector<std::string>& out,
                                    const std::string& delimiters);

bool MatchAddrList(const std::vector<char*>& a, const std::vector<char*>& b) {
    return std::any_of(a.begin(), a.end(), [&b](const char* one) {
        return std::any_of(b.begin(), b.end(),
                           [one](const char* other) { return sameAddress(one, other); });
    });
}

bool AreSitesIdentical(const char* a, const char* b) {
    ANetworkUtil network;
    std::vector<char*> addressesOfA;
    std::vector<char*> addressesOfB;
    // Both names are looked up, also when the first look-up fails.
    const int resultOfA =
        network.kveGetAddrinfo(canonicalize(textOf(a)), "", addressesOfA, kAddressesOfAnyFamily);
    const int resultOfB =
        network.kveGetAddrinfo(canonicalize(textOf(b)), "", addressesOfB, kAddressesOfAnyFamily);
    const bool identical =
        resultOfA == 0 && resultOfB == 0 && MatchAddrList(addressesOfA, addressesOfB);
    // Only the lists of failed look-ups are handed back, on purpose: those that were filled go
    // with `network`, which owns their texts.
    if (resultOfA != 0) {
        network.kveFreeAddrinfo(addressesOfA);
    }
    if (resultOfB != 0) {
        network.kveFreeAddrinfo(addressesOfB);
    }
    return identical;
}

bool isProxyBypassed(const std::string& host, const std::string& list, const bool& bypassLocal) {
    std::vector<std::string> entries;
    tokenize<std::string>(list, entries, kListDelimiters);
    const bool listed = std::any_of(entries.begin(), entries.end(), [&](const std::string& entry) {
        return AreSitesIdentical(entry.c_str(), host.c_str());
    });
    return listed || (bypassLocal && isSingleLabel(withoutScheme(host)));
}

bool isProxyBypassed(const std::wstring& host, const std::vector<std::wstring>& list,
                     const bool& bypassLocal) {
    std::wstring joined;
    for (const std::wstring& entry : list) {
        joined += entry + kJoin;
    }
    if (!joined.empty()) {
        joined.pop_back();
    }
    return isProxyBypassed(unicode_to_utf8(host), unicode_to_utf8(joined), bypassLocal);
}

}  // namespace tessaro_com::pkm::voInet
