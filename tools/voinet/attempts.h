#ifndef VOINET_COMMAND_ATTEMPTS_H
#define VOINET_COMMAND_ATTEMPTS_H

#include "endpoint.h"
#include "voinet/voineterror.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace voinet_command {

enum class Stage { logon, download, exchange };

/// "logon", "download", "exchange".
const char* stageName(Stage stage);

/// What the transfer object works on at the moment.
struct ActiveTarget {
    HostForm form = HostForm::ip;
    /// False while the library has moved on to a form that has no host.
    bool configured = true;
    Endpoint endpoint;
    /// "host:port" of the proxy in use; empty for a direct connection.
    std::string proxy;
    /// The proxy of the settings, which alternate credentials bring into use again.
    std::string alternateProxy;
    bool ftp = false;
};

/// One try of one operation with one host form.
struct Attempt {
    Stage stage = Stage::logon;
    ActiveTarget target;
    bool alternateCredentials = false;
    /// The latest HTTP status or FTP reply.
    std::optional<int> reply;
    /// Which of the two; a proxy answers in HTTP also for an FTP server.
    bool replyIsFtp = false;
    /// What libcurl ended with, where the library's log tells.
    std::optional<int> curlCode;
    /// Unset while the attempt runs.
    std::optional<tessaro_com::pkm::voInet::voInetError> result;
    /// libcurl's own words for a failure; may be empty.
    std::string reason;

    /// Whether it ended with anything but success or, for an exchange, a known outcome. The library
    /// calls an exchange with an unknown HTTP status a success; here it is a failure.
    bool Failed() const;
    /// The reply, when the request was really answered with it.
    std::optional<int> Answer() const;
    /// The request file of an exchange became shorter or unreadable while it was being sent.
    bool RequestBroke() const;
    /// The connection ended in TLS.
    bool TlsFailed() const;
};

/// Puts the attempts of a session together from the lines that the library logs, since its results
/// name only the end of the whole.
class AttemptLog {
  public:
    using TargetSource = std::function<ActiveTarget()>;

    /// `source` is asked when an attempt begins.
    explicit AttemptLog(TargetSource source);

    /// Takes a line of the host log.
    void Add(const std::string& module, const std::string& message);

    /// Ends the running attempt with the result of the operation.
    void Finish(Stage stage, tessaro_com::pkm::voInet::voInetError result);

    const std::vector<Attempt>& All() const { return m_attempts; }

    /// The first real failure: the first download that failed, or else the first logon. A logon
    /// that failed before another form's logon succeeded is no cause. Of exchanges the latest that
    /// the server answered, whatever became of others. Null when nothing failed.
    const Attempt* Cause() const;

    /// True when the library moved on to a host form that is not configured, so that the final
    /// result says less than the cause.
    bool MovedOnToMissingForm() const { return m_missingForm; }

  private:
    void AddLibraryLine(const std::string& message);
    void AddTraceLine(const std::string& message);
    void Begin(Stage stage);
    void Close();
    /// The result of an attempt that another one followed.
    tessaro_com::pkm::voInet::voInetError ResultOfFinished(const Attempt& attempt) const;
    Attempt* Running();

    TargetSource m_source;
    std::vector<Attempt> m_attempts;
    bool m_missingForm = false;
    /// The lines at hand belong to a try with a form that has no host.
    bool m_skipping = false;
    bool m_connectFailed = false;
};

}  // namespace voinet_command

#endif  // VOINET_COMMAND_ATTEMPTS_H
