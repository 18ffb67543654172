#ifndef VOINET_SRC_SINKSTATUS_H
#define VOINET_SRC_SINKSTATUS_H

namespace tessaro_com::pkm::voInet {

/// What a sink is told about its transfer; hosts know the numbers.
enum SinkStatus : int {
    sinkCopyStarting = 2,
    /// A download or a local copy is under way.
    sinkDownloading = 3,
    sinkCopyFinished = 4,
    sinkUploading = 6,
    sinkWriteFailed = 11,
    sinkStopped = 15,
};

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_SINKSTATUS_H
