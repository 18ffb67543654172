#include "requestwatch.h"

#include "voinet/cbmgr.h"

namespace tessaro_com::pkm::voInet {

namespace {

thread_local RequestWatch* watchOfThread = nullptr;
thread_local bool isThreadStopped = false;

bool isDownload(RequestPurpose purpose) {
    return purpose == requestDownload || purpose == requestPrefixCheck;
}

/// CURLOPT_HEADERFUNCTION.
std::size_t headerCallback(char* line, std::size_t size, std::size_t count, void* watch) {
    static_cast<RequestWatch*>(watch)->takeHeaderLine({line, size * count});
    return size * count;
}

}  // namespace

RequestWatch::RequestWatch(const CNetConnection& connection, RequestPurpose purpose,
                           const std::string& url, std::int64_t rangeStart)
    : m_purpose(purpose),
      m_asksForFile(connection.GetProtocol() == voInetProtocolFtp && isDownload(purpose) &&
                    namesFile(url)),
      m_outer(watchOfThread) {
    if (TransferMonitor* const monitor = currentMonitor()) {
        m_monitored.emplace(*monitor, connection, purpose, url, rangeStart);
    }
    watchOfThread = this;
}

RequestWatch::~RequestWatch() {
    watchOfThread = m_outer;
}

RequestWatch* RequestWatch::current() {
    return watchOfThread;
}

void RequestWatch::receiveHeaders(CURL* handle) {
    curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, headerCallback);
    curl_easy_setopt(handle, CURLOPT_WRITEHEADER, this);
}

void RequestWatch::addMonitorOptions(CURL* handle) {
    m_isStopped = m_monitored && !m_monitored->addOptions(handle);
}

CURLcode RequestWatch::perform(CURL* handle) {
    m_answer = AnswerHead();
    m_replies = FtpReplies();
    m_received = 0;
    m_block.clear();
    if (m_monitored) {
        m_isStopped = !m_monitored->start(handle) || m_isStopped;
    }
    CURLcode result = m_isStopped ? CURLE_ABORTED_BY_CALLBACK : curl_easy_perform(handle);
    if (!m_block.flush() && result == CURLE_OK) {
        result = CURLE_WRITE_ERROR;
    }
    if (result == CURLE_OK && isDownload(m_purpose) && m_answer.isCut()) {
        result = CURLE_PARTIAL_FILE;
    }
    if (bringsListingForFile()) {
        result = CURLE_OUT_OF_MEMORY;
    }
    if (m_monitored) {
        result = m_isStopped ? CURLE_ABORTED_BY_CALLBACK : result;
        const bool goesOn = m_monitored->end(result, m_received, m_answer);
        m_isStopped = m_isStopped || !goesOn;
    }
    isThreadStopped = m_isStopped;
    return m_isStopped ? CURLE_ABORTED_BY_CALLBACK : result;
}

bool RequestWatch::keepsWhatArrived() {
    return m_monitored && m_monitored->keepsWhatArrived();
}

void RequestWatch::takeHeaderLine(std::string_view line) {
    const AnswerHead::Line kind = m_answer.take(line);
    m_replies.take(line);
    if (m_monitored && !m_monitored->takeHeaderLine(kind, line, m_answer)) {
        m_isStopped = true;
    }
}

bool RequestWatch::takeBody(std::size_t bytes) {
    if (bringsListingForFile()) {
        return false;
    }
    m_received += static_cast<std::int64_t>(bytes);
    if (m_monitored && !m_monitored->takeBody(m_received, m_answer)) {
        m_isStopped = true;
    }
    return !m_isStopped;
}

unsigned long RequestWatch::writeBody(CallbackManager& manager, void* bytes, unsigned long size) {
    // A check keeps no more than 1,024 bytes, and a body that comes in a piece or two, of 16 KiB at
    // the most, is not worth the memory of a block.
    constexpr std::int64_t kLongestPiece = 16384;
    const bool isShort = m_answer.contentLength().value_or(kLongestPiece + 1) <= kLongestPiece;
    return m_purpose == requestDownload && !isShort ? m_block.take(manager, bytes, size)
                                                    : manager.WriteData(bytes, size);
}

bool RequestWatch::goesOn() {
    if (m_monitored && !m_isStopped) {
        m_isStopped = !m_monitored->goesOn();
    }
    return !m_isStopped;
}

void RequestWatch::noteProxy(const std::string& formattedHost, int port) {
    if (m_monitored) {
        m_monitored->noteProxy(formattedHost, port);
    }
}

bool wasStoppedByMonitor() {
    return isThreadStopped;
}

void forgetMonitorStop() {
    isThreadStopped = false;
}

}  // namespace tessaro_com::pkm::voInet
