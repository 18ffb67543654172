#ifndef VOINET_SRC_ADDRESSSCOPE_H
#define VOINET_SRC_ADDRESSSCOPE_H

#include <curl/curl.h>

#include <string>

namespace tessaro_com::pkm::voInet {

/// Sets the interface scope of an IPv6 link-local `host` on the handle; nothing for another host or
/// a null handle. Resolves the name.
void setAddressScope(CURL* handle, const std::string& host);

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_ADDRESSSCOPE_H
