#include "voinet/HTTPConnection.h"

#include "curlhandle.h"
#include "download.h"
#include "kvecomn/anetworkutil.h"
#include "logon.h"
#include "logtag.h"
#include "saturate.h"
#include "urls.h"
#include "voinet/INetUtils.h"
#include "voinet/cbmgr.h"
#include "voinet/chttphelper.h"
#include "voinet/log.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

namespace tessaro_com::pkm::voInet {

namespace {

static_assert(sizeof(off_t) == 8, "compile with _FILE_OFFSET_BITS=64");

constexpr int kDefaultPort = 80;
constexpr char kProbeFile[] = "SiteStat.xml";

/// A download makes one request more than this.
constexpr int kMaxRetries = 3;

// Probes and downloads are plain HTTP also when the settings ask for SSL; intended.
constexpr char kPlainScheme[] = "http://";
constexpr char kSecureScheme[] = "https://";

std::string probeUrl(const TransferItf& settings) {
    const std::string directory = unicode_to_utf8(settings.m_strRelativePath);
    return upToFirstBlank(serverUrl(kPlainScheme, settings) + "/" +
                          (directory.empty() ? "" : directory + "/") + kProbeFile);
}

// Downloads.

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
    if (curl == nullptr) {
        return;
    }
    if (!headers.empty()) {
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.get());
    }
    if (manager.GetStartPosition() > 0) {
        curl_easy_setopt(curl, CURLOPT_RANGE, rangeOf(manager).c_str());
    }
    curl_easy_setopt(curl, CURLOPT_URL, manager.GetRemoteUrl());
    if (settings.m_bUseAuthentication) {
        curl_easy_setopt(curl, CURLOPT_HTTPAUTH, kAnyAuthentication);
        curl_easy_setopt(curl, CURLOPT_USERNAME, settings.m_strUser_utf8_rep.c_str());
        curl_easy_setopt(curl, CURLOPT_PASSWORD, settings.m_strPassword_utf8_rep.c_str());
    }
    if (settings.m_bUseProxyAuthentication) {
        curl_easy_setopt(curl, CURLOPT_PROXYAUTH, kAnyAuthentication);
        curl_easy_setopt(curl, CURLOPT_PROXYUSERPWD, settings.m_strProxyUserPwd_utf8_rep.c_str());
    }
}

/// The handle of a download with the header lines that it needs; retries of the same download use
/// them again.
class DownloadRequest {
  public:
    DownloadRequest(CHttpConnection& connection, CallbackManager& manager)
        : m_helper(&connection), m_handle(m_helper, &manager) {}

    CURL* handle() const { return m_handle.get(); }

    void configure(const TransferItf& settings, const CallbackManager& manager, bool useCache) {
        m_headers = downloadHeaders(settings, useCache);
        setDownloadOptions(handle(), settings, manager, m_headers);
    }

  private:
    CConnectionHelper m_helper;
    ConnectionHandle m_handle;
    HeaderList m_headers;
};

/// What a download does about an HTTP status: end with a result, or set the handle up differently
/// and make the request again.
enum class Reaction { finish, retryWithCredentials, retryWithProxyCredentials, retryWithAlternate };

struct Verdict {
    Reaction reaction;
    voInetError result;
};

/// An answer of 407.
Verdict verdictOnProxyAuthentication(const TransferItf& settings, bool isAlternateUsed) {
    Reaction reaction = Reaction::finish;
    if (settings.m_bUseProxyAuthentication) {
        reaction = Reaction::retryWithProxyCredentials;
    } else if (!isAlternateUsed && settings.m_bAllowUserToConfigureProxy) {
        reaction = Reaction::retryWithAlternate;
    }
    return {reaction, voInetErrorProxyAuthRequired};
}

Verdict verdictOn(int status, const TransferItf& settings, bool isRanged, bool isAlternateUsed) {
    switch (status) {
        case 200:
            return {Reaction::finish, isRanged ? voInetErrorRangeIgnored : voInetErrorSuccess};
        case 206:
            return {Reaction::finish, voInetErrorSuccess};
        case 401:
            return {
                settings.m_bUseAuthentication ? Reaction::retryWithCredentials : Reaction::finish,
                voInetErrorLoginIncorrect};
        case 404:
            return {Reaction::finish, voInetErrorFileNotFound};
        case 407:
            return verdictOnProxyAuthentication(settings, isAlternateUsed);
        case 416:
            return {Reaction::finish, voInetErrorRangeNotSatisfiable};
        default:
            return {Reaction::finish, voInetErrorTransferFailed};
    }
}

