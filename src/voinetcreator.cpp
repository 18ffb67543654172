#include "voinet/voinetcreator.h"

#include "voinet/FTPConnection.h"
#include "voinet/HTTPConnection.h"
#include "voinet/lnxLocalConnection.h"
#include "voinet/lnxuncconnection.h"

#include <new>

namespace tessaro_com::pkm::voInet {

namespace {

/// Null also when the object's own strings find no memory.
template <class Connection>
TransferItf* make() noexcept {
    try {
        return new (std::nothrow) Connection;
    } catch (...) {
        return nullptr;
    }
}

}  // namespace

VoInetCreator::~VoInetCreator() = default;

TransferItf* VoInetCreator::CreateInterface(voInetProtocol protocol) {
    switch (protocol) {
        case voInetProtocolHttp:
            return make<CHttpConnection>();
        case voInetProtocolFtp:
            return make<CFtpConnection>();
        case voInetProtocolUnc:
            return make<CUncConnection>();
        case voInetProtocolLocal:
            return make<CLocalConnection>();
        default:
            return nullptr;
    }
}

int VoInetCreator::DestroyInterface(TransferItf* transfer) {
    delete transfer;
    return 0;
}

}  // namespace tessaro_com::pkm::voInet
