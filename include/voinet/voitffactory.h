#ifndef VOINET_VOITFFACTORY_H
#define VOINET_VOITFFACTORY_H

#include "voinet/transferitf.h"
#include "voinet/voinet_export.h"
#include "voinet/voinetcreator.h"
#include "voinet/voinetprotocol.h"

namespace tessaro_com::pkm::voInet {

/// The library's entry point. Factories are cheap and share one creator for the whole process.
///
/// Threads: the first factory of the process is made before there is a second thread. Two first
/// ones at a time are a data race: both store the pointer to the creator, without a lock. After it
/// any thread may make and use factories; initialize() may be called by any thread at any time.
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
