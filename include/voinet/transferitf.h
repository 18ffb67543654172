#ifndef VOINET_TRANSFERITF_H
#define VOINET_TRANSFERITF_H

#include "voinet/netsessionsink.h"
#include "voinet/voinet_export.h"
#include "voinet/voineterror.h"
#include "voinet/voinetoption.h"
#include "voinet/voinetprotocol.h"

#include <cstdint>
#include <string>

namespace tessaro_com::pkm::voInet {

/// The caller's proxy record, handed to TransferItf::SetOption by pointer. The caller owns it and
/// may drop it as soon as SetOption has returned.
///
/// An HTTP object reads the fields named Http, an FTP object those named Ftp; the rest is read by
/// every object. Credentials are taken over only when the flag beside them is set, and an empty
/// text never replaces an earlier one.
struct CProxyParams {
    /// Not read.
    std::int32_t m_nReserved1 = 0;
    /// Host name or address of the proxy; an IPv6 address without brackets.
    std::wstring m_strProxyHost;
    int m_nHttpProxyPort = 0;
    int m_nFtpProxyPort = 0;
    /// Allows the alternate credentials, and the second attempt through the proxy with them. As no
    /// system proxy is ever found on this platform, the proxy with the alternate credentials is
    /// applied to the first request of an HTTP download already, and to a logon or an FTP download
    /// after a failure: also for hosts that are exempt from the proxy.
    bool m_bAllowUserToConfigureProxy = false;
    /// Hosts with a single-label name (no dot, no colon) do not use the proxy.
    bool m_bBypassLocal = false;
    /// Use the system's proxy configuration. There is none on this platform: with this flag set
    /// the proxy is used only where the alternate credentials apply.
    bool m_bUseIEConfig = false;
    /// A second address list; stored only.
    int m_nRangeListSize = 0;
    std::wstring m_strRangeList;
    /// Hosts that do not use the proxy, separated by any of ",; \t\n\r". An entry matches when it
    /// resolves to an address of the server; there are no wildcards.
    int m_nExclusionListSize = 0;
    std::wstring m_strExclusionList;
    /// Not read.
    std::int32_t m_nReserved2 = 0;
    /// The credentials of the same protocol below are in use.
    bool m_bFtpProxyAuthentication = false;
    bool m_bHttpProxyAuthentication = false;
    std::wstring m_strHttpProxyUser;
    std::wstring m_strHttpProxyPassword;
    std::wstring m_strFtpProxyUser;
    std::wstring m_strFtpProxyPassword;
    /// The alternate credentials of the same protocol below are in use. They count only together
    /// with m_bAllowUserToConfigureProxy.
    bool m_bFtpAltCredentials = false;
    bool m_bHttpAltCredentials = false;
    std::wstring m_strHttpAltUser;
    std::wstring m_strHttpAltPassword;
    std::wstring m_strFtpAltUser;
    std::wstring m_strFtpAltPassword;
};

/// A transfer object: the settings of one session with one server or repository, and the operations
/// of one protocol on it. Objects come from VoInetItfFactory::CreateInterface and go back to
/// VoInetItfFactory::DestroyInterface.
///
/// Order of use: set options, Logon, any number of transfers, LogOut.
///
/// Threads: one thread at a time uses an object. Downloads share process-wide state without a lock
/// (see CHttpConnection and CFtpConnection), so a host runs one download at a time, whatever the
/// number of objects.
///
/// Results: operations return a voInetError and never throw; a failing SetOption changes nothing.
/// Where memory is missing, also for a part of a request (a header line, the range, the first
/// proxy, the CA file), the result is voInetErrorOutOfMemory, and the request is not made without
/// the part.
///
/// Binary interface: the order of the virtual operations and of the settings members is fixed.
class VOINET_API TransferItf {
  public:
    TransferItf();

    /// True when the settings suffice for this protocol. Over HTTP and FTP it wants an active host,
    /// which a logon (or an exchange) chooses: before that it is false and says nothing. A local
    /// copy says false at any time.
    virtual bool CheckOptions() const = 0;

    virtual ~TransferItf();

