#include "monitoredrequest.h"

#include "asciitext.h"
#include "boundary.h"
#include "curlhandle.h"
#include "saturate.h"

#include <algorithm>

// A libcurl that lacks the function, which is possible for one that was cut down, leaves it null.
#pragma weak curl_easy_strerror

namespace tessaro_com::pkm::voInet {

namespace {

/// Of header lines, the bytes that a record keeps.
constexpr std::size_t kMostHeaderBytes = std::size_t{64} * 1024;

/// CURLINFO_PRIMARY_PORT by its number: a libcurl older than 7.21.0 has no name for it and does not
/// answer.
constexpr auto kInfoPrimaryPort = static_cast<CURLINFO>(CURLINFO_LONG + 40);

double figure(CURL* handle, CURLINFO info) {
    double value = 0;
    return handle != nullptr && curl_easy_getinfo(handle, info, &value) == CURLE_OK ? value : 0;
}

std::int64_t microseconds(CURL* handle, CURLINFO info) {
    constexpr double kPerSecond = 1e6;
    return saturate<std::int64_t>(figure(handle, info) * kPerSecond);
}

std::string textOf(CURL* handle, CURLINFO info) {
    char* text = nullptr;
    const bool isKnown = handle != nullptr && curl_easy_getinfo(handle, info, &text) == CURLE_OK;
    return isKnown && text != nullptr ? text : "";
}

/// A stage cannot be later than one that follows it, if that happened.
std::int64_t earlier(std::int64_t stage, std::int64_t next) {
    return next > 0 ? std::min(stage, next) : stage;
}

RequestTimes timesOf(CURL* handle) {
    RequestTimes times;
    times.nameLookedUp = microseconds(handle, CURLINFO_NAMELOOKUP_TIME);
    times.connected = microseconds(handle, CURLINFO_CONNECT_TIME);
    times.tlsReady = microseconds(handle, CURLINFO_APPCONNECT_TIME);
    times.requestSent = microseconds(handle, CURLINFO_PRETRANSFER_TIME);
    times.firstByte = microseconds(handle, CURLINFO_STARTTRANSFER_TIME);
    times.ended = microseconds(handle, CURLINFO_TOTAL_TIME);
    // Over FTP libcurl's figures for the connection are those of its second one.
    times.firstByte = std::min(times.firstByte, times.ended);
    times.requestSent = earlier(times.requestSent, times.firstByte);
    times.connected = earlier(times.connected, times.requestSent);
    return times;
}

std::string wordsOf(CURLcode result, const char* errorText) {
    if (result == CURLE_OK || errorText[0] != '\0') {
        return errorText;
    }
    return curl_easy_strerror != nullptr ? curl_easy_strerror(result) : "";
}

/// Calls the monitor. False when it throws, whatever that is.
template <class Call>
bool tell(Call call) {
    return withoutExceptionsOr(false, [&] {
        call();
        return true;
    });
}

/// Fills in texts of a record; one for which there is no memory stays empty.
template <class Fill>
void fillIn(Fill fill) {
    tell(fill);
}

}  // namespace

MonitoredRequest::MonitoredRequest(TransferMonitor& monitor, const CNetConnection& connection,
                                   RequestPurpose purpose, const std::string& url,
                                   std::int64_t rangeStart)
    : m_monitor(monitor), m_redaction(connection) {
    m_record.protocol = connection.GetProtocol();
    m_record.purpose = purpose;
    m_record.hostForm = connection.GetCurrentConnectionMethod().kind;
    m_record.url = m_redaction.text(url);
    m_record.rangeStart = rangeStart;
}

void MonitoredRequest::noteProxy(const std::string& formattedHost, int port) {
    m_record.proxy = formattedHost.empty()
                         ? std::string()
                         : m_redaction.text(formattedHost) + ":" + std::to_string(port);
}

bool MonitoredRequest::addOptions(CURL* handle) {
    curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, m_errorText.data());
    TransferLimits limits;
    const bool goesOn = tell([&] { limits = m_monitor.Limits(); });
    if (limits.connectTimeoutMs > 0) {
        curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS,
                         saturate<long>(limits.connectTimeoutMs));
    }
    if (limits.maxReceiveBytesPerSecond > 0) {
        curl_easy_setopt(handle, CURLOPT_MAX_RECV_SPEED_LARGE,
                         static_cast<curl_off_t>(limits.maxReceiveBytesPerSecond));
    }
    return goesOn;
}

bool MonitoredRequest::start(CURL* handle) {
    m_handle = handle;
    m_errorText[0] = '\0';
    RequestRecord record;
    record.protocol = m_record.protocol;
    record.purpose = m_record.purpose;
    record.hostForm = m_record.hostForm;
    record.url = m_record.url;
    record.proxy = m_record.proxy;
    record.rangeStart = m_record.rangeStart;
    m_record = std::move(record);
    m_headerBytes = 0;
    m_areHeadersReported = false;
    m_isHttpAnswer = false;
    m_redirectsBefore = 0;
    return tell([&] { m_monitor.OnRequestStarted(m_record); });
}

