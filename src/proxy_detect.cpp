#include "voinet/proxy_detect.h"

#include "boundary.h"
#include "kvecomn/anetworkutil.h"
#include "proxybypass.h"
#include "voinet/INetUtils.h"

#include <netdb.h>
#include <strings.h>

#include <algorithm>
#include <cstring>
#include <new>

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

std::wstring joined(const std::vector<std::wstring>& list) {
    std::wstring text;
    for (const std::wstring& entry : list) {
        text += entry + kJoin;
    }
    if (!text.empty()) {
        text.pop_back();
    }
    return text;
}

/// The addresses of a site, appended. False when it does not resolve; a resolver without memory has
/// not answered that.
bool lookUp(ANetworkUtil& network, const std::string& site, std::vector<char*>& addresses) {
    const int result =
        network.kveGetAddrinfo(canonicalize(site), "", addresses, kAddressesOfAnyFamily);
    if (result == EAI_MEMORY) {
        throw std::bad_alloc();
    }
    return result == 0;
}

/// Throws std::bad_alloc.
bool haveCommonAddress(const std::string& a, const std::string& b) {
    ANetworkUtil network;
    std::vector<char*> addressesOfA;
    std::vector<char*> addressesOfB;
    // Both names are looked up, also when the first look-up fails.
    const bool isFoundA = lookUp(network, a, addressesOfA);
    const bool isFoundB = lookUp(network, b, addressesOfB);
    const bool identical = isFoundA && isFoundB && MatchAddrList(addressesOfA, addressesOfB);
    // Only the lists of failed look-ups are handed back, on purpose: those that were filled go
    // with `network`, which owns their texts.
    if (!isFoundA) {
        network.kveFreeAddrinfo(addressesOfA);
    }
    if (!isFoundB) {
        network.kveFreeAddrinfo(addressesOfB);
    }
    return identical;
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
    return withoutExceptionsOr(false, [=] { return haveCommonAddress(textOf(a), textOf(b)); });
}

bool isExemptFromProxy(const std::string& host, const std::string& list, bool bypassLocal) {
    std::vector<std::string> entries;
    tokenize<std::string>(list, entries, kListDelimiters);
    // Up to its first zero byte, as every name that is looked up.
    const std::string site = textOf(host.c_str());
    const bool listed = std::any_of(entries.begin(), entries.end(), [&](const std::string& entry) {
        return haveCommonAddress(textOf(entry.c_str()), site);
    });
    return listed || (bypassLocal && isSingleLabel(withoutScheme(host)));
}

bool isProxyBypassed(const std::string& host, const std::string& list, const bool& bypassLocal) {
    return withoutExceptionsOr(
        false, [&, bypassLocal] { return isExemptFromProxy(host, list, bypassLocal); });
}

bool isProxyBypassed(const std::wstring& host, const std::vector<std::wstring>& list,
                     const bool& bypassLocal) {
    return withoutExceptionsOr(false, [&, bypassLocal] {
        return isExemptFromProxy(unicode_to_utf8(host), unicode_to_utf8(joined(list)), bypassLocal);
    });
}

}  // namespace tessaro_com::pkm::voInet
