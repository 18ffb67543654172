#include "httpexchange.h"

#include "addressscope.h"
#include "curlhandle.h"
#include "kvecomn/anetworkutil.h"
#include "logtag.h"
#include "requestwatch.h"
#include "samefile.h"
#include "saturate.h"
#include "stream.h"
#include "urls.h"
#include "voinet/callbacks.h"
#include "voinet/log.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <string_view>
#include <utility>

namespace tessaro_com::pkm::voInet {

namespace {

static_assert(sizeof(off_t) == 8, "compile with _FILE_OFFSET_BITS=64");

/// What has no contents to announce and send: opening a FIFO could wait for ever, and a directory
/// can be opened but not read.
bool isUnsendable(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 &&
           (S_ISDIR(status.st_mode) || S_ISFIFO(status.st_mode));
}

Stream openRequest(const std::string& path) {
    voinet_LoginfoDebug(kLogTag, "Opening file  %s callback", path.c_str());
    return Stream(isUnsendable(path) ? nullptr : std::fopen(path.c_str(), "rb"));
}

Stream openResponse(const std::string& path) {
    voinet_LoginfoDebug(kLogTag, "Opening file  %s callback", path.c_str());
    Stream file(std::fopen(path.c_str(), "wb"));
    if (file != nullptr) {
        // Unbuffered, so that a full disk shows in the write callback and not when the file is
        // closed, which is after the result.
        std::setvbuf(file.get(), nullptr, _IONBF, 0);
    }
    return file;
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
    RequestWatch* const watch = RequestWatch::current();
    return watch == nullptr || watch->takeBody(written) ? written : 0;
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
    if (RequestWatch* const watch = RequestWatch::current()) {
        watch->takeHeaderLine({static_cast<const char*>(line), size * count});
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
    setTextOption(curl, CURLOPT_PROXY, "");  // never through a proxy
    setTextOption(curl, CURLOPT_URL, url);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, kestl_write_callback);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, exchange.response);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, kestl_header_callback);
    curl_easy_setopt(curl, CURLOPT_WRITEHEADER, &exchange.keysOutdated);
    curl_easy_setopt(curl, CURLOPT_READFUNCTION, kestl_read_callback);
    curl_easy_setopt(curl, CURLOPT_READDATA, &exchange.request);
    setTextOption(curl, CURLOPT_USERAGENT, "Mozilla/4.0 (compatible; KESTL/3.0; Windows)");
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
    setTextOption(curl, CURLOPT_CAINFO, settings.m_strCARootPath_utf8_rep);
    curl_easy_setopt(curl, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1));
}

/// A stop by the monitor comes through the progress function, which an exchange does not have
/// otherwise.
void addMonitorOptions(CURL* curl, RequestWatch& watch) {
    if (watch.isMonitored()) {
        curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
        curl_easy_setopt(curl, CURLOPT_PROGRESSFUNCTION, progressCallback);
        watch.addMonitorOptions(curl);
    }
}

voInetError performExchange(CURL* curl, Exchange& exchange, RequestWatch& watch) {
    const CURLcode curlResult = watch.perform(curl);
    voinet_LoginfoDebug(kLogTag, "curl returned %d", curlResult);
    if (exchange.request.isBroken()) {
        // Curl calls it a cancellation, which is no failure.
        return voInetErrorTransferFailed;
    }
    return curlResult == CURLE_OK ? outcomeOf(responseCode(curl), exchange.keysOutdated)
                                  : mapCurlErrorCode(curlResult);
}

/// The URL, unlike a download's, is not cut at a blank.
std::string exchangeUrl(const TransferItf& settings, const std::string& serverPath) {
    return serverUrl(settings.m_bUseSSL ? kHttpsScheme : kHttpScheme, settings) + serverPath;
}

voInetError exchange(const CNetConnection& connection, std::FILE* request,
                     const std::string& serverPath, std::FILE* response) {
    const std::int64_t size = sizeOfOpenFile(request);
    Exchange exchange{RequestBody(request, size), size, response};
    const std::string url = exchangeUrl(connection, serverPath);
    RequestWatch watch(connection, requestExchange, url, 0);
    EasyHandle curl;  // goes after the header lines that are set on it
    const HeaderList headers =
        exchangeHeaders(ANetworkUtil().formatV6addr(connection.m_strHost_utf8_rep, true), size);
    voinet_LoginfoDebug(kLogTag, "Set all curl options");
    curl.reset(curl_easy_init());
    if (curl == nullptr) {
        voinet_LogError(kLogTag, "Curl initialization failed");
        return voInetErrorFailed;
    }
    voinet_LoginfoDebug(kLogTag, "url is %s", url.c_str());
    setAddressScope(curl.get(), connection.m_strHost_utf8_rep);
    setExchangeOptions(curl.get(), connection, url, headers, exchange);
    addMonitorOptions(curl.get(), watch);
    return performExchange(curl.get(), exchange, watch);
}

}  // namespace

voInetError exchangePackages(const CNetConnection& connection, const std::string& requestPath,
                             const std::string& serverPath, const std::string& responsePath) {
    if (isSameRegularFile(requestPath, responsePath)) {
        // Opening the response would empty the request.
        return voInetErrorInvalidArgument;
    }
    const Stream request = openRequest(requestPath);
    Stream response = openResponse(responsePath);
    if (request == nullptr || response == nullptr) {
        return voInetErrorUploadSetup;
    }
    const voInetError result = exchange(connection, request.get(), serverPath, response.get());
    const bool isStored = closeWritten(std::move(response));
    return result == voInetErrorPackageReceived && !isStored ? voInetErrorWriteFailed : result;
}

}  // namespace tessaro_com::pkm::voInet