    /// Downloads one file.
    ///
    /// @param localFile     the local file, first; it is replaced by a complete download, or by
    ///                      what had arrived (see below). Its missing parent directories are made,
    ///                      except a short first one (CallbackManager::MakeRecursiveDir). A local
    ///                      copy writes into it directly and makes no directories.
    /// @param remoteFile    the remote file's name, relative to the relative path of the settings.
    ///                      A blank ends it in the URL.
    /// @param sink          receives the progress; not owned. Null means no progress.
    /// @param resumeOffset  byte offset to resume from, 0 or null to download the whole file. The
    ///                      1,024 bytes *at* the offset are compared with those of the partial
    ///                      local file, so resume a partial file of N bytes with N - 1,024, and
    ///                      with 0 when it is shorter; with any larger offset there is nothing to
    ///                      compare with, and the whole file is downloaded as a rule. It is set to
    ///                      0 when the download started over. Where `long` has 32 bits, a file can
    ///                      be resumed up to 2 GiB.
    /// @param resume        a local copy sets it to false; otherwise not touched.
    /// @param useCache      false asks HTTP caches on the way not to answer (pragma: no-cache).
    ///
    /// A download starts over once when the server has no such range (416), sends the whole file,
    /// or says in a Content-Range that it sends another part than the one asked for.
    ///
    /// A partial local file comes from a download that was cancelled (voInetErrorCancelled) by the
    /// sink or the monitor, or that failed when the monitor keeps what arrived; without such a
    /// monitor a broken connection leaves the local file as it was. Nothing is put in place of a
    /// cancelled download that had started over, nor of an answer that is not the part asked for;
    /// over HTTP nothing either before an answer of 200 or 206.
    ///
    /// An HTTP answer that ends within its header lines is voInetErrorTransferFailed.
    ///
    /// Failure of the last step, the replacement of the local file, is not part of the result; the
    /// host library writes an error line for it and leaves the old file in place.
    virtual voInetError DownloadFile(const std::wstring& localFile, const std::wstring& remoteFile,
                                     CNetSessionSink* sink, long* resumeOffset, bool& resume,
                                     const bool& useCache) = 0;

    /// Plain upload; no protocol offers it. Answers voInetErrorNotSupported (HTTP, FTP) or
    /// voInetErrorNotImplemented (UNC, local). Over HTTP and FTP it first logs on to the host forms
    /// behind the active one, as after any failure.
    virtual voInetError UploadFile(const std::wstring& source, const std::wstring& destination,
                                   CNetSessionSink* sink) = 0;

    /// Posts a request package to the management server and stores the answer (HTTP and HTTPS).
    ///
    /// @param requestFile   the local file to send.
    /// @param serverPath    the path on the server, appended to host and port as it is: begin it
    ///                      with "/".
    /// @param responseFile  the local file for the answer's body. It is emptied before anything is
    ///                      sent and keeps whatever arrives, whatever the status. The request file
    ///                      itself, by whatever name, answers voInetErrorInvalidArgument.
    /// @param sink          not used.
    ///
    /// The request is posted to the IP-address form and, after every result for which
    /// CNetConnection::ShouldUseNextConnectionMethodForUploading is true (but
    /// voInetErrorKeysOutdated), once more to the next form if that is configured: also after a
    /// refusal (400, 403, 404), and after an answer that could not be stored
    /// (voInetErrorWriteFailed). So a server may get a request up to three times.
    ///
    /// @return voInetErrorPackageReceived, voInetErrorServerBusy, voInetErrorNoPackage and
    ///         voInetErrorSuccess (a status without a meaning of its own, and also: no IP-address
    ///         form is configured, so nothing was sent) are answers of the server. Nothing was sent
    ///         for voInetErrorShutdown (CHttpConnection::m_bShutdown), voInetErrorNotImplemented
    ///         (UNC, local) and over FTP, which answers voInetErrorFailed. voInetErrorCancelled is
    ///         a stop by the monitor. Negative values are failures: a server's certificate that is
    ///         refused is voInetErrorCaCert (libcurl 7.62 and later), and a CA file that is missing
    ///         or none is voInetErrorTransferFailed.
    virtual voInetError UploadFileResponse(const std::wstring& requestFile,
                                           const std::wstring& serverPath,
                                           const std::wstring& responseFile,
                                           CNetSessionSink* sink) = 0;

    /// Tries the configured host forms (IP address, fully qualified name, NetBIOS name) in turn
    /// until one answers; lack of memory for one does not keep it from the next. With none
    /// configured it answers success without trying anything.
    ///
    /// @param useTimeout  limits the time for connecting to timeoutSeconds (1 to 2,147,483) and
    ///                    makes every later handle of this object only connect, those of downloads
    ///                    included. Use it to ask whether a server is there, on an object of its
    ///                    own; log on without it before a download. Over FTP such a download
    ///                    answers success and leaves the local file empty.
    virtual voInetError Logon(bool useTimeout, unsigned int timeoutSeconds) = 0;

    /// Ends the session. Nothing is held between calls, so there is nothing to close.
    virtual voInetError LogOut() = 0;

    /// For a protocol that has something left to do after LogOut; does nothing by default.
    virtual void PostLogOutOperations();

    /// @{
    /// Sets one option; voInetOption says which overload accepts which. Answers
    /// voInetErrorInvalidOption when this one does not. An empty text answers
    /// voInetErrorInvalidArgument (for voInetOptionRelativePath: success) and stores nothing.
    /// Hand texts over as std::wstring: a bare L"..." literal would choose the bool overload.
    voInetError SetOption(const voInetOption& option, const int& value);
    voInetError SetOption(const voInetOption& option, const long& value);
    voInetError SetOption(const voInetOption& option, const bool& value);
    voInetError SetOption(const voInetOption& option, const std::wstring& value);
    /// @}

    /// Takes over a proxy record; the option is not examined. Empty lists and credentials keep what
    /// an earlier record brought. Null answers voInetErrorInvalidArgument.
    voInetError SetOption(const voInetOption& option, const CProxyParams* proxy);