void prepareRetry(Reaction reaction, CURL* curl, const TransferItf& settings) {
    switch (reaction) {
        case Reaction::finish:
            break;
        case Reaction::retryWithCredentials:
            curl_easy_setopt(curl, CURLOPT_USERNAME, settings.m_strUser_utf8_rep.c_str());
            curl_easy_setopt(curl, CURLOPT_PASSWORD, settings.m_strPassword_utf8_rep.c_str());
            curl_easy_setopt(curl, CURLOPT_HTTPAUTH, kAnyAuthentication);
            break;
        case Reaction::retryWithProxyCredentials:
            curl_easy_setopt(curl, CURLOPT_PROXYUSERPWD,
                             settings.m_strProxyUserPwd_utf8_rep.c_str());
            curl_easy_setopt(curl, CURLOPT_PROXYAUTH, kAnyAuthentication);
            break;
        case Reaction::retryWithAlternate:
            voinet_LoginfoDebug(kLogTag,
                                "Authentication required by IE proxy settings, will try to use "
                                "alternate proxy settings.");
            break;
    }
}

/// False when a download has made all its requests; the count then starts anew.
bool countRequest(int& nRetries) {
    if (nRetries > kMaxRetries) {
        nRetries = 0;
        voinet_Loginfo(kLogTag, "DoHttpDownload max retries reached.");
        return false;
    }
    ++nRetries;
    return true;
}

bool isWholeOrPart(int status) {
    return status == 200 || status == 206;
}

// The exchange with the management server.

struct FileCloser {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

/// What has no contents to announce and send: opening a FIFO could wait for ever, and a directory
/// can be opened but not read.
bool isUnsendable(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 &&
           (S_ISDIR(status.st_mode) || S_ISFIFO(status.st_mode));
}

File openFile(const std::string& path, bool forReading) {
    voinet_LoginfoDebug(kLogTag, "Opening file  %s callback", path.c_str());
    if (forReading && isUnsendable(path)) {
        return nullptr;
    }
    File file(std::fopen(path.c_str(), forReading ? "rb" : "wb"));
    if (file != nullptr && !forReading) {
        // Unbuffered, so that a full disk shows in the write callback and not when the file is
        // closed, which is after the result.
        std::setvbuf(file.get(), nullptr, _IONBF, 0);
    }
    return file;
}

/// Closes a file that was written. False when the system reports only now that data got lost; an
/// interrupted close loses none.
bool closeWritten(File file) {
    return std::fclose(file.release()) == 0 || errno == EINTR;
}

std::int64_t sizeOfOpenFile(std::FILE* file) {
    struct stat status;
    const std::int64_t size = fstat(fileno(file), &status) == 0 ? status.st_size : 0;
    voinet_LoginfoDebug(kLogTag, "Content length is %d", saturate<int>(size));
    return size;
}

/// The request while it is being sent: exactly the announced number of bytes, or a failure.
class RequestBody {
  public:
    RequestBody(std::FILE* file, std::int64_t size) : m_file(file), m_unsent(size) {}

    std::size_t read(void* buffer, std::size_t capacity) {
        const auto wanted =
            static_cast<std::size_t>(std::min(m_unsent, saturate<std::int64_t>(capacity)));
        const std::size_t count = std::fread(buffer, 1, wanted, m_file);
        voinet_LoginfoDebug(kLogTag, "read %d in read callback", saturate<int>(count));
        m_unsent -= static_cast<std::int64_t>(count);
        m_broken = count < wanted;
        return m_broken ? CURL_READFUNC_ABORT : count;
    }

    /// The file has become shorter or cannot be read any more.
    bool isBroken() const { return m_broken; }

