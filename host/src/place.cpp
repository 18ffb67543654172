#include "place.h"

#include "kernelwalk.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <climits>
#include <cstddef>
#include <optional>
#include <utility>

namespace kvecomn {

namespace {

// The kernel's own limit.
constexpr int kMostLinks = 40;

constexpr mode_t kSharedDirectoryBits = S_ISVTX | S_IWOTH;
constexpr mode_t kSharedFileMode = 0600;
constexpr mode_t kOrdinaryFileMode = 0666;

bool isSharedDirectory(const struct stat& status) {
    return (status.st_mode & kSharedDirectoryBits) == kSharedDirectoryBits;
}

/// A FIFO or a line without its other end must not hold up the caller.
constexpr int kOpenFlags = O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

Descriptor tryDirectory(int base, const char* name, int flags) {
    return Descriptor(
        uninterrupted([&] { return openat(base, name, O_DIRECTORY | O_CLOEXEC | flags); }));
}

Descriptor openDirectory(int base, const std::string& name, int flags) {
    Descriptor directory = tryDirectory(base, name.c_str(), O_PATH | flags);
    if (!directory.isOpen()) {
        throw FileError(errno);
    }
    return directory;
}

/// Follows a path: by the kernel up to its last part where no symbolic link is on the way, part by
/// part otherwise.
class PathWalk {
  public:
    PathWalk(const std::string& path, DirectoryUse use) : m_rest(path), m_use(use) {
        if (path.empty()) {
            throw FileError(ENOENT);
        }
        // The kernel would see the path up to the zero only: another file.
        if (path.find('\0') != std::string::npos) {
            throw FileError(EINVAL);
        }
        startOver();
    }

    Place run() {
        while (true) {
            takePart();
            const bool isLast = m_rest.empty();
            const std::optional<struct stat> status = lookAtPart();
            if (status && S_ISLNK(status->st_mode) && !isOnProc()) {
                m_isBehindLink = m_isBehindLink || isLast;
                followLink(*status);
            } else if (isLast) {
                return place(status);
            } else {
                enterPart(status);
            }
        }
    }

  private:
    /// Begins with the rest of the path.
    void startOver() {
        if (!leap()) {
            startAtFirstPart();
        }
        m_directoryStatus = statusOf(m_directory);
    }

    /// Goes to the last part in one step. Whatever is in the way of that, the walk finds out.
    bool leap() {
        const std::size_t last = m_rest.rfind('/');
        std::string directory = ".";
        if (last != std::string::npos) {
            directory = m_rest.substr(0, last == 0 ? 1 : last);
        }
        const bool reads = m_use == DirectoryUse::reading;
        Descriptor opened = openWithoutLinks(directory, O_DIRECTORY | (reads ? O_RDONLY : O_PATH));
        if (!opened.isOpen()) {
            return false;
        }
        m_directory = std::move(opened);
        m_isReadable = reads;
        m_rest.erase(0, last == std::string::npos ? 0 : last);
        return true;
    }

    /// At the root or the working directory, as the rest of the path demands.
    void startAtFirstPart() {
        const bool isAbsolute = !m_rest.empty() && m_rest.front() == '/';
        m_directory = openDirectory(AT_FDCWD, isAbsolute ? "/" : ".", 0);
        m_isReadable = false;
    }

    /// Cuts the next part off the rest. What ends in "/" is a directory and becomes "." in it.
    void takePart() {
        const std::size_t begin = m_rest.find_first_not_of('/');
        if (begin == std::string::npos) {
            m_part = ".";
            m_rest.clear();
            return;
        }
        const std::size_t end = m_rest.find('/', begin);
        m_part.assign(m_rest, begin, end == std::string::npos ? end : end - begin);
        m_rest.erase(0, end);
    }

    /// The status of the part; nothing when it does not exist.
    std::optional<struct stat> lookAtPart() const {
        struct stat status {};
        const int result = uninterrupted([&] {
            return fstatat(m_directory.get(), m_part.c_str(), &status, AT_SYMLINK_NOFOLLOW);
        });
        if (result == 0) {
            return status;
        }
        if (errno != ENOENT) {
            throw FileError(errno);
        }
        return std::nullopt;
    }

    bool isOnProc() const {
        struct statfs status {};
        const int result = uninterrupted([&] { return fstatfs(m_directory.get(), &status); });
        if (result == -1) {
            throw FileError(errno);
        }
        return status.f_type == PROC_SUPER_MAGIC;
    }

    void followLink(const struct stat& status) {
        if (isSharedDirectory(m_directoryStatus) && status.st_uid != geteuid()) {
            throw FileError("a symbolic link of another user is on the way");
        }
        if (++m_followedLinks > kMostLinks) {
            throw FileError(ELOOP);
        }
        m_rest = readLink(m_directory, m_part) + m_rest;
        if (m_rest.empty()) {
            throw FileError(ENOENT);
        }
        if (m_rest.front() == '/') {
            startOver();
        }
    }

    void enterPart(const std::optional<struct stat>& status) {
        // What was no link a moment ago must not be one now.
        const bool isLink = status && S_ISLNK(status->st_mode);
        m_directory = openDirectory(m_directory.get(), m_part, isLink ? 0 : O_NOFOLLOW);
        m_directoryStatus = statusOf(m_directory);
        m_isReadable = false;
    }

