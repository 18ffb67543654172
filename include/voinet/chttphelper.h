#ifndef VOINET_CHTTPHELPER_H
#define VOINET_CHTTPHELPER_H

#include "voinet/voinet_export.h"

#include <string>

namespace tessaro_com::pkm::voInet {

class CallbackManager;
class CNetConnection;

/// Makes curl easy handles that carry what every transfer of a connection has in common: proxy,
/// credentials, IPv6 scope, callbacks, stall detection, redirects. The protocols add the rest.
///
/// It reads the connection's settings at each call and owns nothing; the connection must outlive
/// it.
class VOINET_API CConnectionHelper {
  public:
    explicit CConnectionHelper(CNetConnection* connection);

    /// Makes a handle and stores it in `*handleOut`, null when curl had none or when memory for a
    /// part of it (such as the proxy) is missing. The caller frees it with FreeCurlHandle.
    /// `manager` receives curl's callbacks and must outlive the handle's transfers; null makes them
    /// harmless. A null `handleOut` does nothing.
    void SetupCurlHandle(void** handleOut, CallbackManager* manager);

    /// Frees a handle; null is ignored.
    void FreeCurlHandle(void* handle);

    /// Builds the path part of a URL from the relative path of the settings and `path`, with a "/"
    /// before each. A relative path that begins with "/" gives a doubled slash; intended.
    ///
    /// @return 0; -1 for an empty `path` and -11 when memory runs out, with `urlPath` untouched.
    int PrependRelativePathIfRequired(std::string& urlPath, const std::string& path);

  private:
    CNetConnection* m_pConnection;
};

/// Sets the interface scope of an IPv6 link-local `host` on the handle. Any other host, one that
/// does not resolve, or a null handle changes nothing. Resolves the name, so it may take time.
VOINET_API void setAddressScopeIfRequired(void* handle, const std::string& host);

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_CHTTPHELPER_H
