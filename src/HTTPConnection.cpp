#include "voinet/HTTPConnection.h"

#include "boundary.h"
#include "curlhandle.h"
#include "download.h"
#include "httpexchange.h"
#include "logon.h"
#include "logtag.h"
#include "proxyoptions.h"
#include "setuphandle.h"
#include "urls.h"
#include "voinet/INetUtils.h"
#include "voinet/cbmgr.h"
#include "voinet/log.h"

#include <functional>
#include <memory>
#include <string>

namespace tessaro_com::pkm::voInet {

namespace {

constexpr int kDefaultPort = 80;
constexpr char kProbeFile[] = "SiteStat.xml";

/// A download makes one request more than this.
constexpr int kMaxRetries = 3;

/// The retry state of downloads. All objects and threads share it, without a lock; intended.
struct RetryState {
    /// Requests of the download so far.
    int nRetries = 0;
    /// The alternate proxy has been applied.
    bool bAltProxyused = false;
    /// The system's proxy could not be used.
    bool bNoProxyFound = false;
} sharedState;

std::string probeUrl(const TransferItf& settings) {
    const std::string directory = unicode_to_utf8(settings.m_strRelativePath);
    return firstWord(serverUrl(kHttpScheme, settings) + "/" +
                     (directory.empty() ? "" : directory + "/") + kProbeFile);
}

HeaderList downloadHeaders(const TransferItf& settings, bool useCache) {
    HeaderList headers;
    if (!settings.m_strUpdateToken.empty()) {
        headers.append("UpdateToken: " + unicode_to_utf8(settings.m_strUpdateToken));
    }
    if (!useCache) {
        headers.append("pragma:no-cache");
        voinet_LoginfoDebug(kLogTag, "Using proxy setting:pragma:no-cache");
    }
    return headers;
}

void setDownloadOptions(CURL* curl, const TransferItf& settings, const CallbackManager& manager,
                        const HeaderList& headers) {
    if (!headers.empty()) {
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.get());
    }
    if (manager.GetStartPosition() > 0) {
        setTextOption(curl, CURLOPT_RANGE, rangeOf(manager));
    }
    setTextOption(curl, CURLOPT_URL, manager.GetRemoteUrl());
    if (settings.m_bUseAuthentication) {
        curl_easy_setopt(curl, CURLOPT_HTTPAUTH, kAnyAuthentication);
        setTextOption(curl, CURLOPT_USERNAME, settings.m_strUser_utf8_rep);
        setTextOption(curl, CURLOPT_PASSWORD, settings.m_strPassword_utf8_rep);
    }
    if (settings.m_bUseProxyAuthentication) {
        curl_easy_setopt(curl, CURLOPT_PROXYAUTH, kAnyAuthentication);
        setTextOption(curl, CURLOPT_PROXYUSERPWD, settings.m_strProxyUserPwd_utf8_rep);
    }
}

/// One request of a download. The first one of a download owns its handle, with the header lines
/// that are set on it; those that repeat it use the handle again.
class DownloadAttempt {
  public:
    /// @param handle  of the request that is repeated; null for the first one.
    DownloadAttempt(CHttpConnection& connection, CallbackManager& manager, CURL* handle)
        : m_connection(connection),
          m_manager(manager),
          m_watch(watchOfPass(m_ownWatch, connection, manager)),
          m_handle(handle),
          // Null beside an alternate proxy in use comes of two threads: the request then fails.
          m_ownsHandle(handle == nullptr && !sharedState.bAltProxyused) {}

    /// What a repeated request resets, the one that it repeats sees; intended.
    ~DownloadAttempt() {
        if (m_ownsHandle) {
            sharedState.nRetries = 0;
        }
        sharedState.bAltProxyused = false;
        sharedState.bNoProxyFound = false;
    }

    DownloadAttempt(const DownloadAttempt&) = delete;
    DownloadAttempt& operator=(const DownloadAttempt&) = delete;

    CURL* handle() const { return m_handle; }

