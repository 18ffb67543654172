#ifndef VOINET_NETSESSIONSINK_H
#define VOINET_NETSESSIONSINK_H

#include "voinet/voinet_export.h"

namespace tessaro_com::pkm::voInet {

/// The caller's receiver of progress. The caller implements and owns it and keeps it alive until
/// the operation that it was handed to has returned; the library calls it on the thread of that
/// operation and keeps no reference afterwards.
///
/// The order of the virtual slots is part of the binary interface: the two of the destructor, then
/// OnTransferProgress. The library calls only the latter.
class VOINET_API CNetSessionSink {
  public:
    virtual ~CNetSessionSink() = default;

    /// Reports progress. None of the pointers is null, and none may be kept.
    ///
    /// @param bytesDone   bytes moved by this transfer so far. A resumed download counts from the
    ///                    resume offset: only the rest, not the bytes that were there already.
    /// @param bytesTotal  bytes that this transfer will move; 0 when not known (yet).
    /// @param status      2: a local copy is about to start; 3: downloading; 4: a local copy is
    ///                    complete; 6: uploading; 11: writing the local copy failed; 15: a local
    ///                    copy was stopped by the sink.
    /// @param siteText1   the site name of the settings.
    /// @param siteText2   the active host; "127.0.0.1" for a local copy.
    /// @param remoteUrl   URL of the remote file; for a local copy the file name as the caller gave
    ///                    it.
    /// @param goOn        true on entry, but for status 15, where it is false; set it to false to
    ///                    stop the transfer. In the last report (4, 11, 15) it changes nothing.
    ///
    /// Calls are not throttled: a local copy calls once for every 512 bytes, a network transfer as
    /// often as curl does. An exception thrown here does not cross the library; it stops the
    /// transfer.
    ///
    /// Where `long` has 32 bits, a figure that does not fit stays at the largest value of its type.
    virtual void OnTransferProgress(unsigned long* bytesDone, long* bytesTotal, int* status,
                                    const wchar_t* siteText1, const wchar_t* siteText2,
                                    const wchar_t* remoteUrl, bool* goOn) = 0;
};

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_NETSESSIONSINK_H
