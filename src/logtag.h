#ifndef VOINET_SRC_LOGTAG_H
#define VOINET_SRC_LOGTAG_H

namespace tessaro_com::pkm::voInet {

/// The module tag of the library's log lines.
inline constexpr char kLogTag[] = "voInet";

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_LOGTAG_H
