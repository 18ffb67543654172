#include "voinet/lnxuncconnection.h"

namespace tessaro_com::pkm::voInet {

// Does not set the protocol: a UNC object reports "none", on purpose.
CUncConnection::CUncConnection() = default;

bool CUncConnection::CheckOptions() const {
    return true;
}

voInetError CUncConnection::DownloadFile(const std::wstring& /*localFile*/,
                                         const std::wstring& /*remoteFile*/,
                                         CNetSessionSink* /*sink*/, long* /*resumeOffset*/,
                                         bool& /*resume*/, const bool& /*useCache*/) {
    return voInetErrorNotImplemented;
}

voInetError CUncConnection::UploadFile(const std::wstring& /*source*/,
                                       const std::wstring& /*destination*/,
                                       CNetSessionSink* /*sink*/) {
    return voInetErrorNotImplemented;
}

voInetError CUncConnection::UploadFileResponse(const std::wstring& /*requestFile*/,
                                               const std::wstring& /*serverPath*/,
                                               const std::wstring& /*responseFile*/,
                                               CNetSessionSink* /*sink*/) {
    return voInetErrorNotImplemented;
}

voInetError CUncConnection::Logon(bool /*useTimeout*/, unsigned int /*timeoutSeconds*/) {
    return voInetErrorNotImplemented;
}

voInetError CUncConnection::LogOut() {
    return voInetErrorNotImplemented;
}

}  // namespace tessaro_com::pkm::voInet
