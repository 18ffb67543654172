#ifndef VOINET_SRC_LOGON_H
#define VOINET_SRC_LOGON_H

#include "voinet/cnetconnection.h"

#include <curl/curl.h>

#include <functional>
#include <string>

// What the logons of HTTP and FTP have in common.

namespace tessaro_com::pkm::voInet {

/// True for 401, 403 and 407. Credentials are sorted out at download time, so a server that asks
/// for them has been reached.
bool isAuthenticationFailure(int status);

/// Switches the proxy off, for the rest of the object's life, when the active host is exempt.
void dropBypassedProxy(TransferItf& settings);

/// Asks for `url` without a body, and once more through the alternate proxy when that fails and the
/// settings allow it.
///
/// @param alternateStatus  where the status of the second request is read.
voInetError probeServer(CNetConnection& connection, const std::string& url,
                        CURLINFO alternateStatus);

/// Writes the log lines round a logon's probe.
voInetError connectWithLog(const TransferItf& settings,
                           const std::function<voInetError()>& connect);

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_LOGON_H
