#ifndef VOINET_CNETCONNECTION_H
#define VOINET_CNETCONNECTION_H

#include "voinet/transferitf.h"
#include "voinet/voinet_export.h"
#include "voinet/voineterror.h"

#include <string>

namespace tessaro_com::pkm::voInet {

/// A form in which the server's host can be named. Compares and converts as its number.
struct voInetConnMethod {
    int kind;

    // NOLINTNEXTLINE(google-explicit-constructor): the constants stand for their numbers
    constexpr operator int() const noexcept { return kind; }
};

/// No form chosen yet.
inline constexpr voInetConnMethod connMethodNone{0};
inline constexpr voInetConnMethod connMethodIP{1};
inline constexpr voInetConnMethod connMethodFqdn{2};
inline constexpr voInetConnMethod connMethodNetBios{3};

/// Base of the connections over libcurl. It turns the public operations into loops over the
/// server's host forms: make one form's host and port the active ones, call the protocol's own
/// operation for it (named ...WithConnSpec), and go on to the next form when the result says that
/// another one might succeed. It also holds the choice of proxy.
///
/// The current form only ever advances; nothing sets it back, so a later operation starts from
/// where the one before it ended.
///
/// Threads and results: see TransferItf.
class VOINET_API CNetConnection : public TransferItf {
  public:
    CNetConnection();
    ~CNetConnection() override;

    voInetError DownloadFile(const std::wstring& localFile, const std::wstring& remoteFile,
                             CNetSessionSink* sink, long* resumeOffset, bool& resume,
                             const bool& useCache) override;
    voInetError UploadFile(const std::wstring& source, const std::wstring& destination,
                           CNetSessionSink* sink) override;
    voInetError UploadFileResponse(const std::wstring& requestFile, const std::wstring& serverPath,
                                   const std::wstring& responseFile,
                                   CNetSessionSink* sink) override;
    voInetError Logon(bool useTimeout, unsigned int timeoutSeconds) override;

    // The protocol's own operations, each for the host form that is the active one already.
    virtual voInetError DownloadFileWithConnSpec(const voInetConnMethod& method,
                                                 const std::wstring& localFile,
                                                 const std::wstring& remoteFile,
                                                 CNetSessionSink* sink, long* resumeOffset,
                                                 bool& resume, const bool& useCache) = 0;
    virtual voInetError UploadFileWithConnSpec(const voInetConnMethod& method,
                                               const std::wstring& source,
                                               const std::wstring& destination,
                                               CNetSessionSink* sink) = 0;
    virtual voInetError UploadFileResponseWithConnSpec(const voInetConnMethod& method,
                                                       const std::wstring& requestFile,
                                                       const std::wstring& serverPath,
                                                       const std::wstring& responseFile,
                                                       CNetSessionSink* sink) = 0;
    virtual voInetError LogonWithConnSpec(const voInetConnMethod& method, bool useTimeout,
                                          unsigned int timeoutSeconds) = 0;

    /// Makes the given host, its UTF-8 twin and port the active ones, and `method` the current
    /// form. False, with nothing changed, only when memory runs out.
    bool SetActiveHostSettings(const voInetConnMethod& method, const std::wstring& host,
                               const std::string& hostUtf8, int port);

    /// Makes the configured host and port of `method` the active ones. False, with nothing changed,
    /// when that form is not configured or memory runs out.
    bool ApplyHostInformation(const voInetConnMethod& method);

    /// True when `method` is the current form and is configured.
    bool CheckOptionsWithConnSpec(voInetConnMethod method) const;

    /// Logs out, advances to the next form and logs on with it, and so on until a logon succeeds.
    /// False when there is no form left. A form that is not configured is not passed over: the
    /// logon then goes to the host that was active before.
    bool SetNextConnectionMethod();

    /// Advances to the next form without logging out or on. False when there is none left or when
    /// it is not configured.
    bool SetNextConnectionMethodForUploading();

    // Whether a result of the named operation asks for the next host form. Downloads list what to
    // retry, the other two list what not to retry; the asymmetry is intended.
    bool ShouldUseNextConnectionMethod(voInetError result) const;
    bool ShouldUseNextConnectionMethodForUploading(voInetError result) const;
    bool ShouldUseNextConnectionMethodForLogon(voInetError result) const;

    /// Would take the proxy for `url` from the system's configuration. There is none on this
    /// platform: always false, with the handle and `proxy` untouched.
    bool setAutoDetectProxy(void* curl, std::string& proxy, const std::wstring& url);

    /// Sets the configured proxy on the handle, whatever m_bUseProxy says, with the alternate
    /// credentials when there are any and with the handle's own otherwise. `proxy` receives the
    /// proxy's host as handed to curl (an IPv6 address in brackets). False for a null handle and
    /// when memory runs out.
    bool setAlternateProxy(void* curl, std::string& proxy);

    /// The two arguments of the latest Logon.
    bool IsLogonTimeoutUsed() const { return m_bUseLogonTimeout; }
    unsigned int GetLogonTimeout() const { return m_nLogonTimeoutSeconds; }

    /// The host form of the latest attempt.
    voInetConnMethod GetCurrentConnectionMethod() const { return m_currentMethod; }

  protected:
    bool m_bUseLogonTimeout = false;
    unsigned int m_nLogonTimeoutSeconds = 0;

  private:
    bool AdvanceConnectionMethod();

    voInetConnMethod m_currentMethod = connMethodNone;
};

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_CNETCONNECTION_H