bool MonitoredRequest::takeHeaderLine(AnswerHead::Line kind, std::string_view line,
                                      const AnswerHead& answer) {
    switch (kind) {
        case AnswerHead::Line::status:
            m_isHttpAnswer = true;
            m_record.headers.clear();
            m_headerBytes = 0;
            m_areHeadersReported = false;
            m_redirectsBefore = responseCode(m_handle, CURLINFO_REDIRECT_COUNT);
            return true;
        case AnswerHead::Line::field:
            keepField(line);
            return true;
        case AnswerHead::Line::end:
            return !isFinalAtOnce(answer) || reportHeaders(answer);
        default:
            return true;
    }
}

/// A line that would not fit any more, or for which there is no memory, is left out.
void MonitoredRequest::keepField(std::string_view line) {
    m_headerBytes += line.size();
    if (m_headerBytes > kMostHeaderBytes) {
        return;
    }
    fillIn([&] {
        const auto colon = line.find(':');
        const bool continues = isBlank(line.front()) && !m_record.headers.empty();
        if (continues) {
            HeaderField& field = m_record.headers.back();
            field = m_redaction.header(field.name, field.value + " " + std::string(trimmed(line)));
        } else if (colon == std::string_view::npos) {
            m_record.headers.push_back(m_redaction.header(trimmed(line), ""));
        } else {
            m_record.headers.push_back(m_redaction.header(trimmed(line.substr(0, colon)),
                                                          trimmed(line.substr(colon + 1))));
        }
    });
}

/// Whether nothing can follow the block but its body. An answer that libcurl may follow or meet
/// with credentials shows later what it is.
bool MonitoredRequest::isFinalAtOnce(const AnswerHead& answer) const {
    const int status = answer.status();
    const bool isInterim = status < 200;
    const bool isRedirect = status >= 300 && status < 400 && answer.hasLocation();
    const bool isChallenge = status == 401 || status == 407;
    return !isInterim && !isRedirect && !isChallenge;
}

bool MonitoredRequest::wasFollowed() const {
    return responseCode(m_handle, CURLINFO_REDIRECT_COUNT) > m_redirectsBefore;
}

bool MonitoredRequest::reportHeaders(const AnswerHead& answer) {
    m_areHeadersReported = true;
    m_record.status = answer.status();
    m_record.announced = answer.contentLength().value_or(-1);
    fillIn([&] { noteConnection(); });
    return tell([&] { m_monitor.OnHeaders(m_record); });
}

bool MonitoredRequest::takeBody(std::int64_t received, const AnswerHead& answer) {
    m_record.received = received;
    return m_areHeadersReported || !answer.isComplete() || reportHeaders(answer);
}

void MonitoredRequest::noteConnection() {
    m_record.effectiveUrl = m_redaction.text(textOf(m_handle, CURLINFO_EFFECTIVE_URL));
    m_record.redirects = responseCode(m_handle, CURLINFO_REDIRECT_COUNT);
    m_record.proxyStatus = responseCode(m_handle, CURLINFO_HTTP_CONNECTCODE);
    m_record.times = timesOf(m_handle);
    if (m_record.times.connected > 0) {
        m_record.remoteAddress = textOf(m_handle, CURLINFO_PRIMARY_IP);
        m_record.remotePort = responseCode(m_handle, kInfoPrimaryPort);
    }
}

bool MonitoredRequest::end(CURLcode result, std::int64_t received, const AnswerHead& answer) {
    m_record.curlResult = static_cast<int>(result);
    m_record.received = received;
    bool goesOn = true;
    const bool isFinal = answer.isComplete() && answer.status() >= 200 && !wasFollowed();
    if (isFinal && !m_areHeadersReported) {
        goesOn = reportHeaders(answer);
    }
    m_record.status = responseCode(m_handle);
    m_record.sent = saturate<std::int64_t>(figure(m_handle, CURLINFO_SIZE_UPLOAD));
    m_record.announced = answer.contentLength().value_or(-1);
    if (answer.status() == 0 && m_handle != nullptr) {
        double length = -1;
        curl_easy_getinfo(m_handle, CURLINFO_CONTENT_LENGTH_DOWNLOAD, &length);
        m_record.announced = saturate<std::int64_t>(length);
    }
    fillIn([&] { noteConnection(); });
    fillIn([&] { m_record.reason = m_redaction.text(wordsOf(result, m_errorText.data())); });
    return tell([&] { m_monitor.OnRequestEnded(m_record); }) && goesOn;
}

bool MonitoredRequest::goesOn() {
    return withoutExceptionsOr(false, [&] { return m_monitor.GoesOn(); });
}

bool MonitoredRequest::keepsWhatArrived() {
    // Over FTP it is enough that data came; through an HTTP proxy its answer counts.
    const bool isFtp = m_record.protocol == voInetProtocolFtp && !m_isHttpAnswer;
    const bool isAnswered = isFtp || m_record.status == 200 || m_record.status == 206;
    return m_record.received > 0 && isAnswered &&
           withoutExceptionsOr(false, [&] { return m_monitor.KeepsWhatArrived(m_record); });
}

}  // namespace tessaro_com::pkm::voInet
