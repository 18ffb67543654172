#ifndef VOINET_LNXUNCCONNECTION_H
#define VOINET_LNXUNCCONNECTION_H

#include "voinet/transferitf.h"
#include "voinet/voinet_export.h"

#include <string>

namespace tessaro_com::pkm::voInet {

/// A UNC share. This platform has none: options can be set and CheckOptions is true, but every
/// operation answers voInetErrorNotImplemented, touches no argument and calls no sink.
///
/// GetProtocol reports voInetProtocolNone, not voInetProtocolUnc; intended.
class VOINET_API CUncConnection : public TransferItf {
  public:
    CUncConnection();

    bool CheckOptions() const override;
    voInetError DownloadFile(const std::wstring& localFile, const std::wstring& remoteFile,
                             CNetSessionSink* sink, long* resumeOffset, bool& resume,
                             const bool& useCache) override;
    voInetError UploadFile(const std::wstring& source, const std::wstring& destination,
                           CNetSessionSink* sink) override;
    voInetError UploadFileResponse(const std::wstring& requestFile, const std::wstring& serverPath,
                                   const std::wstring& responseFile,
                                   CNetSessionSink* sink) override;
    voInetError Logon(bool useTimeout, unsigned int timeoutSeconds) override;
    voInetError LogOut() override;
};

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_LNXUNCCONNECTION_H
