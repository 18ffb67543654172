#ifndef VOINET_SRC_DOWNLOAD_H
#define VOINET_SRC_DOWNLOAD_H

#include "voinet/INetUtils.h"
#include "voinet/cbmgr.h"
#include "voinet/transferitf.h"

#include <memory>
#include <string>

// What the downloads of HTTP and FTP have in common.

namespace tessaro_com::pkm::voInet {

/// A manager as every pass of a download has it.
inline std::unique_ptr<CallbackManager> makeManager(const TransferItf& settings,
                                                    const char* localPath, const char* url,
                                                    long offset, bool prefixCheck) {
    return std::make_unique<CallbackManager>(
        CallbackManager::TransferDownload, utf8_to_unicode(localPath), settings.m_strSite,
        settings.m_strHost, utf8_to_unicode(url), offset, prefixCheck);
}

/// The byte range to ask for; open-ended unless the manager checks a prefix.
inline std::string rangeOf(const CallbackManager& manager) {
    std::string range = std::to_string(manager.GetStartPosition()) + "-";
    if (manager.GetEndPosition() > 0) {
        range += std::to_string(manager.GetEndPosition());
    }
    return range;
}

/// Results that make a download start over from byte 0.
inline bool asksForRestart(voInetError result) {
    return result == voInetErrorRangeNotSatisfiable || result == voInetErrorRangeIgnored;
}

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_DOWNLOAD_H