  private:
    std::FILE* m_file;
    std::int64_t m_unsent;
    bool m_broken = false;
};

std::size_t kestl_read_callback(void* buffer, std::size_t size, std::size_t count, void* body) {
    return static_cast<RequestBody*>(body)->read(buffer, size * count);
}

std::size_t kestl_write_callback(void* data, std::size_t size, std::size_t count, void* file) {
    voinet_LoginfoDebug(kLogTag, "Writing to write callback");
    const std::size_t written = std::fwrite(data, 1, size * count, static_cast<std::FILE*>(file));
    voinet_LoginfoDebug(kLogTag, "wrote %d in write callback, %d %d", saturate<int>(written),
                        saturate<int>(size), saturate<int>(count));
    return written;
}

/// Sets the flag when one header line, which ends at a zero byte, asks for new keys. Letter case
/// counts, and the marker is never taken back within one exchange.
std::size_t kestl_header_callback(void* line, std::size_t size, std::size_t count, void* flag) {
    std::string_view text(static_cast<const char*>(line), size * count);
    text = text.substr(0, text.find('\0'));
    if (flag != nullptr && text.find("ORB-WHY-FORBIDDEN") != std::string_view::npos &&
        text.find("UpgradeKey") != std::string_view::npos) {
        *static_cast<bool*>(flag) = true;
    }
    return size * count;
}

using LogFunction = void (*)(const char* module, const char* format, ...);

struct ExchangeOutcome {
    int status;
    bool isMarked;  // counts for 403 only
    LogFunction log;
    const char* message;
    voInetError result;
};

constexpr ExchangeOutcome kExchangeOutcomes[] = {
    {200, false, voinet_LoginfoDebug, "Receiving a package from Orb Server",
     voInetErrorPackageReceived},
    {201, false, voinet_LogWarn, "failed to receive package..server is busy",
     voInetErrorServerBusy},
    {202, false, voinet_LoginfoDebug, "client:no package to receive", voInetErrorNoPackage},
    {400, false, voinet_LoginfoDebug, "Orb server reports invalid request",
     voInetErrorInvalidRequest},
    {403, true, voinet_Loginfo, "Orb server reports access denied;agent to update keys",
     voInetErrorKeysOutdated},
    {403, false, voinet_Loginfo, "Orb server reports access denied", voInetErrorAccessDenied},
    {404, false, voinet_LoginfoDebug, "Orb server reports file not found", voInetErrorFileNotFound},
    {503, false, voinet_LogWarn, "failed to receive package..server is busy",
     voInetErrorServerBusy},
    {506, false, voinet_LogWarn, "Agent GUID already existing in Orb. So regenerating",
     voInetErrorGuidExists},
};

voInetError outcomeOf(int status, bool isMarked) {
    const auto* outcome =
        std::find_if(std::begin(kExchangeOutcomes), std::end(kExchangeOutcomes),
                     [=](const ExchangeOutcome& row) {
                         return row.status == status && (status != 403 || row.isMarked == isMarked);
                     });
    if (outcome == std::end(kExchangeOutcomes)) {
        // Any other status counts as success; intended.
        voinet_LoginfoDebug(kLogTag, "Received response %d from server", status);
        return voInetErrorSuccess;
    }
    outcome->log(kLogTag, "%s", outcome->message);
    return outcome->result;
}

HeaderList exchangeHeaders(const std::string& host, std::int64_t contentLength) {
    HeaderList headers;
    headers.append("Accept: application/octet-stream");
    headers.append("Accept-Language: en-us");
    headers.append("Expect:");  // no waiting for "100 Continue"
    headers.append("Host: " + host);
    headers.append("Content-Type: application/octet-stream");
    headers.append("Content-Length: " + std::to_string(contentLength));
    return headers;
}

/// What curl works on during one exchange.
struct Exchange {
    RequestBody request;
    std::int64_t contentLength;
    std::FILE* response;
    bool keysOutdated = false;
};

void setExchangeOptions(CURL* curl, const TransferItf& settings, const std::string& url,
                        const HeaderList& headers, Exchange& exchange) {
    installTraceIfWanted(curl);
    curl_easy_setopt(curl, CURLOPT_PROXY, "");  // never through a proxy
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, kestl_write_callback);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, exchange.response);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, kestl_header_callback);
    curl_easy_setopt(curl, CURLOPT_WRITEHEADER, &exchange.keysOutdated);
    curl_easy_setopt(curl, CURLOPT_READFUNCTION, kestl_read_callback);
    curl_easy_setopt(curl, CURLOPT_READDATA, &exchange.request);
    curl_easy_setopt(curl, CURLOPT_USERAGENT, "Mozilla/4.0 (compatible; KESTL/3.0; Windows)");
    curl_easy_setopt(curl, CURLOPT_POST, 1L);
    // Without a size of its own a recent libcurl sends the body chunked beside the Content-Length
    // header, which strict servers refuse.
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE,
                     static_cast<curl_off_t>(exchange.contentLength));
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.get());
    installStallDetection(curl);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, 180L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(curl, CURLOPT_CAINFO, settings.m_strCARootPath_utf8_rep.c_str());
    curl_easy_setopt(curl, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1));
}

