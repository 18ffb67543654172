#include "voinet/lnxLocalConnection.h"

#include "boundary.h"
#include "samefile.h"
#include "saturate.h"
#include "sinkstatus.h"
#include "stream.h"
#include "voinet/INetUtils.h"

#include <sys/stat.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <new>
#include <optional>
#include <utility>

namespace tessaro_com::pkm::voInet {

namespace {

static_assert(sizeof(off_t) == 8, "compile with _FILE_OFFSET_BITS=64");

/// Bytes per step of a copy; the sink is notified after each.
constexpr std::size_t kStepSize = 512;

/// Bytes that one read and one write of a regular file move, a whole number of steps.
constexpr std::size_t kBlockSize = 49152;
static_assert(kBlockSize % kStepSize == 0);

/// Bytes compared at the end of a partial file.
constexpr off_t kComparedTail = 1024;

constexpr wchar_t kLocalSite[] = L"127.0.0.1";

using FileStatus = std::optional<struct stat>;

FileStatus statusOf(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? FileStatus(status) : std::nullopt;
}

FileStatus statusOf(std::FILE* stream) {
    struct stat status;
    return fstat(fileno(stream), &status) == 0 ? FileStatus(status) : std::nullopt;
}

/// Opens a file for a copy, which moves blocks of its own: a buffer would only hold bytes back.
Stream openUnbuffered(const std::string& path, const char* mode) {
    Stream stream(std::fopen(path.c_str(), mode));
    if (stream != nullptr) {
        std::setvbuf(stream.get(), nullptr, _IONBF, 0);
    }
    return stream;
}

/// The two files of a copy.
struct CopyStreams {
    /// The target is opened first, so it is there, and empty, also when the source is missing.
    voInetError open(const std::string& targetPath, const std::string& sourcePath) {
        target = openUnbuffered(targetPath, "w");
        source = openUnbuffered(sourcePath, "r");
        if (source == nullptr) {
            return voInetErrorFileNotFound;
        }
        return target == nullptr ? voInetErrorLocalFileOpen : voInetErrorSuccess;
    }

    /// False for what has no positions, such as a FIFO.
    bool rewind() const {
        return fseeko(target.get(), 0, SEEK_SET) == 0 && fseeko(source.get(), 0, SEEK_SET) == 0;
    }

    bool sourceHasMore() const {
        return std::feof(source.get()) == 0 && std::ferror(source.get()) == 0;
    }

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

/// One block on its way from the source to the target. What the sink has been told of reaches the
/// target on every path, also when the sink throws.
class CopyBlock {
  public:
    /// The streams must outlive the block.
    CopyBlock(const CopyStreams& streams, std::size_t size)
        : m_streams(streams), m_size(size), m_bytes(new (std::nothrow) char[size]) {}
    ~CopyBlock() { write(); }

    CopyBlock(const CopyBlock&) = delete;
    CopyBlock& operator=(const CopyBlock&) = delete;

    bool hasMemory() const { return m_bytes != nullptr; }

    /// Reads the next block and reports its steps until the sink has enough. False when the target
    /// cannot be written.
    bool move(CopyProgress& progress) {
        const std::size_t count = std::fread(m_bytes.get(), 1, m_size, m_streams.source.get());
        const std::size_t lastStep = startOfLastStep(count);
        while (m_unwritten < lastStep && progress.goOn()) {
            take(kStepSize, progress);
            progress.notify(sinkDownloading);
        }
        if (!progress.goOn()) {
            // A copy that was stopped is a success, whatever becomes of its last bytes.
            write();
            return true;
        }
        // The last step is reported when all of them are written, so that a full disk shows before
        // the result.
        take(count - lastStep, progress);
        if (!write()) {
            return false;
        }
        progress.notify(sinkDownloading);
        return true;
    }

  private:
    /// The end of the source is met by a step of its own, which may be empty.
    std::size_t startOfLastStep(std::size_t count) const {
        return m_streams.sourceHasMore() ? count - kStepSize : count - count % kStepSize;
    }

    void take(std::size_t bytes, CopyProgress& progress) {
        m_unwritten += bytes;
        progress.add(bytes);
    }

    bool write() {
        const std::size_t count = std::exchange(m_unwritten, 0);
        // Nothing is left to write, and there may be no stream to write to, once it is closed.
        return count == 0 || std::fwrite(m_bytes.get(), 1, count, m_streams.target.get()) == count;
    }

    const CopyStreams& m_streams;
    const std::size_t m_size;
    const std::unique_ptr<char[]> m_bytes;
    std::size_t m_unwritten = 0;
};

/// Reads up to `size` bytes at `position`; what cannot be read stays as it is.
void readAt(std::FILE* stream, off_t position, char* buffer, std::size_t size) {
    if (fseeko(stream, position, SEEK_SET) == 0) {
        [[maybe_unused]] const std::size_t count = std::fread(buffer, 1, size, stream);
    }
}

voInetError writeFailed(CopyProgress& progress) {
    progress.notify(sinkWriteFailed);
    return voInetErrorWriteFailed;
}

voInetError copyAll(CopyStreams& streams, CopyProgress& progress) {
    if (!streams.rewind()) {
        return voInetErrorFailed;
    }
    const FileStatus source = statusOf(streams.source.get());
    // What another kind of file has to give is passed on at each step.
    CopyBlock block(streams, source && S_ISREG(source->st_mode) ? kBlockSize : kStepSize);
    if (!block.hasMemory()) {
        return voInetErrorOutOfMemory;
    }
    progress.setTotal(source ? source->st_size : 0);
    progress.notify(sinkCopyStarting);
    while (streams.sourceHasMore() && progress.goOn()) {
        if (!block.move(progress)) {
            return writeFailed(progress);
        }
    }
    if (!closeWritten(std::move(streams.target)) && progress.goOn()) {
        return writeFailed(progress);
    }
    // A read error of the source ends a copy like its end does; intended.
    progress.notify(progress.goOn() ? sinkCopyFinished : sinkStopped);
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
        // A copy is never resumed, on purpose; isResumable is there for the host.
        resume = false;
        // Opening the target empties it.
        if (isSameRegularFile(target, source)) {
            return voInetErrorInvalidArgument;
        }
        CopyStreams streams;
        const voInetError opened = streams.open(target, source);
        if (opened != voInetErrorSuccess) {
            return opened;
        }
        CopyProgress progress(sink, m_strSite, remoteFile);
        return copyAll(streams, progress);
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
    const FileStatus status = statusOf(path);
    if (status) {
        size = saturate<unsigned long>(status->st_size);
    }
    return status.has_value();
}

bool isResumable(const std::string& target, const std::string& source, unsigned long& offset) {
    const FileStatus targetStatus = statusOf(target);
    const FileStatus sourceStatus = statusOf(source);
    if (!targetStatus || !sourceStatus) {
        return false;
    }
    const off_t size = targetStatus->st_size;
    if (size > sourceStatus->st_size || size < kComparedTail) {
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
    readAt(first.get(), size - kComparedTail, firstTail.data(), firstTail.size());
    readAt(second.get(), size - kComparedTail, secondTail.data(), secondTail.size());
    if (firstTail != secondTail) {
        return false;
    }
    offset = saturate<unsigned long>(size);
    return true;
}

}  // namespace tessaro_com::pkm::voInet
