#include "logon.h"

#include "curlhandle.h"
#include "logtag.h"
#include "proxybypass.h"
#include "proxyoptions.h"
#include "requestwatch.h"
#include "saturate.h"
#include "setuphandle.h"
#include "voinet/INetUtils.h"
#include "voinet/log.h"

namespace tessaro_com::pkm::voInet {

namespace {

/// What came of one body-less request.
struct Probe {
    CURLcode curlResult = CURLE_FAILED_INIT;
    int status = 0;

    /// The server was reached but has no use for the request.
    bool isRefused() const {
        return curlResult == CURLE_OK && status > 400 && !isAuthenticationFailure(status);
    }

    bool hasFailed() const { return curlResult != CURLE_OK || isRefused(); }

    voInetError result() const {
        return isRefused() ? voInetErrorFailed : mapCurlErrorCode(curlResult);
    }
};

void setProbeOptions(CURL* handle, const std::string& url) {
    setTextOption(handle, CURLOPT_URL, url);
    curl_easy_setopt(handle, CURLOPT_NOBODY, 1L);
}

Probe performProbe(CURL* handle, RequestWatch& watch, CURLINFO statusInfo) {
    Probe probe;
    probe.curlResult = watch.perform(handle);
    probe.status = responseCode(handle, statusInfo);
    return probe;
}

void watchLogon(RequestWatch& watch, CURL* handle) {
    if (watch.isMonitored() && handle != nullptr) {
        watch.receiveHeaders(handle);
        watch.addMonitorOptions(handle);
    }
}

}  // namespace

bool isAuthenticationFailure(int status) {
    return status == 401 || status == 403 || status == 407;
}

void dropBypassedProxy(TransferItf& settings) {
    if (!settings.m_bUseProxy ||
        !isExemptFromProxy(settings.m_strHost_utf8_rep, settings.m_strExclusionList_utf8_rep,
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

voInetError probeServer(CNetConnection& connection, const std::string& url,
                        CURLINFO alternateStatus) {
    RequestWatch watch(connection, requestLogon, url, 0);
    const EasyHandle handle = setUpHandle(connection, nullptr);
    watchLogon(watch, handle.get());
    std::string proxyUsed;
    connection.setAutoDetectProxy(handle.get(), proxyUsed, utf8_to_unicode(url));
    if (connection.IsLogonTimeoutUsed()) {
        voinet_LoginfoDebug(kLogTag, "Connecting with timeout %d.",
                            saturate<int>(connection.GetLogonTimeout()));
    }
    if (handle == nullptr) {
        return Probe().result();
    }
    setProbeOptions(handle.get(), url);
    Probe probe = performProbe(handle.get(), watch, CURLINFO_RESPONSE_CODE);
    if (probe.hasFailed() && connection.m_bAllowUserToConfigureProxy && !watch.isStopped()) {
        setProbeOptions(handle.get(), url);
        useAlternateProxy(connection, handle.get(), proxyUsed);
        probe = performProbe(handle.get(), watch, alternateStatus);
    }
    return probe.result();
}

voInetError connectWithLog(const TransferItf& settings,
                           const std::function<voInetError()>& connect) {
    voinet_LoginfoDebug(kLogTag, "Trying to connect..");
    const voInetError result = connect();
    if (result != voInetErrorSuccess) {
        voinet_Loginfo(kLogTag, "Unable to connect to %s on port %d.",
                       settings.m_strHost_utf8_rep.c_str(), settings.m_nPort);
    }
    return result;
}

}  // namespace tessaro_com::pkm::voInet