voInetError performExchange(CURL* curl, Exchange& exchange) {
    const CURLcode curlResult = curl_easy_perform(curl);
    voinet_LoginfoDebug(kLogTag, "curl returned %d", curlResult);
    if (exchange.request.isBroken()) {
        // Curl calls it a cancellation, which is no failure.
        return voInetErrorTransferFailed;
    }
    return curlResult == CURLE_OK ? outcomeOf(responseCode(curl), exchange.keysOutdated)
                                  : mapCurlErrorCode(curlResult);
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
    m_bUseLogonTimeout = useTimeout;
    m_nLogonTimeoutSeconds = timeoutSeconds;
    if (!CheckOptions()) {
        return voInetErrorBadOptions;
    }
    dropBypassedProxy(*this);
    return connectWithLog(*this, [this] { return doConnect(); });
}

voInetError CHttpConnection::LogOut() {
    return voInetErrorSuccess;
}

voInetError CHttpConnection::doConnect() {
    return probeServer(*this, probeUrl(*this), CURLINFO_RESPONSE_CODE);
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
    if (localFile.empty() || remoteFile.empty()) {
        return voInetErrorInvalidArgument;
    }
    if (!CheckOptions() || !CheckOptionsWithConnSpec(method)) {
        return voInetErrorBadOptions;
    }
    std::string path;
    const int composed =
        CConnectionHelper(this).PrependRelativePathIfRequired(path, unicode_to_utf8(remoteFile));
    if (composed != 0) {
        return static_cast<voInetError>(composed);
    }
    const std::string url = upToFirstBlank(serverUrl(kPlainScheme, *this) + path);
    voinet_Loginfo(kLogTag, "Open URL: %s", url.c_str());
    return downloadFile(unicode_to_utf8(localFile).c_str(), url.c_str(), sink, resumeOffset,
                        useCache);
}

voInetError CHttpConnection::UploadFileResponseWithConnSpec(const voInetConnMethod& method,
                                                            const std::wstring& requestFile,
                                                            const std::wstring& serverPath,
                                                            const std::wstring& responseFile,
                                                            CNetSessionSink* /*sink*/) {
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
    const File request = openFile(unicode_to_utf8(requestFile), true);
    File response = openFile(unicode_to_utf8(responseFile), false);
    if (request == nullptr || response == nullptr) {
        return voInetErrorUploadSetup;
    }
    const std::int64_t size = sizeOfOpenFile(request.get());
    Exchange exchange{RequestBody(request.get(), size), size, response.get()};
    EasyHandle curl;  // goes after the header lines that are set on it
    const HeaderList headers =
        exchangeHeaders(ANetworkUtil().formatV6addr(m_strHost_utf8_rep, true), size);
    voinet_LoginfoDebug(kLogTag, "Set all curl options");
    curl.reset(curl_easy_init());
    if (curl == nullptr) {
        voinet_LogError(kLogTag, "Curl initialization failed");
        return voInetErrorFailed;
    }
    // Unlike a download's, this URL is not cut at a blank.
    const std::string url =
        serverUrl(m_bUseSSL ? kSecureScheme : kPlainScheme, *this) + unicode_to_utf8(serverPath);
    voinet_LoginfoDebug(kLogTag, "url is %s", url.c_str());
    setAddressScopeIfRequired(curl.get(), m_strHost_utf8_rep);
    setExchangeOptions(curl.get(), *this, url, headers, exchange);
    const voInetError result = performExchange(curl.get(), exchange);
    const bool isStored = closeWritten(std::move(response));
    return result == voInetErrorPackageReceived && !isStored ? voInetErrorWriteFailed : result;
}

voInetError CHttpConnection::downloadFile(const char* localPath, const char* url,
                                          CNetSessionSink* sink, long* resumeOffset,
                                          const bool& useCache) {
    if (localPath == nullptr || url == nullptr) {
        return voInetErrorInvalidArgument;
    }
    long fromStart = 0;
    long& offset = resumeOffset == nullptr ? fromStart : *resumeOffset;
    int status = 0;
    if (offset > 0) {
        const auto manager = makeManager(*this, localPath, url, offset, true);
        // Whatever it ends with, the comparison decides.
        DoHttpDownload(manager.get(), useCache, &status, nullptr);
        if (!manager->IsPrefixMatched()) {
            offset = 0;
        }
    }
    auto manager = makeManager(*this, localPath, url, offset, false);
    manager->InstallProgressSink(sink);
    voInetError result = DoHttpDownload(manager.get(), useCache, &status, nullptr);
    if (asksForRestart(result)) {
        offset = 0;
        manager = makeManager(*this, localPath, url, offset, false);
        manager->InstallProgressSink(sink);
        result = DoHttpDownload(manager.get(), useCache, &status, nullptr);
        if (result == voInetErrorSuccess && isWholeOrPart(status)) {
            manager->FinishTransfer();
        }
        return result;
    }
    // What a cancelled transfer has brought is put in place as well, to be resumed later; intended.
    const bool keeps = result == voInetErrorSuccess || result == voInetErrorCancelled;
    if (keeps && isWholeOrPart(status)) {
        manager->FinishTransfer();
    }
    return result;
}

