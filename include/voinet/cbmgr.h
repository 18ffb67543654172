#ifndef VOINET_CBMGR_H
#define VOINET_CBMGR_H

#include "voinet/netsessionsink.h"
#include "voinet/voinet_export.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>

/// An open file of the host library.
struct TelFile;

namespace tessaro_com::pkm::voInet {

/// What curl's callbacks of one transfer talk to. A download writes into a temporary file, which
/// FinishTransfer puts in place of the local file; so the local file is the old one until then. It
/// is empty at first from the start on, and a copy of the local file when one is resumed. In
/// prefix-check mode nothing is written and there is no temporary file: the first 1,024 bytes that
/// arrive are compared with those of the local file at the start position.
///
/// It owns the open file and the temporary file, and removes the latter when it is destroyed. The
/// sink is the caller's. One thread at a time. Failures of files show as short counts; without
/// memory the constructor throws std::bad_alloc.
class VOINET_API CallbackManager {
  public:
    enum TransferType {
        /// The local file is read and sent; what is received is dropped.
        TransferUpload = 0,
        TransferDownload = 1,
        /// A download without progress reports.
        TransferDownloadSilent = 2,
    };

    /// @param localPath      destination of a download, source of an upload.
    /// @param siteText1,siteText2  handed to the sink as they are.
    /// @param startPosition  byte offset at which the transfer starts; 0 for the whole file.
    /// @param prefixCheck    compare instead of write.
    CallbackManager(const TransferType& type, const std::wstring& localPath,
                    const std::wstring& siteText1, const std::wstring& siteText2,
                    const std::wstring& remoteUrl, const long& startPosition,
                    const bool& prefixCheck);
    virtual ~CallbackManager();

    CallbackManager(const CallbackManager&) = delete;
    CallbackManager& operator=(const CallbackManager&) = delete;

    void InstallProgressSink(CNetSessionSink* sink);

    /// Takes the sink away and returns it; null when there was none.
    CNetSessionSink* UnInstallProgressSink();

    /// Takes `size` received bytes. Returns how many were taken; fewer than `size` means that the
    /// file could not be written. In prefix-check mode and for an upload always `size`.
    unsigned long WriteData(void* data, unsigned long size);

    /// Fills `buffer` with up to `size` bytes to send. Returns the count, 0 at the end. For a
    /// download `size`, with the buffer untouched.
    unsigned long ReadData(void* buffer, unsigned long size);

    /// Reports progress (in bytes) to the sink. Returns 1 when the sink asks to stop, else 0.
    int TransferProgress(double dltotal, double dlnow, double ultotal, double ulnow);

    /// Whether the received prefix is the local one. An answer of less than 1,024 bytes counts as
    /// if zeros followed it.
    bool IsPrefixMatched() const;

    long GetStartPosition() const;

    /// Last byte of the range to ask for: start + 1,023 in prefix-check mode, -1 (no end)
    /// otherwise.
    long GetEndPosition() const;

    /// UTF-8; belongs to the manager.
    const char* GetRemoteUrl() const;

    /// Prepares the same transfer to be made once more: drops what has arrived. False for an upload
    /// and when memory runs out; nothing can be written then.
    bool Flush();

    /// Puts the temporary file in place of the local file, making its parent directories as
    /// MakeRecursiveDir does, and goes back to the start position. True for a download whether or
    /// not the replacement succeeded: the host library reports a failure to the log and leaves the
    /// old file. False for an upload.
    ///
    /// From position 0 a fresh, empty temporary file stays until the manager is destroyed. In
    /// prefix-check mode nothing is replaced.
    bool FinishTransfer();

    /// Makes the directories that `path` names up to its last "/", mode 0700. A "/" within the
    /// first four characters is passed over: a missing first directory of up to three letters
    /// ("abc/file"), or of up to two at the root ("/ab/file"), is not made. False only when the
    /// last directory could not be made, be it that it exists, or when memory runs out. Null is
    /// true.
    bool MakeRecursiveDir(const char* path);

  private:
    static constexpr std::uint32_t kPrefixSize = 1024;
    using Prefix = std::array<char, kPrefixSize>;

    struct HostFileCloser {
        void operator()(TelFile* file) const noexcept;
    };
    using HostFile = std::unique_ptr<TelFile, HostFileCloser>;

    bool IsUpload() const { return m_transferType == TransferUpload; }
    void ChooseTemporaryName();
    void MakeTemporaryCopy();
    void OpenTemporaryFile();
    int NotifySink(double done, double total, int status);

    std::uint32_t m_nPrefixCount = 0;
    Prefix m_receivedPrefix{};
    Prefix m_localPrefix{};
    CNetSessionSink* m_pSink = nullptr;
    bool m_bPrefixCheck;
    long m_nStartPosition;
    long m_nEndPosition;
    HostFile m_file;
    std::wstring m_strLocalPath;
    std::wstring m_strSiteText1;
    std::wstring m_strSiteText2;
    std::wstring m_strRemoteUrl;
    std::string m_strLocalPath_utf8_rep;
    std::string m_strSiteText1_utf8_rep;
    std::string m_strSiteText2_utf8_rep;
    std::string m_strRemoteUrl_utf8_rep;
    std::string m_strTempPath;
    TransferType m_transferType;
};

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_CBMGR_H
