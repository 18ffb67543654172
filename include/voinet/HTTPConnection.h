#ifndef VOINET_HTTPCONNECTION_H
#define VOINET_HTTPCONNECTION_H

#include "voinet/cnetconnection.h"
#include "voinet/voinet_export.h"

#include <string>

namespace tessaro_com::pkm::voInet {

class CallbackManager;

/// HTTP, and HTTPS for uploads with response.
///
/// Threads: besides the rule of TransferItf, the retry state of downloads (request counter, two
/// proxy flags) is shared by all objects of the process and is not locked; that is intended. Two
/// downloads at a time disturb each other, so a host runs one after the other.
class VOINET_API CHttpConnection : public CNetConnection {
  public:
    CHttpConnection();
    ~CHttpConnection() override;

    /// Library-wide: while true, uploads with response answer voInetErrorShutdown. Only the host
    /// sets it. Read without synchronisation, once at the start of each upload.
    static bool m_bShutdown;

    /// True with a site, an active host and a port of at least 1; so false before a logon, which
    /// makes a host the active one, whether it succeeds or not.
    bool CheckOptions() const override;

    /// Asks the active host for the repository's "SiteStat.xml" without its body. An answer of 401,
    /// 403 or 407 is a success: the server is there, and credentials are the download's business. A
    /// host that is exempt from the proxy switches the proxy off for the rest of the object's life
    /// (but not the alternate proxy, see CProxyParams::m_bAllowUserToConfigureProxy).
    ///
    /// @return voInetErrorBadOptions before any network activity when CheckOptions is false;
    ///         voInetErrorFailed for any other HTTP status above 400; otherwise what curl ended
    ///         with.
    voInetError LogonWithConnSpec(const voInetConnMethod& method, bool useTimeout,
                                  unsigned int timeoutSeconds) override;

    /// Always voInetErrorSuccess.
    voInetError LogOut() override;

    /// See TransferItf::DownloadFile.
    voInetError DownloadFileWithConnSpec(const voInetConnMethod& method,
                                         const std::wstring& localFile,
                                         const std::wstring& remoteFile, CNetSessionSink* sink,
                                         long* resumeOffset, bool& resume,
                                         const bool& useCache) override;

    /// Always voInetErrorNotSupported.
    voInetError UploadFileWithConnSpec(const voInetConnMethod& method, const std::wstring& source,
                                       const std::wstring& destination,
                                       CNetSessionSink* sink) override;

    /// See TransferItf::UploadFileResponse.
    voInetError UploadFileResponseWithConnSpec(const voInetConnMethod& method,
                                               const std::wstring& requestFile,
                                               const std::wstring& serverPath,
                                               const std::wstring& responseFile,
                                               CNetSessionSink* sink) override;

    /// The probe of a logon. Always plain HTTP to the active port, also with m_bUseSSL.
    voInetError doConnect();

    /// True for 401, 403 and 407.
    bool IsAuthenticationFailureCode(int httpStatus);

    /// Downloads `url` into `localPath` (UTF-8): checks the bytes at the resume offset first, and
    /// starts over from byte 0 when they differ or when the server does not serve the range. A
    /// check whose 206 names another start does not match. A null path or URL is
    /// voInetErrorInvalidArgument.
    voInetError downloadFile(const char* localPath, const char* url, CNetSessionSink* sink,
                             long* resumeOffset, const bool& useCache);

    /// One transfer into `cbm`: at most four requests, as credentials and proxy are tried. A null
    /// `cbm` is voInetErrorInvalidArgument.
    ///
    /// @param httpStatus  receives the HTTP status; may be null, then the status is not looked at.
    /// @param curlHandle  null to have a handle made and freed; retries pass their own on.
    voInetError DoHttpDownload(CallbackManager* cbm, bool useCache, int* httpStatus,
                               void* curlHandle);

  private:
    voInetError RepeatDownload(CallbackManager* cbm, bool useCache, int* httpStatus,
                               void* curlHandle);
};

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_HTTPCONNECTION_H
