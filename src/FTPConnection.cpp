#include "voinet/FTPConnection.h"

#include "curlhandle.h"
#include "download.h"
#include "logon.h"
#include "logtag.h"
#include "urls.h"
#include "voinet/INetUtils.h"
#include "voinet/cbmgr.h"
#include "voinet/chttphelper.h"
#include "voinet/log.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <optional>

namespace tessaro_com::pkm::voInet {

namespace {

constexpr int kDefaultPort = 21;
constexpr char kScheme[] = "ftp://";
constexpr wchar_t kAnonymousUser[] = L"anonymous";
constexpr wchar_t kAnonymousPassword[] = L"anonymous@example.com";
constexpr int kReplyNoSuchFile = 550;

/// Only values that the C library's tolower knows.
wchar_t toLower(wchar_t character) {
    const bool known = character >= 0 && character <= UCHAR_MAX;
    return known ? static_cast<wchar_t>(std::tolower(static_cast<int>(character))) : character;
}

voInetError resultOf(CURLcode curlResult, int reply) {
    if (reply == kReplyNoSuchFile) {
        return voInetErrorFileNotFound;
    }
    // Exactly 400, a proxy's answer, is not above 400; intended.
    return reply > 400 ? voInetErrorFailed : mapCurlErrorCode(curlResult);
}

void setCredentials(CURL* curl, const TransferItf& settings) {
    if (settings.m_bUseAuthentication) {
        curl_easy_setopt(curl, CURLOPT_HTTPAUTH, kAnyAuthentication);
        if (settings.m_bUseProxy) {
            curl_easy_setopt(curl, CURLOPT_USERPWD, joinedCredentials(settings).c_str());
        } else {
            curl_easy_setopt(curl, CURLOPT_USERNAME, settings.m_strUser_utf8_rep.c_str());
            curl_easy_setopt(curl, CURLOPT_PASSWORD, settings.m_strPassword_utf8_rep.c_str());
        }
    }
    if (settings.m_bUseProxyAuthentication) {
        curl_easy_setopt(curl, CURLOPT_PROXYAUTH, kAnyAuthentication);
        curl_easy_setopt(curl, CURLOPT_PROXYUSERPWD, settings.m_strProxyUserPwd_utf8_rep.c_str());
    }
}

void setDownloadOptions(CURL* curl, const TransferItf& settings, const CallbackManager& manager) {
    if (curl == nullptr) {
        return;
    }
    curl_easy_setopt(curl, CURLOPT_URL, manager.GetRemoteUrl());
    if (manager.GetStartPosition() > 0) {
        curl_easy_setopt(curl, CURLOPT_RANGE, rangeOf(manager).c_str());
    }
    setCredentials(curl, settings);
}

}  // namespace

CFtpConnection::CFtpConnection() {
    m_protocol = voInetProtocolFtp;
    m_nPort = kDefaultPort;
    voinet_Loginfo(kLogTag, "FTP Session initialized");
}

CFtpConnection::~CFtpConnection() {
    voinet_Loginfo(kLogTag, "FTP Session closed");
}

bool CFtpConnection::CheckOptions() const {
    return !m_strSite.empty() && !m_strHost.empty() && m_nPort >= 1 && !m_strUser.empty();
}

voInetError CFtpConnection::LogonWithConnSpec(const voInetConnMethod& /*method*/, bool useTimeout,
                                              unsigned int timeoutSeconds) {
    m_bUseLogonTimeout = useTimeout;
    m_nLogonTimeoutSeconds = timeoutSeconds;
    const voInetError filledIn = FillInAnonymousUser();
    if (!CheckOptions()) {
        return voInetErrorBadOptions;
    }
    if (filledIn != voInetErrorSuccess) {
        return filledIn;
    }
    dropBypassedProxy(*this);
    return connectWithLog(*this, [this] { return doConnect(); });
}

voInetError CFtpConnection::FillInAnonymousUser() {
    voInetError result = voInetErrorSuccess;
    if (m_strUser.empty()) {
        result = SetOption(voInetOptionUser, std::wstring(kAnonymousUser));
    }
    if (result == voInetErrorSuccess && m_strPassword.empty() && IsAnonymousUser()) {
        result = SetOption(voInetOptionPassword, std::wstring(kAnonymousPassword));
    }
    return result;
}

voInetError CFtpConnection::LogOut() {
    return voInetErrorSuccess;
}

int CFtpConnection::Abort() {
    return 0;
}

bool CFtpConnection::IsAuthenticationFailureCode(int code) {
    return isAuthenticationFailure(code);
}

bool CFtpConnection::IsAnonymousUser() {
    std::wstring user = m_strUser;
    std::transform(user.begin(), user.end(), user.begin(), toLower);
    return user == kAnonymousUser;
}

voInetError CFtpConnection::UploadFileWithConnSpec(const voInetConnMethod& /*method*/,
                                                   const std::wstring& /*source*/,
                                                   const std::wstring& /*destination*/,
                                                   CNetSessionSink* /*sink*/) {
    return voInetErrorNotSupported;
}

voInetError CFtpConnection::UploadFileResponseWithConnSpec(const voInetConnMethod& /*method*/,
                                                           const std::wstring& /*requestFile*/,
                                                           const std::wstring& /*serverPath*/,
                                                           const std::wstring& /*responseFile*/,
                                                           CNetSessionSink* /*sink*/) {
    return voInetErrorFailed;
}

voInetError CFtpConnection::doConnect() {
    // What counts of the second request is the proxy's answer, not the server's.
    return probeServer(*this, upToFirstBlank(serverUrl(kScheme, *this)), CURLINFO_HTTP_CONNECTCODE);
}

voInetError CFtpConnection::DownloadFileWithConnSpec(const voInetConnMethod& /*method*/,
                                                     const std::wstring& localFile,
                                                     const std::wstring& remoteFile,
                                                     CNetSessionSink* sink, long* resumeOffset,
                                                     bool& /*resume*/, const bool& useCache) {
    if (localFile.empty() || remoteFile.empty()) {
        return voInetErrorInvalidArgument;
    }
    if (!CheckOptions()) {
        return voInetErrorBadOptions;
    }
    std::string remotePath = unicode_to_utf8(remoteFile);
    ConvertMSPathtoUnixPath(remotePath);
    // The one line with another tag.
    voinet_Loginfo("VoInet", "FTP Downloading file: %s from FTP Server: %s", remotePath.c_str(),
                   m_strHost_utf8_rep.c_str());
    std::string serverPath;
    const int composed =
        CConnectionHelper(this).PrependRelativePathIfRequired(serverPath, remotePath);
    if (composed != 0) {
        return static_cast<voInetError>(composed);
    }
    const std::string url = upToFirstBlank(serverUrl(kScheme, *this) + serverPath);
    voinet_Loginfo(kLogTag, "Open URL: %s", url.c_str());
    return downloadFile(unicode_to_utf8(localFile).c_str(), url.c_str(), sink, resumeOffset,
                        useCache);
}

voInetError CFtpConnection::downloadFile(const char* localFile, const char* url,
                                         CNetSessionSink* sink, long* resumeOffset,
                                         const bool& useCache) {
    long fromStart = 0;
    long& offset = resumeOffset == nullptr ? fromStart : *resumeOffset;
    int code = 0;
    if (offset > 0) {
        const auto probe = makeManager(*this, localFile, url, offset, true);
        // Whatever it ends with, the comparison decides.
        DoFtpDownload(probe.get(), useCache, &code, nullptr);
        if (!probe->IsPrefixMatched()) {
            offset = 0;
        }
    }
    const auto manager = makeManager(*this, localFile, url, offset, false);
    manager->InstallProgressSink(sink);
    voInetError result = DoFtpDownload(manager.get(), useCache, &code, nullptr);
    if (asksForRestart(result)) {
        offset = 0;
        const auto restarted = makeManager(*this, localFile, url, offset, false);
        // On the first manager, not on the new one: a restarted transfer reports no progress, on
        // purpose.
        manager->InstallProgressSink(sink);
        result = DoFtpDownload(restarted.get(), useCache, &code, nullptr);
        if (result == voInetErrorSuccess) {
            restarted->FinishTransfer();
        }
        return result;
    }
    // What a cancelled transfer has brought is put in place as well, to be resumed later; intended.
    if (result == voInetErrorSuccess || result == voInetErrorCancelled) {
        manager->FinishTransfer();
    }
    return result;
}

voInetError CFtpConnection::DoFtpDownload(CallbackManager* manager, bool useCache, int* code,
                                          void* handle) {
    // Shared by all FTP objects and threads, without a lock; intended.
    static bool bAltProxyused = false;
    static bool bNoProxyFound = false;

    // The nested call of the fall-back clears the flags as well; intended.
    struct ResetOnExit {
        ~ResetOnExit() {
            bAltProxyused = false;
            bNoProxyFound = false;
        }
    } const resetOnExit;

    CConnectionHelper helper(this);
    std::optional<ConnectionHandle> ownHandle;
    std::string proxyUsed;
    if (handle == nullptr && !bAltProxyused) {
        ownHandle.emplace(helper, manager);
        handle = ownHandle->get();
        bNoProxyFound =
            !setAutoDetectProxy(handle, proxyUsed, utf8_to_unicode(manager->GetRemoteUrl()));
        setDownloadOptions(handle, *this, *manager);
    }

    const CURLcode curlResult = curl_easy_perform(handle);
    voInetError result = resultOf(curlResult, responseCode(handle));
    if (result != voInetErrorSuccess && m_bAllowUserToConfigureProxy && !bAltProxyused) {
        voinet_Loginfo(kLogTag,
                       "Unable to use IE proxy settings so using the alternate proxy settings");
        manager->Flush();
        bAltProxyused = true;
        // Always so at this point: whether a system proxy was found makes no difference.
        if (m_bAllowUserToConfigureProxy && (bAltProxyused || bNoProxyFound)) {
            setAlternateProxy(handle, proxyUsed);
            voinet_Loginfo(kLogTag, "Using Alternate proxy server: %s ", proxyUsed.c_str());
        }
        result = DoFtpDownload(manager, useCache, code, handle);
    }
    return result;
}

}  // namespace tessaro_com::pkm::voInet
