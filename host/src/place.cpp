#include "place.h"

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

Descriptor openDirectory(int base, const std::string& name, int flags) {
    Descriptor directory(uninterrupted(
        [&] { return openat(base, name.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC | flags); }));
    if (!directory.isOpen()) {
        throw FileError(errno);
    }
    return directory;
}

/// Follows a path part by part.
class PathWalk {
  public:
    explicit PathWalk(const std::string& path) : m_rest(path) {
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
    /// Begins at the root or the working directory, as the rest of the path demands.
    void startOver() {
        const bool isAbsolute = !m_rest.empty() && m_rest.front() == '/';
        m_directory = openDirectory(AT_FDCWD, isAbsolute ? "/" : ".", 0);
        m_directoryStatus = statusOf(m_directory);
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
        m_part = m_rest.substr(begin, end == std::string::npos ? end : end - begin);
        m_rest = end == std::string::npos ? "" : m_rest.substr(end);
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
    }

    Place place(const std::optional<struct stat>& status) {
        Place result;
        result.directory = std::move(m_directory);
        result.directoryStatus = m_directoryStatus;
        result.name = std::move(m_part);
        result.exists = status.has_value();
        result.status = status.value_or(result.status);
        result.isBehindLink = m_isBehindLink;
        return result;
    }

    std::string m_rest;
    std::string m_part;
    Descriptor m_directory;
    struct stat m_directoryStatus {};
    int m_followedLinks = 0;
    bool m_isBehindLink = false;
};

/// Reading and writing may wait again, as programs expect of a terminal or a FIFO.
void allowWaiting(const Descriptor& file) {
    const int flags = uninterrupted([&] { return fcntl(file.get(), F_GETFL); });
    if (flags == -1 ||
        uninterrupted([&] { return fcntl(file.get(), F_SETFL, flags & ~O_NONBLOCK); }) == -1) {
        throw FileError(errno);
    }
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

Place lookUp(const std::string& path) {
    return PathWalk(path).run();
}

Descriptor openExisting(const Place& place, int access) {
    // A FIFO or a line without its other end must not hold up the caller.
    constexpr int kAlways = O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    const int follow = place.isOpenFileLink() ? 0 : O_NOFOLLOW;
    Descriptor file(uninterrupted([&] {
        return openat(place.directory.get(), place.name.c_str(), access | follow | kAlways);
    }));
    if (!file.isOpen()) {
        throw FileError(errno);
    }
    const struct stat status = statusOf(file);
    if (S_ISDIR(status.st_mode)) {
        throw FileError(EISDIR);
    }
    if (place.isShared() && access != O_RDONLY) {
        requireOwnFile(status);
    }
    if (place.isShared() && !S_ISREG(status.st_mode)) {
        throw FileError("it is not a regular file");
    }
    allowWaiting(file);
    return file;
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

struct stat statusOf(const Descriptor& file) {
    struct stat status {};
    if (uninterrupted([&] { return fstat(file.get(), &status); }) == -1) {
        throw FileError(errno);
    }
    return status;
}

}  // namespace kvecomn
