#ifndef VOINET_TRANSFERMONITOR_H
#define VOINET_TRANSFERMONITOR_H

#include "voinet/voinet_export.h"
#include "voinet/voinetprotocol.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tessaro_com::pkm::voInet {

/// What a request is made for.
enum RequestPurpose : int {
    /// The probe of a logon.
    requestLogon = 0,
    /// The 1,024 bytes that are compared before a download is resumed.
    requestPrefixCheck = 1,
    /// A download; a repeated or restarted one makes several of them.
    requestDownload = 2,
    /// The post of an exchange with the management server.
    requestExchange = 3,
};

/// A header line of an answer.
struct HeaderField {
    std::string name, value;
};

/// When the stages of a request were reached, in microseconds since its start; 0 for a stage that
/// did not happen, such as TLS on a plain connection. Of a request that followed redirects they are
/// those of the last hop, the hops before it included.
struct RequestTimes {
    std::int64_t nameLookedUp = 0;
    std::int64_t connected = 0;
    std::int64_t tlsReady = 0;
    std::int64_t requestSent = 0;
    std::int64_t firstByte = 0;
    std::int64_t ended = 0;
};

/// One request as far as it is known. Texts are UTF-8 (what a server sent in another encoding has
/// U+FFFD in it) and hold no password, token or cookie: user information is cut out of URLs, the
/// values of header lines that carry credentials are "***", and so is every password and token of
/// the settings that an answer repeats, if it has at least four characters.
struct RequestRecord {
    voInetProtocol protocol = voInetProtocolNone;
    RequestPurpose purpose = requestLogon;
    /// The kind of the active host form (voInetConnMethod); connMethodNone's number outside of
    /// them.
    int hostForm = 0;
    /// The URL that was asked for and the one at which the answer was found; the number of
    /// redirects between them.
    std::string url;
    std::string effectiveUrl;
    int redirects = 0;
    /// "host:port" of the proxy that the request goes through, an IPv6 address in brackets; empty
    /// for a direct one.
    std::string proxy;
    /// The peer of the connection, which is the proxy where there is one; empty and 0 when none
    /// came about.
    std::string remoteAddress;
    int remotePort = 0;
    /// Libcurl's result, and its own words for a failure; empty for none.
    int curlResult = 0;
    std::string reason;
    /// The last HTTP status or FTP reply, and the proxy's answer to CONNECT; 0 for none.
    int status = 0;
    int proxyStatus = 0;
    /// The header lines of the last answer, 64 KiB of them at most; empty over FTP.
    std::vector<HeaderField> headers;
    /// First byte asked for, 0 from the start.
    std::int64_t rangeStart = 0;
    /// Length of the body as announced, -1 when it is not known.
    std::int64_t announced = -1;
    /// Bytes of bodies that came and that went.
    std::int64_t received = 0;
    std::int64_t sent = 0;
    RequestTimes times;
};

/// What a host decides for the requests of one handle; 0 leaves libcurl's own behaviour.
struct TransferLimits {
    /// For name look-up and connection together; replaces the time-outs that logons and exchanges
    /// have otherwise.
    std::int64_t connectTimeoutMs = 0;
    /// Averaged over some seconds.
    std::int64_t maxReceiveBytesPerSecond = 0;
};

/// What a host may learn and decide beyond settings and sink: the facts of each request, limits,
/// and an end at any moment. Derive from it, override what is of interest and hand it to
/// setTransferMonitor; the operations that are left do nothing.
///
/// A transfer is one or several requests: a logon makes one for each host form and attempt, a
/// resumed download one for the check and one for the rest, and repeats and fall-backs come on top.
/// Local copies make none.
///
/// Calls come on the thread of the transfer, while it runs, and in this order for each request:
/// OnRequestStarted, GoesOn again and again, OnHeaders, OnRequestEnded; KeepsWhatArrived is asked
/// afterwards. The records are valid during the call only. A monitor may not start transfers, set
/// another monitor or destroy itself in a call.
///
/// An exception thrown here ends the request as GoesOn answering false does (in KeepsWhatArrived it
/// counts as false); it does not cross the library.
class VOINET_API TransferMonitor {
  public:
    virtual ~TransferMonitor();

    /// Before a request is made: protocol, purpose, hostForm, url, proxy and rangeStart are known.
    virtual void OnRequestStarted(const RequestRecord& request);

    /// When the header block of an HTTP answer is complete, before the first byte of its body.
    /// Interim answers (1xx), redirects that are followed and challenges that libcurl meets itself
    /// are no final answers and not reported; that becomes known with the first byte of the body or
    /// at the end of the request, and then a 3xx, 401 or 407 that was final is reported.
    virtual void OnHeaders(const RequestRecord& request);

    /// After the request, whatever came of it; called for every OnRequestStarted.
    virtual void OnRequestEnded(const RequestRecord& request);

    /// Asked at least once a second while a request is under way, in logons and exchanges too; not
    /// while a name is looked up by a libcurl that blocks in it. False ends the request as a sink's
    /// stop does: the result is voInetErrorCancelled, and a download commits what has arrived by
    /// the rules of TransferItf::DownloadFile. No other request is made for the operation.
    virtual bool GoesOn();

    /// Asked when the transfer of a download failed after an answer of 200 or 206 (FTP: after data
    /// came) and something of what was asked for arrived; not for one that was stopped. True
    /// commits it; the result stays what it is. The rest can be fetched with a resume. Of a
    /// download that had started over (rangeStart is 0 then) the head takes the place of the
    /// partial file.
    virtual bool KeepsWhatArrived(const RequestRecord& request);

    /// Asked when a handle is set up, once for all requests that are made with it. Negative values
    /// count as 0.
    virtual TransferLimits Limits();
};

/// Sets the monitor of the calling thread for all objects that are used on it, null for none.
/// Returns the former one, null when there was none.
///
/// The host owns the monitor: it must outlive the transfers of the thread, or be replaced before it
/// is destroyed. A transfer that is under way keeps the monitor that it started with.
VOINET_API TransferMonitor* setTransferMonitor(TransferMonitor* monitor);

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_TRANSFERMONITOR_H
