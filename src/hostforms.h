#ifndef VOINET_SRC_HOSTFORMS_H
#define VOINET_SRC_HOSTFORMS_H

#include "voinet/cnetconnection.h"

#include <string>

namespace tessaro_com::pkm::voInet {

/// A form of the server's name: which option fills it, and where the settings keep it.
struct HostForm {
    voInetConnMethod method;
    voInetOption option;
    std::wstring TransferItf::*host;
    std::string TransferItf::*hostUtf8;
    int TransferItf::*port;
};

/// In the order in which they are tried.
inline constexpr HostForm kHostForms[] = {
    {connMethodIP, voInetOptionHostIP, &TransferItf::m_strHostIP,
     &TransferItf::m_strHostIP_utf8_rep, &TransferItf::m_nPortIP},
    {connMethodFqdn, voInetOptionHostFqdn, &TransferItf::m_strHostFqdn,
     &TransferItf::m_strHostFqdn_utf8_rep, &TransferItf::m_nPortFqdn},
    {connMethodNetBios, voInetOptionHostNetBios, &TransferItf::m_strHostNetBios,
     &TransferItf::m_strHostNetBios_utf8_rep, &TransferItf::m_nPortNetbios},
};

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_HOSTFORMS_H
