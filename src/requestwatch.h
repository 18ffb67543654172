#ifndef VOINET_SRC_REQUESTWATCH_H
#define VOINET_SRC_REQUESTWATCH_H

#include "answerhead.h"
#include "bodyblock.h"
#include "ftpreplies.h"
#include "monitoredrequest.h"
#include "voinet/cnetconnection.h"
#include "voinet/transfermonitor.h"

#include <curl/curl.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tessaro_com::pkm::voInet {

/// Looks on while one curl handle makes its requests: what the header lines of an answer give away,
/// how much of its body came, and what the monitor of the thread is to be told and decides.
///
/// Curl's callbacks have user data of their own, so they find the watch as the current one of their
/// thread. A watch is the current one from its making to its end, and must outlive its handle.
class RequestWatch {
  public:
    /// Takes the thread's monitor as it is now. `url` and `rangeStart` are those of all requests of
    /// the handle.
    RequestWatch(const CNetConnection& connection, RequestPurpose purpose, const std::string& url,
                 std::int64_t rangeStart);
    ~RequestWatch();

    RequestWatch(const RequestWatch&) = delete;
    RequestWatch& operator=(const RequestWatch&) = delete;

    /// The innermost one of the calling thread; null for none.
    static RequestWatch* current();

    bool isMonitored() const { return m_monitored.has_value(); }

    /// Has the header lines of a handle delivered to this watch.
    void receiveHeaders(CURL* handle);

    /// What a monitor adds to a handle: an error buffer and its limits. Nothing without one.
    void addMonitorOptions(CURL* handle);

    /// Makes one request with a handle, or lets curl refuse null. A download's answer whose header
    /// block broke off is CURLE_PARTIAL_FILE, a listing in place of a file CURLE_OUT_OF_MEMORY, a
    /// request that the monitor stopped CURLE_ABORTED_BY_CALLBACK, whatever curl took them for.
    CURLcode perform(CURL* handle);

    /// @{
    /// Size of the whole file as an earlier request saw it, when one did.
    void expectTotal(std::optional<std::int64_t> total) { m_expectedTotal = total; }
    std::optional<std::int64_t> expectedTotal() const { return m_expectedTotal; }
    /// @}

    // The facts of the latest request.

    const AnswerHead& answer() const { return m_answer; }
    /// Body bytes that came.
    std::int64_t received() const { return m_received; }
    /// The monitor has stopped it.
    bool isStopped() const { return m_isStopped; }
    /// The monitor wants to keep what arrived of a download that failed.
    bool keepsWhatArrived();

    // Called by curl's callbacks.

    void takeHeaderLine(std::string_view line);
    /// Counts bytes of the body. False when the monitor has stopped the request, and for what is
    /// not that of the file.
    bool takeBody(std::size_t bytes);
    /// Hands bytes of the body on to the manager, those of a download in blocks of their own.
    /// Returns how many were taken.
    unsigned long writeBody(CallbackManager& manager, void* bytes, unsigned long size);
    /// False to stop the request.
    bool goesOn();
    /// The proxy that was set on the handle.
    void noteProxy(const std::string& formattedHost, int port);

  private:
    /// Libcurl asks for the directory when it has no memory for the name of the file in it.
    bool bringsListingForFile() const { return m_asksForFile && m_replies.announceListing(); }

    RequestPurpose m_purpose;
    bool m_asksForFile;
    AnswerHead m_answer;
    FtpReplies m_replies;
    BodyBlock m_block;
    std::int64_t m_received = 0;
    bool m_isStopped = false;
    std::optional<std::int64_t> m_expectedTotal;
    std::optional<MonitoredRequest> m_monitored;
    RequestWatch* m_outer;
};

/// The latest request of the calling thread was stopped by its monitor, and forgetMonitorStop was
/// not called since.
bool wasStoppedByMonitor();
void forgetMonitorStop();

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_REQUESTWATCH_H
