#include "voinet/lnxLocalConnection.h"

#include "boundary.h"
#include "saturate.h"
#include "voinet/INetUtils.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <new>
#include <optional>

namespace tessaro_com::pkm::voInet {

namespace {

static_assert(sizeof(off_t) == 8, "compile with _FILE_OFFSET_BITS=64");

/// Bytes per step of a copy; the sink is notified after each.
constexpr std::size_t kChunkSize = 512;

/// Larger than the C library's default, which costs a system call for every eight chunks.
constexpr std::size_t kStreamBufferSize = 131072;

/// Bytes compared at the end of a partial file.
constexpr off_t kComparedTail = 1024;

constexpr wchar_t kLocalSite[] = L"127.0.0.1";

enum CopyStatus : int {
    copyStarting = 2,
    copyInProgress = 3,
    copyFinished = 4,
    copyWriteFailed = 11,
    copyStopped = 15,
};

struct StreamCloser {
    void operator()(std::FILE* stream) const noexcept { std::fclose(stream); }
};
using Stream = std::unique_ptr<std::FILE, StreamCloser>;

std::optional<off_t> sizeOf(const std::string& path) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
        return std::nullopt;
    }
    return status.st_size;
}

/// Memory for a stream's buffer; without it a stream works with the C library's own.
class StreamBuffer {
  public:
    void giveTo(std::FILE* stream) {
        if (m_memory != nullptr) {
            std::setvbuf(stream, m_memory.get(), _IOFBF, kStreamBufferSize);
        }
    }

  private:
    std::unique_ptr<char[]> m_memory{new (std::nothrow) char[kStreamBufferSize]};
};

/// The two files of a copy.
struct CopyStreams {
    /// The target is opened first, so it is there, and empty, also when the source is missing.
    voInetError open(const std::string& targetPath, const std::string& sourcePath,
                     const char* targetMode) {
        target.reset(std::fopen(targetPath.c_str(), targetMode));
        source.reset(std::fopen(sourcePath.c_str(), "r"));
        if (source == nullptr) {
            return voInetErrorFileNotFound;
        }
        if (target == nullptr) {
            return voInetErrorLocalFileOpen;
        }
        targetBuffer.giveTo(target.get());
        sourceBuffer.giveTo(source.get());
        return voInetErrorSuccess;
    }

    bool seek(off_t position) const {
        return fseeko(target.get(), position, SEEK_SET) == 0 &&
               fseeko(source.get(), position, SEEK_SET) == 0;
    }

    bool sourceHasMore() const {
        return std::feof(source.get()) == 0 && std::ferror(source.get()) == 0;
    }

    bool closeTarget() { return std::fclose(target.release()) == 0; }

    // In this order: a stream uses its buffer until it is closed.
    StreamBuffer targetBuffer;
    StreamBuffer sourceBuffer;
    Stream target;
    Stream source;
};

/// Reports the progress of one copy to the caller's sink and keeps the sink's answer.
class CopyProgress {
  public:
    /// A null sink hears nothing and never stops the copy.
    CopyProgress(CNetSessionSink* sink, const std::wstring& site, const std::wstring& remoteFile)
        : m_sink(sink), m_site(site), m_remoteFile(remoteFile) {}

    void setTotal(off_t total) { m_total = total; }
    void add(std::size_t bytes) { m_copied += bytes; }
    bool goOn() const { return m_goOn; }

    void notify(int status) {
        if (m_sink == nullptr) {
            return;
        }
        auto copied = saturate<unsigned long>(m_copied);
        auto total = saturate<long>(m_total);
        m_sink->OnTransferProgress(&copied, &total, &status, m_site.c_str(), kLocalSite,
                                   m_remoteFile.c_str(), &m_goOn);
    }

  private:
    CNetSessionSink* m_sink;
    const std::wstring& m_site;
    const std::wstring& m_remoteFile;
    std::uint64_t m_copied = 0;
    off_t m_total = 0;
    bool m_goOn = true;
};

/// Reads up to `size` bytes at `position`; what cannot be read stays as it is.
void readAt(std::FILE* stream, off_t position, char* buffer, std::size_t size) {
    if (fseeko(stream, position, SEEK_SET) == 0) {
        [[maybe_unused]] const std::size_t count = std::fread(buffer, 1, size, stream);
    }
}

/// Copies one chunk. False when the target cannot be written. At the end of the source what the
/// stream still holds is written out, so that a full disk shows here and not after the result.
bool copyChunk(CopyStreams& streams, char* chunk, CopyProgress& progress) {
    const std::size_t count = std::fread(chunk, 1, kChunkSize, streams.source.get());
    progress.add(count);
    return std::fwrite(chunk, 1, count, streams.target.get()) == count &&
           (streams.sourceHasMore() || std::fflush(streams.target.get()) == 0);
}