voInetError CHttpConnection::DoHttpDownload(CallbackManager* cbm, bool useCache, int* httpStatus,
                                            void* curlHandle) {
    if (cbm == nullptr) {
        return voInetErrorInvalidArgument;
    }
    // Shared by all objects and threads, without a lock; intended.
    static int nRetries = 0;
    static bool bAltProxyused = false;
    static bool bNoProxyFound = false;
    static voInetError error = voInetErrorSuccess;

    if (!countRequest(nRetries)) {
        return voInetErrorMaxRetries;
    }
    const bool ownsHandle = curlHandle == nullptr && !bAltProxyused;
    struct ResetOnExit {
        bool ownsHandle;
        ~ResetOnExit() {
            if (ownsHandle) {
                nRetries = 0;
            }
            bAltProxyused = false;
            bNoProxyFound = false;
        }
    } const resetOnExit{ownsHandle};

    std::string proxyUsed;
    std::optional<DownloadRequest> ownRequest;
    if (ownsHandle) {
        ownRequest.emplace(*this, *cbm);
        curlHandle = ownRequest->handle();
        bNoProxyFound =
            !setAutoDetectProxy(curlHandle, proxyUsed, utf8_to_unicode(cbm->GetRemoteUrl()));
        ownRequest->configure(*this, *cbm, useCache);
    }
    if (m_bAllowUserToConfigureProxy && (bAltProxyused || bNoProxyFound)) {
        setAlternateProxy(curlHandle, proxyUsed);
        voinet_Loginfo(kLogTag, "Using alternate proxy server: %s ", proxyUsed.c_str());
        bAltProxyused = true;
    }

    const CURLcode curlResult = curl_easy_perform(curlHandle);
    error = mapCurlErrorCode(curlResult);
    voinet_LoginfoDebug(kLogTag, "curl_easy_perform returned value: %d", curlResult);
    if (curlResult == CURLE_ABORTED_BY_CALLBACK) {
        if (httpStatus != nullptr) {
            *httpStatus = responseCode(curlHandle);
        }
        return error;
    }
    if ((bNoProxyFound || curlResult != CURLE_OK) && m_bAllowUserToConfigureProxy &&
        !bAltProxyused) {
        bNoProxyFound = true;
        voinet_LoginfoDebug(kLogTag,
                            "Unable to use IE proxy settings, will try to use alternate proxy "
                            "settings.");
        error = RepeatDownload(cbm, useCache, httpStatus, curlHandle);
        if (error != voInetErrorSuccess) {
            voinet_LoginfoDebug(
                kLogTag, "DoHttpDownload return value after trying alternate proxy settings: %d.",
                error);
        }
        bAltProxyused = true;
    }
    if (error != voInetErrorSuccess || httpStatus == nullptr) {
        return error;
    }

    *httpStatus = responseCode(curlHandle);
    voinet_LoginfoDebug(kLogTag, "Server response code value: %d ", *httpStatus);
    const Verdict verdict =
        verdictOn(*httpStatus, *this, cbm->GetStartPosition() > 0, bAltProxyused);
    error = verdict.result;
    if (verdict.reaction == Reaction::finish) {
        return error;
    }
    if (verdict.reaction == Reaction::retryWithAlternate) {
        bAltProxyused = true;
        bNoProxyFound = true;
    }
    prepareRetry(verdict.reaction, curlHandle, *this);
    error = RepeatDownload(cbm, useCache, httpStatus, curlHandle);
    if (error != voInetErrorSuccess) {
        voinet_LoginfoDebug(kLogTag, "Retry of DoHttpDownload return value: %d", error);
    }
    return error;
}

voInetError CHttpConnection::RepeatDownload(CallbackManager* cbm, bool useCache, int* httpStatus,
                                            void* curlHandle) {
    cbm->Flush();
    return DoHttpDownload(cbm, useCache, httpStatus, curlHandle);
}

}  // namespace tessaro_com::pkm::voInet
