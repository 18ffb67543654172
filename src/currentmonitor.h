#ifndef VOINET_SRC_CURRENTMONITOR_H
#define VOINET_SRC_CURRENTMONITOR_H

namespace tessaro_com::pkm::voInet {

class TransferMonitor;

/// The monitor that the calling thread has set; null for none.
TransferMonitor* currentMonitor();

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_CURRENTMONITOR_H