    void setUp(bool useCache) {
        if (m_ownsHandle) {
            makeHandle(useCache);
        }
        if (m_connection.m_bAllowUserToConfigureProxy &&
            (sharedState.bAltProxyused || sharedState.bNoProxyFound)) {
            useAlternateProxy(m_connection, m_handle, m_proxy);
            voinet_Loginfo(kLogTag, "Using alternate proxy server: %s ", m_proxy.c_str());
            sharedState.bAltProxyused = true;
        }
    }

    CURLcode perform() {
        const CURLcode result = m_watch.perform(m_handle);
        voinet_LoginfoDebug(kLogTag, "curl_easy_perform returned value: %d", result);
        return result;
    }

    /// Whether a request that curl could not make is to be made through the alternate proxy. As a
    /// system proxy is never found, the first request goes through it already where it is allowed;
    /// so this is true only for a caller of DoHttpDownload who brings a handle, and for a download
    /// whose flags another thread has cleared.
    bool asksForAlternateProxy(CURLcode result) const {
        return (sharedState.bNoProxyFound || result != CURLE_OK) &&
               m_connection.m_bAllowUserToConfigureProxy && !sharedState.bAltProxyused;
    }

    bool answersRange() const { return voInet::answersRange(m_watch, m_manager, true); }

  private:
    void makeHandle(bool useCache) {
        m_ownHandle = setUpHandle(m_connection, &m_manager);
        m_handle = m_ownHandle.get();
        sharedState.bNoProxyFound = !m_connection.setAutoDetectProxy(
            m_handle, m_proxy, utf8_to_unicode(m_manager.GetRemoteUrl()));
        m_headers = downloadHeaders(m_connection, useCache);
        if (m_handle != nullptr) {
            setDownloadOptions(m_handle, m_connection, m_manager, m_headers);
            addDownloadOptions(m_handle, m_watch);
        }
    }

