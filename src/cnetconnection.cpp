#include "voinet/cnetconnection.h"

#include "boundary.h"
#include "hostforms.h"
#include "logtag.h"
#include "proxyoptions.h"
#include "requestwatch.h"
#include "voinet/log.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace tessaro_com::pkm::voInet {

namespace {

constexpr int kMaxAttempts = 3;

/// Null for "none" and for numbers that name no form.
const HostForm* hostFormOf(const voInetConnMethod& method) {
    const auto* form =
        std::find_if(std::begin(kHostForms), std::end(kHostForms),
                     [&](const HostForm& each) { return each.method.kind == method.kind; });
    return form == std::end(kHostForms) ? nullptr : form;
}

bool isConfigured(const TransferItf& settings, const HostForm& form) {
    return !(settings.*form.host).empty();
}

/// Repeats an attempt while its result asks for another host form and there is one.
template <class Attempt, class MayMoveOn, class MoveOn>
voInetError tryHostForms(Attempt attempt, MayMoveOn mayMoveOn, MoveOn moveOn) {
    forgetMonitorStop();
    voInetError result = attempt();
    for (int attempts = 1; attempts < kMaxAttempts && mayMoveOn(result) && moveOn(); ++attempts) {
        result = attempt();
    }
    // A monitor may have stopped the logon between two attempts.
    return wasStoppedByMonitor() ? voInetErrorCancelled : result;
}

}  // namespace

CNetConnection::CNetConnection() = default;

CNetConnection::~CNetConnection() = default;

voInetError CNetConnection::Logon(bool useTimeout, unsigned int timeoutSeconds) {
    return withoutExceptions([&] {
        m_bUseLogonTimeout = useTimeout;
        m_nLogonTimeoutSeconds = timeoutSeconds;
        voInetError result = voInetErrorSuccess;
        for (const HostForm& form : kHostForms) {
            if (!isConfigured(*this, form)) {
                continue;
            }
            result = withoutExceptions([&] {
                return ApplyHostInformation(form.method)
                           ? LogonWithConnSpec(form.method, useTimeout, timeoutSeconds)
                           : voInetErrorOutOfMemory;
            });
            if (!ShouldUseNextConnectionMethodForLogon(result)) {
                break;
            }
        }
        return result;
    });
}

voInetError CNetConnection::DownloadFile(const std::wstring& localFile,
                                         const std::wstring& remoteFile, CNetSessionSink* sink,
                                         long* resumeOffset, bool& resume, const bool& useCache) {
    return withoutExceptions([&] {
        return tryHostForms(
            [&] {
                return DownloadFileWithConnSpec(m_currentMethod, localFile, remoteFile, sink,
                                                resumeOffset, resume, useCache);
            },
            [this](voInetError result) { return ShouldUseNextConnectionMethod(result); },
            [this] { return SetNextConnectionMethod(); });
    });
}

voInetError CNetConnection::UploadFile(const std::wstring& source, const std::wstring& destination,
                                       CNetSessionSink* sink) {
    return withoutExceptions([&] {
        return tryHostForms(
            [&] { return UploadFileWithConnSpec(m_currentMethod, source, destination, sink); },
            [this](voInetError result) {
                return ShouldUseNextConnectionMethodForUploading(result);
            },
            [this] { return SetNextConnectionMethod(); });
    });
}

voInetError CNetConnection::UploadFileResponse(const std::wstring& requestFile,
                                               const std::wstring& serverPath,
                                               const std::wstring& responseFile,
                                               CNetSessionSink* sink) {
    return withoutExceptions([&] {
        // Without an IP-address form nothing is sent and success is returned; intended.
        if (m_strHostIP.empty()) {
            return voInetErrorSuccess;
        }
        if (!ApplyHostInformation(connMethodIP)) {
            return voInetErrorOutOfMemory;
        }
        return tryHostForms(
            [&] {
                return UploadFileResponseWithConnSpec(m_currentMethod, requestFile, serverPath,
                                                      responseFile, sink);
            },
            [this](voInetError result) {
                // The same answer would come from every form of the server's name.
                return result != voInetErrorKeysOutdated &&
                       ShouldUseNextConnectionMethodForUploading(result);
            },
            [this] { return SetNextConnectionMethodForUploading(); });
    });
}

