#ifndef VOINET_SRC_HTTPEXCHANGE_H
#define VOINET_SRC_HTTPEXCHANGE_H

#include "voinet/cnetconnection.h"

#include <string>

namespace tessaro_com::pkm::voInet {

/// Posts the request file to the active host of `connection` and stores what comes back; see
/// TransferItf::UploadFileResponse. Paths and server path are UTF-8.
voInetError exchangePackages(const CNetConnection& connection, const std::string& requestPath,
                             const std::string& serverPath, const std::string& responsePath);

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_HTTPEXCHANGE_H
