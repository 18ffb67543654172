#ifndef VOINET_FTPCONNECTION_H
#define VOINET_FTPCONNECTION_H

#include "voinet/cnetconnection.h"
#include "voinet/voinet_export.h"

#include <string>

namespace tessaro_com::pkm::voInet {

class CallbackManager;

/// FTP, anonymous or with a user name and password, directly or through an HTTP proxy. No uploads.
///
/// Through a proxy every answer with a status up to 400 counts as a download, so a proxy's error
/// page can land in the file: a host verifies what it downloads. An answer of 200 to a ranged
/// request, or of 206 with another part, makes a download start over.
///
/// Threads: besides the rule of TransferItf, a proxy flag of downloads is shared by all FTP objects
/// of the process (not with HTTP) and is not locked; that is intended. A download that starts while
/// another one is inside its fall-back to the alternate proxy fails, so a host runs one after the
/// other.
class VOINET_API CFtpConnection : public CNetConnection {
  public:
    CFtpConnection();
    ~CFtpConnection() override;

    /// True with a site, an active host, a port of at least 1 and a user name; so false before a
    /// logon, which chooses the host and fills in a user name.
    bool CheckOptions() const override;

    /// Connects and logs in without transferring a file. An empty user name becomes "anonymous",
    /// and an anonymous user without a password gets a fixed one; both stay in the settings. A host
    /// that is exempt from the proxy switches the proxy off for the rest of the object's life.
    ///
    /// @return voInetErrorBadOptions before any network activity when CheckOptions is false;
    ///         voInetErrorFailed for a reply above 400 other than 401, 403 and 407; otherwise what
    ///         curl ended with.
    voInetError LogonWithConnSpec(const voInetConnMethod& method, bool useTimeout,
                                  unsigned int timeoutSeconds) override;

    /// Always voInetErrorSuccess.
    voInetError LogOut() override;

    /// See TransferItf::DownloadFile. Backslashes in the remote name count as "/". A reply of 550
    /// gives voInetErrorFileNotFound, any other above 400 voInetErrorFailed. A download that starts
    /// over reports no progress, and so cannot be stopped by its sink.
    voInetError DownloadFileWithConnSpec(const voInetConnMethod& method,
                                         const std::wstring& localFile,
                                         const std::wstring& remoteFile, CNetSessionSink* sink,
                                         long* resumeOffset, bool& resume,
                                         const bool& useCache) override;

    /// Always voInetErrorNotSupported.
    voInetError UploadFileWithConnSpec(const voInetConnMethod& method, const std::wstring& source,
                                       const std::wstring& destination,
                                       CNetSessionSink* sink) override;

    /// Always voInetErrorFailed; not the code of UploadFileWithConnSpec: intended.
    voInetError UploadFileResponseWithConnSpec(const voInetConnMethod& method,
                                               const std::wstring& requestFile,
                                               const std::wstring& serverPath,
                                               const std::wstring& responseFile,
                                               CNetSessionSink* sink) override;

    /// Does nothing and answers 0: a running download is cancelled through its sink.
    int Abort();

    /// True for 401, 403 and 407.
    bool IsAuthenticationFailureCode(int code);

    /// True when the user name is "anonymous" in any letter case.
    bool IsAnonymousUser();

  private:
    voInetError FillInAnonymousUser();
    voInetError doConnect();
    voInetError downloadFile(const char* localFile, const char* url, CNetSessionSink* sink,
                             long* resumeOffset, const bool& useCache);
    voInetError DoFtpDownload(CallbackManager* manager, bool useCache, int* code, void* handle);
};

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_FTPCONNECTION_H
