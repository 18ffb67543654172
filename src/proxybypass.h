#ifndef VOINET_SRC_PROXYBYPASS_H
#define VOINET_SRC_PROXYBYPASS_H

#include <string>

namespace tessaro_com::pkm::voInet {

/// isProxyBypassed for callers inside of the library: throws std::bad_alloc when memory runs out,
/// where the public form answers false. A transfer must not take the proxy for want of memory.
bool isExemptFromProxy(const std::string& host, const std::string& list, bool bypassLocal);

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_PROXYBYPASS_H
