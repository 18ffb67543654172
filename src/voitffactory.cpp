#include "voinet/voitffactory.h"

namespace tessaro_com::pkm::voInet {

VoInetCreator* VoInetItfFactory::impl = nullptr;

VoInetItfFactory::VoInetItfFactory() {
    if (impl == nullptr) {
        impl = initialize();
    }
}

VoInetCreator* VoInetItfFactory::initialize() {
    static VoInetCreator creator;
    return &creator;
}

TransferItf* VoInetItfFactory::CreateInterface(voInetProtocol protocol) {
    return impl->CreateInterface(protocol);
}

int VoInetItfFactory::DestroyInterface(TransferItf* transfer) {
    return impl->DestroyInterface(transfer);
}

}  // namespace tessaro_com::pkm::voInet
