#ifndef VOINET_SRC_PROXYOPTIONS_H
#define VOINET_SRC_PROXYOPTIONS_H

#include <curl/curl.h>

#include <string>

// The one way to set a proxy on a handle.

namespace tessaro_com::pkm::voInet {

/// Sets host (UTF-8, an IPv6 address without brackets), its scope, and port. Returns the host as
/// curl has it, an IPv6 address in brackets.
std::string setProxy(CURL* handle, const std::string& host, int port);

/// Sets user name, ":" and password, for any method of authentication.
void setProxyCredentials(CURL* handle, const std::string& userAndPassword);

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_PROXYOPTIONS_H
