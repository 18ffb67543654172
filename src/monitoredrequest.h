#ifndef VOINET_SRC_MONITOREDREQUEST_H
#define VOINET_SRC_MONITOREDREQUEST_H

#include "answerhead.h"
#include "redaction.h"
#include "voinet/cnetconnection.h"
#include "voinet/transfermonitor.h"

#include <curl/curl.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace tessaro_com::pkm::voInet {

/// The monitor that the calling thread has set; null for none.
TransferMonitor* currentMonitor();

/// What a monitor is told about the requests of one handle, and its answers. Operations that call
/// the monitor answer false when it has thrown, which stops the request.
class MonitoredRequest {
  public:
    MonitoredRequest(TransferMonitor& monitor, const CNetConnection& connection,
                     RequestPurpose purpose, const std::string& url, std::int64_t rangeStart);

    void noteProxy(const std::string& formattedHost, int port);

    bool addOptions(CURL* handle);

    bool start(CURL* handle);
    bool takeHeaderLine(AnswerHead::Line kind, std::string_view line, const AnswerHead& answer);
    bool takeBody(std::int64_t received, const AnswerHead& answer);
    bool end(CURLcode result, std::int64_t received, const AnswerHead& answer);

    bool goesOn();
    bool keepsWhatArrived();

  private:
    void keepField(std::string_view line);
    bool isFinalAtOnce(const AnswerHead& answer) const;
    bool wasFollowed() const;
    bool reportHeaders(const AnswerHead& answer);
    void noteConnection();

    TransferMonitor& m_monitor;
    Redaction m_redaction;
    RequestRecord m_record;
    CURL* m_handle = nullptr;
    std::size_t m_headerBytes = 0;
    bool m_areHeadersReported = false;
    bool m_isHttpAnswer = false;
    int m_redirectsBefore = 0;
    std::array<char, CURL_ERROR_SIZE> m_errorText{};
};

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_MONITOREDREQUEST_H
