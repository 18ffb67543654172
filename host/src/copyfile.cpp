#include "brokenpipeguard.h"
#include "copydata.h"
#include "descriptor.h"
#include "filelog.h"
#include "kvecomn/telfile.h"
#include "place.h"
#include "siblingfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <utility>

using kvecomn::Descriptor;
using kvecomn::DirectoryUse;
using kvecomn::FileError;
using kvecomn::OpenFile;
using kvecomn::Place;
using kvecomn::SiblingFile;
using kvecomn::uninterrupted;

namespace {

constexpr char kTemporaryDirectory[] = "/tmp";
constexpr mode_t kModeBits = 07777;
constexpr mode_t kSetIdBits = S_ISUID | S_ISGID;
/// For a sibling whose final mode is set later.
constexpr mode_t kPrivateMode = 0600;

/// How often a sibling is made that other processes take for left.
constexpr int kMostAttempts = 16;

/// Opens the file to copy.
OpenFile openFound(const std::string& path) {
    OpenFile file = kvecomn::openDirectly(path, O_RDONLY);
    if (kvecomn::mayUseAnywhere(file, O_RDONLY)) {
        kvecomn::allowWaiting(file, O_RDONLY);
        return file;
    }
    return kvecomn::openExisting(kvecomn::lookUp(path), O_RDONLY, std::move(file));
}

/// The same; a closed descriptor when the file does not exist.
OpenFile openSource(const std::string& path) {
    try {
        OpenFile source = openFound(path);
        // Others have no end of their own, or wait for somebody.
        if (!S_ISREG(source.status.st_mode)) {
            throw FileError("the source is not a regular file");
        }
        return source;
    } catch (const FileError& error) {
        if (error.code() == ENOENT) {
            return OpenFile();
        }
        throw;
    }
}

/// Follows a link to an open file ("/dev/stdout") to the place of that file, so that it too is
/// replaced in one step. Terminals and pipes have no place and stay behind their link.
Place lookUpTarget(const std::string& path) {
    Place place = kvecomn::lookUp(path, DirectoryUse::reading);
    struct stat status {};
    if (!place.isOpenFileLink() ||
        fstatat(place.directory.get(), place.name.c_str(), &status, 0) == -1 ||
        !S_ISREG(status.st_mode)) {
        return place;
    }
    Place target =
        kvecomn::lookUp(kvecomn::readLink(place.directory, place.name), DirectoryUse::reading);
    if (!target.exists || !kvecomn::isSameFile(target.status, status)) {
        throw FileError("the open file has no name any more");
    }
    target.isBehindLink = true;
    return target;
}

/// Writes into a terminal, a device or a FIFO, which cannot be replaced.
void writeStraight(const OpenFile& source, const Place& place) {
    OpenFile target = kvecomn::openExisting(place, O_WRONLY);
    const kvecomn::BrokenPipeGuard guard;
    kvecomn::copyData(source, target);
    if (S_ISBLK(target.status.st_mode) &&
        uninterrupted([&] { return fsync(target.descriptor.get()); }) == -1) {
        throw FileError(errno, "flush");
    }
    if (const int error = target.descriptor.close(); error != 0) {
        throw FileError(error, "close");
    }
}

/// Gives the owner and the group as far as this process may. Returns whether both are right.
bool takeOverOwner(const OpenFile& file, const struct stat& old) {
    const struct stat& own = file.status;
    const int number = file.descriptor.get();
    if (own.st_uid == old.st_uid && own.st_gid == old.st_gid) {
        return true;
    }
    if (uninterrupted([&] { return fchown(number, old.st_uid, old.st_gid); }) == 0) {
        return true;
    }
    constexpr auto kSameOwner = static_cast<uid_t>(-1);
    return uninterrupted([&] { return fchown(number, kSameOwner, old.st_gid); }) == 0 &&
           own.st_uid == old.st_uid;
}

/// Makes a complete file look like the one it replaces. Not earlier: writing takes set-id bits off.
void takeOver(const OpenFile& file, const struct stat& old) {
    mode_t mode = old.st_mode & kModeBits;
    if (!takeOverOwner(file, old)) {
        // They would lend the rights of another user or group than they were given for.
        mode &= ~kSetIdBits;
    }
    // Not every file system can change modes; those show the same mode for all files.
    if ((file.status.st_mode & kModeBits) != mode &&
        uninterrupted([&] { return fchmod(file.descriptor.get(), mode); }) == -1) {
        throw FileError(errno, "mode");
    }
}

/// Whether an error of fsync says that the file system has nothing to flush.
bool hasNoFlush(int error) {
    return error == EINVAL || error == ENOSYS || error == EOPNOTSUPP;
}

void flushContents(const Descriptor& file) {
    if (uninterrupted([&] { return fdatasync(file.get()); }) == -1 && !hasNoFlush(errno)) {
        throw FileError(errno, "flush");
    }
}

/// What brings a new name in the place's directory to storage when it is flushed: the directory,
/// or a file for the whole file system where the directory is open for changes and closed for
/// reading. The second is opened here.
class NameStorage {
  public:
    NameStorage(const Place& place, const OpenFile& file) {
        if (place.isDirectoryReadable) {
            m_directory = place.directory.get();
            return;
        }
        m_file = Descriptor(
            uninterrupted([&] { return fcntl(file.descriptor.get(), F_DUPFD_CLOEXEC, 0); }));
        if (!m_file.isOpen()) {
            throw FileError(errno, "flush");
        }
    }

