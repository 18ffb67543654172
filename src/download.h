#ifndef VOINET_SRC_DOWNLOAD_H
#define VOINET_SRC_DOWNLOAD_H

#include "requestwatch.h"
#include "voinet/cbmgr.h"
#include "voinet/cnetconnection.h"

#include <functional>
#include <memory>
#include <string>

// What the downloads of HTTP and FTP have in common.

namespace tessaro_com::pkm::voInet {

/// How one pass of a download ended.
struct PassOutcome {
    voInetError result;
    /// The answer is one whose body belongs into the file.
    bool hasFile;
};

/// One download into a local file, and how its protocol makes it.
struct DownloadJob {
    const CNetConnection& connection;
    std::wstring localFile;
    std::wstring url;
    CNetSessionSink* sink;
    /// Null to begin at the start; set to 0 when the download starts over.
    long* resumeOffset;
    /// Makes the requests of one pass, with the manager that the body goes to.
    std::function<PassOutcome(CallbackManager& manager)> makePass;
    /// Whether the sink hears of a download that starts over.
    bool restartIsReported;
};

/// Downloads in up to three passes: a check of the bytes at the resume offset, the transfer, and
/// once more from byte 0 when the server does not serve the range. Puts in place what arrived when
/// a pass says so.
voInetError downloadResumably(const DownloadJob& job);

/// The watch of the pass that is under way on this thread. `own` is made for a caller who brought a
/// manager but no download.
RequestWatch& watchOfPass(std::unique_ptr<RequestWatch>& own, const CNetConnection& connection,
                          const CallbackManager& manager);

/// What every handle of a download has besides the options of its protocol.
void addDownloadOptions(CURL* handle, RequestWatch& watch);

/// Whether the header lines of the answer agree with the range that was asked for. No lines, and an
/// answer of 206 without Content-Range, have nothing to disagree with.
///
/// @param isComplete  false for a transfer that was stopped, of which fewer bytes came.
bool answersRange(const RequestWatch& watch, const CallbackManager& manager, bool isComplete);

/// The byte range to ask for; open-ended unless the manager checks a prefix.
std::string rangeOf(const CallbackManager& manager);

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_DOWNLOAD_H
