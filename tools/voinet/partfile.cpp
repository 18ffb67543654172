#include "partfile.h"

#include "commanderror.h"
#include "digest.h"
#include "texts.h"
#include "uniquefd.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>

namespace voinet_command {

namespace {

// The library compares this many bytes at the resume offset.
constexpr std::uint64_t kComparedBytes = 1024;
constexpr mode_t kPermissionBits = 0777;
constexpr mode_t kNewFileMode = 0666;

CommandError localError(const std::string& sentence, const std::string& hint = {}) {
    return {ExitStatus::localFile, sentence, hint};
}

CommandError systemError(const std::string& what, const std::string& path) {
    return localError(fmt::format("cannot {} {}: {}", what, path, std::strerror(errno)));
}

/// Checked before the lock is taken, since the lock's name derives from it.
const std::string& usableName(const std::string& local, const std::string& argument) {
    if (local.empty() || !isUtf8(local)) {
        throw CommandError(ExitStatus::usage,
                           argument + ": the file name is empty or no text in UTF-8",
                           "the library would write to a file of another name");
    }
    if (local.back() == '/') {
        throw localError(fmt::format("{} names a folder", local), "add a file name");
    }
    return local;
}

std::string folderOf(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

UniqueFd openForReading(const std::string& path, int flags = 0) {
    UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | flags));
    if (!file) {
        throw systemError("open", path);
    }
    return file;
}

void removeFile(const std::string& path) {
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
        throw systemError("remove", path);
    }
}

mode_t currentUmask() {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return mask;
}

/// The mode for the new LOCAL: that of the old one, or the usual one for a new file.
mode_t modeFor(const std::string& local) {
    struct stat info {};
    return ::stat(local.c_str(), &info) == 0 ? info.st_mode & kPermissionBits
                                             : kNewFileMode & ~currentUmask();
}

/// A folder that cannot be synchronised, as on some network file systems, is no failure: the new
/// file is in place all the same.
void syncFolder(const std::string& folder) {
    const UniqueFd directory(::open(folder.c_str(), O_RDONLY | O_CLOEXEC | O_DIRECTORY | O_NOCTTY));
    if (directory) {
        static_cast<void>(::fsync(directory.Get()));
    }
}

}  // namespace

bool PartFile::Stamp::operator==(const Stamp& other) const {
    return device == other.device && inode == other.inode && size == other.size &&
           changed.tv_sec == other.changed.tv_sec && changed.tv_nsec == other.changed.tv_nsec;
}

PartFile::PartFile(const std::string& local, bool resume, const std::string& argument)
    : m_local(usableName(local, argument)),
      m_part(local + kPartSuffix),
      m_lock((RejectUnusableLocal(), local + kLockSuffix), local) {
    TakeOverOldPart(resume);
}

void PartFile::RejectUnusableLocal() const {
    struct stat info {};
    if (::stat(folderOf(m_local).c_str(), &info) != 0) {
        throw localError(
            fmt::format("the folder of {} cannot be used: {}", m_local, std::strerror(errno)),
            "make the folder first");
    }
    if (::stat(m_local.c_str(), &info) != 0) {
        return;
    }
    if (S_ISDIR(info.st_mode)) {
        throw localError(fmt::format("{} is a folder", m_local), "add a file name");
    }
    if (!S_ISREG(info.st_mode)) {
        // A rename would do away with a device such as /dev/null.
        throw localError(fmt::format("{} is no regular file", m_local));
    }
}

void PartFile::TakeOverOldPart(bool resume) {
    struct stat info {};
    if (::lstat(m_part.c_str(), &info) != 0) {
        return;
    }
    if (!S_ISREG(info.st_mode)) {
        throw localError(fmt::format("{} is in the way: it is no regular file", m_part),
                         "remove it, or choose another local file");
    }
    if (!resume) {
        removeFile(m_part);
    }
    m_before = Look();
}

std::optional<PartFile::Stamp> PartFile::Look() const {
    struct stat info {};
    if (::lstat(m_part.c_str(), &info) != 0) {
        if (errno != ENOENT && errno != ENOTDIR) {
            throw systemError("read", m_part);
        }
        return std::nullopt;
    }
    if (!S_ISREG(info.st_mode)) {
        return std::nullopt;
    }
    return Stamp{info.st_dev, info.st_ino, static_cast<std::uint64_t>(info.st_size), info.st_ctim};
}

long PartFile::ResumeOffset() const {
    const std::uint64_t size = m_before ? m_before->size : 0;
    if (size < kComparedBytes) {
        return 0;
    }
    const std::uint64_t offset = size - kComparedBytes;
    const auto limit = static_cast<std::uint64_t>(std::numeric_limits<long>::max());
    return offset > limit ? 0 : static_cast<long>(offset);
}

bool PartFile::Arrived() const {
    const auto now = Look();
    return now && !(m_before && *m_before == *now);
}

std::uint64_t PartFile::Size() const {
    const auto now = Look();
    return now ? now->size : 0;
}

std::string PartFile::Head(std::size_t limit) const {
    const UniqueFd file = openForReading(m_part);
    std::string bytes(limit, '\0');
    std::size_t size = 0;
    while (size < limit) {
        const ssize_t count = ::read(file.Get(), bytes.data() + size, limit - size);
        if (count < 0) {
            throw systemError("read", m_part);
        }
        if (count == 0) {
            break;
        }
        size += static_cast<std::size_t>(count);
    }
    bytes.resize(size);
    return bytes;
}

std::string PartFile::Digest() const {
    const UniqueFd file = openForReading(m_part);
    return sha256OfFile(file.Get(), m_part);
}

void PartFile::Commit() {
    RejectUnusableLocal();
    const UniqueFd file = openForReading(m_part);
    if (::fchmod(file.Get(), modeFor(m_local)) != 0) {
        throw systemError("set the mode of", m_part);
    }
    if (::fsync(file.Get()) != 0) {
        throw systemError("bring to storage", m_part);
    }
    if (std::rename(m_part.c_str(), m_local.c_str()) != 0) {
        throw systemError("replace", m_local);
    }
    syncFolder(folderOf(m_local));
}

void PartFile::Discard() {
    removeFile(m_part);
}

void PartFile::DiscardIfNew() {
    if (!m_before) {
        Discard();
    }
}

void PartFile::Abandon() noexcept {
    ::unlink(m_part.c_str());
    m_lock.Remove();
}

void PartFile::DiscardIfEmpty() {
    if (Size() == 0) {
        Discard();
    }
}

}  // namespace voinet_command
