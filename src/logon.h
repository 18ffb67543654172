#ifndef VOINET_SRC_LOGON_H
#define VOINET_SRC_LOGON_H

#include "curlhandle.h"
#include "logtag.h"
#include "saturate.h"
#include "voinet/INetUtils.h"
#include "voinet/chttphelper.h"
#include "voinet/cnetconnection.h"
#include "voinet/log.h"
#include "voinet/proxy_detect.h"
#include "voinet/voineterror.h"

#include <string>

// What the logons of HTTP and FTP have in common.

namespace tessaro_com::pkm::voInet {

inline bool isAuthenticationFailure(int status) {
    return status == 401 || status == 403 || status == 407;
}

/// Switches the proxy off, for the rest of the object's life, when the active host is exempt.
inline void dropBypassedProxy(TransferItf& settings) {
    if (!settings.m_bUseProxy ||
        !isProxyBypassed(settings.m_strHost_utf8_rep, settings.m_strExclusionList_utf8_rep,
                         settings.m_bBypassLocal)) {
        return;
    }
    settings.m_bUseProxy = false;
    settings.m_bUseProxyAuthentication = false;
    settings.m_bUseIEConfig = false;
    voinet_Loginfo(kLogTag, "Proxy Server: %s is By passed for this Host: %s, ByPassList: %s",
                   settings.m_strProxy_utf8_rep.c_str(), settings.m_strHost_utf8_rep.c_str(),
                   settings.m_strExclusionList_utf8_rep.c_str());
}

/// What came of one body-less request.
struct Probe {
    CURLcode curlResult = CURLE_FAILED_INIT;
    int status = 0;

    /// The server was reached but has no use for the request. Credentials are sorted out at
    /// download time, so asking for them is no refusal.
    bool isRefused() const {
        return curlResult == CURLE_OK && status > 400 && !isAuthenticationFailure(status);
    }

    voInetError result() const {
        return isRefused() ? voInetErrorFailed : mapCurlErrorCode(curlResult);
    }
};

inline void setProbeOptions(CURL* curl, const std::string& url) {
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
}

inline Probe performProbe(CURL* curl, CURLINFO statusInfo) {
    Probe probe;
    probe.curlResult = curl_easy_perform(curl);
    probe.status = responseCode(curl, statusInfo);
    return probe;
}

/// Asks for `url` without a body, and once more through the alternate proxy when that fails and the
/// settings allow it.
///
/// @param alternateStatus  where the status of the second request is read.
inline voInetError probeServer(CNetConnection& connection, const std::string& url,
                               CURLINFO alternateStatus) {
    CConnectionHelper helper(&connection);
    const ConnectionHandle handle(helper, nullptr);
    CURL* const curl = handle.get();
    std::string proxyUsed;
    connection.setAutoDetectProxy(curl, proxyUsed, utf8_to_unicode(url));
    if (connection.IsLogonTimeoutUsed()) {
        voinet_LoginfoDebug(kLogTag, "Connecting with timeout %d.",
                            saturate<int>(connection.GetLogonTimeout()));
    }
    Probe probe;
    if (curl == nullptr) {
        return probe.result();
    }
    setProbeOptions(curl, url);
    probe = performProbe(curl, CURLINFO_RESPONSE_CODE);
    const bool failed = probe.curlResult != CURLE_OK || probe.isRefused();
    if (failed && connection.m_bAllowUserToConfigureProxy) {
        setProbeOptions(curl, url);
        connection.setAlternateProxy(curl, proxyUsed);
        probe = performProbe(curl, alternateStatus);
    }
    return probe.result();
}

/// Writes the log lines round a logon's probe.
template <class Connect>
voInetError connectWithLog(const TransferItf& settings, Connect connect) {
    voinet_LoginfoDebug(kLogTag, "Trying to connect..");
    const voInetError result = connect();
    if (result != voInetErrorSuccess) {
        voinet_Loginfo(kLogTag, "Unable to connect to %s on port %d.",
                       settings.m_strHost_utf8_rep.c_str(), settings.m_nPort);
    }
    return result;
}

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_LOGON_H
