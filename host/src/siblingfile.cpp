#include "siblingfile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <set>
#include <utility>

namespace kvecomn {

namespace {

constexpr char kNamePrefix[] = ".kvecomn-";
constexpr char kNameDigits[] = "0123456789abcdef";
constexpr std::size_t kRandomBytes = 16;
constexpr std::size_t kPrefixLength = sizeof kNamePrefix - 1;
constexpr std::size_t kNameLength = kPrefixLength + 2 * kRandomBytes;

/// A name cannot meet another one by chance; a limit keeps a broken source of chance from a loop
/// without end.
constexpr int kMostAttempts = 16;

/// Directories remembered as looked into; a process that writes to more of them starts over.
constexpr std::size_t kMostRememberedDirectories = 4096;

std::string unpredictableName() {
    std::array<std::uint8_t, kRandomBytes> bytes{};
    std::size_t filled = 0;
    while (filled < bytes.size()) {
        const ssize_t count = uninterrupted(
            [&] { return getrandom(bytes.data() + filled, bytes.size() - filled, 0); });
        if (count <= 0) {
            throw FileError(count == 0 ? EIO : errno, "random name");
        }
        filled += static_cast<std::size_t>(count);
    }
    std::string name = kNamePrefix;
    for (const std::uint8_t byte : bytes) {
        name += kNameDigits[byte >> 4];
        name += kNameDigits[byte & 0xF];
    }
    return name;
}

bool isSiblingName(const char* name) {
    return std::strlen(name) == kNameLength &&
           std::strncmp(name, kNamePrefix, kPrefixLength) == 0 &&
           std::strspn(name + kPrefixLength, kNameDigits) == kNameLength - kPrefixLength;
}

bool tryLock(const Descriptor& file) {
    return uninterrupted([&] { return flock(file.get(), LOCK_EX | LOCK_NB); }) == 0;
}

/// Whether a new file is safe from removeLeftSiblings of another process, which may have come
/// between making and locking.
bool isSafelyLocked(const Descriptor& file) {
    // A file system without locks has none in removeLeftSiblings either: nothing is deleted there.
    const bool isTaken = !tryLock(file) && errno == EWOULDBLOCK;
    return !isTaken && statusOf(file).st_nlink > 0;
}

void removeName(const Place& place, const std::string& name) {
    uninterrupted([&] { return unlinkat(place.directory.get(), name.c_str(), 0); });
}

/// Whether a file may be a sibling that this library made for this user. Elsewhere than in a shared
/// directory it may already have the owner of the file that it was to replace.
bool canBeOurs(const Place& place, const struct stat& status) {
    return S_ISREG(status.st_mode) && (status.st_uid == geteuid() || !place.isShared());
}

void removeIfLeft(const Place& place, const char* name) {
    struct stat status {};
    const Descriptor file(uninterrupted([&] {
        return openat(place.directory.get(), name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    }));
    if (file.isOpen() && fstat(file.get(), &status) == 0 && canBeOurs(place, status) &&
        tryLock(file)) {
        removeName(place, name);
    }
}

/// True once for each directory, but for directories that were forgotten.
bool isFirstVisit(const struct stat& directory) {
    static std::mutex mutex;
    static std::set<std::pair<dev_t, ino_t>> visited;
    const std::lock_guard<std::mutex> lock(mutex);
    if (visited.size() >= kMostRememberedDirectories) {
        visited.clear();
    }
    return visited.emplace(directory.st_dev, directory.st_ino).second;
}

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};

}  // namespace

SiblingFile::SiblingFile(const Place& place, mode_t mode) : SiblingFile(place) {
    for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
        m_name = unpredictableName();
        m_file = makeNew(place, m_name, O_WRONLY, mode);
        m_isOwner = true;
        if (isSafelyLocked(m_file)) {
            return;
        }
        remove();
    }
    throw FileError(EAGAIN, "lock");
}

SiblingFile::~SiblingFile() {
    remove();
}

void SiblingFile::remove() {
    if (m_isOwner) {
        removeName(m_place, m_name);
        m_isOwner = false;
    }
}

void SiblingFile::replace() {
    // Some file systems report lost data at close only. The lock has to stay until the new name is
    // there, so a second descriptor is closed in its stead.
    Descriptor twin(uninterrupted([&] { return fcntl(m_file.get(), F_DUPFD_CLOEXEC, 0); }));
    if (!twin.isOpen()) {
        throw FileError(errno, "close");
    }
    if (const int error = twin.close(); error != 0) {
        throw FileError(error, "close");
    }
    const int directory = m_place.directory.get();
    const int result = uninterrupted(
        [&] { return renameat(directory, m_name.c_str(), directory, m_place.name.c_str()); });
    const int error = errno;
    // A repeated call, or a file server's lost answer, reports a failure of what has been done.
    if (result == -1 && !hasLanded()) {
        throw FileError(error, "rename");
    }
    m_isOwner = false;
}

bool SiblingFile::hasLanded() const {
    struct stat landed {};
    struct stat own {};
    return fstat(m_file.get(), &own) == 0 &&
           fstatat(m_place.directory.get(), m_place.name.c_str(), &landed, AT_SYMLINK_NOFOLLOW) ==
               0 &&
           own.st_dev == landed.st_dev && own.st_ino == landed.st_ino;
}

void removeLeftSiblings(const Place& place) {
    if (!isFirstVisit(place.directoryStatus)) {
        return;
    }
    Descriptor number(uninterrupted(
        [&] { return openat(place.directory.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    const std::unique_ptr<DIR, DirectoryCloser> directory(number.isOpen() ? fdopendir(number.get())
                                                                          : nullptr);
    if (!directory) {
        return;
    }
    number.release();
    while (const dirent* entry = readdir(directory.get())) {
        if (isSiblingName(entry->d_name)) {
            removeIfLeft(place, entry->d_name);
        }
    }
}

}  // namespace kvecomn
