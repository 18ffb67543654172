#ifndef VOINET_VOINETPROTOCOL_H
#define VOINET_VOINETPROTOCOL_H

namespace tessaro_com::pkm::voInet {

/// The kinds of connection that the factory makes.
enum voInetProtocol : int {
    /// HTTP; HTTPS for uploads with response when the settings ask for it.
    voInetProtocolHttp = 0,
    voInetProtocolFtp = 1,
    /// A UNC share. Every operation answers voInetErrorNotImplemented on this platform.
    voInetProtocolUnc = 2,
    /// A repository in a local or mounted directory.
    voInetProtocolLocal = 3,
    /// No protocol; the factory answers null for it. A UNC object reports it; intended.
    voInetProtocolNone = 4,
};

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_VOINETPROTOCOL_H
