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
    std::string name;
    name.reserve(kNameLength);
    name += kNamePrefix;
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

/// The names in a directory, taken from the kernel by the bufferful. A stream of the C library
/// would make further calls and ask for memory.
class DirectoryNames {
  public:
    explicit DirectoryNames(const Descriptor& directory) : m_directory(directory.get()) {}

    /// The next name, valid until the call after; null at the end or on an error.
    const char* next() {
        if (m_position == m_end && !readMore()) {
            return nullptr;
        }
        const char* const entry = m_buffer + m_position;
        decltype(dirent64::d_reclen) length = 0;
        std::memcpy(&length, entry + offsetof(dirent64, d_reclen), sizeof length);
        m_position += length;
        return entry + offsetof(dirent64, d_name);
    }

  private:
    bool readMore() {
        const ssize_t count =
            uninterrupted([&] { return getdents64(m_directory, m_buffer, sizeof m_buffer); });
        m_position = 0;
        m_end = count > 0 ? static_cast<std::size_t>(count) : 0;
        return m_end > 0;
    }

    int m_directory;
    alignas(dirent64) char m_buffer[std::size_t{16} * 1024] = {};
    std::size_t m_position = 0;
    std::size_t m_end = 0;
};

}  // namespace

SiblingFile::SiblingFile(const Place& place, mode_t mode) : SiblingFile(place) {
    for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
        make(mode);
        if (isSafelyLocked()) {
            return;
        }
        remove();
    }
    throw FileError(EAGAIN, "lock");
}

SiblingFile::~SiblingFile() {
    remove();
}

void SiblingFile::make(mode_t mode) {
    m_name = unpredictableName();
    m_file.descriptor = makeNew(m_place, m_name, O_WRONLY, mode);
    m_isOwner = true;
}

/// Whether the new file is safe from removeLeftSiblings of another process, which may have come
/// between making and locking.
bool SiblingFile::isSafelyLocked() {
    // A file system without locks has none in removeLeftSiblings either: nothing is deleted there.
    const bool isTaken = !tryLock(m_file.descriptor) && errno == EWOULDBLOCK;
    m_file.status = statusOf(m_file.descriptor);
    return !isTaken && m_file.status.st_nlink > 0;
}

void SiblingFile::remove() {
    if (m_isOwner) {
        removeName(m_place, m_name);
        m_isOwner = false;
    }
}

bool SiblingFile::replace() {
    // Some file systems report lost data at close only. The lock goes with it.
    if (const int error = m_file.descriptor.close(); error != 0) {
        throw FileError(error, "close");
    }
    const int directory = m_place.directory.get();
    const int result = uninterrupted(
        [&] { return renameat(directory, m_name.c_str(), directory, m_place.name.c_str()); });
    const int error = errno;
    // A repeated call, or a file server's lost answer, reports a failure of what has been done.
    if (result == -1 && !hasLanded()) {
        if (error == ENOENT) {
            return false;
        }
        throw FileError(error, "rename");
    }
    m_isOwner = false;
    return true;
}

bool SiblingFile::hasLanded() const {
    struct stat landed {};
    return fstatat(m_place.directory.get(), m_place.name.c_str(), &landed, AT_SYMLINK_NOFOLLOW) ==
               0 &&
           isSameFile(m_file.status, landed);
}

void removeLeftSiblings(const Place& place) {
    if (!place.isDirectoryReadable || !isFirstVisit(place.directoryStatus)) {
        return;
    }
    DirectoryNames names(place.directory);
    while (const char* name = names.next()) {
        if (isSiblingName(name)) {
            removeIfLeft(place, name);
        }
    }
}

}  // namespace kvecomn
