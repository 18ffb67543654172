#ifndef VOINET_SRC_SETUPHANDLE_H
#define VOINET_SRC_SETUPHANDLE_H

#include "curlhandle.h"

namespace tessaro_com::pkm::voInet {

class CallbackManager;
class CNetConnection;

/// A handle as CConnectionHelper::SetupCurlHandle makes it; null when curl had none. Throws
/// std::bad_alloc.
EasyHandle setUpHandle(const CNetConnection& connection, CallbackManager* manager);

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_SETUPHANDLE_H
