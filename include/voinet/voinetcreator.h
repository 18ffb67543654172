#ifndef VOINET_VOINETCREATOR_H
#define VOINET_VOINETCREATOR_H

#include "voinet/transferitf.h"
#include "voinet/voinet_export.h"
#include "voinet/voinetprotocol.h"

namespace tessaro_com::pkm::voInet {

/// Makes and destroys transfer objects. It holds no data: copies are interchangeable, and any
/// thread may use one. Hosts reach it through VoInetItfFactory.
class VOINET_API VoInetCreator {
  public:
    VoInetCreator() = default;
    VoInetCreator(const VoInetCreator&) = default;
    VoInetCreator& operator=(const VoInetCreator&) = default;
    virtual ~VoInetCreator();

    /// Makes a transfer object for `protocol`. The caller owns it and hands it back to
    /// DestroyInterface. Null for an unknown protocol and when memory runs out.
    TransferItf* CreateInterface(voInetProtocol protocol);

    /// Destroys a transfer object; null is ignored. Always 0.
    int DestroyInterface(TransferItf* transfer);
};

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_VOINETCREATOR_H