voInetError writeFailed(CopyProgress& progress) {
    progress.notify(copyWriteFailed);
    return voInetErrorWriteFailed;
}

voInetError copyFrom(off_t start, CopyStreams& streams, const std::string& sourcePath,
                     CopyProgress& progress) {
    if (!streams.seek(start)) {
        return voInetErrorFailed;
    }
    const std::unique_ptr<char[]> chunk(new (std::nothrow) char[kChunkSize]);
    if (chunk == nullptr) {
        return voInetErrorOutOfMemory;
    }
    progress.setTotal(sizeOf(sourcePath).value_or(start) - start);
    progress.notify(copyStarting);
    while (streams.sourceHasMore() && progress.goOn()) {
        if (!copyChunk(streams, chunk.get(), progress)) {
            return writeFailed(progress);
        }
        progress.notify(copyInProgress);
    }
    // A copy that was stopped has bytes left to write, and some file systems report a full disk
    // only now.
    if (!streams.closeTarget()) {
        return writeFailed(progress);
    }
    // A read error of the source ends a copy like its end does; intended.
    progress.notify(progress.goOn() ? copyFinished : copyStopped);
    return voInetErrorSuccess;
}

}  // namespace

CLocalConnection::CLocalConnection() {
    m_protocol = voInetProtocolLocal;
}

bool CLocalConnection::CheckOptions() const {
    return false;
}

voInetError CLocalConnection::DownloadFile(const std::wstring& localFile,
                                           const std::wstring& remoteFile, CNetSessionSink* sink,
                                           long* /*resumeOffset*/, bool& resume,
                                           const bool& /*useCache*/) {
    return withoutExceptions([&] {
        const std::string target = unicode_to_utf8(localFile);
        const std::string source = unicode_to_utf8(m_strRelativePath + L"/" + remoteFile);

        // Cleared before it is tested: resuming is wired in but switched off, on purpose.
        unsigned long offset = 0;
        resume = false;
        if (resume) {
            resume = isResumable(target, source, offset);
        }

        CopyStreams streams;
        const voInetError opened = streams.open(target, source, resume ? "a" : "w");
        if (opened != voInetErrorSuccess) {
            return opened;
        }
        CopyProgress progress(sink, m_strSite, remoteFile);
        return copyFrom(static_cast<off_t>(offset), streams, source, progress);
    });
}

voInetError CLocalConnection::UploadFile(const std::wstring& /*source*/,
                                         const std::wstring& /*destination*/,
                                         CNetSessionSink* /*sink*/) {
    return voInetErrorNotImplemented;
}

voInetError CLocalConnection::UploadFileResponse(const std::wstring& /*requestFile*/,
                                                 const std::wstring& /*serverPath*/,
                                                 const std::wstring& /*responseFile*/,
                                                 CNetSessionSink* /*sink*/) {
    return voInetErrorNotImplemented;
}

voInetError CLocalConnection::Logon(bool /*useTimeout*/, unsigned int /*timeoutSeconds*/) {
    return voInetErrorSuccess;
}

voInetError CLocalConnection::LogOut() {
    return voInetErrorSuccess;
}

bool getFileSize(const std::string& path, unsigned long& size) {
    const auto bytes = sizeOf(path);
    if (bytes) {
        size = saturate<unsigned long>(*bytes);
    }
    return bytes.has_value();
}

bool isResumable(const std::string& target, const std::string& source, unsigned long& offset) {
    const auto targetSize = sizeOf(target);
    const auto sourceSize = sizeOf(source);
    if (!targetSize || !sourceSize || *targetSize > *sourceSize || *targetSize < kComparedTail) {
        return false;
    }
    // Both are the target, on purpose: its tail is compared with itself, so every target that can
    // be read may be resumed.
    const Stream first(std::fopen(target.c_str(), "r"));
    const Stream second(std::fopen(target.c_str(), "r"));
    if (first == nullptr || second == nullptr) {
        return false;
    }
    std::array<char, kComparedTail> firstTail{};
    std::array<char, kComparedTail> secondTail{};
    readAt(first.get(), *targetSize - kComparedTail, firstTail.data(), firstTail.size());
    readAt(second.get(), *targetSize - kComparedTail, secondTail.data(), secondTail.size());
    if (firstTail != secondTail) {
        return false;
    }
    offset = saturate<unsigned long>(*targetSize);
    return true;
}

}  // namespace tessaro_com::pkm::voInet