    /// Returns 0 or an errno value.
    int flush() const {
        const int result = uninterrupted(
            [&] { return m_file.isOpen() ? syncfs(m_file.get()) : fsync(m_directory); });
        return result == -1 && !hasNoFlush(errno) ? errno : 0;
    }

  private:
    int m_directory = -1;
    Descriptor m_file;
};

/// Whether the file is to be in the temporary directory. One that is called by another path is
/// brought to storage in vain, which does no harm.
bool isTemporary(const std::string& path, const Place& place) {
    const std::size_t last = path.rfind('/');
    return !place.isBehindLink && last != std::string::npos &&
           path.compare(0, last, kTemporaryDirectory) == 0;
}

/// Replaces or makes a regular file. Returns 0, or the errno value of a directory that could not be
/// flushed after the replacement; nothing when another process has taken the new file for left.
std::optional<int> tryToReplaceFile(const OpenFile& source, const Place& place, bool isDurable) {
    SiblingFile sibling(place, place.exists ? kPrivateMode : kvecomn::newFileMode(place));
    kvecomn::copyData(source, sibling.file());
    if (place.exists) {
        takeOver(sibling.file(), place.status);
    }
    if (!isDurable) {
        return sibling.replace() ? std::optional<int>(0) : std::nullopt;
    }
    flushContents(sibling.file().descriptor);
    const NameStorage storage(place, sibling.file());
    return sibling.replace() ? std::optional<int>(storage.flush()) : std::nullopt;
}

/// The same, until it is done.
int replaceFile(const OpenFile& source, const Place& place, bool isDurable) {
    if (place.exists && place.isShared()) {
        kvecomn::requireOwnFile(place.status);
    }
    kvecomn::removeLeftSiblings(place);
    for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
        if (const auto result = tryToReplaceFile(source, place, isDurable)) {
            return *result;
        }
        if (lseek(source.descriptor.get(), 0, SEEK_SET) == -1) {
            throw FileError(errno, "seek");
        }
    }
    throw FileError(ENOENT, "rename");
}

bool copyFile(const std::string& from, const std::string& to) {
    const OpenFile source = openSource(from);
    if (!source.descriptor.isOpen()) {
        return false;
    }
    const Place place = lookUpTarget(to);
    if (place.exists && !S_ISREG(place.status.st_mode)) {
        writeStraight(source, place);
        return true;
    }
    // Nobody looks for temporary files after a loss of power.
    const bool isDurable = !isTemporary(to, place);
    if (const int error = replaceFile(source, place, isDurable); error != 0) {
        // The old file is gone and the new one stands: the answer has to be true.
        kvecomn::logUnsafeCopy(from, to, std::strerror(error));
    }
    return true;
}

}  // namespace

bool telCopyFile(const std::string& from, const std::string& to) {
    try {
        return copyFile(from, to);
    } catch (const std::exception& error) {
        kvecomn::logCopyError(from, to, error.what());
        return false;
    }
}
