#include "voinet/chttphelper.h"

#include "curlhandle.h"
#include "kvecomn/anetworkutil.h"
#include "logtag.h"
#include "saturate.h"
#include "urls.h"
#include "voinet/callbacks.h"
#include "voinet/cnetconnection.h"
#include "voinet/log.h"

#include <netdb.h>
#include <sys/socket.h>

#include <memory>
#include <optional>

namespace tessaro_com::pkm::voInet {

namespace {

constexpr char kUserAgent[] = "Tessaro Agent";
constexpr long kMaxRedirects = 5;

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

// The steps of SetupCurlHandle.

void setProxy(CURL* curl, const CNetConnection& settings) {
    if (!settings.m_bUseProxy || settings.m_bUseIEConfig) {
        return;
    }
    setAddressScopeIfRequired(curl, settings.m_strProxy_utf8_rep);
    const std::string proxy = ANetworkUtil().formatV6addr(settings.m_strProxy_utf8_rep, true);
    curl_easy_setopt(curl, CURLOPT_PROXY, proxy.c_str());
    curl_easy_setopt(curl, CURLOPT_PROXYPORT, static_cast<long>(settings.m_nProxyPort));
    if (settings.m_bUseProxyAuthentication) {
        curl_easy_setopt(curl, CURLOPT_PROXYUSERPWD, settings.m_strProxyUserPwd_utf8_rep.c_str());
        curl_easy_setopt(curl, CURLOPT_PROXYAUTH, kAnyAuthentication);
    }
}

void setServerCredentials(CURL* curl, const CNetConnection& settings) {
    if (!settings.m_bUseAuthentication) {
        return;
    }
    if (settings.m_bUseProxy) {
        curl_easy_setopt(curl, CURLOPT_USERPWD, joinedCredentials(settings).c_str());
    } else {
        curl_easy_setopt(curl, CURLOPT_USERNAME, settings.m_strUser_utf8_rep.c_str());
        curl_easy_setopt(curl, CURLOPT_PASSWORD, settings.m_strPassword_utf8_rep.c_str());
    }
    curl_easy_setopt(curl, CURLOPT_HTTPAUTH, kAnyAuthentication);
}

/// Every handle of an object that has logged on with a time-out only connects; intended.
void setLogonTimeout(CURL* curl, const CNetConnection& connection) {
    if (!connection.IsLogonTimeoutUsed()) {
        return;
    }
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, saturate<long>(connection.GetLogonTimeout()));
    curl_easy_setopt(curl, CURLOPT_CONNECT_ONLY, 1L);
}

void setCallbacks(CURL* curl, CallbackManager* manager) {
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, writeCallback);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, manager);
    curl_easy_setopt(curl, CURLOPT_PROGRESSFUNCTION, progressCallback);
    curl_easy_setopt(curl, CURLOPT_PROGRESSDATA, manager);
    curl_easy_setopt(curl, CURLOPT_HTTPAUTH, kAnyAuthentication);
    curl_easy_setopt(curl, CURLOPT_READFUNCTION, readCallback);
    curl_easy_setopt(curl, CURLOPT_READDATA, manager);
}

void setRedirectRules(CURL* curl, const CNetConnection& connection) {
    if (connection.GetProtocol() != voInetProtocolHttp) {
        return;
    }
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS, static_cast<long>(CURLPROTO_HTTP));
    curl_easy_setopt(curl, CURLOPT_MAXREDIRS, kMaxRedirects);
}

}  // namespace

CConnectionHelper::CConnectionHelper(CNetConnection* connection) : m_pConnection(connection) {}

void CConnectionHelper::SetupCurlHandle(void** handleOut, CallbackManager* manager) {
    if (handleOut == nullptr) {
        return;
    }
    CURL* curl = curl_easy_init();
    if (curl != nullptr) {
        // No proxy, and none from the environment, unless the settings name one.
        curl_easy_setopt(curl, CURLOPT_PROXY, "");
        setAddressScopeIfRequired(curl, m_pConnection->m_strHost_utf8_rep);
        curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
        curl_easy_setopt(curl, CURLOPT_USERAGENT, kUserAgent);
        installTraceIfWanted(curl);
        setProxy(curl, *m_pConnection);
        setServerCredentials(curl, *m_pConnection);
        setLogonTimeout(curl, *m_pConnection);
        setCallbacks(curl, manager);
        installStallDetection(curl);
        setRedirectRules(curl, *m_pConnection);
    }
    *handleOut = curl;
}

void CConnectionHelper::FreeCurlHandle(void* handle) {
    if (handle != nullptr) {
        curl_easy_cleanup(handle);
    }
}

int CConnectionHelper::PrependRelativePathIfRequired(std::string& urlPath,
                                                     const std::string& path) {
    if (path.empty()) {
        return -1;
    }
    const std::string rooted = path.front() == '/' ? path : "/" + path;
    const std::string& relativePath = m_pConnection->m_strRelativePath_utf8_rep;
    // A relative path that begins with "/" gives a doubled slash; intended.
    urlPath = relativePath.empty() ? rooted : "/" + relativePath + rooted;
    return 0;
}

void setAddressScopeIfRequired(void* handle, const std::string& host) {
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
