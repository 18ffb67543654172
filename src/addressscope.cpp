#include "addressscope.h"

#include "kvecomn/anetworkutil.h"
#include "logtag.h"
#include "saturate.h"
#include "voinet/log.h"

#include <netdb.h>
#include <sys/socket.h>

#include <memory>
#include <optional>

namespace tessaro_com::pkm::voInet {

namespace {

/// Room for a numeric address; a longer one has no scope to offer.
constexpr std::size_t kNumericAddressSize = 32;

struct FreeAddrinfo {
    void operator()(addrinfo* list) const noexcept { freeaddrinfo(list); }
};
using AddrinfoList = std::unique_ptr<addrinfo, FreeAddrinfo>;

std::optional<unsigned int> scopeOf(const addrinfo& address, ANetworkUtil& network) {
    char numeric[kNumericAddressSize];
    unsigned int scope = 0;
    if (address.ai_family != AF_INET6 ||
        getnameinfo(address.ai_addr, address.ai_addrlen, numeric, sizeof numeric, nullptr, 0,
                    NI_NUMERICHOST) != 0 ||
        !network.kveGetScopeId(numeric, &scope)) {
        return std::nullopt;
    }
    return scope;
}

/// Scope of the first address that has one.
std::optional<unsigned int> firstScope(const addrinfo* list, ANetworkUtil& network) {
    for (; list != nullptr; list = list->ai_next) {
        if (const auto scope = scopeOf(*list, network)) {
            return scope;
        }
    }
    return std::nullopt;
}

}  // namespace

void setAddressScope(CURL* handle, const std::string& host) {
    if (handle == nullptr) {
        return;
    }
    ANetworkUtil network;
    addrinfo* resolved = nullptr;
    bool flag = false;
    if (network.kveCreateAddrinfo(host, "", &resolved, &flag) != 0) {
        return;
    }
    const AddrinfoList list(resolved);
    if (const auto scope = firstScope(list.get(), network)) {
        voinet_Loginfo(kLogTag, "Adding scope id %d ", saturate<int>(*scope));
        curl_easy_setopt(handle, CURLOPT_ADDRESS_SCOPE, saturate<long>(*scope));
    }
}

}  // namespace tessaro_com::pkm::voInet
