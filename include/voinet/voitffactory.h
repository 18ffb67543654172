#ifndef VOINET_VOITFFACTORY_H
#define VOINET_VOITFFACTORY_H

#include "voinet/transferitf.h"
#include "voinet/voinet_export.h"
#include "voinet/voinetcreator.h"
#include "voinet/voinetprotocol.h"

namespace tessaro_com::pkm::voInet {

/// The library's entry point. Factories are cheap and share one creator for the whole process.
///
/// Any thread may make and use a factory: the creator is built under the language's guarded
/// initialisation, and although the pointer to it is not, every thread stores the same address
/// there.
class VOINET_API VoInetItfFactory {
  public:
    VoInetItfFactory();

    /// The process-wide creator, made by the first call and destroyed at process exit. Not owned by
    /// the caller.
    static VoInetCreator* initialize();

    /// See VoInetCreator.
    TransferItf* CreateInterface(voInetProtocol protocol);
    int DestroyInterface(TransferItf* transfer);

  private:
    static VoInetCreator* impl;
};

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_VOITFFACTORY_H
