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

#include <exception>
#include <string>

using kvecomn::Descriptor;
using kvecomn::FileError;
using kvecomn::Place;
using kvecomn::SiblingFile;
using kvecomn::statusOf;
using kvecomn::uninterrupted;

namespace {

constexpr char kTemporaryDirectory[] = "/tmp";
constexpr mode_t kModeBits = 07777;
constexpr mode_t kSetIdBits = S_ISUID | S_ISGID;
/// For a sibling whose final mode is set later.
constexpr mode_t kPrivateMode = 0600;

bool isSameFile(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// Opens the file to copy; a closed descriptor when it does not exist.
Descriptor openSource(const std::string& path) {
    try {
        Descriptor source = kvecomn::openExisting(kvecomn::lookUp(path), O_RDONLY);
        // Others have no end of their own, or wait for somebody.
        if (!S_ISREG(statusOf(source).st_mode)) {
            throw FileError("the source is not a regular file");
        }
        return source;
    } catch (const FileError& error) {
        if (error.code() == ENOENT) {
            return Descriptor();
        }
        throw;
    }
}

/// Follows a link to an open file ("/dev/stdout") to the place of that file, so that it too is
/// replaced in one step. Terminals and pipes have no place and stay behind their link.
Place lookUpTarget(const std::string& path) {
    Place place = kvecomn::lookUp(path);
    struct stat status {};
    if (!place.isOpenFileLink() ||
        fstatat(place.directory.get(), place.name.c_str(), &status, 0) == -1 ||
        !S_ISREG(status.st_mode)) {
        return place;
    }
    Place target = kvecomn::lookUp(kvecomn::readLink(place.directory, place.name));
    if (!target.exists || !isSameFile(target.status, status)) {
        throw FileError("the open file has no name any more");
    }
    return target;
}

/// Writes into a terminal, a device or a FIFO, which cannot be replaced.
void writeStraight(const Descriptor& source, const Place& place) {
    Descriptor target = kvecomn::openExisting(place, O_WRONLY);
    const kvecomn::BrokenPipeGuard guard;
    kvecomn::copyData(source, target);
    if (S_ISBLK(statusOf(target).st_mode) &&
        uninterrupted([&] { return fsync(target.get()); }) == -1) {
        throw FileError(errno, "flush");
    }
    if (const int error = target.close(); error != 0) {
        throw FileError(error, "close");
    }
}

/// Gives the owner and the group as far as this process may. Returns whether both are right.
bool takeOverOwner(const Descriptor& file, const struct stat& old) {
    const struct stat own = statusOf(file);
    if (own.st_uid == old.st_uid && own.st_gid == old.st_gid) {
        return true;
    }
    if (uninterrupted([&] { return fchown(file.get(), old.st_uid, old.st_gid); }) == 0) {
        return true;
    }
    constexpr auto kSameOwner = static_cast<uid_t>(-1);
    return uninterrupted([&] { return fchown(file.get(), kSameOwner, old.st_gid); }) == 0 &&
           own.st_uid == old.st_uid;
}

/// Makes a complete file look like the one it replaces. Not earlier: writing takes set-id bits off.
void takeOver(const Descriptor& file, const struct stat& old) {
    mode_t mode = old.st_mode & kModeBits;
    if (!takeOverOwner(file, old)) {
        // They would lend the rights of another user or group than they were given for.
        mode &= ~kSetIdBits;
    }
    // Not every file system can change modes; those show the same mode for all files.
    if ((statusOf(file).st_mode & kModeBits) != mode &&
        uninterrupted([&] { return fchmod(file.get(), mode); }) == -1) {
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

/// Brings the new name to storage. Returns 0 or an errno value.
int flushDirectory(const Place& place, const Descriptor& file) {
    const Descriptor directory(uninterrupted(
        [&] { return openat(place.directory.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    // A directory may be open for changes and closed for reading: the whole file system then.
    const int result = directory.isOpen() ? uninterrupted([&] { return fsync(directory.get()); })
                                          : uninterrupted([&] { return syncfs(file.get()); });
    return result == -1 && !hasNoFlush(errno) ? errno : 0;
}

bool isTemporary(const Place& place) {
    struct stat status {};
    return stat(kTemporaryDirectory, &status) == 0 && isSameFile(status, place.directoryStatus);
}

/// Replaces or makes a regular file. Returns 0, or the errno value of a directory that could not be
/// flushed after the replacement.
int replaceFile(const Descriptor& source, const Place& place) {
    if (place.exists && place.isShared()) {
        kvecomn::requireOwnFile(place.status);
    }
    kvecomn::removeLeftSiblings(place);
    SiblingFile sibling(place, place.exists ? kPrivateMode : kvecomn::newFileMode(place));
    kvecomn::copyData(source, sibling.file());
    if (place.exists) {
        takeOver(sibling.file(), place.status);
    }
    // Nobody looks for temporary files after a loss of power.
    const bool isDurable = !isTemporary(place);
    if (isDurable) {
        flushContents(sibling.file());
    }
    sibling.replace();
    return isDurable ? flushDirectory(place, sibling.file()) : 0;
}

bool copyFile(const std::string& from, const std::string& to) {
    const Descriptor source = openSource(from);
    if (!source.isOpen()) {
        return false;
    }
    const Place place = lookUpTarget(to);
    if (place.exists && !S_ISREG(place.status.st_mode)) {
        writeStraight(source, place);
    } else if (const int error = replaceFile(source, place); error != 0) {
        // The old file is gone and the new one stands: the answer has to be true.
        kvecomn::logUnsafeCopy(from, to, FileError(error, "flush").what());
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