    CHttpConnection& m_connection;
    CallbackManager& m_manager;
    std::unique_ptr<RequestWatch> m_ownWatch;
    RequestWatch& m_watch;
    std::string m_proxy;
    EasyHandle m_ownHandle;
    HeaderList m_headers;
    CURL* m_handle;
    bool m_ownsHandle;
};

/// What a download does about an HTTP status: end with a result, or set the handle up differently
/// and make the request again.
enum class Reaction { finish, retryWithCredentials, retryWithProxyCredentials, retryWithAlternate };

struct Verdict {
    Reaction reaction;
    voInetError result;
};

/// An answer of 407. The alternate proxy is left to try for nobody but those whom
/// asksForAlternateProxy names.
Verdict verdictOnProxyAuthentication(const TransferItf& settings) {
    Reaction reaction = Reaction::finish;
    if (settings.m_bUseProxyAuthentication) {
        reaction = Reaction::retryWithProxyCredentials;
    } else if (!sharedState.bAltProxyused && settings.m_bAllowUserToConfigureProxy) {
        reaction = Reaction::retryWithAlternate;
    }
    return {reaction, voInetErrorProxyAuthRequired};
}

/// @param isRange  the answer is what was asked for, as far as its header lines tell.
Verdict verdictOn(int status, const TransferItf& settings, bool isRanged, bool isRange) {
    switch (status) {
        case 200:
            return {Reaction::finish, isRanged ? voInetErrorRangeIgnored : voInetErrorSuccess};
        case 206:
            return {Reaction::finish, isRange ? voInetErrorSuccess : voInetErrorRangeIgnored};
        case 401:
            return {
                settings.m_bUseAuthentication ? Reaction::retryWithCredentials : Reaction::finish,
                voInetErrorLoginIncorrect};
        case 404:
            return {Reaction::finish, voInetErrorFileNotFound};
        case 407:
            return verdictOnProxyAuthentication(settings);
        case 416:
            return {Reaction::finish, voInetErrorRangeNotSatisfiable};
        default:
            return {Reaction::finish, voInetErrorTransferFailed};
    }
}

void setUpRetry(Reaction reaction, CURL* curl, const TransferItf& settings) {
    switch (reaction) {
        case Reaction::finish:
            break;
        case Reaction::retryWithCredentials:
            setTextOption(curl, CURLOPT_USERNAME, settings.m_strUser_utf8_rep);
            setTextOption(curl, CURLOPT_PASSWORD, settings.m_strPassword_utf8_rep);
            curl_easy_setopt(curl, CURLOPT_HTTPAUTH, kAnyAuthentication);
            break;
        case Reaction::retryWithProxyCredentials:
            setProxyCredentials(curl, settings.m_strProxyUserPwd_utf8_rep);
            break;
        case Reaction::retryWithAlternate:
            voinet_LoginfoDebug(kLogTag,
                                "Authentication required by IE proxy settings, will try to use "
                                "alternate proxy settings.");
            sharedState.bAltProxyused = true;
            sharedState.bNoProxyFound = true;
            break;
    }
}

/// False when a download has made all its requests; the count then starts anew.
bool countRequest() {
    if (sharedState.nRetries > kMaxRetries) {
        sharedState.nRetries = 0;
        voinet_Loginfo(kLogTag, "DoHttpDownload max retries reached.");
        return false;
    }
    ++sharedState.nRetries;
    return true;
}

bool isWholeOrPart(int status) {
    return status == 200 || status == 206;
}

/// What is left of a request that came out: the result by its HTTP status, or by that of the
/// requests that it led to.
voInetError resultByStatus(const DownloadAttempt& attempt, const TransferItf& settings,
                           const CallbackManager& manager, int status,
                           const std::function<voInetError()>& repeat) {
    voinet_LoginfoDebug(kLogTag, "Server response code value: %d ", status);
    const Verdict verdict =
        verdictOn(status, settings, manager.GetStartPosition() > 0, attempt.answersRange());
    if (verdict.reaction == Reaction::finish) {
        return verdict.result;
    }
    setUpRetry(verdict.reaction, attempt.handle(), settings);
    const voInetError result = repeat();
    if (result != voInetErrorSuccess) {
        voinet_LoginfoDebug(kLogTag, "Retry of DoHttpDownload return value: %d", result);
    }
    return result;
}

/// For those whom DownloadAttempt::asksForAlternateProxy names.
voInetError resultThroughAlternateProxy(const std::function<voInetError()>& repeat) {
    sharedState.bNoProxyFound = true;
    voinet_LoginfoDebug(kLogTag,
                        "Unable to use IE proxy settings, will try to use alternate proxy "
                        "settings.");
    const voInetError result = repeat();
    if (result != voInetErrorSuccess) {
        voinet_LoginfoDebug(
            kLogTag, "DoHttpDownload return value after trying alternate proxy settings: %d.",
            result);
    }
    sharedState.bAltProxyused = true;
    return result;
}

}  // namespace

bool CHttpConnection::m_bShutdown = false;

CHttpConnection::CHttpConnection() {
    m_protocol = voInetProtocolHttp;
    m_nPort = kDefaultPort;
    voinet_Loginfo(kLogTag, "HTTP Session initialized");
}

CHttpConnection::~CHttpConnection() {
    voinet_Loginfo(kLogTag, "HTTP Session closed");
}

bool CHttpConnection::CheckOptions() const {
    return !m_strSite.empty() && !m_strHost.empty() && m_nPort >= 1;
}

voInetError CHttpConnection::LogonWithConnSpec(const voInetConnMethod& /*method*/, bool useTimeout,
                                               unsigned int timeoutSeconds) {
    return withoutExceptions([&] {
        m_bUseLogonTimeout = useTimeout;
        m_nLogonTimeoutSeconds = timeoutSeconds;
        if (!CheckOptions()) {
            return voInetErrorBadOptions;
        }
        dropBypassedProxy(*this);
        return connectWithLog(*this, [this] { return doConnect(); });
    });
}

voInetError CHttpConnection::LogOut() {
    return voInetErrorSuccess;
}

voInetError CHttpConnection::doConnect() {
    return withoutExceptions(
        [&] { return probeServer(*this, probeUrl(*this), CURLINFO_RESPONSE_CODE); });
}

bool CHttpConnection::IsAuthenticationFailureCode(int httpStatus) {
    return isAuthenticationFailure(httpStatus);
}

voInetError CHttpConnection::UploadFileWithConnSpec(const voInetConnMethod& /*method*/,
                                                    const std::wstring& /*source*/,
                                                    const std::wstring& /*destination*/,
                                                    CNetSessionSink* /*sink*/) {
    return voInetErrorNotSupported;
}

