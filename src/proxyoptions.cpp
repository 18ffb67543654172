#include "proxyoptions.h"

#include "addressscope.h"
#include "curlhandle.h"
#include "kvecomn/anetworkutil.h"
#include "requestwatch.h"
#include "voinet/INetUtils.h"

namespace tessaro_com::pkm::voInet {

std::string setProxy(CURL* handle, const std::string& host, int port) {
    setAddressScope(handle, host);
    std::string formatted = ANetworkUtil().formatV6addr(host, true);
    setTextOption(handle, CURLOPT_PROXY, formatted);
    curl_easy_setopt(handle, CURLOPT_PROXYPORT, static_cast<long>(port));
    if (RequestWatch* const watch = RequestWatch::current()) {
        watch->noteProxy(formatted, port);
    }
    return formatted;
}

void setProxyCredentials(CURL* handle, const std::string& userAndPassword) {
    setTextOption(handle, CURLOPT_PROXYUSERPWD, userAndPassword);
    curl_easy_setopt(handle, CURLOPT_PROXYAUTH, kAnyAuthentication);
}

bool useAlternateProxy(const TransferItf& settings, CURL* handle, std::string& proxy) {
    if (handle == nullptr) {
        return false;
    }
    proxy = setProxy(handle, unicode_to_utf8(settings.m_strProxy), settings.m_nProxyPort);
    if (settings.m_bAltUseProxyAuthentication) {
        setProxyCredentials(handle, settings.m_strAltProxyUserPwd_utf8_rep);
    }
    return true;
}

}  // namespace tessaro_com::pkm::voInet
