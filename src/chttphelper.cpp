#include "voinet/chttphelper.h"

#include "addressscope.h"
#include "boundary.h"
#include "proxyoptions.h"
#include "saturate.h"
#include "setuphandle.h"
#include "urls.h"
#include "voinet/callbacks.h"
#include "voinet/cnetconnection.h"

namespace tessaro_com::pkm::voInet {

namespace {

constexpr char kUserAgent[] = "Tessaro Agent";
constexpr long kMaxRedirects = 5;

// The steps of setUpHandle.

void setProxyOfSettings(CURL* curl, const CNetConnection& settings) {
    if (!settings.m_bUseProxy || settings.m_bUseIEConfig) {
        return;
    }
    setProxy(curl, settings.m_strProxy_utf8_rep, settings.m_nProxyPort);
    if (settings.m_bUseProxyAuthentication) {
        setProxyCredentials(curl, settings.m_strProxyUserPwd_utf8_rep);
    }
}

void setServerCredentials(CURL* curl, const CNetConnection& settings) {
    if (!settings.m_bUseAuthentication) {
        return;
    }
    if (settings.m_bUseProxy) {
        setTextOption(curl, CURLOPT_USERPWD, joinedCredentials(settings));
    } else {
        setTextOption(curl, CURLOPT_USERNAME, settings.m_strUser_utf8_rep);
        setTextOption(curl, CURLOPT_PASSWORD, settings.m_strPassword_utf8_rep);
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

EasyHandle setUpHandle(const CNetConnection& connection, CallbackManager* manager) {
    EasyHandle handle(curl_easy_init());
    CURL* const curl = handle.get();
    if (curl == nullptr) {
        return handle;
    }
    // No proxy, and none from the environment, unless the settings name one.
    setTextOption(curl, CURLOPT_PROXY, "");
    setAddressScope(curl, connection.m_strHost_utf8_rep);
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    setTextOption(curl, CURLOPT_USERAGENT, kUserAgent);
    installTraceIfWanted(curl);
    setProxyOfSettings(curl, connection);
    setServerCredentials(curl, connection);
    setLogonTimeout(curl, connection);
    setCallbacks(curl, manager);
    installStallDetection(curl);
    setRedirectRules(curl, connection);
    return handle;
}

CConnectionHelper::CConnectionHelper(CNetConnection* connection) : m_pConnection(connection) {}

void CConnectionHelper::SetupCurlHandle(void** handleOut, CallbackManager* manager) {
    if (handleOut != nullptr) {
        *handleOut = withoutExceptionsOr(
            EasyHandle().release(), [&] { return setUpHandle(*m_pConnection, manager).release(); });
    }
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
    return withoutExceptionsOr(static_cast<int>(voInetErrorOutOfMemory), [&] {
        urlPath = serverPath(*m_pConnection, path);
        return 0;
    });
}

void setAddressScopeIfRequired(void* handle, const std::string& host) {
    withoutExceptionsOr(false, [&] {
        setAddressScope(handle, host);
        return true;
    });
}

}  // namespace tessaro_com::pkm::voInet