voInetError CHttpConnection::DownloadFileWithConnSpec(const voInetConnMethod& method,
                                                      const std::wstring& localFile,
                                                      const std::wstring& remoteFile,
                                                      CNetSessionSink* sink, long* resumeOffset,
                                                      bool& /*resume*/, const bool& useCache) {
    return withoutExceptions([&] {
        if (localFile.empty() || remoteFile.empty()) {
            return voInetErrorInvalidArgument;
        }
        if (!CheckOptions() || !CheckOptionsWithConnSpec(method)) {
            return voInetErrorBadOptions;
        }
        const std::string url = fileUrl(kHttpScheme, *this, unicode_to_utf8(remoteFile));
        voinet_Loginfo(kLogTag, "Open URL: %s", url.c_str());
        return downloadFile(unicode_to_utf8(localFile).c_str(), url.c_str(), sink, resumeOffset,
                            useCache);
    });
}

voInetError CHttpConnection::UploadFileResponseWithConnSpec(const voInetConnMethod& method,
                                                            const std::wstring& requestFile,
                                                            const std::wstring& serverPath,
                                                            const std::wstring& responseFile,
                                                            CNetSessionSink* /*sink*/) {
    return withoutExceptions([&] {
        if (m_bShutdown) {
            return voInetErrorShutdown;
        }
        if (requestFile.empty() || serverPath.empty()) {
            return voInetErrorInvalidArgument;
        }
        if (!CheckOptions() || !CheckOptionsWithConnSpec(method)) {
            return voInetErrorBadOptions;
        }
        voinet_LoginfoDebug(kLogTag, "Calling upload file response");
        return exchangePackages(*this, unicode_to_utf8(requestFile), unicode_to_utf8(serverPath),
                                unicode_to_utf8(responseFile));
    });
}

voInetError CHttpConnection::downloadFile(const char* localPath, const char* url,
                                          CNetSessionSink* sink, long* resumeOffset,
                                          const bool& useCache) {
    if (localPath == nullptr || url == nullptr) {
        return voInetErrorInvalidArgument;
    }
    return withoutExceptions([&] {
        const auto makePass = [&](CallbackManager& manager) {
            int status = 0;
            const voInetError result = DoHttpDownload(&manager, useCache, &status, nullptr);
            return PassOutcome{result, isWholeOrPart(status)};
        };
        return downloadResumably({*this, utf8_to_unicode(localPath), utf8_to_unicode(url), sink,
                                  resumeOffset, makePass, true});
    });
}

voInetError CHttpConnection::DoHttpDownload(CallbackManager* cbm, bool useCache, int* httpStatus,
                                            void* curlHandle) {
    return withoutExceptions([&] {
        if (cbm == nullptr) {
            return voInetErrorInvalidArgument;
        }
        if (!countRequest()) {
            return voInetErrorMaxRetries;
        }
        DownloadAttempt attempt(*this, *cbm, curlHandle);
        attempt.setUp(useCache);
        const auto repeat = [&] {
            return RepeatDownload(cbm, useCache, httpStatus, attempt.handle());
        };
        const CURLcode curlResult = attempt.perform();
        voInetError result = mapCurlErrorCode(curlResult);
        const bool isStopped = curlResult == CURLE_ABORTED_BY_CALLBACK;
        if (!isStopped && attempt.asksForAlternateProxy(curlResult)) {
            result = resultThroughAlternateProxy(repeat);
        }
        if (httpStatus == nullptr || (result != voInetErrorSuccess && !isStopped)) {
            return result;
        }
        *httpStatus = responseCode(attempt.handle());
        return isStopped ? result : resultByStatus(attempt, *this, *cbm, *httpStatus, repeat);
    });
}

voInetError CHttpConnection::RepeatDownload(CallbackManager* cbm, bool useCache, int* httpStatus,
                                            void* curlHandle) {
    cbm->Flush();
    return DoHttpDownload(cbm, useCache, httpStatus, curlHandle);
}

}  // namespace tessaro_com::pkm::voInet