    /// What cannot be read stays as it is; only its names are needed then.
    void tryToRead() {
        Descriptor readable = tryDirectory(m_directory.get(), ".", O_RDONLY);
        if (readable.isOpen()) {
            m_directory = std::move(readable);
            m_isReadable = true;
        }
    }

    Place place(const std::optional<struct stat>& status) {
        if (m_use == DirectoryUse::reading && !m_isReadable) {
            tryToRead();
        }
        Place result;
        result.directory = std::move(m_directory);
        result.isDirectoryReadable = m_isReadable;
        result.directoryStatus = m_directoryStatus;
        result.name = std::move(m_part);
        result.exists = status.has_value();
        result.status = status.value_or(result.status);
        result.isBehindLink = m_isBehindLink;
        return result;
    }

    std::string m_rest;
    std::string m_part;
    DirectoryUse m_use;
    Descriptor m_directory;
    bool m_isReadable = false;
    struct stat m_directoryStatus {};
    int m_followedLinks = 0;
    bool m_isBehindLink = false;
};

/// Whether the rules of shared directories forbid nothing about a file.
bool isOwnFile(const struct stat& status) {
    return S_ISREG(status.st_mode) && status.st_uid == geteuid() && status.st_nlink == 1;
}

OpenFile openAtPlace(const Place& place, int access) {
    const int follow = place.isOpenFileLink() ? 0 : O_NOFOLLOW;
    OpenFile file;
    file.descriptor = Descriptor(uninterrupted([&] {
        return openat(place.directory.get(), place.name.c_str(), access | follow | kOpenFlags);
    }));
    if (!file.descriptor.isOpen()) {
        throw FileError(errno);
    }
    file.status = statusOf(file.descriptor);
    return file;
}

}  // namespace

bool Place::isShared() const {
    return isSharedDirectory(directoryStatus);
}

bool Place::isOpenFileLink() const {
    return exists && S_ISLNK(status.st_mode);
}

std::string readLink(const Descriptor& directory, const std::string& name) {
    char text[PATH_MAX];
    const ssize_t length =
        uninterrupted([&] { return readlinkat(directory.get(), name.c_str(), text, sizeof text); });
    if (length == -1) {
        throw FileError(errno);
    }
    if (static_cast<std::size_t>(length) == sizeof text) {
        throw FileError(ENAMETOOLONG);
    }
    return std::string(text, static_cast<std::size_t>(length));
}

Place lookUp(const std::string& path, DirectoryUse use) {
    return PathWalk(path, use).run();
}

OpenFile openDirectly(const std::string& path, int access) {
    OpenFile file;
    // The kernel would see the path up to the zero only: another file.
    if (path.find('\0') != std::string::npos) {
        errno = EINVAL;
        return file;
    }
    file.descriptor = openWithoutLinks(path, access | kOpenFlags);
    if (file.descriptor.isOpen()) {
        file.status = statusOf(file.descriptor);
    }
    return file;
}

bool mayUseAnywhere(const OpenFile& file, int access) {
    return file.descriptor.isOpen() &&
           (access == O_RDONLY ? S_ISREG(file.status.st_mode) : isOwnFile(file.status));
}

OpenFile openExisting(const Place& place, int access, OpenFile candidate) {
    const bool isThere =
        candidate.descriptor.isOpen() && place.exists && isSameFile(candidate.status, place.status);
    OpenFile file = isThere ? std::move(candidate) : openAtPlace(place, access);
    if (S_ISDIR(file.status.st_mode)) {
        throw FileError(EISDIR);
    }
    if (place.isShared() && access != O_RDONLY) {
        requireOwnFile(file.status);
    }
    if (place.isShared() && !S_ISREG(file.status.st_mode)) {
        throw FileError("it is not a regular file");
    }
    allowWaiting(file, access);
    return file;
}

void allowWaiting(const OpenFile& file, int access) {
    // Regular files do not wait, but for some of the proc file system, which are empty by their
    // size.
    if (S_ISREG(file.status.st_mode) && (access != O_RDONLY || file.status.st_size > 0)) {
        return;
    }
    const int number = file.descriptor.get();
    const int flags = uninterrupted([&] { return fcntl(number, F_GETFL); });
    if (flags == -1 ||
        uninterrupted([&] { return fcntl(number, F_SETFL, flags & ~O_NONBLOCK); }) == -1) {
        throw FileError(errno);
    }
}

Descriptor makeNew(const Place& place, const std::string& name, int access, mode_t mode) {
    Descriptor file(uninterrupted([&] {
        return openat(place.directory.get(), name.c_str(),
                      access | O_CREAT | O_EXCL | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC, mode);
    }));
    if (!file.isOpen()) {
        throw FileError(errno);
    }
    return file;
}

mode_t newFileMode(const Place& place) {
    return place.isShared() ? kSharedFileMode : kOrdinaryFileMode;
}

void requireOwnFile(const struct stat& status) {
    if (!S_ISREG(status.st_mode)) {
        throw FileError("it is not a regular file");
    }
    if (status.st_uid != geteuid()) {
        throw FileError("it belongs to another user");
    }
    if (status.st_nlink > 1) {
        throw FileError("it has a second name in a directory that everybody may write to");
    }
}

bool isSameFile(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

struct stat statusOf(const Descriptor& file) {
    struct stat status {};
    if (uninterrupted([&] { return fstat(file.get(), &status); }) == -1) {
        throw FileError(errno);
    }
    return status;
}

}  // namespace kvecomn