bool CNetConnection::SetActiveHostSettings(const voInetConnMethod& method, const std::wstring& host,
                                           const std::string& hostUtf8, int port) {
    return withoutExceptionsOr(false, [&] {
        std::wstring newHost = host;
        std::string newHostUtf8 = hostUtf8;
        m_currentMethod = method;
        m_strHost = std::move(newHost);
        m_strHost_utf8_rep = std::move(newHostUtf8);
        m_nPort = port;
        return true;
    });
}

bool CNetConnection::ApplyHostInformation(const voInetConnMethod& method) {
    const HostForm* form = hostFormOf(method);
    if (form == nullptr || !isConfigured(*this, *form)) {
        return false;
    }
    return SetActiveHostSettings(method, this->*form->host, this->*form->hostUtf8,
                                 m_bUseSSL ? m_nSslPort : this->*form->port);
}

bool CNetConnection::CheckOptionsWithConnSpec(voInetConnMethod method) const {
    const HostForm* form = hostFormOf(method);
    return form != nullptr && method.kind == m_currentMethod.kind && isConfigured(*this, *form);
}

bool CNetConnection::AdvanceConnectionMethod() {
    const bool hasNext =
        m_currentMethod.kind >= connMethodNone && m_currentMethod.kind < connMethodNetBios;
    if (hasNext) {
        ++m_currentMethod.kind;
    }
    return hasNext;
}

bool CNetConnection::SetNextConnectionMethod() {
    if (m_currentMethod.kind == connMethodNetBios) {
        return false;
    }
    LogOut();
    const bool advanced = AdvanceConnectionMethod();
    // A form that is not configured leaves the host of the form before it active, and the logon
    // goes there; intended. One that there is no memory to apply must not pass for logged on.
    const HostForm* form = hostFormOf(m_currentMethod);
    const bool isLost =
        !ApplyHostInformation(m_currentMethod) && form != nullptr && isConfigured(*this, *form);
    const voInetError result = withoutExceptions([&] {
        return isLost
                   ? voInetErrorOutOfMemory
                   : LogonWithConnSpec(m_currentMethod, m_bUseLogonTimeout, m_nLogonTimeoutSeconds);
    });
    if (result == voInetErrorSuccess) {
        return true;
    }
    return advanced && !wasStoppedByMonitor() && SetNextConnectionMethod();
}

bool CNetConnection::SetNextConnectionMethodForUploading() {
    if (m_currentMethod.kind == connMethodNetBios) {
        return false;
    }
    AdvanceConnectionMethod();
    return ApplyHostInformation(m_currentMethod);
}

bool CNetConnection::ShouldUseNextConnectionMethod(voInetError result) const {
    switch (result) {
        case voInetErrorTransferFailed:
        case voInetErrorTimeout:
        case voInetErrorCodeMinus26:
        case voInetErrorAccessDenied:
        case voInetErrorHostNotResolved:
        case voInetErrorProxyNotResolved:
        case voInetErrorFailed:
            return true;
        default:
            return false;
    }
}

bool CNetConnection::ShouldUseNextConnectionMethodForUploading(voInetError result) const {
    switch (result) {
        case voInetErrorGuidExists:
        case voInetErrorCodeMinus14:
        case voInetErrorCodeMinus13:
        case voInetErrorMaxRetries:
        case voInetErrorSuccess:
        case voInetErrorCancelled:
        case voInetErrorPackageReceived:
        case voInetErrorCode9:
        case voInetErrorServerBusy:
        case voInetErrorNoPackage:
        case voInetErrorShutdown:
            return false;
        default:
            return true;
    }
}

bool CNetConnection::ShouldUseNextConnectionMethodForLogon(voInetError result) const {
    switch (result) {
        case voInetErrorMaxRetries:
        case voInetErrorSuccess:
        case voInetErrorCancelled:
        case voInetErrorServerBusy:
        case voInetErrorShutdown:
            return false;
        default:
            return true;
    }
}

bool CNetConnection::setAutoDetectProxy(void* curl, std::string& /*proxy*/,
                                        const std::wstring& /*url*/) {
    if (curl != nullptr) {
        voinet_LoginfoDebug(kLogTag, "Proxy setting m_bUseIEConfig = %d", m_bUseIEConfig ? 1 : 0);
    }
    return false;
}

bool CNetConnection::setAlternateProxy(void* curl, std::string& proxy) {
    return withoutExceptionsOr(false, [&] { return useAlternateProxy(*this, curl, proxy); });
}

}  // namespace tessaro_com::pkm::voInet
