#ifndef VOINET_LNXLOCALCONNECTION_H
#define VOINET_LNXLOCALCONNECTION_H

#include "voinet/transferitf.h"
#include "voinet/voinet_export.h"

#include <string>

namespace tessaro_com::pkm::voInet {

/// A repository in a local or mounted directory (m_strRelativePath): a download is a file copy.
class VOINET_API CLocalConnection : public TransferItf {
  public:
    CLocalConnection();

    /// Always false, whatever the settings; intended (CUncConnection says true).
    bool CheckOptions() const override;

    /// Copies `remoteFile` of the repository directory to `localFile`.
    ///
    /// @param sink          null means no progress and no way to stop the copy.
    /// @param resumeOffset  not used.
    /// @param resume        set to false: a copy always starts from the beginning.
    /// @param useCache      not used.
    ///
    /// @return voInetErrorSuccess also for a copy that the sink stopped, even when its last bytes
    ///         could not be written, and for one that a read error of the source ended: compare the
    ///         sizes. voInetErrorInvalidArgument when the target is the source, the same regular
    ///         file by whatever names and links: nothing is opened or changed then.
    ///         voInetErrorFileNotFound when the source cannot be opened (the target is then left
    ///         empty, since it is opened first), voInetErrorLocalFileOpen when the target cannot,
    ///         voInetErrorFailed when one of them cannot be positioned (a FIFO, whose opening waits
    ///         for its other end before) or the sink threw, voInetErrorWriteFailed,
    ///         voInetErrorOutOfMemory. A failed copy leaves what was written.
    voInetError DownloadFile(const std::wstring& localFile, const std::wstring& remoteFile,
                             CNetSessionSink* sink, long* resumeOffset, bool& resume,
                             const bool& useCache) override;

    /// Uploads: always voInetErrorNotImplemented.
    voInetError UploadFile(const std::wstring& source, const std::wstring& destination,
                           CNetSessionSink* sink) override;
    voInetError UploadFileResponse(const std::wstring& requestFile, const std::wstring& serverPath,
                                   const std::wstring& responseFile,
                                   CNetSessionSink* sink) override;

    /// Always voInetErrorSuccess.
    voInetError Logon(bool useTimeout, unsigned int timeoutSeconds) override;
    voInetError LogOut() override;
};

/// Stores the size of the file `path` (UTF-8) in bytes. False, with `size` untouched, when there is
/// no such file. A size that `unsigned long` cannot hold is stored as the largest value it can.
VOINET_API bool getFileSize(const std::string& path, unsigned long& size);

/// Whether the partial file `target` could be continued from `source`; then `offset` is the size of
/// `target`. True for every readable target of at least 1,024 bytes that is no larger than the
/// source: the bytes that are compared are both the target's own; intended.
VOINET_API bool isResumable(const std::string& target, const std::string& source,
                            unsigned long& offset);

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_LNXLOCALCONNECTION_H
