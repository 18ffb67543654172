#ifndef VOINET_SRC_URLS_H
#define VOINET_SRC_URLS_H

#include "kvecomn/anetworkutil.h"
#include "voinet/INetUtils.h"
#include "voinet/transferitf.h"

#include <locale>
#include <sstream>
#include <string>

namespace tessaro_com::pkm::voInet {

/// `scheme` (with "://"), the active host (an IPv6 address in brackets), ":" and the active port.
inline std::string serverUrl(const char* scheme, const TransferItf& settings) {
    return scheme + ANetworkUtil().formatV6addr(settings.m_strHost_utf8_rep, true) + ":" +
           std::to_string(settings.m_nPort);
}

/// `text` up to its first white space. URLs and joined credentials end there, on purpose.
inline std::string upToFirstBlank(const std::string& text) {
    std::istringstream stream(text);
    // The host may have set a global locale with other ideas of white space.
    stream.imbue(std::locale::classic());
    std::string word;
    stream >> word;
    return word;
}

/// User name and password of the settings, each percent-encoded, as one text for curl. It ends at
/// the first white space of either, on purpose.
inline std::string joinedCredentials(const TransferItf& settings) {
    return upToFirstBlank(fixCredentialWithSpecialCharacters(settings.m_strUser_utf8_rep) + ":" +
                          fixCredentialWithSpecialCharacters(settings.m_strPassword_utf8_rep));
}

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_URLS_H