    voInetProtocol GetProtocol() const;

    /// Writes the settings to the log at detail level, passwords in clear text; for a host's own
    /// trouble shooting. The update token is left out. Always true.
    bool dumpObject();

    // The settings. Options fill them and connections read them; a host reads them, for instance to
    // report the active host. A wide text has a UTF-8 twin (further down) that curl and the log
    // get; whoever writes one writes both.

    /// Set by the connection class.
    voInetProtocol m_protocol = voInetProtocolNone;
    /// Port of the active host form; never set by an option.
    int m_nPort = 0;
    /// Port of every host form while m_bUseSSL is set.
    int m_nSslPort = 0;
    int m_nPortIP = 0;
    int m_nPortFqdn = 0;
    int m_nPortNetbios = 0;
    /// Stored and dumped only.
    std::wstring m_strAccount;
    /// Host of the proxy.
    std::wstring m_strProxy;
    /// Port of the proxy for this protocol.
    int m_nProxyPort = 0;
    std::wstring m_strProxyUserName;
    std::wstring m_strProxyPassword;
    std::wstring m_strAltProxyUserName;
    std::wstring m_strAltProxyPassword;
    /// A proxy record was applied. A logon to a host that is exempt from the proxy clears it for
    /// the rest of the object's life, with m_bUseProxyAuthentication and m_bUseIEConfig. The
    /// alternate proxy is applied all the same where m_bAllowUserToConfigureProxy is set.
    bool m_bUseProxy = false;
    /// User name, ":" and password of the proxy.
    std::wstring m_strProxyUserPwd;
    /// The same of the alternate credentials.
    std::wstring m_strAltProxyUserPwd;
    /// Hosts that are exempt from the proxy.
    std::wstring m_strExclusionList;
    /// Stored and dumped only.
    std::wstring m_strRangeList;
    /// Element counts as the proxy record gave them.
    int m_nExclusionListSize = 0;
    int m_nRangeListSize = 0;
    /// Single-label host names are exempt from the proxy.
    bool m_bBypassLocal = false;
    /// Use the system's proxy configuration (there is none on this platform).
    bool m_bUseIEConfig = false;
    /// Allows the alternate credentials.
    bool m_bAllowUserToConfigureProxy = false;
    /// Stored only.
    bool m_bUseLoggedOnUser = false;
    /// Credentials for the server were given.
    bool m_bUseAuthentication = false;
    /// m_strProxyUserPwd is complete.
    bool m_bUseProxyAuthentication = false;
    /// m_strAltProxyUserPwd is complete.
    bool m_bAltUseProxyAuthentication = false;
    std::wstring m_strSite;
    /// The three forms of the server's name.
    std::wstring m_strHostIP;
    std::wstring m_strHostFqdn;
    std::wstring m_strHostNetBios;
    /// The active one of them; never set by an option.
    std::wstring m_strHost;
    std::wstring m_strUser;
    std::wstring m_strPassword;
    /// Stored and dumped only.
    std::wstring m_strDomain;
    std::wstring m_strServer;
    std::wstring m_strShare;
    /// Path of the repository on the server, or the repository's local directory.
    std::wstring m_strRelativePath;
    /// Stored and dumped only. The UTF-8 twin starts empty and stays so until the option is set; it
    /// is not derived from this default: intended.
    std::wstring m_strUserAgent = L"Tessaro AutoUpdate";
    /// Use the SSL port, and HTTPS for uploads with response.
    bool m_bUseSSL = false;
    /// CA certificate file for uploads with response.
    std::wstring m_strCARootPath;
    /// Sent with HTTP downloads; has no twin.
    std::wstring m_strUpdateToken;

    // The UTF-8 twins.

    std::string m_strSite_utf8_rep;
    std::string m_strHost_utf8_rep;
    std::string m_strHostIP_utf8_rep;
    std::string m_strHostFqdn_utf8_rep;
    std::string m_strHostNetBios_utf8_rep;
    std::string m_strUser_utf8_rep;
    std::string m_strPassword_utf8_rep;
    std::string m_strAccount_utf8_rep;
    std::string m_strProxy_utf8_rep;
    std::string m_strProxyUserName_utf8_rep;
    std::string m_strProxyPassword_utf8_rep;
    std::string m_strAltProxyUserName_utf8_rep;
    std::string m_strAltProxyPassword_utf8_rep;
    std::string m_strAltProxyUserPwd_utf8_rep;
    std::string m_strProxyUserPwd_utf8_rep;
    std::string m_strExclusionList_utf8_rep;
    std::string m_strRangeList_utf8_rep;
    std::string m_strDomain_utf8_rep;
    std::string m_strServer_utf8_rep;
    std::string m_strShare_utf8_rep;
    std::string m_strRelativePath_utf8_rep;
    std::string m_strUserAgent_utf8_rep;
    std::string m_strCARootPath_utf8_rep;
};

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_TRANSFERITF_H
