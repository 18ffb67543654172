#ifndef VOINET_SRC_PROXYOPTIONS_H
#define VOINET_SRC_PROXYOPTIONS_H

#include "voinet/transferitf.h"

#include <curl/curl.h>

#include <string>

// The one way to set a proxy on a handle.

namespace tessaro_com::pkm::voInet {

/// Sets host (UTF-8, an IPv6 address without brackets), its scope, and port. Returns the host as
/// curl has it, an IPv6 address in brackets.
std::string setProxy(CURL* handle, const std::string& host, int port);

/// Sets user name, ":" and password, for any method of authentication.
void setProxyCredentials(CURL* handle, const std::string& userAndPassword);

/// What CNetConnection::setAlternateProxy does, for callers inside of the library: throws
/// std::bad_alloc, so that no request is made without the proxy for want of memory.
bool useAlternateProxy(const TransferItf& settings, CURL* handle, std::string& proxy);

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_PROXYOPTIONS_H
