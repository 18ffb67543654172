#ifndef VOINET_SRC_URLS_H
#define VOINET_SRC_URLS_H

#include "asciitext.h"
#include "kvecomn/anetworkutil.h"
#include "voinet/INetUtils.h"
#include "voinet/transferitf.h"

#include <algorithm>
#include <string>

namespace tessaro_com::pkm::voInet {

// Probes and downloads are plain HTTP also when the settings ask for SSL; intended.
inline constexpr char kHttpScheme[] = "http://";
inline constexpr char kHttpsScheme[] = "https://";
inline constexpr char kFtpScheme[] = "ftp://";

/// `scheme` (with "://"), the active host (an IPv6 address in brackets), ":" and the active port.
inline std::string serverUrl(const char* scheme, const TransferItf& settings) {
    return scheme + ANetworkUtil().formatV6addr(settings.m_strHost_utf8_rep, true) + ":" +
           std::to_string(settings.m_nPort);
}

/// The first word of `text`: white space before it is skipped, white space behind it ends it. URLs
/// and joined credentials are cut like this, on purpose. White space is that of ASCII, whatever
/// locale the host has set.
inline std::string firstWord(const std::string& text) {
    const auto start = std::find_if_not(text.begin(), text.end(), isWhiteSpace);
    return {start, std::find_if(start, text.end(), isWhiteSpace)};
}

/// The path of a file on the server: the relative path of the settings and `path`, with a "/"
/// before each. A relative path that begins with "/" gives a doubled slash; intended.
inline std::string serverPath(const TransferItf& settings, const std::string& path) {
    const std::string rooted = path.front() == '/' ? path : "/" + path;
    const std::string& relativePath = settings.m_strRelativePath_utf8_rep;
    return relativePath.empty() ? rooted : "/" + relativePath + rooted;
}

/// The URL of a file that is named relative to the relative path of the settings; not empty.
inline std::string fileUrl(const char* scheme, const TransferItf& settings,
                           const std::string& path) {
    return firstWord(serverUrl(scheme, settings) + serverPath(settings, path));
}

/// User name and password of the settings, each percent-encoded, as one text for curl.
inline std::string joinedCredentials(const TransferItf& settings) {
    return firstWord(fixCredentialWithSpecialCharacters(settings.m_strUser_utf8_rep) + ":" +
                     fixCredentialWithSpecialCharacters(settings.m_strPassword_utf8_rep));
}

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_URLS_H
