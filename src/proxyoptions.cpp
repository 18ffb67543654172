#include "proxyoptions.h"

#include "addressscope.h"
#include "curlhandle.h"
#include "kvecomn/anetworkutil.h"
#include "requestwatch.h"

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

}  // namespace tessaro_com::pkm::voInet
